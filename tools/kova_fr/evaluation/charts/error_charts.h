// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "evaluation/statistics/figures.h"

namespace kova_cli {

// Of an earlier report, to be drawn beside; no points where there is none.
struct OtherCurve {
    std::string name;
    std::vector<kova_statistics::CurvePoint> curve;
};

// SVG files. A chart without the pairs it needs says so in place of a curve.

// True accepts over false accepts, these in powers of ten.
std::string RocChart(const kova_statistics::Figures& figures, const OtherCurve& other);

// False rejects over false accepts, both so that normally distributed scores give a straight line.
std::string DetChart(const kova_statistics::Figures& figures, const OtherCurve& other);

// How the scores of same and different pairs are distributed.
std::string HistogramChart(const kova_statistics::Histogram& scores,
                           const kova_statistics::Figures& figures);

} // namespace kova_cli
