// SPDX-License-Identifier: MIT
// The core from the caller's side: memory, argument checks, and what flows between the pipeline's
// stages. This executable defines AlignRun and FrRun, so that the library's calls arrive here: the
// tests see what each network is given and, where they want to, answer in its place. It also links
// support/bounded_faults.cpp.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "orvo/image_tools.h"
#include "orvo/model_store.h"
#include "orvo/orvo_fr.h"
#include "reference/reference_small.h"
#include "support/bounded_faults.h"
#include "support/error_line.h"
#include "support/guarded_buffer.h"
#include "support/random.h"
#include "support/stderr_capture.h"

namespace {

using orvo_test::GuardedBuffer;
using orvo_test::Random;

using Bytes = std::vector<uint8_t>;

constexpr uint32_t kMemorySize = 1410052;
constexpr uint32_t kImageOffset = 1382404;

// ---- The networks' places

struct NetworkSeat {
    bool real = false; // pass calls on to the library's own
    int calls = 0;
    const uint8_t* input = nullptr;
    Bytes inputBytes;
};

NetworkSeat align;
NetworkSeat fr;
std::array<int8_t, 4> box = {0, 0, 127, 127}; // the answer in the alignment network's place

void Sit(NetworkSeat& seat, const char* name, uint8_t* input, size_t size) {
    ++seat.calls;
    seat.input = input;
    seat.inputBytes.assign(input, input + size);
    if (seat.real) {
        void* own = dlsym(RTLD_NEXT, name);
        if (own == nullptr) {
            std::abort();
        }
        reinterpret_cast<void (*)(uint8_t*)>(own)(input);
    }
}

} // namespace

extern "C" void AlignRun(uint8_t* input) {
    Sit(align, "AlignRun", input, 576);
    if (!align.real) {
        std::copy(box.begin(), box.end(), AlignGetOutput());
    }
}

extern "C" void FrRun(uint8_t* input) { Sit(fr, "FrRun", input, 27648); }

namespace {

// ---- State at load, taken before any test

struct LoadState {
    uint32_t inited = g_frInited;
    const void* addresses[5] = {g_alignWorkspace, g_alignInnerBuf, g_frWorkspace, g_frInnerBuf,
                                g_frInnerImage};
    int32_t resOffset = g_alignResOffset;
    uint32_t imageSize = g_frInnerImageSize;
    bool resultIsZero = std::all_of(g_frResult, g_frResult + 128, [](float v) { return v == 0; });
    uint32_t memorySize = OrvoFrGetMemorySize();
};

const LoadState loadState;

TEST(CoreState, IsAllZeroAtLoad) {
    EXPECT_EQ(loadState.inited, 0u);
    for (const void* address : loadState.addresses) {
        EXPECT_EQ(address, nullptr);
    }
    EXPECT_EQ(loadState.resOffset, 0);
    EXPECT_EQ(loadState.imageSize, 0u);
    EXPECT_TRUE(loadState.resultIsZero);
    EXPECT_EQ(sizeof g_frResult, 512u);
}

// ---- Helpers

Bytes RandomBytes(uint64_t seed, size_t count) {
    Random random(seed);
    Bytes bytes(count);
    random.Fill(bytes.data(), count);
    return bytes;
}

// What a call writes to standard error; its status is checked on the way.
template <typename Call>
std::string TextOf(int32_t expectedStatus, Call call) {
    orvo_test::StderrCapture capture;
    const int32_t status = call();
    EXPECT_EQ(status, expectedStatus);
    return capture.text();
}

// One line of the core: unit, any line number, then exactly `message` with its line ends.
void ExpectLine(const std::string& text, const std::string& message) {
    EXPECT_TRUE(orvo_test::IsErrorLine(text, "../fr_demo/fr_api", message)) << text;
}

// ---- Working memory

TEST(WorkingMemory, SizeIsFixedBeforeAndAfterInitialisation) {
    EXPECT_EQ(loadState.memorySize, kMemorySize);
    EXPECT_EQ(OrvoFrGetMemorySize(), kMemorySize);
    ASSERT_EQ(OrvoFrInit(), 0);
    EXPECT_EQ(OrvoFrGetMemorySize(), kMemorySize);
}

void ExpectRegionsIn(uint8_t* block) {
    const auto* q7 = reinterpret_cast<int8_t*>(block);
    EXPECT_EQ(g_frWorkspace, q7);
    EXPECT_EQ(g_alignWorkspace, q7);
    EXPECT_EQ(g_alignInnerBuf, q7 + 38408);
    EXPECT_EQ(g_frInnerBuf, q7 + 497668);
    EXPECT_EQ(g_frInnerImage, block + kImageOffset);
    EXPECT_EQ(g_frInnerImageSize, 27648u);
}

TEST(WorkingMemory, RegionsLieAtTheirOffsets) {
    Bytes block(kMemorySize);
    EXPECT_EQ(TextOf(0, [&] { return OrvoFrSetMemory(block.data(), kMemorySize); }), "");
    ExpectRegionsIn(block.data());
}

TEST(WorkingMemory, AnotherBlockTakesEveryRegion) {
    Bytes first(kMemorySize);
    Bytes second(kMemorySize);
    ASSERT_EQ(OrvoFrSetMemory(first.data(), kMemorySize), 0);
    ASSERT_EQ(OrvoFrSetMemory(second.data(), kMemorySize), 0);
    ExpectRegionsIn(second.data());
}

TEST(WorkingMemory, SettingItFillsTheBilinearTableAndTouchesNothingOfTheBlock) {
    Bytes block(kMemorySize, 0x5A);
    std::memset(g_bilinLUT, 0, sizeof g_bilinLUT);
    ASSERT_EQ(OrvoFrSetMemory(block.data(), kMemorySize), 0);
    for (int v = 0; v < 32; ++v) {
        for (int h = 0; h < 32; ++h) {
            const auto expected = orvo_reference::BilinearWeights(v, h);
            ASSERT_TRUE(std::equal(expected.begin(), expected.end(), g_bilinLUT[v][h]));
        }
    }
    EXPECT_EQ(block, Bytes(kMemorySize, 0x5A));
}

TEST(WorkingMemory, NullBlockIsRefusedWithoutLookingAtTheSize) {
    for (const uint32_t size : {kMemorySize, 0u, kMemorySize - 1}) {
        ExpectLine(TextOf(1, [=] { return OrvoFrSetMemory(nullptr, size); }),
                   "OrvoFrSetMemory failed. Input addr is null!\n\n");
    }
}

TEST(WorkingMemory, AnyOtherSizeIsRefusedWithBothSizes) {
    uint8_t block = 0;
    for (const uint32_t size : {kMemorySize - 1, kMemorySize + 1, 0u, UINT32_MAX}) {
        ExpectLine(TextOf(2, [&] { return OrvoFrSetMemory(&block, size); }),
                   "OrvoFrSetMemory failed. Set memory size error: " + std::to_string(size) +
                       ", expect: 1410052\n\n");
    }
}

TEST(WorkingMemory, RefusalsLeaveItUnsetSoThatARunFails) {
    ASSERT_EQ(g_frInnerImage, nullptr) << "needs a process of its own";
    uint8_t block = 0;
    const Bytes picture(256 * 256);
    const FrImage image{picture.data(), 256, 256, 256};
    float feature[128];
    const auto refusals = {std::pair{static_cast<uint8_t*>(nullptr), kMemorySize},
                           std::pair{&block, kMemorySize - 1}, std::pair{&block, kMemorySize + 1}};
    for (const auto& [address, size] : refusals) {
        orvo_test::StderrCapture capture;
        EXPECT_NE(OrvoFrSetMemory(address, size), 0);
        EXPECT_EQ(g_frInnerImage, nullptr);
        EXPECT_EQ(g_frInnerImageSize, 0u);
        EXPECT_EQ(OrvoFrRun(&image, feature, 512), 1);
    }
}

TEST(WorkingMemory, RefusalsLeaveTheFormerBlockAndTheTable) {
    Bytes block(kMemorySize);
    uint8_t other = 0;
    ASSERT_EQ(OrvoFrSetMemory(block.data(), kMemorySize), 0);
    std::memset(g_bilinLUT, 0x11, sizeof g_bilinLUT);
    orvo_test::StderrCapture capture;
    EXPECT_EQ(OrvoFrSetMemory(nullptr, kMemorySize), 1);
    EXPECT_EQ(OrvoFrSetMemory(&other, kMemorySize + 1), 2);
    ExpectRegionsIn(block.data());
    const auto* table = reinterpret_cast<const uint8_t*>(g_bilinLUT);
    EXPECT_TRUE(std::all_of(table, table + sizeof g_bilinLUT, [](uint8_t b) { return b == 0x11; }));
}

TEST(WorkingMemory, AccessorsStoreAndGiveTheAddresses) {
    int8_t bytes[4];
    AlignSetWorkspace(&bytes[0]);
    AlignSetInnerbuf(&bytes[1]);
    FrSetWorkspace(&bytes[2]);
    FrSetInnerbuf(&bytes[3]);
    EXPECT_EQ(g_alignWorkspace, &bytes[0]);
    EXPECT_EQ(g_alignInnerBuf, &bytes[1]);
    EXPECT_EQ(g_frWorkspace, &bytes[2]);
    EXPECT_EQ(g_frInnerBuf, &bytes[3]);
    g_alignResOffset = 2;
    EXPECT_EQ(AlignGetOutput(), &bytes[3]);
    g_alignResOffset = 0;
    EXPECT_EQ(FrGetOutput(), g_frResult);
}

// ---- A run

class Run : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(OrvoFrSetMemory(memory_.data(), kMemorySize), 0);
        Random random(77);
        for (float& value : g_frResult) {
            value = static_cast<float>(random.Between(-1000, 1000));
        }
    }

    // One run on `picture` with that stride, the alignment network answering `answer`.
    void RunWithBox(const uint8_t* picture, std::array<int8_t, 4> answer, int32_t stride = 256) {
        box = answer;
        const FrImage image{picture, 256, 256, stride};
        ASSERT_EQ(OrvoFrRun(&image, feature_.data(), 512), 0);
    }

    // The crop that the recognition network was given, after the checks that all three planes are
    // the same one and lie where they should.
    Bytes Crop() {
        EXPECT_EQ(fr.input, g_frInnerImage);
        const auto plane = fr.inputBytes.begin();
        EXPECT_TRUE(std::equal(plane, plane + 9216, plane + 9216));
        EXPECT_TRUE(std::equal(plane, plane + 9216, plane + 18432));
        return Bytes(plane, plane + 9216);
    }

    Bytes memory_ = Bytes(kMemorySize);
    std::vector<float> feature_ = std::vector<float>(128, 77.0f);
};

// Left, top, right and bottom in pixels, right and bottom exclusive; rows 256 bytes apart.
Bytes ReferenceCrop(const uint8_t* picture, int x0, int y0, int x1, int y1) {
    Bytes crop(9216);
    orvo_reference::ResizeBilinear(picture + y0 * 256 + x0, crop.data(), y1 - y0, x1 - x0, 256, 96,
                                   96);
    return crop;
}

TEST_F(Run, AlignmentSeesTheWholePictureReducedTo24) {
    for (const int32_t stride : {256, 257, 300}) {
        const Bytes picture = RandomBytes(1, static_cast<size_t>(stride) * 256);
        align.calls = 0;
        RunWithBox(picture.data(), {0, 0, 127, 127}, stride);
        Bytes expected(576);
        orvo_reference::ResizeBilinear(picture.data(), expected.data(), 256, 256, stride, 24, 24);
        EXPECT_EQ(align.calls, 1);
        EXPECT_EQ(align.input, g_frInnerImage);
        EXPECT_EQ(align.inputBytes, expected) << stride;
    }
}

TEST_F(Run, AnswerOf0And127GivesTheBoxTo254) {
    const Bytes picture = RandomBytes(2, 65536);
    RunWithBox(picture.data(), {0, 0, 127, 127});
    EXPECT_EQ(Crop(), ReferenceCrop(picture.data(), 0, 0, 254, 254));
}

TEST_F(Run, AnswerInTheMiddleGivesTheBoxOf180) {
    const Bytes picture = RandomBytes(3, 65536);
    RunWithBox(picture.data(), {10, 20, 100, 110});
    EXPECT_EQ(Crop(), ReferenceCrop(picture.data(), 20, 40, 200, 220));
}

TEST_F(Run, EveryBoxInsideThePictureIsTaken) {
    const Bytes picture = RandomBytes(4, 65536);
    std::vector<std::array<int8_t, 4>> boxes = {
        {0, 0, 1, 1}, {126, 126, 127, 127}, {5, 5, 6, 127}, {5, 60, 127, 61}, {40, 40, 88, 88}};
    Random random(5);
    while (boxes.size() < 60) {
        const auto corner = [&] { return static_cast<int8_t>(random.Between(0, 127)); };
        const std::array<int8_t, 4> b = {corner(), corner(), corner(), corner()};
        if (b[0] < b[2] && b[1] < b[3]) {
            boxes.push_back(b);
        }
    }
    for (const auto& b : boxes) {
        RunWithBox(picture.data(), b);
        ASSERT_EQ(Crop(), ReferenceCrop(picture.data(), 2 * b[0], 2 * b[1], 2 * b[2], 2 * b[3]))
            << int{b[0]} << ' ' << int{b[1]} << ' ' << int{b[2]} << ' ' << int{b[3]};
    }
}

// Left of the picture lies the end of the row above.
TEST_F(Run, BoxThatLeavesAtTheLeftIsTakenWhereItsBytesAreThePictures) {
    const Bytes picture = RandomBytes(6, 65536);
    const std::array<int8_t, 4> boxes[] = {
        {-1, 30, 100, 110},  {-5, 10, 1, 20},    {-50, 10, 0, 20}, {-60, 10, -20, 20},
        {-128, 1, 127, 127}, {-128, 1, -127, 2}, {-1, 1, 1, 2},    {-128, 126, 127, 127},
    };
    for (const auto& b : boxes) {
        RunWithBox(picture.data(), b);
        EXPECT_EQ(Crop(), ReferenceCrop(picture.data(), 2 * b[0], 2 * b[1], 2 * b[2], 2 * b[3]))
            << int{b[0]} << ' ' << int{b[1]} << ' ' << int{b[2]} << ' ' << int{b[3]};
    }
}

TEST_F(Run, BoxThatBeginsBeforeThePictureIsCutToIt) {
    const Bytes picture = RandomBytes(6, 65536);
    RunWithBox(picture.data(), {-10, -20, 100, 110});
    EXPECT_EQ(Crop(), ReferenceCrop(picture.data(), 0, 0, 200, 220));
    RunWithBox(picture.data(), {-128, -128, 127, 127});
    EXPECT_EQ(Crop(), ReferenceCrop(picture.data(), 0, 0, 254, 254));
    RunWithBox(picture.data(), {-1, 0, 100, 110});
    EXPECT_EQ(Crop(), ReferenceCrop(picture.data(), 0, 0, 200, 220));
    RunWithBox(picture.data(), {10, -1, 100, 110});
    EXPECT_EQ(Crop(), ReferenceCrop(picture.data(), 20, 0, 200, 220));
}

TEST_F(Run, EmptyReversedOrOutlyingBoxesAreReplacedByTheWholePicture) {
    const Bytes picture = RandomBytes(7, 65536);
    const Bytes whole = ReferenceCrop(picture.data(), 0, 0, 256, 256);
    const std::array<int8_t, 4> boxes[] = {
        {0, 0, 0, 0},       {50, 50, 50, 60},         {50, 50, 60, 50},     {100, 20, 10, 110},
        {20, 110, 100, 20}, {127, 127, 0, 0},         {-50, -50, -10, -10}, {-50, 0, 0, 20},
        {10, -50, 20, -1},  {-128, -128, -128, -128}, {127, 0, -128, 127},  {127, 127, -128, -128},
    };
    for (const auto& b : boxes) {
        RunWithBox(picture.data(), b);
        EXPECT_EQ(Crop(), whole) << int{b[0]} << ' ' << int{b[1]} << ' ' << int{b[2]} << ' '
                                 << int{b[3]};
    }
}

TEST_F(Run, EveryAnswerStaysInsideThePicture) {
    GuardedBuffer ends(65536, GuardedBuffer::kAtEnd);
    GuardedBuffer starts(65536, GuardedBuffer::kAtStart);
    Random random(8);
    for (GuardedBuffer* picture : {&ends, &starts}) {
        random.Fill(picture->bytes(), 65536);
        picture->MakeReadOnly();
        for (int round = 0; round < 60; ++round) {
            RunWithBox(picture->bytes(), {random.Q7(), random.Q7(), random.Q7(), random.Q7()});
        }
        const int8_t extremes[] = {-128, 0, 127};
        for (int i = 0; i < 81; ++i) {
            RunWithBox(picture->bytes(), {extremes[i % 3], extremes[i / 3 % 3], extremes[i / 9 % 3],
                                          extremes[i / 27]});
        }
    }
}

// Whoever puts a run together from the exported functions, corner for corner, gets the same bits,
// wherever all of the box's bytes are the picture's.
TEST_F(Run, EqualsItsExportedStepsForEveryBoxInsideThePlane) {
    align.real = false;
    fr.real = true;
    ASSERT_EQ(OrvoFrInit(), 0);
    const Bytes picture = RandomBytes(12, 65536);
    Random random(13);
    int outside = 0;
    for (int round = 0; round < 500; ++round) {
        const std::array<int8_t, 4> b = {random.Q7(), random.Q7(), random.Q7(), random.Q7()};
        const int start = 2 * b[1] * 256 + 2 * b[0];
        if (b[0] >= b[2] || b[1] >= b[3] || start < 0) {
            continue;
        }
        outside += b[0] < 0;
        RunWithBox(picture.data(), b);
        const std::vector<float> feature = feature_;
        ImageResizeBilin(picture.data() + start, g_frInnerImage, 2 * (b[3] - b[1]),
                         2 * (b[2] - b[0]), 256, 96, 96);
        std::memcpy(g_frInnerImage + 9216, g_frInnerImage, 9216);
        std::memcpy(g_frInnerImage + 18432, g_frInnerImage, 9216);
        FrRun(g_frInnerImage);
        ASSERT_EQ(std::memcmp(feature.data(), FrGetOutput(), 512), 0);
    }
    EXPECT_GT(outside, 10);
}

// The picture's stride counts for the alignment network only.
TEST_F(Run, CropIsTakenWithPitch256WhateverTheStride) {
    const Bytes picture = RandomBytes(9, 300 * 256);
    RunWithBox(picture.data(), {10, 20, 100, 110}, 300);
    EXPECT_EQ(Crop(), ReferenceCrop(picture.data(), 20, 40, 200, 220));
    RunWithBox(picture.data(), {10, 20, 10, 20}, 300);
    EXPECT_EQ(Crop(), ReferenceCrop(picture.data(), 0, 0, 256, 256));
}

TEST_F(Run, PictureOfAnyStrideEndsWithItsLastPixel) {
    GuardedBuffer picture(300 * 255 + 256);
    picture.MakeReadOnly();
    for (const std::array<int8_t, 4> answer :
         {std::array<int8_t, 4>{0, 0, 127, 127}, {-128, -128, 127, 127}, {9, 9, 9, 9}}) {
        RunWithBox(picture.bytes(), answer, 300);
    }
    EXPECT_EQ(fr.inputBytes, Bytes(27648, 0xA5));
}

TEST_F(Run, GivesTheRecognitionNetworksOutput) {
    const Bytes picture = RandomBytes(10, 65536);
    fr.calls = 0;
    RunWithBox(picture.data(), {0, 0, 127, 127});
    EXPECT_EQ(fr.calls, 1);
    EXPECT_EQ(std::memcmp(feature_.data(), g_frResult, 512), 0);
}

TEST_F(Run, ResultMayLieAtAnyAddress) {
    const Bytes picture = RandomBytes(11, 65536);
    const FrImage image{picture.data(), 256, 256, 256};
    for (size_t offset = 1; offset < 4; ++offset) {
        GuardedBuffer result(512 + offset, GuardedBuffer::kAtEnd);
        ASSERT_EQ(OrvoFrRun(&image, result.bytes() + offset, 512), 0);
        EXPECT_EQ(std::memcmp(result.bytes() + offset, g_frResult, 512), 0);
        EXPECT_EQ(result.bytes()[offset - 1], 0xA5);
    }
}

// ---- A run with the real networks

class RealRun : public Run {
  protected:
    void SetUp() override {
        Run::SetUp();
        align.real = true;
        fr.real = true;
    }

    void TearDown() override {
        align.real = false;
        fr.real = false;
    }
};

TEST_F(RealRun, LastLayersAnswerSteersTheCropWhichIsLeftInQ7Form) {
    std::memset(g_alignWeights58, 0, sizeof g_alignWeights58);
    const int32_t answer[4] = {10, 20, 100, 110};
    for (size_t i = 0; i < 4; ++i) {
        g_alignBias58[i] = answer[i] * 256;
    }
    const Bytes picture = RandomBytes(12, 65536);
    RunWithBox(picture.data(), {});
    const Bytes expected = ReferenceCrop(picture.data(), 20, 40, 200, 220);
    EXPECT_EQ(Crop(), expected);
    for (size_t i = 0; i < 27648; ++i) {
        ASSERT_EQ(g_frInnerImage[i] ^ 0x80, expected[i % 9216]) << i;
    }
}

TEST_F(RealRun, EncipheredWeightsReadNothingOutsideThePicture) {
    ASSERT_EQ(g_frInited, 0u) << "needs a process of its own";
    fr.real = false; // the box alone is of interest
    for (const auto place : {GuardedBuffer::kAtEnd, GuardedBuffer::kAtStart}) {
        for (uint64_t seed = 0; seed < 5; ++seed) {
            GuardedBuffer picture(65536, place);
            Random random(seed);
            random.Fill(picture.bytes(), 65536);
            picture.MakeReadOnly();
            RunWithBox(picture.bytes(), {});
        }
    }
}

TEST_F(RealRun, WorksBeforeInitialisationWithoutAnError) {
    ASSERT_EQ(g_frInited, 0u) << "needs a process of its own";
    const Bytes picture = RandomBytes(13, 65536);
    const FrImage image{picture.data(), 256, 256, 256};
    EXPECT_EQ(TextOf(0, [&] { return OrvoFrRun(&image, feature_.data(), 512); }), "");
}

TEST_F(RealRun, FeatureHasUnitLengthAndDependsOnThePictureOnly) {
    ASSERT_EQ(OrvoFrInit(), 0);
    const Bytes picture = RandomBytes(14, 65536);
    const Bytes other = RandomBytes(15, 65536);
    RunWithBox(picture.data(), {});
    const std::vector<float> first = feature_;
    RunWithBox(other.data(), {});
    EXPECT_NE(std::memcmp(first.data(), feature_.data(), 512), 0);
    // Another block, other leftovers in it: the same bits.
    Bytes noise = RandomBytes(16, kMemorySize);
    ASSERT_EQ(OrvoFrSetMemory(noise.data(), kMemorySize), 0);
    RunWithBox(picture.data(), {});
    EXPECT_EQ(std::memcmp(first.data(), feature_.data(), 512), 0);
    double squares = 0;
    for (const float value : first) {
        squares += static_cast<double>(value) * static_cast<double>(value);
    }
    EXPECT_NEAR(squares, 1.0, 1e-6);
}

// The block's first and last byte touch unmapped pages; then odd addresses, between watched bytes.
TEST_F(RealRun, TouchesOnlyItsBlockAtAnyAddress) {
    ASSERT_EQ(OrvoFrInit(), 0);
    const Bytes picture = RandomBytes(17, 65536);
    RunWithBox(picture.data(), {});
    const std::vector<float> expected = feature_;
    for (const auto place : {GuardedBuffer::kAtEnd, GuardedBuffer::kAtStart}) {
        GuardedBuffer block(kMemorySize, place);
        ASSERT_EQ(OrvoFrSetMemory(block.bytes(), kMemorySize), 0);
        RunWithBox(picture.data(), {});
        EXPECT_EQ(std::memcmp(expected.data(), feature_.data(), 512), 0);
    }
    for (const size_t offset : {1u, 3u}) {
        GuardedBuffer block(offset + kMemorySize + 61, GuardedBuffer::kAtStart);
        ASSERT_EQ(OrvoFrSetMemory(block.bytes() + offset, kMemorySize), 0);
        RunWithBox(picture.data(), {});
        EXPECT_EQ(std::memcmp(expected.data(), feature_.data(), 512), 0);
        const auto untouched = [](uint8_t b) { return b == 0xA5; };
        EXPECT_TRUE(std::all_of(block.bytes(), block.bytes() + offset, untouched));
        EXPECT_TRUE(std::all_of(block.bytes() + offset + kMemorySize, block.bytes() + block.size(),
                                untouched));
    }
}

TEST_F(RealRun, AddressesAreReadAnewInEveryRun) {
    ASSERT_EQ(OrvoFrInit(), 0);
    const Bytes picture = RandomBytes(18, 65536);
    RunWithBox(picture.data(), {});
    const std::vector<float> expected = feature_;
    GuardedBuffer alignWorkspace(38408);
    GuardedBuffer alignInnerBuf(76032);
    GuardedBuffer frWorkspace(497668);
    GuardedBuffer frInnerBuf(884736);
    g_alignWorkspace = alignWorkspace.q7();
    g_alignInnerBuf = alignInnerBuf.q7();
    g_frWorkspace = frWorkspace.q7();
    g_frInnerBuf = frInnerBuf.q7();
    // Only the inner image is left of the block.
    std::fill(memory_.begin(), memory_.begin() + kImageOffset, uint8_t{0x3C});
    RunWithBox(picture.data(), {});
    EXPECT_EQ(std::memcmp(expected.data(), feature_.data(), 512), 0);
    EXPECT_TRUE(std::all_of(memory_.begin(), memory_.begin() + kImageOffset,
                            [](uint8_t b) { return b == 0x3C; }));
}

// ---- Argument checks, in their order; CheckInput and OrvoFrRun say the same

struct Arguments {
    FrImage image;
    void* result;
    uint32_t resultSize;
};

class ArgumentCheck : public Run {
  protected:
    Arguments Good() { return {{picture_.data(), 256, 256, 256}, feature_.data(), 512}; }

    // Both functions refuse with that status and message, and nothing is touched.
    void ExpectRefusal(const Arguments& a, bool nullImage, int32_t status,
                       const std::string& message) {
        const FrImage* img = nullImage ? nullptr : &a.image;
        ExpectLine(TextOf(status, [&] { return CheckInput(img, a.result, a.resultSize); }),
                   message);
        const Bytes memoryBefore = memory_;
        align.calls = 0;
        fr.calls = 0;
        ExpectLine(TextOf(status, [&] { return OrvoFrRun(img, a.result, a.resultSize); }), message);
        EXPECT_EQ(align.calls + fr.calls, 0);
        EXPECT_EQ(memory_, memoryBefore);
        EXPECT_EQ(feature_, std::vector<float>(128, 77.0f));
    }

    Bytes picture_ = Bytes(65536 + 44 * 256, 50);
};

const std::string kNullMessage =
    "CheckInput failed. The img or imgAddr or resultAddr or g_frInnerImage is null!\n\n";

TEST_F(ArgumentCheck, AcceptsAGoodImage) {
    const Arguments a = Good();
    EXPECT_EQ(TextOf(0, [&] { return CheckInput(&a.image, a.result, 512); }), "");
    EXPECT_EQ(TextOf(0, [&] { return OrvoFrRun(&a.image, a.result, 512); }), "");
}

TEST_F(ArgumentCheck, AcceptsAnyLargerStride) {
    for (const int32_t stride : {257, 300, INT32_MAX}) {
        Arguments a = Good();
        a.image.stride = stride;
        EXPECT_EQ(TextOf(0, [&] { return CheckInput(&a.image, a.result, 512); }), "");
    }
}

TEST_F(ArgumentCheck, NullsComeFirst) {
    Arguments a = Good();
    ExpectRefusal(a, true, 1, kNullMessage);
    a.result = nullptr;
    ExpectRefusal(a, false, 1, kNullMessage);
    // Also when everything else is wrong.
    a.image = {picture_.data(), 1, 2, 3};
    a.resultSize = 4;
    ExpectRefusal(a, false, 1, kNullMessage);
    a = Good();
    a.image.addr = nullptr;
    a.image.height = 1;
    ExpectRefusal(a, false, 1, kNullMessage);
}

TEST_F(ArgumentCheck, MissingWorkingMemoryIsANull) {
    g_frInnerImage = nullptr;
    Arguments a = Good();
    a.image.height = 1;
    ExpectRefusal(a, false, 1, kNullMessage);
}

TEST(ArgumentCheckBeforeSetMemory, EveryCallFails) {
    ASSERT_EQ(g_frInnerImage, nullptr) << "needs a process of its own";
    const Bytes picture(65536);
    const FrImage image{picture.data(), 256, 256, 256};
    float feature[128];
    ExpectLine(TextOf(1, [&] { return OrvoFrRun(&image, feature, 512); }), kNullMessage);
    ExpectLine(TextOf(1, [&] { return CheckInput(&image, feature, 512); }), kNullMessage);
    ASSERT_EQ(OrvoFrInit(), 0);
    ExpectLine(TextOf(1, [&] { return OrvoFrRun(&image, feature, 512); }), kNullMessage);
}

TEST_F(ArgumentCheck, HeightIsCheckedBeforeWidthStrideAndResultSize) {
    for (const int32_t height : {255, 257, 0, -256}) {
        Arguments a = Good();
        a.image.height = height;
        const std::string message =
            "CheckInput failed. InImage height error: " + std::to_string(height) +
            ", expect: 256\n\n";
        ExpectRefusal(a, false, 2, message);
        a.image.width = 9;
        a.image.stride = 9;
        a.resultSize = 9;
        ExpectRefusal(a, false, 2, message);
    }
}

TEST_F(ArgumentCheck, WidthIsCheckedBeforeStrideAndResultSize) {
    for (const int32_t width : {255, 257, 0, -256}) {
        Arguments a = Good();
        a.image.width = width;
        const std::string message =
            "CheckInput failed. InImage weight error: " + std::to_string(width) +
            ", expect: 256\n\n";
        ExpectRefusal(a, false, 2, message);
        a.image.stride = 9;
        a.resultSize = 9;
        ExpectRefusal(a, false, 2, message);
    }
}

TEST_F(ArgumentCheck, StrideIsCheckedSignedAndBeforeTheResultSize) {
    for (const int32_t stride : {255, 0, -1, -256, INT32_MIN}) {
        Arguments a = Good();
        a.image.stride = stride;
        const std::string message =
            "CheckInput failed. InImage stride error: " + std::to_string(stride) +
            ", expect greater than or equal to: 256\n\n";
        ExpectRefusal(a, false, 2, message);
        a.resultSize = 9;
        ExpectRefusal(a, false, 2, message);
    }
}

TEST_F(ArgumentCheck, ResultSizeMustBeExactly512) {
    for (const uint32_t size : {511u, 513u, 0u, 128u, UINT32_MAX}) {
        Arguments a = Good();
        a.resultSize = size;
        ExpectRefusal(a, false, 2,
                      "CheckInput failed. Result buffer size error: " + std::to_string(size) +
                          ", expect: 512\n\n");
    }
}

// ---- Failed copies

class FailedCopy : public Run {
  protected:
    void SetUp() override {
        Run::SetUp();
        box = {0, 0, 127, 127};
        orvo_test::RecordBoundedCalls();
        EXPECT_EQ(OrvoFrRun(&image_, feature_.data(), 512), 0);
        clean_ = orvo_test::BoundedCalls();
        orvo_test::StopBoundedFaults();
        std::fill(feature_.begin(), feature_.end(), 77.0f);
        fr.calls = 0;
    }

    // The run's bounded calls up to the one that writes `dst`, which fails with `code`.
    std::string RunFailing(const void* dst, int code) {
        const auto failing = std::find_if(clean_.begin(), clean_.end(),
                                          [=](const auto& call) { return call.dst == dst; });
        EXPECT_NE(failing, clean_.end());
        const auto n = static_cast<int>(failing - clean_.begin()) + 1;
        const std::string text = TextOf(2, [&] {
            orvo_test::RecordBoundedCalls();
            orvo_test::FailBoundedCall(n, code);
            return OrvoFrRun(&image_, feature_.data(), 512);
        });
        EXPECT_EQ(orvo_test::BoundedCalls().size(), static_cast<size_t>(n));
        orvo_test::StopBoundedFaults();
        EXPECT_EQ(feature_, std::vector<float>(128, 77.0f));
        return text;
    }

    Bytes picture_ = RandomBytes(20, 65536);
    FrImage image_{picture_.data(), 256, 256, 256};
    std::vector<orvo_test::BoundedCall> clean_;
};

TEST_F(FailedCopy, NoneInACleanRunWhichCopiesTwoPlanesAndTheFeature) {
    ASSERT_EQ(clean_.size(), 3u);
    for (size_t i = 0; i < 3; ++i) {
        EXPECT_TRUE(clean_[i].isCopy);
        EXPECT_EQ(clean_[i].result, 0);
    }
    EXPECT_EQ(clean_[0].dst, g_frInnerImage + 9216);
    EXPECT_EQ(clean_[0].dstSize, 27648u - 9216);
    EXPECT_EQ(clean_[0].src, g_frInnerImage);
    EXPECT_EQ(clean_[0].count, 9216u);
    EXPECT_EQ(clean_[1].dst, g_frInnerImage + 18432);
    EXPECT_EQ(clean_[1].dstSize, 27648u - 18432);
    EXPECT_EQ(clean_[1].src, g_frInnerImage);
    EXPECT_EQ(clean_[1].count, 9216u);
    EXPECT_EQ(clean_[2].dst, feature_.data());
    EXPECT_EQ(clean_[2].dstSize, 512u);
    EXPECT_EQ(clean_[2].src, g_frResult);
    EXPECT_EQ(clean_[2].count, 512u);
}

TEST_F(FailedCopy, OfTheSecondPlaneEndsTheRun) {
    ExpectLine(RunFailing(g_frInnerImage + 9216, 34),
               "Duplicate data for FR model failed, the memcpy_s ret: 34\n\n");
    EXPECT_EQ(fr.calls, 0);
}

TEST_F(FailedCopy, OfTheThirdPlaneEndsTheRun) {
    ExpectLine(RunFailing(g_frInnerImage + 18432, 22),
               "Duplicate data for FR model failed, the memcpy_s ret: 22\n\n");
    EXPECT_EQ(fr.calls, 0);
}

TEST_F(FailedCopy, OfTheFeatureIsReportedAfterTheNetworkHasRun) {
    ExpectLine(RunFailing(feature_.data(), -7),
               "Get FR model output failed, the memcpy_s ret: -7\n\n");
    EXPECT_EQ(fr.calls, 1);
}

// The image size is the module's own word for how much room there is.
TEST_F(FailedCopy, OfAPlaneThatDoesNotFitTheImageRegion) {
    g_frInnerImageSize = 18432 + 9215;
    ExpectLine(TextOf(2, [&] { return OrvoFrRun(&image_, feature_.data(), 512); }),
               "Duplicate data for FR model failed, the memcpy_s ret: 34\n\n");
}

// ---- Initialisation, as far as the frame goes

TEST(Initialisation, RepeatedIsRefused) {
    ASSERT_EQ(OrvoFrInit(), 0);
    EXPECT_EQ(g_frInited, 1u);
    ExpectLine(TextOf(7, [] { return OrvoFrInit(); }), "Repeat init.\n");
    EXPECT_EQ(g_frInited, 1u);
}

} // namespace
