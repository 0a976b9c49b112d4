// SPDX-License-Identifier: MIT
#include "faces/finder.h"

#include <algorithm>

#include "files/failure.h"
#include "pictures/reduce.h"

namespace kova_cli {
namespace {

void Enlarge(OrvoFindFace& face) {
    for (float* length : {&face.left, &face.top, &face.side}) {
        *length *= 2;
    }
    for (OrvoFindPoint& point : face.points) {
        point.x *= 2;
        point.y *= 2;
    }
}

void Reduce(OrvoFindFace& face) {
    for (float* length : {&face.left, &face.top, &face.side}) {
        *length /= 2;
    }
    for (OrvoFindPoint& point : face.points) {
        point.x /= 2;
        point.y /= 2;
    }
}

bool IsTooLarge(const GreyPicture& picture) {
    return std::max(picture.width, picture.height) > ORVO_FIND_MOST_SIDE;
}

OrvoFindPicture ViewOf(const GreyPicture& picture) {
    const auto width = static_cast<int32_t>(picture.width);
    return {picture.pixels.data(), width, static_cast<int32_t>(picture.height), width};
}

uint32_t MemoryFor(const OrvoFindPicture& view, int32_t smallest) {
    return OrvoFindGetMemorySize(view.width, view.height, smallest);
}

// Twice as large until the library can do it.
int32_t SmallestThatCanBeFound(const OrvoFindPicture& view) {
    for (int32_t smallest = ORVO_FIND_SMALLEST; smallest < view.width + view.height;
         smallest *= 2) {
        if (MemoryFor(view, smallest) != 0) {
            return smallest;
        }
    }
    throw Failure("is too narrow to look for faces in: " + std::to_string(view.width) + " x " +
                  std::to_string(view.height) + "; cut it into parts");
}

void Check(int32_t status) {
    if (status != ORVO_FIND_OK) {
        throw Failure("faces could not be looked for (status " + std::to_string(status) +
                      "); report this status");
    }
}

} // namespace

Finder::Finder() {
    // The library opens its model once for the process.
    static const int32_t status = OrvoFindInit();
    if (status != ORVO_FIND_OK) {
        throw Failure("the model that finds faces could not be opened (status " +
                      std::to_string(status) + "); build or install kova-fr anew");
    }
}

void Finder::MakeMemory(uint32_t size) {
    if (size > memory_.size()) {
        memory_.resize(size);
    }
    Check(OrvoFindSetMemory(memory_.data(), static_cast<uint32_t>(memory_.size())));
}

Finder::Features Finder::Look(const GreyPicture& picture, std::optional<int32_t> smallest,
                              int32_t most, bool withFeatures) {
    if (IsTooLarge(picture)) {
        const std::optional<int32_t> half =
            smallest ? std::optional(std::max(*smallest / 2, 1)) : std::nullopt;
        Features found = Look(Halved(picture), half, most, withFeatures);
        std::ranges::for_each(found.faces, Enlarge);
        return found;
    }
    const OrvoFindPicture view = ViewOf(picture);
    if (std::min(view.width, view.height) < ORVO_FIND_LEAST_SIDE) {
        throw Failure("is too small to look for faces in: " + std::to_string(view.width) + " x " +
                      std::to_string(view.height) + ", both sides need " +
                      std::to_string(ORVO_FIND_LEAST_SIDE));
    }
    const int32_t least = smallest ? *smallest : SmallestThatCanBeFound(view);
    const uint32_t size = MemoryFor(view, least);
    if (size == 0) {
        throw Failure("is too large to look for faces of " + std::to_string(least) +
                      " pixels in; look for larger ones (--smallest)");
    }
    MakeMemory(size);
    Features found;
    found.faces.resize(static_cast<size_t>(most));
    int32_t count = 0;
    if (withFeatures) {
        found.features.resize(found.faces.size());
        Check(OrvoFindMirroredFeatures(&view, least, found.faces.data(),
                                       found.features.front().data(), most, &count));
        found.features.resize(static_cast<size_t>(count));
    } else {
        Check(OrvoFindRun(&view, least, found.faces.data(), most, &count));
    }
    found.faces.resize(static_cast<size_t>(count));
    return found;
}

std::vector<OrvoFindFace> Finder::Find(const GreyPicture& picture, std::optional<int32_t> smallest,
                                       int32_t most) {
    return Look(picture, smallest, most, false).faces;
}

Finder::Features Finder::FindFeatures(const GreyPicture& picture, std::optional<int32_t> smallest,
                                      int32_t most) {
    return Look(picture, smallest, most, true);
}

std::vector<uint8_t> Finder::Upright(const GreyPicture& picture, const OrvoFindFace& face) {
    if (IsTooLarge(picture)) {
        OrvoFindFace half = face;
        Reduce(half);
        return Upright(Halved(picture), half);
    }
    const OrvoFindPicture view = ViewOf(picture);
    MakeMemory(MemoryFor(view, SmallestThatCanBeFound(view)));
    std::vector<uint8_t> crop(size_t{ORVO_FIND_CROP_SIZE} * ORVO_FIND_CROP_SIZE);
    Check(OrvoFindUpright(&view, &face, crop.data()));
    return crop;
}

std::vector<std::string> ReasonWords(uint32_t reasons) {
    constexpr const char* kWords[] = {"small",  "blurred", "dark",    "overexposed", "turned",
                                      "tilted", "covered", "cut off", "grimacing"};
    std::vector<std::string> words;
    for (uint32_t i = 0; i < std::size(kWords); ++i) {
        if ((reasons >> i & 1) != 0) {
            words.emplace_back(kWords[i]);
        }
    }
    return words;
}

} // namespace kova_cli
