// SPDX-License-Identifier: MIT
#include "statistics/search_rounds.h"

#include <algorithm>
#include <bit>

namespace kova_statistics {

SearchRounds::SearchRounds(const Trial& trial, uint32_t rounds)
    : trial_(trial), enrolledIn_(trial.features.size()) {
    std::vector<std::vector<uint32_t>> pictures(trial.people);
    for (uint32_t picture = 0; picture < trial.person.size(); ++picture) {
        pictures[trial.person[picture]].push_back(picture);
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
    best_.resize(trial.features.size() * rounds_);
}

void SearchRounds::Add(uint32_t first, uint32_t second, float score) {
    Meet(first, second, score);
    Meet(second, first, score);
}

void SearchRounds::Meet(uint32_t looked, uint32_t enrolled, float score) {
    const bool isOwn = trial_.person[looked] == trial_.person[enrolled];
    for (uint32_t left = enrolledIn_[enrolled]; left != 0; left &= left - 1) {
        const auto round = static_cast<uint32_t>(std::countr_zero(left));
        Best& best = best_[size_t{looked} * rounds_ + round];
        float& place = isOwn ? best.own : best.other;
        place = std::max(place, score);
    }
}

std::vector<Found> SearchRounds::Result() const {
    std::vector<Found> found(trial_.people);
    for (size_t picture = 0; picture < trial_.person.size(); ++picture) {
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
            Found& person = found[trial_.person[picture]];
            person.asked += 1;
            person.right += static_cast<double>(right) / asked;
        }
    }
    return found;
}

} // namespace kova_statistics
