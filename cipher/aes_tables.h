// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

// The fixed tables of FIPS-197, computed by the compiler from their definition.
namespace orvo {

// Multiplication by x in GF(2^8) with the polynomial x^8 + x^4 + x^3 + x + 1.
constexpr uint8_t TimesX(uint8_t a) {
    return static_cast<uint8_t>((a << 1) ^ ((a & 0x80) != 0 ? 0x1b : 0));
}

constexpr uint8_t GfMultiply(uint8_t a, uint8_t b) {
    uint8_t product = 0;
    for (; b != 0; b = static_cast<uint8_t>(b >> 1), a = TimesX(a)) {
        if ((b & 1) != 0) {
            product = static_cast<uint8_t>(product ^ a);
        }
    }
    return product;
}

struct AesSboxes {
    uint8_t forward[256];
    uint8_t inverse[256];
};

constexpr AesSboxes MakeAesSboxes() {
    // 3 generates the multiplicative group, so every non-zero a = 3^n has the inverse 3^(255 - n).
    uint8_t power[256] = {};
    uint8_t a = 1;
    for (int n = 0; n < 256; ++n) {
        power[n] = a;
        a = static_cast<uint8_t>(a ^ TimesX(a));
    }
    AesSboxes boxes = {};
    boxes.forward[0] = 0x63;
    for (int n = 0; n < 255; ++n) {
        const unsigned inverse = power[255 - n];
        const unsigned twice = inverse | (inverse << 8); // rotations become shifts
        const unsigned affine =
            inverse ^ (twice >> 7) ^ (twice >> 6) ^ (twice >> 5) ^ (twice >> 4) ^ 0x63;
        boxes.forward[power[n]] = static_cast<uint8_t>(affine);
    }
    for (int i = 0; i < 256; ++i) {
        boxes.inverse[boxes.forward[i]] = static_cast<uint8_t>(i);
    }
    return boxes;
}

constexpr AesSboxes kAesSboxes = MakeAesSboxes();

} // namespace orvo
