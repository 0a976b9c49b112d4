// SPDX-License-Identifier: MIT
#include "evaluation/statistics/search_rounds.h"

#include <algorithm>
#include <bit>

namespace kova_statistics {

SearchRounds::SearchRounds(const Comparisons& comparisons, uint32_t rounds)
    : comparisons_(comparisons), enrolledIn_(comparisons.features.size()) {
    std::vector<std::vector<uint32_t>> pictures(comparisons.people);
    for (uint32_t picture = 0; picture < comparisons.person.size(); ++picture) {
        pictures[comparisons.person[picture]].push_back(picture);
    }
    size_t most = 0;
    for (const std::vector<uint32_t>& own : pictures) {
        most = std::max(most, own.size());
    }
    rounds_ = std::min(rounds, static_cast<uint32_t>(most));
    for (const std::vector<uint32_t>& own : pictures) {
        for (uint32_t round = 0; round < rounds_; ++round) {
            enrolledIn_[own[round % own.size()]] |= 1u << round;
        }
    }
    best_.resize(comparisons.features.size() * rounds_);
}

void SearchRounds::Add(uint32_t first, uint32_t second, float score) {
    Meet(first, second, score);
    Meet(second, first, score);
}

void SearchRounds::Meet(uint32_t looked, uint32_t enrolled, float score) {
    const bool isOwn = comparisons_.person[looked] == comparisons_.person[enrolled];
    for (uint32_t left = enrolledIn_[enrolled]; left != 0; left &= left - 1) {
        const auto round = static_cast<uint32_t>(std::countr_zero(left));
        Best& best = best_[size_t{looked} * rounds_ + round];
        float& place = isOwn ? best.own : best.other;
        place = std::max(place, score);
    }
}

std::vector<Found> SearchRounds::Result() const {
    std::vector<Found> found(comparisons_.people);
    for (size_t picture = 0; picture < comparisons_.person.size(); ++picture) {
        uint32_t asked = 0;
        uint32_t right = 0;
        for (uint32_t round = 0; round < rounds_; ++round) {
            const Best& best = best_[picture * rounds_ + round];
            if (!IsEnrolled(picture, round)) {
                ++asked;
                right += best.own > best.other ? 1 : 0;
            }
        }
        if (asked > 0) {
            Found& person = found[comparisons_.person[picture]];
            person.asked += 1;
            person.right += static_cast<double>(right) / asked;
        }
    }
    return found;
}

} // namespace kova_statistics
