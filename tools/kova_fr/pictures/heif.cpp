// SPDX-License-Identifier: MIT
//
// HEIC and AVIF by libheif, which brings video codecs of some 30 MB along. So it is loaded when the
// first such picture comes: nobody else pays for it, and a package need not demand it.
#include <dlfcn.h>
#include <libheif/heif.h>

#include <memory>
#include <new>

#include "files/failure.h"
#include "grey/luma.h"
#include "pictures/kinds.h"

namespace kova_cli {
namespace {

struct Library {
    void* handle = dlopen("libheif.so.1", RTLD_NOW | RTLD_LOCAL);

#define ORVO_HEIF(name)           \
    decltype(&heif_##name) name = \
        handle == nullptr         \
            ? nullptr             \
            : reinterpret_cast<decltype(&heif_##name)>(dlsym(handle, "heif_" #name));
    ORVO_HEIF(context_alloc)
    ORVO_HEIF(context_free)
    ORVO_HEIF(context_read_from_memory_without_copy)
    ORVO_HEIF(context_get_primary_image_handle)
    ORVO_HEIF(image_handle_release)
    ORVO_HEIF(image_handle_get_width)
    ORVO_HEIF(image_handle_get_height)
    ORVO_HEIF(image_handle_has_alpha_channel)
    ORVO_HEIF(image_handle_is_premultiplied_alpha)
    ORVO_HEIF(decode_image)
    ORVO_HEIF(image_get_width)
    ORVO_HEIF(image_get_height)
    ORVO_HEIF(image_get_plane_readonly)
    ORVO_HEIF(image_release)
#undef ORVO_HEIF

    bool IsWhole() const {
        return context_alloc != nullptr && context_free != nullptr &&
               context_read_from_memory_without_copy != nullptr &&
               context_get_primary_image_handle != nullptr && image_handle_release != nullptr &&
               image_handle_get_width != nullptr && image_handle_get_height != nullptr &&
               image_handle_has_alpha_channel != nullptr &&
               image_handle_is_premultiplied_alpha != nullptr && decode_image != nullptr &&
               image_get_width != nullptr && image_get_height != nullptr &&
               image_get_plane_readonly != nullptr && image_release != nullptr;
    }
};

const Library& Heif() {
    static const Library library;
    return library;
}

struct Closer {
    void operator()(heif_context* context) const { Heif().context_free(context); }
    void operator()(heif_image_handle* handle) const { Heif().image_handle_release(handle); }
    void operator()(heif_image* image) const { Heif().image_release(image); }
};

void Check(const heif_error& error) {
    if (error.code == heif_error_Unsupported_filetype ||
        error.code == heif_error_Unsupported_feature) {
        throw Failure(std::string("cannot be read by libheif as it is installed here (") +
                      error.message + "); save it as PNG or JPEG");
    }
    if (error.code == heif_error_Memory_allocation_error &&
        error.subcode != heif_suberror_Security_limit_exceeded) {
        throw std::bad_alloc();
    }
    if (error.code != heif_error_Ok) {
        FailDamaged(error.message);
    }
}

uint64_t Positive(int length) { return length > 0 ? static_cast<uint64_t>(length) : 0; }

std::unique_ptr<heif_image, Closer> Decoded(const heif_image_handle* handle, bool hasAlpha) {
    // It is turned and cut as the file says; EXIF, which may say the same once more, does not count.
    heif_image* image = nullptr;
    Check(Heif().decode_image(handle, &image, heif_colorspace_RGB,
                              hasAlpha ? heif_chroma_interleaved_RGBA : heif_chroma_interleaved_RGB,
                              nullptr));
    return std::unique_ptr<heif_image, Closer>(image);
}

} // namespace

bool CanDecodeHeif() { return Heif().IsWhole(); }

GreyPicture DecodeHeif(Bytes file) {
    if (!CanDecodeHeif()) {
        throw Failure(
            "is a HEIC or AVIF picture, and libheif, which reads them, is not installed; install "
            "libheif1, or save the picture as PNG or JPEG");
    }
    const Library& heif = Heif();
    const std::unique_ptr<heif_context, Closer> context(heif.context_alloc());
    Check(heif.context_read_from_memory_without_copy(context.get(), file.data(), file.size(),
                                                     nullptr));
    heif_image_handle* main = nullptr;
    Check(heif.context_get_primary_image_handle(context.get(), &main));
    const std::unique_ptr<heif_image_handle, Closer> handle(main);
    CheckPictureSize(Positive(heif.image_handle_get_width(main)),
                     Positive(heif.image_handle_get_height(main)));
    const bool hasAlpha = heif.image_handle_has_alpha_channel(main) != 0;
    const bool isOverBlack = heif.image_handle_is_premultiplied_alpha(main) != 0;
    const std::unique_ptr<heif_image, Closer> image = Decoded(main, hasAlpha);
    int stride = 0;
    const uint8_t* const rows =
        heif.image_get_plane_readonly(image.get(), heif_channel_interleaved, &stride);
    GreyPicture picture =
        EmptyPicture(Positive(heif.image_get_width(image.get(), heif_channel_interleaved)),
                     Positive(heif.image_get_height(image.get(), heif_channel_interleaved)));
    const size_t channels = hasAlpha ? 4 : 3;
    if (rows == nullptr || Positive(stride) < picture.width * channels) {
        FailDamaged("it has no pixels");
    }
    for (size_t y = 0; y < picture.height; ++y) {
        const uint8_t* from = rows + y * Positive(stride);
        for (size_t x = 0; x < picture.width; ++x, from += channels) {
            const uint8_t level = orvo_grey::Luma(from[0], from[1], from[2]);
            picture.pixels[y * picture.width + x] =
                hasAlpha && !isOverBlack ? orvo_grey::OverBlack(level, from[3]) : level;
        }
    }
    return picture;
}

} // namespace kova_cli
