// SPDX-License-Identifier: MIT
//
// The inner routine of the generic and the pointwise convolution.
#pragma once

#include <cstddef>

#include "compute_a/requantise.h"

namespace orvo {

// Output channels whose weights stand side by side in a packed weight group.
inline constexpr size_t kWeightGroup = 4;

// The product of `Channels` weight rows and `Pixels` pixels over `inner` steps, requantised into
// `Channels` planes. For each step the weights of all channels and the values of all pixels stand
// side by side, so both operands are read from front to back.
template <size_t Channels, size_t Pixels>
void MultiplyTile(const int8_t* weights, const int8_t* values, size_t inner, const int32_t* bias,
                  uint32_t shift, int8_t* dst, size_t planePitch) {
    uint32_t sums[Channels][Pixels] = {};
    for (size_t k = 0; k < inner; ++k) {
        for (size_t c = 0; c < Channels; ++c) {
            for (size_t p = 0; p < Pixels; ++p) {
                sums[c][p] =
                    AddProduct(sums[c][p], weights[Channels * k + c], values[Pixels * k + p]);
            }
        }
    }
    for (size_t c = 0; c < Channels; ++c) {
        for (size_t p = 0; p < Pixels; ++p) {
            dst[c * planePitch + p] = RequantiseQ7(sums[c][p], bias[c], shift);
        }
    }
}

} // namespace orvo
