// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace orvo::seed {

// SplitMix64. Everything below is exact arithmetic, so that the numbers are the same everywhere.
class Random {
  public:
    explicit Random(uint64_t seed) : state_(seed) {}

    uint64_t Next() {
        uint64_t z = state_ += 0x9E3779B97F4A7C15u;
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9u;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBu;
        return z ^ (z >> 31);
    }
    // Uniform in [0, 1).
    double Uniform() { return static_cast<double>(Next() >> 11) * 0x1p-53; }
    // Close to a normal distribution of mean 0 and standard deviation 1: the sum of twelve uniform
    // numbers, which needs no function that rounds differently from machine to machine.
    double Normal() {
        double sum = -6.0;
        for (int i = 0; i < 12; ++i) {
            sum += Uniform();
        }
        return sum;
    }

  private:
    uint64_t state_;
};

} // namespace orvo::seed
