// SPDX-License-Identifier: MIT
// The contract of orvo_find.h, through the library as an application has it.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "find/plain_picture.h"
#include "orvo/cipher.h"
#include "orvo/orvo_find.h"
#include "orvo/orvo_fr.h"
#include "reference/reference_find_faces.h"
#include "support/error_line.h"
#include "support/greymap.h"
#include "support/guarded_buffer.h"
#include "support/random.h"
#include "support/stderr_capture.h"

namespace {

using orvo_reference::Grey;
using orvo_test::GuardedBuffer;
using orvo_test::GuardedPicture;
using orvo_test::IsErrorLine;
using orvo_test::Random;
using orvo_test::StderrCapture;

constexpr char kUnit[] = "../find/find_api";
constexpr int32_t kSmallest = 20;

using FeatureFunction = decltype(OrvoFindFeatures);
const struct {
    std::string name;
    FeatureFunction* function;
} kFeatureFunctions[] = {{"OrvoFindFeatures", OrvoFindFeatures},
                         {"OrvoFindMirroredFeatures", OrvoFindMirroredFeatures}};

void ExpectSays(const std::string& line, const std::function<void()>& call) {
    StderrCapture errors;
    call();
    EXPECT_TRUE(IsErrorLine(errors.text(), kUnit, line)) << errors.text();
}

// Records and features that nobody has written to, and a count.
struct Results {
    std::vector<OrvoFindFace> faces;
    std::vector<float> features;
    int32_t count = -77;

    // One more than there is said to be room for, which nobody may write to either.
    explicit Results(size_t room = 4) : faces(room + 1), features(128 * (room + 1)) {
        std::memset(static_cast<void*>(faces.data()), 0x5A, faces.size() * sizeof faces[0]);
        std::memset(features.data(), 0x5A, features.size() * sizeof features[0]);
    }
    bool untouched() const {
        const Results fresh(faces.size() - 1);
        return count == -77 &&
               std::memcmp(faces.data(), fresh.faces.data(), faces.size() * sizeof faces[0]) == 0 &&
               std::memcmp(features.data(), fresh.features.data(),
                           features.size() * sizeof features[0]) == 0;
    }
};

class FindApi : public testing::Test {
  protected:
    void SetUpEverything() {
        ASSERT_EQ(OrvoFindInit(), ORVO_FIND_OK);
        ASSERT_EQ(OrvoFrInit(), ORVO_FR_OK);
        ASSERT_EQ(OrvoFrSetMemory(core_.data(), OrvoFrGetMemorySize()), ORVO_FR_OK);
        ASSERT_EQ(OrvoFindSetMemory(memory_.bytes(), kSize), ORVO_FIND_OK);
    }

    // All three calls refuse, say why in one line, and write nothing.
    void ExpectRefused(const OrvoFindPicture* picture, int32_t smallest, int32_t room,
                       int32_t status, const std::string& message) {
        Results results;
        {
            StderrCapture errors;
            EXPECT_EQ(OrvoFindRun(picture, smallest, results.faces.data(), room, &results.count),
                      status);
            EXPECT_TRUE(IsErrorLine(errors.text(), kUnit, "OrvoFindRun failed. " + message + "\n"))
                << errors.text();
        }
        for (const auto& [name, function] : kFeatureFunctions) {
            StderrCapture errors;
            EXPECT_EQ(function(picture, smallest, results.faces.data(), results.features.data(),
                               room, &results.count),
                      status);
            EXPECT_TRUE(IsErrorLine(errors.text(), kUnit, name + " failed. " + message + "\n"))
                << errors.text();
        }
        EXPECT_TRUE(results.untouched());
    }

    const Grey grey_ = orvo_reference::SeededGrey(1, 100, 80);
    const OrvoFindPicture picture_{grey_.pixels.data(), 100, 80, 100};
    const uint32_t kSize = OrvoFindGetMemorySize(100, 80, kSmallest);
    GuardedBuffer memory_{OrvoFindGetMemorySize(100, 80, kSmallest)};
    std::vector<uint8_t> core_ = std::vector<uint8_t>(OrvoFrGetMemorySize());
};

// ---- Memory

TEST_F(FindApi, MemorySizeIsStatedForEveryPictureInRange) {
    // What a camera's developer plans with.
    EXPECT_LE(OrvoFindGetMemorySize(320, 240, 20), 560000u);
    EXPECT_LE(OrvoFindGetMemorySize(1280, 1280, 20), 10200000u);
    for (const auto& [width, height, smallest] : {std::tuple(24, 24, 1),
                                                  {1280, 24, 200},
                                                  {24, 1280, 200},
                                                  {8192, 8192, 150},
                                                  {1280, 1280, 1},
                                                  {1280, 720, INT32_MAX}}) {
        EXPECT_GT(OrvoFindGetMemorySize(width, height, smallest), 0u) << width << " x " << height;
    }
    for (const auto& [width, height, smallest] : {std::tuple(23, 100, 20),
                                                  {100, 23, 20},
                                                  {8193, 100, 200},
                                                  {100, 8193, 200},
                                                  {-100, 100, 20},
                                                  {100, INT32_MIN, 20},
                                                  {INT32_MAX, INT32_MAX, INT32_MAX},
                                                  {100, 100, 0},
                                                  {100, 100, -5},
                                                  {100, 100, INT32_MIN},
                                                  {1281, 100, 23},
                                                  {100, 1281, 23},
                                                  {8192, 24, 20},
                                                  {8192, 24, 200}}) {
        EXPECT_EQ(OrvoFindGetMemorySize(width, height, smallest), 0u) << width << " x " << height;
    }
    // Half of the picture is looked at from 36 pixels on.
    EXPECT_GT(OrvoFindGetMemorySize(2560, 2561, 36), 0u);
    EXPECT_EQ(OrvoFindGetMemorySize(2560, 2562, 36), 0u);
}

TEST_F(FindApi, MemoryIsRefusedWhereThereIsNone) {
    uint8_t byte = 0;
    ExpectSays("OrvoFindSetMemory failed. Input addr is null!\n",
               [] { EXPECT_EQ(OrvoFindSetMemory(nullptr, 100000), ORVO_FIND_NULL_ADDRESS); });
    ExpectSays("OrvoFindSetMemory failed. Set memory size error: 0\n",
               [&] { EXPECT_EQ(OrvoFindSetMemory(&byte, 0), ORVO_FIND_WRONG_SIZE); });
}

TEST_F(FindApi, MemoryThatIsTooSmallIsRefusedAndUntouched) {
    SetUpEverything();
    GuardedBuffer small(kSize - 1);
    ASSERT_EQ(OrvoFindSetMemory(small.bytes(), kSize - 1), ORVO_FIND_OK);
    ExpectRefused(&picture_, kSmallest, 4, ORVO_FIND_WRONG_SIZE,
                  "Working memory size error: " + std::to_string(kSize - 1) +
                      ", expect at least: " + std::to_string(kSize));
    for (size_t i = 0; i < small.size(); ++i) {
        ASSERT_EQ(small.bytes()[i], 0xA5);
    }
    uint8_t crop[96 * 96];
    std::memset(crop, 0x5A, sizeof crop);
    const OrvoFindFace face = {10, 10, 50, 1, {}, 0, 0, 0, 0, 0};
    uint8_t byte[100];
    ASSERT_EQ(OrvoFindSetMemory(byte, sizeof byte), ORVO_FIND_OK);
    StderrCapture errors;
    EXPECT_EQ(OrvoFindUpright(&picture_, &face, crop), ORVO_FIND_WRONG_SIZE);
    for (const uint8_t level : crop) {
        ASSERT_EQ(level, 0x5A);
    }
}

// Every byte of the memory at every alignment, between pages that nobody may touch.
TEST_F(FindApi, MemoryMayLieAnywhere) {
    SetUpEverything();
    Results first(20);
    ASSERT_EQ(OrvoFindRun(&picture_, kSmallest, first.faces.data(), 20, &first.count), 0);
    for (size_t offset = 1; offset < 17; ++offset) {
        GuardedBuffer bytes(kSize + offset,
                            offset % 2 == 0 ? GuardedBuffer::kAtEnd : GuardedBuffer::kAtStart);
        ASSERT_EQ(OrvoFindSetMemory(bytes.bytes() + offset, kSize), ORVO_FIND_OK);
        Results results(20);
        ASSERT_EQ(OrvoFindRun(&picture_, kSmallest, results.faces.data(), 20, &results.count), 0);
        EXPECT_EQ(results.count, first.count);
        EXPECT_EQ(std::memcmp(results.faces.data(), first.faces.data(), 20 * sizeof(OrvoFindFace)),
                  0);
        EXPECT_EQ(bytes.bytes()[0], 0xA5);
    }
}

TEST_F(FindApi, UprightNeedsNoMoreMemoryThanARun) {
    ASSERT_EQ(OrvoFindSetMemory(memory_.bytes(), kSize), ORVO_FIND_OK);
    uint8_t crop[96 * 96];
    const OrvoFindFace face = {10, 10, 50, 1, {}, 0, 0, 0, 0, 0};
    EXPECT_EQ(OrvoFindUpright(&picture_, &face, crop), ORVO_FIND_OK);
    // The least that any smallest face asks for.
    const uint32_t least = OrvoFindGetMemorySize(100, 80, 1 << 20);
    GuardedBuffer small(least);
    ASSERT_EQ(OrvoFindSetMemory(small.bytes(), least), ORVO_FIND_OK);
    EXPECT_EQ(OrvoFindUpright(&picture_, &face, crop), ORVO_FIND_OK);
}

// ---- Opening

TEST_F(FindApi, InitOpensTheModelOnce) {
    ASSERT_EQ(OrvoFindInit(), ORVO_FIND_OK);
    StderrCapture errors;
    EXPECT_EQ(OrvoFindInit(), ORVO_FIND_REPEAT_INIT);
    EXPECT_TRUE(IsErrorLine(errors.text(), kUnit, "Repeat init.\n"));
}

TEST_F(FindApi, WithoutInitNothingIsFound) {
    ASSERT_EQ(OrvoFindSetMemory(memory_.bytes(), kSize), ORVO_FIND_OK);
    ExpectRefused(&picture_, kSmallest, 4, ORVO_FIND_NOT_DECRYPTED,
                  "OrvoFindInit has not succeeded");
}

TEST_F(FindApi, WithoutMemoryNothingIsFound) {
    ASSERT_EQ(OrvoFindInit(), ORVO_FIND_OK);
    ExpectRefused(&picture_, kSmallest, 4, ORVO_FIND_NULL_ADDRESS, "No working memory was set!");
    uint8_t crop[96 * 96];
    const OrvoFindFace face = {10, 10, 50, 1, {}, 0, 0, 0, 0, 0};
    StderrCapture errors;
    EXPECT_EQ(OrvoFindUpright(&picture_, &face, crop), ORVO_FIND_NULL_ADDRESS);
}

TEST_F(FindApi, FeaturesNeedTheRecogniser) {
    ASSERT_EQ(OrvoFindInit(), ORVO_FIND_OK);
    ASSERT_EQ(OrvoFindSetMemory(memory_.bytes(), kSize), ORVO_FIND_OK);
    Results results;
    const auto expect = [&](int32_t status, const std::string& message) {
        for (const auto& [name, function] : kFeatureFunctions) {
            StderrCapture errors;
            EXPECT_EQ(function(&picture_, kSmallest, results.faces.data(), results.features.data(),
                               4, &results.count),
                      status);
            const std::string said = errors.text();
            EXPECT_TRUE(message.empty() ? said.empty() : IsErrorLine(said, kUnit, name + message))
                << said;
        }
    };
    expect(ORVO_FIND_NULL_ADDRESS,
           " failed. The address of the features is null or OrvoFrSetMemory has not succeeded!\n");
    ASSERT_EQ(OrvoFrSetMemory(core_.data(), OrvoFrGetMemorySize()), ORVO_FR_OK);
    expect(ORVO_FIND_NOT_DECRYPTED, " failed. OrvoFrInit has not succeeded\n");
    EXPECT_TRUE(results.untouched());
    ASSERT_EQ(OrvoFrInit(), ORVO_FR_OK);
    expect(ORVO_FIND_OK, "");
    EXPECT_GE(results.count, 0);
}

// ---- Arguments

TEST_F(FindApi, RefusesAPictureThatIsNone) {
    SetUpEverything();
    OrvoFindPicture none = picture_;
    none.addr = nullptr;
    for (const OrvoFindPicture* picture : {static_cast<const OrvoFindPicture*>(nullptr),
                                           static_cast<const OrvoFindPicture*>(&none)}) {
        ExpectRefused(picture, kSmallest, 4, ORVO_FIND_NULL_ADDRESS,
                      "The picture or its address is null!");
    }
}

TEST_F(FindApi, RefusesSizesThatAreNone) {
    SetUpEverything();
    for (const auto& [width, height, stride] : {std::tuple(23, 80, 100),
                                                {100, 23, 100},
                                                {8193, 80, 8193},
                                                {100, 8193, 100},
                                                {0, 0, 0},
                                                {-100, 80, 100},
                                                {100, -80, 100},
                                                {100, 80, 99},
                                                {100, 80, 0},
                                                {100, 80, -100},
                                                {INT32_MAX, 80, INT32_MAX},
                                                {INT32_MIN, INT32_MIN, INT32_MIN}}) {
        const OrvoFindPicture picture = {grey_.pixels.data(), width, height, stride};
        ExpectRefused(&picture, kSmallest, 4, ORVO_FIND_WRONG_SIZE,
                      "Picture size error: width " + std::to_string(width) + ", height " +
                          std::to_string(height) + ", stride " + std::to_string(stride) +
                          ", expect: 24 to 8192, and a stride of at least the width");
    }
}

TEST_F(FindApi, RefusesFacesThatAreTooSmallForThePicture) {
    SetUpEverything();
    const auto message = [](int smallest, int width, int height) {
        return "Faces of " + std::to_string(smallest) + " pixels cannot be found in a picture of " +
               std::to_string(width) + " x " + std::to_string(height) +
               ": look for larger ones only";
    };
    for (const int32_t smallest : {0, -1, INT32_MIN}) {
        ExpectRefused(&picture_, smallest, 4, ORVO_FIND_WRONG_SIZE, message(smallest, 100, 80));
    }
    const std::vector<uint8_t> large(size_t{2000} * 100);
    const OrvoFindPicture picture = {large.data(), 2000, 100, 2000};
    ExpectRefused(&picture, 20, 4, ORVO_FIND_WRONG_SIZE, message(20, 2000, 100));
}

TEST_F(FindApi, RefusesResultsThatHaveNoPlace) {
    SetUpEverything();
    Results results;
    OrvoFindFace* const faces = results.faces.data();
    float* const features = results.features.data();
    ExpectSays("OrvoFindRun failed. The address of the faces or of their count is null!\n", [&] {
        EXPECT_EQ(OrvoFindRun(&picture_, kSmallest, faces, 4, nullptr), ORVO_FIND_NULL_ADDRESS);
    });
    ExpectSays("OrvoFindRun failed. Room for -1 faces\n", [&] {
        EXPECT_EQ(OrvoFindRun(&picture_, kSmallest, faces, -1, &results.count),
                  ORVO_FIND_WRONG_SIZE);
    });
    StderrCapture errors;
    EXPECT_EQ(OrvoFindRun(&picture_, kSmallest, faces, 4, nullptr), ORVO_FIND_NULL_ADDRESS);
    EXPECT_EQ(OrvoFindRun(&picture_, kSmallest, nullptr, 4, &results.count),
              ORVO_FIND_NULL_ADDRESS);
    EXPECT_EQ(OrvoFindRun(&picture_, kSmallest, faces, -1, &results.count), ORVO_FIND_WRONG_SIZE);
    for (const auto& [name, function] : kFeatureFunctions) {
        EXPECT_EQ(function(&picture_, kSmallest, faces, nullptr, 4, &results.count),
                  ORVO_FIND_NULL_ADDRESS)
            << name;
        EXPECT_EQ(function(&picture_, kSmallest, faces, features, INT32_MIN, &results.count),
                  ORVO_FIND_WRONG_SIZE)
            << name;
    }
    EXPECT_TRUE(results.untouched());
}

TEST_F(FindApi, NoRoomIsNoFault) {
    SetUpEverything();
    int32_t count = -1;
    EXPECT_EQ(OrvoFindRun(&picture_, kSmallest, nullptr, 0, &count), ORVO_FIND_OK);
    EXPECT_EQ(count, 0);
    for (const auto& [name, function] : kFeatureFunctions) {
        count = -1;
        EXPECT_EQ(function(&picture_, kSmallest, nullptr, nullptr, 0, &count), ORVO_FIND_OK)
            << name;
        EXPECT_EQ(count, 0) << name;
    }
}

TEST_F(FindApi, UprightRefusesWhatItCannotTurn) {
    SetUpEverything();
    uint8_t crop[96 * 96];
    std::memset(crop, 0x5A, sizeof crop);
    const OrvoFindFace good = {10, 10, 50, 1, {}, 0, 0, 0, 0, 0};
    ExpectSays("OrvoFindUpright failed. The face or the crop is null!\n", [&] {
        EXPECT_EQ(OrvoFindUpright(&picture_, nullptr, crop), ORVO_FIND_NULL_ADDRESS);
    });
    ExpectSays(
        "OrvoFindUpright failed. The face's numbers are out of range: left 10, top 10, side -3\n",
        [&] {
            OrvoFindFace face = good;
            face.side = -3.0f;
            EXPECT_EQ(OrvoFindUpright(&picture_, &face, crop), ORVO_FIND_WRONG_SIZE);
        });
    StderrCapture errors;
    EXPECT_EQ(OrvoFindUpright(nullptr, &good, crop), ORVO_FIND_NULL_ADDRESS);
    EXPECT_EQ(OrvoFindUpright(&picture_, nullptr, crop), ORVO_FIND_NULL_ADDRESS);
    EXPECT_EQ(OrvoFindUpright(&picture_, &good, nullptr), ORVO_FIND_NULL_ADDRESS);
    OrvoFindPicture wrong = picture_;
    wrong.stride = 99;
    EXPECT_EQ(OrvoFindUpright(&wrong, &good, crop), ORVO_FIND_WRONG_SIZE);
    for (const float side : {0.0f, -3.0f, NAN, INFINITY, 64.0f * 80 + 1}) {
        OrvoFindFace face = good;
        face.side = side;
        EXPECT_EQ(OrvoFindUpright(&picture_, &face, crop), ORVO_FIND_WRONG_SIZE) << side;
    }
    for (const uint8_t level : crop) {
        ASSERT_EQ(level, 0x5A);
    }
}

// ---- What comes out

// Sizes and strides at random: nothing but the picture is read, nothing but the faces is written,
// and the stride does not matter.
TEST_F(FindApi, FindsTheSameFacesWhateverThePicturesStride) {
    SetUpEverything();
    Random random(11);
    for (int i = 0; i < 40; ++i) {
        const Grey grey =
            orvo_reference::SeededGrey(i % 2, random.Between(24, 190), random.Between(24, 190));
        const int32_t smallest = random.Between(1, 60);
        const uint32_t size = OrvoFindGetMemorySize(grey.width, grey.height, smallest);
        const int32_t room = random.Between(0, 6);
        std::vector<Results> runs;
        for (const int more : {0, random.Between(1, 100)}) {
            const GuardedPicture picture(
                grey, grey.width + more,
                more == 0 ? GuardedBuffer::kAtStart : GuardedBuffer::kAtEnd);
            GuardedBuffer memory(size);
            GuardedBuffer faces(static_cast<size_t>(room) * sizeof(OrvoFindFace));
            ASSERT_EQ(OrvoFindSetMemory(memory.bytes(), size), ORVO_FIND_OK);
            Results& results = runs.emplace_back(static_cast<size_t>(room));
            ASSERT_EQ(OrvoFindRun(picture.get(), smallest, faces.as<OrvoFindFace>(), room,
                                  &results.count),
                      ORVO_FIND_OK);
            ASSERT_LE(results.count, room);
            for (int32_t n = 0; n < results.count; ++n) {
                results.faces[static_cast<size_t>(n)] = faces.as<OrvoFindFace>()[n];
            }
            for (size_t byte = static_cast<size_t>(results.count) * sizeof(OrvoFindFace);
                 byte < faces.size(); ++byte) {
                ASSERT_EQ(faces.bytes()[byte], 0xA5);
            }
        }
        ASSERT_EQ(runs[0].count, runs[1].count);
        EXPECT_EQ(std::memcmp(runs[0].faces.data(), runs[1].faces.data(),
                              runs[0].faces.size() * sizeof(OrvoFindFace)),
                  0);
    }
}

// There the network's planes are what takes most; in small pictures it is turning faces upright.
TEST_F(FindApi, ALargePictureNeedsNoMoreMemoryThanItAsksFor) {
    SetUpEverything();
    const Grey grey = orvo_reference::SeededGrey(0, 320, 240);
    const GuardedPicture picture(grey, grey.width);
    const uint32_t size = OrvoFindGetMemorySize(grey.width, grey.height, ORVO_FIND_SMALLEST);
    for (const auto end : {GuardedBuffer::kAtStart, GuardedBuffer::kAtEnd}) {
        GuardedBuffer memory(size, end);
        ASSERT_EQ(OrvoFindSetMemory(memory.bytes(), size), ORVO_FIND_OK);
        Results results(1);
        EXPECT_EQ(
            OrvoFindRun(picture.get(), ORVO_FIND_SMALLEST, results.faces.data(), 1, &results.count),
            ORVO_FIND_OK);
    }
}

// What the recogniser makes of a crop.
std::vector<float> FeatureOf(const uint8_t* crop) {
    uint8_t planes[3][96 * 96];
    for (uint8_t* plane : planes) {
        std::memcpy(plane, crop, sizeof planes[0]);
    }
    FrRun(planes[0]);
    return {FrGetOutput(), FrGetOutput() + 128};
}

std::vector<float> UprightFeatureOf(const OrvoFindPicture& picture, const OrvoFindFace& face) {
    uint8_t crop[96 * 96];
    EXPECT_EQ(OrvoFindUpright(&picture, &face, crop), ORVO_FIND_OK);
    return FeatureOf(crop);
}

std::vector<float> MirroredFeatureOf(const OrvoFindPicture& picture, const OrvoFindFace& face) {
    OrvoFindFace larger = face;
    larger.left -= 0.05f * face.side;
    larger.top -= 0.05f * face.side;
    larger.side = 1.1f * face.side;
    uint8_t crop[96 * 96], mirrored[96 * 96];
    EXPECT_EQ(OrvoFindUpright(&picture, &larger, crop), ORVO_FIND_OK);
    for (int row = 0; row < 96; ++row) {
        for (int column = 0; column < 96; ++column) {
            mirrored[96 * row + column] = crop[96 * row + 95 - column];
        }
    }
    const std::vector<float> one = UprightFeatureOf(picture, face), other = FeatureOf(mirrored);
    double squares = 0;
    for (size_t i = 0; i < 128; ++i) {
        const double sum = double{one[i]} + double{other[i]};
        squares += sum * sum;
    }
    std::vector<float> mean(128);
    for (size_t i = 0; i < 128; ++i) {
        mean[i] =
            static_cast<float>((double{one[i]} + double{other[i]}) * (1 / std::sqrt(squares)));
    }
    return mean;
}

// Two faces side by side, and memory for them.
struct TwoFaces {
    static constexpr int32_t kWidth = 320, kHeight = 160;
    std::vector<uint8_t> pixels = std::vector<uint8_t>(size_t{kWidth} * kHeight, 90);
    OrvoFindPicture picture = {pixels.data(), kWidth, kHeight, kWidth};
    GuardedBuffer memory{OrvoFindGetMemorySize(kWidth, kHeight, kSmallest)};

    TwoFaces() {
        size_t left = 8;
        for (const char* name : {"good.pgm", "tilted.pgm"}) {
            const auto face = orvo_test::ReadGreymap(std::string(ORVO_FIND_PICTURES "/") + name);
            EXPECT_EQ(face.width, 144) << name;
            for (size_t row = 0; row < static_cast<size_t>(face.height); ++row) {
                std::memcpy(&pixels[(row + 8) * kWidth + left], &face.pixels[row * 144], 144);
            }
            left += 144 + 16;
        }
        EXPECT_EQ(OrvoFindSetMemory(memory.bytes(), static_cast<uint32_t>(memory.size())), 0);
    }
};

// The faces are those of OrvoFindRun(), and each feature is what `feature` makes of the face.
void ExpectFeatures(FeatureFunction* function,
                    std::vector<float> (*feature)(const OrvoFindPicture&, const OrvoFindFace&)) {
    const TwoFaces two;
    Results all(30);
    ASSERT_EQ(OrvoFindRun(&two.picture, kSmallest, all.faces.data(), 30, &all.count), 0);
    ASSERT_EQ(all.count, 2);
    Results results(30);
    ASSERT_EQ(function(&two.picture, kSmallest, results.faces.data(), results.features.data(), 30,
                       &results.count),
              ORVO_FIND_OK);
    ASSERT_EQ(results.count, all.count);
    EXPECT_EQ(std::memcmp(results.faces.data(), all.faces.data(), 30 * sizeof(OrvoFindFace)), 0);
    for (size_t i = 0; i < 2; ++i) {
        const std::vector<float> expected = feature(two.picture, all.faces[i]);
        EXPECT_EQ(std::memcmp(expected.data(), &results.features[128 * i], 512), 0) << i;
    }
    EXPECT_LE(results.faces[1].score, results.faces[0].score);
}

TEST_F(FindApi, FeaturesAreThoseOfTheUprightCrops) {
    SetUpEverything();
    ExpectFeatures(OrvoFindFeatures, UprightFeatureOf);
}

TEST_F(FindApi, MirroredFeaturesAreTheMeanOfBothSides) {
    SetUpEverything();
    ExpectFeatures(OrvoFindMirroredFeatures, MirroredFeatureOf);
}

TEST_F(FindApi, MirroredFeaturesHaveUnitLengthAndLieNearThePlainOnes) {
    SetUpEverything();
    const TwoFaces two;
    Results plain, mirrored;
    ASSERT_EQ(OrvoFindFeatures(&two.picture, kSmallest, plain.faces.data(), plain.features.data(),
                               4, &plain.count),
              ORVO_FIND_OK);
    ASSERT_EQ(OrvoFindMirroredFeatures(&two.picture, kSmallest, mirrored.faces.data(),
                                       mirrored.features.data(), 4, &mirrored.count),
              ORVO_FIND_OK);
    ASSERT_EQ(mirrored.count, 2);
    for (size_t face = 0; face < 2; ++face) {
        const float* const feature = &mirrored.features[128 * face];
        EXPECT_NEAR(OrvoFrGetDistance(feature, 512, feature, 512), 1.0f, 1e-6f);
        const float near = OrvoFrGetDistance(feature, 512, &plain.features[128 * face], 512);
        EXPECT_GT(near, 0.8f);
        EXPECT_LT(near, 1.0f);
    }
}

} // namespace
