// SPDX-License-Identifier: MIT
//
// The samples, put through the library in one call and by its exported steps, give the same bits: the
// box corner for corner as the alignment network answers, where it does not begin before the picture.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <vector>

#include "orvo/image_tools.h"
#include "orvo/orvo_fr.h"
#include "picture_files.h"
#include "program.h"

namespace kova_fr_test {
namespace {

constexpr size_t kPlane = ORVO_FR_CROP_SIZE * ORVO_FR_CROP_SIZE;

// The feature of a picture from the exported functions alone.
std::vector<float> FeatureBySteps(const uint8_t* pixels) {
    std::vector<uint8_t> small(ORVO_FR_ALIGN_SIZE * ORVO_FR_ALIGN_SIZE);
    ImageResizeBilin(pixels, small.data(), 256, 256, 256, ORVO_FR_ALIGN_SIZE, ORVO_FR_ALIGN_SIZE);
    AlignRun(small.data());
    const int8_t* const answer = AlignGetOutput();
    int left = 2 * answer[0];
    int top = 2 * answer[1];
    if (256 * top + left < 0) {
        left = std::max(left, 0);
        top = std::max(top, 0);
    }
    std::vector<uint8_t> planes(3 * kPlane);
    ImageResizeBilin(pixels + 256 * top + left, planes.data(), 2 * answer[3] - top,
                     2 * answer[2] - left, 256, ORVO_FR_CROP_SIZE, ORVO_FR_CROP_SIZE);
    std::memcpy(planes.data() + kPlane, planes.data(), kPlane);
    std::memcpy(planes.data() + 2 * kPlane, planes.data(), kPlane);
    FrRun(planes.data());
    return {FrGetOutput(), FrGetOutput() + ORVO_FR_FEATURE_LENGTH};
}

TEST(Samples, OneCallEqualsItsSteps) {
    std::vector<uint8_t> memory(ORVO_FR_MEMORY_SIZE);
    ASSERT_EQ(OrvoFrInit(), ORVO_FR_OK);
    ASSERT_EQ(OrvoFrSetMemory(memory.data(), ORVO_FR_MEMORY_SIZE), ORVO_FR_OK);
    int samples = 0;
    for (const auto& entry : std::filesystem::directory_iterator(ORVO_SAMPLES)) {
        if (entry.path().extension() != ".png") {
            continue;
        }
        SCOPED_TRACE(entry.path().filename());
        const Grey picture = DecodeGreyPng(ReadFile(entry.path().string()));
        ASSERT_EQ(picture.width, 256u);
        ASSERT_EQ(picture.height, 256u);
        const FrImage image = {picture.pixels.data(), 256, 256, 256};
        std::vector<float> feature(ORVO_FR_FEATURE_LENGTH);
        ASSERT_EQ(OrvoFrRun(&image, feature.data(), ORVO_FR_FEATURE_BYTES), ORVO_FR_OK);
        EXPECT_EQ(
            std::memcmp(feature.data(), FeatureBySteps(image.addr).data(), ORVO_FR_FEATURE_BYTES),
            0);
        ++samples;
    }
    EXPECT_EQ(samples, 36);
}

} // namespace
} // namespace kova_fr_test
