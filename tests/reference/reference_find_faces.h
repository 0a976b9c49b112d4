// SPDX-License-Identifier: MIT
//
// From the finding network's answers to faces, plainly: the pyramid, what an answer says, which
// answers are one face, the second look, turning upright and quality.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "reference/reference_find_network.h"

namespace orvo_reference {

// 2 x 2 means, rounded half up; a last odd row or column is dropped.
Grey Halved(const Grey& picture);
Grey HalvedTimes(const Grey& picture, int times);

// The levels that the network looks at.
std::vector<int> FindLevels(int width, int height, int smallest);

// Numbers of an answer or of a face. Lengths are quarter pixels of the picture, places of
// points sixteenths.
struct PlainFace {
    int64_t x, y, side;
    int64_t points[10];
    int64_t yaw, covered;
    int score;       // logit in sixteenths
    int probability; // 1024ths
    int support;
    int64_t levelSide; // of the box at its level, quarter pixels of that
};

int PlainProbability(int score);
int PlainSide(int size); // in 256ths of a stride
int PlainHeat(int logit);
int PlainScore(int first, const std::vector<int>& looks);

// All answers of a level that are candidates, in the order of visiting. `width` and `height` are
// those of the level, not padded.
std::vector<PlainFace> PlainCandidates(const FindAnswers& answers, int level, int width,
                                       int height);

// The best 512, then the faces that they make, best first.
std::vector<PlainFace> PlainFaces(std::vector<PlainFace> candidates);

// What a face's surroundings are sampled by: a box, where its rows point, in 2^14ths, and how many
// 256ths of the side are from pixel to pixel: 6 in the wide look at its box, 4 in the close one at the box
// that its points speak of.
struct PlainView {
    int64_t x, y, side, cosine, sine, step;
    bool isMirrored = false; // what the network sees
};
PlainView PlainViewOf(const PlainFace& face, int step);
bool PlainCanBeSeen(const Grey& picture, const PlainFace& face);
bool PlainCanBeSeen(const Grey& picture, int64_t x, int64_t y, int64_t side);
Grey PlainLook(const Grey& picture, const PlainView& view);

// The places, yaw and cover that a network answered with; the rest is that of `face`.
PlainFace PlainDescribed(const PlainFace& face, const PlainView& view,
                         const LookAnswersPlain& answers);
bool PlainHasSettled(const PlainView& view, const PlainFace& face);
std::vector<PlainFace> PlainLookedAt(const Model& model, const Grey& picture,
                                     const std::vector<PlainFace>& faces);

PlainFace PlainWeighedMeanOf(PlainFace a, PlainFace b);

// What a look from close by, or at the mirror image, says. None where it has nothing to see, or
// another one would then have nothing.
std::optional<PlainFace> PlainSeenClosely(const Model& model, const Grey& picture,
                                          const PlainFace& face, bool isMirrored);

// Where a face lies that was looked at from close by, and once more at its mirror image.
PlainFace PlainLookedAtClosely(const Model& model, const Grey& picture, const PlainFace& face);

// Of faces that overlap the best.
std::vector<PlainFace> PlainWithoutRepeats(std::vector<PlainFace> faces);

// The faces of a picture before and after looking from close by.
std::vector<PlainFace> PlainFromAround(const Model& model, const Grey& picture, int smallest);
std::vector<PlainFace> PlainFind(const Model& model, const Grey& picture, int smallest);

// A face turned upright in double precision, sampled from the whole level: 96 x 96 grey levels.
// `points` as in a record, pixels.
struct PlainBox {
    double left, top, side;
    double points[10];
};
PlainBox PlainRecord(const PlainFace& face);
double PlainRoll(const PlainBox& box); // degrees
std::vector<double> PlainUpright(const Grey& picture, const PlainBox& box);

// Each reason's measure, in the units in which the library has them.
struct PlainMeasures {
    int side, sharpness, brightness, white, yaw, noseOff, covered, cutOff, mouthOff;
};
PlainMeasures PlainMeasure(const PlainFace& face, int width, int height, const uint8_t* crop);
struct PlainQuality {
    int value;
    uint32_t reasons;
};
int ScoreWith(int probability); // the least score that has it
PlainQuality PlainJudge(const PlainMeasures& measures, int probability);

} // namespace orvo_reference
