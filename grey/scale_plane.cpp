// SPDX-License-Identifier: MIT
#include "grey/scale_plane.h"

#include <algorithm>
#include <vector>

namespace orvo_grey {
namespace {

constexpr int kWeightBits = 16;
constexpr uint64_t kOne = uint64_t{1} << kWeightBits;

// Where an output position falls among the input positions: between `first` and `second`, by
// `weight` of the latter.
struct Tap {
    uint32_t first;
    uint32_t second;
    uint32_t weight;
};

// The centre of output position i lies at (i + 1/2) * srcCount / dstCount - 1/2, which is
// ((2i + 1) * srcCount - dstCount) / (2 * dstCount): an exact fraction. The counts are bounded by
// memory, so nothing overflows in 64 bits.
Tap TapFor(uint32_t i, uint32_t srcCount, uint32_t dstCount) {
    const int64_t numerator =
        (2 * int64_t{i} + 1) * int64_t{srcCount} - static_cast<int64_t>(dstCount);
    if (numerator <= 0) {
        return {0, 0, 0};
    }
    const uint64_t denominator = 2 * uint64_t{dstCount};
    const uint64_t position = static_cast<uint64_t>(numerator) / denominator;
    const uint64_t rest = static_cast<uint64_t>(numerator) % denominator;
    const uint32_t last = srcCount - 1;
    return {static_cast<uint32_t>(std::min<uint64_t>(position, last)),
            static_cast<uint32_t>(std::min<uint64_t>(position + 1, last)),
            static_cast<uint32_t>((rest << kWeightBits) / denominator)};
}

uint64_t Blend(uint64_t a, uint64_t b, uint32_t weight) { return a * (kOne - weight) + b * weight; }

} // namespace

void ScalePlane(const Plane<const uint8_t>& src, const Plane<uint8_t>& dst) {
    std::vector<Tap> columns(dst.width);
    for (uint32_t x = 0; x < dst.width; ++x) {
        columns[x] = TapFor(x, src.width, dst.width);
    }
    for (uint32_t y = 0; y < dst.height; ++y) {
        const Tap rows = TapFor(y, src.height, dst.height);
        const uint8_t* const upper = src.pixels + uint64_t{rows.first} * src.stride;
        const uint8_t* const lower = src.pixels + uint64_t{rows.second} * src.stride;
        uint8_t* const out = dst.pixels + uint64_t{y} * dst.stride;
        for (uint32_t x = 0; x < dst.width; ++x) {
            const Tap& column = columns[x];
            const uint64_t top = Blend(upper[column.first], upper[column.second], column.weight);
            const uint64_t bottom = Blend(lower[column.first], lower[column.second], column.weight);
            const uint64_t half = kOne * kOne / 2;
            out[x] =
                static_cast<uint8_t>((Blend(top, bottom, rows.weight) + half) >> (2 * kWeightBits));
        }
    }
}

} // namespace orvo_grey
