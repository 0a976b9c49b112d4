// SPDX-License-Identifier: MIT
#pragma once

#include <cmath>
#include <cstdint>
#include <initializer_list>

namespace facegen {

// What a stream of random numbers is for. Each purpose has its own stream, so that a draw added to
// one part of a picture leaves the others as they were.
enum class Purpose : std::uint64_t {
    kPerson,
    kSkin,
    kHair,
    kPicture,
    kBackground,
    kOccluder,
    kCamera,
    kSpace,
    kBroad
};

// A small generator of our own, because the distributions of the standard library differ between
// its implementations.
class Random {
  public:
    explicit Random(std::uint64_t seed) : state_(seed) {}

    // The stream that depends on these four alone: no shard, thread or order comes in.
    Random(std::uint64_t seed, std::uint64_t person, std::uint64_t picture, Purpose purpose)
        : state_(seed) {
        for (std::uint64_t part : {person, picture, static_cast<std::uint64_t>(purpose)}) {
            state_ = Next() ^ (part * 0xd1342543de82ef95ULL + 0x632be59bd9b4e019ULL);
        }
    }

    std::uint64_t Next() {
        state_ += 0x9e3779b97f4a7c15ULL;
        std::uint64_t z = state_;
        z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ULL;
        z = (z ^ (z >> 27)) * 0x94d049bb133111ebULL;
        return z ^ (z >> 31);
    }

    float Uniform() { return static_cast<float>(Next() >> 40) * 0x1p-24F; }
    float Uniform(float from, float to) { return from + (to - from) * Uniform(); }
    bool Chance(float share) { return Uniform() < share; }
    int Below(int count) {
        return static_cast<int>((Next() >> 33) % static_cast<std::uint64_t>(count));
    }
    float Sign() { return Chance(0.5f) ? 1.0f : -1.0f; }

    float Normal() {
        const float u = 1.0f - Uniform();
        return std::sqrt(-2.0f * std::log(u)) * std::cos(6.28318531f * Uniform());
    }
    float Normal(float mean, float deviation) { return mean + deviation * Normal(); }
    // Normal, but never further than `limit` deviations out: no monsters.
    float NormalWithin(float deviation, float limit) {
        float value = Normal();
        while (std::fabs(value) > limit) {
            value = Normal();
        }
        return deviation * value;
    }

  private:
    std::uint64_t state_;
};

} // namespace facegen
