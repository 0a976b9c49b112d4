// SPDX-License-Identifier: MIT
#include "evaluation/eval_features.h"

#include <cstdio>

#include "faces/detector.h"
#include "files/failure.h"
#include "terminal/label.h"
#include "terminal/progress.h"

namespace kova_cli {
namespace {

Feature FeatureOf(const Recogniser& recogniser, const std::string& path, bool detect) {
    std::optional<Box> box;
    if (detect) {
        box = DetectFaces(path).front();
    }
    return recogniser.Recognise(path, box).feature;
}

} // namespace

std::vector<std::optional<Feature>> ReadFeatures(const Recogniser& recogniser,
                                                 const EvalInput& input,
                                                 const FeatureReading& reading,
                                                 std::vector<std::string>& leftOut) {
    Progress progress("Reading");
    std::vector<std::optional<Feature>> features;
    for (const std::string& path : input.pictures) {
        progress.Show(features.size(), input.pictures.size());
        try {
            features.emplace_back(FeatureOf(recogniser, path, reading.detect));
        } catch (const Failure& failure) {
            if (reading.strict) {
                throw;
            }
            progress.Clear();
            std::fprintf(stderr, "kova-fr: left out: %s\n", OneLine(failure.what()).c_str());
            leftOut.emplace_back(failure.what());
            features.emplace_back(std::nullopt);
        }
    }
    return features;
}

} // namespace kova_cli
