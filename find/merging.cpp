// SPDX-License-Identifier: MIT
#include "find/merging.h"

#include <algorithm>

#include "find/answer_tables.h"

namespace orvo::find {
namespace {

int32_t ProbabilityOf(const Candidate& candidate) { return kProbability[candidate.score + 128]; }

// What two boxes share and take together, in 64ths of a square pixel.
struct Overlap {
    int64_t shared, both, smaller;

    bool isOneFace() const { return 5 * shared >= kSharedFifthsOfUnion * both; }
    bool isPart() const { return 10 * shared >= kSharedTenthsOfSmaller * smaller; }
};

// Of two spans with middles a and b: eighths, so that half of a side is whole.
int64_t SharedLength(int32_t a, int32_t aSide, int32_t b, int32_t bSide) {
    const int64_t first = std::max(2 * int64_t{a} - aSide, 2 * int64_t{b} - bSide);
    const int64_t last = std::min(2 * int64_t{a} + aSide, 2 * int64_t{b} + bSide);
    return std::max(last - first, int64_t{0});
}

Overlap OverlapOf(const Description& a, const Description& b) {
    const int64_t shared =
        SharedLength(a.x, a.side, b.x, b.side) * SharedLength(a.y, a.side, b.y, b.side);
    const int64_t first = 4 * int64_t{a.side} * a.side;
    const int64_t second = 4 * int64_t{b.side} * b.side;
    return {shared, first + second - shared, std::min(first, second)};
}

// Sums of all numbers of descriptions, each by its weight.
struct WeightedSum {
    static constexpr int32_t kNumbers = 3 + 2 * kPoints + 2;
    int64_t sums[kNumbers] = {};
    int64_t weights = 0;

    void Add(const Description& face, int64_t weight) {
        int64_t* sum = sums;
        for (const int32_t value : {face.x, face.y, face.side, face.yaw, face.covered}) {
            *sum++ += weight * value;
        }
        for (const int32_t value : face.points) {
            *sum++ += weight * value;
        }
        weights += weight;
    }
    Description Mean() const {
        Description face;
        const int64_t* sum = sums;
        for (int32_t* value : {&face.x, &face.y, &face.side, &face.yaw, &face.covered}) {
            *value = Rounded(*sum++);
        }
        for (int32_t& value : face.points) {
            value = Rounded(*sum++);
        }
        return face;
    }

  private:
    // Half up, below zero as well.
    int32_t Rounded(int64_t sum) const {
        const int64_t dividend = 2 * sum + weights;
        const int64_t divisor = 2 * std::max<int64_t>(weights, 1); // nothing was added: 0
        const int64_t down = dividend % divisor < 0 ? 1 : 0;
        return static_cast<int32_t>(dividend / divisor - down);
    }
};

// The more pixels a level gives a face, the better its answer knows the places. Sums of 512 stay
// below 2^61: such a weight is below 2^30, a length below 2^22.
int64_t WeightOf(const Candidate& candidate) {
    const int64_t probability = ProbabilityOf(candidate);
    return std::max<int64_t>(probability * probability >> 10, 1) * candidate.levelSide *
           candidate.levelSide;
}

} // namespace

bool Merger::Next(FoundFace& found) {
    while (next_ < list_.count() && isUsed_[next_]) {
        ++next_;
    }
    if (next_ == list_.count() || ProbabilityOf(list_.At(next_)) < kLookedAtProbability) {
        return false;
    }
    const Candidate& head = list_.At(next_);
    WeightedSum sum;
    found.support = 0;
    for (int32_t i = next_; i < list_.count(); ++i) {
        const Candidate& other = list_.At(i);
        if (isUsed_[i]) {
            continue;
        }
        const Overlap overlap = OverlapOf(head.face, other.face);
        if (!overlap.isOneFace() && !overlap.isPart()) {
            continue;
        }
        isUsed_[i] = true;
        ++found.support;
        if (overlap.isOneFace()) {
            sum.Add(other.face, WeightOf(other));
        }
    }
    found.face = sum.Mean();
    found.score = head.score;
    found.probability = ProbabilityOf(head);
    return true;
}

void FaceList::Add(const FoundFace& face) {
    FoundFace* const end = all_ + count_;
    FoundFace* const place =
        std::upper_bound(all_, end, face.score,
                         [](int32_t score, const FoundFace& other) { return score > other.score; });
    if (place == all_ + kMostFaces) {
        return;
    }
    count_ += count_ == kMostFaces ? 0 : 1;
    std::copy_backward(place, all_ + count_ - 1, all_ + count_);
    *place = face;
}

void FaceList::DropRepeated() {
    int32_t kept = 0;
    for (int32_t i = 0; i < count_; ++i) {
        const bool isRepeated = std::any_of(all_, all_ + kept, [&](const FoundFace& better) {
            const Overlap overlap = OverlapOf(better.face, all_[i].face);
            return overlap.isOneFace() || overlap.isPart();
        });
        if (!isRepeated) {
            all_[kept++] = all_[i];
        }
    }
    count_ = kept;
}

} // namespace orvo::find
