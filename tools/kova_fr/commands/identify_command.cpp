// SPDX-License-Identifier: MIT
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>

#include "calibration/calibration_words.h"
#include "commands/commands.h"
#include "commands/face_options.h"
#include "commands/found_faces.h"
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
    std::string annotatedPath; // empty: no picture is wanted
    std::optional<float> threshold;
};

constexpr const char* kMeaning =
    R"(Looks each face of each picture up among all features of the gallery, by the inner
product that compare prints; a million features take well under a second. With
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
  kova-fr identify --annotate named.png people.gallery party.jpg)";
}

struct Answer {
    const Face* face;
    std::vector<Match> matches;
};

using MaybeCalibration = std::optional<Calibration>;

std::vector<Answer> Identify(const GalleryFile& gallery, const std::vector<Face>& faces,
                             const IdentifyOptions& options, const MaybeCalibration& calibration) {
    std::vector<Feature> features;
    features.reserve(faces.size());
    for (const Face& face : faces) {
        features.push_back(face.feature);
    }
    std::vector<std::vector<Match>> matches =
        calibration ? Search(gallery, features, options.top, *calibration)
                    : Search(gallery, features, options.top);
    std::vector<Answer> answers;
    for (size_t i = 0; i < faces.size(); ++i) {
        Answer answer{&faces[i], std::move(matches[i])};
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
        text += OneLine(answer.face->path) + "\n";
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
                 const MaybeCalibration& calibration, bool isCrop) {
    nlohmann::ordered_json json;
    json["features"] = gallery.count();
    json["pictures"] = nlohmann::ordered_json::array();
    for (const Answer& answer : answers) {
        nlohmann::ordered_json matches = nlohmann::ordered_json::array();
        for (const Match& match : answer.matches) {
            matches.push_back(MatchJson(match, calibration));
        }
        nlohmann::ordered_json picture = PictureJson(*answer.face);
        picture["matches"] = matches;
        json["pictures"].push_back(picture);
    }
    json["thresholds"] = ShippedThresholds(isCrop);
    if (calibration) {
        json["calibration"] = {{"pictures", calibration->pictures},
                               {"people", calibration->people},
                               {"thresholds", calibration->thresholds}};
    }
    return JsonLine(json);
}

// Below which score a picture names nobody: the one that was asked for, or the one that accepts 1 % of
// strangers; none where nobody measured that.
std::optional<double> LeastToBeNamed(const IdentifyOptions& options,
                                     const MaybeCalibration& calibration) {
    constexpr double kFalseAccepts = 1e-2;
    if (options.threshold) {
        return static_cast<double>(*options.threshold);
    }
    return calibration ? ThresholdFor(calibration->thresholds, kFalseAccepts)
                       : ShippedThreshold(kFalseAccepts);
}

// The most alike name of a face with its score.
std::string NameLabel(const Answer& answer, const std::optional<double>& least) {
    if (answer.matches.empty() ||
        static_cast<double>(answer.matches.front().score) < least.value_or(-2)) {
        return "nobody";
    }
    char number[32];
    std::snprintf(number, sizeof number, " %.2f",
                  static_cast<double>(answer.matches.front().score));
    return answer.matches.front().name + number;
}

std::vector<uint8_t> Annotated(const GreyPicture& picture, const std::vector<Answer>& answers,
                               const std::optional<double>& least) {
    std::vector<LabelledFace> faces;
    faces.reserve(answers.size());
    for (const Answer& answer : answers) {
        faces.push_back({*answer.face->found, NameLabel(answer, least)});
    }
    return DrawFaces(picture, faces);
}

std::vector<OutputFile> AnnotatedFiles(const IdentifyOptions& options) {
    if (options.annotatedPath.empty()) {
        return {};
    }
    if (options.faces.pictures.size() != 1) {
        throw CLI::ValidationError("--annotate", "takes one picture");
    }
    if (options.annotatedPath == options.faces.cropPath) {
        throw CLI::ValidationError("--annotate", "names the same file as --save-crop");
    }
    return {{options.annotatedPath, true, {}}};
}

void RunIdentify(const IdentifyOptions& options) {
    std::vector<OutputFile> files = CropFiles(options.faces);
    CheckOutputs(files, options.faces.pictures);
    std::vector<OutputFile> annotated = AnnotatedFiles(options);
    CheckOutputs(annotated, options.faces.pictures);
    const Recogniser recogniser;
    const GalleryFile gallery(options.galleryPath, ModelsDigest());
    const MaybeCalibration calibration = CalibrationIfNamed(options.calibrationPath, options.faces);
    const FacesRead read = ReadFaces(recogniser, options.faces);
    const std::vector<Face>& faces = read.faces;
    const std::vector<Answer> answers = Identify(gallery, faces, options, calibration);
    FillCropFiles(faces, options.faces, files);
    for (OutputFile& file : annotated) {
        file.bytes = Annotated(read.last, answers, LeastToBeNamed(options, calibration));
        files.push_back(std::move(file));
    }
    WriteFiles(files);
    WriteStandardOutput(options.faces.json
                            ? Json(gallery, answers, calibration, IsCrop(options.faces))
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
    options->faces.takesAll = true;
    options->faces.poor = Poor::kWarned;
    AddFaceOptions(command, options->faces, 1);
    AddCalibrationOption(command, options->calibrationPath);
    command.add_option("--top", options->top, "How many names to list at most")
        ->capture_default_str()
        ->check(CLI::Range(1, 1'000'000))
        ->type_name("K");
    command
        .add_option("--annotate", options->annotatedPath,
                    "Write the picture with a box around every face and the most alike name below, "
                    "or 'nobody' below --threshold (without one: that which accepts 1 % of "
                    "strangers)")
        ->excludes("--crop")
        ->excludes("--box")
        ->type_name("FILE.png");
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
