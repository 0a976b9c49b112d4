// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <vector>

#include "evaluation/statistics/comparisons.h"
#include "faces/digest.h"
#include "search/distances.h"

namespace kova_cli {

using Feature = kova_statistics::Feature;

// How the faces of pictures were come by: found in whole pictures, or the pictures were crops. Files
// of earlier programs do not say.
enum class OfFaces { kUnsaid, kFound, kCrops };

// What scores mean for one camera and the people before it.
//
// Real faces share a direction of the feature space, so that strangers score well above 0. Where the
// direction lies depends on the camera and on the people; taken off, it leaves what tells them
// apart. A face may also be like everybody, blurred ones are: the cohort, pictures of different
// people, shows how much, and that is taken off as well.
struct Calibration {
    Sha256 models = {};
    uint64_t pictures = 0;
    uint64_t people = 0;
    bool isLabelled = false; // people with several pictures, so that false rejects are known
    OfFaces of = OfFaces::kUnsaid;
    std::array<double, ORVO_FR_FEATURE_LENGTH> mean = {};
    std::vector<Feature> cohort; // centred, of unit length, a person each

    // Scores of pairs of strangers, the highest first: some ranks of all, see StrangerScore.
    struct StrangerScore {
        uint64_t rank = 0; // how many pairs score at least this
        double score = 0;
    };
    uint64_t strangerPairs = 0;
    std::vector<StrangerScore> strangers;

    // Of normalised scores: an array in the form that models/thresholds.json has below "at".
    nlohmann::ordered_json thresholds;
};

// What the mean leaves of a feature, at unit length; 0 where nothing is left.
Feature Centred(const std::array<double, ORVO_FR_FEATURE_LENGTH>& mean, const Feature& feature);

// A face as a calibration sees it.
struct CalibratedFace {
    Feature centred = {};
    double likeOthers = 0; // mean score with those of the cohort that are most like it
};

// How many of a cohort count as most alike, behind the very first: a fifth, so that a smaller cohort
// says the same.
size_t MostAlike(size_t cohort);

// Looks at faces with a calibration, which must outlive it.
class FaceCalibrator {
  public:
    explicit FaceCalibrator(const Calibration& calibration);
    CalibratedFace operator()(const Feature& feature) const;

  private:
    const Calibration& calibration_;
    orvo::Features cohort_;
};

// The inner product without the mean: 1 for a face with itself.
float CentredScore(const CalibratedFace& a, const CalibratedFace& b);

// The same less what both faces have with others on average, from -1 to 1. Thresholds of a
// calibration are of this score.
float NormalisedScore(const CalibratedFace& a, const CalibratedFace& b);

// How many pairs of strangers there are for each that scores as high, at the least: 400 stands for 1
// in 400. `isBeyond`: none of all did, and what can be said by the rule of three is that it is
// fewer than 1 in `pairs`.
struct Rarity {
    double pairs = 1;
    bool isBeyond = false;
};

Rarity RarityOf(const Calibration& calibration, double normalisedScore);

// The same among any scores of so many pairs of strangers, see Calibration::strangers.
Rarity RarityAmong(const std::vector<Calibration::StrangerScore>& strangers, uint64_t pairs,
                   double score);

} // namespace kova_cli
