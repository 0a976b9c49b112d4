// SPDX-License-Identifier: MIT
// What the two networks touch: every buffer here has exactly its size and stands between unmapped
// pages. The weights are the library's own as they lie in it, enciphered.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "orvo/model_store.h"
#include "orvo/orvo_fr.h"
#include "reference/reference_networks.h"
#include "support/guarded_buffer.h"

namespace {

using orvo_test::GuardedBuffer;

constexpr GuardedBuffer::Place kPlaces[] = {GuardedBuffer::kAtEnd, GuardedBuffer::kAtStart};

void Load(GuardedBuffer& buffer, const std::vector<uint8_t>& bytes) {
    std::copy(bytes.begin(), bytes.end(), buffer.bytes());
}

void ExpectFlipped(GuardedBuffer& buffer, const std::vector<uint8_t>& bytes) {
    for (size_t i = 0; i < bytes.size(); ++i) {
        ASSERT_EQ(buffer.bytes()[i], bytes[i] ^ 0x80) << i;
    }
}

const int8_t* const outputAtLoad = AlignGetOutput();
const int32_t offsetAtLoad = g_alignResOffset;

TEST(AlignmentNetwork, OutputLiesInSlotXBeforeAnyRun) {
    EXPECT_EQ(offsetAtLoad, 0);
    EXPECT_EQ(outputAtLoad, nullptr);
    if (g_alignResOffset == 0) {
        int8_t innerBuf[4];
        AlignSetInnerbuf(innerBuf);
        EXPECT_EQ(AlignGetOutput(), innerBuf);
    }
}

TEST(AlignmentNetwork, TouchesOnlyItsBuffersAndFlipsItsInput) {
    const std::vector<uint8_t> picture = orvo_reference::SeededPicture(0, 1, 24);
    for (const auto place : kPlaces) {
        GuardedBuffer workspace(38408, place);
        GuardedBuffer innerBuf(76032, place);
        GuardedBuffer input(576, place);
        Load(input, picture);
        AlignSetWorkspace(workspace.bytes());
        AlignSetInnerbuf(innerBuf.bytes());
        AlignRun(input.bytes());
        ExpectFlipped(input, picture);
        EXPECT_EQ(g_alignResOffset, 25344);
        EXPECT_EQ(AlignGetOutput(), innerBuf.q7() + 25344);
    }
}

TEST(AlignmentNetwork, AnswersWithItsLastLayersBiasesWhereTheWeightsAreZero) {
    std::memset(g_alignWeights58, 0, sizeof g_alignWeights58);
    const int32_t answer[4] = {-128, 127, 0, 33};
    for (size_t i = 0; i < 4; ++i) {
        g_alignBias58[i] = answer[i] * 256;
    }
    GuardedBuffer workspace(38408);
    GuardedBuffer innerBuf(76032);
    GuardedBuffer input(576);
    AlignSetWorkspace(workspace.bytes());
    AlignSetInnerbuf(innerBuf.bytes());
    AlignRun(input.bytes());
    EXPECT_TRUE(std::equal(answer, answer + 4, AlignGetOutput()));
}

TEST(AlignmentNetwork, NeedsNoAlignmentAndCarriesNothingOver) {
    const std::vector<uint8_t> picture = orvo_reference::SeededPicture(1, 1, 24);
    std::vector<int8_t> answers[4];
    for (size_t offset = 0; offset < 4; ++offset) {
        const auto garbage = static_cast<uint8_t>(37 * offset);
        std::vector<uint8_t> workspace(38408 + offset, garbage);
        std::vector<uint8_t> innerBuf(76032 + offset, garbage);
        std::vector<uint8_t> input(offset);
        input.insert(input.end(), picture.begin(), picture.end());
        AlignSetWorkspace(workspace.data() + offset);
        AlignSetInnerbuf(innerBuf.data() + offset);
        AlignRun(input.data() + offset);
        answers[offset].assign(AlignGetOutput(), AlignGetOutput() + 4);
        EXPECT_EQ(answers[offset], answers[0]);
    }
}

TEST(RecognitionNetwork, TouchesOnlyItsBuffersAndFlipsItsInput) {
    const std::vector<uint8_t> picture = orvo_reference::SeededPicture(0, 3, 96);
    for (const auto place : kPlaces) {
        GuardedBuffer workspace(497668, place);
        GuardedBuffer innerBuf(884736, place);
        GuardedBuffer input(27648, place);
        Load(input, picture);
        FrSetWorkspace(workspace.bytes());
        FrSetInnerbuf(innerBuf.bytes());
        FrRun(input.bytes());
        ExpectFlipped(input, picture);
        EXPECT_EQ(FrGetOutput(), g_frResult);
    }
}

TEST(RecognitionNetwork, FeatureHasUnitLengthOnceTheModelIsPlain) {
    ASSERT_EQ(OrvoFrInit(), 0);
    for (int picture = 0; picture < orvo_reference::kPictures; ++picture) {
        GuardedBuffer workspace(497668);
        GuardedBuffer innerBuf(884736);
        GuardedBuffer input(27648);
        Load(input, orvo_reference::SeededPicture(picture, 3, 96));
        FrSetWorkspace(workspace.bytes());
        FrSetInnerbuf(innerBuf.bytes());
        FrRun(input.bytes());
        double squares = 0;
        for (size_t i = 0; i < 128; ++i) {
            squares +=
                static_cast<double>(FrGetOutput()[i]) * static_cast<double>(FrGetOutput()[i]);
        }
        EXPECT_NEAR(squares, 1.0, 1e-6);
    }
}

// Weights of 0 everywhere in the last layer: 128 zeros have no direction.
TEST(RecognitionNetwork, AllZeroOutputsGiveNotANumberEverywhere) {
    std::memset(g_frWeights106, 0, sizeof g_frWeights106);
    std::memset(g_frBias106, 0, sizeof g_frBias106);
    GuardedBuffer workspace(497668);
    GuardedBuffer innerBuf(884736);
    GuardedBuffer input(27648);
    FrSetWorkspace(workspace.bytes());
    FrSetInnerbuf(innerBuf.bytes());
    FrRun(input.bytes());
    for (size_t i = 0; i < 128; ++i) {
        EXPECT_TRUE(std::isnan(FrGetOutput()[i])) << i;
    }
}

TEST(RecognitionNetwork, NeedsNoAlignmentAndCarriesNothingOver) {
    ASSERT_EQ(OrvoFrInit(), 0);
    const std::vector<uint8_t> picture = orvo_reference::SeededPicture(1, 3, 96);
    std::vector<float> features[2];
    for (size_t offset = 0; offset < 2; ++offset) {
        const auto garbage = static_cast<uint8_t>(211 * offset);
        std::vector<uint8_t> workspace(497668 + offset, garbage);
        std::vector<uint8_t> innerBuf(884736 + offset, garbage);
        std::vector<uint8_t> input(offset);
        input.insert(input.end(), picture.begin(), picture.end());
        FrSetWorkspace(workspace.data() + offset);
        FrSetInnerbuf(innerBuf.data() + offset);
        FrRun(input.data() + offset);
        features[offset].assign(FrGetOutput(), FrGetOutput() + 128);
    }
    EXPECT_EQ(std::memcmp(features[0].data(), features[1].data(), 512), 0);
}

} // namespace
