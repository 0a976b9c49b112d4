// SPDX-License-Identifier: MIT
//
// Another look at a face: its surroundings are turned upright, brought to one size and to the same
// grey levels, and a network of its own says where everything is, and whether it is a face at all.
// Whole numbers throughout.
#pragma once

#include <cstdint>

#include "find/candidates.h"
#include "find/look_network.h"
#include "find/patches.h"
#include "orvo/orvo_find.h"

namespace orvo::find {

struct LookKind {
    LookNetwork network;
    int32_t step;    // from one pixel of a look to the next, in 256ths of the box's side
    int32_t patch;   // rows and columns of what the network begins with
    bool isByPoints; // the box is the one that the face's points speak of
    bool isMirrored; // what the network sees is the mirror image
};

// At a square half as large again as the box; and at the box that a mean face with these points has.
// Where points are is known better than where a head ends, so they lie nearly alike in all close looks.
inline constexpr LookKind kWide = {LookNetwork::kWide, 6, kPatch, false, false};
inline constexpr LookKind kClose = {LookNetwork::kClose, 4, kWidePatch, true, false};
inline constexpr LookKind kCloseMirrored = {LookNetwork::kClose, 4, kWidePatch, true, true};

// What is looked at: a square around the middle of a box. It is upright where cosine and sine are
// the direction of the rows, in 2^14ths.
struct View {
    int32_t x, y, side; // of the box, quarter pixels
    int32_t cosine, sine;
    LookKind kind;
};

// As the points of a face lie.
View ViewOf(const Description& face, LookKind kind);

// Whether a box is one that can be looked at: its middle lies in the picture, and it is not much
// larger than that.
bool CanBeSeen(const OrvoFindPicture& picture, const Description& face);
bool CanBeSeen(const OrvoFindPicture& picture, const View& view);

// Bytes at `pixels` for MakeLook().
uint32_t LookPixelBytes();

// The patches that the network starts from. `room` is LevelRow()'s.
void MakeLook(const OrvoFindPicture& picture, const View& view, uint8_t* pixels, uint8_t* room,
              uint8_t* patches);

// What the network answered of a view.
Description Described(const View& view, const LookAnswers& answers);

// Every number of it, a half up. The second counts three times: it was of the box that the first one gave,
// and knows better.
Description WeighedMeanOf(const Description& a, const Description& b);

// Whether the look at that view moved the box so little that another one would see the same.
bool HasSettled(const View& view, const Description& face);

// The score of a face that was found with `first` and then looked at so many times, whose scores are
// answers.rest[0]: the mean of the first with the mean of the looks, less what keeps false faces out.
int32_t LookedAtScore(int32_t first, int32_t looks, int32_t sumOfLooks);
int32_t ProbabilityOf(int32_t score); // in 1024ths

// Whether the looks that are left can still make it a face that is reported.
bool CanBeReported(int32_t first, int32_t looks, int32_t sumOfLooks);

} // namespace orvo::find
