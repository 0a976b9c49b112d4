// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cstdio>
#include <memory>

#include "calibration/calibration_file.h"
#include "calibration/calibration_words.h"
#include "commands/commands.h"
#include "commands/face_options.h"
#include "evaluation/shipped_thresholds.h"
#include "evaluation/verdict.h"
#include "terminal/columns.h"
#include "terminal/json_line.h"
#include "terminal/label.h"

namespace kova_cli {
namespace {

using Table = std::vector<std::vector<float>>;

struct CompareOptions {
    FaceOptions faces;
    std::string calibrationPath; // empty: none
};

// What a calibration makes of the faces.
struct CalibratedTables {
    Calibration calibration;
    Table centred;
    Table normalised;
};

constexpr size_t kRowLabelLength = 24;
constexpr size_t kColumnLabelLength = 10;
constexpr size_t kNumberLength = 7; // "-0.1234"

constexpr const char* kHowToRead =
    "1 is what a picture gives with itself; the larger the number, the more alike the faces.\n";

constexpr const char* kMeaning =
    "The distance of two faces is 1 for identical ones, and larger for more alike faces.\n";

constexpr const char* kExamples = R"(
Examples:
  kova-fr compare a.jpg b.png
  kova-fr compare samples/*.png
  kova-fr compare --crop face1.png face2.png
  kova-fr compare --box 120,80,200,200 --box all photo.jpg face.png
  kova-fr compare --all-faces party.jpg
  kova-fr compare --calibration door.calibration a.jpg b.png
  kova-fr compare --json --save-crop crop.png a.jpg b.png)";

Table Distances(const Recogniser& recogniser, const std::vector<Face>& faces) {
    Table table;
    for (const Face& a : faces) {
        std::vector<float>& row = table.emplace_back();
        for (const Face& b : faces) {
            row.push_back(recogniser.Distance(a.feature, b.feature));
        }
    }
    return table;
}

CalibratedTables CalibrateTables(Calibration calibration, const std::vector<Face>& faces) {
    CalibratedTables tables{std::move(calibration), {}, {}};
    const FaceCalibrator calibrate(tables.calibration);
    std::vector<CalibratedFace> calibrated;
    calibrated.reserve(faces.size());
    for (const Face& face : faces) {
        calibrated.push_back(calibrate(face.feature));
    }
    for (const CalibratedFace& a : calibrated) {
        std::vector<float>& centred = tables.centred.emplace_back();
        std::vector<float>& normalised = tables.normalised.emplace_back();
        for (const CalibratedFace& b : calibrated) {
            centred.push_back(CentredScore(a, b));
            normalised.push_back(NormalisedScore(a, b));
        }
    }
    return tables;
}

std::string Number(float value, int decimals) {
    char text[32];
    std::snprintf(text, sizeof text, "%.*f", decimals, static_cast<double>(value));
    return text;
}

std::vector<std::string> Labels(const std::vector<Face>& faces) {
    std::vector<std::string> paths;
    paths.reserve(faces.size());
    for (const Face& face : faces) {
        paths.push_back(face.path);
    }
    return ShortNames(paths);
}

size_t LongestLabel(const std::vector<std::string>& labels, size_t limit) {
    size_t longest = 0;
    for (const std::string& label : labels) {
        longest = std::max(longest, LabelLength(label));
    }
    return std::min(longest, limit);
}

// Columns from `begin` to `end` of the table.
std::string TablePart(const Table& table, const std::vector<std::string>& labels, size_t begin,
                      size_t end, size_t rowLength, size_t columnLength) {
    std::string text(rowLength, ' ');
    for (size_t j = begin; j < end; ++j) {
        text += PadLeft(ShortenLabel(labels[j], kColumnLabelLength), columnLength);
    }
    text += "\n";
    for (size_t i = 0; i < table.size(); ++i) {
        text += PadRight(ShortenLabel(labels[i], kRowLabelLength), rowLength);
        for (size_t j = begin; j < end; ++j) {
            text += PadLeft(Number(table[i][j], 4), columnLength);
        }
        text += "\n";
    }
    return text;
}

// As many columns below one another as the terminal has room for; all of them where nobody knows.
std::string TableText(const Table& table, const std::vector<std::string>& labels) {
    const size_t rowLength = LongestLabel(labels, kRowLabelLength);
    const size_t columnLength =
        std::max(LongestLabel(labels, kColumnLabelLength), kNumberLength) + 2;
    size_t room = labels.size();
    if (const std::optional<size_t> width = OutputColumns()) {
        room = std::max<size_t>(*width > rowLength ? (*width - rowLength) / columnLength : 0, 1);
    }
    std::string text;
    for (size_t begin = 0; begin < labels.size(); begin += room) {
        text += begin > 0 ? "\n" : "";
        text += TablePart(table, labels, begin, std::min(begin + room, labels.size()), rowLength,
                          columnLength);
    }
    return text;
}

std::string Text(const std::vector<Face>& faces, const Table& table, bool isCrop) {
    std::string text = TableText(table, Labels(faces)) + "\n";
    if (faces.size() == 2) {
        text +=
            "The distance is " + Number(table[0][1], 6) + ".\n" + VerdictText(table[0][1], isCrop);
    }
    return text + kHowToRead + ThresholdsText(isCrop);
}

std::string Text(const std::vector<Face>& faces, const CalibratedTables& tables) {
    std::string text =
        "\nNormalised scores by the calibration, on which strangers are about 0 or below:\n" +
        TableText(tables.normalised, Labels(faces)) + "\n";
    if (faces.size() == 2) {
        const float score = tables.normalised[0][1];
        text +=
            Wrapped("The normalised score is " + Number(score, 6) + ": " +
                    RarityWords(RarityOf(tables.calibration, static_cast<double>(score))) + ".");
    }
    return text + CalibrationWords(tables.calibration);
}

nlohmann::ordered_json CalibratedJson(const CalibratedTables& tables, const std::string& path) {
    nlohmann::ordered_json json = {{"path", path},
                                   {"pictures", tables.calibration.pictures},
                                   {"people", tables.calibration.people},
                                   {"centred", tables.centred},
                                   {"normalised", tables.normalised}};
    for (const std::vector<float>& row : tables.normalised) {
        nlohmann::ordered_json rarities = nlohmann::ordered_json::array();
        for (const float score : row) {
            rarities.push_back(
                RarityJson(RarityOf(tables.calibration, static_cast<double>(score))));
        }
        json["rarity"].push_back(rarities);
    }
    json["thresholds"] = tables.calibration.thresholds;
    return json;
}

nlohmann::ordered_json Json(const std::vector<Face>& faces, const Table& table, bool isCrop) {
    nlohmann::ordered_json json;
    for (const Face& face : faces) {
        json["pictures"].push_back(PictureJson(face));
    }
    json["distances"] = table;
    if (faces.size() == 2) {
        json["distance"] = table[0][1];
        json["verdict"] = VerdictJson(table[0][1], isCrop);
    }
    json["thresholds"] = ShippedThresholds(isCrop);
    return json;
}

void RunCompare(const CompareOptions& all) {
    const FaceOptions& options = all.faces;
    if (options.pictures.size() < 2 && !options.takesAll) {
        throw CLI::ValidationError("pictures", "at least 2 are needed, or one with --all-faces");
    }
    std::vector<OutputFile> crops = CropFiles(options);
    CheckOutputs(crops, options.pictures);
    const Recogniser recogniser;
    std::optional<Calibration> calibration = CalibrationIfNamed(all.calibrationPath, options);
    const std::vector<Face> faces = ReadFaces(recogniser, options).faces;
    const Table table = Distances(recogniser, faces);
    FillCropFiles(faces, options, crops);
    WriteFiles(crops);
    nlohmann::ordered_json json = Json(faces, table, IsCrop(options));
    std::string text = Text(faces, table, IsCrop(options));
    if (calibration) {
        const CalibratedTables tables = CalibrateTables(std::move(*calibration), faces);
        json["calibration"] = CalibratedJson(tables, all.calibrationPath);
        text += Text(faces, tables);
    }
    WriteStandardOutput(options.json ? JsonLine(json) : text);
}

} // namespace

void AddCompareCommand(CLI::App& program) {
    CLI::App& command =
        *program.add_subcommand("compare", "Print the distances of two or more faces");
    const auto options = std::make_shared<CompareOptions>();
    options->faces.poor = Poor::kWarned;
    AddFaceOptions(command, options->faces, 1);
    AddCalibrationOption(command, options->calibrationPath);
    command.footer(kMeaning + ThresholdsText() + kExamples);
    command.callback([options] { RunCompare(*options); });
}

} // namespace kova_cli
