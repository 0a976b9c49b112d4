// SPDX-License-Identifier: MIT
#include "evaluation/charts/error_charts.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <functional>
#include <numeric>

#include "evaluation/charts/chart.h"

namespace kova_cli {
namespace {

using kova_statistics::CurvePoint;
using kova_statistics::Figures;

constexpr const char* kBlue = "blue";
constexpr const char* kRed = "orange";
constexpr const char* kOther = "green"; // what it is compared with

constexpr double kFewestShown = 1e-6; // no set of pictures shows rarer false accepts
constexpr int kStepsPerBar = 200;     // of the histogram, in ten-thousandths

std::string Print(const char* format, double value) {
    char text[64];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

std::string Percent(double share) { return Print("%g %%", 100 * share); }

std::string Counts(const Figures& figures) {
    return std::to_string(figures.samePairs) + " same pairs, " +
           std::to_string(figures.differentPairs) + " different pairs";
}

std::string NothingToShow(const Figures& figures) {
    return Counts(figures) + ": a curve needs both kinds";
}

// The quantile of the normal distribution, by bisection of its integral: a chart has a few hundred.
double Probit(double share) {
    double low = -8;
    double high = 8;
    for (int i = 0; i < 50; ++i) {
        const double middle = (low + high) / 2;
        (0.5 * std::erfc(-middle / std::sqrt(2.0)) < share ? low : high) = middle;
    }
    return low;
}

std::vector<Tick> PowersOfTen(int lowest) {
    std::vector<Tick> ticks;
    for (int power = lowest; power <= 0; ++power) {
        ticks.push_back({static_cast<double>(power), Percent(std::pow(10, power))});
        for (int part = 2; part < 10 && power < 0; ++part) {
            ticks.push_back({power + std::log10(part), ""});
        }
    }
    return ticks;
}

using Place = std::function<Point(double falseAccepts, double trueAccepts)>;

void AddCurve(Chart& chart, const Figures& figures, const Place& place, const std::string& label) {
    std::vector<Point> line;
    std::vector<Point> upper;
    std::vector<Point> lower;
    for (const CurvePoint& point : figures.curve) {
        line.push_back(place(point.falseAccepts, point.trueAccepts));
        if (point.interval) {
            upper.push_back(place(point.falseAccepts, point.interval->high));
            lower.push_back(place(point.falseAccepts, point.interval->low));
        }
    }
    if (!upper.empty()) {
        chart.AddBand(upper, lower, kBlue, "95 % interval over people");
    }
    chart.AddLine(line, kBlue, label);
}

void AddOther(Chart& chart, const OtherCurve& other, const Place& place) {
    std::vector<Point> line;
    for (const CurvePoint& point : other.curve) {
        line.push_back(place(point.falseAccepts, point.trueAccepts));
    }
    if (!line.empty()) {
        chart.AddLine(line, kOther, other.name);
    }
}

void AddThresholds(Chart& chart, const Figures& figures, const Place& place, Chart::Side side) {
    for (const kova_statistics::Recommendation& one : figures.recommendations) {
        if (one.errors && one.errors->falseRejects) {
            const double threshold = static_cast<double>(one.errors->threshold());
            chart.AddDot(place(one.wanted, 1 - one.errors->falseRejects->value()), kRed,
                         "threshold " + Print("%.4f", threshold) + " for " + Percent(one.wanted),
                         side);
        }
    }
}

// Percentages of a chart whose axes follow the normal distribution.
Axis ProbitAxis(const std::string& title, double low, double high) {
    static constexpr double kMarks[] = {1e-6, 1e-5, 1e-4, 1e-3, 0.01, 0.02, 0.05,
                                        0.1,  0.2,  0.4,  0.6,  0.8,  0.95, 0.99};
    Axis axis{title, Probit(low), Probit(high), {}};
    for (const double mark : kMarks) {
        if (mark >= low && mark <= high) {
            axis.ticks.push_back({Probit(mark), Percent(mark)});
        }
    }
    return axis;
}

// The power of ten at or below the lowest rate that so many pairs show, a tenth at most.
double LowestShown(uint64_t pairs) {
    const double rate =
        std::clamp(1 / static_cast<double>(std::max<uint64_t>(pairs, 1)), kFewestShown, 0.1);
    return std::pow(10, std::floor(std::log10(rate) + 1e-9));
}

// Percent of all pairs in each bar, as an outline of steps.
std::vector<Point> Outline(const std::vector<uint64_t>& counts) {
    const auto total =
        static_cast<double>(std::accumulate(counts.begin(), counts.end(), uint64_t{0}));
    const int lastBar = kova_statistics::kLastThreshold / kStepsPerBar;
    std::vector<Point> outline;
    for (int bar = -lastBar - 1; bar <= lastBar; ++bar) {
        double count = 0;
        for (int steps = bar * kStepsPerBar; steps < (bar + 1) * kStepsPerBar; ++steps) {
            if (std::abs(steps) <= kova_statistics::kLastThreshold) {
                count += static_cast<double>(counts[kova_statistics::RankOfSteps(steps)]);
            }
        }
        if (count > 0 || !outline.empty()) {
            const double left = static_cast<double>(bar * kStepsPerBar) / 10000;
            const double right = static_cast<double>((bar + 1) * kStepsPerBar) / 10000;
            outline.push_back({left, 100 * count / total});
            outline.push_back({right, 100 * count / total});
        }
    }
    while (!outline.empty() && outline.back().y <= 0) {
        outline.pop_back();
    }
    return outline;
}

} // namespace

std::string RocChart(const Figures& figures, const OtherCurve& other) {
    const bool hasCurve = !figures.curve.empty();
    const double lowest = std::log10(LowestShown(figures.differentPairs));
    Chart chart(
        "Pairs of one person accepted, by the share of strangers' pairs accepted",
        hasCurve ? Counts(figures) : NothingToShow(figures),
        {"false accepts (share of pairs of two people)", lowest, 0,
         PowersOfTen(static_cast<int>(std::lround(lowest)))},
        {"true accepts (share of pairs of one person)", 0, 100, RoundTicks(0, 100, 10, " %")});
    const Place place = [](double falseAccepts, double trueAccepts) {
        return Point{std::log10(falseAccepts), 100 * trueAccepts};
    };
    std::vector<Point> guessing;
    for (double power = lowest; power < 0; power += 0.05) {
        guessing.push_back({power, 100 * std::pow(10, power)});
    }
    guessing.push_back({0, 100});
    if (hasCurve) {
        AddCurve(chart, figures, place, "this model on these pictures");
    }
    AddOther(chart, other, place);
    chart.AddDashes(guessing, "guessing");
    AddThresholds(chart, figures, place, Chart::Side::kUpperLeft);
    return chart.Svg();
}

std::string DetChart(const Figures& figures, const OtherCurve& other) {
    const bool hasCurve = !figures.curve.empty();
    // Rejects to a little more than half of the pairs, unless that would leave a threshold out.
    constexpr double kHigh = 0.6;
    double high = kHigh;
    for (const kova_statistics::Recommendation& one : figures.recommendations) {
        const bool isOutside =
            one.errors && one.errors->falseRejects && one.errors->falseRejects->value() > high;
        high = isOutside ? 0.99 : high;
    }
    // Below 1 % for both, so that the axes have room for a curve.
    const double lowX = std::min(LowestShown(figures.differentPairs), 0.01);
    const double lowY = std::max(std::min(LowestShown(figures.samePairs), 0.01), 1e-4);
    Chart chart("How often one person is refused, by how often two are accepted",
                hasCurve ? Counts(figures) : NothingToShow(figures),
                ProbitAxis("false accepts (share of pairs of two people)", lowX, kHigh),
                ProbitAxis("false rejects (share of pairs of one person)", lowY, high));
    // 0 and 1 lie infinitely far out.
    const Place place = [](double falseAccepts, double trueAccepts) {
        return Point{Probit(falseAccepts), Probit(1 - trueAccepts)};
    };
    if (hasCurve) {
        AddCurve(chart, figures, place, "this model on these pictures");
    }
    AddOther(chart, other, place);
    const double from = Probit(std::max(lowX, lowY));
    chart.AddDashes({{from, from}, {Probit(kHigh), Probit(kHigh)}}, "both errors equal");
    AddThresholds(chart, figures, place, Chart::Side::kUpperRight);
    if (figures.equalErrorRate && figures.equalErrorRate->value > 0) {
        const double rate = Probit(figures.equalErrorRate->value);
        chart.AddDot({rate, rate}, kBlue,
                     "equal: " + Print("%.1f %%", 100 * figures.equalErrorRate->value),
                     Chart::Side::kUpperRight);
    }
    return chart.Svg();
}

std::string HistogramChart(const kova_statistics::Histogram& scores, const Figures& figures) {
    const std::vector<Point> same = Outline(scores.same);
    const std::vector<Point> different = Outline(scores.different);
    double low = 0;
    double high = 0;
    for (const std::vector<Point>* outline : {&same, &different}) {
        for (const Point& point : *outline) {
            low = std::min(low, point.x);
            high = std::max(high, point.y);
        }
    }
    low = std::floor(low * 5 - 1e-9) / 5;
    Chart chart(
        "Scores of pairs of one person and of two people", Counts(figures),
        {"score, which is the distance (1: the same; larger means more alike)", low, 1.02,
         RoundTicks(low, 1, 8, "")},
        {"share of the pairs in steps of 0.02", 0, 1.1 * high, RoundTicks(0, 1.1 * high, 6, " %")});
    chart.AddArea(different, kRed, "two people");
    chart.AddArea(same, kBlue, "one person");
    for (const kova_statistics::Recommendation& one : figures.recommendations) {
        if (one.errors) {
            const double threshold = static_cast<double>(one.errors->threshold());
            chart.AddUpright(threshold,
                             Print("%.4f", threshold) + ": false accepts " + Percent(one.wanted));
        }
    }
    return chart.Svg();
}

} // namespace kova_cli
