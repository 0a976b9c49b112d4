// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>

namespace kova_cli {

inline constexpr uint32_t kGlyphWidth = 5;
inline constexpr uint32_t kGlyphHeight = 8; // the last row is for descenders

// Rows from the top; bit 4 is the leftmost pixel. Characters beyond ASCII get a filled box.
using Glyph = std::array<uint8_t, kGlyphHeight>;
const Glyph& GlyphOf(char character);

} // namespace kova_cli
