// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "evaluation/eval_input.h"
#include "faces/face.h"

namespace kova_cli {

struct FeatureReading {
    bool detect = false; // whole photographs: find the largest face in each
    bool strict = false; // a picture that cannot be used is a Failure
};

// The feature of each picture; none where it cannot be used, which is said on standard error at once
// and added to `leftOut` with its reason.
std::vector<std::optional<Feature>> ReadFeatures(const Recogniser& recogniser,
                                                 const EvalInput& input,
                                                 const FeatureReading& reading,
                                                 std::vector<std::string>& leftOut);

} // namespace kova_cli
