// SPDX-License-Identifier: MIT
#include "reference/reference_small.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

namespace orvo_reference {
namespace {

// The 32 bits that the exact value wraps to.
int32_t Wrapped(int64_t value) { return static_cast<int32_t>(static_cast<uint32_t>(value)); }

// Two's complement, towards minus infinity, for any count.
int32_t ShiftRight(int32_t value, uint32_t count) {
    if (count >= 32) {
        return value < 0 ? -1 : 0;
    }
    const int64_t divisor = int64_t{1} << count;
    int64_t quotient = value / divisor;
    if (value % divisor < 0) {
        --quotient;
    }
    return static_cast<int32_t>(quotient);
}

// A left shift whose result keeps 32 bits; 0 once every bit has left.
int32_t ShiftLeft(int32_t value, uint32_t count) {
    return count >= 32 ? 0 : Wrapped(int64_t{value} * (int64_t{1} << count));
}

// A left shift whose result keeps 16 bits, as a signed 16-bit value.
int32_t ShiftLeft16(int32_t value, uint32_t count) {
    return static_cast<int16_t>(static_cast<uint16_t>(ShiftLeft(value, count)));
}

int8_t Requantised(int64_t sum, int32_t bias, uint16_t outShift) {
    return SaturateToQ7(ShiftRight(Wrapped(sum + bias), outShift & 0xFFu));
}

} // namespace

int8_t SaturateToQ7(int64_t value) {
    return static_cast<int8_t>(std::clamp<int64_t>(value, -128, 127));
}

void GlobalConvolution(const int8_t* src, uint32_t width, uint32_t height, uint32_t channels,
                       const int8_t* weights, const int32_t* bias, uint16_t outShift, int8_t* dst) {
    const uint32_t plane = width * height;
    for (uint32_t c = 0; c < channels; ++c) {
        int64_t sum = 0;
        for (uint32_t i = c * plane; i < (c + 1) * plane; ++i) {
            sum += src[i] * weights[i];
        }
        dst[c] = Requantised(sum, bias[c], outShift);
    }
}

void FullyConnected(const int8_t* src, const int8_t* weights, uint32_t inCount, uint32_t outCount,
                    uint16_t outShift, const int32_t* bias, int8_t* dst) {
    for (uint32_t j = 0; j < outCount; ++j) {
        int64_t sum = 0;
        for (uint32_t i = 0; i < inCount; ++i) {
            sum += src[i] * weights[j * inCount + i];
        }
        dst[j] = Requantised(sum, bias[j], outShift);
    }
}

void MaxPool2x2Stride2(const int8_t* src, int8_t* dst, uint32_t width, uint32_t height,
                       uint32_t channels, uint32_t pad) {
    const int64_t w = width;
    const int64_t h = height;
    const uint32_t dstWidth = (width + 2 * pad) / 2;
    const uint32_t dstHeight = (height + 2 * pad) / 2;
    for (uint32_t c = 0; c < channels; ++c) {
        for (uint32_t y = 0; y < dstHeight; ++y) {
            for (uint32_t x = 0; x < dstWidth; ++x) {
                int8_t best = -128;
                for (uint32_t tap = 0; tap < 4; ++tap) {
                    const int64_t sy = int64_t{2} * y + tap / 2 - pad;
                    const int64_t sx = int64_t{2} * x + tap % 2 - pad;
                    if (sy >= 0 && sy < h && sx >= 0 && sx < w) {
                        best = std::max(best, src[(c * h + sy) * w + sx]);
                    }
                }
                *dst++ = best;
            }
        }
    }
}

void MaxPool2x2Stride1(const int8_t* src, uint32_t width, uint32_t height, uint32_t channels,
                       int8_t* dst) {
    for (uint32_t c = 0; c < channels; ++c) {
        for (uint32_t y = 0; y + 1 < height; ++y) {
            for (uint32_t x = 0; x + 1 < width; ++x) {
                const int8_t* corner = src + (c * height + y) * width + x;
                *dst++ = std::max({corner[0], corner[1], corner[width], corner[width + 1]});
            }
        }
    }
}

void RightNeighbourMaxima(int8_t* data, uint32_t width, uint32_t rows) {
    for (uint32_t y = 0; y < rows; ++y) {
        for (uint32_t x = 0; x + 1 < width; ++x) {
            int8_t* value = data + y * width + x;
            value[0] = std::max(value[0], value[1]);
        }
    }
}

void Downsample(const int8_t* src, uint32_t width, uint32_t height, uint32_t channels,
                int8_t* dst) {
    for (uint32_t c = 0; c < channels; ++c) {
        for (uint32_t y = 0; y < height; y += 2) {
            for (uint32_t x = 0; x < width; x += 2) {
                *dst++ = src[(c * height + y) * width + x];
            }
        }
    }
}

void GlobalAverage(const int8_t* src, uint32_t width, uint32_t height, uint32_t channels,
                   uint16_t shift, int8_t* dst) {
    const auto count = static_cast<int32_t>(width * height);
    const int32_t half = ShiftRight(count, 1);
    for (uint32_t c = 0; c < channels; ++c) {
        int64_t sum = 0;
        for (int32_t i = 0; i < count; ++i) {
            sum += *src++;
        }
        const int32_t scaled = ShiftLeft(Wrapped(sum), shift & 0xFFu);
        const int64_t biased = scaled >= 0 ? int64_t{scaled} + half : int64_t{scaled} - half;
        dst[c] = SaturateToQ7(Wrapped(biased) / count);
    }
}

void GreyToQ7(uint8_t* data, uint32_t count) {
    for (uint32_t i = 0; i < count; ++i) {
        data[i] = static_cast<uint8_t>(data[i] - 128);
    }
}

void Rectify(const int8_t* src, int8_t* dst, uint32_t count) {
    for (uint32_t i = 0; i < count; ++i) {
        dst[i] = src[i] < 0 ? int8_t{0} : src[i];
    }
}

void ZeroPadPlus(const int8_t* in1, const int8_t* in2, int8_t* dst, uint32_t in1Shift,
                 uint32_t in2Shift, uint32_t outShift, uint32_t height, uint32_t width,
                 uint32_t outChannels, uint32_t in2Channels) {
    const uint32_t plane = height * width;
    const int64_t half = outShift == 0 ? 0 : int64_t{1} << (outShift - 1);
    for (uint32_t c = 0; c < outChannels; ++c) {
        for (uint32_t i = 0; i < plane; ++i) {
            // The full blocks of 8 of a plane are shifted in 16 bits, the rest in 32.
            const auto shiftLeft = i < plane / 8 * 8 ? ShiftLeft16 : ShiftLeft;
            const uint32_t at = c * plane + i;
            const int64_t a = shiftLeft(in1[at], in1Shift);
            const int64_t b = c < in2Channels ? shiftLeft(in2[at], in2Shift) : 0;
            dst[at] = SaturateToQ7(ShiftRight(Wrapped(a + b + half), outShift));
        }
    }
}

void UnitLength(const int8_t* src, int32_t count, float* dst) {
    int32_t squares = 0;
    for (int32_t i = 0; i < count; ++i) {
        squares += src[i] * src[i];
    }
    const float norm = std::sqrt(static_cast<float>(squares));
    const float inverse = 1.0f / norm;
    for (int32_t i = 0; i < count; ++i) {
        dst[i] = static_cast<float>(src[i]) * inverse;
    }
}

void Rescale(int8_t* data, int32_t count, int32_t shift) {
    for (int32_t i = 0; i < count; ++i) {
        const int32_t moved = shift > 0 ? ShiftRight(Wrapped(data[i] + (int64_t{1} << (shift - 1))),
                                                     static_cast<uint32_t>(shift))
                                        : ShiftLeft(data[i], static_cast<uint32_t>(-shift));
        data[i] = static_cast<int8_t>(static_cast<uint8_t>(moved));
    }
}

namespace {

// A subnormal number counts as the zero of its sign.
template <typename Number>
float WithoutSubnormals(Number value) {
    const Number smallestNormal = std::ldexp(Number{1}, -126);
    if (std::abs(value) < smallestNormal) {
        return std::signbit(value) ? -0.0f : 0.0f;
    }
    return static_cast<float>(value);
}

} // namespace

float InnerProduct(const float* a, const float* b, int32_t n) {
    float lane[4] = {0.0f, 0.0f, 0.0f, 0.0f};
    int32_t i = 0;
    for (; i + 4 <= n; i += 4) {
        for (int32_t l = 0; l < 4; ++l) {
            const double x = static_cast<double>(WithoutSubnormals(a[i + l]));
            const double y = static_cast<double>(WithoutSubnormals(b[i + l]));
            const float product = WithoutSubnormals(x * y); // exact before it is rounded
            lane[l] = WithoutSubnormals(lane[l] + product);
        }
    }
    const float low = WithoutSubnormals(lane[0] + lane[1]);
    const float high = WithoutSubnormals(lane[2] + lane[3]);
    float sum = WithoutSubnormals(low + high);
    if (n - i == 3) {
        const float first = a[i] * b[i];
        const float second = a[i + 1] * b[i + 1];
        const float pair = first + second;
        sum = sum + pair;
        i += 2;
    }
    for (; i < n; ++i) {
        sum = std::fma(a[i], b[i], sum);
    }
    return sum;
}

std::array<int16_t, 4> BilinearWeights(int verticalFraction, int horizontalFraction) {
    const double a = horizontalFraction * (1.0 / 31.0);
    const double b = verticalFraction * (1.0 / 31.0);
    const double top = (1.0 - b) * 16384.0;
    const double bottom = b * 16384.0;
    const auto w0 = static_cast<int>(std::round(top * (1.0 - a)));
    const auto w1 = static_cast<int>(std::round(top * a));
    const auto w2 = static_cast<int>(std::round(bottom * (1.0 - a)));
    return {static_cast<int16_t>(w0), static_cast<int16_t>(w1), static_cast<int16_t>(w2),
            static_cast<int16_t>(16384 - w0 - w1 - w2)};
}

namespace {

// Where one output column (or row) takes its values from.
struct Tap {
    bool interpolated; // else it lies beyond the edge and takes pixel `first` alone
    int32_t first;
    int32_t second; // the neighbour, or `first` again at the far edge
    int32_t fraction;
};

std::vector<Tap> TapsOfAxis(int32_t srcSize, int32_t dstSize) {
    const float step = static_cast<float>(srcSize) / static_cast<float>(dstSize);
    const float offset = (1.0f - step) * 0.5f;
    const auto border =
        static_cast<int32_t>(std::ceil(static_cast<double>(offset) / static_cast<double>(step)));
    std::vector<Tap> taps(static_cast<size_t>(dstSize));
    const float start = step * static_cast<float>(border);
    float position = start - offset;
    for (int32_t i = 0; i < dstSize; ++i) {
        Tap& tap = taps[static_cast<size_t>(i)];
        if (i >= dstSize - border) {
            tap = {false, srcSize - 1, srcSize - 1, 0};
        } else if (i < border) {
            tap = {false, 0, 0, 0};
        } else {
            // Rounding can carry the sum over the edge of a very long axis: the last pixel then.
            const int32_t first = std::min(static_cast<int32_t>(position), srcSize - 1);
            const float rest = position - static_cast<float>(static_cast<int32_t>(position));
            tap = {true, first, std::min(first + 1, srcSize - 1),
                   static_cast<int32_t>(static_cast<double>(rest) * 31.0 + 0.5)};
            position = position + step;
        }
    }
    return taps;
}

} // namespace

void ResizeBilinear(const uint8_t* src, uint8_t* dst, int32_t srcHeight, int32_t srcWidth,
                    int32_t srcStride, int32_t dstHeight, int32_t dstWidth) {
    if (srcHeight < 1 || srcWidth < 1 || dstHeight < 1 || dstWidth < 1) {
        return;
    }
    const std::vector<Tap> columns = TapsOfAxis(srcWidth, dstWidth);
    const std::vector<Tap> rows = TapsOfAxis(srcHeight, dstHeight);
    std::array<std::array<std::array<int16_t, 4>, 32>, 32> weights;
    for (int v = 0; v < 32; ++v) {
        for (int h = 0; h < 32; ++h) {
            weights[static_cast<size_t>(v)][static_cast<size_t>(h)] = BilinearWeights(v, h);
        }
    }
    const auto pixel = [=](int32_t y, int32_t x) -> int32_t {
        return src[static_cast<ptrdiff_t>(y) * srcStride + x];
    };
    for (const Tap& row : rows) {
        for (const Tap& column : columns) {
            const auto& w = weights.at(static_cast<size_t>(row.fraction))
                                .at(static_cast<size_t>(column.fraction));
            int32_t sum = 8192;
            if (row.interpolated && column.interpolated) {
                sum += w[0] * pixel(row.first, column.first);
                sum += w[1] * pixel(row.first, column.second);
                sum += w[2] * pixel(row.second, column.first);
                sum += w[3] * pixel(row.second, column.second);
            } else if (row.interpolated) {
                sum += w[0] * pixel(row.first, column.first);
                sum += w[2] * pixel(row.second, column.first);
            } else if (column.interpolated) {
                sum += w[0] * pixel(row.first, column.first);
                sum += w[1] * pixel(row.first, column.second);
            } else {
                sum = pixel(row.first, column.first) << 14;
            }
            *dst++ = static_cast<uint8_t>(std::clamp(sum >> 14, 0, 255));
        }
    }
}

} // namespace orvo_reference
