// SPDX-License-Identifier: MIT
#include "evaluation/report/eval_report.h"

#include <cstdio>
#include <nlohmann/json.hpp>

#include "evaluation/shipped_thresholds.h"
#include "terminal/json_line.h"
#include "terminal/label.h"

namespace kova_cli {
namespace {

using kova_statistics::ErrorsAt;
using kova_statistics::Figure;
using kova_statistics::Figures;
using kova_statistics::Interval;
using kova_statistics::Rate;
using kova_statistics::Recommendation;
using nlohmann::ordered_json;

constexpr uint32_t kFewPeople = 20; // to redraw
constexpr size_t kRateLength = 27;  // "100.000 (100.000 to 100.000)"

std::string Print(const char* format, double value) {
    char text[64];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

std::string ThresholdText(const ErrorsAt& errors) {
    return Print("%.4f", static_cast<double>(errors.threshold()));
}

// Percent with as many decimals as the smaller rates need.
std::string Percent(double share) {
    const double percent = 100 * share;
    if (percent == 0 || percent >= 9.95) {
        return Print("%.1f", percent);
    }
    return Print(percent < 0.0995 ? "%.4f" : percent < 0.995 ? "%.3f" : "%.2f", percent);
}

std::string IntervalText(const Interval& interval) {
    return " (" + Percent(interval.low) + " to " + Percent(interval.high) + ")";
}

std::string RateText(const std::optional<Rate>& rate) {
    return rate ? Percent(rate->value()) + IntervalText(rate->interval) : "-";
}

std::string FigureText(const std::optional<Figure>& figure, const char* why) {
    if (!figure) {
        return std::string("not known: ") + why;
    }
    return Percent(figure->value) + " %" +
           (figure->interval ? IntervalText(*figure->interval) : std::string());
}

std::string AccuracyText(const Figures& figures) {
    if (!figures.accuracy) {
        return "not known: needs both kinds of pairs in groups of people";
    }
    return Percent(figures.accuracy->value) + " %" + IntervalText(figures.accuracy->interval) +
           ", " + std::to_string(figures.accuracy->folds) + " folds of different people";
}

std::string Summary(const Evaluation& evaluation) {
    const Figures& figures = evaluation.figures;
    const char* bothKinds = "needs pairs of one person and of two people";
    std::string text = "pictures          " + std::to_string(evaluation.pictures) + " of " +
                       std::to_string(evaluation.people) + " people";
    if (!evaluation.leftOut.empty()) {
        text += "; " + std::to_string(evaluation.leftOut.size()) + " left out";
    }
    text += "\npairs             " + std::to_string(figures.samePairs) + " of one person, " +
            std::to_string(figures.differentPairs) + " of two people\n";
    text += "equal error rate  " + FigureText(figures.equalErrorRate, bothKinds) + "\n";
    text += "area under curve  " + FigureText(figures.area, bothKinds) + "\n";
    text += "accuracy          " + AccuracyText(figures) + "\n";
    text += "rank 1            " +
            FigureText(figures.rank1, evaluation.hasPeople
                                          ? "needs two people, and two pictures of one"
                                          : "a list of pairs does not say what else to search") +
            "\n";
    return text;
}

std::string Recommended(const Figures& figures) {
    std::string text =
        "\nThresholds to choose from; a pair is accepted from the threshold upwards.\n"
        "at most FAR %  threshold  false accepts %             false rejects %\n";
    for (const Recommendation& one : figures.recommendations) {
        text += PadLeft(Print("%g", 100 * one.wanted), 13) + "  ";
        if (!one.errors) {
            text += "too few pairs of two people: " + std::to_string(figures.differentPairs) +
                    ", needs " + std::to_string(one.fewestPairs) + "\n";
            continue;
        }
        text += PadLeft(ThresholdText(*one.errors), 9) + "  " +
                PadRight(RateText(one.errors->falseAccepts), kRateLength) + " " +
                RateText(one.errors->falseRejects) + (one.isRough ? " *" : "") + "\n";
    }
    return text;
}

std::string Table(const Figures& figures) {
    std::string text = "\n  threshold  false accepts %              false rejects %\n";
    for (const ErrorsAt& errors : figures.table) {
        text += PadLeft(ThresholdText(errors), 11) + "  " +
                PadRight(RateText(errors.falseAccepts), kRateLength + 2) +
                RateText(errors.falseRejects) + "\n";
    }
    return text;
}

std::string CountText(uint64_t count, const char* one, const char* many) {
    return std::to_string(count) + " " + (count == 1 ? one : many);
}

// The rates that were wanted, where there is a threshold for them.
std::vector<double> WantedOf(const Figures& figures) {
    std::vector<double> wanted;
    for (const Recommendation& one : figures.recommendations) {
        if (one.errors) {
            wanted.push_back(one.wanted);
        }
    }
    return wanted;
}

std::string Groups(const Evaluation& evaluation) {
    if (evaluation.groupColumn.empty()) {
        return "";
    }
    const std::vector<double> wanted = WantedOf(evaluation.figures);
    std::string text = "\n" +
                       Wrapped("By " + evaluation.groupColumn +
                                   ", at the thresholds above; pairs inside each group alone.",
                               "", "") +
                       "at most FAR %  threshold  false accepts %             false rejects %\n";
    for (const GroupErrors& group : evaluation.groups) {
        text += Wrapped(group.name + ": " + CountText(group.people, "person", "people") + ", " +
                            CountText(group.samePairs, "pair", "pairs") + " of one person, " +
                            std::to_string(group.differentPairs) + " of two",
                        "", "  ");
        for (size_t i = 0; i < group.errors.size(); ++i) {
            text += PadLeft(Print("%g", 100 * wanted[i]), 13) + "  " +
                    PadLeft(ThresholdText(group.errors[i]), 9) + "  " +
                    PadRight(RateText(group.errors[i].falseAccepts), kRateLength) + " " +
                    RateText(group.errors[i].falseRejects) + "\n";
        }
    }
    return text;
}

// What is to be known before groups are compared.
void AddGroupNotes(const Evaluation& evaluation, std::vector<std::string>& notes) {
    if (evaluation.groupColumn.empty()) {
        return;
    }
    notes.push_back(
        "Groups: people of one group are often more alike than people of all, so false accepts "
        "inside a group may be more than wanted. Groups differ only where their intervals do.");
    if (evaluation.withoutGroup > 0) {
        notes.push_back(CountText(evaluation.withoutGroup,
                                  evaluation.hasPeople ? "picture" : "pair",
                                  evaluation.hasPeople ? "pictures" : "pairs") +
                        (evaluation.withoutGroup == 1 ? " is" : " are") + " in no group.");
    }
}

std::vector<std::string> Notes(const Evaluation& evaluation) {
    const Figures& figures = evaluation.figures;
    std::vector<std::string> notes;
    notes.push_back(
        "In brackets: 95 % intervals over redrawn people (" + std::to_string(evaluation.rounds) +
        " rounds, seed " + std::to_string(evaluation.seed) +
        "), since pairs with a picture or a person in common are not independent. Where no error "
        "was seen, each person, or each two people, count as one trial. The intervals say what "
        "other people in the same conditions would give, not what another camera would.");
    if (evaluation.people < kFewPeople) {
        notes.push_back("There are only " + std::to_string(evaluation.people) +
                        " people: the intervals themselves are rough, and too narrow if anything.");
    }
    if (!evaluation.hasPeople) {
        notes.push_back(
            "A list of pairs names nobody: pictures that it links as one person are taken for a "
            "person, any other picture for a person of its own.");
    }
    for (const Recommendation& one : figures.recommendations) {
        if (!one.errors) {
            const std::string rate = Print("%g %%", 100 * one.wanted);
            notes.push_back("No threshold for a FAR of " + rate +
                            ": even without one false accept " +
                            std::to_string(figures.differentPairs) +
                            " pairs cannot show it (rule of three: at least " +
                            std::to_string(one.fewestPairs) + ").");
        }
    }
    bool hasRough = false;
    for (const Recommendation& one : figures.recommendations) {
        hasRough = hasRough || one.isRough;
    }
    if (hasRough) {
        notes.push_back(
            "* Fewer than 30 false accepts are to be expected there: the threshold "
            "hangs on a few pairs.");
    }
    AddGroupNotes(evaluation, notes);
    if (figures.samePairs == 0) {
        notes.push_back("No person has two pictures, so nothing is known about false rejects.");
    }
    if (figures.differentPairs == 0) {
        notes.push_back("There is only one person, so nothing is known about false accepts.");
    }
    if (evaluation.copiesOfOne > 0) {
        notes.push_back(std::to_string(evaluation.copiesOfOne) +
                        " pairs of one person have the same feature, as copies of one picture do; "
                        "they make the figures look better.");
    }
    if (evaluation.copiesOfTwo > 0) {
        notes.push_back(std::to_string(evaluation.copiesOfTwo) +
                        " pairs of two people have the same feature, as copies of one picture do; "
                        "probably a picture lies with the wrong person.");
    }
    for (const std::string& copy : evaluation.copies) {
        notes.push_back("The same feature: " + OneLine(copy));
    }
    if (evaluation.repeatedPairs > 0) {
        notes.push_back(std::to_string(evaluation.repeatedPairs) +
                        " lines repeat an earlier pair and do not count.");
    }
    if (evaluation.pairsLeftOut > 0) {
        notes.push_back(std::to_string(evaluation.pairsLeftOut) +
                        " pairs are left out, since a picture of theirs cannot be used.");
    }
    for (const std::string& picture : evaluation.leftOut) {
        notes.push_back("Left out: " + OneLine(picture));
    }
    return notes;
}

ordered_json IntervalJson(const Interval& interval) { return {interval.low, interval.high}; }

ordered_json RateJson(const std::optional<Rate>& rate) {
    if (!rate) {
        return nullptr;
    }
    return {{"rate", rate->value()},
            {"count", rate->count},
            {"pairs", rate->total},
            {"interval", IntervalJson(rate->interval)}};
}

ordered_json FigureJson(const std::optional<Figure>& figure) {
    if (!figure) {
        return nullptr;
    }
    return {{"value", figure->value},
            {"interval", figure->interval ? IntervalJson(*figure->interval) : nullptr}};
}

ordered_json ErrorsJson(const ErrorsAt& errors) {
    return {{"threshold", kova_statistics::ThresholdNumber(errors.rank)},
            {"false_accepts", RateJson(errors.falseAccepts)},
            {"false_rejects", RateJson(errors.falseRejects)}};
}

ordered_json RecommendationJson(const Recommendation& one) {
    ordered_json json = {{"wanted_false_accepts", one.wanted},
                         {"fewest_different_pairs", one.fewestPairs},
                         {"rough", one.isRough}};
    json.update(one.errors ? ErrorsJson(*one.errors) : ordered_json{{"threshold", nullptr}});
    return json;
}

ordered_json GroupsJson(const Evaluation& evaluation) {
    const std::vector<double> wanted = WantedOf(evaluation.figures);
    ordered_json groups = ordered_json::array();
    for (const GroupErrors& group : evaluation.groups) {
        ordered_json at = ordered_json::array();
        for (size_t i = 0; i < group.errors.size(); ++i) {
            at.push_back({{"wanted_false_accepts", wanted[i]}});
            at.back().update(ErrorsJson(group.errors[i]));
        }
        groups.push_back({{"group", group.name},
                          {"people", group.people},
                          {"pictures", group.pictures},
                          {"same_pairs", group.samePairs},
                          {"different_pairs", group.differentPairs},
                          {"at", at}});
    }
    return groups;
}

ordered_json AccuracyJson(const std::optional<kova_statistics::Accuracy>& accuracy) {
    if (!accuracy) {
        return nullptr;
    }
    return {{"value", accuracy->value},
            {"interval", IntervalJson(accuracy->interval)},
            {"folds", accuracy->folds}};
}

} // namespace

std::string EvaluationText(const Evaluation& evaluation) {
    std::string text = Summary(evaluation) + Recommended(evaluation.figures) + Groups(evaluation) +
                       Table(evaluation.figures) + "\n";
    for (const std::string& note : Notes(evaluation)) {
        text += Wrapped(note, "- ", "  ");
    }
    return text;
}

std::string EvaluationJson(const Evaluation& evaluation) {
    const Figures& figures = evaluation.figures;
    ordered_json json = {{"faces", evaluation.isCrops ? "crops" : "found"},
                         {"people", evaluation.people},
                         {"pictures", evaluation.pictures},
                         {"same_pairs", figures.samePairs},
                         {"different_pairs", figures.differentPairs},
                         {"equal_error_rate", FigureJson(figures.equalErrorRate)},
                         {"area_under_curve", FigureJson(figures.area)},
                         {"accuracy", AccuracyJson(figures.accuracy)},
                         {"rank_1", FigureJson(figures.rank1)}};
    json["recommended"] = ordered_json::array();
    for (const Recommendation& one : figures.recommendations) {
        json["recommended"].push_back(RecommendationJson(one));
    }
    json["group_by"] =
        evaluation.groupColumn.empty() ? ordered_json() : ordered_json(evaluation.groupColumn);
    json["groups"] = GroupsJson(evaluation);
    json[evaluation.hasPeople ? "pictures_without_group" : "pairs_without_group"] =
        evaluation.withoutGroup;
    json["table"] = ordered_json::array();
    for (const ErrorsAt& errors : figures.table) {
        json["table"].push_back(ErrorsJson(errors));
    }
    json["curve"] = ordered_json::array();
    for (const kova_statistics::CurvePoint& point : figures.curve) {
        json["curve"].push_back(
            {{"false_accepts", point.falseAccepts},
             {"true_accepts", point.trueAccepts},
             {"interval", point.interval ? IntervalJson(*point.interval) : nullptr}});
    }
    json["strangers"] = ordered_json::array();
    for (const kova_statistics::AcceptedAt& one : evaluation.strangers) {
        json["strangers"].push_back({one.pairs, kova_statistics::ThresholdNumber(one.rank)});
    }
    json["left_out"] = evaluation.leftOut;
    json["pairs_left_out"] = evaluation.pairsLeftOut;
    json["repeated_pairs"] = evaluation.repeatedPairs;
    json["copies_of_one_person"] = evaluation.copiesOfOne;
    json["copies_of_two_people"] = evaluation.copiesOfTwo;
    json["rounds"] = evaluation.rounds;
    json["seed"] = evaluation.seed;
    json["notes"] = Notes(evaluation);
    json["shipped_thresholds"] = ShippedThresholds(evaluation.isCrops);
    return JsonLine(json);
}

} // namespace kova_cli
