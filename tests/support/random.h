// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>

namespace orvo_test {

// A small generator (SplitMix64) whose numbers are the same everywhere, so that a failing case can
// be named by its seed and golden digests hold on every machine.
class Random {
  public:
    explicit Random(uint64_t seed) : state_(seed) {}

    uint64_t Next() {
        uint64_t z = state_ += 0x9E3779B97F4A7C15u;
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9u;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBu;
        return z ^ (z >> 31);
    }
    // Uniform in [low, high].
    int32_t Between(int32_t low, int32_t high) {
        const uint64_t span = static_cast<uint64_t>(static_cast<int64_t>(high) - low) + 1;
        return static_cast<int32_t>(low + static_cast<int64_t>(Next() % span));
    }
    int8_t Q7() { return static_cast<int8_t>(Next()); }
    uint8_t Byte() { return static_cast<uint8_t>(Next()); }

    template <typename T>
    void Fill(T* data, size_t count) {
        for (size_t i = 0; i < count; ++i) {
            data[i] = static_cast<T>(Next());
        }
    }

  private:
    uint64_t state_;
};

} // namespace orvo_test
