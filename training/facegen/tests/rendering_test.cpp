// SPDX-License-Identifier: MIT
// What is rendered from the real assets. Their folder comes in the environment, since they are no
// part of the project.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <numeric>

#include "head/asset_files.h"
#include "output/labels.h"
#include "output/picture_files.h"
#include "output/portraits.h"
#include "output/shards.h"

namespace facegen {
namespace {

namespace fs = std::filesystem;

class Rendering : public testing::Test {
  protected:
    static void SetUpTestSuite() {
        const char* assets = std::getenv("ORVO_FACE_ASSETS");
        if (assets != nullptr) {
            studio = new Studio(OpenStudio(assets));
        }
    }
    static void TearDownTestSuite() {
        delete studio;
        studio = nullptr;
    }
    void SetUp() override {
        if (studio == nullptr) {
            GTEST_SKIP() << "ORVO_FACE_ASSETS does not name the folder of the head assets";
        }
        folder = fs::temp_directory_path() /
                 (std::string("facegen_") +
                  testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::remove_all(folder);
    }
    void TearDown() override { fs::remove_all(folder); }

    Job MakeJob(const char* name) const {
        Job j;
        j.out = folder / name;
        j.people = 3;
        j.pictures = 4;
        j.seed = 42;
        return j;
    }
    // The data of all shards of a folder in a row, without their headers.
    static std::string Data(const fs::path& folder, const std::string& ending) {
        std::vector<fs::path> files;
        for (const auto& entry : fs::directory_iterator(folder)) {
            if (entry.path().string().ends_with(ending)) {
                files.push_back(entry.path());
            }
        }
        std::sort(files.begin(), files.end());
        std::string all;
        for (const fs::path& file : files) {
            const std::string bytes = ReadText(file);
            const std::size_t header =
                static_cast<unsigned char>(bytes[8]) + 256U * static_cast<unsigned char>(bytes[9]);
            all += bytes.substr(10 + header);
        }
        return all;
    }

    static Studio* studio;
    fs::path folder;
};

Studio* Rendering::studio = nullptr;

TEST_F(Rendering, SameSeedGivesTheSameBytesAndAnotherSeedOthers) {
    RenderShards(*studio, MakeJob("one"));
    RenderShards(*studio, MakeJob("two"));
    Job other = MakeJob("three");
    other.seed = 43;
    RenderShards(*studio, other);
    const std::string one = Data(folder / "one", ".pictures.npy");
    EXPECT_EQ(one.size(), 12U * 128U * 128U);
    EXPECT_TRUE(one == Data(folder / "two", ".pictures.npy"));
    EXPECT_FALSE(one == Data(folder / "three", ".pictures.npy"));
}

TEST_F(Rendering, PicturesDependNeitherOnTheShardsNorOnTheThreads) {
    for (const View view : {View::kCrop, View::kFrame}) {
        Job whole = MakeJob(view == View::kCrop ? "whole" : "whole-frames");
        whole.view = view;
        Job split = MakeJob(view == View::kCrop ? "split" : "split-frames");
        split.view = view;
        split.shardSize = 5; // cuts through people
        split.threads = 2;
        RenderShards(*studio, whole);
        RenderShards(*studio, split);
        for (const char* ending : {".pictures.npy", ".labels.npy"}) {
            EXPECT_TRUE(Data(whole.out, ending) == Data(split.out, ending)) << ending;
        }
    }
}

TEST_F(Rendering, APersonIsTheSameWhereverTheNumberingStarts) {
    Job later = MakeJob("later");
    later.firstPerson = 2;
    later.people = 1;
    RenderShards(*studio, MakeJob("all"));
    RenderShards(*studio, later);
    const std::string all = Data(folder / "all", ".pictures.npy");
    EXPECT_TRUE(all.substr(8U * 128U * 128U) == Data(folder / "later", ".pictures.npy"));
}

TEST_F(Rendering, OtherLooksAreTheSameHeadWithOtherHair) {
    Job usual = MakeJob("usual"), looks = MakeJob("looks"), split = MakeJob("split-looks");
    looks.looks = split.looks = 2;
    split.shardSize = 5; // cuts through looks
    split.threads = 2;
    for (const Job& job : {usual, looks, split}) {
        RenderShards(*studio, job);
    }
    const std::string before = Data(usual.out, ".pictures.npy");
    const std::string after = Data(looks.out, ".pictures.npy");
    EXPECT_TRUE(after == Data(split.out, ".pictures.npy"));
    // Three people of four pictures: the first two of each are what they were.
    constexpr std::size_t kPicture = std::size_t{128} * 128;
    for (std::size_t person = 0; person < 3; ++person) {
        const std::size_t start = 4 * person * kPicture;
        EXPECT_TRUE(before.substr(start, 2 * kPicture) == after.substr(start, 2 * kPicture));
    }
    EXPECT_FALSE(before == after);

    int otherHair = 0;
    for (std::uint64_t number = 0; number < 8; ++number) {
        const Person one = MakePerson(*studio, 42, number),
                     other = MakePerson(*studio, 42, number, 1);
        EXPECT_EQ(std::memcmp(one.shape.points.data(), other.shape.points.data(),
                              one.shape.points.size() * sizeof one.shape.points[0]),
                  0);
        otherHair += one.hairdress.styles.front().id != other.hairdress.styles.front().id;
    }
    EXPECT_GE(otherHair, 3);
}

TEST_F(Rendering, ShardsThatAreThereAreLeftAlone) {
    Job split = MakeJob("resumed");
    split.shardSize = 4;
    RenderShards(*studio, split);
    const fs::path kept = split.out / "crops-00000.pictures.npy";
    const std::string before = Data(split.out, ".pictures.npy");
    fs::remove(split.out / "crops-00001.labels.npy"); // as if it had been cut off there
    const auto written = fs::last_write_time(kept);
    RenderShards(*studio, split);
    EXPECT_EQ(fs::last_write_time(kept), written);
    EXPECT_TRUE(fs::exists(split.out / "crops-00001.labels.npy"));
    EXPECT_TRUE(before == Data(split.out, ".pictures.npy"));
}

TEST_F(Rendering, EmptyFramesCarryNoBox) {
    Job empty = MakeJob("empty");
    empty.view = View::kFrame;
    empty.emptyShare = 1.0f;
    RenderShards(*studio, empty);
    const std::string bytes = Data(empty.out, ".labels.npy");
    ASSERT_EQ(bytes.size(), 12 * sizeof(Labels));
    for (std::size_t i = 0; i < 12; ++i) {
        Labels l;
        std::memcpy(&l, bytes.data() + i * sizeof l, sizeof l);
        EXPECT_EQ(l[kLabelBoxSize], 0.0f);
        EXPECT_EQ(l[kLabelPerson], -1.0f);
    }
}

// The true box against the picture: turned off light, the figure in the box is what the labels say.
TEST_F(Rendering, AFaceFillsItsBoxAndTheEmptyPictureDoesNot) {
    const Person person = MakePerson(*studio, 9, 1);
    Photographer photographer(*studio);
    PhotoPlan plan = PlanPhoto(*studio, person, View::kCrop, 0);
    plan.degradation = Degradation{};
    plan.occlusion = Occlusion::kNone;
    plan.yaw = plan.pitch = plan.roll = 0;
    plan.light = Light{};
    std::vector<std::uint8_t> bright(128 * 128), dark(128 * 128);
    plan.light.meanLevel = 0.8f;
    photographer.Take(person, plan, 0, bright.data());
    plan.light.meanLevel = 0.02f;
    photographer.Take(person, plan, 0, dark.data());
    // Only what the light falls on changes: nearly all of the box's middle, none of the corners.
    int changed = 0, corners = 0;
    for (int y = 40; y < 88; ++y) {
        for (int x = 40; x < 88; ++x) {
            const auto i = static_cast<std::size_t>(y * 128 + x);
            changed += bright[i] > dark[i] + 10 ? 1 : 0;
        }
    }
    for (int x = 0; x < 6; ++x) {
        corners +=
            std::abs(bright[static_cast<std::size_t>(x)] - dark[static_cast<std::size_t>(x)]);
    }
    EXPECT_GT(changed, 48 * 48 * 95 / 100);
    EXPECT_EQ(corners, 0);
}

// Plans alone, so that there may be many.
TEST_F(Rendering, CalmPicturesAreOfUprightPeopleInSoftLightWithLittleOn) {
    constexpr int kPlans = 400;
    const Person person = MakePerson(*studio, 9, 1);
    Studio calm = *studio;
    calm.calm = calm.broad = true;
    int soft = 0, bare = 0, glasses = 0, usual = 0;
    for (std::uint64_t i = 0; i < kPlans; ++i) {
        const PhotoPlan plan = PlanPhoto(calm, person, View::kCrop, i);
        EXPECT_LE(std::abs(plan.yaw), 13.0f * 2.6f);
        EXPECT_LE(std::abs(plan.pitch), 8.0f * 2.6f);
        EXPECT_LE(std::abs(plan.roll), 4.0f * 2.5f);
        soft += plan.light.kind == LightKind::kSoft;
        bare += plan.occlusion == Occlusion::kNone;
        glasses += plan.occlusion == Occlusion::kGlasses;
        usual += PlanPhoto(*studio, person, View::kCrop, i).light.kind == LightKind::kSoft;
    }
    EXPECT_GT(soft, 0.55 * kPlans);
    EXPECT_LT(soft, 0.8 * kPlans);
    EXPECT_LT(usual, 0.5 * kPlans);
    EXPECT_GT(bare, 0.65 * kPlans);
    EXPECT_GT(glasses, 0.12 * kPlans);
}

TEST_F(Rendering, LinesDarkenMouthAndEyesAndNothingElse) {
    const Person person = MakePerson(*studio, 9, 1);
    Photographer photographer(*studio);
    PhotoPlan plan = PlainPhoto(PlanPhoto(*studio, person, View::kCrop, 0), 0, 0);
    constexpr int kSide = 128;
    const auto taken = [&] {
        std::vector<std::uint8_t> pixels(kSide * kSide);
        photographer.Take(person, plan, 0, pixels.data());
        return pixels;
    };
    const std::vector<std::uint8_t> before = taken();
    const auto darker = [&](int top, int bottom, int left, int right) {
        const std::vector<std::uint8_t> after = taken();
        double sum = 0;
        for (int y = top; y < bottom; ++y) {
            for (int x = left; x < right; ++x) {
                const auto i = static_cast<std::size_t>(y * kSide + x);
                sum += before[i] - after[i];
            }
        }
        return sum / ((bottom - top) * (right - left));
    };
    plan.mouthLines = 0.8f;
    // The exposure follows the face, so that what is not darkened becomes a little brighter.
    EXPECT_GT(darker(84, 96, 44, 84), 5);
    EXPECT_LT(darker(20, 36, 44, 84), 1);
    plan.mouthLines = 0;
    plan.eyeLines = 0.8f;
    plan.eyeTone = 0.3f;
    EXPECT_GT(darker(44, 56, 40, 88), 5);
    EXPECT_LT(darker(20, 34, 44, 84), 1);
}

TEST_F(Rendering, AGroupAndPortraitsAreTheSameEachTimeAndOfEvenTones) {
    Job group = MakeJob("group.png");
    fs::create_directories(folder);
    RenderGroup(*studio, group);
    const Picture once = ReadPng(group.out);
    RenderGroup(*studio, group);
    EXPECT_EQ(once.pixels, ReadPng(group.out).pixels);
    EXPECT_EQ(once.height, 440);

    Job portraits = MakeJob("portraits");
    RenderPortraits(*studio, portraits);
    for (const auto& entry : fs::recursive_directory_iterator(portraits.out)) {
        if (!entry.is_regular_file()) {
            continue;
        }
        const Picture portrait = ReadPng(entry.path());
        double sum = 0;
        for (int y = 80; y < 176; ++y) {
            for (int x = 80; x < 176; ++x) {
                sum += *portrait.At(x, y);
            }
        }
        const double mean = sum / (96 * 96);
        EXPECT_GT(mean, 60) << entry.path();
        EXPECT_LT(mean, 215) << entry.path();
    }
}

} // namespace
} // namespace facegen
