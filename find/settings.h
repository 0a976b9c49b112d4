// SPDX-License-Identifier: MIT
//
// Every number of the finder that was chosen by measuring and may change with the model.
#pragma once

#include <cstdint>

namespace orvo::find {

// Pixels that the smallest face still has at the first level. The network knows faces from 14 on.
inline constexpr int32_t kLeastFace = 18;

// The last size of the picture that the network looks at is the first with no larger side.
inline constexpr int32_t kLastLevelSide = 96;

// An answer's score, a logit in sixteenths, from which on it is a candidate; the most candidates
// that are kept.
inline constexpr int32_t kCandidateScore = -16;
inline constexpr int32_t kMostCandidates = 512;

// A face that candidates make is looked at once more from this probability on, in 1024ths, and below this
// score: of 262 that were found with more, looks said 127 of 252, and never less than 85. It is looked at a
// second time if the score is then at least this, and the first look moved its box, or changed its side, by
// at least this part of its side. The score is the mean of that of finding it and of the looks', less a
// little, since all were learnt where faces are frequent. The most faces that are kept.
inline constexpr int32_t kLookedAtProbability = 302;
inline constexpr int32_t kSureWhenFound = 40;
inline constexpr int32_t kLookedAtAgainScore = -36;
inline constexpr int32_t kMovedPart = 8; // an eighth
inline constexpr int32_t kScoreLess = 24;
inline constexpr int32_t kLooks = 2;
inline constexpr int32_t kMostFaces = 256;

// Candidates are the same face if their boxes share this part of both together (in fifths, by two)
// or of the smaller one (in tenths).
inline constexpr int64_t kSharedFifthsOfUnion = 2;
inline constexpr int64_t kSharedTenthsOfSmaller = 7;

// The probability in 1024ths from which on a face is reported.
inline constexpr int32_t kReportedProbability = 640;

// A measure that costs quality: the whole face is lost where it is `none`, nothing where it is
// `full`, in between it falls evenly.
struct Ramp {
    int32_t none, full;
};
inline constexpr Ramp kSmallRamp = {77, 240};        // side, quarter pixels
inline constexpr Ramp kBlurredRamp = {67, 179};      // sharpness, sixteenths
inline constexpr Ramp kDarkRamp = {23, 66};          // the 90 % quantile, grey levels
inline constexpr Ramp kOverexposedRamp = {614, 222}; // pixels near white, thousandths
inline constexpr Ramp kTurnedRamp = {318, 90};       // yaw, quarter degrees
inline constexpr Ramp kTiltedRamp = {80, 30};        // nose off its place, percent of that
inline constexpr Ramp kCoveredRamp = {60, 0};        // percent
inline constexpr Ramp kCutOffRamp = {42, 0};         // of the box, percent
inline constexpr Ramp kGrimacingRamp = {28, 13};     // mouth's width off its place, percent
inline constexpr int32_t kWhite = 250;               // a pixel near white, grey level
inline constexpr int32_t kNosePlace =
    58; // of an upright head: percent of the way from eyes to mouth
inline constexpr int32_t kMouthPlace = 88; // a mouth's width: percent of the pupils' distance

// What a score leaves of the quality, in 256ths: this at kReportedProbability, all from kSureScore
// on, which is a logit in sixteenths.
inline constexpr int32_t kLeastScoreFactor = 14;
inline constexpr int32_t kSureScore = 74;

} // namespace orvo::find
