// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>

namespace orvo_timing {

// Times the layers of one kind in the course of whole faces: the networks' kernel calls are led
// through RunPart(), see routed_kernels.h.

enum Part : unsigned {
    kConv = 1u << 0,
    kPointwise = 1u << 1,
    kDepthwise = 1u << 2,
    kMaxPool = 1u << 3,
    kAdd = 1u << 4,
    kRelu = 1u << 5,
    kDownsample = 1u << 6,
    kHead = 1u << 7,
    kFlip = 1u << 8,
    kAllKernels = (1u << 9) - 1,
};

using Clock = std::chrono::steady_clock;

inline unsigned g_parts = kAllKernels; // kernels that run
inline unsigned g_timedParts = 0;      // kernels whose time is added up
inline Clock::duration g_partsTime{};  // how long they took

template <unsigned kPart, typename... Parameters>
void RunPart(void (*kernel)(Parameters...), Parameters... arguments) {
    if ((g_parts & kPart) == 0) {
        return;
    }
    if ((g_timedParts & kPart) == 0) {
        kernel(arguments...);
        return;
    }
    const auto from = Clock::now();
    kernel(arguments...);
    g_partsTime += Clock::now() - from;
}

// How long the kernels of these kinds take while everything runs.
template <typename Face>
Clock::duration TimeKinds(unsigned kinds, const Face& face) {
    g_timedParts = kinds;
    g_partsTime = {};
    face();
    g_timedParts = 0;
    return g_partsTime;
}

template <typename Face>
Clock::duration TimeWhole(const Face& face) {
    const auto from = Clock::now();
    face();
    return Clock::now() - from;
}

inline double Milliseconds(Clock::duration time) {
    return std::chrono::duration<double, std::milli>(time).count();
}

} // namespace orvo_timing
