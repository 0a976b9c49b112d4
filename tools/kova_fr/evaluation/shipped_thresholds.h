// SPDX-License-Identifier: MIT
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>

namespace kova_cli {

// The thresholds that were measured on real faces with the models of this build: the one place that
// help texts, printed results and JSON take them from. They stand in thresholds.json beside the
// models, and tools/measure_thresholds.py renews them. A build with models for which nobody
// measured any has none, and says so.

// They are of faces found in whole pictures, and once more of crops that one face fills: `isCrop`
// says which are wanted.

// As in the file, with the warning that belongs to them; null where there are none.
nlohmann::ordered_json ShippedThresholds(bool isCrop = false);

// Scores of the pairs of strangers there, [how many pairs score at least that, score], the highest
// first; empty where there are none.
nlohmann::ordered_json ShippedStrangers(bool isCrop);

// Which shares of the pairs of strangers reach which distance, where that was measured, and what
// moves it. Some lines of at most 80 columns.
std::string ThresholdsText(bool isCrop = false);

// Of thresholds in the form of the file's "at" the one for this rate of false accepts.
std::optional<double> ThresholdFor(const nlohmann::ordered_json& at, double falseAccepts);
// The same of the shipped ones.
std::optional<double> ShippedThreshold(double falseAccepts, bool isCrop = false);

// For examples that a user may copy: the one that accepts 1 of 1000 pairs of strangers.
std::string ThresholdOfExamples();

// Thresholds in the form of the file's "at", as part of a sentence: "0.5849 accepts 1 % (0.3 to
// 2.3)" and so on, without those that hang on a few pairs. Empty where all do.
std::string SharesText(const nlohmann::ordered_json& at);

} // namespace kova_cli
