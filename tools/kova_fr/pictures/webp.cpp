// SPDX-License-Identifier: MIT
#include <webp/decode.h>
#include <webp/demux.h>

#include <algorithm>
#include <memory>
#include <new>

#include "files/failure.h"
#include "grey/luma.h"
#include "pictures/kinds.h"
#include "pictures/orientation.h"

namespace kova_cli {
namespace {

struct Closer {
    void operator()(WebPDemuxer* file) const { WebPDemuxDelete(file); }
};

struct Frame {
    WebPIterator at = {};

    explicit Frame(const WebPDemuxer* file) {
        if (WebPDemuxGetFrame(file, 1, &at) == 0 || at.complete == 0) {
            FailDamaged("it has no whole frame");
        }
    }
    ~Frame() { WebPDemuxReleaseIterator(&at); }
    Frame(const Frame&) = delete;
    Frame& operator=(const Frame&) = delete;
};

// RGBA.
struct Pixels {
    WebPDecoderConfig config;

    Pixels(const uint8_t* bytes, size_t size) {
        WebPInitDecoderConfig(&config);
        config.output.colorspace = MODE_RGBA;
        const VP8StatusCode status = WebPDecode(bytes, size, &config);
        if (status == VP8_STATUS_OK) {
            return;
        }
        WebPFreeDecBuffer(&config.output);
        if (status == VP8_STATUS_OUT_OF_MEMORY) {
            throw std::bad_alloc();
        }
        FailDamaged("its pixels cannot be read");
    }
    ~Pixels() { WebPFreeDecBuffer(&config.output); }
    Pixels(const Pixels&) = delete;
    Pixels& operator=(const Pixels&) = delete;
};

// The part may begin as in a JPEG, or with the TIFF structure itself.
int Orientation(const WebPDemuxer* file) {
    static constexpr uint8_t kExif[] = {'E', 'x', 'i', 'f', 0, 0};
    WebPChunkIterator chunk = {};
    int orientation = kUpright;
    if (WebPDemuxGetChunk(file, "EXIF", 1, &chunk) != 0) {
        Bytes exif(chunk.chunk.bytes, chunk.chunk.size);
        const bool hasPrefix = exif.size() > sizeof kExif &&
                               std::equal(std::begin(kExif), std::end(kExif), exif.begin());
        orientation = ExifOrientation(hasPrefix ? exif.subspan(sizeof kExif) : exif);
    }
    WebPDemuxReleaseChunkIterator(&chunk);
    return orientation;
}

} // namespace

GreyPicture DecodeWebp(Bytes file) {
    const WebPData data = {file.data(), file.size()};
    const std::unique_ptr<WebPDemuxer, Closer> demuxer(WebPDemux(&data));
    if (demuxer == nullptr) {
        FailDamaged("its parts do not fit together");
    }
    GreyPicture picture = EmptyPicture(WebPDemuxGetI(demuxer.get(), WEBP_FF_CANVAS_WIDTH),
                                       WebPDemuxGetI(demuxer.get(), WEBP_FF_CANVAS_HEIGHT));
    // Of an animation the first frame, which may be a part of the canvas.
    const Frame frame(demuxer.get());
    const Pixels pixels(frame.at.fragment.bytes, frame.at.fragment.size);
    const int width = pixels.config.output.width;
    const int height = pixels.config.output.height;
    const auto isIn = [](int from, int length, uint32_t all) {
        return from >= 0 && length > 0 &&
               static_cast<uint64_t>(from) + static_cast<uint64_t>(length) <= all;
    };
    if (!isIn(frame.at.x_offset, width, picture.width) ||
        !isIn(frame.at.y_offset, height, picture.height)) {
        FailDamaged("its pixels cannot be read");
    }
    for (size_t y = 0; y < static_cast<size_t>(height); ++y) {
        const WebPRGBABuffer& rows = pixels.config.output.u.RGBA;
        const uint8_t* from = rows.rgba + y * static_cast<size_t>(rows.stride);
        uint8_t* to = &picture.pixels[(y + static_cast<size_t>(frame.at.y_offset)) * picture.width +
                                      static_cast<size_t>(frame.at.x_offset)];
        for (int x = 0; x < width; ++x, from += 4) {
            *to++ = orvo_grey::OverBlack(orvo_grey::Luma(from[0], from[1], from[2]), from[3]);
        }
    }
    MakeUpright(Orientation(demuxer.get()), picture);
    return picture;
}

} // namespace kova_cli
