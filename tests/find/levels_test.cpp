// SPDX-License-Identifier: MIT
// From a picture to what the network starts from.
#include "find/levels.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "find/patches.h"
#include "find/picture_rows.h"
#include "find/plain_picture.h"
#include "reference/reference_find_faces.h"
#include "support/random.h"

namespace {

using orvo::find::FirstLevel;
using orvo::find::ForEachLevel;
using orvo::find::LevelRow;
using orvo::find::MakePatches;
using orvo::find::PatchRoomBytes;
using orvo::find::RowRoomBytes;
using orvo::find::Size;
using orvo_reference::Grey;
using orvo_test::GuardedBuffer;
using orvo_test::GuardedPicture;
using orvo_test::Random;

std::vector<int> Levels(int width, int height, int smallest) {
    std::vector<int> levels;
    ForEachLevel({width, height}, FirstLevel({width, height}, smallest),
                 [&](int32_t level, Size size) {
                     EXPECT_EQ(size.width, width >> level);
                     EXPECT_EQ(size.height, height >> level);
                     levels.push_back(level);
                 });
    return levels;
}

TEST(FindLevels, AreThoseOfSomePictures) {
    EXPECT_EQ(Levels(320, 240, 20), (std::vector<int>{0, 2}));
    EXPECT_EQ(Levels(256, 256, 23), (std::vector<int>{0, 2}));
    EXPECT_EQ(Levels(92, 112, 20), (std::vector<int>{0, 2}));
    EXPECT_EQ(Levels(1600, 1200, 72), (std::vector<int>{2, 4, 6}));
    EXPECT_EQ(Levels(320, 240, 36), (std::vector<int>{1, 3}));
    EXPECT_EQ(Levels(24, 24, 1000000), (std::vector<int>{0}));
    EXPECT_EQ(Levels(8192, 24, 20), (std::vector<int>{0}));
}

TEST(FindLevels, AreTheReferencesForEverySizeAndSmallestFace) {
    Random random(1);
    for (int i = 0; i < 20000; ++i) {
        const int width = random.Between(24, i % 2 == 0 ? 200 : 8192);
        const int height = random.Between(24, i % 3 == 0 ? 200 : 8192);
        const int smallest = random.Between(1, 1 << random.Between(1, 30));
        ASSERT_EQ(Levels(width, height, smallest),
                  orvo_reference::FindLevels(width, height, smallest))
            << width << " x " << height << ", " << smallest;
    }
}

TEST(LevelRow, IsTheRowOfTheHalvedPicture) {
    Random random(2);
    for (int i = 0; i < 300; ++i) {
        const Grey grey =
            orvo_reference::SeededGrey(1, random.Between(24, 90), random.Between(24, 90));
        const GuardedPicture picture(grey, grey.width + random.Between(0, 9),
                                     i % 2 == 0 ? GuardedBuffer::kAtEnd : GuardedBuffer::kAtStart);
        GuardedBuffer room(RowRoomBytes(grey.width));
        const int level = random.Between(0, 4);
        const Grey half = orvo_reference::HalvedTimes(grey, level);
        const int y = random.Between(0, half.height - 1);
        const int first = random.Between(0, half.width - 1);
        const int count = i % 3 == 0 ? half.width - first : random.Between(1, half.width - first);
        const uint8_t* row = LevelRow(*picture, level, y, first, count, room.bytes());
        for (int x = 0; x < count; ++x) {
            ASSERT_EQ(row[x], half.at(first + x, y)) << i << ": " << x;
        }
    }
}

TEST(Patches, AreThoseOfThePaddedLevel) {
    Random random(3);
    for (int i = 0; i < 200; ++i) {
        const Grey grey =
            orvo_reference::SeededGrey(1, random.Between(24, 150), random.Between(24, 150));
        const GuardedPicture picture(grey, grey.width + random.Between(0, 9));
        const int level = random.Between(0, 1);
        const std::vector<uint8_t> expected = orvo_reference::PatchesOf(
            orvo_reference::PaddedGrey(orvo_reference::HalvedTimes(grey, level)), 4);
        GuardedBuffer room(PatchRoomBytes(grey.width));
        GuardedBuffer patches(expected.size());
        MakePatches(*picture, level, room.bytes(), patches.bytes());
        ASSERT_TRUE(std::equal(expected.begin(), expected.end(), patches.bytes()))
            << grey.width << " x " << grey.height << ", level " << level;
    }
}

} // namespace
