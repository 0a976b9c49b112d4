// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "orvo/image_tools.h"
#include "reference/reference_image.h"
#include "support/guarded_buffer.h"
#include "support/random.h"

namespace {

using orvo_test::GuardedBuffer;
using orvo_test::Random;

using Floats = std::vector<float>;
using Matrix = std::array<float, 6>;

constexpr float kInfinity = std::numeric_limits<float>::infinity();
constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
constexpr float kMark = 77.25f; // what unwritten output shows
constexpr Matrix kIdentity = {1, 0, 0, 0, 1, 0};

// Results are compared as bits, so that the sign of a zero counts.
std::vector<uint32_t> Bits(const float* values, size_t count) {
    std::vector<uint32_t> bits(count);
    if (count != 0) {
        std::memcpy(bits.data(), values, count * sizeof(float));
    }
    return bits;
}

std::vector<uint32_t> Bits(const Floats& values) { return Bits(values.data(), values.size()); }

float FloatOfBits(uint32_t bits) {
    float value;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

float Uniform(Random& random, float low, float high) {
    const double unit = static_cast<double>(random.Next() >> 11) / 9007199254740992.0;
    return static_cast<float>(low + unit * (static_cast<double>(high) - static_cast<double>(low)));
}

// Mostly ordinary values; zeros of both signs, subnormals and large values among them.
float Pixel(Random& random) {
    switch (random.Between(0, 15)) {
        case 0:
            return 0.0f;
        case 1:
            return -0.0f;
        case 2:
            return FloatOfBits(static_cast<uint32_t>(random.Next()) & 0x807fffffu);
        case 3:
            return Uniform(random, -1e30f, 1e30f);
        default:
            return Uniform(random, -255.0f, 255.0f);
    }
}

Floats Pixels(Random& random, size_t count) {
    Floats pixels(count);
    std::generate(pixels.begin(), pixels.end(), [&] { return Pixel(random); });
    return pixels;
}

// A rotation with scaling that keeps most of the picture in sight.
Matrix GentleMatrix(Random& random) {
    const float angle = Uniform(random, -3.2f, 3.2f);
    const float scale = Uniform(random, 0.4f, 2.5f);
    const float shear = random.Between(0, 2) == 0 ? Uniform(random, -0.5f, 0.5f) : 0.0f;
    return {std::cos(angle) * scale, -std::sin(angle) * scale + shear, Uniform(random, -30, 30),
            std::sin(angle) * scale, std::cos(angle) * scale,          Uniform(random, -30, 30)};
}

// Small multiples of a half: positions on pixels, between pixels and exactly on the borders.
Matrix GridMatrix(Random& random) {
    Matrix matrix;
    for (float& m : matrix) {
        m = static_cast<float>(random.Between(-6, 6)) * 0.5f;
    }
    return matrix;
}

// Anything that fits 32 bits, not-a-numbers and infinities among it.
Matrix AnyMatrix(Random& random) {
    Matrix matrix;
    for (float& m : matrix) {
        m = FloatOfBits(static_cast<uint32_t>(random.Next()));
    }
    return matrix;
}

// Ordinary elements mixed with those whose products leave every range.
Matrix WildMatrix(Random& random) {
    constexpr float kWild[] = {0.0f,          -0.0f,         1.0f,           -1.0f,
                               1e-45f,        1e-38f,        16777216.0f,    1e9f,
                               2147483520.0f, 2147483648.0f, -2147483648.0f, -2147483904.0f,
                               4294967296.0f, 1e19f,         1e30f,          3.4e38f,
                               -3.4e38f,      kInfinity,     -kInfinity,     kNan};
    Matrix matrix;
    for (float& m : matrix) {
        m = kWild[random.Between(0, static_cast<int32_t>(std::size(kWild)) - 1)];
    }
    return matrix;
}

std::string Text(const Matrix& matrix) {
    std::string text = "matrix";
    for (const float m : matrix) {
        char number[32];
        std::snprintf(number, sizeof number, " %a", static_cast<double>(m));
        text += number;
    }
    return text;
}

// ---- ImageWarpAffine

struct PlaneShape {
    int32_t width;
    int32_t height;
    uint32_t stride;

    size_t Extent() const {
        return static_cast<size_t>(height - 1) * stride + static_cast<size_t>(width);
    }
};

PlaneShape Dense(int32_t width, int32_t height) {
    return {width, height, static_cast<uint32_t>(width)};
}

Floats Warped(const Floats& src, const Matrix& matrix, PlaneShape shape, uint8_t inverseMap) {
    Floats dst(shape.Extent(), kMark);
    ImageWarpAffine(src.data(), dst.data(), matrix.data(), shape.width, shape.height, shape.stride,
                    inverseMap);
    return dst;
}

// Both planes end with their last pixel, not with that row's stride.
void ExpectPlaneMatch(Random& random, const Matrix& matrix, PlaneShape shape, uint8_t inverseMap,
                      GuardedBuffer::Place place = GuardedBuffer::kAtEnd) {
    const size_t extent = shape.Extent();
    GuardedBuffer src(extent * sizeof(float), place);
    const Floats pixels = Pixels(random, extent);
    std::memcpy(src.bytes(), pixels.data(), src.size());
    src.MakeReadOnly();
    GuardedBuffer dst(extent * sizeof(float), place);
    Floats expected(extent, kMark);
    std::copy(expected.begin(), expected.end(), dst.as<float>());
    ImageWarpAffine(src.as<float>(), dst.as<float>(), matrix.data(), shape.width, shape.height,
                    shape.stride, inverseMap);
    orvo_reference::WarpPlane(pixels.data(), expected.data(), matrix.data(), shape.width,
                              shape.height, shape.stride, inverseMap != 0);
    ASSERT_EQ(Bits(dst.as<float>(), extent), Bits(expected))
        << Text(matrix) << ", " << shape.width << " x " << shape.height << " stride "
        << shape.stride << ", inverseMap " << int{inverseMap};
}

PlaneShape RandomShape(Random& random, int32_t most) {
    const int32_t width = random.Between(1, most);
    const int32_t height = random.Between(1, most);
    return {width, height, static_cast<uint32_t>(width + random.Between(0, 7))};
}

TEST(ImageWarpAffine, IdentityCopiesThePlaneInEitherMode) {
    Random random(1);
    for (const PlaneShape shape :
         {Dense(1, 1), Dense(7, 1), Dense(1, 7), Dense(24, 24), PlaneShape{31, 17, 40}}) {
        Floats src(shape.Extent());
        std::generate(src.begin(), src.end(), [&] { return Uniform(random, -255, 255); });
        for (const uint8_t inverseMap : {0, 1, 2, 128, 255}) {
            const Floats dst = Warped(src, kIdentity, shape, inverseMap);
            for (size_t y = 0; y < static_cast<size_t>(shape.height); ++y) {
                const size_t row = y * shape.stride;
                const size_t width = static_cast<size_t>(shape.width);
                ASSERT_EQ(Bits(&dst[row], width), Bits(&src[row], width));
                for (size_t gap = row + width; gap < std::min(row + shape.stride, dst.size());
                     ++gap) {
                    ASSERT_EQ(dst[gap], kMark);
                }
            }
        }
    }
}

TEST(ImageWarpAffine, ScalingByTwoSamplesAtHalfTheCoordinates) {
    Floats src(16);
    for (size_t i = 0; i < 16; ++i) {
        src[i] = static_cast<float>(i + 1);
    }
    const Floats dst = Warped(src, {2, 0, 0, 0, 2, 0}, Dense(4, 4), 0);
    // Rows and columns 0, 0.5, 1 and 1.5 of values that grow by 1 a column and by 4 a row.
    const Floats expected = {1, 1.5f, 2, 2.5f, 3, 3.5f, 4, 4.5f,
                             5, 5.5f, 6, 6.5f, 7, 7.5f, 8, 8.5f};
    EXPECT_EQ(dst, expected);
    // As it stands in the other mode: at twice the coordinates, 0 where that is outside.
    EXPECT_EQ(Warped(src, {2, 0, 0, 0, 2, 0}, Dense(4, 4), 1),
              (Floats{1, 3, 0, 0, 9, 11, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
}

TEST(ImageWarpAffine, HalfAPixelToTheLeftOfTheBorderIsHalfThePixel) {
    const Floats src = {8, 2, 6, 4};
    for (const uint8_t inverseMap : {0, 1}) {
        EXPECT_EQ(Warped(src, {1, 0, 0.5f, 0, 1, 0}, Dense(2, 2), inverseMap),
                  (Floats{4, 5, 3, 5}));
    }
}

TEST(ImageWarpAffine, ValuesFadeWithinOnePixelOfEveryBorder) {
    const Floats src = {16};
    for (const float offset : {-1.0f, -0.75f, -0.5f, -0.25f, 0.0f, 0.25f, 0.5f, 0.75f, 1.0f}) {
        const float share = 1.0f - std::fabs(offset);
        EXPECT_EQ(Warped(src, {1, 0, -offset, 0, 1, 0}, Dense(1, 1), 1), Floats{16 * share});
        EXPECT_EQ(Warped(src, {1, 0, 0, 0, 1, -offset}, Dense(1, 1), 1), Floats{16 * share});
        EXPECT_EQ(Warped(src, {1, 0, -offset, 0, 1, offset}, Dense(1, 1), 1),
                  Floats{16 * share * share});
    }
}

TEST(ImageWarpAffine, TranslationIsSubtractedBeforeTheLinearPartInEitherMode) {
    Floats src(64);
    for (size_t i = 0; i < 64; ++i) {
        src[i] = static_cast<float>(i);
    }
    // Output (x, y) comes from (2 (x - 3), 2 (y - 1)), which is inside for x 3 to 6, y 1 to 4.
    const Floats dst = Warped(src, {2, 0, 3, 0, 2, 1}, Dense(8, 8), 1);
    EXPECT_EQ(dst, Warped(src, {0.5f, 0, 3, 0, 0.5f, 1}, Dense(8, 8), 0));
    for (size_t y = 0; y < 8; ++y) {
        for (size_t x = 0; x < 8; ++x) {
            const bool inside = x >= 3 && x <= 6 && y >= 1 && y <= 4;
            EXPECT_EQ(dst[8 * y + x], inside ? src[16 * (y - 1) + 2 * (x - 3)] : 0.0f);
        }
    }
}

TEST(ImageWarpAffine, GentleMatricesMatchReference) {
    Random random(2);
    for (int round = 0; round < 400; ++round) {
        const PlaneShape shape = RandomShape(random, 40);
        const Matrix matrix = GentleMatrix(random);
        for (const uint8_t inverseMap : {0, 1}) {
            ExpectPlaneMatch(random, matrix, shape, inverseMap,
                             round % 2 == 0 ? GuardedBuffer::kAtEnd : GuardedBuffer::kAtStart);
        }
    }
}

TEST(ImageWarpAffine, PositionsOnAndBesideTheBordersMatchReference) {
    Random random(3);
    for (int round = 0; round < 1500; ++round) {
        ExpectPlaneMatch(random, GridMatrix(random), RandomShape(random, 9),
                         static_cast<uint8_t>(round % 2),
                         round % 4 < 2 ? GuardedBuffer::kAtEnd : GuardedBuffer::kAtStart);
    }
}

// One step of the last bit to either side of a whole position, borders included.
TEST(ImageWarpAffine, PositionsNextToWholeOnesMatchReference) {
    Random random(4);
    for (const float whole : {-3.0f, -2.0f, -1.0f, 0.0f, 1.0f, 2.0f, 3.0f}) {
        for (const float at :
             {std::nextafterf(whole, -kInfinity), whole, std::nextafterf(whole, kInfinity)}) {
            for (const PlaneShape shape : {Dense(1, 1), Dense(3, 2), Dense(2, 3)}) {
                ExpectPlaneMatch(random, {1, 0, -at, 0, 1, 0}, shape, 1);
                ExpectPlaneMatch(random, {1, 0, 0, 0, 1, -at}, shape, 0);
                ExpectPlaneMatch(random, {1, 0, -at, 0, 1, -at}, shape, 0);
            }
        }
    }
}

TEST(ImageWarpAffine, SingleRowsColumnsAndPixelsMatchReference) {
    Random random(5);
    for (int32_t n = 1; n <= 70; ++n) {
        for (const PlaneShape shape : {Dense(n, 1), Dense(1, n), PlaneShape{1, n, 5}}) {
            Matrix matrix = GentleMatrix(random);
            matrix[2] /= 16;
            matrix[5] /= 16;
            ExpectPlaneMatch(random, matrix, shape, 0);
            ExpectPlaneMatch(random, matrix, shape, 1);
        }
    }
}

// Cancelling products, where only a fused step keeps the low bits of the determinant.
TEST(ImageWarpAffine, NearlySingularMatricesMatchReference) {
    Random random(6);
    int fusedCounts = 0;
    for (int round = 0; round < 1000; ++round) {
        const float m0 = Uniform(random, 0.5f, 2.0f);
        const float m1 = Uniform(random, 0.5f, 2.0f);
        const float m3 = Uniform(random, 0.5f, 2.0f);
        const float m4 = m1 * m3 / m0;
        const Matrix matrix = {m0, m1, Uniform(random, 0, 6), m3, m4, Uniform(random, 0, 6)};
        const float crossProduct = m1 * m3;
        const float product = m0 * m4;
        fusedCounts += std::fma(m0, m4, -crossProduct) != product - crossProduct;
        ExpectPlaneMatch(random, matrix, Dense(6, 6), 0);
    }
    EXPECT_GT(fusedCounts, 500);
}

TEST(ImageWarpAffine, WildMatricesMatchReference) {
    Random random(7);
    for (int round = 0; round < 3000; ++round) {
        const auto inverseMap = static_cast<uint8_t>(round % 2);
        ExpectPlaneMatch(random, AnyMatrix(random), Dense(3, 3), inverseMap);
        ExpectPlaneMatch(random, WildMatrix(random), Dense(4, 2), inverseMap);
    }
}

TEST(ImageWarpAffine, PositionsNoIntCanHoldAreOutside) {
    const Floats src = {1, 2, 3, 4};
    for (const float far : {2147483392.0f, 2147483520.0f, 2147483648.0f, 4294967296.0f, 1e10f,
                            1e20f, 3.4e38f, kInfinity, kNan}) {
        for (const float sign : {1.0f, -1.0f}) {
            for (const uint8_t inverseMap : {0, 1}) {
                EXPECT_EQ(Bits(Warped(src, {1, 0, sign * far, 0, 1, 0}, Dense(2, 2), inverseMap)),
                          Bits(Floats(4, 0.0f)))
                    << far;
                EXPECT_EQ(Bits(Warped(src, {1, 0, 0, 0, 1, sign * far}, Dense(2, 2), inverseMap)),
                          Bits(Floats(4, 0.0f)))
                    << far;
            }
        }
    }
    // No inverse: its elements are infinite or no numbers.
    EXPECT_EQ(Bits(Warped(src, {0, 0, 0, 0, 0, 0}, Dense(2, 2), 0)), Bits(Floats(4, 0.0f)));
}

// -2^-149 by a half is rounded to -0 before it is added to 0, which gives +0; a fused step would
// give -0.
TEST(ImageWarpAffine, FirstTermIsRoundedBeforeItIsAdded) {
    const Floats src = {-std::numeric_limits<float>::denorm_min()};
    const Floats dst = Warped(src, {1, 0, -0.5f, 0, 1, 0}, Dense(1, 1), 1);
    EXPECT_EQ(Bits(dst), Bits({0.0f}));
}

TEST(ImageWarpAffine, StrideOfASingleRowDoesNotMatter) {
    const Floats src = {1, 2, 3, 4, 5};
    for (const uint32_t stride : {0u, 1u, 5u, 1000u, UINT32_MAX}) {
        Floats dst(5, kMark);
        ImageWarpAffine(src.data(), dst.data(), kIdentity.data(), 5, 1, stride, 1);
        EXPECT_EQ(dst, src);
    }
}

TEST(ImageWarpAffine, SizesBelowOneWriteNothing) {
    const Floats src(16, 5.0f);
    for (const int32_t bad : {0, -1, -4, INT32_MIN}) {
        for (const uint8_t inverseMap : {0, 1}) {
            Floats dst(16, kMark);
            ImageWarpAffine(src.data(), dst.data(), kIdentity.data(), bad, 4, 4, inverseMap);
            ImageWarpAffine(src.data(), dst.data(), kIdentity.data(), 4, bad, 4, inverseMap);
            ImageWarpAffine(src.data(), dst.data(), kIdentity.data(), bad, bad, 4, inverseMap);
            EXPECT_EQ(dst, Floats(16, kMark));
        }
        // Nor is anything read, the matrix included.
        ImageWarpAffine(nullptr, nullptr, nullptr, bad, 4, 4, 0);
        ImageWarpAffine(nullptr, nullptr, nullptr, 4, bad, 4, 0);
    }
}

// ---- AffineWarpFloat

struct StackShape {
    uint32_t srcWidth, srcHeight;
    int32_t dstWidth, dstHeight;
    int32_t channels;
};

Floats StackWarped(const Floats& src, const Matrix& matrix, StackShape shape, float fillValue) {
    Floats dst(static_cast<size_t>(shape.dstWidth) * static_cast<size_t>(shape.dstHeight) *
                   static_cast<size_t>(shape.channels),
               kMark);
    EXPECT_EQ(
        AffineWarpFloat(src.data(), shape.srcWidth, shape.srcHeight, dst.data(), shape.dstWidth,
                        shape.dstHeight, shape.channels, matrix.data(), fillValue),
        0u);
    return dst;
}

void ExpectStackMatch(Random& random, const Matrix& matrix, StackShape shape, float fillValue,
                      GuardedBuffer::Place place = GuardedBuffer::kAtEnd) {
    const size_t srcCount =
        static_cast<size_t>(shape.srcWidth) * shape.srcHeight * static_cast<size_t>(shape.channels);
    const size_t dstCount = static_cast<size_t>(shape.dstWidth) *
                            static_cast<size_t>(shape.dstHeight) *
                            static_cast<size_t>(shape.channels);
    GuardedBuffer src(srcCount * sizeof(float), place);
    const Floats pixels = Pixels(random, srcCount);
    std::memcpy(src.bytes(), pixels.data(), src.size());
    src.MakeReadOnly();
    GuardedBuffer dst(dstCount * sizeof(float), place);
    Floats expected(dstCount, kMark);
    ASSERT_EQ(
        AffineWarpFloat(src.as<float>(), shape.srcWidth, shape.srcHeight, dst.as<float>(),
                        shape.dstWidth, shape.dstHeight, shape.channels, matrix.data(), fillValue),
        0u);
    orvo_reference::WarpPlanes(pixels.data(), shape.srcWidth, shape.srcHeight, expected.data(),
                               shape.dstWidth, shape.dstHeight, shape.channels, matrix.data(),
                               fillValue);
    ASSERT_EQ(Bits(dst.as<float>(), dstCount), Bits(expected))
        << Text(matrix) << ", " << shape.srcWidth << " x " << shape.srcHeight << " to "
        << shape.dstWidth << " x " << shape.dstHeight << ", channels " << shape.channels;
}

StackShape RandomStack(Random& random, int32_t most, int32_t mostChannels) {
    return {static_cast<uint32_t>(random.Between(1, most)),
            static_cast<uint32_t>(random.Between(1, most)), random.Between(1, most),
            random.Between(1, most), random.Between(1, mostChannels)};
}

TEST(AffineWarpFloat, IdentityFillsTheLastColumnAndRow) {
    const Floats src = {1, 2, 3, 4, 5, 6, 7, 8, 9};
    EXPECT_EQ(StackWarped(src, kIdentity, {3, 3, 3, 3, 1}, -1.5f),
              (Floats{1, 2, -1.5f, 4, 5, -1.5f, -1.5f, -1.5f, -1.5f}));
}

TEST(AffineWarpFloat, MatrixMapsOutputToSourceWithTheTranslationAdded) {
    const Floats src = {0,  1,  2,  3,  4,  //
                        10, 11, 12, 13, 14, //
                        20, 21, 22, 23, 24};
    // Column j and row i come from (2 j + 1, i + 0.5).
    EXPECT_EQ(StackWarped(src, {2, 0, 1, 0, 1, 0.5f}, {5, 3, 3, 2, 1}, 99.0f),
              (Floats{6, 8, 99, 16, 18, 99}));
    // The second column of the matrix belongs to the row.
    EXPECT_EQ(StackWarped(src, {0, 1, 0, 1, 0, 0}, {5, 3, 2, 4, 1}, 99.0f),
              (Floats{0, 10, 1, 11, 2, 12, 3, 13}));
}

TEST(AffineWarpFloat, PlanesAreWarpedOneByOne) {
    Random random(8);
    const Floats src = Pixels(random, 5 * 4 * 3);
    const Matrix matrix = {0.7f, 0.1f, 0.2f, -0.1f, 0.9f, 0.6f};
    const Floats together = StackWarped(src, matrix, {5, 4, 6, 3, 3}, 7.0f);
    for (size_t c = 0; c < 3; ++c) {
        const Floats plane(src.begin() + static_cast<ptrdiff_t>(20 * c),
                           src.begin() + static_cast<ptrdiff_t>(20 * (c + 1)));
        EXPECT_EQ(Bits(StackWarped(plane, matrix, {5, 4, 6, 3, 1}, 7.0f)),
                  Bits(&together[18 * c], 18));
    }
}

TEST(AffineWarpFloat, ChannelsOrOutputSizesBelowOneWriteNothing) {
    const Floats src(16, 5.0f);
    for (const int32_t bad : {0, -1, -4, INT32_MIN}) {
        Floats dst(16, kMark);
        const float* m = kIdentity.data();
        EXPECT_EQ(AffineWarpFloat(src.data(), 4, 4, dst.data(), 4, 4, bad, m, 9.0f), 0u);
        EXPECT_EQ(AffineWarpFloat(src.data(), 4, 4, dst.data(), bad, 4, 1, m, 9.0f), 0u);
        EXPECT_EQ(AffineWarpFloat(src.data(), 4, 4, dst.data(), 4, bad, 1, m, 9.0f), 0u);
        EXPECT_EQ(AffineWarpFloat(src.data(), 4, 4, dst.data(), bad, bad, bad, m, 9.0f), 0u);
        EXPECT_EQ(AffineWarpFloat(src.data(), 4, 4, dst.data(), 4, bad, 3, m, 9.0f), 0u);
        EXPECT_EQ(dst, Floats(16, kMark)) << bad;
    }
}

TEST(AffineWarpFloat, GentleMatricesMatchReference) {
    Random random(9);
    for (int round = 0; round < 500; ++round) {
        ExpectStackMatch(random, GentleMatrix(random), RandomStack(random, 36, 4),
                         Uniform(random, -10, 10),
                         round % 2 == 0 ? GuardedBuffer::kAtEnd : GuardedBuffer::kAtStart);
    }
}

TEST(AffineWarpFloat, PositionsOnAndBesideTheBordersMatchReference) {
    Random random(10);
    for (int round = 0; round < 1500; ++round) {
        ExpectStackMatch(random, GridMatrix(random), RandomStack(random, 9, 2), -0.0f,
                         round % 2 == 0 ? GuardedBuffer::kAtEnd : GuardedBuffer::kAtStart);
    }
}

TEST(AffineWarpFloat, PositionsNextToWholeOnesMatchReference) {
    Random random(11);
    for (const float whole : {-1.0f, 0.0f, 1.0f, 2.0f, 3.0f}) {
        for (const float at :
             {std::nextafterf(whole, -kInfinity), whole, std::nextafterf(whole, kInfinity)}) {
            ExpectStackMatch(random, {1, 0, at, 0, 1, 0}, {4, 4, 4, 4, 1}, 3.5f);
            ExpectStackMatch(random, {1, 0, 0, 0, 1, at}, {4, 4, 4, 4, 1}, 3.5f);
            ExpectStackMatch(random, {1, 0, at, 0, 1, at}, {2, 3, 1, 1, 2}, 3.5f);
        }
    }
    // A zero with a sign is inside.
    EXPECT_EQ(StackWarped({5, 6, 7, 8}, {0, 0, -0.0f, 0, 0, -0.0f}, {2, 2, 1, 1, 1}, 9.0f),
              Floats{5});
}

// Rows and columns of more than are made at a time, and steps of any size beside the starts: sums that a
// double holds, and sums that it does not.
TEST(AffineWarpFloat, LongRowsAndStepsOfAnySizeMatchReference) {
    Random random(14);
    for (int round = 0; round < 400; ++round) {
        const auto small = [&] {
            return std::ldexp(Uniform(random, -1, 1), -random.Between(0, 60));
        };
        const Matrix matrix = {Uniform(random, 0.1f, 0.4f), small(),
                               Uniform(random, -1, 3),      small(),
                               Uniform(random, 0.1f, 0.4f), small()};
        const StackShape shape = {static_cast<uint32_t>(random.Between(20, 50)),
                                  static_cast<uint32_t>(random.Between(20, 50)),
                                  random.Between(30, 100), random.Between(30, 100), 1};
        ExpectStackMatch(random, matrix, shape, 5.0f);
    }
}

// Row 65's step is 2^-24 + 2^-54: from 1 on, a double rounds it to 2^-24, and a float that to nothing.
TEST(AffineWarpFloat, StepsThatADoubleWouldLoseAreFused) {
    const float step = 16519105 * 0x1p-54f;
    const Floats src = {0, 0, 0x1p23f, 0, 0, 0};
    const Floats dst = StackWarped(src, {0, step, 1, 0, 0, 0}, {3, 2, 40, 66, 1}, 9.0f);
    for (size_t column = 0; column < 40; ++column) {
        EXPECT_EQ(dst[65 * 40 + column], 1.0f);
        EXPECT_EQ(dst[column], 0.0f);
    }
}

TEST(AffineWarpFloat, SourcesOfOneColumnOrRowAreFilledThroughout) {
    Random random(12);
    for (const StackShape shape :
         {StackShape{1, 1, 3, 3, 2}, {1, 9, 3, 3, 1}, {9, 1, 3, 3, 1}, {1, 1, 1, 1, 1}}) {
        ExpectStackMatch(random, kIdentity, shape, 4.5f);
        const Floats src(static_cast<size_t>(shape.srcWidth) * shape.srcHeight *
                         static_cast<size_t>(shape.channels));
        const Floats dst = StackWarped(src, {0, 0, 0, 0, 0, 0}, shape, 4.5f);
        EXPECT_EQ(dst, Floats(dst.size(), 4.5f));
    }
}

TEST(AffineWarpFloat, WildMatricesMatchReference) {
    Random random(13);
    for (int round = 0; round < 3000; ++round) {
        ExpectStackMatch(random, AnyMatrix(random), {3, 4, 3, 3, 1}, 2.5f);
        ExpectStackMatch(random, WildMatrix(random), {4, 3, 2, 4, 2}, kInfinity);
    }
}

// The bounds alone would let such a position through.
TEST(AffineWarpFloat, PositionsNoIntCanHoldAreFilledInWidePlanes) {
    GuardedBuffer nothing(0);
    for (const float far : {2147483648.0f, 3e9f, 4.2e9f}) {
        for (const bool wide : {true, false}) {
            Matrix matrix = {0, 0, 0, 0, 0, 0};
            matrix[wide ? 2 : 5] = far;
            Floats dst(4, kMark);
            EXPECT_EQ(
                AffineWarpFloat(nothing.as<float>(), wide ? UINT32_MAX : 2, wide ? 2 : UINT32_MAX,
                                dst.data(), 2, 2, 1, matrix.data(), 1.25f),
                0u);
            EXPECT_EQ(dst, Floats(4, 1.25f)) << far;
        }
    }
}

TEST(AffineWarpFloat, SourcesWithoutPixelsAreFilledThroughout) {
    GuardedBuffer nothing(0);
    for (const uint32_t extent : {0u, 1u, 4u}) {
        for (const Matrix& matrix : {kIdentity, Matrix{0, 0, 0.5f, 0, 0, 0.5f}}) {
            Floats dst(8, kMark);
            AffineWarpFloat(nothing.as<float>(), 0, extent, dst.data(), 2, 2, 2, matrix.data(), 3);
            EXPECT_EQ(dst, Floats(8, 3.0f));
            std::fill(dst.begin(), dst.end(), kMark);
            AffineWarpFloat(nothing.as<float>(), extent, 0, dst.data(), 2, 2, 2, matrix.data(), 3);
            EXPECT_EQ(dst, Floats(8, 3.0f));
        }
    }
}

TEST(AffineWarpFloat, FillValueKeepsItsBits) {
    for (const uint32_t bits : {0x80000000u, 0x00000001u, 0x7f800000u, 0x7fc12345u, 0xff800000u}) {
        const Floats dst = StackWarped({1}, kIdentity, {1, 1, 2, 2, 1}, FloatOfBits(bits));
        EXPECT_EQ(Bits(dst), std::vector<uint32_t>(4, bits));
    }
}

} // namespace
