// SPDX-License-Identifier: MIT
// Each reason on a picture that has it, and on one that has not: rendered portraits, and what happens to
// one of them before a camera.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "orvo/orvo_find.h"
#include "support/greymap.h"

namespace {

struct Picture {
    int width, height;
    std::vector<uint8_t> pixels;
    int at(int x, int y) const {
        return pixels[static_cast<size_t>(std::clamp(y, 0, height - 1) * width +
                                          std::clamp(x, 0, width - 1))];
    }
};

Picture ReadFace(const std::string& name) {
    orvo_test::Greymap map = orvo_test::ReadGreymap(ORVO_FIND_PICTURES "/" + name);
    EXPECT_FALSE(map.pixels.empty()) << name;
    return {map.width, map.height, std::move(map.pixels)};
}

template <typename Level>
Picture Made(int width, int height, Level level) {
    Picture picture{width, height, {}};
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            picture.pixels.push_back(static_cast<uint8_t>(std::clamp(level(x, y), 0, 255)));
        }
    }
    return picture;
}

// The mean of (2 * reach + 1)^2 pixels, three times: as a lens out of focus.
Picture Blurred(Picture picture, int reach) {
    for (int time = 0; time < 3; ++time) {
        const Picture before = picture;
        picture = Made(before.width, before.height, [&](int x, int y) {
            int sum = 0;
            for (int dy = -reach; dy <= reach; ++dy) {
                for (int dx = -reach; dx <= reach; ++dx) {
                    sum += before.at(x + dx, y + dy);
                }
            }
            return sum / ((2 * reach + 1) * (2 * reach + 1));
        });
    }
    return picture;
}

// Every pixel is the mean of times x times.
Picture Reduced(const Picture& before, int times) {
    return Made(before.width / times, before.height / times, [&](int x, int y) {
        int sum = 0;
        for (int i = 0; i < times * times; ++i) {
            sum += before.at(x * times + i % times, y * times + i / times);
        }
        return sum / (times * times);
    });
}

Picture Lit(const Picture& before, double gain) {
    return Made(before.width, before.height, [&](int x, int y) {
        return static_cast<int>(std::lround(std::min(255.0, gain * before.at(x, y))));
    });
}

Picture WithoutColumns(const Picture& before, int count) {
    return Made(before.width - count, before.height,
                [&](int x, int y) { return before.at(x + count, y); });
}

class Reasons : public testing::Test {
  protected:
    static void SetUpTestSuite() { ASSERT_EQ(OrvoFindInit(), ORVO_FIND_OK); }

    // The best face of a picture that has one.
    OrvoFindFace FaceIn(const Picture& picture) {
        memory_.resize(OrvoFindGetMemorySize(picture.width, picture.height, ORVO_FIND_SMALLEST));
        EXPECT_EQ(OrvoFindSetMemory(memory_.data(), static_cast<uint32_t>(memory_.size())),
                  ORVO_FIND_OK);
        const OrvoFindPicture given = {picture.pixels.data(), picture.width, picture.height,
                                       picture.width};
        OrvoFindFace face{};
        int32_t count = 0;
        EXPECT_EQ(OrvoFindRun(&given, ORVO_FIND_SMALLEST, &face, 1, &count), ORVO_FIND_OK);
        EXPECT_EQ(count, 1);
        return face;
    }

    // The picture has a face with this reason, and good ones have not.
    void ExpectReason(const Picture& picture, uint32_t reason) {
        const OrvoFindFace face = FaceIn(picture);
        const OrvoFindFace good = FaceIn(good_);
        EXPECT_TRUE(face.reasons & reason) << face.reasons << ", quality " << face.quality;
        EXPECT_FALSE(good.reasons & reason) << good.reasons;
        EXPECT_LT(face.quality, good.quality);
    }

    const Picture good_ = ReadFace("good.pgm");

  private:
    std::vector<uint8_t> memory_;
};

TEST_F(Reasons, GoodFaceHasNone) {
    const OrvoFindFace face = FaceIn(good_);
    EXPECT_EQ(face.reasons, 0u);
    EXPECT_GE(face.quality, 90);
}

TEST_F(Reasons, Small) { ExpectReason(Reduced(good_, 4), ORVO_FIND_SMALL); }
TEST_F(Reasons, Blurred) { ExpectReason(Blurred(good_, 2), ORVO_FIND_BLURRED); }
TEST_F(Reasons, Dark) { ExpectReason(Lit(good_, 0.15), ORVO_FIND_DARK); }
TEST_F(Reasons, Overexposed) { ExpectReason(Lit(good_, 3), ORVO_FIND_OVEREXPOSED); }
TEST_F(Reasons, CutOff) { ExpectReason(WithoutColumns(good_, 60), ORVO_FIND_CUT_OFF); }
TEST_F(Reasons, Turned) { ExpectReason(ReadFace("turned.pgm"), ORVO_FIND_TURNED); }
TEST_F(Reasons, Tilted) { ExpectReason(ReadFace("tilted.pgm"), ORVO_FIND_TILTED); }
TEST_F(Reasons, Covered) { ExpectReason(ReadFace("covered.pgm"), ORVO_FIND_COVERED); }
TEST_F(Reasons, Grimacing) { ExpectReason(ReadFace("grimacing.pgm"), ORVO_FIND_GRIMACING); }

// A flaw that takes all quality makes a face one to be refused.
TEST_F(Reasons, BadFacesAreBelowTheLimit) {
    EXPECT_GE(FaceIn(good_).quality, ORVO_FIND_GOOD);
    EXPECT_LT(FaceIn(Blurred(good_, 3)).quality, ORVO_FIND_GOOD);
    EXPECT_LT(FaceIn(Lit(good_, 0.08)).quality, ORVO_FIND_GOOD);
    EXPECT_LT(FaceIn(Lit(good_, 4)).quality, ORVO_FIND_GOOD);
}

} // namespace
