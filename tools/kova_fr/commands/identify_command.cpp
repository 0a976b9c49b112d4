// SPDX-License-Identifier: MIT
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>

#include "calibration/calibration_words.h"
#include "commands/commands.h"
#include "commands/face_options.h"
#include "evaluation/shipped_thresholds.h"
#include "files/failure.h"
#include "gallery/search.h"
#include "terminal/json_line.h"
#include "terminal/label.h"

namespace kova_cli {
namespace {

struct IdentifyOptions {
    std::string galleryPath;
    std::string calibrationPath; // empty: none
    FaceOptions faces;
    size_t top = 5;
    std::optional<float> threshold;
};

constexpr const char* kMeaning =
    R"(Looks each face up among all features of the gallery, by the float inner product
that compare prints; a million features take well under a second. With
--calibration it is the normalised score that ranks and that --threshold means, and
a million features take some seconds. Of a name with several features the best one
counts. With --threshold only names at least that
much alike are listed; without, the most alike names are listed even if they are
strangers (docs/THRESHOLDS.md says how to choose). Each enrolled feature is one
more stranger who can be mistaken for the visitor.
)";

std::string Footer() {
    return kMeaning + ThresholdsText() + R"(
Examples:
  kova-fr identify people.gallery somebody.jpg
  kova-fr identify --top 1 --threshold )" +
           ThresholdOfExamples() + R"( people.gallery a.jpg b.jpg
  kova-fr identify --calibration door.calibration people.gallery somebody.jpg
  kova-fr identify --detect-all --json people.gallery party.jpg)";
}

struct Answer {
    std::string path;
    std::vector<Match> matches;
};

using MaybeCalibration = std::optional<Calibration>;

std::vector<Answer> Identify(const GalleryFile& gallery, const std::vector<Face>& faces,
                             const IdentifyOptions& options, const MaybeCalibration& calibration) {
    std::vector<Feature> features;
    for (const Face& face : faces) {
        features.push_back(face.feature);
    }
    std::vector<std::vector<Match>> matches =
        calibration ? Search(gallery, features, options.top, *calibration)
                    : Search(gallery, features, options.top);
    std::vector<Answer> answers;
    for (size_t i = 0; i < faces.size(); ++i) {
        Answer answer{faces[i].path, std::move(matches[i])};
        if (options.threshold) {
            std::erase_if(answer.matches, [&options](const Match& match) {
                return match.score < *options.threshold;
            });
        }
        answers.push_back(std::move(answer));
    }
    return answers;
}

Rarity RarityOf(const Calibration& calibration, const Match& match) {
    return RarityOf(calibration, static_cast<double>(match.score));
}

std::string Text(const std::vector<Answer>& answers, const MaybeCalibration& calibration) {
    std::string text;
    for (const Answer& answer : answers) {
        text += OneLine(answer.path) + "\n";
        for (const Match& match : answer.matches) {
            char number[32];
            std::snprintf(number, sizeof number, "  %8.6f  ", static_cast<double>(match.score));
            text += number + OneLine(match.name);
            if (calibration) {
                text += ", " + RarityWords(RarityOf(*calibration, match));
            }
            text += "\n";
        }
        text += answer.matches.empty() ? "  nobody\n" : "";
    }
    return text;
}

nlohmann::ordered_json MatchJson(const Match& match, const MaybeCalibration& calibration) {
    nlohmann::ordered_json json = {
        {"name", match.name}, {"distance", match.distance}, {"entry", match.entry}};
    if (calibration) {
        json["normalised"] = match.score;
        json["rarity"] = RarityJson(RarityOf(*calibration, match));
    }
    return json;
}

std::string Json(const GalleryFile& gallery, const std::vector<Answer>& answers,
                 const MaybeCalibration& calibration) {
    nlohmann::ordered_json json;
    json["features"] = gallery.count();
    json["pictures"] = nlohmann::ordered_json::array();
    for (const Answer& answer : answers) {
        nlohmann::ordered_json matches = nlohmann::ordered_json::array();
        for (const Match& match : answer.matches) {
            matches.push_back(MatchJson(match, calibration));
        }
        json["pictures"].push_back({{"path", answer.path}, {"matches", matches}});
    }
    json["thresholds"] = ShippedThresholds();
    if (calibration) {
        json["calibration"] = {{"pictures", calibration->pictures},
                               {"people", calibration->people},
                               {"thresholds", calibration->thresholds}};
    }
    return JsonLine(json);
}

void RunIdentify(const IdentifyOptions& options) {
    std::vector<OutputFile> crops = CropFiles(options.faces);
    CheckOutputs(crops, options.faces.pictures);
    const Recogniser recogniser;
    const GalleryFile gallery(options.galleryPath, ModelsDigest());
    const MaybeCalibration calibration = CalibrationIfNamed(options.calibrationPath);
    const std::vector<Face> faces = RecogniseAll(recogniser, options.faces);
    const std::vector<Answer> answers = Identify(gallery, faces, options, calibration);
    FillCropFiles(faces, crops);
    WriteFiles(crops);
    WriteStandardOutput(options.faces.json ? Json(gallery, answers, calibration)
                                           : Text(answers, calibration));
    const bool isNobody = std::any_of(answers.begin(), answers.end(),
                                      [](const Answer& a) { return a.matches.empty(); });
    if (options.threshold && isNobody) {
        throw NobodyRecognised();
    }
}

} // namespace

void AddIdentifyCommand(CLI::App& program) {
    CLI::App& command = *program.add_subcommand("identify", "Look faces up in a gallery");
    const auto options = std::make_shared<IdentifyOptions>();
    command.add_option("gallery", options->galleryPath, "Gallery file of kova-fr enroll")
        ->required()
        ->type_name("GALLERY");
    AddFaceOptions(command, options->faces, 1);
    AddCalibrationOption(command, options->calibrationPath);
    command.add_option("--top", options->top, "How many names to list at most")
        ->capture_default_str()
        ->check(CLI::Range(1, 1'000'000))
        ->type_name("K");
    command
        .add_option("--threshold", options->threshold,
                    "List only names whose distance, or normalised score, is at least this; exit "
                    "with 3 if a face has "
                    "none")
        ->check(CLI::Range(-1.0, 1.0))
        ->type_name("D");
    command.footer(Footer());
    command.callback([options] { RunIdentify(*options); });
}

} // namespace kova_cli
