// SPDX-License-Identifier: MIT
// Every kind of picture reaches the network with the pixels that it holds.
#include <gtest/gtest.h>
#include <png.h>
#include <zlib.h>

#include <algorithm>
#include <cstring>

#include "orvo/kova_fr.h"
#include "orvo/kova_mpi.h"
#include "picture_files.h"
#include "pictures/picture_io.h"
#include "program.h"

namespace kova_fr_test {
namespace {

// The feature of a picture straight from the library.
Feature LibraryFeature(const Grey& picture) {
    EXPECT_EQ(kova_fr_init(), KOVA_FR_OK);
    obj_img image = {};
    void* address = nullptr;
    EXPECT_EQ(KOVA_MPI_SYS_MmzAlloc_Cached(&image.phy_addr, &address, "TEST", nullptr,
                                           static_cast<uint32_t>(picture.pixels.size())),
              0);
    std::memcpy(address, picture.pixels.data(), picture.pixels.size());
    image.vir_addr = reinterpret_cast<uintptr_t>(address);
    image.stride = picture.width;
    image.width = picture.width;
    image.height = picture.height;
    image.mem_type = 1;
    Feature feature = {};
    EXPECT_EQ(kova_fr_extract_obj_feature(&image, 128, feature.data()), KOVA_FR_OK);
    EXPECT_EQ(KOVA_MPI_SYS_MmzFree(image.phy_addr, address), 0);
    EXPECT_EQ(kova_fr_deinit(), KOVA_FR_OK);
    return feature;
}

// The one level that a picture without content is read as.
int LevelOf(const std::string& file) {
    const TempFolder folder;
    WriteFile(folder / "flat", file);
    const kova_cli::GreyPicture picture = kova_cli::LoadPicture(folder / "flat");
    const auto [least, most] = std::minmax_element(picture.pixels.begin(), picture.pixels.end());
    EXPECT_EQ(*least, *most);
    return *least;
}

// A PNG of 64 x 64 pixels that all consist of these bytes.
std::string FlatPng(int colourType, int bitDepth, const std::vector<uint8_t>& pixel) {
    PngContent content{64, 64, bitDepth, colourType, false, {}};
    for (int i = 0; i < 64 * 64; ++i) {
        content.rows.insert(content.rows.end(), pixel.begin(), pixel.end());
    }
    return Png(content);
}

// Grey samples of fewer than 8 bits, all the same.
std::string FlatSmallPng(int bitDepth, uint8_t packedByte) {
    return Png(
        {64, 64, bitDepth, PNG_COLOR_TYPE_GRAY, false,
         std::vector<uint8_t>(size_t{64} * 64 * static_cast<size_t>(bitDepth) / 8, packedByte)});
}

std::string FlatPnm(const std::string& header, const std::string& pixel) {
    std::string file = header;
    for (int i = 0; i < 64 * 64; ++i) {
        file += pixel;
    }
    return file;
}

void ExpectSameFeature(const std::string& file, const Feature& expected) {
    const TempFolder folder;
    WriteFile(folder / "picture", file);
    EXPECT_EQ(FeatureOf(folder / "picture"), expected);
}

// A TIFF structure that says nothing but the orientation, in either order of bytes.
std::string OrientationTiff(int orientation, bool isBigEndian) {
    const auto number = [isBigEndian](uint32_t value, int count) {
        std::string bytes;
        for (int i = 0; i < count; ++i) {
            bytes += static_cast<char>(value >> 8 * (isBigEndian ? count - 1 - i : i));
        }
        return bytes;
    };
    // An entry: tag, type (3: of 2 bytes), how many, the value in the first 2 of 4 bytes. Another
    // one stands before it.
    return (isBigEndian ? "MM" : "II") + number(42, 2) + number(8, 4) + number(2, 2) +
           number(0x0100, 2) + number(4, 2) + number(1, 4) + number(6, 4) + number(0x0112, 2) +
           number(3, 2) + number(1, 4) + number(static_cast<uint32_t>(orientation), 2) +
           number(0, 2) + number(0, 4);
}

std::string WithExif(const std::string& jpeg, const std::string& tiff) {
    const std::string body = std::string("Exif\0\0", 6) + tiff;
    const size_t length = body.size() + 2;
    return jpeg.substr(0, 2) + "\xFF\xE1" + static_cast<char>(length >> 8) +
           static_cast<char>(length) + body + jpeg.substr(2);
}

// A chunk behind the header of a PNG.
std::string WithExifChunk(const std::string& png, const std::string& tiff) {
    constexpr size_t kBehindHeader = 8 + 25;
    const auto number = [](uint32_t value) {
        std::string bytes;
        for (int shift = 24; shift >= 0; shift -= 8) {
            bytes += static_cast<char>(value >> shift);
        }
        return bytes;
    };
    const std::string body = "eXIf" + tiff;
    const auto* data = reinterpret_cast<const Bytef*>(body.data());
    const auto sum = static_cast<uint32_t>(crc32(0, data, static_cast<uInt>(body.size())));
    return png.substr(0, kBehindHeader) + number(static_cast<uint32_t>(tiff.size())) + body +
           number(sum) + png.substr(kBehindHeader);
}

Grey MirrorColumns(const Grey& picture) {
    Grey out = picture;
    for (uint32_t y = 0; y < picture.height; ++y) {
        std::reverse(out.pixels.begin() + y * picture.width,
                     out.pixels.begin() + (y + 1) * picture.width);
    }
    return out;
}

// Clockwise.
Grey QuarterTurn(const Grey& picture) {
    Grey out{picture.height, picture.width, {}};
    for (uint32_t y = 0; y < out.height; ++y) {
        for (uint32_t x = 0; x < out.width; ++x) {
            out.pixels.push_back(picture.pixels[(picture.height - 1 - x) * picture.width + y]);
        }
    }
    return out;
}

// What a viewer shows: mirrored or not, then turned clockwise.
Grey Upright(const Grey& picture, int orientation) {
    static constexpr int kTurns[] = {0, 0, 2, 2, 3, 1, 1, 3};
    static constexpr bool kMirrored[] = {false, true, false, true, true, false, true, false};
    Grey out = kMirrored[orientation - 1] ? MirrorColumns(picture) : picture;
    for (int i = 0; i < kTurns[orientation - 1]; ++i) {
        out = QuarterTurn(out);
    }
    return out;
}

TEST(Pictures, PgmOf256GivesTheLibrarysFeatureBitForBit) {
    const Grey picture = Pattern(256, 256);
    const Feature expected = LibraryFeature(picture);
    ExpectSameFeature(BinaryPgm(picture), expected);
    ExpectSameFeature(PlainPgm(picture), expected);
}

TEST(Pictures, PngOf256GivesTheLibrarysFeatureBitForBit) {
    const Grey picture = Pattern(256, 256);
    ExpectSameFeature(GreyPng(picture), LibraryFeature(picture));
}

TEST(Pictures, InterlacedPngGivesTheSameFeature) {
    const Grey picture = Pattern(256, 256);
    ExpectSameFeature(Png({256, 256, 8, PNG_COLOR_TYPE_GRAY, true, picture.pixels}),
                      LibraryFeature(picture));
}

TEST(Pictures, OtherSizesGiveTheLibrarysFeature) {
    for (const auto& [width, height] : {std::pair{16u, 12u}, {300u, 200u}, {1000u, 30u}}) {
        Grey picture = Pattern(width, height);
        for (size_t i = 0; i < picture.pixels.size(); i += 7) { // soft waves show little in 16 x 12
            picture.pixels[i] = static_cast<uint8_t>(255 - picture.pixels[i]);
        }
        ExpectSameFeature(BinaryPgm(picture), LibraryFeature(picture));
    }
}

TEST(Pictures, OddLastColumnAndRowAreLeftOut) {
    const Grey picture = Pattern(257, 301);
    ExpectSameFeature(BinaryPgm(picture), LibraryFeature(Crop(picture, 0, 0, 256, 300)));
}

TEST(Pictures, ManyMegapixelsAreTaken) {
    const Grey picture = Pattern(4000, 3000);
    ExpectSameFeature(BinaryPgm(picture), LibraryFeature(picture));
}

TEST(Pictures, GreyJpegGivesTheFeatureOfItsPixels) {
    const std::string file = GreyJpeg(Pattern(256, 256));
    ExpectSameFeature(file, LibraryFeature(DecodeJpegLuma(file)));
}

TEST(Pictures, ColourJpegGivesTheFeatureOfItsLuma) {
    JpegContent content{256, 256, JpegSpace::kYcc, {}};
    const Grey red = Pattern(256, 256, 1);
    const Grey green = Pattern(256, 256, 2);
    for (size_t i = 0; i < red.pixels.size(); ++i) {
        content.samples.insert(content.samples.end(), {red.pixels[i], green.pixels[i], 90});
    }
    const std::string file = Jpeg(content);
    ExpectSameFeature(file, LibraryFeature(DecodeJpegLuma(file)));
    content.isProgressive = true;
    ExpectSameFeature(Jpeg(content), LibraryFeature(DecodeJpegLuma(file)));
}

TEST(Pictures, KindIsFoundByContentNotByName) {
    const TempFolder folder;
    const Grey picture = Pattern(256, 256);
    WriteFile(folder / "png.jpg", GreyPng(picture));
    WriteFile(folder / "jpeg.pgm", GreyJpeg(picture));
    WriteFile(folder / "pgm.png", BinaryPgm(picture));
    EXPECT_EQ(FeatureOf(folder / "png.jpg"), FeatureOf(folder / "pgm.png"));
    EXPECT_EQ(KovaFrOnCrops({"extract", folder / "jpeg.pgm"}).status, 0);
}

TEST(Pictures, PictureMayComeThroughAPipe) {
    const TempFolder folder;
    WriteFile(folder / "a.png", GreyPng(Pattern(256, 256)));
    const Outcome run =
        Shell("cat '" + (folder / "a.png") + "' | \"$KOVA_FR\" extract --crop /dev/stdin");
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(ParseFeatures(run.out), std::vector<Feature>{FeatureOf(folder / "a.png")});
}

TEST(Pictures, PngColourBecomesLumaWithBt601Weights) {
    EXPECT_EQ(LevelOf(FlatPng(PNG_COLOR_TYPE_RGB, 8, {255, 0, 0})), 77);
    EXPECT_EQ(LevelOf(FlatPng(PNG_COLOR_TYPE_RGB, 8, {0, 255, 0})), 149);
    EXPECT_EQ(LevelOf(FlatPng(PNG_COLOR_TYPE_RGB, 8, {0, 0, 255})), 29);
    EXPECT_EQ(LevelOf(FlatPng(PNG_COLOR_TYPE_RGB, 8, {255, 255, 255})), 255);
}

TEST(Pictures, PngOfFewBitsSpansBlackToWhite) {
    EXPECT_EQ(LevelOf(FlatSmallPng(1, 0xFF)), 255);
    EXPECT_EQ(LevelOf(FlatSmallPng(1, 0x00)), 0);
    EXPECT_EQ(LevelOf(FlatSmallPng(2, 0x55)), 85);
    EXPECT_EQ(LevelOf(FlatSmallPng(4, 0x99)), 153);
}

TEST(Pictures, PngOf16BitsIsRoundedTo8) {
    EXPECT_EQ(LevelOf(FlatPng(PNG_COLOR_TYPE_GRAY, 16, {0x10, 0xFF})), 17);
    EXPECT_EQ(LevelOf(FlatPng(PNG_COLOR_TYPE_GRAY, 16, {0x10, 0x20})), 16);
    EXPECT_EQ(LevelOf(FlatPng(PNG_COLOR_TYPE_RGB, 16, {0, 0, 0xFF, 0xFF, 0, 0})), 149);
    EXPECT_EQ(LevelOf(FlatPng(PNG_COLOR_TYPE_RGBA, 16, {100, 0, 100, 0, 100, 0, 128, 128})), 50);
}

TEST(Pictures, PngAlphaIsComposedOverBlack) {
    EXPECT_EQ(LevelOf(FlatPng(PNG_COLOR_TYPE_GRAY_ALPHA, 8, {200, 255})), 200);
    EXPECT_EQ(LevelOf(FlatPng(PNG_COLOR_TYPE_GRAY_ALPHA, 8, {200, 128})), 100);
    EXPECT_EQ(LevelOf(FlatPng(PNG_COLOR_TYPE_GRAY_ALPHA, 8, {200, 0})), 0);
    EXPECT_EQ(LevelOf(FlatPng(PNG_COLOR_TYPE_RGBA, 8, {0, 255, 0, 51})), 30);
}

TEST(Pictures, PngPaletteIsLookedUp) {
    PngContent content{64, 64, 8, PNG_COLOR_TYPE_PALETTE, false, std::vector<uint8_t>(64 * 64, 1)};
    content.palette = {{0, 0, 0}, {0, 255, 0}, {255, 255, 255}};
    EXPECT_EQ(LevelOf(Png(content)), 149);
    content.paletteAlpha = {255, 51};
    EXPECT_EQ(LevelOf(Png(content)), 30);
}

TEST(Pictures, JpegColourBecomesLuma) {
    EXPECT_NEAR(LevelOf(FlatJpeg(JpegSpace::kYcc, {200, 30, 60})), 84, 1);
    EXPECT_NEAR(LevelOf(FlatJpeg(JpegSpace::kRgb, {200, 30, 60})), 84, 1);
    EXPECT_NEAR(LevelOf(FlatJpeg(JpegSpace::kGrey, {84})), 84, 1);
}

// With the Adobe mark a sample says how much light is left: 200/255 of each colour, no black.
TEST(Pictures, CmykJpegBecomesLuma) {
    EXPECT_NEAR(LevelOf(FlatJpeg(JpegSpace::kCmyk, {200, 200, 200, 255})), 200, 1);
    EXPECT_NEAR(LevelOf(FlatJpeg(JpegSpace::kYcck, {200, 200, 200, 255})), 200, 1);
    EXPECT_NEAR(LevelOf(FlatJpeg(JpegSpace::kCmyk, {255, 255, 255, 100})), 100, 1);
    EXPECT_NEAR(LevelOf(FlatJpeg(JpegSpace::kCmyk, {0, 255, 0, 255})), 149, 1);
}

TEST(Pictures, CmykJpegWithoutAdobeMarkHoldsInk) {
    JpegContent content{64, 64, JpegSpace::kCmyk, {}};
    content.hasAdobeMark = false;
    for (int i = 0; i < 64 * 64; ++i) {
        content.samples.insert(content.samples.end(), {55, 55, 55, 0});
    }
    EXPECT_NEAR(LevelOf(Jpeg(content)), 200, 1);
}

TEST(Pictures, PnmKindsAndMaximaAreRead) {
    EXPECT_EQ(LevelOf(FlatPnm("P5 64 64 255\n", "\x64")), 100);
    EXPECT_EQ(LevelOf(FlatPnm("P5 64 64 100\n", "\x32")), 128);
    EXPECT_EQ(LevelOf(FlatPnm("P5 64 64 65535\n", "\x10\xFF")), 17);
    EXPECT_EQ(LevelOf(FlatPnm("P2 64 64 3\n", "1 ")), 85);
    EXPECT_EQ(LevelOf(FlatPnm("P3 64 64 255\n", "0 255 0\n")), 149);
    EXPECT_EQ(LevelOf(FlatPnm("P6 64 64 255\n", std::string("\xFF\0\0", 3))), 77);
}

TEST(Pictures, PnmCommentsAreSkipped) {
    EXPECT_EQ(LevelOf(FlatPnm("P5# made by hand\n64 # wide 9\n#high\n64 255\n", "\x64")), 100);
    EXPECT_EQ(LevelOf(FlatPnm("P2\n64 64\n255\n# 7 7 7\n", "100 ")), 100);
}

TEST(Pictures, ExifOrientationIsFollowedInJpeg) {
    const std::string jpeg = GreyJpeg(Pattern(120, 80));
    const Grey stored = DecodeJpegLuma(jpeg);
    for (int orientation = 1; orientation <= 8; ++orientation) {
        SCOPED_TRACE(orientation);
        const Feature expected = LibraryFeature(Upright(stored, orientation));
        ExpectSameFeature(WithExif(jpeg, OrientationTiff(orientation, false)), expected);
        ExpectSameFeature(WithExif(jpeg, OrientationTiff(orientation, true)), expected);
    }
}

TEST(Pictures, ExifOrientationIsFollowedInPng) {
    const Grey stored = Pattern(120, 80);
    for (int orientation = 1; orientation <= 8; ++orientation) {
        SCOPED_TRACE(orientation);
        ExpectSameFeature(WithExifChunk(GreyPng(stored), OrientationTiff(orientation, true)),
                          LibraryFeature(Upright(stored, orientation)));
    }
}

TEST(Pictures, DamagedExifMeansUpright) {
    const std::string jpeg = GreyJpeg(Pattern(120, 80));
    const Feature expected = LibraryFeature(DecodeJpegLuma(jpeg));
    const std::string good = OrientationTiff(6, false);
    ExpectSameFeature(WithExif(jpeg, OrientationTiff(0, false)), expected);
    ExpectSameFeature(WithExif(jpeg, OrientationTiff(9, false)), expected);
    ExpectSameFeature(WithExif(jpeg, "XX" + good.substr(2)), expected);
    // The place of the directory, far outside.
    ExpectSameFeature(WithExif(jpeg, good.substr(0, 4) + "\xF0\xFF\xFF\xFF" + good.substr(8)),
                      expected);
    // More entries than there are bytes, of which none is the orientation.
    ExpectSameFeature(WithExif(jpeg, good.substr(0, 8) + "\xFF\xFF" + good.substr(10, 12)),
                      expected);
    for (size_t length = 0; length < 30; ++length) {
        ExpectSameFeature(WithExif(jpeg, good.substr(0, length)), expected);
    }
}

} // namespace
} // namespace kova_fr_test
