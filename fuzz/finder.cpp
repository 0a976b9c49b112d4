// SPDX-License-Identifier: MIT
//
// libkova_find: any size, stride, room and working memory. A picture's bytes, the working memory and the
// results have the very sizes that were named. Refusals leave everything as it was. The recogniser's network
// stands in this program and does nothing, so that a feature costs no more than its crop.
#include <algorithm>
#include <cmath>

#include "arena.h"
#include "input.h"
#include "orvo/orvo_find.h"
#include "orvo/orvo_fr.h"
#include "quiet.h"
#include "require.h"
#include "values.h"

namespace orvo_fuzz {
namespace {

constexpr int32_t kMostSide = 112; // of pictures that are looked at: larger ones take too long
constexpr int32_t kMostRoom = 12;

Arena<size_t{1} << 20> arena;

// Sizes of pictures that are looked at, and any others, of which many are refused.
int32_t Side(Input& input) {
    const uint32_t byte = input.Byte();
    if (byte < 240) {
        return 20 + static_cast<int32_t>(byte % (kMostSide - 20));
    }
    return byte < 248 ? static_cast<int32_t>(input.Number<uint16_t>()) : input.Number<int32_t>();
}

struct Case {
    OrvoFindPicture picture;
    int32_t smallest;
    bool isAllowed; // by the interface's words
};

// The picture's bytes, up to the last pixel of the last row. Null where they would be too many; such a
// picture is to be refused before anything is read of it.
const uint8_t* TakePixels(Input& input, int32_t width, int32_t height, int32_t stride) {
    const int64_t bytes = int64_t{stride} * (height - 1) + width;
    if (width < 1 || height < 1 || stride < width || bytes > (1 << 16)) {
        return arena.Take<uint8_t>(1);
    }
    auto* const pixels = arena.Take<uint8_t>(static_cast<size_t>(bytes), input.Byte() & 15);
    FillBytes(input, pixels, static_cast<size_t>(bytes));
    const auto own = input.Rest(); // a face, say, in the rows that it is wide enough for
    for (size_t at = 0; at < own.size() && at < static_cast<size_t>(bytes); ++at) {
        pixels[at] = own[at];
    }
    return pixels;
}

Case TakeCase(Input& input) {
    Case c = {};
    const int32_t width = Side(input);
    const int32_t height = Side(input);
    const uint32_t more = input.Byte();
    const int32_t stride = more < 250
                               ? static_cast<int32_t>(static_cast<uint32_t>(width) + more % 16)
                               : input.Number<int32_t>();
    const uint32_t smallest = input.Byte();
    c.smallest = smallest < 250 ? static_cast<int32_t>(smallest % 100) : input.Number<int32_t>();
    c.picture = {TakePixels(input, width, height, stride), width, height, stride};
    const auto isSide = [](int32_t side) {
        return side >= ORVO_FIND_LEAST_SIDE && side <= ORVO_FIND_MOST_SIDE;
    };
    c.isAllowed = isSide(width) && isSide(height) && stride >= width && c.smallest >= 1 &&
                  OrvoFindGetMemorySize(width, height, c.smallest) > 0;
    return c;
}

bool IsLarge(const Case& c) {
    return int64_t{c.picture.stride} * (int64_t{c.picture.height} - 1) + c.picture.width >
           (1 << 16);
}

// As much as is needed, or a byte less: then the picture is to be refused.
bool SetMemory(const Case& c, bool isShort) {
    const uint32_t needed = OrvoFindGetMemorySize(c.picture.width, c.picture.height, c.smallest);
    const size_t size =
        c.isAllowed && !IsLarge(c) && needed < (1u << 19) ? needed - (isShort ? 1u : 0u) : 1u;
    auto* const block = arena.Take<uint8_t>(size, 1);
    Require(block != nullptr, "the arena is large enough");
    Require(OrvoFindSetMemory(block, static_cast<uint32_t>(size)) == ORVO_FIND_OK,
            "working memory is taken");
    return size == needed;
}

void CheckFace(const OrvoFindFace& face) {
    Require(face.score >= 0 && face.score <= 1, "a score is from 0 to 1");
    Require(face.side > 0 && std::isfinite(face.left) && std::isfinite(face.top), "a box is a box");
    Require(face.quality >= 0 && face.quality <= 100, "quality is from 0 to 100");
    Require(face.roll >= -180 && face.roll <= 180, "a turn is from -180 to 180 degrees");
    Require(face.covered >= 0 && face.covered <= 1, "what is covered is a share");
    Require(face.reasons < 2 * ORVO_FIND_GRIMACING, "there are nine reasons");
}

void Upright(const OrvoFindPicture& picture, const OrvoFindFace& face, bool mustBe) {
    auto* const crop = arena.Take<uint8_t>(ORVO_FIND_CROP_SIZE * ORVO_FIND_CROP_SIZE);
    if (crop == nullptr) {
        return;
    }
    std::memset(crop, 0x5A, 8);
    const int32_t status = OrvoFindUpright(&picture, &face, crop);
    Require(status == ORVO_FIND_OK || !mustBe, "a face that was found can be turned upright");
    Require(status == ORVO_FIND_OK || crop[0] == 0x5A, "a refusal leaves the crop as it was");
}

int32_t FindFeatures(const Case& c, OrvoFindFace* faces, int32_t room, int32_t* count,
                     bool mirrored) {
    const auto floats = static_cast<size_t>(std::max(room, 0)) * ORVO_FIND_FEATURE_LENGTH;
    auto* const features = arena.Take<float>(floats);
    const auto function = mirrored ? OrvoFindMirroredFeatures : OrvoFindFeatures;
    return function(&c.picture, c.smallest, faces, features, room, count);
}

void Find(Input& input) {
    const uint8_t how = input.Byte();
    const int32_t room = how > 250 ? -1 : how % (kMostRoom + 1);
    Case c = TakeCase(input);
    const bool isEnough = SetMemory(c, (how & 0x20) != 0);
    if (c.isAllowed && IsLarge(c) && isEnough) {
        return;
    }
    auto* const faces = arena.Take<OrvoFindFace>(static_cast<size_t>(std::max(room, 0)));
    int32_t count = 1000;
    const int32_t status = (how & 0x40) != 0
                               ? FindFeatures(c, faces, room, &count, (how & 0x10) != 0)
                               : OrvoFindRun(&c.picture, c.smallest, faces, room, &count);
    const bool isAllowed = c.isAllowed && isEnough && room >= 0;
    Require((status == ORVO_FIND_OK) == isAllowed, "refused is what the interface says");
    if (status != ORVO_FIND_OK) {
        Require(count == 1000, "a refusal leaves the count as it was");
        return;
    }
    Require(count >= 0 && count <= room, "there are no more faces than room");
    for (int32_t i = 0; i < count; ++i) {
        CheckFace(faces[i]);
        Require(i == 0 || faces[i].score <= faces[i - 1].score, "the best face comes first");
        Upright(c.picture, faces[i], true);
    }
}

// Faces that nobody found: any numbers at all, or sensible ones.
void Turn(Input& input) {
    OrvoFindFace face = {};
    const uint8_t how = input.Byte();
    float* const numbers[] = {&face.left,        &face.top,         &face.side,
                              &face.points[0].x, &face.points[0].y, &face.points[1].x,
                              &face.points[1].y, &face.points[2].x, &face.points[2].y,
                              &face.points[3].x, &face.points[3].y, &face.points[4].x,
                              &face.points[4].y};
    for (float* number : numbers) {
        *number = static_cast<float>(input.Number<int16_t>()) / 64.0f;
    }
    if (how > 128) {
        const auto bits = input.Number<uint32_t>();
        std::memcpy(numbers[how % std::size(numbers)], &bits, sizeof bits);
    }
    const Case c = TakeCase(input);
    if (c.isAllowed && IsLarge(c)) {
        return;
    }
    SetMemory(c, false);
    Upright(c.picture, face, false);
}

// Needs no picture: any numbers may come.
void AskForMemory(Input& input) {
    const int32_t width = Side(input);
    const int32_t height = Side(input);
    const auto smallest = input.Number<int32_t>();
    const uint32_t size = OrvoFindGetMemorySize(width, height, smallest);
    const bool isIn = width >= ORVO_FIND_LEAST_SIDE && height >= ORVO_FIND_LEAST_SIDE &&
                      width <= ORVO_FIND_MOST_SIDE && height <= ORVO_FIND_MOST_SIDE &&
                      smallest >= 1;
    Require(isIn || size == 0, "no memory serves a size that is out of range");
    if (isIn && smallest < INT32_MAX) {
        const uint32_t next = OrvoFindGetMemorySize(width, height, smallest + 1);
        Require(size == 0 || (next > 0 && next <= size), "larger faces need no more memory");
    }
}

} // namespace
} // namespace orvo_fuzz

void FrRun(uint8_t* /*input*/) {}

extern "C" int LLVMFuzzerInitialize(int* /*count*/, char*** /*arguments*/) {
    static uint8_t memory[ORVO_FR_MEMORY_SIZE];
    orvo_fuzz::SilenceDiagnostics();
    orvo_fuzz::Require(OrvoFrInit() == ORVO_FR_OK, "the recogniser's models open");
    orvo_fuzz::Require(OrvoFrSetMemory(memory, sizeof memory) == ORVO_FR_OK, "its memory is taken");
    orvo_fuzz::Require(OrvoFindInit() == ORVO_FIND_OK, "the finder's model opens");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace orvo_fuzz;
    Input input(data, size);
    const uint8_t kind = input.Byte();
    kind < 160 ? Find(input) : kind < 224 ? Turn(input) : AskForMemory(input);
    arena.Reset();
    return 0;
}
