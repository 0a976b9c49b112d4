// SPDX-License-Identifier: MIT
// What inspect says and draws.
#include <gtest/gtest.h>

#include <cstring>
#include <nlohmann/json.hpp>

#include "orvo/image_tools.h"
#include "photograph.h"
#include "picture_files.h"
#include "program.h"

namespace kova_fr_test {
namespace {

using nlohmann::json;

constexpr int kFailure = 1;
constexpr int kWrongUsage = 2;

json Inspect(const std::vector<std::string>& more) {
    std::vector<std::string> arguments = {"inspect", "--json"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    const Outcome run = KovaFrOnCrops(arguments);
    EXPECT_EQ(run.status, 0) << run.err;
    return json::parse(run.out);
}

// The library's own resize of the box that was reported gives the crop that the network saw.
void ExpectCropIsTheBox(const Grey& frame, const json& box, const Grey& crop) {
    const int32_t x = box["x"], y = box["y"], width = box["width"], height = box["height"];
    // A box may cross the left border by as much as the alignment network answers, no more.
    EXPECT_GE(box["x"].get<int64_t>(), -256);
    EXPECT_LT(box["x"].get<int64_t>(), 256);
    ASSERT_LE(x + width, 256);
    ASSERT_LE(y + height, 256);
    ImageResizeInit();
    std::vector<uint8_t> expected(size_t{96} * 96);
    ImageResizeBilin(frame.pixels.data() + 256 * y + x, expected.data(), height, width, 256, 96,
                     96);
    EXPECT_EQ(crop.pixels, expected);
}

TEST(Inspect, BoxOfTheFrameGivesTheCrop) {
    const TempFolder folder;
    for (const std::string name :
         {"cleo-1.png", "joe-2.png", "lena-3.png", "finn-3.png", "kim-1.png"}) {
        const json seen = Inspect({Sample(name), "--save-crop", folder / "crop.png"});
        ExpectCropIsTheBox(DecodeGreyPng(ReadFile(Sample(name))), seen["face_box_in_frame"],
                           DecodeGreyPng(ReadFile(folder / "crop.png")));
        EXPECT_EQ(seen["face_box_in_picture"], seen["face_box_in_frame"]);
    }
}

TEST(Inspect, FeatureIsThatOfExtract) {
    const std::string path = Sample("ira-1.png");
    const Feature expected = FeatureOf(path);
    EXPECT_EQ(Inspect({path})["feature"].get<std::vector<float>>(),
              std::vector<float>(expected.begin(), expected.end()));
}

TEST(Inspect, BoxOfThePictureIsScaledAndMoved) {
    const TempFolder folder;
    // The sample stands enlarged by 2 with its corner at 40, 20.
    const Grey sample = DecodeGreyPng(ReadFile(Sample("joe-1.png")));
    Grey large = Flat(600, 560, 90);
    for (uint32_t y = 0; y < 512; ++y) {
        for (uint32_t x = 0; x < 512; ++x) {
            large.pixels[(y + 20) * 600 + x + 40] = sample.pixels[y / 2 * 256 + x / 2];
        }
    }
    WriteFile(folder / "large.pgm", BinaryPgm(large));
    const json seen = Inspect({"--box", "40,20,512,512", folder / "large.pgm"});
    const json frame = seen["face_box_in_frame"];
    const json picture = seen["face_box_in_picture"];
    EXPECT_EQ(picture["x"], 40 + 2 * frame["x"].get<int>());
    EXPECT_EQ(picture["y"], 20 + 2 * frame["y"].get<int>());
    EXPECT_EQ(picture["width"], 2 * frame["width"].get<int>());
    EXPECT_EQ(picture["height"], 2 * frame["height"].get<int>());
}

TEST(Inspect, PictureIsWrittenWhereAskedAndIsAPng) {
    const TempFolder folder;
    const Outcome run =
        KovaFrOnCrops({"inspect", "--output", folder / "seen.png", Sample("ada-1.png")});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_NE(run.out.find("face box"), std::string::npos);
    EXPECT_EQ(folder.Names(), std::vector<std::string>{"seen.png"});
    EXPECT_EQ(ReadFile(folder / "seen.png").substr(1, 3), "PNG");
    // It is a picture that the program itself takes.
    EXPECT_EQ(KovaFrOnCrops({"inspect", folder / "seen.png"}).status, 0);
}

TEST(Inspect, TakesOnePictureAndReplacesNoInput) {
    const TempFolder folder;
    WriteFile(folder / "a.png", GreyPng(Pattern(256, 256)));
    ExpectRefusal(KovaFrOnCrops({"inspect", folder / "a.png", folder / "a.png"}), kWrongUsage,
                  "pictures");
    ExpectRefusal(KovaFrOnCrops({"inspect", "--output", folder / "a.png", folder / "a.png"}),
                  kFailure, "would replace");
    ExpectRefusal(KovaFrOnCrops({"inspect", "--output", "/dev/full", folder / "a.png"}), kFailure,
                  "cannot be written");
}

} // namespace
} // namespace kova_fr_test
