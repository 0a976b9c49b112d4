// SPDX-License-Identifier: MIT
//
// OpenCV's cascade for frontal faces, from the data of Debian's package opencv-data.
#include <algorithm>
#include <opencv2/imgproc.hpp>
#include <opencv2/objdetect.hpp>

#include "faces/detector_module.h"

namespace {

constexpr char kCascade[] = "/usr/share/opencv4/haarcascades/haarcascade_frontalface_alt2.xml";
constexpr double kScaleStep = 1.1;
constexpr int kNeighbours = 4;
constexpr int kLongestSide = 1600; // larger photographs are searched reduced
constexpr int kSmallestFace = 32;  // in what is searched

} // namespace

extern "C" __attribute__((visibility("default"))) kova_cli::DetectFunction KovaFrDetect;

int KovaFrDetect(const uint8_t* pixels, uint32_t width, uint32_t height, kova_cli::Detection* out,
                 int most) {
    cv::CascadeClassifier cascade;
    try {
        if (!cascade.load(kCascade)) {
            return -1;
        }
    } catch (const cv::Exception&) {
        return -1;
    }
    const cv::Mat whole(static_cast<int>(height), static_cast<int>(width), CV_8UC1,
                        const_cast<uint8_t*>(pixels));
    const double scale = std::min(1.0, static_cast<double>(kLongestSide) / std::max(width, height));
    cv::Mat searched;
    if (scale < 1) {
        cv::resize(whole, searched, {}, scale, scale, cv::INTER_AREA);
    } else {
        searched = whole.clone();
    }
    cv::equalizeHist(searched, searched);
    std::vector<cv::Rect> faces;
    cascade.detectMultiScale(searched, faces, kScaleStep, kNeighbours, 0,
                             {kSmallestFace, kSmallestFace});
    const int count = std::min(static_cast<int>(faces.size()), most);
    for (int i = 0; i < count; ++i) {
        const cv::Rect& face = faces[static_cast<size_t>(i)];
        const auto back = [scale](int value) { return static_cast<int32_t>(value / scale); };
        out[i] = {back(face.x), back(face.y), back(face.width)};
    }
    return count;
}
