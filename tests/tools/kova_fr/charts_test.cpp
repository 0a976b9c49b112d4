// SPDX-License-Identifier: MIT
// The charts of `kova-fr eval`: every label is there, on the paper, and none lies upon another.
#include <gtest/gtest.h>

#include <random>
#include <regex>

#include "evaluation/charts/error_charts.h"

namespace kova_cli {
namespace {

using kova_statistics::Figures;
using kova_statistics::Scores;

constexpr double kWide = 720;
constexpr double kHigh = 520;

struct Label {
    std::string text;
    double left, top, right, bottom;
};

// The widest of the fonts that the charts ask for, in hundredths of the size: from ' ' to '~'.
constexpr std::array<int, 95> kLetters = {
    32, 40, 46, 84, 64, 95, 78, 27, 39,  39, 50, 84, 32, 36, 32, 34, 64, 64, 64, 64, 64, 64, 64, 64,
    64, 64, 34, 34, 84, 84, 84, 53, 100, 68, 69, 70, 77, 63, 58, 77, 75, 29, 29, 66, 56, 86, 75, 79,
    60, 79, 69, 63, 61, 73, 68, 99, 69,  61, 69, 39, 34, 39, 84, 50, 50, 61, 63, 55, 63, 62, 35, 63,
    63, 28, 28, 58, 28, 97, 63, 61, 63,  63, 41, 52, 39, 63, 59, 82, 59, 59, 52, 64, 34, 64, 84};

double Width(const std::string& text, double size) {
    double hundredths = 0;
    for (const char c : text) {
        hundredths += c >= ' ' && c <= '~' ? kLetters[static_cast<size_t>(c - ' ')] : 0;
    }
    return hundredths / 100 * size;
}

double SizeOf(const std::string& attributes) {
    constexpr double kBold = 1.13; // as wide
    return attributes.find("title") != std::string::npos  ? 17 * kBold
           : attributes.find("soft") != std::string::npos ? 13
           : attributes.find("axis") != std::string::npos ? 14
                                                          : 12.5;
}

std::string Plain(std::string text) {
    for (const auto& [escaped, letter] :
         {std::pair("&lt;", "<"), std::pair("&gt;", ">"), std::pair("&amp;", "&")}) {
        text = std::regex_replace(text, std::regex(escaped), letter);
    }
    return text;
}

// Every text of a chart with the room that its letters take, turned ones as well.
std::vector<Label> Labels(const std::string& svg) {
    static const std::regex pattern(
        "(<g transform=\"translate\\(([-0-9.]+) ([-0-9.]+)\\) rotate\\(-90\\)\">)?"
        "<text x=\"([-0-9.]+)\" y=\"([-0-9.]+)\" ([^>]*)>([^<]*)</text>");
    std::vector<Label> labels;
    for (std::sregex_iterator at(svg.begin(), svg.end(), pattern), end; at != end; ++at) {
        const std::smatch& match = *at;
        const double size = SizeOf(match[6]);
        const std::string text = Plain(match[7]);
        const double width = Width(text, size);
        const double x = std::stod(match[4]);
        const double y = std::stod(match[5]);
        const std::string attributes = match[6];
        const double begin = attributes.find("\"middle\"") != std::string::npos ? x - width / 2
                             : attributes.find("\"end\"") != std::string::npos  ? x - width
                                                                                : x;
        const double up = 0.73 * size;
        const double down = 0.21 * size;
        if (match[1].matched) {
            const double left = std::stod(match[2]) + y;
            const double bottom = std::stod(match[3]) - begin;
            labels.push_back({text, left - up, bottom - width, left + down, bottom});
        } else {
            labels.push_back({text, begin, y - up, begin + width, y + down});
        }
    }
    return labels;
}

void ExpectApart(const std::string& svg, const std::string& what) {
    const std::vector<Label> labels = Labels(svg);
    ASSERT_GT(labels.size(), 8u) << what;
    for (size_t i = 0; i < labels.size(); ++i) {
        const Label& a = labels[i];
        EXPECT_TRUE(a.left >= 0 && a.top >= 0 && a.right <= kWide && a.bottom <= kHigh)
            << what << ": '" << a.text << "' leaves the paper";
        for (size_t j = 0; j < i; ++j) {
            const Label& b = labels[j];
            EXPECT_FALSE(a.left < b.right && b.left < a.right && a.top < b.bottom &&
                         b.top < a.bottom)
                << what << ": '" << a.text << "' lies upon '" << b.text << "'";
        }
    }
}

// Scores of two kinds of pairs, normally distributed.
struct Case {
    std::string name;
    size_t same;
    size_t different;
    double sameMean;
    double differentMean;
    double spread;
};

constexpr uint32_t kPeople = 30;

Scores Draw(const Case& one) {
    std::mt19937_64 random(5);
    Scores scores;
    const auto add = [&](bool isSame, double mean) {
        const double score =
            std::clamp(std::normal_distribution(mean, one.spread)(random), -0.9999, 0.9999);
        const size_t rank = kova_statistics::RankOf(static_cast<float>(score));
        const auto first = static_cast<uint32_t>(random() % kPeople);
        const uint32_t second =
            isSame ? first
                   : (first + 1 + static_cast<uint32_t>(random() % (kPeople - 1))) % kPeople;
        scores.all.Add(isSame, rank);
        scores.drawn.push_back({first, second, static_cast<uint32_t>(rank)});
    };
    for (size_t i = 0; i < one.same; ++i) {
        add(true, one.sameMean);
    }
    for (size_t i = 0; i < one.different; ++i) {
        add(false, one.differentMean);
    }
    return scores;
}

const std::vector<Case> kCases = {
    {"as real people are", 1755, 74100, 0.75, 0.25, 0.14},
    {"far apart", 500, 40000, 0.9, 0.0, 0.05},
    {"thresholds close together", 500, 40000, 0.9, 0.5, 0.01},
    {"thresholds at the upper end", 500, 40000, 0.99, 0.95, 0.02},
    {"thresholds in one place", 500, 40000, 0.9, 0.5, 0.001},
    {"not to be told apart", 500, 40000, 0.2, 0.2, 0.3},
    {"the wrong way round", 500, 40000, -0.5, 0.5, 0.1},
    {"few pairs", 40, 700, 0.7, 0.3, 0.15},
    {"so many that rates are long", 5000, 2000000, 0.7, 0.3, 0.1},
};

void PrintTo(const Case& one, std::ostream* out) { *out << one.name; }

class Charts : public testing::TestWithParam<Case> {};

TEST_P(Charts, LabelsDoNotCollideAndEveryThresholdIsNamed) {
    const Scores scores = Draw(GetParam());
    const Figures figures =
        kova_statistics::ComputeFigures(scores, kPeople, 10, 1, [](size_t, size_t) {});
    OtherCurve other{"a name of 24 letters (24", figures.curve};
    for (const OtherCurve& against : {OtherCurve{}, other}) {
        const std::string beside = against.curve.empty() ? "" : ", beside another";
        const std::vector<std::pair<std::string, std::string>> charts = {
            {"ROC", RocChart(figures, against)},
            {"DET", DetChart(figures, against)},
            {"histogram", HistogramChart(scores.all, figures)}};
        for (const auto& [name, svg] : charts) {
            ExpectApart(svg, name + beside);
            size_t wanted = 0;
            size_t named = 0;
            for (const kova_statistics::Recommendation& one : figures.recommendations) {
                wanted += one.errors ? 1 : 0;
            }
            for (const Label& label : Labels(svg)) {
                named += label.text.starts_with("threshold ") ||
                         label.text.find(": false accepts ") != std::string::npos;
            }
            EXPECT_EQ(named, wanted) << name << beside;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Of, Charts, testing::ValuesIn(kCases), [](const auto& one) {
    std::string name = one.param.name;
    std::replace(name.begin(), name.end(), ' ', '_');
    return name;
});

} // namespace
} // namespace kova_cli
