// SPDX-License-Identifier: MIT
#include "calibration/calibration_words.h"

#include <cmath>

#include "evaluation/shipped_thresholds.h"
#include "terminal/label.h"

namespace kova_cli {
namespace {

constexpr uint64_t kFewPeople = 50; // to trust the intervals of
constexpr double kAlmostAll = 2;    // of two strangers one is as alike

// 12345 becomes "12,000".
std::string RoundedDown(double number) {
    double unit = 1;
    while (number / unit >= 100) {
        unit *= 10;
    }
    std::string digits = std::to_string(static_cast<uint64_t>(std::floor(number / unit) * unit));
    for (size_t end = digits.size(); end > 3;) {
        end -= 3;
        digits.insert(end, ",");
    }
    return digits;
}

} // namespace

std::string RarityWords(const Rarity& rarity) {
    if (rarity.isBeyond) {
        return "more alike than all pairs of strangers that were measured, fewer than 1 in " +
               RoundedDown(rarity.pairs) + " are";
    }
    if (rarity.pairs < kAlmostAll) {
        return "no more alike than strangers mostly are";
    }
    return "as alike as 1 in " + RoundedDown(rarity.pairs) + " pairs of strangers";
}

nlohmann::ordered_json RarityJson(const Rarity& rarity) {
    return {{"one_in", rarity.pairs}, {"beyond", rarity.isBeyond}};
}

std::string CalibrationWords(const Calibration& calibration) {
    const std::string shares = SharesText(calibration.thresholds);
    std::string text =
        Wrapped("Calibrated on " + std::to_string(calibration.pictures) + " pictures of " +
                std::to_string(calibration.people) + " people. " +
                (shares.empty() ? "They are too few for thresholds."
                                : "Of pairs of strangers a threshold of the normalised score of " +
                                      shares + ", with 95 % intervals over people in brackets."));
    if (calibration.people < kFewPeople) {
        text += Wrapped("There are only " + std::to_string(calibration.people) +
                        " people: the intervals themselves are rough, and too narrow if anything.");
    }
    return text;
}

} // namespace kova_cli
