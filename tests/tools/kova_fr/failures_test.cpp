// SPDX-License-Identifier: MIT
// Whatever cannot be used gives one clear line and the right exit status, and harms no file.
#include <gtest/gtest.h>
#include <png.h>
#include <sys/stat.h>

#include <csignal>
#include <filesystem>

#include "picture_files.h"
#include "program.h"

namespace kova_fr_test {
namespace {

constexpr int kFailure = 1;
constexpr int kWrongUsage = 2;

class Failures : public testing::Test {
  protected:
    Failures() { WriteFile(good_, GreyPng(Pattern(256, 256))); }

    // Both commands refuse these bytes, whichever picture they are.
    void ExpectRefusedPicture(const std::string& bytes, const std::string& part) {
        const std::string bad = folder_ / "bad.jpg";
        WriteFile(bad, bytes);
        ExpectRefusal(KovaFrOnCrops({"extract", bad}), kFailure, part);
        const Outcome run = KovaFrOnCrops({"compare", "--json", good_, bad});
        ExpectRefusal(run, kFailure, part);
        EXPECT_NE(run.err.find(bad), std::string::npos) << run.err;
    }

    void ExpectWrongUsage(const std::vector<std::string>& arguments, const std::string& part) {
        ExpectRefusal(KovaFrOnCrops(arguments), kWrongUsage, part);
    }

    TempFolder folder_;
    const std::string good_ = folder_ / "good.png";
};

// So many eighths of a file, and fewer, are refused as damaged, or as no picture where too little is
// left.
void ExpectCutsRefused(const std::string& whole, const std::string& path, size_t eighths) {
    for (size_t eighth = 0; eighth <= eighths; ++eighth) {
        const size_t length = eighth == 0 ? 3 : whole.size() * eighth / 8;
        WriteFile(path, whole.substr(0, length));
        ExpectRefusal(KovaFrOnCrops({"extract", path}), kFailure, "");
    }
}

void ExpectEveryCutRefused(const std::string& whole, const std::string& path) {
    ExpectCutsRefused(whole, path, 7);
    WriteFile(path, whole.substr(0, whole.size() - 1));
    ExpectRefusal(KovaFrOnCrops({"extract", path}), kFailure, "damaged or cut short");
    WriteFile(path, whole);
    EXPECT_EQ(KovaFrOnCrops({"extract", path}).status, 0);
}

TEST_F(Failures, MissingPicture) {
    ExpectRefusal(KovaFrOnCrops({"extract", folder_ / "none.png"}), kFailure, "cannot be opened");
}

TEST_F(Failures, EmptyPicture) { ExpectRefusedPicture("", "empty"); }

TEST_F(Failures, FolderAsPicture) {
    ExpectRefusal(KovaFrOnCrops({"compare", good_, folder_.path()}), kFailure, "is a folder");
}

TEST_F(Failures, DeviceAsPicture) {
    ExpectRefusal(KovaFrOnCrops({"extract", "/dev/zero"}), kFailure, "neither a file nor a pipe");
}

TEST_F(Failures, TextNamedJpg) {
    ExpectRefusedPicture("This is not a picture.\n", "save it as PNG, JPEG or PGM");
}

TEST_F(Failures, PictureTooSmall) {
    ExpectRefusedPicture(GreyPng(Pattern(1, 1)), "too small (1 x 1)");
    ExpectRefusedPicture(BinaryPgm(Pattern(14, 12)), "too small (14 x 12)");
    ExpectRefusedPicture(BinaryPgm(Pattern(15, 12)), "at least 16 x 12");
    ExpectRefusedPicture(GreyJpeg(Pattern(16, 11)), "too small (16 x 11)");
}

// A wall, a covered lens: whatever is in such a picture, it is no face.
TEST_F(Failures, PictureWithoutStructure) {
    const std::string expected = "shows no structure";
    Grey wall = Flat(256, 256, 128);
    ExpectRefusedPicture(GreyPng(wall), expected);
    ExpectRefusedPicture(BinaryPgm(Flat(16, 12, 0)), expected);
    ExpectRefusedPicture(BinaryPgm(Flat(400, 300, 255)), expected);
    uint32_t state = 1;
    for (uint8_t& pixel : wall.pixels) { // as a sensor sees it: noise of +-15 levels
        state = state * 1664525 + 1013904223;
        pixel = static_cast<uint8_t>(pixel + (state >> 16) % 31 - 15);
    }
    ExpectRefusedPicture(GreyPng(wall), expected);
    for (size_t i = 0; i < wall.pixels.size(); ++i) { // and lit from one side
        wall.pixels[i] = static_cast<uint8_t>(wall.pixels[i] + i % 256 / 4);
    }
    ExpectRefusedPicture(GreyPng(wall), expected);
}

// Faces in the dark are no walls.
TEST_F(Failures, DarkFacesAreTaken) {
    std::vector<std::string> arguments = {"extract"};
    for (const auto& entry : std::filesystem::directory_iterator(ORVO_SAMPLES)) {
        if (entry.path().extension() == ".png") {
            Grey dark = DecodeGreyPng(ReadFile(entry.path().string()));
            for (uint8_t& pixel : dark.pixels) {
                pixel /= 3;
            }
            arguments.push_back(folder_ / entry.path().filename().string());
            WriteFile(arguments.back(), GreyPng(dark));
        }
    }
    ASSERT_EQ(arguments.size(), 37u);
    const Outcome run = KovaFrOnCrops(arguments);
    EXPECT_EQ(run.status, 0) << run.err;
}

TEST_F(Failures, PartWithoutStructure) {
    Grey picture = Flat(512, 256, 60);
    const Grey pattern = Pattern(256, 256);
    for (size_t y = 0; y < 256; ++y) {
        std::copy_n(&pattern.pixels[y * 256], 256, &picture.pixels[y * 512 + 256]);
    }
    const std::string path = folder_ / "half.pgm";
    WriteFile(path, BinaryPgm(picture));
    ExpectRefusal(KovaFrOnCrops({"extract", path, "--box", "0,0,256,256"}), kFailure,
                  "shows no structure");
    EXPECT_EQ(KovaFrOnCrops({"extract", path, "--box", "256,0,256,256"}).status, 0);
    EXPECT_EQ(KovaFrOnCrops({"extract", path}).status, 0);
}

TEST_F(Failures, PictureTooFlat) {
    ExpectRefusedPicture(GreyPng(Pattern(20000, 10)), "too small (20000 x 10)");
}

TEST_F(Failures, HugePictureIsRefusedBeforeItIsRead) {
    ExpectRefusedPicture(PngHeader(20000, 20000), "too large (20000 x 20000)");
    ExpectRefusedPicture(PngHeader(0x7FFFFFFF, 0x7FFFFFFF), "too large (2147483647 x 2147483647)");
    ExpectRefusedPicture("P5 4294967295 4294967295 255\n", "too large (4294967295 x 4294967295)");
    ExpectRefusedPicture("P2 10001 10000 255\n1 2 3", "too large (10001 x 10000)");
}

TEST_F(Failures, HugeJpegIsRefusedBeforeItIsRead) {
    std::string file = GreyJpeg(Pattern(64, 64));
    const size_t frame = file.find("\xFF\xC0"); // then length, precision, height, width
    ASSERT_NE(frame, std::string::npos);
    file.replace(frame + 5, 4, "\xFD\xE8\xFD\xE8");
    ExpectRefusedPicture(file, "too large (65000 x 65000)");
}

TEST_F(Failures, HeaderThatPromisesMoreThanTheFileHolds) {
    ExpectRefusedPicture("P5 9000 9000 255\nabc", "the file ends too early");
    ExpectRefusedPicture("P2 9000 9000 255\n1 2 3", "the file ends too early");
    ExpectRefusedPicture(PngHeader(9000, 9000), "damaged or cut short");
}

TEST_F(Failures, LongFileIsRefusedBeforeItIsRead) {
    const std::string path = folder_ / "long";
    WriteFile(path, "P5 64 64 255\n");
    std::filesystem::resize_file(path, uint64_t{300} << 20);
    ExpectRefusal(KovaFrOnCrops({"extract", path}), kFailure, "larger than 256 MiB");
}

TEST_F(Failures, CutPng) { ExpectEveryCutRefused(GreyPng(Pattern(64, 64)), folder_ / "cut"); }

TEST_F(Failures, CutInterlacedPng) {
    const Grey picture = Pattern(64, 64);
    ExpectEveryCutRefused(Png({64, 64, 8, PNG_COLOR_TYPE_GRAY, true, picture.pixels}),
                          folder_ / "cut");
}

// What lacks its last bytes alone is read with a warning (picture_kinds_test).
TEST_F(Failures, CutJpeg) { ExpectCutsRefused(GreyJpeg(Pattern(64, 64)), folder_ / "cut", 6); }

TEST_F(Failures, CutProgressiveJpeg) {
    const Grey picture = Pattern(64, 64);
    ExpectCutsRefused(Jpeg({64, 64, JpegSpace::kGrey, picture.pixels, true}), folder_ / "cut", 3);
}

TEST_F(Failures, CutPgm) { ExpectEveryCutRefused(BinaryPgm(Pattern(64, 64)), folder_ / "cut"); }

TEST_F(Failures, CutPlainPgm) {
    // The last number and the line end behind it.
    const std::string whole = PlainPgm(Pattern(64, 64));
    const size_t lastNumber = whole.rfind('\n', whole.size() - 2) + 1;
    ExpectRefusedPicture(whole.substr(0, lastNumber), "the file ends too early");
    ExpectRefusedPicture(whole.substr(0, whole.size() / 2), "the file ends too early");
}

TEST_F(Failures, PngWithChangedPixels) {
    std::string file = GreyPng(Pattern(64, 64));
    file[file.size() / 2] = static_cast<char>(file[file.size() / 2] ^ 0x55);
    ExpectRefusedPicture(file, "damaged or cut short");
}

TEST_F(Failures, PnmWithWrongNumbers) {
    ExpectRefusedPicture("P5 64 sixty 255\n", "the height is not a number");
    ExpectRefusedPicture("P5 0 64 255\n", "no pixels");
    ExpectRefusedPicture("P5 64 64 0\n", "the maximum is 0");
    ExpectRefusedPicture("P5 64 64 65536\n", "the maximum is above 65535");
    ExpectRefusedPicture("P5 99999999999 64 255\n", "the width is above");
    ExpectRefusedPicture("P5 16 12 100\n" + std::string(16 * 12, '\xFF'), "a sample is above 100");
    std::string plain = "P2 16 12 100\n101";
    for (int i = 1; i < 16 * 12; ++i) {
        plain += " 50";
    }
    ExpectRefusedPicture(plain, "a sample is above 100");
}

TEST_F(Failures, FileNameWithALineEndStaysOneLine) {
    ExpectRefusal(KovaFrOnCrops({"extract", folder_ / "two\nlines.png"}), kFailure,
                  "two?lines.png");
}

TEST_F(Failures, BoxOutsideThePicture) {
    for (const char* box : {"250,0,20,20", "0,250,20,20", "256,0,16,16", "0,256,16,16",
                            "4294967295,0,16,16", "16,16,4294967295,4294967295"}) {
        ExpectRefusal(KovaFrOnCrops({"extract", good_, "--box", box}), kFailure,
                      "the box leaves the picture, which has 256 x 256");
    }
    EXPECT_EQ(KovaFrOnCrops({"extract", good_, "--box", "240,244,16,12"}).status, 0);
}

TEST_F(Failures, BoxTooSmall) {
    ExpectRefusal(KovaFrOnCrops({"extract", good_, "--box", "0,0,15,12"}), kFailure,
                  "too small (15 x 12)");
    ExpectRefusal(KovaFrOnCrops({"extract", good_, "--box", "0,0,16,11"}), kFailure,
                  "too small (16 x 11)");
}

TEST_F(Failures, WrongUsage) {
    ExpectWrongUsage({}, "subcommand");
    ExpectWrongUsage({"recognise"}, "there is no command 'recognise'; see");
    ExpectWrongUsage({"comprae", good_, good_}, "no command 'comprae' (compare?); see");
    ExpectWrongUsage({"compare"}, "pictures");
    ExpectWrongUsage({"compare", good_}, "pictures");
    ExpectWrongUsage({"extract"}, "pictures");
    ExpectWrongUsage({"extract", "--colour", good_}, "--colour");
    ExpectWrongUsage({"extract", good_, "--box"}, "--box");
    ExpectWrongUsage({"extract", good_, "--json", "--output", folder_ / "f32"}, "--json");
    ExpectWrongUsage({"extract", good_, "--output", folder_ / "x", "--save-crop", folder_ / "x"},
                     "names the same file");
    EXPECT_EQ(folder_.Names(), (std::vector<std::string>{"good.png"}));
}

TEST_F(Failures, MalformedBoxIsWrongUsage) {
    for (const char* box : {"", "1", "1,2,30", "1,2,30,40,50", "1,2,30,40,", "1,2,x,40", "1,2,0,40",
                            "1,2,30,0", "1;2;30;40", "1,2,30,4294967296", "1.5,2,30,40",
                            " 1,2,30,40", "half", "0x1,2,30,40", "1,-2,30,40"}) {
        ExpectWrongUsage({"extract", good_, std::string("--box=") + box}, "--box");
    }
}

TEST_F(Failures, WrongNumberOfBoxesIsWrongUsage) {
    ExpectWrongUsage({"compare", good_, good_, good_, "--box", "all", "--box", "all"},
                     "given 2 times for 3 pictures");
    ExpectWrongUsage({"extract", good_, "--box", "all", "--box", "all"},
                     "given 2 times for 1 picture");
}

TEST_F(Failures, CropThatCannotBeWritten) {
    ExpectRefusal(KovaFrOnCrops({"extract", good_, "--save-crop", folder_ / "none/crop.png"}),
                  kFailure, "cannot be written");
    ExpectRefusal(KovaFrOnCrops({"extract", good_, "--save-crop", folder_.path()}), kFailure,
                  "is a folder");
    ExpectRefusal(KovaFrOnCrops({"extract", good_, "--save-crop", good_ + "/crop.png"}), kFailure,
                  "cannot be written");
    EXPECT_EQ(folder_.Names(), (std::vector<std::string>{"good.png"}));
}

TEST_F(Failures, FullDiskUnderAnOutput) {
    ExpectRefusal(KovaFrOnCrops({"extract", good_, "--output", "/dev/full"}), kFailure,
                  "No space left on device");
    ExpectRefusal(KovaFrOnCrops({"extract", good_, "--save-crop", "/dev/full"}), kFailure,
                  "No space left on device");
    struct stat status = {};
    ASSERT_EQ(stat("/dev/full", &status), 0);
    EXPECT_TRUE(S_ISCHR(status.st_mode)); // still the device
}

TEST_F(Failures, FullDiskUnderStandardOutput) {
    const std::string compare = "compare --crop '" + good_ + "'";
    for (const std::string& command :
         {std::string("extract --crop"), compare, compare + " --json"}) {
        const Outcome run = Shell("\"$KOVA_FR\" " + command + " '" + good_ + "' > /dev/full");
        ExpectRefusal(run, kFailure, "No space left on device");
    }
    ExpectRefusal(Shell("\"$KOVA_FR\" --help > /dev/full"), kFailure, "No space left on device");
}

TEST_F(Failures, StandardOutputClosed) {
    ExpectRefusal(Shell("\"$KOVA_FR\" extract --crop '" + good_ + "' >&-"), kFailure,
                  "standard output");
}

// As with `| head`: whoever stops reading wants no more text, and no complaint either.
TEST_F(Failures, ReaderWhoStopsReadingEndsTheProgramQuietly) {
    const Outcome run =
        Shell("{ sleep 0.1; \"$KOVA_FR\" extract --crop '" + good_ + "'; echo $? >&2; } | true");
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, std::to_string(128 + SIGPIPE) + "\n");
}

TEST_F(Failures, FailedOutputHarmsNoEarlierFile) {
    WriteFile(folder_ / "crop.png", "an earlier crop");
    const Outcome run = KovaFrOnCrops({"extract", good_, "--save-crop", folder_ / "crop.png",
                                       "--output", folder_ / "none/features"});
    ExpectRefusal(run, kFailure, "cannot be written");
    EXPECT_EQ(ReadFile(folder_ / "crop.png"), "an earlier crop");
    EXPECT_EQ(folder_.Names(), (std::vector<std::string>{"crop.png", "good.png"}));
}

TEST_F(Failures, FailedPictureWritesNothing) {
    WriteFile(folder_ / "bad", "no picture");
    ExpectRefusal(
        KovaFrOnCrops({"compare", good_, folder_ / "bad", "--save-crop", folder_ / "crop.png"}),
        kFailure, "bad");
    EXPECT_EQ(folder_.Names(), (std::vector<std::string>{"bad", "good.png"}));
}

TEST_F(Failures, NumberedCropDoesNotReplaceAFile) {
    WriteFile(folder_ / "crop-2.png", "something else");
    ExpectRefusal(KovaFrOnCrops({"compare", good_, good_, "--save-crop", folder_ / "crop.png"}),
                  kFailure, "crop-2.png: exists already");
    EXPECT_EQ(ReadFile(folder_ / "crop-2.png"), "something else");
    EXPECT_EQ(folder_.Names(), (std::vector<std::string>{"crop-2.png", "good.png"}));
}

TEST_F(Failures, OutputDoesNotReplaceThePictureItself) {
    const std::string before = ReadFile(good_);
    ExpectRefusal(KovaFrOnCrops({"extract", good_, "--save-crop", folder_ / "./good.png"}),
                  kFailure, "would replace a picture");
    ExpectRefusal(KovaFrOnCrops({"extract", good_, "--output", good_}), kFailure,
                  "would replace a picture");
    EXPECT_EQ(ReadFile(good_), before);
}

} // namespace
} // namespace kova_fr_test
