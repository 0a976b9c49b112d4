// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "platform/platform_fixture.h"
#include "support/random.h"

using namespace platform_test;

namespace {

// Scales a picture through media memory, with spare bytes at the end of every row.
Picture Scale(const Picture& picture, uint32_t width, uint32_t height, uint32_t srcSpare = 0,
              uint32_t dstSpare = 0) {
    const uint32_t srcStride = picture.width + srcSpare;
    const uint32_t dstStride = width + dstSpare;
    const Memory in = Allocate(srcStride * picture.height);
    const Memory out = Allocate(dstStride * height);
    std::memset(in.vir, 0xEE, size_t{srcStride} * picture.height);
    std::memset(out.vir, 0xDD, size_t{dstStride} * height);
    Store(picture, in.bytes(), srcStride);
    kova_vgs_task task{};
    task.in = Frame(in.phy, picture.width, picture.height, srcStride);
    task.out = Frame(out.phy, width, height, dstStride);
    int32_t handle = -1;
    EXPECT_EQ(KOVA_MPI_VGS_BeginJob(&handle), 0);
    EXPECT_EQ(KOVA_MPI_VGS_AddScaleTask(handle, &task, KOVA_VGS_SCALE_COEF_NORMAL), 0);
    EXPECT_EQ(KOVA_MPI_VGS_EndJob(handle), 0);
    const Picture scaled = Load(out.bytes(), width, height, dstStride);
    for (uint32_t y = 0; y < height; ++y) {
        const uint8_t* const spare = out.bytes() + uint64_t{y} * dstStride + width;
        EXPECT_TRUE(std::all_of(spare, spare + dstSpare, [](uint8_t b) { return b == 0xDD; }));
    }
    EXPECT_EQ(Load(in.bytes(), picture.width, picture.height, srcStride).pixels, picture.pixels);
    EXPECT_EQ(KOVA_MPI_SYS_MmzFree(in.phy, in.vir), 0);
    EXPECT_EQ(KOVA_MPI_SYS_MmzFree(out.phy, out.vir), 0);
    return scaled;
}

// The plain definition of a centre-aligned bilinear scale, in double precision.
std::vector<double> PlainBilinear(const Picture& picture, uint32_t width, uint32_t height) {
    const auto position = [](uint32_t i, uint32_t from, uint32_t to) {
        return std::clamp((i + 0.5) * from / to - 0.5, 0.0, from - 1.0);
    };
    std::vector<double> out;
    for (uint32_t y = 0; y < height; ++y) {
        const double v = position(y, picture.height, height);
        const uint32_t y0 = static_cast<uint32_t>(v);
        const uint32_t y1 = std::min(y0 + 1, picture.height - 1);
        for (uint32_t x = 0; x < width; ++x) {
            const double u = position(x, picture.width, width);
            const uint32_t x0 = static_cast<uint32_t>(u);
            const uint32_t x1 = std::min(x0 + 1, picture.width - 1);
            const double top = picture.at(x0, y0) * (1 - (u - x0)) + picture.at(x1, y0) * (u - x0);
            const double low = picture.at(x0, y1) * (1 - (u - x0)) + picture.at(x1, y1) * (u - x0);
            out.push_back(top * (1 - (v - y0)) + low * (v - y0));
        }
    }
    return out;
}

double Correlation(const std::vector<uint8_t>& a, const std::vector<double>& b) {
    const double n = static_cast<double>(a.size());
    double sumA = 0, sumB = 0, sumAA = 0, sumBB = 0, sumAB = 0;
    for (size_t i = 0; i < a.size(); ++i) {
        sumA += a[i];
        sumB += b[i];
        sumAA += double{1} * a[i] * a[i];
        sumBB += b[i] * b[i];
        sumAB += a[i] * b[i];
    }
    return (sumAB - sumA * sumB / n) /
           std::sqrt((sumAA - sumA * sumA / n) * (sumBB - sumB * sumB / n));
}

Picture Smooth(uint32_t width, uint32_t height) {
    return Draw(width, height, [=](uint32_t x, uint32_t y) {
        return static_cast<uint8_t>(
            std::lround(127.5 + 70 * std::sin(6.0 * x / width) + 50 * std::cos(9.0 * y / height)));
    });
}

// Noise at every scale, coarse grains strong and fine ones weak, as in photographs, with a hard
// bright edge across it.
Picture Natural(uint32_t width, uint32_t height, uint64_t seed) {
    orvo_test::Random random(seed);
    std::vector<double> sum(uint64_t{width} * height, 110.0);
    for (uint32_t cell = 64; cell >= 1; cell /= 2) {
        const uint32_t columns = width / cell + 1;
        std::vector<double> grain(uint64_t{columns} * (height / cell + 1));
        for (double& g : grain) {
            g = (random.Byte() - 127.5) / 127.5 * (4 + cell * 0.5);
        }
        for (uint32_t y = 0; y < height; ++y) {
            for (uint32_t x = 0; x < width; ++x) {
                sum[uint64_t{y} * width + x] += grain[uint64_t{y / cell} * columns + x / cell];
            }
        }
    }
    return Draw(width, height, [&](uint32_t x, uint32_t y) {
        const double edge = uint64_t{x} * height > uint64_t{y} * width ? 45.0 : 0.0;
        return static_cast<uint8_t>(std::clamp(sum[uint64_t{y} * width + x] + edge, 0.0, 255.0));
    });
}

void ExpectPlainBilinear(const Picture& picture, uint32_t width, uint32_t height) {
    SCOPED_TRACE(testing::Message()
                 << picture.width << " x " << picture.height << " to " << width << " x " << height);
    const Picture scaled = Scale(picture, width, height, 3, 5);
    const std::vector<double> plain = PlainBilinear(picture, width, height);
    EXPECT_GT(Correlation(scaled.pixels, plain), 0.99);
    double worst = 0;
    for (size_t i = 0; i < plain.size(); ++i) {
        worst = std::max(worst, std::fabs(scaled.pixels[i] - plain[i]));
    }
    EXPECT_LE(worst, 0.51);
}

} // namespace

TEST(Scaler, IsThePlainBilinearScaleOnSmoothPictures) {
    ExpectPlainBilinear(Smooth(16, 12), 256, 256);
    ExpectPlainBilinear(Smooth(640, 480), 256, 256);
    ExpectPlainBilinear(Smooth(333, 257), 256, 256);
    ExpectPlainBilinear(Smooth(200, 300), 256, 256);
    ExpectPlainBilinear(Smooth(256, 256), 101, 37);
    ExpectPlainBilinear(Smooth(31, 17), 500, 331);
}

TEST(Scaler, IsThePlainBilinearScaleOnNaturalPictures) {
    ExpectPlainBilinear(Natural(160, 120, 1), 256, 256);
    ExpectPlainBilinear(Natural(640, 360, 2), 256, 256);
    ExpectPlainBilinear(Natural(513, 770, 3), 256, 256);
    ExpectPlainBilinear(Natural(258, 254, 4), 256, 256);
    ExpectPlainBilinear(Natural(97, 89, 5), 211, 199);
}

TEST(Scaler, ScalesFromAndToExtremeSizes) {
    EXPECT_EQ(Scale(Draw(1, 1, [](uint32_t, uint32_t) { return 93; }), 5, 3).pixels,
              std::vector<uint8_t>(15, 93));
    EXPECT_EQ(
        Scale(Draw(3, 3, [](uint32_t x, uint32_t y) { return x == 1 && y == 1 ? 200 : 0; }), 1, 1)
            .pixels,
        std::vector<uint8_t>{200});
    ExpectPlainBilinear(Natural(700, 2, 6), 2, 300);
    EXPECT_EQ(Scale(Draw(40000, 1, [](uint32_t, uint32_t) { return 255; }), 3, 2).pixels,
              std::vector<uint8_t>(6, 255));
}

TEST(Scaler, CopiesAPictureOfTheSameSize) {
    const Picture picture = Natural(123, 45, 7);
    EXPECT_EQ(Scale(picture, 123, 45, 9, 2).pixels, picture.pixels);
}

TEST(Scaler, KeepsAFlatPictureFlat) {
    for (const int level : {0, 1, 127, 254, 255}) {
        const Picture flat =
            Draw(37, 23, [=](uint32_t, uint32_t) { return static_cast<uint8_t>(level); });
        const Picture scaled = Scale(flat, 64, 64, 1, 0);
        EXPECT_EQ(scaled.pixels, std::vector<uint8_t>(64 * 64, static_cast<uint8_t>(level)));
    }
}

TEST(Scaler, RunsEveryTaskOfAJobInOrderWhenItEnds) {
    const Memory memory = Allocate(4096);
    std::memset(memory.vir, 50, 64);
    kova_vgs_task first{};
    first.in = Frame(memory.phy, 8, 8, 8);
    first.out = Frame(memory.phy + 1000, 16, 16, 16);
    kova_vgs_task second{};
    second.in = Frame(memory.phy + 1000, 16, 16, 16); // what the first one wrote
    second.out = Frame(memory.phy + 2000, 4, 4, 4);
    int32_t handle = -1;
    ASSERT_EQ(KOVA_MPI_VGS_BeginJob(&handle), 0);
    ASSERT_EQ(KOVA_MPI_VGS_AddScaleTask(handle, &first, 1), 0);
    ASSERT_EQ(KOVA_MPI_VGS_AddScaleTask(handle, &second, 1), 0);
    EXPECT_EQ(memory.bytes()[1000], 0);
    EXPECT_EQ(memory.bytes()[2000], 0);
    ASSERT_EQ(KOVA_MPI_VGS_EndJob(handle), 0);
    EXPECT_EQ(memory.bytes()[1255], 50);
    EXPECT_EQ(memory.bytes()[2015], 50);
    EXPECT_EQ(memory.bytes()[2016], 0);
}

TEST(Scaler, GoesByPhysicalAddressOnly) {
    const Memory memory = Allocate(4096);
    std::memset(memory.vir, 9, 64);
    uint8_t decoy[64] = {};
    kova_vgs_task task{};
    task.in = Frame(memory.phy, 8, 8, 8);
    task.in.vir_addr[0] = reinterpret_cast<uintptr_t>(decoy);
    task.out = Frame(memory.phy + 64, 8, 8, 8);
    task.out.vir_addr[0] = reinterpret_cast<uintptr_t>(decoy);
    int32_t handle = -1;
    ASSERT_EQ(KOVA_MPI_VGS_BeginJob(&handle), 0);
    ASSERT_EQ(KOVA_MPI_VGS_AddScaleTask(handle, &task, 1), 0);
    ASSERT_EQ(KOVA_MPI_VGS_EndJob(handle), 0);
    EXPECT_EQ(memory.bytes()[127], 9);
    EXPECT_EQ(decoy[0], 0);
    // A virtual address in the place of the physical one is not mistaken for it.
    task.in.phy_addr[0] = reinterpret_cast<uintptr_t>(memory.vir);
    ASSERT_EQ(KOVA_MPI_VGS_BeginJob(&handle), 0);
    EXPECT_EQ(KOVA_MPI_VGS_AddScaleTask(handle, &task, 1), KOVA_VGS_ERR_ILLEGAL_PARAM);
}

TEST(Scaler, RefusesFramesThatAreNotValid) {
    const Memory in = Allocate(64 * 64);
    const Memory out = Allocate(32 * 32);
    kova_vgs_task good{};
    good.in = Frame(in.phy, 60, 64, 64);
    good.out = Frame(out.phy, 32, 32, 32);
    int32_t handle = -1;
    ASSERT_EQ(KOVA_MPI_VGS_BeginJob(&handle), 0);
    const auto add = [&](void (*spoil)(kova_video_frame&), kova_video_frame kova_vgs_task::*frame) {
        kova_vgs_task task = good;
        spoil(task.*frame);
        return KOVA_MPI_VGS_AddScaleTask(handle, &task, 1);
    };
    using F = kova_video_frame;
    for (const auto frame : {&kova_vgs_task::in, &kova_vgs_task::out}) {
        EXPECT_EQ(add([](F&) {}, frame), 0);
        const int32_t refused = KOVA_VGS_ERR_ILLEGAL_PARAM;
        EXPECT_EQ(add([](F& f) { f.pixel_format = 39; }, frame), refused);
        EXPECT_EQ(add([](F& f) { f.width = 0; }, frame), refused);
        EXPECT_EQ(add([](F& f) { f.height = 0; }, frame), refused);
        EXPECT_EQ(add([](F& f) { f.stride[0] = f.width - 1; }, frame), refused);
        EXPECT_EQ(add([](F& f) { f.height += 1; }, frame), refused); // past the block's end
        EXPECT_EQ(add([](F& f) { f.stride[0] += 1; }, frame), refused);
        EXPECT_EQ(add([](F& f) { f.stride[0] = 0x80000000; }, frame), refused);
        EXPECT_EQ(add([](F& f) { f.phy_addr[0] = 0; }, frame), refused);
        EXPECT_EQ(add([](F& f) { f.phy_addr[0] -= 1; }, frame), refused);
        EXPECT_EQ(add([](F& f) { f.phy_addr[0] += 1; }, frame), refused);
        EXPECT_EQ(add([](F& f) { f.phy_addr[0] &= UINT32_MAX; }, frame), refused);
    }
    EXPECT_EQ(KOVA_MPI_VGS_AddScaleTask(handle, &good, 0), KOVA_VGS_ERR_ILLEGAL_PARAM);
    EXPECT_EQ(KOVA_MPI_VGS_AddScaleTask(handle, nullptr, 1), KOVA_VGS_ERR_NULL_PTR);
    EXPECT_EQ(KOVA_MPI_VGS_EndJob(handle), 0); // the two good tasks
}

TEST(Scaler, RefusesFramesThatOverlap) {
    const Memory memory = Allocate(4096);
    kova_vgs_task task{};
    task.in = Frame(memory.phy, 16, 16, 16);
    task.out = Frame(memory.phy + 255, 16, 16, 16);
    int32_t handle = -1;
    ASSERT_EQ(KOVA_MPI_VGS_BeginJob(&handle), 0);
    EXPECT_EQ(KOVA_MPI_VGS_AddScaleTask(handle, &task, 1), KOVA_VGS_ERR_ILLEGAL_PARAM);
    task.out.phy_addr[0] += 1;
    EXPECT_EQ(KOVA_MPI_VGS_AddScaleTask(handle, &task, 1), 0);
    std::swap(task.in, task.out); // what is written lies in front
    EXPECT_EQ(KOVA_MPI_VGS_AddScaleTask(handle, &task, 1), 0);
    task.out.phy_addr[0] += 1;
    EXPECT_EQ(KOVA_MPI_VGS_AddScaleTask(handle, &task, 1), KOVA_VGS_ERR_ILLEGAL_PARAM);
}

TEST(Scaler, RefusesAJobWhoseBlockWasFreed) {
    const Memory memory = Allocate(4096);
    kova_vgs_task task{};
    task.in = Frame(memory.phy, 16, 16, 16);
    task.out = Frame(memory.phy + 1024, 16, 16, 16);
    int32_t handle = -1;
    ASSERT_EQ(KOVA_MPI_VGS_BeginJob(&handle), 0);
    ASSERT_EQ(KOVA_MPI_VGS_AddScaleTask(handle, &task, 1), 0);
    ASSERT_EQ(KOVA_MPI_SYS_MmzFree(memory.phy, memory.vir), 0);
    EXPECT_EQ(KOVA_MPI_VGS_EndJob(handle), KOVA_VGS_ERR_ILLEGAL_PARAM);
    EXPECT_EQ(Usage().jobs, 1u); // open until it is cancelled
    EXPECT_EQ(KOVA_MPI_VGS_CancelJob(handle), 0);
    EXPECT_EQ(Usage().jobs, 0u);
}

TEST(Scaler, RefusesHandlesThatAreNotOpen) {
    kova_vgs_task task{};
    EXPECT_EQ(KOVA_MPI_VGS_BeginJob(nullptr), KOVA_VGS_ERR_NULL_PTR);
    for (const int32_t handle : {-1, 0, 1, 1000}) {
        EXPECT_EQ(KOVA_MPI_VGS_AddScaleTask(handle, &task, 1), KOVA_VGS_ERR_UNEXIST);
        EXPECT_EQ(KOVA_MPI_VGS_EndJob(handle), KOVA_VGS_ERR_UNEXIST);
        EXPECT_EQ(KOVA_MPI_VGS_CancelJob(handle), KOVA_VGS_ERR_UNEXIST);
    }
    int32_t first = -1;
    int32_t second = -1;
    ASSERT_EQ(KOVA_MPI_VGS_BeginJob(&first), 0);
    ASSERT_EQ(KOVA_MPI_VGS_BeginJob(&second), 0);
    EXPECT_NE(first, second);
    EXPECT_EQ(Usage().jobs, 2u);
    EXPECT_EQ(KOVA_MPI_VGS_EndJob(first), 0);
    EXPECT_EQ(KOVA_MPI_VGS_EndJob(first), KOVA_VGS_ERR_UNEXIST);
    EXPECT_EQ(KOVA_MPI_VGS_CancelJob(second), 0);
    EXPECT_EQ(KOVA_MPI_VGS_CancelJob(second), KOVA_VGS_ERR_UNEXIST);
    EXPECT_EQ(Usage().jobs, 0u);
}
