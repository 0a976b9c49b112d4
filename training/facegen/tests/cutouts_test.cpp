// SPDX-License-Identifier: MIT
// People rendered alone, from the real assets; see rendering_test.cpp for where these come from.
#include "output/cutouts.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <numeric>
#include <vector>

#include "output/labels.h"
#include "output/npy.h"

namespace facegen {
namespace {

namespace fs = std::filesystem;

constexpr int kPeople = 4, kEach = 4;

class Cutouts : public testing::Test {
  protected:
    void SetUp() override {
        const char* assets = std::getenv("ORVO_FACE_ASSETS");
        if (assets == nullptr) {
            GTEST_SKIP() << "ORVO_FACE_ASSETS does not name the folder of the head assets";
        }
        static const Studio opened = OpenStudio(assets);
        studio = &opened;
        folder = fs::temp_directory_path() / "facegen_cutouts";
        fs::remove_all(folder);
    }
    void TearDown() override { fs::remove_all(folder); }

    fs::path Render(const char* name, std::uint64_t shardSize) const {
        Job job;
        job.out = folder / name;
        job.people = kPeople;
        job.pictures = kEach;
        job.seed = 7;
        job.shardSize = shardSize;
        RenderCutouts(*studio, job);
        return job.out;
    }

    const Studio* studio = nullptr;
    fs::path folder;
};

TEST_F(Cutouts, LandmarksLieOnThePersonInTheirOrder) {
    const fs::path out = Render("order", 100);
    const NpyFile pictures = ReadNpy(out / "cutouts-00000.pictures.npy");
    const NpyFile points = ReadNpy(out / "cutouts-00000.points.npy");
    const NpyFile labels = ReadNpy(out / "cutouts-00000.labels.npy");
    ASSERT_EQ(pictures.shape,
              (std::vector<std::size_t>{kPeople * kEach, 2, kCutoutSize, kCutoutSize}));
    ASSERT_EQ(points.shape, (std::vector<std::size_t>{kPeople * kEach, 5, 2}));
    constexpr std::size_t kPlane = std::size_t{kCutoutSize} * kCutoutSize;
    int fromTheFront = 0;
    for (std::size_t i = 0; i < kPeople * kEach; ++i) {
        const float* label = labels.Data<float>() + i * kLabels;
        EXPECT_EQ(label[kLabelBoxSize], kCutoutBox);
        if (std::fabs(label[kLabelYaw]) > 30 || std::fabs(label[kLabelPitch]) > 20) {
            continue;
        }
        ++fromTheFront;
        const float* at = points.Data<float>() + i * 10;
        const auto* cover = pictures.Data<std::uint8_t>() + (2 * i + 1) * kPlane;
        for (int k = 0; k < 5; ++k) {
            const int x = static_cast<int>(at[2 * k]), y = static_cast<int>(at[2 * k + 1]);
            ASSERT_TRUE(x >= 0 && x < kCutoutSize && y >= 0 && y < kCutoutSize);
            EXPECT_EQ(cover[y * kCutoutSize + x], 255) << i << " " << k;
        }
        EXPECT_LT(at[0] + 10, at[2]) << "pupils";
        EXPECT_LT(at[6] + 5, at[8]) << "corners of the mouth";
        EXPECT_LT(at[1], at[7]) << "the mouth below the eyes";
        EXPECT_LT(at[3], at[9]);
    }
    EXPECT_GE(fromTheFront, 3);
}

// A bare head in even light, of 200 pixels.
struct BareHead {
    static constexpr int kSize = 480;
    static constexpr float kBox = 200;
    std::vector<std::uint8_t> tones, cover;
    FacePoints points;

    BareHead(const Studio& studio, std::uint64_t number, float yaw, float gaze)
        : tones(kSize * kSize), cover(kSize * kSize) {
        const Person person = MakePerson(studio, 71, number);
        PhotoPlan plan = PlainPhoto(PlanPhoto(studio, person, View::kFrame, 0), yaw, 0);
        plan.size = kSize;
        plan.box = {140, 125, kBox};
        plan.expression.gazeYaw = gaze;
        Photographer photographer(studio);
        photographer.TakeCutout(person, plan, 0, tones.data(), cover.data());
        points = photographer.PointsOf(person, plan);
    }
    int SumAround(int x, int y) const {
        int sum = 0;
        for (int row = y - 2; row <= y + 2; ++row) {
            const auto first = tones.begin() + row * kSize + x - 2;
            sum = std::accumulate(first, first + 5, sum);
        }
        return sum;
    }
};

Studio Bare(const Studio& studio) {
    Studio bare = studio;
    bare.bare = true;
    return bare;
}

// How far the darkest place about a pupil is from it: of many heads, since some irises are as dark.
TEST_F(Cutouts, PupilsAreTheMiddlesOfDarkIrises) {
    const Studio bare = Bare(*studio);
    std::vector<double> off;
    for (std::uint64_t number = 0; number < 20; ++number) {
        const BareHead head(bare, number, 0, number % 2 == 0 ? 0.0f : 0.2f);
        for (std::size_t k = 0; k < 2; ++k) {
            const float x = head.points.at[2 * k], y = head.points.at[2 * k + 1];
            int least = 25 * 256;
            double away = 0;
            for (int row = static_cast<int>(y) - 10; row <= static_cast<int>(y) + 10; ++row) {
                for (int column = static_cast<int>(x) - 10; column <= static_cast<int>(x) + 10;
                     ++column) {
                    const int sum = head.SumAround(column, row);
                    if (sum < least) {
                        least = sum;
                        away = std::hypot(column + 0.5 - static_cast<double>(x),
                                          row + 0.5 - static_cast<double>(y));
                    }
                }
            }
            off.push_back(away);
        }
    }
    std::sort(off.begin(), off.end());
    EXPECT_LT(off[off.size() / 2], 1.8); // the pupils are 75 pixels apart
}

// From the side it is the furthest point of the outline between eyes and mouth.
TEST_F(Cutouts, TheTipOfTheNoseStandsOutFurthest) {
    const Studio bare = Bare(*studio);
    std::vector<double> beyond, off;
    for (std::uint64_t number = 0; number < 20; ++number) {
        const BareHead head(bare, number, 90, 0);
        const auto& at = head.points.at;
        const int side = at[4] > at[0] ? 1 : -1; // where the face looks
        const auto outline = [&](int row) {
            int x = side > 0 ? BareHead::kSize - 1 : 0;
            while (head.cover[static_cast<std::size_t>(row * BareHead::kSize + x)] < 128) {
                x -= side;
            }
            return side * x;
        };
        const int eyes = static_cast<int>(at[1]), mouth = static_cast<int>(at[7]);
        int furthest = eyes + (mouth - eyes) / 4;
        for (int row = furthest; row < mouth - (mouth - eyes) / 6; ++row) {
            furthest = outline(row) > outline(furthest) ? row : furthest;
        }
        beyond.push_back(outline(furthest) - side * static_cast<double>(at[4]));
        off.push_back(std::abs(furthest + 0.5 - static_cast<double>(at[5])));
    }
    std::sort(beyond.begin(), beyond.end());
    std::sort(off.begin(), off.end());
    EXPECT_LT(beyond.back(), 2);
    EXPECT_LT(off.back(), 6); // the outline is flat there
    EXPECT_LT(off[off.size() / 2], 2.2);
}

TEST_F(Cutouts, SizeOfShardsDoesNotMatter) {
    const fs::path whole = Render("whole", 100), parts = Render("parts", 6);
    const NpyFile all = ReadNpy(whole / "cutouts-00000.pictures.npy");
    const NpyFile second = ReadNpy(parts / "cutouts-00001.pictures.npy");
    ASSERT_EQ(second.shape[0], 6u);
    ASSERT_EQ(all.bytes.size() / (kPeople * kEach) * 6, second.bytes.size());
    EXPECT_TRUE(std::equal(second.bytes.begin(), second.bytes.end(),
                           all.bytes.begin() + static_cast<std::ptrdiff_t>(second.bytes.size())));
}

TEST_F(Cutouts, NothingIsThereAroundThePerson) {
    const NpyFile pictures = ReadNpy(Render("around", 100) / "cutouts-00000.pictures.npy");
    constexpr std::size_t kPlane = std::size_t{kCutoutSize} * kCutoutSize;
    for (std::size_t i = 0; i < kPeople * kEach; ++i) {
        const auto* cover = pictures.Data<std::uint8_t>() + (2 * i + 1) * kPlane;
        EXPECT_EQ(cover[0], 0);
        EXPECT_EQ(cover[kCutoutSize - 1], 0);
        EXPECT_GT(std::count(cover, cover + kPlane, 255), static_cast<long>(kPlane / 8));
    }
}

} // namespace
} // namespace facegen
