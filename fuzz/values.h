// SPDX-License-Identifier: MIT
//
// Contents of tensors and pictures. A tensor has far more bytes than a small input: two of the input's bytes
// choose how the values are, so that few bytes reach saturation, wrapping sums and ordinary data alike.
#pragma once

#include "input.h"

namespace orvo_fuzz {

// xorshift: different seeds, 0 included, give different values.
class Stream {
  public:
    explicit Stream(uint32_t seed) : state_(seed * 2654435761u + 0x9E3779B9u) {}
    uint32_t Next() {
        state_ ^= state_ << 13;
        state_ ^= state_ >> 17;
        state_ ^= state_ << 5;
        return state_;
    }

  private:
    uint32_t state_;
};

inline void FillBytes(Input& input, void* to, size_t count) {
    auto* bytes = static_cast<uint8_t*>(to);
    const uint8_t kind = input.Byte();
    Stream stream(input.Byte());
    switch (kind % 8) {
        case 0: // the lowest signed byte, or another one
            std::memset(bytes, (stream.Next() & 1) != 0 ? 0x80 : kind, count);
            break;
        case 1:
            std::memset(bytes, 0x7F, count);
            break;
        case 2: // extremes in turn
            for (size_t i = 0; i < count; ++i) {
                bytes[i] = i % 2 == 0 ? 0x80 : 0x7F;
            }
            break;
        case 3: // extremes in any order
            for (size_t i = 0; i < count; ++i) {
                bytes[i] = (stream.Next() & 0x100) != 0 ? 0x80 : 0x7F;
            }
            break;
        case 4: // small values
            for (size_t i = 0; i < count; ++i) {
                bytes[i] = static_cast<uint8_t>((stream.Next() >> 8) % 7 - 3);
            }
            break;
        case 5: // the input's own
            input.Fill(bytes, count < 64 ? count : 64);
            for (size_t i = 64; i < count; ++i) {
                bytes[i] = bytes[i - 64];
            }
            break;
        default:
            for (size_t i = 0; i < count; ++i) {
                bytes[i] = static_cast<uint8_t>(stream.Next() >> 8);
            }
    }
}

// Biases: nothing, small, close to where 32 bits wrap, or anything.
inline void FillBiases(Input& input, int32_t* to, size_t count) {
    const uint8_t kind = input.Byte();
    Stream stream(input.Byte());
    for (size_t i = 0; i < count; ++i) {
        const uint32_t any = stream.Next();
        switch (kind % 4) {
            case 0:
                to[i] = static_cast<int32_t>(any % 65536) - 32768;
                break;
            case 1:
                to[i] = static_cast<int32_t>((any & 1) != 0 ? 0x7FFFFFFFu - any % 512
                                                            : 0x80000000u + any % 512);
                break;
            case 2:
                to[i] = static_cast<int32_t>(any);
                break;
            default:
                to[i] = 0;
        }
    }
}

} // namespace orvo_fuzz
