// SPDX-License-Identifier: MIT
#include "frame.h"

#include <cstdio>
#include <cstring>

#include "failure.h"
#include "orvo/kova_mpi.h"

namespace kova_cli {
namespace {

// What the device API asks of a frame.
constexpr uint32_t kMinWidth = 16;
constexpr uint32_t kMinHeight = 12;

std::string SizeText(uint32_t width, uint32_t height) {
    return std::to_string(width) + " x " + std::to_string(height);
}

bool IsInside(const Box& box, const GreyPicture& picture) {
    return box.x < picture.width && box.width <= picture.width - box.x && box.y < picture.height &&
           box.height <= picture.height - box.y;
}

} // namespace

Box FrameBox(const GreyPicture& picture, const std::optional<Box>& box) {
    Box face = box.value_or(Box{0, 0, picture.width, picture.height});
    if (!IsInside(face, picture)) {
        throw Failure("the box leaves the picture, which has " +
                      SizeText(picture.width, picture.height) + " pixels; give a box inside it");
    }
    if (face.width < kMinWidth || face.height < kMinHeight) {
        throw Failure("the face is too small (" + SizeText(face.width, face.height) +
                      "); it needs at least " + SizeText(kMinWidth, kMinHeight) + " pixels");
    }
    face.width -= face.width % 2;
    face.height -= face.height % 2;
    return face;
}

MediaFrame::MediaFrame(const GreyPicture& picture, const Box& box) {
    const int32_t status = KOVA_MPI_SYS_MmzAlloc_Cached(
        &image_.phy_addr, &address_, "KOVA_FR_FRAME", nullptr, box.width * box.height);
    if (status != 0) {
        throw Failure("there is no media memory for the frame (" +
                      StatusText(static_cast<uint32_t>(status)) +
                      "); scale the picture down or give a smaller box");
    }
    image_.vir_addr = reinterpret_cast<uintptr_t>(address_);
    image_.stride = box.width;
    image_.width = box.width;
    image_.height = box.height;
    image_.mem_type = 1;
    for (uint32_t y = 0; y < box.height; ++y) {
        std::memcpy(static_cast<uint8_t*>(address_) + size_t{y} * box.width,
                    picture.pixels.data() + size_t{box.y + y} * picture.width + box.x, box.width);
    }
}

MediaFrame::~MediaFrame() { KOVA_MPI_SYS_MmzFree(image_.phy_addr, address_); }

std::string StatusText(uint32_t status) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08x", static_cast<unsigned>(status));
    return text;
}

} // namespace kova_cli
