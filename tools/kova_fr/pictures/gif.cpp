// SPDX-License-Identifier: MIT
#include <gif_lib.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>

#include "files/failure.h"
#include "grey/luma.h"
#include "pictures/kinds.h"

namespace kova_cli {
namespace {

struct Closer {
    void operator()(GifFileType* file) const { DGifCloseFile(file, nullptr); }
};

using File = std::unique_ptr<GifFileType, Closer>;

int ReadBytes(GifFileType* file, GifByteType* to, int count) {
    auto* rest = static_cast<Bytes*>(file->UserData);
    const size_t got = std::min(rest->size(), static_cast<size_t>(count));
    std::memcpy(to, rest->data(), got);
    *rest = rest->subspan(got);
    return static_cast<int>(got);
}

[[noreturn]] void FailGif(int error) {
    if (error == D_GIF_ERR_NOT_ENOUGH_MEM) {
        throw std::bad_alloc();
    }
    const char* const text = GifErrorString(error);
    FailDamaged(text != nullptr ? text : "of an unknown kind");
}

void Check(const File& file, int result) {
    if (result == GIF_ERROR) {
        FailGif(file->Error);
    }
}

// Goes to the first frame and returns its transparent colour, or NO_TRANSPARENT_COLOR.
int FindFrame(const File& file) {
    int transparent = NO_TRANSPARENT_COLOR;
    while (true) {
        GifRecordType kind = UNDEFINED_RECORD_TYPE;
        Check(file, DGifGetRecordType(file.get(), &kind));
        if (kind == IMAGE_DESC_RECORD_TYPE) {
            Check(file, DGifGetImageDesc(file.get()));
            return transparent;
        }
        if (kind == TERMINATE_RECORD_TYPE) {
            FailDamaged("it has no picture");
        }
        int code = 0;
        GifByteType* block = nullptr;
        Check(file, DGifGetExtension(file.get(), &code, &block));
        while (block != nullptr) {
            GraphicsControlBlock control;
            if (code == GRAPHICS_EXT_FUNC_CODE &&
                DGifExtensionToGCB(block[0], block + 1, &control) == GIF_OK) {
                transparent = control.TransparentColor;
            }
            Check(file, DGifGetExtensionNext(file.get(), &block));
        }
    }
}

// Rows come in four rounds: every eighth, those between, and so on.
uint32_t InterlacedRow(uint32_t rank, uint32_t height) {
    constexpr uint32_t kFirst[] = {0, 4, 2, 1};
    constexpr uint32_t kStep[] = {8, 8, 4, 2};
    for (int round = 0; round < 4; ++round) {
        const uint32_t rows =
            height > kFirst[round] ? (height - kFirst[round] + kStep[round] - 1) / kStep[round] : 0;
        if (rank < rows) {
            return kFirst[round] + rank * kStep[round];
        }
        rank -= rows;
    }
    return 0;
}

// The level of each colour; black of those that the palette does not have.
std::vector<uint8_t> Levels(const ColorMapObject* colours, int transparent) {
    std::vector<uint8_t> levels(256);
    for (int i = 0; colours != nullptr && i < std::min(colours->ColorCount, 256); ++i) {
        const GifColorType& colour = colours->Colors[i];
        levels[static_cast<size_t>(i)] =
            i == transparent ? 0 : orvo_grey::Luma(colour.Red, colour.Green, colour.Blue);
    }
    return levels;
}

} // namespace

GreyPicture DecodeGif(Bytes bytes) {
    int error = 0;
    const File file(DGifOpen(&bytes, ReadBytes, &error));
    if (file == nullptr) {
        FailGif(error);
    }
    const int transparent = FindFrame(file);
    const GifImageDesc& frame = file->Image;
    const auto left = static_cast<uint32_t>(frame.Left), top = static_cast<uint32_t>(frame.Top);
    const auto width = static_cast<uint32_t>(frame.Width);
    const auto height = static_cast<uint32_t>(frame.Height);
    CheckPictureSize(width, height);
    // Some programs write a screen that is smaller than what they show.
    GreyPicture picture =
        EmptyPicture(std::max(static_cast<uint32_t>(file->SWidth), left + width),
                     std::max(static_cast<uint32_t>(file->SHeight), top + height));
    const std::vector<uint8_t> levels =
        Levels(frame.ColorMap != nullptr ? frame.ColorMap : file->SColorMap, transparent);
    std::vector<GifPixelType> row(width);
    for (uint32_t rank = 0; rank < height; ++rank) {
        Check(file, DGifGetLine(file.get(), row.data(), static_cast<int>(width)));
        const uint32_t y = top + (frame.Interlace ? InterlacedRow(rank, height) : rank);
        std::ranges::transform(row, picture.pixels.begin() + ptrdiff_t{y} * picture.width + left,
                               [&levels](GifPixelType colour) { return levels[colour]; });
    }
    return picture;
}

} // namespace kova_cli
