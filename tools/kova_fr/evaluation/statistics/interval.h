// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <vector>

namespace kova_statistics {

// Of 95 % confidence.
struct Interval {
    double low = 0;
    double high = 1;
};

// Wilson's interval of a share of independent trials. It holds for 0 and for all of them as well.
Interval WilsonInterval(uint64_t count, uint64_t total);

// From the 2.5 % to the 97.5 % quantile, straight lines between the values. Needs one at least.
Interval QuantileInterval(std::vector<double> values);

// The smallest interval that holds both.
Interval Span(const Interval& a, const Interval& b);

} // namespace kova_statistics
