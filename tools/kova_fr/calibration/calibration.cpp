// SPDX-License-Identifier: MIT
#include "calibration/calibration.h"

#include <algorithm>
#include <cmath>

#include "orvo/orvo_fr.h"

namespace kova_cli {
namespace {

float InnerProduct(const Feature& a, const Feature& b) {
    return OrvoFrGetDistance(a.data(), sizeof a, b.data(), sizeof b);
}

// Without the very highest: the face may be that of somebody in the cohort.
double MeanOfMostAlike(std::vector<float>& scores) {
    if (scores.size() < 2) {
        return 0;
    }
    const size_t count = MostAlike(scores.size());
    const auto end = scores.begin() + static_cast<std::ptrdiff_t>(count) + 1;
    std::partial_sort(scores.begin(), end, scores.end(), std::greater<>());
    double sum = 0;
    for (auto score = scores.begin() + 1; score != end; ++score) {
        sum += static_cast<double>(*score);
    }
    return sum / static_cast<double>(count);
}

} // namespace

size_t MostAlike(size_t cohort) { return std::max<size_t>(1, cohort / 5); }

Feature Centred(const std::array<double, ORVO_FR_FEATURE_LENGTH>& mean, const Feature& feature) {
    std::array<double, ORVO_FR_FEATURE_LENGTH> rest;
    double squares = 0;
    for (size_t i = 0; i < rest.size(); ++i) {
        rest[i] = static_cast<double>(feature[i]) - mean[i];
        squares += rest[i] * rest[i];
    }
    const double factor = squares > 0 ? 1 / std::sqrt(squares) : 0;
    Feature centred;
    for (size_t i = 0; i < rest.size(); ++i) {
        centred[i] = static_cast<float>(rest[i] * factor);
    }
    return centred;
}

FaceCalibrator::FaceCalibrator(const Calibration& calibration)
    : calibration_(calibration),
      cohort_(orvo::LookThrough(reinterpret_cast<const float*>(calibration.cohort.data()),
                                calibration.cohort.size())) {}

CalibratedFace FaceCalibrator::operator()(const Feature& feature) const {
    CalibratedFace face;
    face.centred = Centred(calibration_.mean, feature);
    std::vector<float> scores(cohort_.count);
    orvo::Distances(face.centred.data(), cohort_, scores.data());
    face.likeOthers = MeanOfMostAlike(scores);
    return face;
}

float CentredScore(const CalibratedFace& a, const CalibratedFace& b) {
    return InnerProduct(a.centred, b.centred);
}

float NormalisedScore(const CalibratedFace& a, const CalibratedFace& b) {
    const double centred = static_cast<double>(CentredScore(a, b));
    return static_cast<float>(std::clamp(centred - 0.5 * (a.likeOthers + b.likeOthers), -1.0, 1.0));
}

Rarity RarityOf(const Calibration& calibration, double normalisedScore) {
    return RarityAmong(calibration.strangers, calibration.strangerPairs, normalisedScore);
}

Rarity RarityAmong(const std::vector<Calibration::StrangerScore>& strangers, uint64_t pairs,
                   double score) {
    const auto all = static_cast<double>(pairs);
    uint64_t asHigh = 0;
    for (const Calibration::StrangerScore& one : strangers) {
        // Up to how many pairs score as high: those before the next that is listed and does not.
        if (one.score < score) {
            asHigh = asHigh == 0 ? 0 : one.rank - 1;
            break;
        }
        asHigh = one.rank;
    }
    if (asHigh == 0) {
        return {std::max(1.0, all / 3), true};
    }
    return {all / static_cast<double>(asHigh), false};
}

} // namespace kova_cli
