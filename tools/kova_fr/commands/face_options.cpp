// SPDX-License-Identifier: MIT
#include "commands/face_options.h"

#include <algorithm>
#include <charconv>
#include <filesystem>

#include "calibration/calibration_file.h"
#include "commands/found_faces.h"
#include "files/failure.h"
#include "terminal/progress.h"
#include "terminal/warning.h"

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

void CheckStandardInput(const FaceOptions& options) {
    if (std::ranges::count(options.pictures, "-") > 1) {
        throw CLI::ValidationError("pictures", "standard input (-) has one picture only");
    }
}

void CheckBoxCount(const FaceOptions& options) {
    const size_t count = options.boxes.size();
    if (count > 1 && count != options.pictures.size()) {
        throw CLI::ValidationError("--box", "given " + std::to_string(count) + " times for " +
                                                std::to_string(options.pictures.size()) +
                                                " pictures; give one for all or one for each");
    }
}

std::string NumberedPath(const std::string& path, size_t number) {
    const std::filesystem::path whole(path);
    const std::string name =
        whole.stem().string() + "-" + std::to_string(number) + whole.extension().string();
    return (whole.parent_path() / name).string();
}

// One box serves all pictures; more of them belong to the pictures in order.
std::optional<Box> BoxOf(const FaceOptions& options, size_t rank) {
    return options.boxes.empty() ? std::nullopt
                                 : ParseBox(options.boxes[options.boxes.size() == 1 ? 0 : rank]);
}

FaceReading ReadingOf(const FaceOptions& options, size_t rank) {
    return {IsCrop(options), BoxOf(options, rank), options.withCrops || !options.cropPath.empty()};
}

std::string Count(size_t count, const std::string& what) {
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

// Those of a picture's faces that the command is to have, under the names by which it calls them.
std::vector<Face> Wanted(std::vector<Face> faces, const FaceOptions& options) {
    if (faces.size() == 1) {
        return faces;
    }
    if (!options.takesAll) {
        Warn(faces.front().path + ": has " + Count(faces.size(), "face") +
             "; the largest one that is good enough is taken");
        return {std::move(faces[LargestGood(faces)])};
    }
    size_t number = 0;
    for (Face& face : faces) {
        face.path += "#" + std::to_string(++number);
    }
    return faces;
}

void Judge(Face face, const FaceOptions& options, FacesRead& read) {
    if (!IsGood(face) && !options.anyQuality && options.poor != Poor::kTaken) {
        const std::string why = face.path + ": " + QualityWords(*face.found);
        if (options.poor == Poor::kLeftOut) {
            Warn("left out: " + why);
            read.leftOut.push_back(why);
            return;
        }
        Warn(why + "; what is said of it may be wrong");
    }
    read.faces.push_back(std::move(face));
}

} // namespace

bool IsCrop(const FaceOptions& options) { return options.crop || !options.boxes.empty(); }

CLI::Option* AddCropOption(CLI::App& command, bool& crop) {
    return command.add_flag("--crop", crop,
                            "Each picture is a crop that one face fills: look for none");
}

void AddAnyQualityOption(CLI::App& command, bool& anyQuality) {
    command.add_flag("--any-quality", anyQuality,
                     "Take faces, too, that are too small, blurred, dark, overexposed, turned, "
                     "tilted, covered, cut off or grimacing to be compared well");
}

void AddFaceOptions(CLI::App& command, FaceOptions& options, int fewestPictures, int mostPictures) {
    command.add_option("pictures", options.pictures, "Picture files; - is standard input")
        ->required()
        ->expected(fewestPictures, mostPictures)
        ->type_name("PICTURE");
    CLI::Option* const crop = AddCropOption(command, options.crop);
    command
        .add_option("--box", options.boxes,
                    "The face is in this box of the picture, in pixels, or fills it all ('all'): "
                    "look for none. Give one box for all pictures or one for each, in order")
        ->allow_extra_args(false)
        ->check(CheckBox, "")
        ->excludes(crop)
        ->type_name("x,y,w,h");
    if (mostPictures > 1 && options.takesAll) {
        command.add_flag_callback(
            "--largest", [&options] { options.takesAll = false; },
            "Of several faces in a picture take the largest that is good enough");
    } else if (mostPictures > 1) {
        command.add_flag("--all-faces", options.takesAll,
                         "Take all faces of each picture; they are named picture#1, picture#2, "
                         "the best first");
    }
    if (options.poor != Poor::kTaken) {
        AddAnyQualityOption(command, options.anyQuality);
    }
    command
        .add_option("--save-crop", options.cropPath,
                    "Write the 96 x 96 face crop that the recognition network saw. For several "
                    "faces the names are numbered (FILE-1.png, FILE-2.png), and files with "
                    "such a name that exist already are not replaced")
        ->type_name("FILE.png");
    command.add_flag("--json", options.json, "Print one line of JSON");
}

void AddCalibrationOption(CLI::App& command, std::string& path) {
    command
        .add_option("--calibration", path,
                    "Give scores as this file of kova-fr calibrate has them, too, and how many "
                    "pairs of strangers are as alike")
        ->type_name("FILE");
}

std::optional<Calibration> CalibrationIfNamed(const std::string& path, const FaceOptions& options) {
    if (path.empty()) {
        return std::nullopt;
    }
    Calibration calibration = LoadCalibration(path, ModelsDigest());
    const OfFaces asked = IsCrop(options) ? OfFaces::kCrops : OfFaces::kFound;
    if (calibration.of != OfFaces::kUnsaid && calibration.of != asked) {
        Warn(path + ": was made of " +
             (IsCrop(options) ? "faces found in pictures, and these are crops"
                              : "crops, and these faces are found in pictures") +
             "; its scores mean something else here");
    }
    return calibration;
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

void FillCropFiles(const std::vector<Face>& faces, const FaceOptions& options,
                   std::vector<OutputFile>& files) {
    if (files.empty()) {
        return;
    }
    files.clear();
    for (size_t i = 0; i < faces.size(); ++i) {
        const bool isOne = options.pictures.size() == 1 && faces.size() == 1;
        files.push_back({isOne ? options.cropPath : NumberedPath(options.cropPath, i + 1), isOne,
                         EncodePng(faces[i].crop, kCropSize, kCropSize, 1)});
    }
}

PictureRead ReadPicture(const Recogniser& recogniser, Finder& finder, const FaceOptions& options,
                        size_t rank) {
    const std::string& path = options.pictures[rank];
    PictureRead read{LoadPicture(path), {}};
    read.faces = Naming(
        path, [&] { return FacesOf(recogniser, finder, read.picture, ReadingOf(options, rank)); });
    if (read.faces.empty()) {
        throw Failure(path + ": " + kNoFace);
    }
    for (Face& face : read.faces) {
        face.path = path;
    }
    return read;
}

Inspection InspectCrop(const Recogniser& recogniser, const FaceOptions& options) {
    CheckBoxCount(options);
    const std::string& path = options.pictures.front();
    const GreyPicture picture = LoadPicture(path);
    Inspection seen = Naming(path, [&] { return recogniser.Inspect(picture, BoxOf(options, 0)); });
    seen.face.path = path;
    return seen;
}

FacesRead ReadFaces(const Recogniser& recogniser, const FaceOptions& options) {
    CheckBoxCount(options);
    CheckStandardInput(options);
    Finder finder;
    FacesRead read;
    Progress progress("Reading");
    for (size_t i = 0; i < options.pictures.size(); ++i) {
        progress.Show(i, options.pictures.size());
        PictureRead picture = ReadPicture(recogniser, finder, options, i);
        for (Face& face : Wanted(std::move(picture.faces), options)) {
            Judge(std::move(face), options, read);
        }
        read.last = std::move(picture.picture);
    }
    progress.Close(options.pictures.size(), "pictures");
    return read;
}

nlohmann::ordered_json PictureJson(const Face& face) {
    nlohmann::ordered_json json = {
        {"path", face.path}, {"width", face.pictureWidth}, {"height", face.pictureHeight}};
    if (face.found) {
        json.update(FaceJson(*face.found));
    } else {
        json["box"] = {{"x", face.box.x},
                       {"y", face.box.y},
                       {"width", face.box.width},
                       {"height", face.box.height}};
    }
    return json;
}

} // namespace kova_cli
