// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "evaluation/eval_input.h"
#include "faces/face.h"

namespace kova_cli {

struct FeatureReading {
    bool isCrop = false;     // each is a crop that one face fills, in place of a whole photograph
    bool anyQuality = false; // a face that is not good enough is no reason to leave a picture out
    bool strict = false;     // a picture that cannot be used is a Failure
};

// The feature of each picture; none where it cannot be used, which is said on standard error at once
// and added to `leftOut` with its reason.
std::vector<std::optional<Feature>> ReadFeatures(const Recogniser& recogniser,
                                                 const EvalInput& input,
                                                 const FeatureReading& reading,
                                                 std::vector<std::string>& leftOut);

} // namespace kova_cli
