// SPDX-License-Identifier: MIT
#include "pictures/canvas.h"

#include <algorithm>

#include "pictures/glyphs.h"

namespace kova_cli {

Canvas::Canvas(uint32_t width, uint32_t height, Colour background)
    : width_(width), height_(height), pixels_(size_t{3} * width * height) {
    Fill(0, 0, static_cast<int32_t>(width), static_cast<int32_t>(height), background);
}

void Canvas::Fill(int32_t left, int32_t top, int32_t right, int32_t bottom, Colour colour) {
    const int32_t lastX = std::min(right, static_cast<int32_t>(width_));
    const int32_t lastY = std::min(bottom, static_cast<int32_t>(height_));
    for (int32_t y = std::max(top, 0); y < lastY; ++y) {
        for (int32_t x = std::max(left, 0); x < lastX; ++x) {
            uint8_t* pixel =
                &pixels_[3 * (static_cast<size_t>(y) * width_ + static_cast<size_t>(x))];
            pixel[0] = colour.red;
            pixel[1] = colour.green;
            pixel[2] = colour.blue;
        }
    }
}

void Canvas::Outline(int32_t left, int32_t top, int32_t right, int32_t bottom, int32_t thickness,
                     Colour colour) {
    Fill(left - thickness, top - thickness, right + thickness, top, colour);
    Fill(left - thickness, bottom, right + thickness, bottom + thickness, colour);
    Fill(left - thickness, top, left, bottom, colour);
    Fill(right, top, right + thickness, bottom, colour);
}

void Canvas::Place(int32_t left, int32_t top, Bytes grey, uint32_t width, uint32_t height,
                   int32_t scale) {
    for (uint32_t y = 0; y < height; ++y) {
        for (uint32_t x = 0; x < width; ++x) {
            const uint8_t level = grey[size_t{y} * width + x];
            const int32_t toX = left + static_cast<int32_t>(x) * scale;
            const int32_t toY = top + static_cast<int32_t>(y) * scale;
            Fill(toX, toY, toX + scale, toY + scale, {level, level, level});
        }
    }
}

int32_t Canvas::Write(int32_t left, int32_t top, const std::string& text, int32_t scale,
                      Colour colour) {
    for (const char character : text) {
        const Glyph& glyph = GlyphOf(character);
        for (int32_t y = 0; y < static_cast<int32_t>(kGlyphHeight); ++y) {
            for (int32_t x = 0; x < static_cast<int32_t>(kGlyphWidth); ++x) {
                if ((glyph[static_cast<size_t>(y)] >> (kGlyphWidth - 1 - static_cast<uint32_t>(x)) &
                     1) != 0) {
                    Fill(left + x * scale, top + y * scale, left + (x + 1) * scale,
                         top + (y + 1) * scale, colour);
                }
            }
        }
        left += TextWidth("x", scale);
    }
    return left;
}

std::vector<uint8_t> Canvas::Png() const { return EncodePng(pixels_, width_, height_, 3); }

int32_t TextWidth(const std::string& text, int32_t scale) {
    return static_cast<int32_t>(text.size()) * static_cast<int32_t>(kGlyphWidth + 1) * scale;
}

} // namespace kova_cli
