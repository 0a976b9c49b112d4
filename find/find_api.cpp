// SPDX-License-Identifier: MIT
//
// What libkova_find exports: checks, the partition of the working memory, and the way from a picture
// to its faces.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <new>

#include "common/diagnostics.h"
#include "find/candidates.h"
#include "find/levels.h"
#include "find/look.h"
#include "find/look_network.h"
#include "find/merging.h"
#include "find/model.h"
#include "find/network.h"
#include "find/patches.h"
#include "find/quality.h"
#include "find/recognise.h"
#include "find/upright.h"
#include "fr_demo/store_opening.h"
#include "orvo/orvo_find.h"
#include "orvo/orvo_fr.h"

namespace orvo::find {
namespace {

constexpr char kUnit[] = "../find/find_api";

constexpr uint32_t kAlignment = 16;
constexpr uint32_t kCropBytes = ORVO_FIND_CROP_SIZE * ORVO_FIND_CROP_SIZE;

bool g_isPlain; // the model
uint8_t* g_memory;
uint32_t g_memorySize;

uint32_t Aligned(uint32_t bytes) { return (bytes + kAlignment - 1) & ~(kAlignment - 1); }

// The working memory, from the first address in it that is aligned:
//
//     | candidates | faces | a crop | room for rows | outputs and scratch of a network |
//                                                   | or floats of turning upright     |
//
// The candidates outlive the first two networks, the faces every turning as well. Behind the scratch of
// those that look lie the pixels that they are shown. A face is turned when all looking at it is done.
struct Partition {
    CandidateList* candidates;
    FaceList* faces;
    uint8_t* crop;
    uint8_t* rows;
    uint8_t* rest;
};

constexpr uint32_t kCandidatesOffset = 0;
uint32_t FacesOffset() { return Aligned(sizeof(CandidateList)); }
uint32_t CropOffset() { return FacesOffset() + Aligned(sizeof(FaceList)); }
uint32_t RowsOffset() { return CropOffset() + Aligned(kCropBytes); }
uint32_t RestOffset(int32_t width) { return RowsOffset() + Aligned(PatchRoomBytes(width)); }

Partition PartitionFor(const OrvoFindPicture& picture) {
    const auto address = reinterpret_cast<uintptr_t>(g_memory);
    uint8_t* const start = g_memory + (kAlignment - address % kAlignment) % kAlignment;
    return {new (start + kCandidatesOffset) CandidateList, new (start + FacesOffset()) FaceList,
            start + CropOffset(), start + RowsOffset(), start + RestOffset(picture.width)};
}

uint32_t UprightMemory(int32_t width) { return kAlignment + RestOffset(width) + UprightBytes(); }

uint32_t NetworkBytes(Size padded) {
    return Aligned(NetworkOutputBytes(padded)) + NetworkScratchBytes(padded);
}

NetworkMemory NetworkMemoryAt(uint8_t* bytes, uint32_t outputBytes) {
    auto* const outputs = reinterpret_cast<int8_t*>(bytes);
    return {outputs, outputs + Aligned(outputBytes)};
}

uint32_t LookPixelsOffset() { return Aligned(Aligned(LookOutputBytes()) + LookScratchBytes()); }

uint32_t RunMemory(Size picture, int32_t first) {
    uint32_t most = LookPixelsOffset() + LookPixelBytes();
    ForEachLevel(picture, first,
                 [&](int32_t, Size real) { most = std::max(most, NetworkBytes(Padded(real))); });
    return std::max(kAlignment + RestOffset(picture.width) + most, UprightMemory(picture.width));
}

bool IsSide(int32_t side) { return side >= ORVO_FIND_LEAST_SIDE && side <= ORVO_FIND_MOST_SIDE; }

int32_t CheckPicture(const char* function, const OrvoFindPicture* picture) {
    if (picture == nullptr || picture->addr == nullptr) {
        ORVO_ERR(kUnit, "%s failed. The picture or its address is null!\n", function);
        return ORVO_FIND_NULL_ADDRESS;
    }
    if (!IsSide(picture->width) || !IsSide(picture->height) || picture->stride < picture->width) {
        ORVO_ERR(kUnit,
                 "%s failed. Picture size error: width %d, height %d, stride %d, expect: %d to %d, "
                 "and a stride of at least the width\n",
                 function, picture->width, picture->height, picture->stride,
                 static_cast<int>(ORVO_FIND_LEAST_SIDE), static_cast<int>(ORVO_FIND_MOST_SIDE));
        return ORVO_FIND_WRONG_SIZE;
    }
    return ORVO_FIND_OK;
}

int32_t CheckMemory(const char* function, uint32_t needed) {
    if (g_memory == nullptr) {
        ORVO_ERR(kUnit, "%s failed. No working memory was set!\n", function);
        return ORVO_FIND_NULL_ADDRESS;
    }
    if (g_memorySize < needed) {
        ORVO_ERR(kUnit, "%s failed. Working memory size error: %u, expect at least: %u\n", function,
                 g_memorySize, needed);
        return ORVO_FIND_WRONG_SIZE;
    }
    return ORVO_FIND_OK;
}

// Everything that can be wrong with a call that finds faces.
int32_t CheckRun(const char* function, const OrvoFindPicture* picture, int32_t smallest,
                 const OrvoFindFace* faces, int32_t room, const int32_t* count) {
    const int32_t status = CheckPicture(function, picture);
    if (status != ORVO_FIND_OK) {
        return status;
    }
    if (count == nullptr || (faces == nullptr && room > 0)) {
        ORVO_ERR(kUnit, "%s failed. The address of the faces or of their count is null!\n",
                 function);
        return ORVO_FIND_NULL_ADDRESS;
    }
    if (room < 0) {
        ORVO_ERR(kUnit, "%s failed. Room for %d faces\n", function, room);
        return ORVO_FIND_WRONG_SIZE;
    }
    const uint32_t needed = OrvoFindGetMemorySize(picture->width, picture->height, smallest);
    if (needed == 0) {
        ORVO_ERR(kUnit,
                 "%s failed. Faces of %d pixels cannot be found in a picture of %d x %d: look for "
                 "larger ones only\n",
                 function, smallest, picture->width, picture->height);
        return ORVO_FIND_WRONG_SIZE;
    }
    if (!g_isPlain) {
        ORVO_ERR(kUnit, "%s failed. OrvoFindInit has not succeeded\n", function);
        return ORVO_FIND_NOT_DECRYPTED;
    }
    return CheckMemory(function, needed);
}

// What features need of the recogniser.
int32_t CheckRecogniser(const char* function, const float* features, int32_t room) {
    if ((features == nullptr && room > 0) || g_frInnerImage == nullptr) {
        ORVO_ERR(kUnit,
                 "%s failed. The address of the features is null or OrvoFrSetMemory has not "
                 "succeeded!\n",
                 function);
        return ORVO_FIND_NULL_ADDRESS;
    }
    if (g_frInited == 0) {
        ORVO_ERR(kUnit, "%s failed. OrvoFrInit has not succeeded\n", function);
        return ORVO_FIND_NOT_DECRYPTED;
    }
    return ORVO_FIND_OK;
}

void Collect(const OrvoFindPicture& picture, int32_t smallest, const Partition& memory) {
    const Size size = {picture.width, picture.height};
    memory.candidates->Clear();
    ForEachLevel(size, FirstLevel(size, smallest), [&](int32_t level, Size real) {
        const Size padded = Padded(real);
        MakePatches(picture, level, memory.rows, memory.rest);
        const NetworkMemory network = NetworkMemoryAt(memory.rest, NetworkOutputBytes(padded));
        AddCandidates(RunNetwork(padded, network), level, real, *memory.candidates);
    });
}

LookAnswers LookAt(const OrvoFindPicture& picture, const View& view, const Partition& memory) {
    MakeLook(picture, view, memory.rest + LookPixelsOffset(), memory.rows, memory.rest);
    return RunLookNetwork(view.kind.network, NetworkMemoryAt(memory.rest, LookOutputBytes()));
}

// Looks at a face once more, and where it then lies elsewhere, twice: the second look sees it upright and
// in the middle. A face that is surely one has the score that looks would give it, without any. False if
// it is no face.
bool LookAgain(const OrvoFindPicture& picture, const Partition& memory, FoundFace* found) {
    const int32_t first = found->score;
    if (first >= kSureWhenFound) {
        found->score = LookedAtScore(first, 1, INT8_MAX);
        found->probability = ProbabilityOf(found->score);
        return CanBeSeen(picture, found->face);
    }
    int32_t sum = 0;
    for (int32_t look = 0; look < kLooks; ++look) {
        const bool isWorthIt =
            look == 0 || (found->score >= kLookedAtAgainScore && CanBeReported(first, look, sum));
        if (!isWorthIt || !CanBeSeen(picture, found->face)) {
            return false;
        }
        const View view = ViewOf(found->face, kWide);
        const LookAnswers answers = LookAt(picture, view, memory);
        found->face = Described(view, answers);
        sum += answers.rest[0];
        found->score = LookedAtScore(first, look + 1, sum);
        if (HasSettled(view, found->face)) {
            break;
        }
    }
    found->probability = ProbabilityOf(found->score);
    return found->probability >= kReportedProbability && CanBeSeen(picture, found->face);
}

void LookAtAll(const OrvoFindPicture& picture, const Partition& memory) {
    Merger merger(*memory.candidates);
    memory.faces->Clear();
    for (FoundFace found; merger.Next(found);) {
        if (LookAgain(picture, memory, &found)) {
            memory.faces->Add(found);
        }
    }
    memory.faces->DropRepeated();
}

// Where everything is in a face, from close by. False if that is, or would then be, where nothing can be
// seen.
bool LookCloselyOnce(const OrvoFindPicture& picture, LookKind kind, const Partition& memory,
                     Description* face) {
    const View view = ViewOf(*face, kind);
    if (!CanBeSeen(picture, view)) {
        return false;
    }
    const Description seen = Described(view, LookAt(picture, view, memory));
    if (!CanBeSeen(picture, seen)) {
        return false;
    }
    *face = seen;
    return true;
}

// Where everything is in a face that is known to be one: the mean of two looks, of which the second is of
// the mirror image and at the box that the first found. Their errors differ. A look that has nothing to
// see does not count.
void LookClosely(const OrvoFindPicture& picture, const Partition& memory, Description* face) {
    if (!LookCloselyOnce(picture, kClose, memory, face)) {
        return;
    }
    Description second = *face;
    if (LookCloselyOnce(picture, kCloseMirrored, memory, &second)) {
        *face = WeighedMeanOf(*face, second);
    }
}

float Quarters(int32_t count) { return static_cast<float>(count) * 0.25f; }

// The record without its quality.
OrvoFindFace RecordOf(const FoundFace& found) {
    const Description& face = found.face;
    OrvoFindFace record;
    record.left = Quarters(2 * face.x - face.side) * 0.5f;
    record.top = Quarters(2 * face.y - face.side) * 0.5f;
    record.side = Quarters(face.side);
    record.score = static_cast<float>(found.probability) / 1024.0f;
    for (int32_t i = 0; i < kPoints; ++i) {
        record.points[i] = {Quarters(face.points[2 * i]) / kPointFineness,
                            Quarters(face.points[2 * i + 1]) / kPointFineness};
    }
    record.yaw = static_cast<float>(face.yaw) * 0.75f;
    record.roll = RollOf(AxisOf(record));
    record.covered = static_cast<float>(face.covered + 128) / 255.0f;
    return record;
}

// The crop may be the memory's own.
void TurnUpright(const OrvoFindPicture& picture, const OrvoFindFace& face, const Partition& memory,
                 uint8_t* crop) {
    Upright(picture, face, reinterpret_cast<float*>(memory.rest), memory.rows, crop);
}

// Finds faces and judges them. use(number, memory) is called as soon as a face is written, with its
// upright crop in the memory, which may be changed.
template <typename Use>
int32_t FindFaces(const OrvoFindPicture& picture, int32_t smallest, OrvoFindFace* faces,
                  int32_t room, Use use) {
    const Partition memory = PartitionFor(picture);
    Collect(picture, smallest, memory);
    LookAtAll(picture, memory);
    const int32_t count = std::min(memory.faces->count(), room);
    for (int32_t i = 0; i < count; ++i) {
        FoundFace found = memory.faces->At(i);
        LookClosely(picture, memory, &found.face);
        OrvoFindFace& face = faces[i];
        face = RecordOf(found);
        TurnUpright(picture, face, memory, memory.crop);
        const Quality quality = Judge(Measure(found, {picture.width, picture.height}, memory.crop));
        face.quality = quality.value;
        face.reasons = quality.reasons;
        use(i, memory);
    }
    return count;
}

// The same middle with a twentieth of the side more at each side.
OrvoFindFace Enlarged(OrvoFindFace face) {
    const float margin = 0.05f * face.side;
    face.left -= margin;
    face.top -= margin;
    face.side += 2 * margin;
    return face;
}

// Finds faces and gives each a feature: of the face alone, or of its mirror image as well. That the
// mirror image is of a larger crop makes the errors of the two looks differ more.
int32_t FindWithFeatures(const char* function, const OrvoFindPicture* picture, int32_t smallest,
                         OrvoFindFace* faces, float* features, int32_t room, int32_t* count,
                         bool isMirrored) {
    int32_t status = CheckRun(function, picture, smallest, faces, room, count);
    if (status == ORVO_FIND_OK) {
        status = CheckRecogniser(function, features, room);
    }
    if (status != ORVO_FIND_OK) {
        return status;
    }
    const auto recognise = [&](int32_t number, const Partition& memory) {
        float* const feature = features + ptrdiff_t{number} * ORVO_FIND_FEATURE_LENGTH;
        Recognise(memory.crop, feature);
        if (isMirrored) {
            TurnUpright(*picture, Enlarged(faces[number]), memory, memory.crop);
            TakeMirrored(memory.crop, feature);
        }
    };
    *count = FindFaces(*picture, smallest, faces, room, recognise);
    return ORVO_FIND_OK;
}

} // namespace
} // namespace orvo::find

using namespace orvo::find;

int32_t OrvoFindInit(void) {
    // A second pass over plain arrays would garble them.
    if (g_isPlain) {
        ORVO_ERR(kUnit, "Repeat init.\n");
        return ORVO_FIND_REPEAT_INIT;
    }
    if (orvo::OpenStore(
            {kUnit, "g_find", g_findWb, g_findWbIv, g_findAesIv, g_findArray, kArrayCount}) != 0) {
        ORVO_ERR(kUnit, "OrvoFindInit failed.\n");
        return ORVO_FIND_NOT_DECRYPTED;
    }
    g_isPlain = true;
    return ORVO_FIND_OK;
}

uint32_t OrvoFindGetMemorySize(int32_t width, int32_t height, int32_t smallest) {
    if (!IsSide(width) || !IsSide(height) || smallest < 1) {
        return 0;
    }
    const Size picture = {width, height};
    const int32_t first = FirstLevel(picture, smallest);
    if (AtLevel(picture, first).larger() > ORVO_FIND_MOST_LEVEL) {
        return 0;
    }
    return RunMemory(picture, first);
}

int32_t OrvoFindSetMemory(void* addr, uint32_t size) {
    if (addr == nullptr) {
        ORVO_ERR(kUnit, "OrvoFindSetMemory failed. Input addr is null!\n");
        return ORVO_FIND_NULL_ADDRESS;
    }
    if (size == 0) {
        ORVO_ERR(kUnit, "OrvoFindSetMemory failed. Set memory size error: 0\n");
        return ORVO_FIND_WRONG_SIZE;
    }
    g_memory = static_cast<uint8_t*>(addr);
    g_memorySize = size;
    return ORVO_FIND_OK;
}

int32_t OrvoFindRun(const OrvoFindPicture* picture, int32_t smallest, OrvoFindFace* faces,
                    int32_t room, int32_t* count) {
    const int32_t status = CheckRun("OrvoFindRun", picture, smallest, faces, room, count);
    if (status != ORVO_FIND_OK) {
        return status;
    }
    *count = FindFaces(*picture, smallest, faces, room, [](int32_t, const Partition&) {});
    return ORVO_FIND_OK;
}

int32_t OrvoFindUpright(const OrvoFindPicture* picture, const OrvoFindFace* face,
                        uint8_t crop[ORVO_FIND_CROP_SIZE * ORVO_FIND_CROP_SIZE]) {
    int32_t status = CheckPicture("OrvoFindUpright", picture);
    if (status != ORVO_FIND_OK) {
        return status;
    }
    if (face == nullptr || crop == nullptr) {
        ORVO_ERR(kUnit, "OrvoFindUpright failed. The face or the crop is null!\n");
        return ORVO_FIND_NULL_ADDRESS;
    }
    if (!CanTurnUpright(*picture, *face)) {
        ORVO_ERR(kUnit,
                 "OrvoFindUpright failed. The face's numbers are out of range: left %g, top %g, "
                 "side %g\n",
                 static_cast<double>(face->left), static_cast<double>(face->top),
                 static_cast<double>(face->side));
        return ORVO_FIND_WRONG_SIZE;
    }
    status = CheckMemory("OrvoFindUpright", UprightMemory(picture->width));
    if (status != ORVO_FIND_OK) {
        return status;
    }
    TurnUpright(*picture, *face, PartitionFor(*picture), crop);
    return ORVO_FIND_OK;
}

int32_t OrvoFindFeatures(const OrvoFindPicture* picture, int32_t smallest, OrvoFindFace* faces,
                         float* features, int32_t room, int32_t* count) {
    return FindWithFeatures("OrvoFindFeatures", picture, smallest, faces, features, room, count,
                            false);
}

int32_t OrvoFindMirroredFeatures(const OrvoFindPicture* picture, int32_t smallest,
                                 OrvoFindFace* faces, float* features, int32_t room,
                                 int32_t* count) {
    return FindWithFeatures("OrvoFindMirroredFeatures", picture, smallest, faces, features, room,
                            count, true);
}
