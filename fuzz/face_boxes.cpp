// SPDX-License-Identifier: MIT
//
// OrvoFrRun() with any picture record and any answer of the alignment network, which stands in this program:
// the crop that reaches the recognition network is what the box and the picture define, and nothing outside
// the picture's plane is read.
#include <algorithm>
#include <cstring>

#include "arena.h"
#include "fr_demo/face_box.h"
#include "input.h"
#include "orvo/image_tools.h"
#include "orvo/orvo_fr.h"
#include "quiet.h"
#include "require.h"
#include "values.h"

namespace orvo_fuzz {
namespace {

constexpr int32_t kSide = ORVO_FR_IMAGE_SIZE;
constexpr size_t kPlane = size_t{kSide} * kSide;
constexpr size_t kCropBytes = ORVO_FR_CROP_SIZE * ORVO_FR_CROP_SIZE;

Arena<size_t{1} << 18> arena;
alignas(64) uint8_t memory[ORVO_FR_MEMORY_SIZE];
int8_t answer[4];
const uint8_t* picture;
bool isRecognised;
uint8_t noise[3 * kPlane];

void MakeNoise() {
    Stream stream(1);
    for (uint8_t& byte : noise) {
        byte = static_cast<uint8_t>(stream.Next() >> 8);
    }
}

// The box whose bytes are read, once more from the interface's words.
orvo::FaceBox BoxOf(const int8_t given[4]) {
    int32_t edges[4];
    for (int i = 0; i < 4; ++i) {
        edges[i] = 2 * given[i]; // the half of a unit that is added is lost again
    }
    const bool isEmpty = edges[0] >= edges[2] || edges[1] >= edges[3];
    const int32_t first = kSide * edges[1] + edges[0];
    const int32_t end = kSide * (edges[3] - 1) + edges[2];
    if (!isEmpty && first >= 0 && end <= kSide * kSide) {
        return {edges[0], edges[1], edges[2], edges[3]};
    }
    const auto cut = [](int32_t edge) { return std::clamp(edge, 0, kSide); };
    const orvo::FaceBox box = {cut(edges[0]), cut(edges[1]), cut(edges[2]), cut(edges[3])};
    const bool isNothing = box.left >= box.right || box.top >= box.bottom;
    return isNothing ? orvo::FaceBox{0, 0, kSide, kSide} : box;
}

void CheckCrop(const uint8_t* planes) {
    const orvo::FaceBox box = BoxOf(answer);
    static uint8_t wanted[kCropBytes];
    // Its own definition is held to in the target resizes.
    ImageResizeBilin(picture + kSide * box.top + box.left, wanted, box.bottom - box.top,
                     box.right - box.left, kSide, ORVO_FR_CROP_SIZE, ORVO_FR_CROP_SIZE);
    for (size_t plane = 0; plane < 3; ++plane) {
        Require(std::memcmp(planes + plane * kCropBytes, wanted, kCropBytes) == 0,
                "the crop is the box's");
    }
}

bool IsAllowed(const FrImage& image, uint32_t resultSize) {
    return image.addr != nullptr && image.height == kSide && image.width == kSide &&
           image.stride >= kSide && resultSize == ORVO_FR_FEATURE_BYTES;
}

int32_t Size(Input& input, int32_t usual) {
    return input.Byte() < 240 ? usual : input.Number<int32_t>();
}

} // namespace
} // namespace orvo_fuzz

// In the place of the library's networks.
void AlignRun(uint8_t* /*input*/) {
    std::memcpy(AlignGetOutput(), orvo_fuzz::answer, sizeof orvo_fuzz::answer);
}

void FrRun(uint8_t* input) {
    orvo_fuzz::isRecognised = true;
    orvo_fuzz::CheckCrop(input);
}

extern "C" int LLVMFuzzerInitialize(int* /*count*/, char*** /*arguments*/) {
    using namespace orvo_fuzz;
    SilenceDiagnostics();
    MakeNoise();
    Require(OrvoFrSetMemory(memory, sizeof memory) == ORVO_FR_OK, "working memory is taken");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace orvo_fuzz;
    Input input(data, size);
    input.Fill(answer, 4);
    FrImage image = {};
    image.height = Size(input, kSide);
    image.width = Size(input, kSide);
    const uint8_t more = input.Byte();
    image.stride = more < 250 ? kSide + more % 4 : input.Number<int32_t>();
    const auto resultSize = static_cast<uint32_t>(Size(input, ORVO_FR_FEATURE_BYTES));
    // The last row ends with its last pixel; a stride beyond the memory is not for this machine.
    if (image.stride > kSide + 4) {
        image.stride = -image.stride;
    }
    const size_t bytes =
        std::max(kPlane, static_cast<size_t>(std::max(image.stride, kSide)) * (kSide - 1) + kSide);
    auto* const pixels = arena.Take<uint8_t>(bytes, input.Byte() & 15);
    std::memcpy(pixels, noise + input.Number<uint16_t>(), bytes);
    picture = pixels;
    image.addr = more == 249 ? nullptr : pixels;
    auto* const result = arena.Take<float>(ORVO_FR_FEATURE_LENGTH);
    std::memset(result, 0x5A, ORVO_FR_FEATURE_BYTES);
    isRecognised = false;
    const int32_t status = OrvoFrRun(&image, result, resultSize);
    Require((status == ORVO_FR_OK) == IsAllowed(image, resultSize),
            "refused is what the interface says");
    Require(isRecognised == (status == ORVO_FR_OK), "a refusal recognises nobody");
    arena.Reset();
    return 0;
}
