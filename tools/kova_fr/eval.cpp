// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <memory>

#include "chart.h"
#include "commands.h"
#include "detector.h"
#include "evaluation.h"
#include "face_options.h"
#include "failure.h"
#include "label.h"
#include "picture_list.h"
#include "progress.h"

namespace kova_cli {
namespace {

struct EvalOptions {
    std::string folder, pairsPath, outputFolder;
    bool detect = false, strict = false, json = false;
};

constexpr const char* kExamples =
    "Says how often this library would be wrong on your own pictures, and which threshold suits.\n"
    "PEOPLE is a folder with one sub-folder for each person; every picture is compared with every\n"
    "other. With --pairs a file names the pairs: two pictures (relative to the file) and 1 for "
    "the\n"
    "same person or 0, apart by spaces, tabs or commas. --out gets roc.svg, det.svg, "
    "histogram.svg,\n"
    "report.txt and report.json. docs/THRESHOLDS.md explains the words.\n"
    "\n"
    "Examples:\n"
    "  kova-fr eval --out report people\n"
    "  kova-fr eval --detect --out report photographs\n"
    "  kova-fr eval --json --pairs pairs.csv";

constexpr double kRecommendedRates[] = {1e-2, 1e-3, 1e-4};
constexpr int kHistogramBins = 60;
constexpr size_t kCurvePoints = 400;
constexpr const char* kSameColour = "#1f77b4";
constexpr const char* kDifferentColour = "#d66027";

// What is left of a list once its pictures were looked at.
struct Gathered {
    Trial trial;
    size_t pictures = 0;
    std::vector<std::string> unusable; // one line each
};

Gathered Gather(const PictureList& list, const EvalOptions& options) {
    const Recogniser recogniser;
    Gathered gathered;
    constexpr uint32_t kMissing = UINT32_MAX;
    std::vector<uint32_t> number(list.paths.size(), kMissing);
    Progress progress("features", list.paths.size());
    for (size_t i = 0; i < list.paths.size(); ++i) {
        try {
            std::optional<Box> box;
            if (options.detect) {
                box = DetectFaces(list.paths[i]).front();
            }
            const Face face = recogniser.Recognise(list.paths[i], box);
            number[i] = static_cast<uint32_t>(gathered.trial.features.size());
            gathered.trial.features.push_back(face.feature);
            if (!list.person.empty()) {
                gathered.trial.person.push_back(list.person[i]);
            }
        } catch (const Failure& failure) {
            if (options.strict) {
                throw;
            }
            gathered.unusable.push_back(failure.what());
        }
        progress.Advance();
    }
    for (const Pair& pair : list.pairs) {
        if (number[pair.a] != kMissing && number[pair.b] != kMissing) {
            gathered.trial.pairs.push_back({number[pair.a], number[pair.b], pair.isSame});
        }
    }
    gathered.pictures = gathered.trial.features.size();
    return gathered;
}

// People are numbered anew if all pictures of one were unusable.
void NumberPeople(Trial& trial) {
    std::vector<uint32_t> present = trial.person;
    std::sort(present.begin(), present.end());
    present.erase(std::unique(present.begin(), present.end()), present.end());
    for (uint32_t& person : trial.person) {
        person = static_cast<uint32_t>(std::lower_bound(present.begin(), present.end(), person) -
                                       present.begin());
    }
    trial.people = static_cast<uint32_t>(present.size());
}

struct Recommendation {
    double rate = 0;
    bool isSupported = false;
    Operation operation;
};

struct Report {
    Gathered gathered;
    Scores scores;
    double equalError = 0, area = 0;
    std::optional<double> accuracy, rankOne;
    std::vector<Operation> table;
    std::vector<Recommendation> recommendations;
};

std::vector<float> TableThresholds() {
    std::vector<float> thresholds;
    for (int twentieth = 0; twentieth <= 18; ++twentieth) {
        thresholds.push_back(static_cast<float>(twentieth) / 20);
    }
    return thresholds;
}

Report Evaluate(Gathered gathered) {
    Report report;
    report.gathered = std::move(gathered);
    const Trial& trial = report.gathered.trial;
    report.scores = Compare(trial);
    if (report.scores.same.empty() || report.scores.different.empty()) {
        throw Failure(
            "there are no pairs of the same person, or none of different people; give "
            "two usable pictures of somebody and one of somebody else");
    }
    report.equalError = EqualErrorRate(report.scores);
    report.area = AreaUnderCurve(report.scores);
    report.accuracy = VerificationAccuracy(trial);
    report.rankOne = trial.pairs.empty() ? RankOne(trial) : std::nullopt;
    std::vector<float> thresholds = TableThresholds();
    const size_t rows = thresholds.size();
    for (const double rate : kRecommendedRates) {
        thresholds.push_back(ThresholdAt(report.scores, rate));
    }
    const std::vector<Operation> operations = OperationsAt(trial, thresholds);
    report.table.assign(operations.begin(), operations.begin() + static_cast<std::ptrdiff_t>(rows));
    for (size_t i = 0; i < std::size(kRecommendedRates); ++i) {
        const double rate = kRecommendedRates[i];
        report.recommendations.push_back(
            {rate, Supports(report.scores, rate), operations[rows + i]});
    }
    return report;
}

std::string Percent(double value) {
    char text[32];
    const double percent = 100 * value;
    std::snprintf(text, sizeof text, percent != 0 && percent < 0.1 ? "%.4f" : "%.2f", percent);
    return text;
}

std::string RateText(const Rate& rate) {
    return PadLeft(Percent(rate.value), 7) + "  (" + Percent(rate.interval.low) + " to " +
           Percent(rate.interval.high) + ")";
}

std::string Line(const std::string& name, const std::string& value) {
    return PadRight(name, 24) + value + "\n";
}

std::string ThresholdText(float threshold) {
    char text[32];
    std::snprintf(text, sizeof text, "%.4f", static_cast<double>(threshold));
    return text;
}

std::string Row(const std::string& first, const Operation& operation) {
    return PadLeft(first, 9) + "  " + PadRight(RateText(operation.falseAccept), 30) +
           RateText(operation.falseReject) + "\n";
}

std::string Summary(const Report& report) {
    const Trial& trial = report.gathered.trial;
    std::string text = Line("pictures", std::to_string(report.gathered.pictures));
    if (!report.gathered.unusable.empty()) {
        text += Line("unusable pictures", std::to_string(report.gathered.unusable.size()));
    }
    if (trial.pairs.empty()) {
        text += Line("people", std::to_string(trial.people));
    }
    text += Line("pairs of one person", std::to_string(report.scores.same.size()));
    text += Line("pairs of two people", std::to_string(report.scores.different.size()));
    text += Line("equal error rate", Percent(report.equalError) + " %");
    text += Line("area under the curve", Percent(report.area) + " %");
    if (report.accuracy) {
        text += Line("verification accuracy", Percent(*report.accuracy) + " % (10 folds)");
    }
    if (report.rankOne) {
        text += Line("rank 1", Percent(*report.rankOne) + " %");
    }
    return text;
}

std::string Recommended(const Report& report) {
    std::string text = "\nRecommended thresholds (accept from there on):\n" +
                       PadLeft("threshold", 9) + "  " + PadRight("false accepts %", 30) +
                       "false rejects %\n";
    for (const Recommendation& entry : report.recommendations) {
        if (entry.isSupported) {
            text += Row(ThresholdText(entry.operation.threshold), entry.operation);
            continue;
        }
        char rate[16];
        std::snprintf(rate, sizeof rate, "%g", 100 * entry.rate);
        text += PadLeft("-", 9) + "  " + rate + " % false accepts cannot be seen with " +
                std::to_string(report.scores.different.size()) + " pairs of two people: " +
                std::to_string(static_cast<size_t>(std::ceil(3 / entry.rate))) + " are needed\n";
    }
    return text;
}

std::string Text(const Report& report) {
    std::string text = Summary(report) + Recommended(report) +
                       "\nRates in %, 95 % intervals in brackets:\n" + PadLeft("threshold", 9) +
                       "  " + PadRight("false accepts %", 30) + "false rejects %\n";
    for (const Operation& row : report.table) {
        char threshold[16];
        std::snprintf(threshold, sizeof threshold, "%.2f", static_cast<double>(row.threshold));
        text += Row(threshold, row);
    }
    return text;
}

nlohmann::ordered_json RateJson(const Rate& rate) {
    return {{"value", rate.value}, {"low", rate.interval.low}, {"high", rate.interval.high}};
}

nlohmann::ordered_json OperationJson(const Operation& operation) {
    return {{"threshold", operation.threshold},
            {"false_accept", RateJson(operation.falseAccept)},
            {"false_reject", RateJson(operation.falseReject)}};
}

nlohmann::ordered_json Json(const Report& report) {
    nlohmann::ordered_json json;
    const Trial& trial = report.gathered.trial;
    const auto optional = [](const std::optional<double>& value) {
        return value ? nlohmann::ordered_json(*value) : nlohmann::ordered_json();
    };
    json["pictures"] = report.gathered.pictures;
    json["unusable"] = report.gathered.unusable;
    json["people"] = trial.pairs.empty() ? nlohmann::ordered_json(trial.people) : nullptr;
    json["same_pairs"] = report.scores.same.size();
    json["different_pairs"] = report.scores.different.size();
    json["equal_error_rate"] = report.equalError;
    json["area_under_curve"] = report.area;
    json["verification_accuracy"] = optional(report.accuracy);
    json["rank_1"] = optional(report.rankOne);
    for (const Recommendation& entry : report.recommendations) {
        nlohmann::ordered_json row = {{"false_accept_rate", entry.rate},
                                      {"supported", entry.isSupported}};
        if (entry.isSupported) {
            row.update(OperationJson(entry.operation));
        }
        json["recommended"].push_back(row);
    }
    for (const Operation& row : report.table) {
        json["table"].push_back(OperationJson(row));
    }
    return json;
}

std::string Subtitle(const Report& report) {
    return std::to_string(report.gathered.pictures) + " pictures, " +
           std::to_string(report.scores.same.size()) + " pairs of one person, " +
           std::to_string(report.scores.different.size()) + " of two people";
}

// From the smallest rate that the pairs can show, as a power of ten.
double SmallestRate(size_t pairs) {
    return std::pow(10, -std::clamp(std::floor(std::log10(static_cast<double>(pairs))), 1.0, 6.0));
}

Chart RocChart(const Report& report) {
    Chart chart{"Accepted pairs of one person", Subtitle(report), {}, {}, {}, {}};
    chart.x = {"pairs of two people accepted (false accept rate)",
               SmallestRate(report.scores.different.size()), 1, true, true};
    chart.y = {"pairs of one person accepted", 0, 1, false, true};
    Series series{"", kSameColour, {}, false};
    for (const CurvePoint& point : Curve(report.scores, kCurvePoints)) {
        series.points.emplace_back(point.falseAccept, 1 - point.falseReject);
    }
    chart.series.push_back(series);
    for (const Recommendation& entry : report.recommendations) {
        if (entry.isSupported) {
            chart.marks.push_back({entry.rate, 1 - entry.operation.falseReject.value,
                                   "threshold " + ThresholdText(entry.operation.threshold)});
        }
    }
    return chart;
}

Chart DetChart(const Report& report) {
    Chart chart{"Errors against each other", Subtitle(report), {}, {}, {}, {}};
    chart.x = {"false accept rate", SmallestRate(report.scores.different.size()), 1, true, true};
    chart.y = {"false reject rate", SmallestRate(report.scores.same.size()), 1, true, true};
    Series series{"", kDifferentColour, {}, false};
    for (const CurvePoint& point : Curve(report.scores, kCurvePoints)) {
        series.points.emplace_back(point.falseAccept, point.falseReject);
    }
    chart.series.push_back(series);
    chart.marks.push_back({report.equalError, report.equalError,
                           "equal error rate " + Percent(report.equalError) + " %"});
    return chart;
}

Series Histogram(const std::string& name, const char* colour, const std::vector<float>& ascending) {
    Series series{name, colour, {}, true};
    const auto below = [&ascending](double limit) {
        return std::lower_bound(ascending.begin(), ascending.end(), static_cast<float>(limit));
    };
    for (int bin = 0; bin <= kHistogramBins; ++bin) {
        const double from = -1 + 2.0 * bin / kHistogramBins;
        const double to = -1 + 2.0 * (bin + 1) / kHistogramBins;
        // The last one takes the distance 1 and what rounding leaves above it.
        const auto end = bin == kHistogramBins - 1 ? ascending.end() : below(to);
        const auto count = static_cast<double>(end - below(from));
        series.points.emplace_back(from, count / static_cast<double>(ascending.size()));
    }
    return series;
}

Chart HistogramChart(const Report& report) {
    Chart chart{"Distances", Subtitle(report), {}, {}, {}, {}};
    chart.x = {"distance (1 for identical pictures)", -1, 1, false, false, 4};
    chart.series = {Histogram("pairs of two people", kDifferentColour, report.scores.different),
                    Histogram("pairs of one person", kSameColour, report.scores.same)};
    double highest = 0;
    for (const Series& series : chart.series) {
        for (int bin = 0; bin < kHistogramBins; ++bin) {
            highest = std::max(highest, series.points[static_cast<size_t>(bin)].second);
        }
    }
    chart.y = {"share of the pairs of a kind", 0, std::ceil(highest * 20) / 20, false, true};
    return chart;
}

std::vector<uint8_t> Bytes(const std::string& text) { return {text.begin(), text.end()}; }

void WriteReport(const Report& report, const std::string& folder) {
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (error) {
        throw Failure(folder + ": cannot be made: " + error.message() + "; choose another place");
    }
    const std::filesystem::path place(folder);
    WriteFiles({{(place / "roc.svg").string(), true, Svg(RocChart(report))},
                {(place / "det.svg").string(), true, Svg(DetChart(report))},
                {(place / "histogram.svg").string(), true, Svg(HistogramChart(report))},
                {(place / "report.txt").string(), true, Bytes(Text(report))},
                {(place / "report.json").string(), true, Bytes(Json(report).dump(1) + "\n")}});
}

void NameUnusable(const std::vector<std::string>& unusable) {
    for (const std::string& line : unusable) {
        std::fprintf(stderr, "kova-fr: left out: %s\n", OneLine(line).c_str());
    }
}

void RunEval(const EvalOptions& options) {
    if (options.folder.empty() == options.pairsPath.empty()) {
        throw CLI::ValidationError("eval", "give a folder of people, or --pairs with a file");
    }
    if (std::filesystem::is_regular_file(options.outputFolder)) {
        throw Failure(options.outputFolder + ": is a file; name a folder");
    }
    const PictureList list =
        options.pairsPath.empty() ? ListPeople(options.folder) : ReadPairs(options.pairsPath);
    Gathered gathered = Gather(list, options);
    NumberPeople(gathered.trial);
    NameUnusable(gathered.unusable);
    if (!list.pairs.empty() && gathered.trial.pairs.empty()) {
        throw Failure(options.pairsPath + ": no pair has two usable pictures");
    }
    const Report report = Evaluate(std::move(gathered));
    if (!options.outputFolder.empty()) {
        WriteReport(report, options.outputFolder);
    }
    WriteStandardOutput(options.json ? JsonLine(Json(report)) : Text(report));
}

} // namespace

void AddEvalCommand(CLI::App& program) {
    CLI::App& command =
        *program.add_subcommand("eval", "Measure error rates and thresholds on your own pictures");
    const auto options = std::make_shared<EvalOptions>();
    command.add_option("people", options->folder, "Folder with one sub-folder for each person")
        ->type_name("PEOPLE");
    command.add_option("--pairs", options->pairsPath, "File with a pair on each line")
        ->excludes("people")
        ->type_name("FILE");
    command.add_option("--out", options->outputFolder, "Write the report and its pictures there")
        ->type_name("FOLDER");
    command.add_flag("--detect", options->detect, "Find the largest face in each picture");
    command.add_flag("--strict", options->strict, "Stop at the first unusable picture");
    command.add_flag("--json", options->json, "Print the report as one line of JSON");
    command.footer(kExamples);
    command.callback([options] { RunEval(*options); });
}

} // namespace kova_cli
