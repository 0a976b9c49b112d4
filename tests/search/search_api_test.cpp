// SPDX-License-Identifier: MIT
// The search of libkova: distances with the bits of OrvoFrGetDistance(), the best of them in order, in one
// piece or in parts.
#include "orvo/orvo_search.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>

#include "orvo/orvo_fr.h"
#include "support/random.h"
#include "support/stderr_capture.h"

namespace {

using orvo_test::Random;
using orvo_test::StderrCapture;
using Matches = std::vector<OrvoSearchMatch>;

constexpr size_t kLength = ORVO_SEARCH_FEATURE_LENGTH;
constexpr size_t kBytes = kLength * sizeof(float);

std::vector<float> Features(Random& random, size_t count) {
    std::vector<float> values(count * kLength);
    for (float& value : values) {
        value = static_cast<float>(random.Between(-1000, 1000)) / 4096.0f;
    }
    return values;
}

float Distance(const std::vector<float>& a, const std::vector<float>& entries, size_t index) {
    return OrvoFrGetDistance(a.data(), kBytes, entries.data() + index * kLength, kBytes);
}

// All entries, the best first.
Matches Sorted(const std::vector<float>& feature, const std::vector<float>& entries) {
    Matches all;
    for (uint32_t i = 0; i < entries.size() / kLength; ++i) {
        const float distance = Distance(feature, entries, i);
        if (!std::isnan(distance)) {
            all.push_back({i, distance});
        }
    }
    std::stable_sort(all.begin(), all.end(),
                     [](const auto& a, const auto& b) { return a.distance > b.distance; });
    return all;
}

void ExpectSame(const Matches& matches, size_t found, const Matches& wanted, size_t room) {
    ASSERT_EQ(found, std::min(wanted.size(), room));
    for (size_t i = 0; i < found; ++i) {
        EXPECT_EQ(matches[i].index, wanted[i].index) << i;
        EXPECT_EQ(matches[i].distance, wanted[i].distance) << i;
    }
}

TEST(Search, DistancesHaveTheBitsOfTheCore) {
    Random random(1);
    const std::vector<float> feature = Features(random, 1);
    for (const size_t count : {0, 1, 7, 256, 257, 600}) {
        std::vector<float> entries = Features(random, count);
        if (count > 3) {
            entries[3 * kLength] = std::numeric_limits<float>::denorm_min();
        }
        std::vector<float> distances(count + 1, 77.0f);
        ASSERT_EQ(OrvoSearchDistances(feature.data(), entries.data(), static_cast<uint32_t>(count),
                                      distances.data()),
                  ORVO_SEARCH_OK);
        for (size_t i = 0; i < count; ++i) {
            const float wanted = Distance(feature, entries, i);
            EXPECT_EQ(std::bit_cast<uint32_t>(distances[i]), std::bit_cast<uint32_t>(wanted)) << i;
        }
        EXPECT_EQ(distances[count], 77.0f);
    }
}

TEST(Search, TheBestComeFirstAndOfEqualOnesTheSmallerIndex) {
    Random random(2);
    const std::vector<float> feature = Features(random, 1);
    std::vector<float> entries = Features(random, 700);
    for (const size_t twin : {5, 300, 699}) { // all three the best
        std::copy(feature.begin(), feature.end(),
                  entries.begin() + static_cast<ptrdiff_t>(twin * kLength));
    }
    entries[9 * kLength] = std::numeric_limits<float>::quiet_NaN();
    const Matches wanted = Sorted(feature, entries);
    ASSERT_EQ(wanted.size(), 699u);
    EXPECT_EQ(wanted[2].index, 699u);
    for (const uint32_t room : {0u, 1u, 2u, 10u, 699u, 800u}) {
        Matches matches(room + 1);
        uint32_t found = 0;
        ASSERT_EQ(
            OrvoSearchBest(feature.data(), entries.data(), 700, 0, matches.data(), room, &found),
            ORVO_SEARCH_OK);
        ExpectSame(matches, found, wanted, room);
        EXPECT_EQ(matches[room].index, 0u); // beyond the room
    }
}

TEST(Search, PartsGiveWhatOnePieceGives) {
    Random random(3);
    const std::vector<float> feature = Features(random, 1);
    const std::vector<float> entries = Features(random, 500);
    const Matches wanted = Sorted(feature, entries);
    constexpr uint32_t kRoom = 8;
    for (const uint32_t cut : {0u, 1u, 3u, 250u, 499u, 500u}) {
        const float* const rest = entries.data() + cut * kLength;
        Matches one(kRoom), other(kRoom);
        uint32_t found = 0, foundOther = 0;
        // One list for both parts, the later one first.
        ASSERT_EQ(OrvoSearchBest(feature.data(), rest, 500 - cut, cut, one.data(), kRoom, &found),
                  0);
        ASSERT_EQ(OrvoSearchBest(feature.data(), entries.data(), cut, 0, one.data(), kRoom, &found),
                  0);
        ExpectSame(one, found, wanted, kRoom);
        // A list for each, put together.
        found = 0;
        ASSERT_EQ(OrvoSearchBest(feature.data(), entries.data(), cut, 0, one.data(), kRoom, &found),
                  0);
        ASSERT_EQ(
            OrvoSearchBest(feature.data(), rest, 500 - cut, cut, other.data(), kRoom, &foundOther),
            0);
        ASSERT_EQ(OrvoSearchMerge(one.data(), kRoom, &found, other.data(), foundOther), 0);
        ExpectSame(one, found, wanted, kRoom);
    }
}

TEST(Search, MergingPutsTheSmallerIndexOfEqualOnesFirstAndNothingChangesNothing) {
    OrvoSearchMatch matches[4] = {{5, 9.0f}, {7, 8.0f}};
    const OrvoSearchMatch others[] = {{3, 8.0f}, {6, 9.0f}, {9, 8.0f}};
    uint32_t found = 2;
    ASSERT_EQ(OrvoSearchMerge(matches, 4, &found, others, 3), ORVO_SEARCH_OK);
    const uint32_t wanted[] = {5, 6, 3, 7};
    ASSERT_EQ(found, 4u);
    for (size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(matches[i].index, wanted[i]) << i;
    }
    ASSERT_EQ(OrvoSearchMerge(matches, 4, &found, nullptr, 0), ORVO_SEARCH_OK);
    EXPECT_EQ(found, 4u);
    EXPECT_EQ(matches[3].index, 7u);
}

TEST(Search, RefusesWhatCannotBe) {
    const std::vector<float> feature(kLength);
    OrvoSearchMatch matches[2] = {{7, 7.0f}, {8, 6.0f}};
    uint32_t found = 2;
    float distance = 77.0f;
    StderrCapture capture;
    const float* const f = feature.data();
    EXPECT_EQ(OrvoSearchDistances(nullptr, f, 1, &distance), ORVO_SEARCH_NULL_ADDRESS);
    EXPECT_EQ(OrvoSearchDistances(f, nullptr, 1, &distance), ORVO_SEARCH_NULL_ADDRESS);
    EXPECT_EQ(OrvoSearchDistances(f, f, 1, nullptr), ORVO_SEARCH_NULL_ADDRESS);
    EXPECT_EQ(OrvoSearchBest(nullptr, f, 1, 0, matches, 2, &found), ORVO_SEARCH_NULL_ADDRESS);
    EXPECT_EQ(OrvoSearchBest(f, nullptr, 1, 0, matches, 2, &found), ORVO_SEARCH_NULL_ADDRESS);
    EXPECT_EQ(OrvoSearchBest(f, f, 1, 0, nullptr, 2, &found), ORVO_SEARCH_NULL_ADDRESS);
    EXPECT_EQ(OrvoSearchBest(f, f, 1, 0, matches, 2, nullptr), ORVO_SEARCH_NULL_ADDRESS);
    EXPECT_EQ(OrvoSearchBest(f, f, 1, 0, matches, 1, &found), ORVO_SEARCH_WRONG_SIZE);
    EXPECT_EQ(OrvoSearchBest(f, f, 2, UINT32_MAX, matches, 2, &found), ORVO_SEARCH_WRONG_SIZE);
    EXPECT_EQ(OrvoSearchMerge(nullptr, 2, &found, matches, 1), ORVO_SEARCH_NULL_ADDRESS);
    EXPECT_EQ(OrvoSearchMerge(matches, 2, &found, nullptr, 1), ORVO_SEARCH_NULL_ADDRESS);
    EXPECT_EQ(OrvoSearchMerge(matches, 1, &found, matches, 1), ORVO_SEARCH_WRONG_SIZE);
    const std::string text = capture.text();
    EXPECT_EQ(std::count(text.begin(), text.end(), '['), 12) << text;
    for (const char* said :
         {"OrvoSearchDistances failed, a required address is null!\n\n",
          "OrvoSearchMerge failed, a required address is null!\n\n",
          "OrvoSearchBest failed. The list holds 2 matches and has room for 1.\n\n",
          "OrvoSearchBest failed. 2 entries from index 4294967295 on.\n\n"}) {
        EXPECT_NE(text.find(said), std::string::npos) << said;
    }
    EXPECT_EQ(found, 2u);
    EXPECT_EQ(matches[0].index, 7u);
    EXPECT_EQ(distance, 77.0f);
    EXPECT_EQ(OrvoSearchBest(f, f, 1, UINT32_MAX, matches, 2, &found), ORVO_SEARCH_OK);
    EXPECT_EQ(OrvoSearchBest(f, nullptr, 0, 0, nullptr, 0, (found = 0, &found)), ORVO_SEARCH_OK);
}

} // namespace
