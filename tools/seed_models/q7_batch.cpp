// SPDX-License-Identifier: MIT
#include "tools/seed_models/q7_batch.h"

#include <algorithm>

namespace orvo::seed {
namespace {

// Writes every plane of `out` as a function of the same plane of `in`.
template <typename Function>
void ForEachPixel(const Batch& in, Batch* out, Function function) {
    for (int p = 0; p < in.pictures; ++p) {
        for (int c = 0; c < in.channels; ++c) {
            const int8_t* source = in.Plane(p, c);
            int8_t* target = out->Plane(p, c);
            for (int y = 0; y < out->size; ++y) {
                for (int x = 0; x < out->size; ++x) {
                    *target++ = function(source, y, x);
                }
            }
        }
    }
}

Batch MaxPool(const Batch& in, int size, int stride) {
    Batch out(in.pictures, in.channels, size);
    ForEachPixel(in, &out, [&](const int8_t* plane, int y, int x) {
        const int8_t* corner = plane + y * stride * in.size + x * stride;
        return std::max({corner[0], corner[1], corner[in.size], corner[in.size + 1]});
    });
    return out;
}

} // namespace

int8_t Saturate(int32_t value) { return static_cast<int8_t>(std::clamp(value, -128, 127)); }

void Rectify(Batch* batch) {
    for (int8_t& value : batch->values) {
        value = std::max<int8_t>(value, 0);
    }
}

Batch MaxPoolStride1(const Batch& in) { return MaxPool(in, in.size - 1, 1); }

Batch MaxPoolStride2(const Batch& in) { return MaxPool(in, in.size / 2, 2); }

Batch TakeEverySecond(const Batch& in) {
    Batch out(in.pictures, in.channels, (in.size + 1) / 2);
    ForEachPixel(in, &out,
                 [&](const int8_t* plane, int y, int x) { return plane[2 * y * in.size + 2 * x]; });
    return out;
}

Batch AveragePool(const Batch& in, int shift) {
    Batch out(in.pictures, in.channels, 1);
    const int count = in.size * in.size;
    ForEachPixel(in, &out, [&](const int8_t* plane, int, int) {
        int sum = 0;
        for (int i = 0; i < count; ++i) {
            sum += plane[i];
        }
        sum *= 1 << shift;
        return Saturate((sum >= 0 ? sum + count / 2 : sum - count / 2) / count);
    });
    return out;
}

Batch Add(const Batch& a, const Batch& b, int aShift, int bShift, int outShift) {
    Batch out(a.pictures, a.channels, a.size);
    const int half = outShift == 0 ? 0 : 1 << (outShift - 1);
    for (int p = 0; p < a.pictures; ++p) {
        for (int c = 0; c < a.channels; ++c) {
            const int8_t* other = c < b.channels ? b.Plane(p, c) : nullptr;
            for (size_t i = 0; i < a.PlaneLength(); ++i) {
                const int shortcut = other == nullptr ? 0 : other[i] * (1 << bShift);
                const int sum = a.Plane(p, c)[i] * (1 << aShift) + shortcut + half;
                out.Plane(p, c)[i] = Saturate(sum >> outShift);
            }
        }
    }
    return out;
}

} // namespace orvo::seed
