// SPDX-License-Identifier: MIT
#pragma once

#include <cmath>
#include <cstdint>
#include <vector>

namespace facegen {

// One texture a person: the head's part of the skin, the eyes, the hair. Surfaces carry texture
// coordinates in its texels, so that one look-up serves every material.
namespace atlas {

constexpr int kWidth = 672, kHeight = 744;

struct Tile {
    int x, y, width, height;
};
constexpr Tile kSkin{0, 0, 416, 744};
constexpr Tile kHair{416, 0, 256, 256};
constexpr Tile kStreaks{416, 256, 256, 256}; // hair and beards that grow on the scalp and chin
constexpr Tile kEyes{416, 512, 128, 128};
constexpr Tile kTeeth{560, 520, 8, 8};
constexpr Tile kTongue{580, 520, 8, 8};

// The window of the base mesh's own texture (1024 x 1024 texels) that holds the head.
constexpr int kSkinLeft = 608, kSkinTop = 160, kSkinSheet = 1024;

} // namespace atlas

// Reflectances, stored as their square roots in 8 bits, with the 2 x 2 texels that a bilinear
// look-up needs side by side in one word: one load instead of four.
class Atlas {
  public:
    Atlas() : texels_(static_cast<std::size_t>(atlas::kWidth) * atlas::kHeight) {}

    void Set(int x, int y, float reflectance) {
        texels_[static_cast<std::size_t>(y) * atlas::kWidth + x] =
            static_cast<std::uint32_t>(std::sqrt(reflectance) * 255.0f + 0.5f);
    }
    void SetCode(int x, int y, std::uint32_t code) {
        texels_[static_cast<std::size_t>(y) * atlas::kWidth + x] = code;
    }
    // To be called once when all texels are set.
    void Pack();

    const std::uint32_t* Words() const { return texels_.data(); }

  private:
    std::vector<std::uint32_t> texels_;
};

} // namespace facegen
