// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>
#include <vector>

// Galois/Counter Mode from its definition: blocks are polynomials over GF(2), multiplied the
// school way and divided by x^128 + x^7 + x^2 + x + 1. The block cipher is wb_aes_encrypt.
namespace orvo_reference {

using Bytes = std::vector<uint8_t>;
using Block = std::array<uint8_t, 16>;

struct Sealed {
    Bytes ciphertext;
    Block tag;
};

Sealed SealGcm(const Bytes& iv, const Bytes& plaintext, const Bytes& additional);

// The IV of 16 bytes from which the given pre-counter block follows.
Bytes IvForPreCounter(const Block& preCounter);

} // namespace orvo_reference
