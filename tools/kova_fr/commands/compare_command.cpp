// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cstdio>
#include <memory>

#include "commands/commands.h"
#include "commands/face_options.h"
#include "evaluation/shipped_thresholds.h"
#include "terminal/json_line.h"
#include "terminal/label.h"

namespace kova_cli {
namespace {

using Table = std::vector<std::vector<float>>;

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
  kova-fr compare --box 120,80,200,200 --box all photo.jpg face.png
  kova-fr compare --detect-all party.jpg
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

std::string TableText(const Table& table, const std::vector<std::string>& labels) {
    const size_t rowLength = LongestLabel(labels, kRowLabelLength);
    const size_t columnLength =
        std::max(LongestLabel(labels, kColumnLabelLength), kNumberLength) + 2;
    std::string text(rowLength, ' ');
    for (const std::string& label : labels) {
        text += PadLeft(ShortenLabel(label, kColumnLabelLength), columnLength);
    }
    text += "\n";
    for (size_t i = 0; i < table.size(); ++i) {
        text += PadRight(ShortenLabel(labels[i], kRowLabelLength), rowLength);
        for (const float distance : table[i]) {
            text += PadLeft(Number(distance, 4), columnLength);
        }
        text += "\n";
    }
    return text;
}

std::string Text(const std::vector<Face>& faces, const Table& table) {
    std::string text = TableText(table, Labels(faces)) + "\n";
    if (faces.size() == 2) {
        text += "The distance is " + Number(table[0][1], 6) + ".\n";
    }
    return text + kHowToRead + ThresholdsText();
}

std::string Json(const std::vector<Face>& faces, const Table& table) {
    nlohmann::ordered_json json;
    for (const Face& face : faces) {
        json["pictures"].push_back(PictureJson(face));
    }
    json["distances"] = table;
    if (faces.size() == 2) {
        json["distance"] = table[0][1];
    }
    json["thresholds"] = ShippedThresholds();
    return JsonLine(json);
}

void RunCompare(const FaceOptions& options) {
    if (options.pictures.size() < 2 && !options.detectAll) {
        throw CLI::ValidationError("pictures", "at least 2 are needed, or one with --detect-all");
    }
    std::vector<OutputFile> crops = CropFiles(options);
    CheckOutputs(crops, options.pictures);
    const Recogniser recogniser;
    const std::vector<Face> faces = RecogniseAll(recogniser, options);
    const Table table = Distances(recogniser, faces);
    FillCropFiles(faces, crops);
    WriteFiles(crops);
    WriteStandardOutput(options.json ? Json(faces, table) : Text(faces, table));
}

} // namespace

void AddCompareCommand(CLI::App& program) {
    CLI::App& command =
        *program.add_subcommand("compare", "Print the distances of two or more faces");
    const auto options = std::make_shared<FaceOptions>();
    AddFaceOptions(command, *options, 1);
    command.footer(kMeaning + ThresholdsText() + kExamples);
    command.callback([options] { RunCompare(*options); });
}

} // namespace kova_cli
