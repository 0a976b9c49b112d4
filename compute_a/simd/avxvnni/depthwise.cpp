// SPDX-License-Identifier: MIT
//
// Depthwise 3 x 3 convolution with VNNI on vectors of 32 bytes.
//
// Some planes, or rows of one, are copied with flipped signs and a border of zeros; between a row and the
// next stands one zero, which is the border of both. From 16 bytes of a row, three byte shuffles make
// vectors of whose 32-bit lanes each holds four neighbours, and vpdpbusd with the weights of a filter row
// and a zero adds three taps to 12 outputs in three of them: a part. A vector has two parts: 24 columns of
// a plane, or 12 of each of two planes. Rows are taken one at a time, and what was made of them is used for
// three rows of outputs.
//
// For 24 outputs: a load, 3 shuffles, 9 products, 3 shifts, 3 packs and a maximum, 20 instructions on three
// ports.
//
// Exact: the sums wrap at 32 bits like the plain ones, and what the flipped signs of the activations add is
// taken off the start.
#include <cstring>

#include "compute_a/simd/avx2/lanes.h"
#include "compute_a/simd/avx2/routines.h"
#include "compute_a/simd/avxvnni/instructions.h"
#include "compute_a/simd/avxvnni/routines.h"

namespace orvo {
namespace {

constexpr size_t kPartOutputs = 12;
constexpr size_t kStripOutputs = 2 * kPartOutputs;
constexpr size_t kVector = 32;

// Planes, or rows of one, ready to be convolved.
struct Band {
    static constexpr size_t kBytes = 6128;
    static constexpr size_t kMostPlanes = 16;
    // And what whole vectors write and read beyond.
    alignas(32) uint8_t values[kBytes + 1 + kVector];
};

constexpr uint8_t kZero = 0x80; // with its sign flipped

// Bytes in whole vectors, of which the last ones reach into what is written later.
inline void PutZeros(uint8_t* to, size_t count) {
    for (size_t x = 0; x < count; x += kVector) {
        Store32(to + x, FlipSign(_mm256_setzero_si256()));
    }
}

// Rows of the plane, each with a zero behind it. Of those at the end of all planes single bytes are read.
void PadInnerRows(const int8_t* from, const int8_t* end, size_t width, size_t rows, uint8_t* to) {
    for (; rows > 0; --rows, from += width, to += width + 1) {
        size_t x = 0;
        if (static_cast<size_t>(end - from) >= width + kVector) {
            for (; x < width; x += kVector) {
                Store32(to + x, FlipSign(Load32(from + x)));
            }
        }
        for (; x < width; ++x) {
            to[x] = static_cast<uint8_t>(from[x]) ^ kZero;
        }
        to[width] = kZero;
    }
}

// Rows y - 1 to y + rows of a plane that begins at `src`, one byte more than the width apart.
void PadRows(const DepthwisePlanes& p, const int8_t* src, size_t y, size_t rows, uint8_t* to) {
    const int8_t* const end = p.src + p.channels * p.width * p.height;
    const size_t pitch = p.width + 1;
    size_t from = y - 1;
    size_t count = rows + 2;
    if (y == 0) {
        PutZeros(to, pitch + 1);
        to += pitch;
        from = 0;
        --count;
    }
    const bool isAtEnd = from + count > p.height;
    *to++ = kZero;
    count -= isAtEnd;
    PadInnerRows(src + from * p.width, end, p.width, count, to);
    if (isAtEnd) {
        PutZeros(to + count * pitch, pitch);
    }
}

struct Filter {
    __m256i rows[3]; // three weights and a zero
    __m256i start;   // bias, less what the flipped signs add

    // Of a channel, in both halves.
    Filter(const int8_t* weights, int32_t bias) {
        const int32_t words[3] = {LoadWord<int32_t>(weights) & 0xFFFFFF,
                                  LoadWord<int32_t>(weights + 3) & 0xFFFFFF,
                                  LoadWord<int32_t>(weights + 5) >> 8 & 0xFFFFFF};
        start = _mm256_setzero_si256();
        for (size_t i = 0; i < 3; ++i) {
            rows[i] = _mm256_set1_epi32(words[i]);
            DotAccumulate(start, _mm256_set1_epi8(-128), rows[i]);
        }
        start = _mm256_sub_epi32(_mm256_set1_epi32(bias), start);
    }

    void TakeUpperHalf(const Filter& other) {
        for (size_t i = 0; i < 3; ++i) {
            rows[i] = _mm256_blend_epi32(rows[i], other.rows[i], 0xF0);
        }
        start = _mm256_blend_epi32(start, other.start, 0xF0);
    }
};

// Four neighbours of each of two parts' outputs in a row.
struct Neighbours {
    __m256i of[3];

    Neighbours() = default;
    Neighbours(const uint8_t* first, const uint8_t* second) {
        const __m256i row =
            _mm256_inserti128_si256(_mm256_castsi128_si256(Load16(first)), Load16(second), 1);
        __m256i places = _mm256_broadcastsi128_si256(
            _mm_setr_epi8(0, 1, 2, 3, 1, 2, 3, 4, 2, 3, 4, 5, 3, 4, 5, 6));
        for (__m256i& outputs : of) {
            outputs = _mm256_shuffle_epi8(row, places);
            places = _mm256_add_epi8(places, _mm256_set1_epi8(4));
        }
    }
};

// The outputs of two parts, 12 bytes in each half.
inline __m256i Convolve(const Neighbours& upper, const Neighbours& middle, const Neighbours& lower,
                        const Filter& f, __m256i shift, __m256i lowest) {
    __m256i sums[3] = {f.start, f.start, f.start};
    const auto add = [&](const Neighbours& row, __m256i weights) {
        for (size_t i = 0; i < 3; ++i) {
            DotAccumulate(sums[i], row.of[i], weights);
        }
    };
    add(upper, f.rows[0]);
    add(middle, f.rows[1]);
    add(lower, f.rows[2]);
    for (__m256i& sum : sums) {
        sum = _mm256_srav_epi32(sum, shift);
    }
    const __m256i bytes = _mm256_packs_epi16(_mm256_packs_epi32(sums[0], sums[1]),
                                             _mm256_packs_epi32(sums[2], sums[2]));
    return _mm256_max_epi8(bytes, lowest);
}

// Columns of two parts from their place in the padded row above the first output on; store(row, bytes)
// takes what comes of each row.
template <typename Store>
inline void ConvolveParts(const uint8_t* first, const uint8_t* second, size_t pitch, size_t rows,
                          const Filter& filter, const DepthwisePlanes& p, const Store& store) {
    const __m256i shift = _mm256_set1_epi32(static_cast<int>(p.shift));
    const __m256i lowest = _mm256_set1_epi8(p.lowest);
    Neighbours upper(first, second);
    Neighbours middle(first + pitch, second + pitch);
    for (size_t row = 0; row < rows; ++row) {
        first += pitch;
        second += pitch;
        const Neighbours lower(first + pitch, second + pitch);
        store(row, Convolve(upper, middle, lower, filter, shift, lowest));
        upper = middle;
        middle = lower;
    }
}

inline void Store12(int8_t* to, __m128i bytes) {
    Store8(to, bytes);
    Store4(to + 8, _mm_srli_si128(bytes, 8));
}

// Up to 12 columns of two planes, or of one twice.
void ConvolveNarrow(const DepthwisePlanes& p, const uint8_t* first, const uint8_t* second,
                    const Filter& filter, int8_t* dst0, int8_t* dst1) {
    const size_t plane = p.width * p.height;
    ConvolveParts(first, second, p.width + 1, p.height, filter, p, [&](size_t row, __m256i bytes) {
        const __m128i halves[2] = {_mm256_castsi256_si128(bytes),
                                   _mm256_extracti128_si256(bytes, 1)};
        int8_t* const to[2] = {dst0 + row * p.width, dst1 + row * p.width};
        // Behind the row comes the next one, which is stored later, if it is not another plane.
        if (row * p.width + 16 <= plane) {
            Store16(to[0], halves[0]);
            Store16(to[1], halves[1]);
            return;
        }
        for (size_t i = 0; i < 2; ++i) {
            alignas(16) int8_t outputs[16];
            Store16(outputs, halves[i]);
            if (p.width == kPartOutputs) {
                Store12(to[i], halves[i]);
            } else {
                std::memcpy(to[i], outputs, p.width);
            }
        }
    });
}

// `rows` rows of a plane of more than 12 columns, of which the first is at `dst`.
void ConvolveWide(const DepthwisePlanes& p, const uint8_t* values, size_t rows, bool isAtEnd,
                  const Filter& filter, int8_t* dst) {
    const size_t pitch = p.width + 1;
    if (p.width <= kStripOutputs) {
        const size_t second = p.width - kPartOutputs;
        const size_t whole = isAtEnd ? rows - 1 : rows;
        ConvolveParts(values, values + second, pitch, rows, filter, p,
                      [&](size_t row, __m256i bytes) {
                          int8_t* const to = dst + row * p.width;
                          const __m128i last = _mm256_extracti128_si256(bytes, 1);
                          if (row < whole) {
                              Store16(to, _mm256_castsi256_si128(bytes));
                              Store16(to + second, last);
                          } else {
                              Store12(to, _mm256_castsi256_si128(bytes));
                              Store12(to + second, last);
                          }
                      });
        return;
    }
    const __m256i together = _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 7, 7);
    for (size_t x = 0; x < p.width; x += kStripOutputs) {
        const size_t from = p.width - x < kStripOutputs ? p.width - kStripOutputs : x;
        ConvolveParts(values + from, values + from + kPartOutputs, pitch, rows, filter, p,
                      [&](size_t row, __m256i bytes) {
                          int8_t* const to = dst + row * p.width + from;
                          const __m256i outputs = _mm256_permutevar8x32_epi32(bytes, together);
                          Store16(to, _mm256_castsi256_si128(outputs));
                          Store8(to + 16, _mm256_extracti128_si256(outputs, 1));
                      });
    }
}

// As many planes at a time as the band has room for.
void DepthwiseByPlanes(const DepthwisePlanes& p, size_t paddedBytes) {
    Band band;
    const size_t plane = p.width * p.height;
    const size_t most = Band::kBytes / paddedBytes / 2 * 2;
    const size_t atATime = most < Band::kMostPlanes ? most : Band::kMostPlanes;
    const auto filterOf = [&](size_t c) { return Filter(p.weights + 9 * c, p.bias[c]); };
    for (size_t channel = 0; channel < p.channels; channel += atATime) {
        const size_t left = p.channels - channel;
        const size_t count = left < atATime ? left : atATime;
        for (size_t i = 0; i < count; ++i) {
            PadRows(p, p.src + (channel + i) * plane, 0, p.height, band.values + i * paddedBytes);
        }
        for (size_t i = 0; i < count; ++i) {
            const uint8_t* const values = band.values + i * paddedBytes;
            int8_t* const dst = p.dst + (channel + i) * plane;
            Filter filter = filterOf(channel + i);
            if (p.width > kPartOutputs) {
                ConvolveWide(p, values, p.height, true, filter, dst);
            } else if (i + 1 < count) {
                filter.TakeUpperHalf(filterOf(channel + i + 1));
                ConvolveNarrow(p, values, values + paddedBytes, filter, dst, dst + plane);
                ++i;
            } else {
                ConvolveNarrow(p, values, values, filter, dst, dst);
            }
        }
    }
}

// As many rows of a plane at a time.
void DepthwiseByRows(const DepthwisePlanes& p) {
    Band band;
    const size_t plane = p.width * p.height;
    const size_t most = Band::kBytes / (p.width + 1) - 2;
    for (size_t c = 0; c < p.channels; ++c) {
        const Filter filter(p.weights + 9 * c, p.bias[c]);
        for (size_t y = 0; y < p.height;) {
            const size_t left = p.height - y;
            const size_t rows = left < most ? left : most;
            PadRows(p, p.src + c * plane, y, rows, band.values);
            ConvolveWide(p, band.values, rows, y + rows == p.height, filter,
                         p.dst + c * plane + y * p.width);
            y += rows;
        }
    }
}

} // namespace

void ORVO_VNNI_PATH::Depthwise(const DepthwisePlanes& p) {
    const size_t paddedBytes = (p.height + 2) * (p.width + 1) + 1;
    if (p.width == 0 || p.height == 0) {
        return;
    }
    if (2 * paddedBytes <= Band::kBytes) {
        DepthwiseByPlanes(p, paddedBytes);
    } else if (p.width > kPartOutputs && 3 * (p.width + 1) <= Band::kBytes) {
        DepthwiseByRows(p);
    } else {
        avx2::Depthwise(p);
    }
}

} // namespace orvo
