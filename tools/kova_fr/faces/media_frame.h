// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "orvo/kova_fr.h"
#include "pictures/picture_io.h"

namespace kova_cli {

// A rectangle of pixels.
struct Box {
    uint32_t x = 0;
    uint32_t y = 0;
    uint32_t width = 0;
    uint32_t height = 0;
};

// The part of a picture that becomes the frame: `box`, or the whole picture without one. The device
// API takes even sizes, so an odd last column or row is left out. Refuses a box that leaves the
// picture and a face that is too small.
Box FrameBox(const GreyPicture& picture, const std::optional<Box>& box);

// A part of a picture in media memory, where the device API can reach it.
class MediaFrame {
  public:
    MediaFrame(const GreyPicture& picture, const Box& box);
    MediaFrame(uint32_t width, uint32_t height); // nothing written yet
    ~MediaFrame();
    MediaFrame(const MediaFrame&) = delete;
    MediaFrame& operator=(const MediaFrame&) = delete;

    const obj_img& image() const { return image_; }

  private:
    obj_img image_ = {};
    void* address_ = nullptr;
};

// The 256 x 256 picture that the library makes of a frame, by the platform's scaler.
std::vector<uint8_t> ScaledFrame(const obj_img& image);

// A status of the platform or of the device API as users report it: 0x and eight digits.
std::string StatusText(uint32_t status);

} // namespace kova_cli
