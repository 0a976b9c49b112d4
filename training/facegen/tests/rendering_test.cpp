// SPDX-License-Identifier: MIT
// What is rendered from the real assets. Their folder comes in the environment, since they are no
// part of the project.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <numeric>

#include "head/asset_files.h"
#include "output/labels.h"
#include "output/shards.h"

namespace facegen {
namespace {

namespace fs = std::filesystem;

class Rendering : public testing::Test {
  protected:
    static void SetUpTestSuite() {
        const char* assets = std::getenv("ORVO_FACE_ASSETS");
        if (assets != nullptr) {
            studio_ = new Studio(open_studio(assets));
        }
    }
    static void TearDownTestSuite() {
        delete studio_;
        studio_ = nullptr;
    }
    void SetUp() override {
        if (studio_ == nullptr) {
            GTEST_SKIP() << "ORVO_FACE_ASSETS does not name the folder of the head assets";
        }
        folder_ = fs::temp_directory_path() /
                  (std::string("facegen_") +
                   testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::remove_all(folder_);
    }
    void TearDown() override { fs::remove_all(folder_); }

    Job job(const char* name) const {
        Job j;
        j.out = folder_ / name;
        j.people = 3;
        j.pictures = 4;
        j.seed = 42;
        return j;
    }
    // The data of all shards of a folder in a row, without their headers.
    static std::string data(const fs::path& folder, const std::string& ending) {
        std::vector<fs::path> files;
        for (const auto& entry : fs::directory_iterator(folder)) {
            if (entry.path().string().ends_with(ending)) {
                files.push_back(entry.path());
            }
        }
        std::sort(files.begin(), files.end());
        std::string all;
        for (const fs::path& file : files) {
            const std::string bytes = read_text(file);
            const std::size_t header =
                static_cast<unsigned char>(bytes[8]) + 256U * static_cast<unsigned char>(bytes[9]);
            all += bytes.substr(10 + header);
        }
        return all;
    }

    static Studio* studio_;
    fs::path folder_;
};

Studio* Rendering::studio_ = nullptr;

TEST_F(Rendering, SameSeedGivesTheSameBytesAndAnotherSeedOthers) {
    render_shards(*studio_, job("one"));
    render_shards(*studio_, job("two"));
    Job other = job("three");
    other.seed = 43;
    render_shards(*studio_, other);
    const std::string one = data(folder_ / "one", ".pictures.npy");
    EXPECT_EQ(one.size(), 12U * 128U * 128U);
    EXPECT_TRUE(one == data(folder_ / "two", ".pictures.npy"));
    EXPECT_FALSE(one == data(folder_ / "three", ".pictures.npy"));
}

TEST_F(Rendering, PicturesDependNeitherOnTheShardsNorOnTheThreads) {
    for (const View view : {View::crop, View::frame}) {
        Job whole = job(view == View::crop ? "whole" : "whole-frames");
        whole.view = view;
        Job split = job(view == View::crop ? "split" : "split-frames");
        split.view = view;
        split.shard_size = 5; // cuts through people
        split.threads = 2;
        render_shards(*studio_, whole);
        render_shards(*studio_, split);
        for (const char* ending : {".pictures.npy", ".labels.npy"}) {
            EXPECT_TRUE(data(whole.out, ending) == data(split.out, ending)) << ending;
        }
    }
}

TEST_F(Rendering, APersonIsTheSameWhereverTheNumberingStarts) {
    Job later = job("later");
    later.first_person = 2;
    later.people = 1;
    render_shards(*studio_, job("all"));
    render_shards(*studio_, later);
    const std::string all = data(folder_ / "all", ".pictures.npy");
    EXPECT_TRUE(all.substr(8U * 128U * 128U) == data(folder_ / "later", ".pictures.npy"));
}

TEST_F(Rendering, ShardsThatAreThereAreLeftAlone) {
    Job split = job("resumed");
    split.shard_size = 4;
    render_shards(*studio_, split);
    const fs::path kept = split.out / "crops-00000.pictures.npy";
    const std::string before = data(split.out, ".pictures.npy");
    fs::remove(split.out / "crops-00001.labels.npy"); // as if it had been cut off there
    const auto written = fs::last_write_time(kept);
    render_shards(*studio_, split);
    EXPECT_EQ(fs::last_write_time(kept), written);
    EXPECT_TRUE(fs::exists(split.out / "crops-00001.labels.npy"));
    EXPECT_TRUE(before == data(split.out, ".pictures.npy"));
}

TEST_F(Rendering, EmptyFramesCarryNoBox) {
    Job empty = job("empty");
    empty.view = View::frame;
    empty.empty_share = 1.0F;
    render_shards(*studio_, empty);
    const std::string bytes = data(empty.out, ".labels.npy");
    ASSERT_EQ(bytes.size(), 12 * sizeof(Labels));
    for (std::size_t i = 0; i < 12; ++i) {
        Labels l;
        std::memcpy(&l, bytes.data() + i * sizeof l, sizeof l);
        EXPECT_EQ(l[label_box_size], 0.0F);
        EXPECT_EQ(l[label_person], -1.0F);
    }
}

// The true box against the picture: turned off light, the figure in the box is what the labels say.
TEST_F(Rendering, AFaceFillsItsBoxAndTheEmptyPictureDoesNot) {
    const Person person = make_person(*studio_, 9, 1);
    Photographer photographer(*studio_);
    PhotoPlan plan = plan_photo(*studio_, person, View::crop, 0);
    plan.degradation = Degradation{};
    plan.occlusion = Occlusion::none;
    plan.yaw = plan.pitch = plan.roll = 0;
    plan.light = Light{};
    std::vector<std::uint8_t> bright(128 * 128), dark(128 * 128);
    plan.light.mean_level = 0.8F;
    photographer.take(person, plan, 0, bright.data());
    plan.light.mean_level = 0.02F;
    photographer.take(person, plan, 0, dark.data());
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

} // namespace
} // namespace facegen
