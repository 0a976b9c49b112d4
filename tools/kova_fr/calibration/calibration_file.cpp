// SPDX-License-Identifier: MIT
#include "calibration/calibration_file.h"

#include <cmath>

#include "files/failure.h"
#include "files/input_file.h"
#include "terminal/json_line.h"

namespace kova_cli {
namespace {

using nlohmann::ordered_json;

constexpr uint64_t kVersion = 1;
constexpr uint64_t kLargestFile = uint64_t{16} << 20;
constexpr double kSlack = 1e-3; // how far the length of a vector of the cohort may be off

// Six decimals are 1/100 of what a step of a feature is.
double Rounded(double value) { return std::round(value * 1e6) / 1e6; }

template <typename Numbers>
ordered_json NumbersJson(const Numbers& numbers) {
    ordered_json json = ordered_json::array();
    for (const auto number : numbers) {
        json.push_back(Rounded(static_cast<double>(number)));
    }
    return json;
}

[[noreturn]] void FailContents(const std::string& what) {
    throw Failure("is no calibration of kova-fr: " + what +
                  "; make it anew with kova-fr calibrate");
}

// The number, which JSON cannot make infinite.
double NumberWithin(const ordered_json& json, double low, double high) {
    const double number = json.get<double>();
    if (!(number >= low && number <= high)) {
        FailContents("a number is out of range");
    }
    return number;
}

// A fraction, or what no integer holds, would otherwise become any number.
uint64_t WholeNumber(const ordered_json& json) {
    if (!json.is_number_unsigned()) {
        FailContents("a number is not whole");
    }
    return json.get<uint64_t>();
}

template <typename Numbers>
void ReadNumbers(const ordered_json& json, Numbers& numbers) {
    if (!json.is_array() || json.size() != numbers.size()) {
        FailContents("a vector has not " + std::to_string(numbers.size()) + " numbers");
    }
    for (size_t i = 0; i < numbers.size(); ++i) {
        numbers[i] = static_cast<typename Numbers::value_type>(NumberWithin(json[i], -1, 1));
    }
}

Feature ReadUnitVector(const ordered_json& json) {
    Feature vector;
    ReadNumbers(json, vector);
    double squares = 0;
    for (const float x : vector) {
        squares += static_cast<double>(x) * static_cast<double>(x);
    }
    if (squares != 0 && std::abs(std::sqrt(squares) - 1) > kSlack) {
        FailContents("a vector of the cohort is not of unit length");
    }
    return vector;
}

void ReadStrangers(const ordered_json& json, Calibration& calibration) {
    uint64_t lastRank = 0;
    double lastScore = 1;
    for (const ordered_json& one : json) {
        const auto rank = WholeNumber(one.at(0));
        const double score = NumberWithin(one.at(1), -1, lastScore);
        if (rank <= lastRank || rank > calibration.strangerPairs) {
            FailContents("the ranks of strangers do not rise");
        }
        calibration.strangers.push_back({rank, score});
        lastRank = rank;
        lastScore = score;
    }
    if (lastRank != calibration.strangerPairs || lastRank == 0) {
        FailContents("the ranks of strangers do not reach the number of their pairs");
    }
}

void CheckInterval(const ordered_json& rate) {
    NumberWithin(rate.at("rate"), 0, 1);
    NumberWithin(rate.at("interval").at(0), 0, 1);
    NumberWithin(rate.at("interval").at(1), 0, 1);
}

void CheckThresholds(const ordered_json& thresholds) {
    if (!thresholds.is_array()) {
        FailContents("it has no thresholds");
    }
    for (const ordered_json& one : thresholds) {
        NumberWithin(one.at("false_accept_rate"), 0, 1);
        NumberWithin(one.at("threshold"), -1.0001, 1.0001);
        CheckInterval(one.at("false_accepts"));
        if (!one.at("false_rejects").is_null()) {
            CheckInterval(one.at("false_rejects"));
        }
        one.at("rough").get<bool>();
    }
}

Calibration Read(const ordered_json& json, const Sha256& models) {
    if (WholeNumber(json.at("kova_fr_calibration")) != kVersion) {
        FailContents("it is of another version");
    }
    if (json.at("models").get<std::string>() != Hex({models.data(), models.size()})) {
        throw Failure("was made with other models; make it anew with kova-fr calibrate");
    }
    Calibration calibration;
    calibration.models = models;
    calibration.pictures = WholeNumber(json.at("pictures"));
    calibration.people = WholeNumber(json.at("people"));
    calibration.isLabelled = json.at("labelled").get<bool>();
    if (json.contains("faces")) {
        const auto faces = json.at("faces").get<std::string>();
        if (faces != "crops" && faces != "found") {
            FailContents("it does not say how its faces were found");
        }
        calibration.of = faces == "crops" ? OfFaces::kCrops : OfFaces::kFound;
    }
    ReadNumbers(json.at("mean"), calibration.mean);
    for (const ordered_json& vector : json.at("cohort")) {
        calibration.cohort.push_back(ReadUnitVector(vector));
    }
    if (WholeNumber(json.at("most_alike")) != MostAlike(calibration.cohort.size())) {
        FailContents("it counts another number of most alike faces");
    }
    calibration.strangerPairs = WholeNumber(json.at("stranger_pairs"));
    ReadStrangers(json.at("strangers"), calibration);
    calibration.thresholds = json.at("thresholds");
    CheckThresholds(calibration.thresholds);
    return calibration;
}

} // namespace

std::string CalibrationText(const Calibration& calibration) {
    ordered_json json = {{"kova_fr_calibration", kVersion},
                         {"models", Hex({calibration.models.data(), calibration.models.size()})},
                         {"pictures", calibration.pictures},
                         {"people", calibration.people},
                         {"labelled", calibration.isLabelled},
                         {"faces", calibration.of == OfFaces::kCrops ? "crops" : "found"},
                         {"thresholds", calibration.thresholds},
                         {"most_alike", MostAlike(calibration.cohort.size())},
                         {"stranger_pairs", calibration.strangerPairs}};
    json["strangers"] = ordered_json::array();
    for (const Calibration::StrangerScore& one : calibration.strangers) {
        json["strangers"].push_back({one.rank, Rounded(one.score)});
    }
    json["mean"] = NumbersJson(calibration.mean);
    json["cohort"] = ordered_json::array();
    for (const Feature& vector : calibration.cohort) {
        json["cohort"].push_back(NumbersJson(vector));
    }
    return JsonLine(json);
}

Calibration LoadCalibration(const std::string& path, const Sha256& models) {
    try {
        const std::vector<uint8_t> bytes = ReadWholeFile(path, kLargestFile);
        return Read(ordered_json::parse(bytes.begin(), bytes.end()), models);
    } catch (const Failure& failure) {
        throw Failure(path + ": " + failure.what());
    } catch (const nlohmann::json::exception&) {
        throw Failure(path + ": is no calibration of kova-fr; make one with kova-fr calibrate");
    }
}

} // namespace kova_cli
