// SPDX-License-Identifier: MIT
#include <algorithm>
#include <csetjmp>
#include <cstddef>
#include <cstdio>
#include <new>

// Needs what <cstdio> declares before it.
#include <jpeglib.h>

#include <jerror.h>

#include "files/failure.h"
#include "grey/luma.h"
#include "pictures/kinds.h"
#include "pictures/orientation.h"

namespace kova_cli {
namespace {

constexpr int kExifMarker = JPEG_APP0 + 1;
constexpr unsigned kMostMarkerBytes = 0xFFFF;

// libjpeg reports errors by calling error_exit, which must not return: it jumps back to the last
// setjmp. The functions below that call setjmp return false after such a jump and hold nothing that
// would need a destructor: what must be released belongs to their caller.
struct JpegReader {
    jpeg_decompress_struct info = {};
    jpeg_error_mgr manager = {};
    std::jmp_buf onError;
    char error[JMSG_LENGTH_MAX] = "";
    bool isWithoutMemory = false;
    bool isCut = false;             // the file has ended
    uint32_t goodRows = UINT32_MAX; // that came before that, of a picture read row by row
    bool isFine = false;            // of one that is sent in rounds: all that shows came

    JpegReader();
    ~JpegReader() { jpeg_destroy_decompress(&info); }
    JpegReader(const JpegReader&) = delete;
    JpegReader& operator=(const JpegReader&) = delete;
};

[[noreturn]] void OnError(j_common_ptr info) {
    auto* reader = static_cast<JpegReader*>(info->client_data);
    info->err->format_message(info, reader->error);
    reader->isWithoutMemory = info->err->msg_code == JERR_OUT_OF_MEMORY;
    std::longjmp(reader->onError, 1);
}

// libjpeg goes on after these with made-up pixels, which no one wants recognised.
bool MeansLostPixels(int code) {
    return code == JWRN_HIT_MARKER || code == JWRN_MUST_RESYNC || code == JWRN_HUFF_BAD_CODE ||
           code == JWRN_ARITH_BAD_CODE;
}

// Where the file has ended, the pixels are lost from the row of blocks on that is being read.
void OnMessage(j_common_ptr info, int level) {
    auto* reader = static_cast<JpegReader*>(info->client_data);
    const int code = level < 0 ? info->err->msg_code : 0;
    if (code == JWRN_JPEG_EOF) {
        reader->isCut = true;
    } else if (MeansLostPixels(code) && !reader->isCut) {
        OnError(info);
    } else if (MeansLostPixels(code)) {
        const auto blockRows = static_cast<uint32_t>(reader->info.max_v_samp_factor) * DCTSIZE;
        reader->goodRows = std::min(reader->goodRows, reader->info.input_iMCU_row * blockRows);
    }
}

JpegReader::JpegReader() {
    info.err = jpeg_std_error(&manager);
    manager.error_exit = OnError;
    manager.emit_message = OnMessage;
    info.client_data = this;
}

[[noreturn]] void Fail(const JpegReader& reader) {
    if (reader.isWithoutMemory) {
        throw std::bad_alloc();
    }
    FailDamaged(reader.error);
}

// The form in which libjpeg is asked for the pixels.
J_COLOR_SPACE OutputSpace(J_COLOR_SPACE stored) {
    switch (stored) {
        case JCS_GRAYSCALE:
        case JCS_YCbCr:
            return JCS_GRAYSCALE;
        case JCS_RGB:
            return JCS_RGB;
        case JCS_CMYK:
        case JCS_YCCK:
            return JCS_CMYK;
        default:
            return JCS_UNKNOWN;
    }
}

bool ReadHeader(JpegReader& reader, Bytes file) {
    if (setjmp(reader.onError) != 0) {
        return false;
    }
    jpeg_create_decompress(&reader.info);
    jpeg_mem_src(&reader.info, file.data(), file.size());
    jpeg_save_markers(&reader.info, kExifMarker, kMostMarkerBytes);
    jpeg_read_header(&reader.info, TRUE);
    return true;
}

int Orientation(const jpeg_decompress_struct& info) {
    static constexpr uint8_t kExif[] = {'E', 'x', 'i', 'f', 0, 0};
    for (const jpeg_marker_struct* marker = info.marker_list; marker != nullptr;
         marker = marker->next) {
        const Bytes data(marker->data, marker->data_length);
        if (marker->marker == kExifMarker && data.size() > sizeof kExif &&
            std::equal(std::begin(kExif), std::end(kExif), data.begin())) {
            return ExifOrientation(data.subspan(sizeof kExif));
        }
    }
    return kUpright;
}

// Programs that leave the Adobe mark store ink inverted, 255 for none; others store it plainly.
uint8_t InkToLuma(const uint8_t* ink, bool isInverted) {
    uint32_t light[4];
    for (int i = 0; i < 4; ++i) {
        light[i] = isInverted ? ink[i] : 255u - ink[i];
    }
    const auto over = [&](uint32_t colour) { return orvo_grey::OverBlack(colour, light[3]); };
    return orvo_grey::Luma(over(light[0]), over(light[1]), over(light[2]));
}

void RowToLuma(const jpeg_decompress_struct& info, const uint8_t* row, uint8_t* luma) {
    for (uint32_t x = 0; x < info.output_width; ++x, row += info.output_components) {
        if (info.out_color_space == JCS_GRAYSCALE) {
            luma[x] = row[0];
        } else if (info.out_color_space == JCS_RGB) {
            luma[x] = orvo_grey::Luma(row[0], row[1], row[2]);
        } else {
            luma[x] = InkToLuma(row, info.saw_Adobe_marker != FALSE);
        }
    }
}

// A progressive picture is sent in ever finer rounds. It can be used once the last one has begun: then
// only the lowest bits of some values are missing.
bool LacksLowestBitsOnly(const jpeg_decompress_struct& info) {
    if (info.coef_bits == nullptr) {
        return false;
    }
    const int components = info.out_color_space == JCS_GRAYSCALE ? 1 : info.num_components;
    for (int component = 0; component < components; ++component) {
        const int* const bits = info.coef_bits[component];
        if (std::any_of(bits, bits + DCTSIZE2, [](int bit) { return bit != 0; })) {
            return false;
        }
    }
    return true;
}

bool ReadRows(JpegReader& reader, uint8_t* row, GreyPicture& picture) {
    if (setjmp(reader.onError) != 0) {
        return false;
    }
    jpeg_start_decompress(&reader.info);
    reader.isFine = LacksLowestBitsOnly(reader.info);
    while (reader.info.output_scanline < reader.info.output_height) {
        uint8_t* luma = picture.pixels.data() + size_t{reader.info.output_scanline} * picture.width;
        jpeg_read_scanlines(&reader.info, &row, 1);
        RowToLuma(reader.info, row, luma);
    }
    jpeg_finish_decompress(&reader.info);
    return true;
}

// Of a picture whose end is missing nearly everything must be there: an eighth may be made up.
constexpr uint32_t kMostLost = 8;

// What is to be said of a file that ended early; a Failure where too much is missing.
std::string WordsForCut(uint32_t goodRows, uint32_t height, bool isProgressive, bool isFine) {
    constexpr const char* kCut = "the JPEG lacks its last bytes";
    if (isProgressive && !isFine) {
        FailDamaged("the file ends too early");
    }
    if (isProgressive || goodRows >= height) {
        return std::string(kCut) + "; it is used as it is";
    }
    if ((height - goodRows) * kMostLost > height) {
        FailDamaged("the file ends too early");
    }
    return std::string(kCut) + ": the lowest " + std::to_string(height - goodRows) + " of " +
           std::to_string(height) + " rows are made up";
}

} // namespace

bool IsJpeg(Bytes file) {
    return file.size() >= 3 && file[0] == 0xFF && file[1] == 0xD8 && file[2] == 0xFF;
}

GreyPicture DecodeJpeg(Bytes file) {
    JpegReader reader;
    if (!ReadHeader(reader, file)) {
        Fail(reader);
    }
    GreyPicture picture;
    picture.width = reader.info.image_width;
    picture.height = reader.info.image_height;
    CheckPictureSize(picture.width, picture.height);
    reader.info.out_color_space = OutputSpace(reader.info.jpeg_color_space);
    if (reader.info.out_color_space == JCS_UNKNOWN) {
        throw Failure("the JPEG has an unusual colour space; save it as grey or RGB");
    }
    picture.pixels.resize(size_t{picture.width} * picture.height);
    std::vector<uint8_t> row(size_t{picture.width} * 4);
    // The markers are gone when the last row has been read.
    const int orientation = Orientation(reader.info);
    const bool inRounds = jpeg_has_multiple_scans(&reader.info) != FALSE;
    if (!ReadRows(reader, row.data(), picture)) {
        Fail(reader);
    }
    if (reader.isCut) {
        picture.warning = WordsForCut(reader.goodRows, picture.height, inRounds, reader.isFine);
    }
    MakeUpright(orientation, picture);
    return picture;
}

} // namespace kova_cli
