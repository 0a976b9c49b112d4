// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "pictures/picture_io.h"

namespace kova_cli {

struct Colour {
    uint8_t red, green, blue;
};

// A colour picture to draw on. What lies outside it is cut off.
class Canvas {
  public:
    Canvas(uint32_t width, uint32_t height, Colour background);

    void Fill(int32_t left, int32_t top, int32_t right, int32_t bottom, Colour colour);
    // A frame of this thickness around the region, outside it.
    void Outline(int32_t left, int32_t top, int32_t right, int32_t bottom, int32_t thickness,
                 Colour colour);
    // Grey pixels, each `scale` pixels wide and high.
    void Place(int32_t left, int32_t top, Bytes grey, uint32_t width, uint32_t height,
               int32_t scale);
    // A line of text from its top left corner; returns where it ends.
    int32_t Write(int32_t left, int32_t top, const std::string& text, int32_t scale, Colour colour);

    std::vector<uint8_t> Png() const;

  private:
    uint32_t width_, height_;
    std::vector<uint8_t> pixels_; // red, green, blue
};

int32_t TextWidth(const std::string& text, int32_t scale);

} // namespace kova_cli
