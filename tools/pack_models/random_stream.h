// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "orvo/cipher.h"

namespace orvo::pack {

// Random numbers that depend on nothing but the seed: the AES-128 key stream in CTR mode, with the
// seed's first half as the key and its second half, plus a number for the purpose, as the counter's
// start. Purposes are told apart in the first byte, which no stream ever counts up to.
class RandomStream {
  public:
    RandomStream(const std::array<uint8_t, 32>& seed, uint8_t purpose);

    uint8_t Byte();
    uint32_t Word();

  private:
    AES_ctx cipher_;
    std::array<uint8_t, 1024> buffer_;
    size_t position_;
};

} // namespace orvo::pack
