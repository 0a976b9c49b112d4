// SPDX-License-Identifier: MIT
#include "pictures/kinds.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "files/failure.h"

namespace kova_cli {
namespace {

bool BeginsWith(Bytes file, std::string_view bytes, size_t at = 0) {
    return file.size() >= at + bytes.size() &&
           std::equal(bytes.begin(), bytes.end(), file.begin() + static_cast<ptrdiff_t>(at),
                      [](char a, uint8_t b) { return static_cast<uint8_t>(a) == b; });
}

// Two letters alone would claim many a text.
bool IsBmp(Bytes file) { return BeginsWith(file, "BM") && BeginsWith(file, {"\0\0\0\0", 4}, 6); }

bool IsWebp(Bytes file) { return BeginsWith(file, "RIFF") && BeginsWith(file, "WEBP", 8); }

bool IsGif(Bytes file) { return BeginsWith(file, "GIF87a") || BeginsWith(file, "GIF89a"); }

// With places of 4 bytes or of 8 (BigTIFF), either end first.
bool IsTiff(Bytes file) {
    return BeginsWith(file, {"II*\0", 4}) || BeginsWith(file, {"MM\0*", 4}) ||
           BeginsWith(file, {"II+\0", 4}) || BeginsWith(file, {"MM\0+", 4});
}

// The brands of the first box, each of 4 letters: the main one, a number, and more.
bool HasBrand(Bytes file, std::string_view brand) {
    const size_t end = std::min<size_t>(file.size(), 128);
    for (size_t at = 8; at + 4 <= end; at += 4) {
        if (at != 12 && BeginsWith(file, brand, at)) {
            return true;
        }
    }
    return false;
}

bool IsAvif(Bytes file) {
    return BeginsWith(file, "ftyp", 4) && (HasBrand(file, "avif") || HasBrand(file, "avis"));
}

bool IsHeic(Bytes file) {
    return BeginsWith(file, "ftyp", 4) &&
           (HasBrand(file, "heic") || HasBrand(file, "heix") || HasBrand(file, "mif1"));
}

#ifdef ORVO_HAVE_WEBP
constexpr auto kDecodeWebp = DecodeWebp;
#else
constexpr GreyPicture (*kDecodeWebp)(Bytes) = nullptr;
#endif
#ifdef ORVO_HAVE_GIF
constexpr auto kDecodeGif = DecodeGif;
#else
constexpr GreyPicture (*kDecodeGif)(Bytes) = nullptr;
#endif
#ifdef ORVO_HAVE_TIFF
constexpr auto kDecodeTiff = DecodeTiff;
#else
constexpr GreyPicture (*kDecodeTiff)(Bytes) = nullptr;
#endif
#ifdef ORVO_HAVE_HEIF
constexpr auto kDecodeHeif = DecodeHeif;
constexpr auto kCanDecodeHeif = CanDecodeHeif;
#else
constexpr GreyPicture (*kDecodeHeif)(Bytes) = nullptr;
constexpr auto kCanDecodeHeif = [] { return false; };
#endif

constexpr PictureKind kKinds[] = {
    {"PNG", IsPng, DecodePng, ""},
    {"JPEG", IsJpeg, DecodeJpeg, ""},
    {"PGM/PPM", IsPnm, DecodePnm, ""},
    {"BMP", IsBmp, DecodeBmp, ""},
    {"WebP", IsWebp, kDecodeWebp, "libwebp-dev"},
    {"GIF", IsGif, kDecodeGif, "libgif-dev"},
    {"TIFF", IsTiff, kDecodeTiff, "libtiff-dev"},
    {"AVIF", IsAvif, kDecodeHeif, "libheif-dev"},
    {"HEIC", IsHeic, kDecodeHeif, "libheif-dev"},
};

std::string KindsThat(bool (*isWanted)(const PictureKind&)) {
    std::string names;
    for (const PictureKind& kind : kKinds) {
        if (isWanted(kind)) {
            names += (names.empty() ? "" : ", ") + std::string(kind.name);
        }
    }
    return names;
}

bool IsThere(const PictureKind& kind) {
    return kind.decode != nullptr && (kind.decode != kDecodeHeif || kCanDecodeHeif());
}

} // namespace

GreyPicture DecodePicture(Bytes file) {
    if (file.empty()) {
        throw Failure("the file is empty; name a picture file");
    }
    for (const PictureKind& kind : kKinds) {
        if (!kind.is(file)) {
            continue;
        }
        if (kind.decode == nullptr) {
            throw UnknownPicture("is a picture of the kind " + std::string(kind.name) +
                                 ", which this kova-fr was built without; build it with " +
                                 kind.package + ", or save the picture as PNG or JPEG");
        }
        return kind.decode(file);
    }
    throw UnknownPicture("is not a picture of a known kind; save it as PNG, JPEG or PGM");
}

std::string KnownPictureKinds() { return KindsThat(IsThere); }

std::string MissingPictureKinds() {
    return KindsThat([](const PictureKind& kind) { return !IsThere(kind); });
}

} // namespace kova_cli
