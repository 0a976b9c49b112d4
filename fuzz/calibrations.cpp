// SPDX-License-Identifier: MIT
//
// Calibration files, with the thresholds in them, and what commands do with one that is taken: scores, words
// and the file written anew, which has to be taken as well.
#include <cmath>
#include <string>
#include <string_view>

#include "calibration/calibration_file.h"
#include "calibration/calibration_words.h"
#include "evaluation/shipped_thresholds.h"
#include "files/failure.h"
#include "memory_file.h"
#include "require.h"

namespace {

using orvo_fuzz::Require;

constexpr kova_cli::Sha256 kModels = {};

kova_cli::Feature FeatureAlong(size_t axis) {
    kova_cli::Feature feature = {};
    feature[axis] = 1;
    return feature;
}

void Score(const kova_cli::Calibration& calibration) {
    const kova_cli::FaceCalibrator calibrator(calibration);
    const auto a = calibrator(FeatureAlong(0));
    const auto b = calibrator(FeatureAlong(127));
    const float score = kova_cli::NormalisedScore(a, b);
    Require(std::isfinite(score) && std::isfinite(kova_cli::CentredScore(a, b)),
            "scores are numbers");
    for (const double at : {-1.0, static_cast<double>(score), 1.0}) {
        const kova_cli::Rarity rarity = kova_cli::RarityOf(calibration, at);
        Require(rarity.pairs >= 1, "a rarity is 1 in 1 at the least");
        static_cast<void>(kova_cli::RarityWords(rarity));
        static_cast<void>(kova_cli::RarityJson(rarity).dump());
    }
}

void Describe(const kova_cli::Calibration& calibration) {
    static_cast<void>(kova_cli::CalibrationWords(calibration));
    static_cast<void>(kova_cli::SharesText(calibration.thresholds));
    static_cast<void>(kova_cli::ThresholdFor(calibration.thresholds, 1e-3));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const orvo_fuzz::MemoryFile file;
    file.Write({data, size});
    try {
        const kova_cli::Calibration calibration = kova_cli::LoadCalibration(file.path(), kModels);
        Score(calibration);
        Describe(calibration);
        const std::string text = kova_cli::CalibrationText(calibration);
        file.Write({reinterpret_cast<const uint8_t*>(text.data()), text.size()});
    } catch (const kova_cli::Failure& failure) {
        Require(std::string_view(failure.what()).find('\n') == std::string_view::npos,
                "a message is one line");
        return 0;
    }
    const auto again = kova_cli::LoadCalibration(file.path(), kModels);
    Require(!kova_cli::CalibrationText(again).empty(), "what was written is taken");
    return 0;
}
