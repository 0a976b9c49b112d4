// SPDX-License-Identifier: MIT
#pragma once

#include <vector>

#include "evaluation/statistics/comparisons.h"

namespace kova_statistics {

// Looking for people, one picture of each enrolled: in the first round each person's first picture,
// in the next the second, and so on, beginning anew with those who have fewer. The other pictures
// are looked for. One is found if its own person's is more alike than everybody else's.
class SearchRounds {
  public:
    SearchRounds(const Comparisons& comparisons, uint32_t rounds);

    // Hears the score of each pair once.
    void Add(uint32_t first, uint32_t second, float score);

    // A picture's share of the rounds in which it was looked for counts; one that never was, since
    // its person has no other, does not.
    std::vector<Found> Result() const;

  private:
    struct Best {
        float own = kNone;
        float other = kNone;
    };
    static constexpr float kNone = -2; // below every score

    void Meet(uint32_t looked, uint32_t enrolled, float score);
    bool IsEnrolled(size_t picture, uint32_t round) const {
        return (enrolledIn_[picture] >> round & 1) != 0;
    }

    const Comparisons& comparisons_;
    uint32_t rounds_ = 0;
    std::vector<uint32_t> enrolledIn_; // of each picture: a bit a round
    std::vector<Best> best_;           // of each picture and round
};

} // namespace kova_statistics
