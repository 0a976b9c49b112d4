// SPDX-License-Identifier: MIT
#include "calibration/calibrating.h"

#include <algorithm>

#include "evaluation/statistics/figures.h"

namespace kova_cli {
namespace {

using kova_statistics::Comparisons;
using kova_statistics::Figures;
using kova_statistics::Rate;
using kova_statistics::Recommendation;
using nlohmann::ordered_json;

constexpr uint32_t kFolds = 10;
constexpr size_t kMostInCohort = 200;
constexpr uint64_t kRankSteps = 5; // the next rank that is kept is a fifth more

using People = std::vector<std::vector<uint32_t>>; // the pictures of each

People PicturesOfPeople(const Comparisons& comparisons) {
    People people(comparisons.people);
    for (uint32_t picture = 0; picture < comparisons.person.size(); ++picture) {
        people[comparisons.person[picture]].push_back(picture);
    }
    return people;
}

// Mean and cohort of the people for whom `isWanted`.
Calibration Model(const Comparisons& comparisons, const People& people,
                  const std::function<bool(uint32_t)>& isWanted) {
    Calibration model;
    std::vector<uint32_t> wanted;
    for (uint32_t person = 0; person < people.size(); ++person) {
        if (isWanted(person)) {
            wanted.push_back(person);
        }
    }
    for (const uint32_t person : wanted) {
        const double share =
            1 / static_cast<double>(wanted.size()) / static_cast<double>(people[person].size());
        for (const uint32_t picture : people[person]) {
            for (size_t i = 0; i < model.mean.size(); ++i) {
                model.mean[i] += share * static_cast<double>(comparisons.features[picture][i]);
            }
        }
    }
    // Spread evenly over the people where they are too many.
    const size_t size = std::min(kMostInCohort, wanted.size());
    for (size_t i = 0; i < size; ++i) {
        const uint32_t person = wanted[i * wanted.size() / size];
        model.cohort.push_back(Centred(model.mean, comparisons.features[people[person].front()]));
    }
    return model;
}

// Normalised scores of all pairs of pictures.
class PairScores {
  public:
    explicit PairScores(size_t pictures) : scores_(pictures * (pictures - 1) / 2) {}
    float& At(uint32_t a, uint32_t b) {
        const size_t first = std::min(a, b);
        const size_t second = std::max(a, b);
        return scores_[second * (second - 1) / 2 + first];
    }

  private:
    std::vector<float> scores_;
};

// Those of the pairs between two folds, or within one.
void ScoreFolds(const Comparisons& comparisons, const People& people, uint32_t one, uint32_t other,
                PairScores& scores) {
    const Calibration model = Model(comparisons, people, [&](uint32_t person) {
        return person % kFolds != one && person % kFolds != other;
    });
    const FaceCalibrator calibrated(model);
    std::vector<std::pair<uint32_t, CalibratedFace>> faces;
    for (uint32_t person = 0; person < people.size(); ++person) {
        if (person % kFolds == one || person % kFolds == other) {
            for (const uint32_t picture : people[person]) {
                faces.emplace_back(picture, calibrated(comparisons.features[picture]));
            }
        }
    }
    const auto foldOf = [&](uint32_t picture) { return comparisons.person[picture] % kFolds; };
    for (const auto& [a, faceA] : faces) {
        for (const auto& [b, faceB] : faces) {
            const bool isOurs = one == other || (foldOf(a) == one && foldOf(b) == other);
            if (isOurs && (one != other || a < b)) {
                scores.At(a, b) = NormalisedScore(faceA, faceB);
            }
        }
    }
}

PairScores ScoreAll(const Comparisons& comparisons, const People& people,
                    const std::function<void(size_t, size_t)>& progress) {
    PairScores scores(comparisons.features.size());
    size_t done = 0;
    for (uint32_t one = 0; one < kFolds; ++one) {
        for (uint32_t other = one; other < kFolds; ++other) {
            progress(done++, kFolds * (kFolds + 1) / 2);
            ScoreFolds(comparisons, people, one, other, scores);
        }
    }
    return scores;
}

void RankStrangers(const Comparisons& comparisons, PairScores& scores, Calibration& calibration) {
    std::vector<float> strangers;
    for (uint32_t b = 0; b < comparisons.person.size(); ++b) {
        for (uint32_t a = 0; a < b; ++a) {
            if (comparisons.person[a] != comparisons.person[b]) {
                strangers.push_back(scores.At(a, b));
            }
        }
    }
    std::sort(strangers.begin(), strangers.end(), std::greater<>());
    calibration.strangerPairs = strangers.size();
    for (uint64_t rank = 1; rank < strangers.size();
         rank += std::max<uint64_t>(1, rank / kRankSteps)) {
        calibration.strangers.push_back({rank, static_cast<double>(strangers[rank - 1])});
    }
    calibration.strangers.push_back({strangers.size(), static_cast<double>(strangers.back())});
}

ordered_json RateJson(const Rate& rate) {
    return {{"rate", rate.value()}, {"interval", {rate.interval.low, rate.interval.high}}};
}

ordered_json Thresholds(const Figures& figures) {
    ordered_json thresholds = ordered_json::array();
    for (const Recommendation& one : figures.recommendations) {
        if (!one.errors) {
            continue;
        }
        ordered_json entry = {{"false_accept_rate", one.wanted},
                              {"threshold", kova_statistics::ThresholdNumber(one.errors->rank)},
                              {"false_accepts", RateJson(*one.errors->falseAccepts)}};
        entry["false_rejects"] =
            one.errors->falseRejects ? RateJson(*one.errors->falseRejects) : ordered_json(nullptr);
        entry["rough"] = one.isRough;
        thresholds.push_back(entry);
    }
    return thresholds;
}

} // namespace

Calibration Calibrate(const Comparisons& comparisons, const CalibratingOptions& options,
                      const std::function<void(size_t, size_t)>& progress) {
    const People people = PicturesOfPeople(comparisons);
    Calibration calibration = Model(comparisons, people, [](uint32_t) { return true; });
    calibration.models = ModelsDigest();
    calibration.pictures = comparisons.features.size();
    calibration.people = comparisons.people;
    calibration.isLabelled = comparisons.features.size() > comparisons.people;

    PairScores scores = ScoreAll(comparisons, people, progress);
    RankStrangers(comparisons, scores, calibration);

    Comparisons scored = comparisons;
    scored.score = [&scores](uint32_t a, uint32_t b) { return scores.At(a, b); };
    kova_statistics::ScoringLimits limits;
    limits.seed = options.seed;
    const auto silent = [](size_t, size_t) {};
    const Figures figures = ComputeFigures(ScorePairs(scored, limits, silent), comparisons.people,
                                           options.rounds, options.seed, silent);
    calibration.thresholds = Thresholds(figures);
    return calibration;
}

} // namespace kova_cli
