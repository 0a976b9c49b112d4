// SPDX-License-Identifier: MIT
//
// 2 x 2 maximum with stride 2. The result may have more channels than the source; they are zero.
#pragma once

#include "depthwise.h"

namespace engine {

// The four pixels under one of the result: offsets in a picture.
struct Window {
    size_t at[4];

    Window(const Tensor& source, size_t x, size_t y, size_t channel) {
        const auto channels = static_cast<size_t>(source.channels);
        const size_t row = static_cast<size_t>(source.size) * channels;
        at[0] = 2 * y * row + 2 * x * channels + channel;
        at[1] = at[0] + channels;
        at[2] = at[0] + row;
        at[3] = at[2] + channels;
    }
};

inline void HalvingForward(const Tensor& source, size_t picture, Tensor* out) {
    const uint16_t* from = source.values + picture * source.Length();
    uint16_t* to = out->values + picture * out->Length();
    const auto side = static_cast<size_t>(out->size);
    for (size_t y = 0; y < side; ++y) {
        for (size_t x = 0; x < side; ++x, to += out->channels) {
            for (int c = 0; c < source.channels; c += kLanes) {
                const Window window(source, x, y, static_cast<size_t>(c));
                const Reading reading(source, c);
                V most = reading.Value(Load(from + window.at[0]));
                for (int i = 1; i < 4; ++i) {
                    most = _mm512_max_ps(most, reading.Value(Load(from + window.at[i])));
                }
                Store(to + c, most);
            }
            std::fill(to + source.channels, to + out->channels, uint16_t{0});
        }
    }
}

// The gradient goes to the first of the four that is the maximum.
inline void HalvingBackward(const Tensor& source, const Tensor& out, size_t picture, Sums* sums) {
    const size_t begin = picture * source.Length();
    const auto side = static_cast<size_t>(out.size), channels = static_cast<size_t>(out.channels);
    for (int c = 0; c < source.channels; c += kLanes) {
        GradientWriter writer(source, c);
        for (size_t y = 0; y < side; ++y) {
            for (size_t x = 0; x < side; ++x) {
                const size_t at =
                    picture * out.Length() + (y * side + x) * channels + static_cast<size_t>(c);
                const Window window(source, x, y, static_cast<size_t>(c));
                const V slope = Load(out.gradient + at);
                // Computed anew: what the result stores is rounded.
                V value[4], most;
                for (int i = 0; i < 4; ++i) {
                    value[i] = writer.reading.Value(Load(source.values + begin + window.at[i]));
                    most = i == 0 ? value[0] : _mm512_max_ps(most, value[i]);
                }
                __mmask16 left = 0xffff;
                for (int i = 0; i < 4; ++i) {
                    const __mmask16 here =
                        _mm512_mask_cmp_ps_mask(left, value[i], most, _CMP_EQ_OQ);
                    left = static_cast<__mmask16>(left & ~here);
                    writer.Put(begin + window.at[i], _mm512_maskz_mov_ps(here, slope));
                }
            }
        }
        sums->Add(c, writer.first, writer.second);
    }
}

} // namespace engine
