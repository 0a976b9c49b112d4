// SPDX-License-Identifier: MIT
#include "evaluation/verdict.h"

#include <vector>

#include "calibration/calibration.h"
#include "calibration/calibration_words.h"
#include "evaluation/shipped_thresholds.h"
#include "evaluation/statistics/thresholds.h"
#include "terminal/label.h"

namespace kova_cli {
namespace {

using nlohmann::ordered_json;

// Accepts so many strangers at the most who says "probably", and who says "perhaps".
constexpr double kProbably = 1e-3;
constexpr double kPerhaps = 1e-2;

struct Verdict {
    const char* word; // none: nothing was measured
    const char* sentence;
    Rarity rarity;
    uint64_t pairs; // of strangers
};

bool Reaches(double falseAccepts, bool isCrop, double number) {
    const std::optional<double> threshold = ShippedThreshold(falseAccepts, isCrop);
    return threshold && number >= *threshold;
}

Verdict VerdictOf(float distance, bool isCrop) {
    const ordered_json thresholds = ShippedThresholds(isCrop);
    if (thresholds.is_null()) {
        return {nullptr, nullptr, {}, 0};
    }
    std::vector<Calibration::StrangerScore> strangers;
    for (const ordered_json& one : ShippedStrangers(isCrop)) {
        strangers.push_back({one.at(0).get<uint64_t>(), one.at(1).get<double>()});
    }
    // The scores of strangers were counted between thresholds of four decimals.
    const double number = kova_statistics::ThresholdNumber(kova_statistics::RankOf(distance));
    const auto pairs = thresholds.at("pairs_of_two_people").get<uint64_t>();
    const Rarity rarity = RarityAmong(strangers, pairs, number);
    if (Reaches(kProbably, isCrop, number)) {
        return {"probably", "Probably the same person", rarity, pairs};
    }
    if (Reaches(kPerhaps, isCrop, number)) {
        return {"perhaps", "Perhaps the same person", rarity, pairs};
    }
    return {"different", "Probably different people", rarity, pairs};
}

} // namespace

std::string VerdictText(float distance, bool isCrop) {
    const Verdict verdict = VerdictOf(distance, isCrop);
    if (verdict.word == nullptr) {
        return "";
    }
    const ordered_json thresholds = ShippedThresholds(isCrop);
    // Pairs of so few people are not independent, so what none of them reached is given no rate.
    const std::string howAlike = verdict.rarity.isBeyond
                                     ? "more alike than any of the pairs of strangers"
                                     : RarityWords(verdict.rarity);
    return Wrapped(std::string(verdict.sentence) + ": " + howAlike + ". (Measured on " +
                   std::to_string(verdict.pairs) + " pairs of pictures of " +
                   std::to_string(thresholds.at("people").get<uint64_t>()) + " people, " +
                   thresholds.at("measured_on").get<std::string>() + ", " +
                   thresholds.at("faces").get<std::string>() + ".)");
}

ordered_json VerdictJson(float distance, bool isCrop) {
    const Verdict verdict = VerdictOf(distance, isCrop);
    if (verdict.word == nullptr) {
        return nullptr;
    }
    ordered_json json = RarityJson(verdict.rarity);
    json["verdict"] = verdict.word;
    return json;
}

} // namespace kova_cli
