// SPDX-License-Identifier: MIT
#include "evaluation/shipped_thresholds.h"

#include <cmath>
#include <cstdio>

#include "shipped_thresholds_text.h"
#include "terminal/label.h"

namespace kova_cli {
namespace {

using nlohmann::ordered_json;

constexpr double kExampleRate = 1e-3;

bool IsRate(const ordered_json& one, double rate) {
    return std::abs(one.at("false_accept_rate").get<double>() - rate) < 1e-9;
}

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

} // namespace

const ordered_json& ShippedThresholds() {
    static const ordered_json thresholds = ordered_json::parse(kShippedThresholdsText);
    return thresholds;
}

std::string ThresholdsText() {
    const ordered_json& thresholds = ShippedThresholds();
    if (thresholds.is_null()) {
        return Wrapped(
            "From which distance two faces count as one person was not measured for the models of "
            "this build: measure on pictures of your own with kova-fr eval.");
    }
    return Wrapped("Of pairs of strangers on " + thresholds.at("measured_on").get<std::string>() +
                   " a threshold of " + SharesText(thresholds.at("at")) +
                   ", with 95 % intervals over people in brackets. " +
                   thresholds.at("warning").get<std::string>());
}

std::string ThresholdOfExamples() {
    const ordered_json& thresholds = ShippedThresholds();
    if (!thresholds.is_null()) {
        for (const ordered_json& one : thresholds.at("at")) {
            if (IsRate(one, kExampleRate)) {
                return Number("%.4f", one.at("threshold").get<double>());
            }
        }
    }
    return "0.9";
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
