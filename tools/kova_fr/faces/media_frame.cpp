// SPDX-License-Identifier: MIT
#include "faces/media_frame.h"

#include <cstdio>
#include <cstring>

#include "device_api/frame_size.h"
#include "files/failure.h"
#include "orvo/kova_mpi.h"
#include "orvo/orvo_fr.h"

namespace kova_cli {
namespace {

std::string SizeText(uint32_t width, uint32_t height) {
    return std::to_string(width) + " x " + std::to_string(height);
}

bool IsInside(const Box& box, const GreyPicture& picture) {
    return box.x < picture.width && box.width <= picture.width - box.x && box.y < picture.height &&
           box.height <= picture.height - box.y;
}

kova_video_frame ScalerFrame(const obj_img& image) {
    kova_video_frame frame{};
    frame.width = image.width;
    frame.height = image.height;
    frame.stride[0] = image.stride;
    frame.phy_addr[0] = image.phy_addr;
    frame.vir_addr[0] = image.vir_addr;
    frame.pixel_format = KOVA_PIXEL_FORMAT_SINGLE_8BIT;
    return frame;
}

} // namespace

Box FrameBox(const GreyPicture& picture, const std::optional<Box>& box) {
    Box face = box.value_or(Box{0, 0, picture.width, picture.height});
    if (!IsInside(face, picture)) {
        throw Failure("the box leaves the picture, which has " +
                      SizeText(picture.width, picture.height) + " pixels; give a box inside it");
    }
    if (face.width < orvo::kMinFrameWidth || face.height < orvo::kMinFrameHeight) {
        throw Failure("the face is too small (" + SizeText(face.width, face.height) +
                      "); it needs at least " +
                      SizeText(orvo::kMinFrameWidth, orvo::kMinFrameHeight) + " pixels");
    }
    face.width -= face.width % 2;
    face.height -= face.height % 2;
    return face;
}

MediaFrame::MediaFrame(uint32_t width, uint32_t height) {
    const int32_t status = KOVA_MPI_SYS_MmzAlloc_Cached(&image_.phy_addr, &address_,
                                                        "KOVA_FR_FRAME", nullptr, width * height);
    if (status != 0) {
        throw Failure("there is no media memory for the frame (" +
                      StatusText(static_cast<uint32_t>(status)) +
                      "); scale the picture down or give a smaller box");
    }
    image_.vir_addr = reinterpret_cast<uintptr_t>(address_);
    image_.stride = width;
    image_.width = width;
    image_.height = height;
    image_.mem_type = 1;
}

MediaFrame::MediaFrame(const GreyPicture& picture, const Box& box)
    : MediaFrame(box.width, box.height) {
    for (uint32_t y = 0; y < box.height; ++y) {
        std::memcpy(static_cast<uint8_t*>(address_) + size_t{y} * box.width,
                    picture.pixels.data() + size_t{box.y + y} * picture.width + box.x, box.width);
    }
}

MediaFrame::~MediaFrame() { KOVA_MPI_SYS_MmzFree(image_.phy_addr, address_); }

std::vector<uint8_t> ScaledFrame(const obj_img& image) {
    const MediaFrame scaled(ORVO_FR_IMAGE_SIZE, ORVO_FR_IMAGE_SIZE);
    kova_vgs_task task{};
    task.in = ScalerFrame(image);
    task.out = ScalerFrame(scaled.image());
    int32_t job = -1;
    int32_t status = KOVA_MPI_VGS_BeginJob(&job);
    if (status == 0) {
        status = KOVA_MPI_VGS_AddScaleTask(job, &task, KOVA_VGS_SCALE_COEF_NORMAL);
        status = status == 0 ? KOVA_MPI_VGS_EndJob(job) : status;
        if (status != 0) {
            KOVA_MPI_VGS_CancelJob(job);
        }
    }
    if (status != 0) {
        throw Failure("the frame could not be scaled (" +
                      StatusText(static_cast<uint32_t>(status)) + "); report this status");
    }
    const auto* pixels = reinterpret_cast<const uint8_t*>(scaled.image().vir_addr);
    return {pixels, pixels + ORVO_FR_IMAGE_SIZE * ORVO_FR_IMAGE_SIZE};
}

std::string StatusText(uint32_t status) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08x", static_cast<unsigned>(status));
    return text;
}

} // namespace kova_cli
