// SPDX-License-Identifier: MIT
//
// From the network's answers to places in the picture. Lengths are quarter pixels of the picture, but those of
// points are finer.
#pragma once

#include <cstdint>

#include "find/levels.h"
#include "find/network.h"
#include "find/settings.h"

namespace orvo::find {

inline constexpr int32_t kPoints = 5;

// So many parts of a quarter pixel are what points are known to: small faces' eyes are but a few pixels apart.
inline constexpr int32_t kPointFineness = 4;

// A face as the network, or several of its answers together, describe it.
struct Description {
    int32_t x, y, side;          // middle and side of the box
    int32_t points[2 * kPoints]; // sixteenths of pixels
    int32_t yaw;                 // steps of 0.75 degrees
    int32_t covered;             // -128: nothing, 127: everything
};

struct Candidate {
    Description face;
    int32_t score;     // logit in sixteenths
    int32_t levelSide; // of the box at the level where it was seen, quarter pixels of that
};

// The candidates with the best scores; of equal ones those that came first. It lies in the working
// memory: Clear() makes one.
class CandidateList {
  public:
    void Clear() { count_ = 0; }
    void Add(const Candidate& candidate);

    int32_t count() const { return count_; }
    // Best first, equal ones in the order in which they came.
    const Candidate& At(int32_t place) const { return all_[order_[place]]; }

  private:
    int32_t count_;
    int16_t order_[kMostCandidates];
    Candidate all_[kMostCandidates];
};

// Adds what the answers for a level of that size, which is not padded, have for candidates: stride 8
// before 16, row after row.
void AddCandidates(const Answers& answers, int32_t level, Size real, CandidateList& list);

} // namespace orvo::find
