// SPDX-License-Identifier: MIT
//
// Several answers describe one face, each a little otherwise: they are brought together.
#pragma once

#include <cstdint>

#include "find/candidates.h"

namespace orvo::find {

struct FoundFace {
    Description face;
    int32_t score;       // logit in sixteenths
    int32_t probability; // the same in 1024ths
    int32_t support;     // candidates that it was made from
};

// Takes faces out of a list, best first.
class Merger {
  public:
    explicit Merger(const CandidateList& list) : list_(list) {}

    // The next face: the best candidate that is left, and all that overlap with it. False when none
    // is left that is worth a second look.
    bool Next(FoundFace& found);

  private:
    const CandidateList& list_;
    bool isUsed_[kMostCandidates] = {};
    int32_t next_ = 0;
};

// Faces that were looked at once more: the best first, equal ones in the order in which they came, and
// no more than there is room for. It lies in the working memory: Clear() makes one.
class FaceList {
  public:
    void Clear() { count_ = 0; }
    void Add(const FoundFace& face);

    // Of those that overlap only the best stay: two finds may have turned out to be one face.
    void DropRepeated();

    int32_t count() const { return count_; }
    const FoundFace& At(int32_t place) const { return all_[place]; }

  private:
    int32_t count_;
    FoundFace all_[kMostFaces];
};

} // namespace orvo::find
