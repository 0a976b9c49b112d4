// SPDX-License-Identifier: MIT
#include "commands/face_options.h"

#include <charconv>
#include <filesystem>

#include "calibration/calibration_file.h"
#include "faces/detector.h"

namespace kova_cli {
namespace {

constexpr const char* kWholePicture = "all";

std::optional<uint32_t> ParseNumber(const char*& at, const char* end) {
    uint32_t number = 0;
    const auto [next, error] = std::from_chars(at, end, number);
    if (error != std::errc()) {
        return std::nullopt;
    }
    at = next;
    return number;
}

// "x,y,w,h", the last two not 0.
std::optional<Box> ParseBox(const std::string& text) {
    const char* at = text.data();
    const char* const end = at + text.size();
    uint32_t numbers[4];
    for (int i = 0; i < 4; ++i) {
        if (i > 0 && (at == end || *at++ != ',')) {
            return std::nullopt;
        }
        const std::optional<uint32_t> number = ParseNumber(at, end);
        if (!number) {
            return std::nullopt;
        }
        numbers[i] = *number;
    }
    if (at != end || numbers[2] == 0 || numbers[3] == 0) {
        return std::nullopt;
    }
    return Box{numbers[0], numbers[1], numbers[2], numbers[3]};
}

std::string CheckBox(const std::string& text) {
    if (text == kWholePicture || ParseBox(text)) {
        return "";
    }
    return "'" + text + "' is no box; give x,y,w,h in pixels, or all";
}

void CheckBoxCount(const FaceOptions& options) {
    const size_t count = options.boxes.size();
    if (count > 1 && count != options.pictures.size()) {
        throw CLI::ValidationError("--box", "given " + std::to_string(count) + " times for " +
                                                std::to_string(options.pictures.size()) +
                                                " pictures; give one for all or one for each");
    }
}

// One box serves all pictures; more of them belong to the pictures in order.
std::optional<Box> BoxOf(const FaceOptions& options, size_t picture) {
    if (options.detect) {
        return DetectFaces(options.pictures[picture]).front();
    }
    if (options.boxes.empty()) {
        return std::nullopt;
    }
    return ParseBox(options.boxes[options.boxes.size() == 1 ? 0 : picture]);
}

std::string NumberedPath(const std::string& path, size_t number) {
    const std::filesystem::path whole(path);
    const std::string name =
        whole.stem().string() + "-" + std::to_string(number) + whole.extension().string();
    return (whole.parent_path() / name).string();
}

} // namespace

void AddFaceOptions(CLI::App& command, FaceOptions& options, int fewestPictures, int mostPictures) {
    command.add_option("pictures", options.pictures, "PNG, JPEG, PGM or PPM files")
        ->required()
        ->expected(fewestPictures, mostPictures)
        ->type_name("PICTURE");
    command
        .add_option("--box", options.boxes,
                    "The face inside the picture in pixels, or 'all' for the whole picture "
                    "(default). Give one box for all pictures or one for each, in order")
        ->allow_extra_args(false)
        ->check(CheckBox, "")
        ->type_name("x,y,w,h");
    command
        .add_option("--save-crop", options.cropPath,
                    "Write the 96 x 96 face crop that the recognition network saw. For several "
                    "pictures the names are numbered (FILE-1.png, FILE-2.png), and files with "
                    "such a name that exist already are not replaced")
        ->type_name("FILE.png");
    auto* const detect = command.add_flag(
        "--detect", options.detect, "Find the largest face in each picture, a whole photograph");
    detect->excludes("--box");
    if (mostPictures > 1) {
        command
            .add_flag("--detect-all", options.detectAll,
                      "Find all faces in each picture; they are named picture#1, picture#2, from "
                      "the largest to the smallest")
            ->excludes("--box")
            ->excludes("--detect")
            ->excludes("--save-crop");
    }
    command.add_flag("--json", options.json, "Print one line of JSON");
}

void AddCalibrationOption(CLI::App& command, std::string& path) {
    command
        .add_option("--calibration", path,
                    "Give scores as this file of kova-fr calibrate has them, too, and how many "
                    "pairs of strangers are as alike")
        ->type_name("FILE");
}

std::optional<Calibration> CalibrationIfNamed(const std::string& path) {
    return path.empty() ? std::nullopt : std::optional(LoadCalibration(path, ModelsDigest()));
}

std::vector<OutputFile> CropFiles(const FaceOptions& options) {
    std::vector<OutputFile> files;
    if (options.cropPath.empty()) {
        return files;
    }
    const size_t count = options.pictures.size();
    for (size_t i = 1; i <= count; ++i) {
        OutputFile file;
        file.path = count == 1 ? options.cropPath : NumberedPath(options.cropPath, i);
        file.mayReplace = count == 1;
        files.push_back(file);
    }
    return files;
}

void FillCropFiles(const std::vector<Face>& faces, std::vector<OutputFile>& files) {
    for (size_t i = 0; i < files.size(); ++i) {
        files[i].bytes = EncodePng(faces[i].crop, kCropSize, kCropSize, 1);
    }
}

std::vector<Face> RecogniseAll(const Recogniser& recogniser, const FaceOptions& options) {
    CheckBoxCount(options);
    std::vector<Face> faces;
    for (size_t i = 0; i < options.pictures.size(); ++i) {
        const std::string& path = options.pictures[i];
        if (!options.detectAll) {
            const std::optional<Box> box = BoxOf(options, i);
            faces.push_back(options.cropPath.empty() ? recogniser.Recognise(path, box)
                                                     : recogniser.Inspect(path, box).face);
            continue;
        }
        size_t number = 0;
        for (const Box& box : DetectFaces(path)) {
            faces.push_back(recogniser.Recognise(path, box));
            faces.back().path += "#" + std::to_string(++number);
        }
    }
    return faces;
}

Inspection InspectOne(const Recogniser& recogniser, const FaceOptions& options) {
    CheckBoxCount(options);
    return recogniser.Inspect(options.pictures.front(), BoxOf(options, 0));
}

nlohmann::ordered_json PictureJson(const Face& face) {
    return {{"path", face.path},
            {"width", face.pictureWidth},
            {"height", face.pictureHeight},
            {"box",
             {{"x", face.box.x},
              {"y", face.box.y},
              {"width", face.box.width},
              {"height", face.box.height}}}};
}

} // namespace kova_cli
