// SPDX-License-Identifier: MIT
#include <bit>
#include <charconv>
#include <memory>

#include "commands/commands.h"
#include "commands/face_options.h"
#include "terminal/json_line.h"

namespace kova_cli {
namespace {

struct ExtractOptions {
    FaceOptions faces;
    std::string outputPath; // empty: the features are printed
};

constexpr const char* kNotes =
    R"(Finds the faces of each picture, the best first, and prints the feature of each as
one line of 128 numbers, which read back to the same bits. --json says where each
face is and how good, too.

The feature of a found face is the mean direction of what the recogniser makes of
it and of its mirror image (OrvoFindMirroredFeatures). That of a crop is what a
camera's kova_fr_extract_obj_feature() answers.

Examples:
  kova-fr extract photo.jpg
  kova-fr extract --crop face.png
  kova-fr extract --box 120,80,200,200 --save-crop crop.png photo.jpg
  kova-fr extract --json a.png b.png > features.json
  kova-fr extract --output features.f32 a.png b.png)";

// The shortest digits that read back to the same value.
std::string FloatText(float value) {
    char text[32];
    const auto [end, error] = std::to_chars(text, text + sizeof text, value);
    return std::string(text, end);
}

std::string FeatureLine(const Feature& feature) {
    std::string line;
    for (const float value : feature) {
        line += line.empty() ? "" : " ";
        line += FloatText(value);
    }
    return line + "\n";
}

std::string Text(const std::vector<Face>& faces) {
    std::string text;
    for (const Face& face : faces) {
        text += FeatureLine(face.feature);
    }
    return text;
}

std::string Json(const std::vector<Face>& faces) {
    nlohmann::ordered_json json;
    for (const Face& face : faces) {
        nlohmann::ordered_json picture = PictureJson(face);
        picture["feature"] = face.feature;
        json["pictures"].push_back(picture);
    }
    return JsonLine(json);
}

// 32-bit floats, lowest byte first, feature after feature.
std::vector<uint8_t> RawFeatures(const std::vector<Face>& faces) {
    std::vector<uint8_t> bytes;
    for (const Face& face : faces) {
        for (const float value : face.feature) {
            const auto bits = std::bit_cast<uint32_t>(value);
            for (int shift = 0; shift < 32; shift += 8) {
                bytes.push_back(static_cast<uint8_t>(bits >> shift));
            }
        }
    }
    return bytes;
}

// `files` are those of CropFiles().
void WriteResults(const ExtractOptions& options, const std::vector<Face>& faces,
                  std::vector<OutputFile> files) {
    FillCropFiles(faces, options.faces, files);
    if (!options.outputPath.empty()) {
        files.push_back({options.outputPath, true, RawFeatures(faces)});
    }
    WriteFiles(files);
}

void RunExtract(const ExtractOptions& options) {
    const std::vector<OutputFile> crops = CropFiles(options.faces);
    CheckOutputs(crops, options.faces.pictures);
    const bool isPrinted = options.outputPath.empty();
    if (!isPrinted) {
        if (options.outputPath == options.faces.cropPath) {
            throw CLI::ValidationError("--output", "names the same file as --save-crop");
        }
        CheckOutputs({{options.outputPath, true, {}}}, options.faces.pictures);
    }
    const std::vector<Face> faces = ReadFaces(Recogniser(), options.faces).faces;
    WriteResults(options, faces, crops);
    if (isPrinted) {
        WriteStandardOutput(options.faces.json ? Json(faces) : Text(faces));
    }
}

} // namespace

void AddExtractCommand(CLI::App& program) {
    CLI::App& command = *program.add_subcommand("extract", "Print the features of faces");
    const auto options = std::make_shared<ExtractOptions>();
    options->faces.takesAll = true;
    AddFaceOptions(command, options->faces, 1);
    command
        .add_option("--output", options->outputPath,
                    "Write the features there instead of printing them: 128 32-bit floats a "
                    "face, lowest byte first, pictures in order")
        ->excludes("--json")
        ->type_name("FILE");
    command.footer(kNotes);
    command.callback([options] { RunExtract(*options); });
}

} // namespace kova_cli
