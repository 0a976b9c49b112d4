// SPDX-License-Identifier: MIT
//
// Several answers describe one face, each a little otherwise: they are brought together.
#pragma once

#include <cstdint>

#include "find/candidates.h"

namespace orvo::find {

struct FoundFace {
    Description face;
    int32_t probability; // 1024ths
    int32_t support;     // candidates that it was made from
};

// Takes faces out of a list, best first.
class Merger {
  public:
    explicit Merger(const CandidateList& list) : list_(list) {}

    // The next face: the best candidate that is left, and all that overlap with it. False when none
    // is left that is sure enough.
    bool Next(FoundFace& found);

  private:
    const CandidateList& list_;
    bool isUsed_[kMostCandidates] = {};
    int32_t next_ = 0;
};

} // namespace orvo::find
