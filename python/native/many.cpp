// SPDX-License-Identifier: MIT
#include "python/native/many.h"

#include <algorithm>

#include "gallery/checksum.h"
#include "orvo/orvo_fr.h"
#include "search/distances.h"

namespace {

constexpr int64_t kPictureBytes = int64_t{ORVO_FR_IMAGE_SIZE} * ORVO_FR_IMAGE_SIZE;
constexpr int64_t kLength = ORVO_FR_FEATURE_LENGTH;
// Others that stay in the second cache while all features are compared with them.
constexpr int64_t kBlock = 512;

} // namespace

int32_t KovaPythonFeatures(const uint8_t* pictures, int64_t count, float* features, int64_t* done) {
    constexpr int32_t kSide = ORVO_FR_IMAGE_SIZE;
    int32_t status = ORVO_FR_OK;
    for (*done = 0; *done < count; ++*done) {
        const FrImage image = {pictures + *done * kPictureBytes, kSide, kSide, kSide};
        status = OrvoFrRun(&image, features + *done * kLength, ORVO_FR_FEATURE_BYTES);
        if (status != ORVO_FR_OK) {
            break;
        }
    }
    return status;
}

void KovaPythonDistances(const float* a, int64_t aCount, const float* b, int64_t bCount,
                         float* distances) {
    for (int64_t first = 0; first < bCount; first += kBlock) {
        const auto count = static_cast<size_t>(std::min(kBlock, bCount - first));
        const orvo::Features others = orvo::LookThrough(b + first * kLength, count);
        for (int64_t i = 0; i < aCount; ++i) {
            orvo::Distances(a + i * kLength, others, distances + i * bCount + first);
        }
    }
}

void KovaPythonChecksum(uint32_t sums[4], const void* bytes, int64_t count) {
    const kova_cli::Checksum before = {sums[0], sums[1], sums[2], sums[3]};
    const kova_cli::Checksum after =
        kova_cli::ChecksumOf(before, bytes, static_cast<size_t>(count));
    std::copy(after.begin(), after.end(), sums);
}
