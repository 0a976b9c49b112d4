// SPDX-License-Identifier: MIT
#include <memory>
#include <optional>

#include "commands/commands.h"
#include "commands/found_faces.h"
#include "faces/finder.h"
#include "files/failure.h"
#include "files/output_file.h"
#include "terminal/json_line.h"
#include "terminal/label.h"

namespace kova_cli {
namespace {

struct FindOptions {
    std::vector<std::string> pictures;
    std::optional<int32_t> smallest;
    int32_t most = 100;
    std::string outputPath;  // empty: only the text is wanted
    std::string uprightPath; // empty: no crops are wanted
    bool json = false;
};

constexpr const char* kNotes =
    R"(Finds the faces in whole pictures, best first: the square that the recogniser
would look at, in pixels from the top left corner, which may leave the picture;
how sure it is (score, 0 to 1); where the face points (yaw, degrees to the right
of the picture) and leans (roll, degrees to the right); how good it is to be
recognised (quality, 0 to 100), and what is wrong with it: small, blurred, dark,
overexposed, turned, tilted, covered, cut off, grimacing.

Without --smallest faces from 20 pixels on are found in pictures of up to 1280
pixels a side, from 40 in twice as large ones, and so on.

Exit status 0 also where no face was found.

Examples:
  kova-fr find photo.jpg
  kova-fr find --output found.png --smallest 60 photo.jpg
  kova-fr find --json *.jpg
  kova-fr find --save-upright face.png portrait.jpg)";

struct Searched {
    std::string path;
    GreyPicture picture;
    std::vector<OrvoFindFace> faces;
};

// The pixels are kept only where something is made of them.
Searched Search(Finder& finder, const FindOptions& options, const std::string& path) {
    Searched searched{path, LoadPicture(path), {}};
    try {
        searched.faces = finder.Find(searched.picture, options.smallest, options.most);
    } catch (const Failure& failure) {
        throw Failure(path + ": " + failure.what());
    }
    return searched;
}

std::vector<uint8_t> Drawn(const Searched& searched) {
    std::vector<LabelledFace> faces;
    faces.reserve(searched.faces.size());
    for (const OrvoFindFace& face : searched.faces) {
        faces.push_back({face, QualityLabel(face)});
    }
    return DrawFaces(searched.picture, faces);
}

std::string Text(const Searched& searched) {
    const size_t count = searched.faces.size();
    std::string text = OneLine(searched.path) + ", " + std::to_string(searched.picture.width) +
                       " x " + std::to_string(searched.picture.height) + ": " +
                       (count == 0   ? "no face"
                        : count == 1 ? "1 face"
                                     : std::to_string(count) + " faces") +
                       "\n";
    for (const OrvoFindFace& face : searched.faces) {
        text += "  " + FaceLine(face) + "\n";
    }
    return text;
}

nlohmann::ordered_json Json(const Searched& searched) {
    nlohmann::ordered_json json;
    json["path"] = searched.path;
    json["width"] = searched.picture.width;
    json["height"] = searched.picture.height;
    json["faces"] = nlohmann::ordered_json::array();
    for (const OrvoFindFace& face : searched.faces) {
        json["faces"].push_back(FaceJson(face));
    }
    return json;
}

std::vector<OutputFile> OutputFiles(const FindOptions& options) {
    std::vector<OutputFile> files;
    for (const std::string& path : {options.outputPath, options.uprightPath}) {
        if (!path.empty()) {
            files.push_back({path, true, {}});
        }
    }
    if (!files.empty() && options.pictures.size() != 1) {
        throw CLI::ValidationError("--output and --save-upright", "take one picture");
    }
    if (!options.outputPath.empty() && options.outputPath == options.uprightPath) {
        throw CLI::ValidationError("--output", "names the same file as --save-upright");
    }
    CheckOutputs(files, options.pictures);
    return files;
}

void RunFind(const FindOptions& options) {
    std::vector<OutputFile> files = OutputFiles(options);
    Finder finder;
    std::string text;
    nlohmann::ordered_json json;
    for (const std::string& path : options.pictures) {
        const Searched searched = Search(finder, options, path);
        if (!options.uprightPath.empty()) {
            if (searched.faces.empty()) {
                throw Failure(path + ": no face was found, so there is none to turn upright");
            }
            files.back().bytes = EncodePng(finder.Upright(searched.picture, searched.faces.front()),
                                           ORVO_FIND_CROP_SIZE, ORVO_FIND_CROP_SIZE, 1);
        }
        if (!options.outputPath.empty()) {
            files.front().bytes = Drawn(searched);
        }
        text += options.json ? "" : Text(searched);
        json["pictures"].push_back(Json(searched));
    }
    WriteFiles(files);
    WriteStandardOutput(options.json ? JsonLine(json) : text);
}

} // namespace

void AddFindCommand(CLI::App& program) {
    CLI::App& command = *program.add_subcommand("find", "Find the faces in whole pictures");
    const auto options = std::make_shared<FindOptions>();
    command.add_option("pictures", options->pictures, "Picture files")
        ->required()
        ->type_name("PICTURE");
    command.add_flag("--json", options->json, "Print one line of JSON");
    command
        .add_option("--smallest", options->smallest,
                    "Side of the smallest face to look for, in pixels; larger is faster")
        ->check(CLI::Range(1, 1 << 20))
        ->type_name("PIXELS");
    command.add_option("--at-most", options->most, "Faces of each picture, the best ones")
        ->check(CLI::Range(1, 512))
        ->capture_default_str()
        ->type_name("NUMBER");
    command
        .add_option("--output", options->outputPath,
                    "Write the picture with boxes, landmarks and quality drawn on it")
        ->type_name("FILE.png");
    command
        .add_option("--save-upright", options->uprightPath,
                    "Write the best face, turned upright as the recogniser takes it")
        ->type_name("FILE.png");
    command.footer(kNotes);
    command.callback([options] { RunFind(*options); });
}

} // namespace kova_cli
