// SPDX-License-Identifier: MIT
// OrvoFindRun() as a whole against the plain definition of every step, with a random network, which
// finds many faces everywhere. And the model as it is opened.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <initializer_list>
#include <span>
#include <vector>

#include "find/plain_picture.h"
#include "find/seeded_model.h"
#include "find/settings.h"
#include "orvo/orvo_find.h"
#include "reference/reference_find_faces.h"
#include "support/random.h"

namespace {

using orvo_reference::Grey;
using orvo_reference::Model;
using orvo_reference::PlainBox;
using orvo_reference::PlainFace;
using orvo_test::GuardedBuffer;
using orvo_test::GuardedPicture;
using orvo_test::Random;

void ExpectSame(const OrvoFindFace& face, const PlainFace& expected) {
    const PlainBox box = orvo_reference::PlainRecord(expected);
    EXPECT_EQ(face.left, box.left);
    EXPECT_EQ(face.top, box.top);
    EXPECT_EQ(face.side, box.side);
    EXPECT_EQ(face.score, expected.probability / 1024.0);
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(face.points[i].x, box.points[2 * i]);
        EXPECT_EQ(face.points[i].y, box.points[2 * i + 1]);
    }
    EXPECT_EQ(face.yaw, static_cast<double>(expected.yaw) * 0.75);
    EXPECT_NEAR(face.roll, orvo_reference::PlainRoll(box), 1e-3);
    EXPECT_EQ(face.covered, static_cast<float>(expected.covered + 128) / 255.0f);
}

void ExpectQuality(const OrvoFindPicture& picture, const OrvoFindFace& face,
                   const PlainFace& plain) {
    uint8_t crop[96 * 96];
    ASSERT_EQ(OrvoFindUpright(&picture, &face, crop), ORVO_FIND_OK);
    const auto quality = orvo_reference::PlainJudge(
        orvo_reference::PlainMeasure(plain, picture.width, picture.height, crop),
        plain.probability);
    EXPECT_EQ(face.quality, quality.value);
    EXPECT_EQ(face.reasons, quality.reasons);
}

// Emulators take a minute and more for all of them.
#if defined(__x86_64__)
constexpr int kPictures = 14;
constexpr int kFewestFaces = 41;
#else
constexpr int kPictures = 4;
constexpr int kFewestFaces = 13;
#endif

TEST(WholeRun, IsTheReferencesOnPicturesOfEverySize) {
    ASSERT_EQ(OrvoFindInit(), ORVO_FIND_OK);
    const Model model = orvo_reference::SeededFindModel();
    orvo_test::Install(model);
    Random random(33);
    int faces = 0;
    for (int i = 0; i < kPictures; ++i) {
        const int width = random.Between(24, 150);
        const Grey grey = orvo_reference::SeededGrey(i % 2, width, random.Between(24, 110));
        const int32_t smallest = random.Between(1, 50);
        const GuardedPicture picture(grey, grey.width + random.Between(0, 40));
        const uint32_t size = OrvoFindGetMemorySize(grey.width, grey.height, smallest);
        GuardedBuffer memory(size);
        ASSERT_EQ(OrvoFindSetMemory(memory.bytes(), size), ORVO_FIND_OK);
        const std::vector<PlainFace> expected = orvo_reference::PlainFind(model, grey, smallest);
        const auto room = static_cast<int32_t>(expected.size()) + 1;
        std::vector<OrvoFindFace> found(static_cast<size_t>(room));
        int32_t count = -1;
        ASSERT_EQ(OrvoFindRun(picture.get(), smallest, found.data(), room, &count), ORVO_FIND_OK);
        ASSERT_EQ(count, room - 1) << grey.width << " x " << grey.height << ", " << smallest;
        for (size_t n = 0; n < expected.size(); ++n) {
            ExpectSame(found[n], expected[n]);
            ExpectQuality(*picture, found[n], expected[n]);
        }
        // With less room the best of them.
        std::vector<OrvoFindFace> few(static_cast<size_t>(room));
        ASSERT_EQ(OrvoFindRun(picture.get(), smallest, few.data(), room / 2, &count), ORVO_FIND_OK);
        EXPECT_EQ(count, room / 2);
        EXPECT_EQ(std::memcmp(few.data(), found.data(),
                              static_cast<size_t>(count) * sizeof(OrvoFindFace)),
                  0);
        faces += room - 1;
    }
    EXPECT_GE(faces, kFewestFaces);
}

// The library's faces, which are the reference's.
std::vector<PlainFace> FacesOf(const Model& model, const Grey& grey) {
    const GuardedPicture picture(grey, grey.width);
    const uint32_t size = OrvoFindGetMemorySize(grey.width, grey.height, 20);
    GuardedBuffer memory(size);
    EXPECT_EQ(OrvoFindSetMemory(memory.bytes(), size), ORVO_FIND_OK);
    const std::vector<PlainFace> expected = orvo_reference::PlainFind(model, grey, 20);
    std::vector<OrvoFindFace> found(expected.size());
    int32_t count = -1;
    EXPECT_EQ(
        OrvoFindRun(picture.get(), 20, found.data(), static_cast<int32_t>(found.size()), &count),
        ORVO_FIND_OK);
    EXPECT_EQ(static_cast<size_t>(count), expected.size());
    for (size_t n = 0; n < expected.size(); ++n) {
        ExpectSame(found[n], expected[n]);
    }
    return expected;
}

// Faces that both close looks leave where they were, that one alone moves, and that both do.
struct Counts {
    int stayed, movedOnce, moved;
};

Counts LookedAtClosely(const Model& model) {
    Counts counts{};
    orvo_test::Install(model);
    for (const int side : {44, 72}) {
        const Grey grey = orvo_reference::SeededGrey(0, side, side);
        const std::vector<PlainFace> before = orvo_reference::PlainFromAround(model, grey, 20);
        const std::vector<PlainFace> expected = FacesOf(model, grey);
        for (size_t n = 0; n < expected.size(); ++n) {
            const auto first = PlainSeenClosely(model, grey, before[n], false);
            const bool isTwice = first && PlainSeenClosely(model, grey, *first, true);
            (isTwice ? counts.moved : first ? counts.movedOnce : counts.stayed) += 1;
            const bool isThere = expected[n].x == before[n].x && expected[n].y == before[n].y &&
                                 expected[n].side == before[n].side;
            EXPECT_EQ(isThere, !first);
        }
    }
    return counts;
}

enum Side { kLeast = -1, kMiddle, kMost };

// What some of a layer's answers are, whatever it sees: an end of their range or zero.
void Answer(Model& model, int layer, std::initializer_list<size_t> numbers, Side side) {
    orvo_reference::LayerParameters& p = model.at(layer);
    const auto inputs = static_cast<ptrdiff_t>(p.weights.size() / p.bias.size());
    for (const size_t number : numbers) {
        std::fill_n(p.weights.begin() + static_cast<ptrdiff_t>(number) * inputs, inputs, int8_t{0});
        p.bias[number] = side * (1 << 24);
    }
}

// The points lie at the corners of a wide look, and a close one moves every box by half its side along
// both of the look's axes, and so some out of the picture; that of the mirror image to the other side.
TEST(WholeRun, AFaceStaysWhereItWasIfACloseLookWouldPutItOutside) {
    ASSERT_EQ(OrvoFindInit(), ORVO_FIND_OK);
    Model model = orvo_reference::SeededFindModel();
    Answer(model, 59, {1, 2, 3}, kMiddle);
    Answer(model, 59, {4, 5, 7, 10}, kLeast);
    Answer(model, 59, {6, 11, 12, 13}, kMost);
    Answer(model, 92, {1, 2}, kMost);
    const Counts counts = LookedAtClosely(model);
    EXPECT_GT(counts.stayed, 0);
    EXPECT_GT(counts.movedOnce, 0);
}

// All points lie far to the right in a wide look.
TEST(WholeRun, AFaceStaysWhereItWasIfTheBoxOfItsPointsCannotBeLookedAt) {
    ASSERT_EQ(OrvoFindInit(), ORVO_FIND_OK);
    Model model = orvo_reference::SeededFindModel();
    Answer(model, 59, {1, 2, 3}, kMiddle);
    Answer(model, 50, {5, 6, 7, 8, 9}, kMost);
    Answer(model, 59, {4, 6, 8, 10, 12}, kMost);
    const Counts counts = LookedAtClosely(model);
    EXPECT_GT(counts.stayed, 0);
    EXPECT_GT(counts.moved, 0);
}

// What stride 8 finds has that score everywhere, and looks say that nothing is a face: none is left of
// those that were looked at.
size_t FacesFoundWith(int score) {
    Model model = orvo_reference::SeededFindModel();
    Answer(model, 15, {0}, kMiddle);
    model.at(15).bias[0] = score << 8;
    Answer(model, 26, {0}, kLeast);
    Answer(model, 59, {0}, kLeast);
    orvo_test::Install(model);
    return FacesOf(model, orvo_reference::SeededGrey(0, 44, 44)).size();
}

TEST(WholeRun, OnlyAFaceThatIsNotSureNeedsALookAroundIt) {
    ASSERT_EQ(OrvoFindInit(), ORVO_FIND_OK);
    EXPECT_EQ(FacesFoundWith(orvo::find::kSureWhenFound - 1), size_t{0});
    EXPECT_GT(FacesFoundWith(orvo::find::kSureWhenFound), size_t{0});
}

bool IsZero(std::span<const uint8_t> bytes) {
    return std::ranges::all_of(bytes, [](uint8_t byte) { return byte == 0; });
}

TEST(FindStore, IsEncipheredAtLoadAndItsKeysAreWipedOnceItIsOpen) {
    using namespace orvo::find;
    std::vector<std::vector<uint8_t>> stored;
    for (const ModelArray& array : g_findArray) {
        const auto* bytes = static_cast<const uint8_t*>(array.data);
        stored.emplace_back(bytes, bytes + array.size);
    }
    EXPECT_FALSE(IsZero(g_findWb));
    ASSERT_EQ(OrvoFindInit(), ORVO_FIND_OK);
    EXPECT_TRUE(IsZero(g_findWb));
    EXPECT_TRUE(IsZero(g_findWbIv));
    EXPECT_TRUE(IsZero(g_findAesIv));
    for (size_t i = 0; i < stored.size(); ++i) {
        EXPECT_NE(std::memcmp(g_findArray[i].data, stored[i].data(), stored[i].size()), 0)
            << g_findArray[i].name;
    }
}

} // namespace
