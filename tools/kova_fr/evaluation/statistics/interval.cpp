// SPDX-License-Identifier: MIT
#include "evaluation/statistics/interval.h"

#include <algorithm>
#include <cmath>

namespace kova_statistics {
namespace {

// The 97.5 % quantile of the normal distribution.
constexpr double kDeviations = 1.959963984540054;

double Quantile(const std::vector<double>& sorted, double share) {
    const double place = share * static_cast<double>(sorted.size() - 1);
    const auto below = static_cast<size_t>(place);
    const size_t above = std::min(below + 1, sorted.size() - 1);
    return std::lerp(sorted[below], sorted[above], place - static_cast<double>(below));
}

} // namespace

Interval WilsonInterval(uint64_t count, uint64_t total) {
    const auto n = static_cast<double>(total);
    const double share = static_cast<double>(count) / n;
    const double square = kDeviations * kDeviations;
    const double centre = share + square / (2 * n);
    const double half = kDeviations * std::sqrt(share * (1 - share) / n + square / (4 * n * n));
    const double scale = 1 + square / n;
    // At both ends the sums cancel but for rounding.
    return {count == 0 ? 0 : (centre - half) / scale, count == total ? 1 : (centre + half) / scale};
}

Interval QuantileInterval(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return {Quantile(values, 0.025), Quantile(values, 0.975)};
}

Interval Span(const Interval& a, const Interval& b) {
    return {std::min(a.low, b.low), std::max(a.high, b.high)};
}

} // namespace kova_statistics
