// SPDX-License-Identifier: MIT
//
// What kova-fr-bench measures of one path and kova-fr shows. The one writes it as JSON, the other
// reads that.
#pragma once

#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "timing/layer_clock.h"

namespace kova_cli {

struct Kind {
    const char* name;  // in JSON
    const char* label; // in the table
    unsigned parts;
};

inline constexpr Kind kKinds[] = {
    {"stems", "first convolutions", orvo_timing::kConv},
    {"pointwise", "pointwise convolutions", orvo_timing::kPointwise},
    {"depthwise", "depthwise convolutions", orvo_timing::kDepthwise},
    {"max_pooling", "max pooling", orvo_timing::kMaxPool},
    {"addition", "additions", orvo_timing::kAdd},
    {"rectifier", "rectifiers", orvo_timing::kRelu},
    {"sampling", "sampling", orvo_timing::kDownsample},
    {"head", "heads", orvo_timing::kHead},
};

// Milliseconds.
struct Times {
    double least = 0;
    double median = 0;
};

struct PathTimes {
    std::string path;
    double opening = 0;
    uint32_t memory = 0;
    size_t rounds = 0;
    Times face;
    std::vector<Times> kinds;
    Times rest; // of a face beyond its layers: resizing, copying, and reading the clock
};

nlohmann::ordered_json PathJson(const PathTimes& times);
PathTimes PathOf(const nlohmann::ordered_json& json);

} // namespace kova_cli
