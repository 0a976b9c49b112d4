// SPDX-License-Identifier: MIT
// The kinds of pictures that a build may go without, and BMP: what other programs' libraries write
// is read with the pixels that it holds, and files that are cut or hold anything are refused in one
// line or read, whatever they are.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <functional>

#include "files/failure.h"
#include "picture_files.h"
#include "pictures/picture_io.h"
#include "program.h"
#include "support/random.h"

#ifdef ORVO_HAVE_WEBP
#include <webp/encode.h>
#include <webp/mux.h>
#endif
#ifdef ORVO_HAVE_GIF
#include <gif_lib.h>
#endif
#ifdef ORVO_HAVE_TIFF
#include <tiffio.h>
#endif
#ifdef ORVO_HAVE_HEIF
#include <libheif/heif.h>
#endif

// What the codecs behind libheif keep until the end.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions() {
    return "leak:libx265\nleak:libdav1d\nleak:libaom\nleak:libde265\n";
}

namespace kova_fr_test {
namespace {

using kova_cli::GreyPicture;

constexpr uint32_t kWidth = 44;
constexpr uint32_t kHeight = 30;

Grey Scene() { return Pattern(kWidth, kHeight, 5); }

GreyPicture Read(const std::string& file) {
    return kova_cli::DecodePicture({reinterpret_cast<const uint8_t*>(file.data()), file.size()});
}

std::string WhyRefused(const std::string& file) {
    try {
        Read(file);
        return "";
    } catch (const kova_cli::Failure& failure) {
        return failure.what();
    }
}

void ExpectPicture(const std::string& file, const Grey& expected, int tolerance = 0) {
    const GreyPicture picture = Read(file);
    ASSERT_EQ(picture.width, expected.width);
    ASSERT_EQ(picture.height, expected.height);
    int worst = 0;
    for (size_t i = 0; i < picture.pixels.size(); ++i) {
        worst = std::max(worst, std::abs(picture.pixels[i] - expected.pixels[i]));
    }
    EXPECT_LE(worst, tolerance);
}

// As EXIF counts: 6 is a quarter turn to the right.
Grey QuarterTurned(const Grey& picture) {
    Grey turned{picture.height, picture.width, std::vector<uint8_t>(picture.pixels.size())};
    for (uint32_t y = 0; y < picture.height; ++y) {
        for (uint32_t x = 0; x < picture.width; ++x) {
            turned.pixels[size_t{x} * turned.width + (turned.width - 1 - y)] =
                picture.pixels[size_t{y} * picture.width + x];
        }
    }
    return turned;
}

// Every pixel as these channels of it.
std::vector<uint8_t> Channels(const Grey& picture,
                              const std::function<std::vector<uint8_t>(uint8_t)>& pixel) {
    std::vector<uint8_t> bytes;
    for (const uint8_t level : picture.pixels) {
        const std::vector<uint8_t> channels = pixel(level);
        bytes.insert(bytes.end(), channels.begin(), channels.end());
    }
    return bytes;
}

std::vector<uint8_t> Rgba(const Grey& picture, uint8_t alpha = 255) {
    return Channels(picture, [alpha](uint8_t level) {
        return std::vector<uint8_t>{level, level, level, alpha};
    });
}

Grey OverBlack(Grey picture, uint32_t alpha) {
    for (uint8_t& level : picture.pixels) {
        level = static_cast<uint8_t>((level * alpha + 127) / 255);
    }
    return picture;
}

// ---- Files that are not whole

// None crashes, none hangs; `isNeeded` is how much of it there must be to read it.
void ExpectBadFilesAreRefused(const std::string& whole, double isNeeded = 0.9) {
    ASSERT_EQ(WhyRefused(whole), "");
    const size_t step = std::max<size_t>(1, whole.size() / 120);
    for (size_t length = 0; length < whole.size(); length += step) {
        const std::string why = WhyRefused(whole.substr(0, length));
        if (static_cast<double>(length) < isNeeded * static_cast<double>(whole.size())) {
            EXPECT_NE(why, "") << length << " of " << whole.size();
        }
        EXPECT_EQ(why.find('\n'), std::string::npos) << why;
    }
    orvo_test::Random random(9);
    const auto last = static_cast<int>(whole.size()) - 1;
    size_t refused = 0;
    for (int round = 0; round < 300; ++round) {
        std::string changed = whole;
        for (int i = random.Between(1, 8); i > 0; --i) {
            // The first bytes say more than those in the middle.
            const int most = round % 2 == 0 ? last : std::min(last, 100);
            changed[static_cast<size_t>(random.Between(0, most))] =
                static_cast<char>(random.Between(0, 255));
        }
        refused += WhyRefused(changed).empty() ? 0 : 1;
    }
    EXPECT_GT(refused, 0u);
}

// The program says one line, whatever the libraries would like to print.
void ExpectOneLine(const std::string& file) {
    const TempFolder folder;
    WriteFile(folder / "cut", file);
    ExpectRefusal(KovaFrOnCrops({"extract", folder / "cut"}), 1, "cut: ");
}

void ExpectOneLineOfCut(const std::string& whole) {
    ExpectOneLine(whole.substr(0, whole.size() / 2));
    ExpectOneLine(whole.substr(0, 40));
}

// ---- BMP

std::string Little(uint32_t value, size_t bytes) {
    std::string text;
    for (size_t i = 0; i < bytes; ++i) {
        text += static_cast<char>(value >> (8 * i));
    }
    return text;
}

struct BmpContent {
    uint32_t bits;
    std::string rows; // from the bottom, or from the top where isFromTop
    uint32_t compression = 0;
    std::string behindHeader = {}; // palette or masks
    bool isFromTop = false;
    uint32_t width = kWidth;
    uint32_t height = kHeight;
};

std::string Bmp(const BmpContent& content) {
    const auto height = static_cast<int32_t>(content.height);
    const std::string header =
        Little(40, 4) + Little(content.width, 4) +
        Little(static_cast<uint32_t>(content.isFromTop ? -height : height), 4) + Little(1, 2) +
        Little(content.bits, 2) + Little(content.compression, 4) + std::string(20, '\0') +
        content.behindHeader;
    const auto at = static_cast<uint32_t>(14 + header.size());
    return "BM" + Little(at + static_cast<uint32_t>(content.rows.size()), 4) + Little(0, 4) +
           Little(at, 4) + header + content.rows;
}

// Rows of a picture as BMP has them, each filled up to a multiple of 4 bytes.
std::string BmpRows(const Grey& picture, bool isFromTop,
                    const std::function<std::string(uint8_t)>& pixel) {
    std::string rows;
    for (uint32_t i = 0; i < picture.height; ++i) {
        const uint32_t y = isFromTop ? i : picture.height - 1 - i;
        for (uint32_t x = 0; x < picture.width; ++x) {
            rows += pixel(picture.pixels[size_t{y} * picture.width + x]);
        }
        rows.resize((rows.size() + 3) / 4 * 4);
    }
    return rows;
}

std::string GreyPalette(uint32_t count) {
    std::string palette;
    for (uint32_t i = 0; i < count; ++i) {
        palette += std::string(3, static_cast<char>(i * 255 / (count - 1))) + '\0';
    }
    return palette;
}

std::string Byte(uint8_t level) { return std::string(1, static_cast<char>(level)); }
std::string ThreeBytes(uint8_t level) { return std::string(3, static_cast<char>(level)); }

std::string PlainBmp() { return Bmp({24, BmpRows(Scene(), false, ThreeBytes)}); }

TEST(PictureKinds, BmpOfColoursAndPalettesIsRead) {
    ExpectPicture(PlainBmp(), Scene());
    ExpectPicture(Bmp({24, BmpRows(Scene(), true, ThreeBytes), 0, "", true}), Scene());
    ExpectPicture(Bmp({8, BmpRows(Scene(), false, Byte), 0, GreyPalette(256)}), Scene());
    const Grey odd = Pattern(37, 11, 3);
    BmpContent narrow{24, BmpRows(odd, false, ThreeBytes)};
    narrow.width = 37;
    narrow.height = 11;
    ExpectPicture(Bmp(narrow), odd);
}

TEST(PictureKinds, BmpOfColoursIsWeighed) {
    const auto level = [](const std::string& pixel) {
        std::string rows;
        for (int i = 0; i < 16; ++i) {
            rows += pixel;
        }
        BmpContent content{static_cast<uint32_t>(8 * pixel.size()), rows};
        content.width = content.height = 4;
        return Read(Bmp(content)).pixels[0];
    };
    EXPECT_EQ(level(std::string("\xff\x00\x00\x00", 4)), 29); // blue comes first
    EXPECT_EQ(level(std::string("\x00\x00\xff\x00", 4)), 77); // red
    EXPECT_EQ(level(std::string("\x00\x7c", 2)), 77);         // 5 bits of red
    EXPECT_EQ(level(std::string("\xe0\x03", 2)), 149);        // of green
}

TEST(PictureKinds, BmpWithMasksAndAlphaIsRead) {
    const Grey scene = Scene();
    // alpha, red, green, blue from the lowest byte, half transparent
    const auto pixel = [](uint8_t level) {
        return std::string("\x80", 1) + std::string(3, static_cast<char>(level));
    };
    const std::string masks =
        Little(0xFF00, 4) + Little(0xFF0000, 4) + Little(0xFF000000, 4) + Little(0xFF, 4);
    ExpectPicture(Bmp({32, BmpRows(scene, false, pixel), 6, masks}), OverBlack(scene, 128));
    const auto sixteen = [](uint8_t level) {
        const uint32_t five = level >> 3;
        return Little(five << 11 | uint32_t{level} >> 2 << 5 | five, 2);
    };
    const std::string fiveSixFive = Little(0xF800, 4) + Little(0x07E0, 4) + Little(0x001F, 4);
    ExpectPicture(Bmp({16, BmpRows(scene, false, sixteen), 3, fiveSixFive}), scene, 7);
}

TEST(PictureKinds, BmpOfFewBitsIsRead) {
    Grey scene = Scene();
    for (uint8_t& level : scene.pixels) {
        level = static_cast<uint8_t>(level / 16 * 17);
    }
    std::string rows;
    for (uint32_t y = kHeight; y-- > 0;) {
        for (uint32_t x = 0; x < kWidth; x += 2) {
            const uint8_t* pair = &scene.pixels[size_t{y} * kWidth + x];
            rows += static_cast<char>(pair[0] / 17 << 4 | pair[1] / 17);
        }
        rows.resize((rows.size() + 3) / 4 * 4);
    }
    ExpectPicture(Bmp({4, rows, 0, GreyPalette(16)}), scene);
    BmpContent line{1, std::string("\xa0\0\0\0", 4), 0, GreyPalette(2)};
    line.width = 4;
    line.height = 1;
    ExpectPicture(Bmp(line), {4, 1, {255, 0, 255, 0}});
}

TEST(PictureKinds, BmpOfRunsIsRead) {
    // A run, plain pixels with one to fill up, the end of the row; a jump, the end of the picture.
    const std::string runs(
        "\x03\x09"
        "\x00\x03\x05\x06\x07\x00"
        "\x00\x00"
        "\x00\x02\x04\x00"
        "\x02\x08"
        "\x00\x01",
        18);
    BmpContent content{8, runs, 1, GreyPalette(256)};
    content.width = 6;
    content.height = 2;
    ExpectPicture(Bmp(content), {6, 2, {0, 0, 0, 0, 8, 8, 9, 9, 9, 5, 6, 7}});
    const std::string fours(
        "\x05\x3a"
        "\x00\x00"
        "\x00\x04\x12\x34"
        "\x00\x01",
        10);
    content = {4, fours, 2, GreyPalette(16)};
    content.width = 6;
    content.height = 2;
    ExpectPicture(Bmp(content), {6, 2, {17, 34, 51, 68, 0, 0, 51, 170, 51, 170, 51, 0}});
}

TEST(PictureKinds, BmpThatDoesNotFitTogetherIsRefused) {
    ExpectBadFilesAreRefused(PlainBmp());
    ExpectBadFilesAreRefused(Bmp({8, BmpRows(Scene(), false, Byte), 0, GreyPalette(256)}));
    ExpectOneLineOfCut(PlainBmp());
    BmpContent content{8, std::string("\xff\x01\x00\x01", 4), 1, GreyPalette(256)};
    content.width = 6;
    content.height = 2;
    EXPECT_NE(WhyRefused(Bmp(content)).find("a run leaves the picture"), std::string::npos);
    content.compression = 4; // a JPEG inside
    EXPECT_NE(WhyRefused(Bmp(content)).find("unusual kind"), std::string::npos);
    BmpContent large{24, ""};
    large.width = 20000;
    large.height = 20000;
    EXPECT_NE(WhyRefused(Bmp(large)).find("too large (20000 x 20000)"), std::string::npos);
}

// ---- WebP

#ifdef ORVO_HAVE_WEBP

std::string Taken(uint8_t* bytes, size_t size) {
    std::string file(reinterpret_cast<const char*>(bytes), size);
    WebPFree(bytes);
    return file;
}

std::string Webp(const Grey& picture, uint8_t alpha = 255) {
    const std::vector<uint8_t> rgba = Rgba(picture, alpha);
    uint8_t* bytes = nullptr;
    const size_t size = WebPEncodeLosslessRGBA(rgba.data(), static_cast<int>(picture.width),
                                               static_cast<int>(picture.height),
                                               static_cast<int>(4 * picture.width), &bytes);
    return Taken(bytes, size);
}

std::string LossyWebp(const Grey& picture) {
    const std::vector<uint8_t> rgba = Rgba(picture);
    uint8_t* bytes = nullptr;
    const size_t size = WebPEncodeRGBA(rgba.data(), static_cast<int>(picture.width),
                                       static_cast<int>(picture.height),
                                       static_cast<int>(4 * picture.width), 95, &bytes);
    return Taken(bytes, size);
}

WebPData DataOf(const std::string& bytes) {
    return {reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()};
}

std::string Assembled(WebPMux* mux) {
    WebPData whole = {};
    EXPECT_EQ(WebPMuxAssemble(mux, &whole), WEBP_MUX_OK);
    std::string file(reinterpret_cast<const char*>(whole.bytes), whole.size);
    WebPDataClear(&whole);
    WebPMuxDelete(mux);
    return file;
}

std::string WebpWithExif(const std::string& webp, const std::string& exif) {
    const WebPData image = DataOf(webp);
    const WebPData chunk = DataOf(exif);
    WebPMux* const mux = WebPMuxCreate(&image, 1);
    EXPECT_EQ(WebPMuxSetChunk(mux, "EXIF", &chunk, 1), WEBP_MUX_OK);
    return Assembled(mux);
}

// A TIFF structure with the orientation 6 alone.
const std::string kTurnedExif("II*\0\x08\0\0\0\x01\0\x12\x01\x03\0\x01\0\0\0\x06\0\0\0\0\0\0\0",
                              26);

TEST(PictureKinds, WebpIsRead) {
    ExpectPicture(Webp(Scene()), Scene());
    ExpectPicture(Webp(Scene(), 100), OverBlack(Scene(), 100));
    ExpectPicture(LossyWebp(Scene()), Scene(), 12);
    ExpectPicture(WebpWithExif(Webp(Scene()), kTurnedExif), QuarterTurned(Scene()));
    ExpectPicture(WebpWithExif(Webp(Scene()), std::string("Exif\0\0", 6) + kTurnedExif),
                  QuarterTurned(Scene()));
}

TEST(PictureKinds, OfAnimatedWebpTheFirstFrameIsRead) {
    WebPMux* const mux = WebPMuxNew();
    WebPMuxAnimParams parameters = {};
    EXPECT_EQ(WebPMuxSetAnimationParams(mux, &parameters), WEBP_MUX_OK);
    EXPECT_EQ(WebPMuxSetCanvasSize(mux, 60, 50), WEBP_MUX_OK);
    for (uint32_t i = 0; i < 2; ++i) {
        const std::string picture = Webp(i == 0 ? Scene() : Pattern(20, 20, 8));
        WebPMuxFrameInfo frame = {};
        frame.bitstream = DataOf(picture);
        frame.x_offset = 10;
        frame.y_offset = 4;
        frame.duration = 100;
        frame.id = WEBP_CHUNK_ANMF;
        EXPECT_EQ(WebPMuxPushFrame(mux, &frame, 1), WEBP_MUX_OK);
    }
    Grey expected = Flat(60, 50, 0);
    for (uint32_t y = 0; y < kHeight; ++y) {
        std::copy_n(&Scene().pixels[size_t{y} * kWidth], kWidth,
                    &expected.pixels[size_t{y + 4} * 60 + 10]);
    }
    ExpectPicture(Assembled(mux), expected);
}

TEST(PictureKinds, WebpThatIsNotWholeIsRefused) {
    ExpectBadFilesAreRefused(Webp(Scene()));
    ExpectBadFilesAreRefused(LossyWebp(Scene()));
    ExpectOneLineOfCut(LossyWebp(Scene()));
}

#endif

// ---- GIF

#ifdef ORVO_HAVE_GIF

struct GifFrame {
    Grey picture;
    int left = 0;
    int top = 0;
    bool isInterlaced = false;
    int transparent = NO_TRANSPARENT_COLOR;
};

int AppendBytes(GifFileType* file, const GifByteType* bytes, int count) {
    static_cast<std::string*>(file->UserData)
        ->append(reinterpret_cast<const char*>(bytes), static_cast<size_t>(count));
    return count;
}

std::string Gif(const std::vector<GifFrame>& frames, int width, int height) {
    std::string bytes;
    int error = 0;
    GifFileType* const file = EGifOpen(&bytes, AppendBytes, &error);
    ColorMapObject* const greys = GifMakeMapObject(256, nullptr);
    for (int i = 0; i < 256; ++i) {
        const auto level = static_cast<GifByteType>(i);
        greys->Colors[i] = {level, level, level};
    }
    EGifSetGifVersion(file, true);
    EXPECT_EQ(EGifPutScreenDesc(file, width, height, 256, 0, greys), GIF_OK);
    for (const GifFrame& frame : frames) {
        GraphicsControlBlock control = {0, false, 10, frame.transparent};
        GifByteType extension[4];
        const size_t length = EGifGCBToExtension(&control, extension);
        EXPECT_EQ(
            EGifPutExtension(file, GRAPHICS_EXT_FUNC_CODE, static_cast<int>(length), extension),
            GIF_OK);
        const auto w = static_cast<int>(frame.picture.width);
        const auto h = static_cast<int>(frame.picture.height);
        EXPECT_EQ(EGifPutImageDesc(file, frame.left, frame.top, w, h, frame.isInterlaced, nullptr),
                  GIF_OK);
        std::vector<uint8_t> pixels = frame.picture.pixels;
        const std::vector<std::pair<int, int>> rounds =
            frame.isInterlaced ? std::vector<std::pair<int, int>>{{0, 8}, {4, 8}, {2, 4}, {1, 2}}
                               : std::vector<std::pair<int, int>>{{0, 1}};
        for (const auto& [first, step] : rounds) {
            for (int y = first; y < h; y += step) {
                EXPECT_EQ(EGifPutLine(file, &pixels[static_cast<size_t>(y * w)], w), GIF_OK);
            }
        }
    }
    EXPECT_EQ(EGifCloseFile(file, &error), GIF_OK);
    GifFreeMapObject(greys);
    return bytes;
}

TEST(PictureKinds, GifIsRead) {
    ExpectPicture(Gif({{Scene()}}, kWidth, kHeight), Scene());
    ExpectPicture(Gif({{Scene(), 0, 0, true}}, kWidth, kHeight), Scene());
    Grey withHole = Scene();
    const uint8_t hole = withHole.pixels[0];
    std::ranges::replace(withHole.pixels, hole, uint8_t{0});
    ExpectPicture(Gif({{Scene(), 0, 0, false, hole}}, kWidth, kHeight), withHole);
}

TEST(PictureKinds, OfAnimatedGifTheFirstFrameIsRead) {
    Grey expected = Flat(kWidth + 9, kHeight + 7, 0);
    for (uint32_t y = 0; y < kHeight; ++y) {
        std::copy_n(&Scene().pixels[size_t{y} * kWidth], kWidth,
                    &expected.pixels[size_t{y + 7} * expected.width + 9]);
    }
    const std::vector<GifFrame> frames = {{Scene(), 9, 7}, {Pattern(20, 20, 8)}};
    ExpectPicture(Gif(frames, kWidth + 9, kHeight + 7), expected);
    ExpectPicture(Gif(frames, 1, 1), expected); // a screen that is too small
}

TEST(PictureKinds, GifThatIsNotWholeIsRefused) {
    ExpectBadFilesAreRefused(Gif({{Scene()}}, kWidth, kHeight));
    ExpectOneLineOfCut(Gif({{Scene()}}, kWidth, kHeight));
    // Frames that are not looked at need not be whole.
    const std::string one = Gif({{Scene()}}, kWidth, kHeight);
    const std::string two = Gif({{Scene()}, {Scene()}}, kWidth, kHeight);
    ExpectPicture(two.substr(0, one.size() + 20), Scene());
}

#endif

// ---- TIFF

#ifdef ORVO_HAVE_TIFF

struct TiffContent {
    uint16_t bits = 8;
    uint16_t samples = 1;
    uint16_t photometric = PHOTOMETRIC_MINISBLACK;
    std::vector<uint8_t> rows = {};
    uint16_t compression = COMPRESSION_NONE;
    uint16_t orientation = ORIENTATION_TOPLEFT;
    uint16_t extra = 0; // 0: none; else what the last sample is
    bool inPlanes = false;
};

void WritePage(TIFF* file, const TiffContent& content) {
    TIFFSetField(file, TIFFTAG_IMAGEWIDTH, kWidth);
    TIFFSetField(file, TIFFTAG_IMAGELENGTH, kHeight);
    TIFFSetField(file, TIFFTAG_BITSPERSAMPLE, content.bits);
    TIFFSetField(file, TIFFTAG_SAMPLESPERPIXEL, content.samples);
    TIFFSetField(file, TIFFTAG_PHOTOMETRIC, content.photometric);
    TIFFSetField(file, TIFFTAG_COMPRESSION, content.compression);
    TIFFSetField(file, TIFFTAG_ORIENTATION, content.orientation);
    TIFFSetField(file, TIFFTAG_PLANARCONFIG,
                 content.inPlanes ? PLANARCONFIG_SEPARATE : PLANARCONFIG_CONTIG);
    TIFFSetField(file, TIFFTAG_ROWSPERSTRIP, 8);
    if (content.extra != 0) {
        TIFFSetField(file, TIFFTAG_EXTRASAMPLES, 1, &content.extra);
    }
    if (content.photometric == PHOTOMETRIC_PALETTE) {
        std::vector<uint16_t> levels(256);
        for (size_t i = 0; i < levels.size(); ++i) {
            levels[i] = static_cast<uint16_t>((255 - i) * 257);
        }
        TIFFSetField(file, TIFFTAG_COLORMAP, levels.data(), levels.data(), levels.data());
    }
    const auto planes = static_cast<uint16_t>(content.inPlanes ? content.samples : 1);
    const size_t rowBytes = content.rows.size() / kHeight / planes;
    std::vector<uint8_t> rows = content.rows;
    for (uint16_t plane = 0; plane < planes; ++plane) {
        for (uint32_t y = 0; y < kHeight; ++y) {
            uint8_t* const row = &rows[(size_t{plane} * kHeight + y) * rowBytes];
            EXPECT_EQ(TIFFWriteScanline(file, row, y, plane), 1);
        }
    }
    EXPECT_EQ(TIFFWriteDirectory(file), 1);
}

std::string Tiff(const std::vector<TiffContent>& pages, const char* mode = "w") {
    const TempFolder folder;
    TIFF* const file = TIFFOpen((folder / "t").c_str(), mode);
    for (const TiffContent& page : pages) {
        WritePage(file, page);
    }
    TIFFClose(file);
    return ReadFile(folder / "t");
}

std::vector<uint8_t> Same(uint8_t level, size_t count) {
    return std::vector<uint8_t>(count, level);
}

std::vector<uint8_t> Repeated(const Grey& picture, size_t count) {
    return Channels(picture, [count](uint8_t level) { return Same(level, count); });
}

TEST(PictureKinds, TiffOfEveryUsualKindIsRead) {
    const Grey scene = Scene();
    for (const char* mode : {"w", "wb", "wl", "w8"}) { // both ends first, and BigTIFF
        ExpectPicture(Tiff({{8, 1, PHOTOMETRIC_MINISBLACK, scene.pixels}}, mode), scene);
    }
    for (const uint16_t compression :
         {COMPRESSION_LZW, COMPRESSION_PACKBITS, COMPRESSION_ADOBE_DEFLATE}) {
        ExpectPicture(Tiff({{8, 3, PHOTOMETRIC_RGB, Repeated(scene, 3), compression}}), scene);
    }
    TiffContent planes{8, 3, PHOTOMETRIC_RGB, {}};
    for (int i = 0; i < 3; ++i) {
        planes.rows.insert(planes.rows.end(), scene.pixels.begin(), scene.pixels.end());
    }
    planes.inPlanes = true;
    ExpectPicture(Tiff({planes}), scene);
    const auto inverted = [](uint8_t level) { return Same(static_cast<uint8_t>(255 - level), 1); };
    ExpectPicture(Tiff({{8, 1, PHOTOMETRIC_MINISWHITE, Channels(scene, inverted)}}), scene);
    ExpectPicture(Tiff({{8, 1, PHOTOMETRIC_PALETTE, Channels(scene, inverted)}}), scene);
    ExpectPicture(Tiff({{16, 1, PHOTOMETRIC_MINISBLACK, Repeated(scene, 2)}}), scene);
    ExpectPicture(Tiff({{16, 3, PHOTOMETRIC_RGB, Repeated(scene, 6)}}), scene);
    const auto ink = [](uint8_t level) {
        return std::vector<uint8_t>{0, 0, 0, static_cast<uint8_t>(255 - level)};
    };
    ExpectPicture(Tiff({{8, 4, PHOTOMETRIC_SEPARATED, Channels(scene, ink)}}), scene);
}

TEST(PictureKinds, TiffWithAlphaIsReadOverBlack) {
    const Grey scene = Scene();
    TiffContent content{8, 4, PHOTOMETRIC_RGB, Rgba(scene, 100)};
    content.extra = EXTRASAMPLE_UNASSALPHA;
    ExpectPicture(Tiff({content}), OverBlack(scene, 100), 1);
    content.extra = EXTRASAMPLE_ASSOCALPHA;
    const Grey dark = OverBlack(scene, 100);
    content.rows = Rgba(dark, 100);
    ExpectPicture(Tiff({content}), dark);
}

TEST(PictureKinds, TiffIsTurnedAndItsFirstPageIsRead) {
    const Grey scene = Scene();
    TiffContent first{8, 1, PHOTOMETRIC_MINISBLACK, scene.pixels};
    const TiffContent second{8, 1, PHOTOMETRIC_MINISBLACK, Flat(kWidth, kHeight, 7).pixels};
    ExpectPicture(Tiff({first, second}), scene);
    first.orientation = ORIENTATION_RIGHTTOP;
    ExpectPicture(Tiff({first}), QuarterTurned(scene));
    first.orientation = ORIENTATION_BOTRIGHT;
    Grey half = scene;
    std::ranges::reverse(half.pixels);
    ExpectPicture(Tiff({first}), half);
}

TEST(PictureKinds, TiffThatIsNotWholeIsRefused) {
    const std::string whole =
        Tiff({{8, 3, PHOTOMETRIC_RGB, Repeated(Scene(), 3), COMPRESSION_LZW}});
    ExpectBadFilesAreRefused(whole);
    ExpectOneLineOfCut(whole);
    TiffContent floats{32, 1, PHOTOMETRIC_MINISBLACK, Repeated(Scene(), 4)};
    EXPECT_NE(WhyRefused(Tiff({floats})).find("unusual kind"), std::string::npos);
}

#endif

// ---- HEIC and AVIF

#ifdef ORVO_HAVE_HEIF

struct HeifOptions {
    int alpha = 255;
    heif_orientation orientation = heif_orientation_normal;
};

heif_error AppendHeif(heif_context*, const void* bytes, size_t count, void* to) {
    static_cast<std::string*>(to)->append(static_cast<const char*>(bytes), count);
    return {heif_error_Ok, heif_suberror_Unspecified, "ok"};
}

// Empty where this machine has no encoder for it.
std::string Heif(heif_compression_format format, const HeifOptions& options = {}) {
    heif_context* const context = heif_context_alloc();
    heif_encoder* encoder = nullptr;
    if (heif_context_get_encoder_for_format(context, format, &encoder).code != heif_error_Ok) {
        heif_context_free(context);
        return "";
    }
    const std::vector<uint8_t> rgba = Rgba(Scene(), static_cast<uint8_t>(options.alpha));
    heif_image* image = nullptr;
    heif_image_create(kWidth, kHeight, heif_colorspace_RGB, heif_chroma_interleaved_RGBA, &image);
    heif_image_add_plane(image, heif_channel_interleaved, kWidth, kHeight, 8);
    int stride = 0;
    uint8_t* const rows = heif_image_get_plane(image, heif_channel_interleaved, &stride);
    for (size_t y = 0; y < kHeight; ++y) {
        std::copy_n(&rgba[y * kWidth * 4], kWidth * 4, rows + y * static_cast<size_t>(stride));
    }
    heif_encoder_set_lossy_quality(encoder, 95);
    heif_encoding_options* const encoding = heif_encoding_options_alloc();
    encoding->save_alpha_channel = options.alpha != 255;
    encoding->image_orientation = options.orientation;
    EXPECT_EQ(heif_context_encode_image(context, image, encoder, encoding, nullptr).code,
              heif_error_Ok);
    std::string file;
    heif_writer writer = {1, AppendHeif};
    EXPECT_EQ(heif_context_write(context, &writer, &file).code, heif_error_Ok);
    heif_encoding_options_free(encoding);
    heif_image_release(image);
    heif_encoder_release(encoder);
    heif_context_free(context);
    return file;
}

constexpr heif_compression_format kFormats[] = {heif_compression_HEVC, heif_compression_AV1};

TEST(PictureKinds, HeicAndAvifAreReadAndTurnedAsTheySay) {
    for (const heif_compression_format format : kFormats) {
        const std::string file = Heif(format);
        ASSERT_NE(file, "") << "no encoder for " << format << ": install libheif1 with its codecs";
        ExpectPicture(file, Scene(), 14);
        ExpectPicture(Heif(format, {128}), OverBlack(Scene(), 128), 14);
        ExpectPicture(Heif(format, {255, heif_orientation_rotate_90_cw}), QuarterTurned(Scene()),
                      14);
    }
}

TEST(PictureKinds, HeicAndAvifThatAreNotWholeAreRefused) {
    for (const heif_compression_format format : kFormats) {
        const std::string file = Heif(format);
        ASSERT_NE(file, "");
        ExpectBadFilesAreRefused(file, 0.6); // codecs make up the rest
        ExpectOneLineOfCut(file);
    }
}

#endif

// ---- Kinds that a build goes without

TEST(PictureKinds, ThatAreMissingAreNamedWithTheirPackage) {
    const std::string known = kova_cli::KnownPictureKinds();
    const std::string missing = kova_cli::MissingPictureKinds();
    const struct {
        const char* name;
        std::string begin;
        const char* package;
        bool isThere;
    } kKinds[] = {
        {"WebP", "RIFF....WEBP", "libwebp-dev",
#ifdef ORVO_HAVE_WEBP
         true
#else
         false
#endif
        },
        {"GIF", "GIF89a", "libgif-dev",
#ifdef ORVO_HAVE_GIF
         true
#else
         false
#endif
        },
        {"TIFF", std::string("II*\0", 4), "libtiff-dev",
#ifdef ORVO_HAVE_TIFF
         true
#else
         false
#endif
        },
        {"HEIC", "....ftypheic", "libheif-dev",
#ifdef ORVO_HAVE_HEIF
         true
#else
         false
#endif
        },
        {"AVIF", "....ftypavif", "libheif-dev",
#ifdef ORVO_HAVE_HEIF
         true
#else
         false
#endif
        },
    };
    for (const auto& kind : kKinds) {
        EXPECT_EQ(known.find(kind.name) != std::string::npos, kind.isThere) << known;
        EXPECT_EQ(missing.find(kind.name) == std::string::npos, kind.isThere) << missing;
        const std::string why = WhyRefused(kind.begin + std::string(50, '\0'));
        EXPECT_NE(why, "");
        EXPECT_EQ(why.find(kind.package) == std::string::npos, kind.isThere) << why;
    }
}

// ---- JPEG without its end

std::string CutJpeg(const std::string& whole, size_t missing) {
    return whole.substr(0, whole.size() - missing);
}

TEST(PictureKinds, JpegWithoutItsLastBytesIsReadWithAWarning) {
    const Grey scene = Pattern(200, 160, 6);
    const std::string whole = GreyJpeg(scene);
    EXPECT_EQ(Read(whole).warning, "");
    const GreyPicture all = Read(whole);
    // Without the mark of its end nothing is lost.
    const GreyPicture unmarked = Read(CutJpeg(whole, 2));
    EXPECT_NE(unmarked.warning.find("lacks its last bytes"), std::string::npos);
    EXPECT_EQ(unmarked.pixels, all.pixels);
    // Of a row of blocks the end is made up, and what is above it is what it was.
    const GreyPicture cut = Read(CutJpeg(whole, 100));
    EXPECT_NE(cut.warning.find("the lowest 8 of 160 rows are made up"), std::string::npos)
        << cut.warning;
    EXPECT_TRUE(std::equal(cut.pixels.begin(), cut.pixels.begin() + 152 * 200, all.pixels.begin()));
    EXPECT_NE(WhyRefused(CutJpeg(whole, whole.size() / 3)).find("ends too early"),
              std::string::npos);
    const TempFolder folder;
    WriteFile(folder / "cut.jpg", CutJpeg(whole, 100));
    const Outcome run = KovaFrOnCrops({"extract", folder / "cut.jpg"});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err,
              "kova-fr: " + (folder / "cut.jpg") +
                  ": the JPEG lacks its last bytes: the lowest 8 of 160 rows are made up\n");
}

TEST(PictureKinds, ProgressiveJpegNeedsAllButItsLowestBits) {
    const Grey scene = Pattern(200, 160, 6);
    const std::string whole = Jpeg({200, 160, JpegSpace::kGrey, scene.pixels, true});
    const GreyPicture all = Read(whole);
    const GreyPicture cut = Read(CutJpeg(whole, 60));
    EXPECT_NE(cut.warning, "");
    int worst = 0;
    for (size_t i = 0; i < all.pixels.size(); ++i) {
        worst = std::max(worst, std::abs(all.pixels[i] - cut.pixels[i]));
    }
    EXPECT_LE(worst, 40);
    for (size_t length = 200; length < whole.size() * 2 / 5; length += 50) {
        EXPECT_NE(WhyRefused(whole.substr(0, length)), "") << length;
    }
}

// What is damaged in the middle is not what is missing at the end.
TEST(PictureKinds, JpegWithLostPixelsInItsMiddleIsRefused) {
    const std::string whole = GreyJpeg(Pattern(200, 160, 6));
    const size_t middle = whole.size() / 2;
    std::string marked = whole;
    marked.replace(middle, 2, "\xff\xd9");
    EXPECT_NE(WhyRefused(marked), "");
}

} // namespace
} // namespace kova_fr_test
