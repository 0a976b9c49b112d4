// SPDX-License-Identifier: MIT
// People rendered alone, from the real assets; see rendering_test.cpp for where these come from.
#include "output/cutouts.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>

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
