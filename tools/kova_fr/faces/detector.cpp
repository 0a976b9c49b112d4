// SPDX-License-Identifier: MIT
#include "faces/detector.h"

#include <dlfcn.h>

#include <algorithm>
#include <array>

#include "device_api/frame_size.h"
#include "faces/detector_module.h"
#include "files/failure.h"

namespace kova_cli {
namespace {

constexpr int kMostFaces = 256;
// Of the detected square: the frame shows the face with some of what is around it.
constexpr double kFrameOfFace = 1.7;
constexpr int32_t kSmallestFrame = orvo::kMinFrameWidth;

DetectFunction* LoadDetector() {
    // Stays loaded to the end.
    void* const module = dlopen(kDetectorModule, RTLD_NOW | RTLD_LOCAL);
    void* const function = module == nullptr ? nullptr : dlsym(module, kDetectFunction);
    if (function == nullptr) {
        throw Failure(
            "the face detector is not there; install libopencv-objdetect-dev and "
            "opencv-data and build again, or give the face with --box");
    }
    return reinterpret_cast<DetectFunction*>(function);
}

// A square around the face, moved and made smaller as far as it would leave the picture.
Box FrameOf(const Detection& face, const GreyPicture& picture) {
    const auto width = static_cast<int32_t>(picture.width);
    const auto height = static_cast<int32_t>(picture.height);
    const auto wanted = static_cast<int32_t>(face.side * kFrameOfFace);
    const int32_t side =
        std::max(std::min({wanted, width, height}) / 2 * 2, std::min(kSmallestFrame, width));
    const auto begin = [side](int32_t from, int32_t faceSide, int32_t limit) {
        return static_cast<uint32_t>(
            std::clamp(from + faceSide / 2 - side / 2, 0, std::max(limit - side, 0)));
    };
    return {begin(face.left, face.side, width), begin(face.top, face.side, height),
            static_cast<uint32_t>(side), static_cast<uint32_t>(side)};
}

std::vector<Box> DetectIn(const GreyPicture& picture) {
    static DetectFunction* const detect = LoadDetector();
    std::array<Detection, kMostFaces> found;
    const int count =
        detect(picture.pixels.data(), picture.width, picture.height, found.data(), kMostFaces);
    if (count < 0) {
        throw Failure("the face detector has no data; install opencv-data");
    }
    if (count == 0) {
        throw Failure("no face was found; give it with --box, or use a larger or sharper picture");
    }
    std::stable_sort(found.begin(), found.begin() + count,
                     [](const Detection& a, const Detection& b) { return a.side > b.side; });
    std::vector<Box> boxes;
    for (int i = 0; i < count; ++i) {
        boxes.push_back(FrameOf(found[static_cast<size_t>(i)], picture));
    }
    return boxes;
}

} // namespace

std::vector<Box> DetectFaces(const std::string& path) {
    const GreyPicture picture = LoadPicture(path);
    try {
        return DetectIn(picture);
    } catch (const Failure& failure) {
        throw Failure(path + ": " + failure.what());
    }
}

} // namespace kova_cli
