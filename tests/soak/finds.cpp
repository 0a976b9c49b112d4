// SPDX-License-Identifier: MIT
//
// Whole pictures, one after the other: the faces in them and their features.
#include <cstring>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include "orvo/orvo_find.h"
#include "orvo/orvo_fr.h"
#include "soak/memory_watch.h"
#include "soak/progress.h"
#include "soak/soak.h"
#include "support/drawn_frame.h"
#include "support/greymap.h"

namespace orvo_soak {
namespace {

constexpr int32_t kWidth = 320;
constexpr int32_t kHeight = 240;
constexpr int32_t kFaceSide = 144;
constexpr int32_t kRoom = 8;

using Pixels = std::vector<uint8_t>;

struct Found {
    int32_t count = 0;
    OrvoFindFace faces[kRoom];
    float features[kRoom * ORVO_FIND_FEATURE_LENGTH];

    Found() { // records have no bytes between their members
        std::memset(faces, 0, sizeof faces);
        std::memset(features, 0, sizeof features);
    }
    bool operator==(const Found& other) const {
        return count == other.count && std::memcmp(faces, other.faces, sizeof faces) == 0 &&
               std::memcmp(features, other.features, sizeof features) == 0;
    }
};

Pixels ReadFace(const std::string& name) {
    orvo_test::Greymap map = orvo_test::ReadGreymap(ORVO_FIND_PICTURES "/" + name);
    Require(map.width == kFaceSide && map.height == kFaceSide,
            name + " is no grey picture of 144 x 144");
    return std::move(map.pixels);
}

// Faces side by side before what is no face.
Pixels Group(std::initializer_list<const char*> names, uint64_t seed) {
    Pixels picture = orvo_test::DrawFrame(kWidth, kHeight, kWidth, seed);
    size_t left = 8;
    for (const char* name : names) {
        const Pixels face = ReadFace(name);
        for (size_t row = 0; row < kFaceSide; ++row) {
            std::memcpy(&picture[(row + 40) * kWidth + left], &face[row * kFaceSide], kFaceSide);
        }
        left += kFaceSide + 16;
    }
    return picture;
}

Found Find(const Pixels& pixels) {
    const OrvoFindPicture picture = {pixels.data(), kWidth, kHeight, kWidth};
    Found found;
    Require(OrvoFindMirroredFeatures(&picture, ORVO_FIND_SMALLEST, found.faces, found.features,
                                     kRoom, &found.count) == ORVO_FIND_OK,
            "a picture is refused");
    return found;
}

} // namespace

std::string RunFinds(int64_t count, Fault fault) {
    std::vector<uint8_t> core(OrvoFrGetMemorySize());
    std::vector<uint8_t> finder(OrvoFindGetMemorySize(kWidth, kHeight, ORVO_FIND_SMALLEST));
    Require(
        OrvoFrInit() == ORVO_FR_OK && OrvoFindInit() == ORVO_FIND_OK &&
            OrvoFrSetMemory(core.data(), static_cast<uint32_t>(core.size())) == ORVO_FR_OK &&
            OrvoFindSetMemory(finder.data(), static_cast<uint32_t>(finder.size())) == ORVO_FIND_OK,
        "the finder cannot be initialised");
    const std::vector<Pixels> pictures = {Group({"good.pgm", "tilted.pgm"}, 1),
                                          Group({"turned.pgm", "covered.pgm"}, 2), Group({}, 3)};
    std::vector<Found> first;
    for (const Pixels& pixels : pictures) {
        first.push_back(Find(pixels));
    }
    Require(first[0].count == 2 && first[1].count == 2, "the faces are not found");
    MemoryWatch memory(count);
    Progress progress("pictures", count);
    std::vector<std::string> grown;
    for (int64_t round = 0; round < count; ++round) {
        const size_t which = static_cast<size_t>(round) % pictures.size();
        const Found found = Find(pictures[which]);
        if (fault == Fault::kResult && round == count / 2) {
            first[which].features[0] += 1.0f;
        }
        if (fault == Fault::kGrowth) {
            grown.emplace_back(100, 'x');
        }
        Require(found == first[which],
                "picture " + std::to_string(round) + " has other faces than the first time");
        memory.After(round);
        progress.Done(round + 1);
    }
    return "faces and features equal to the first of their picture; " + memory.Text();
}

} // namespace orvo_soak
