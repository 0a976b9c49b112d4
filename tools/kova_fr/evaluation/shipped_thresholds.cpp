// SPDX-License-Identifier: MIT
#include "evaluation/shipped_thresholds.h"

#include <cmath>
#include <cstdio>

#include "shipped_thresholds_text.h"
#include "terminal/label.h"

namespace kova_cli {
namespace {

using nlohmann::ordered_json;

std::string Number(const char* format, double value) {
    char text[32];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

std::string Share(const ordered_json& one) {
    const ordered_json& interval = one.at("false_accepts").at("interval");
    return Number("%.4f", one.at("threshold").get<double>()) + " accepts " +
           Number("%g %% (", 100 * one.at("false_accept_rate").get<double>()) +
           Number("%.2g to ", 100 * interval.at(0).get<double>()) +
           Number("%.2g)", 100 * interval.at(1).get<double>());
}

// The record as it is shipped; below "crops" that of crops.
const ordered_json& StudyOf(bool isCrop) {
    static const ordered_json found = ordered_json::parse(kShippedThresholdsText);
    return isCrop && !found.is_null() ? found.at("crops") : found;
}

} // namespace

ordered_json ShippedThresholds(bool isCrop) {
    ordered_json thresholds = StudyOf(isCrop);
    if (!thresholds.is_null()) {
        thresholds.erase("strangers");
        thresholds.erase("crops");
    }
    return thresholds;
}

ordered_json ShippedStrangers(bool isCrop) {
    const ordered_json& study = StudyOf(isCrop);
    return study.is_null() ? ordered_json::array() : study.at("strangers");
}

std::string ThresholdsText(bool isCrop) {
    const ordered_json thresholds = ShippedThresholds(isCrop);
    if (thresholds.is_null()) {
        return Wrapped(
            "From which distance two faces count as one person was not measured for the models of "
            "this build: measure on pictures of your own with kova-fr eval.");
    }
    return Wrapped("Of pairs of strangers on " + thresholds.at("measured_on").get<std::string>() +
                   ", " + thresholds.at("faces").get<std::string>() + ", a threshold of " +
                   SharesText(thresholds.at("at")) +
                   ", with 95 % intervals over people in brackets. " +
                   thresholds.at("warning").get<std::string>());
}

std::optional<double> ThresholdFor(const ordered_json& at, double falseAccepts) {
    for (const ordered_json& one : at) {
        if (std::abs(one.at("false_accept_rate").get<double>() - falseAccepts) < 1e-9) {
            return one.at("threshold").get<double>();
        }
    }
    return std::nullopt;
}

std::optional<double> ShippedThreshold(double falseAccepts, bool isCrop) {
    const ordered_json& study = StudyOf(isCrop);
    return study.is_null() ? std::nullopt : ThresholdFor(study.at("at"), falseAccepts);
}

std::string ThresholdOfExamples() {
    constexpr double kExampleRate = 1e-3;
    const std::optional<double> one = ShippedThreshold(kExampleRate);
    return one ? Number("%.4f", *one) : "0.9";
}

std::string SharesText(const ordered_json& at) {
    std::string text;
    for (const ordered_json& one : at) {
        if (!one.at("rough").get<bool>()) {
            text += (text.empty() ? "" : ", ") + Share(one);
        }
    }
    return text;
}

} // namespace kova_cli
