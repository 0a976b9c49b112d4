// SPDX-License-Identifier: MIT
#include <cstdio>
#include <filesystem>
#include <memory>
#include <set>

#include "commands/commands.h"
#include "commands/face_options.h"
#include "evaluation/eval_features.h"
#include "evaluation/eval_input.h"
#include "files/failure.h"
#include "gallery/gallery.h"
#include "terminal/json_line.h"
#include "terminal/label.h"

namespace kova_cli {
namespace {

struct EnrollOptions {
    std::string galleryPath;
    std::string name;
    std::string folder; // of many people, in place of the name and pictures
    FaceOptions faces;
};

constexpr const char* kNotes =
    R"(Adds the faces to the gallery under the name; a gallery that is not there yet is
made. Several pictures of a person, in different light and from different sides,
help. Of each picture the largest face that is good enough is taken; where none is,
the picture is left out. Where a picture cannot be read or shows no face nothing
is taken. A new gallery can be read by its owner alone.

--folder enrolls everybody in one write: a sub-folder a person, or pictures named
after people, by what stands before the last - or _ (ada-1.png, ada-2.png). Pictures
that cannot be used are left out, each with a line that says why.

Examples:
  kova-fr enroll people.gallery ada ada1.jpg ada2.jpg
  kova-fr enroll --crop people.gallery joe face.png
  kova-fr enroll --folder people/ people.gallery
  kova-fr gallery people.gallery)";

void CheckGalleryPlace(const EnrollOptions& options) {
    CheckOutputs({{options.galleryPath, true, {}}}, options.faces.pictures);
    if (options.galleryPath == options.faces.cropPath) {
        throw CLI::ValidationError("--save-crop", "names the same file as the gallery");
    }
}

std::string LeftOutWords(size_t count) {
    return count == 0 ? "" : ", " + std::to_string(count) + " left out for want of quality";
}

// Everybody whose pictures lie in a folder.
void EnrollFolder(const EnrollOptions& options) {
    const EvalInput input = FindNamedPeople(options.folder);
    for (const std::string& name : input.names) {
        if (const std::string wrong = WrongWithName(name); !wrong.empty()) {
            throw Failure(options.folder + ": " + name + ": " + wrong);
        }
    }
    CheckOutputs({{options.galleryPath, true, {}}}, input.pictures);
    const Recogniser recogniser;
    const Sha256 models = ModelsDigest();
    CheckGalleryCanGrow(options.galleryPath, models);
    std::vector<std::string> leftOut;
    const std::vector<std::optional<Feature>> read =
        ReadFeatures(recogniser, input, {options.faces.crop, options.faces.anyQuality}, leftOut);
    std::vector<Feature> features;
    std::vector<std::string> names;
    for (size_t i = 0; i < read.size(); ++i) {
        if (read[i]) {
            features.push_back(*read[i]);
            names.push_back(input.names[input.person[i]]);
        }
    }
    if (features.empty()) {
        throw Failure(options.folder + ": no picture can be used; see the lines above");
    }
    const size_t people = std::set<std::string>(names.begin(), names.end()).size();
    const uint64_t entries =
        AddToGallery(GalleryLock(options.galleryPath), models, features, names);
    if (options.faces.json) {
        WriteStandardOutput(JsonLine({{"people", people},
                                      {"people_left_out", input.people - people},
                                      {"added", features.size()},
                                      {"left_out", leftOut},
                                      {"features", entries}}));
        return;
    }
    const auto count = [](size_t number, const char* one, const char* many) {
        return std::to_string(number) + " " + (number == 1 ? one : many);
    };
    std::string text = count(people, "person", "people") + ", " +
                       count(features.size(), "face", "faces") + " added";
    text +=
        leftOut.empty() ? "" : ", " + count(leftOut.size(), "picture", "pictures") + " left out";
    text += people == input.people
                ? ""
                : ", nothing of " + count(input.people - people, "person", "people");
    WriteStandardOutput(text + "; the gallery has " + std::to_string(entries) + "\n");
}

void RunEnroll(const EnrollOptions& options) {
    if (!options.folder.empty()) {
        EnrollFolder(options);
        return;
    }
    if (options.name.empty() || options.faces.pictures.empty()) {
        throw CLI::RequiredError(options.name.empty() ? "name" : "pictures");
    }
    std::vector<OutputFile> files = CropFiles(options.faces);
    CheckOutputs(files, options.faces.pictures);
    CheckGalleryPlace(options);
    const Recogniser recogniser;
    const Sha256 models = ModelsDigest();
    CheckGalleryCanGrow(options.galleryPath, models);
    const auto [faces, leftOut, last] = ReadFaces(recogniser, options.faces);
    if (faces.empty()) {
        throw Failure(
            "no picture is good enough to be enrolled; take better ones, or these by "
            "--any-quality");
    }
    std::vector<Feature> features;
    features.reserve(faces.size());
    for (const Face& face : faces) {
        features.push_back(face.feature);
    }
    FillCropFiles(faces, options.faces, files);
    WriteFiles(files);
    const uint64_t entries = AddToGallery(GalleryLock(options.galleryPath), models, features,
                                          std::vector(features.size(), options.name));
    if (options.faces.json) {
        WriteStandardOutput(JsonLine({{"name", options.name},
                                      {"added", faces.size()},
                                      {"left_out", leftOut},
                                      {"features", entries}}));
        return;
    }
    WriteStandardOutput(options.name + ": " + std::to_string(faces.size()) +
                        (faces.size() == 1 ? " face" : " faces") + " added" +
                        LeftOutWords(leftOut.size()) + "; the gallery has " +
                        std::to_string(entries) + "\n");
}

} // namespace

void AddEnrollCommand(CLI::App& program) {
    CLI::App& command = *program.add_subcommand("enroll", "Add faces to a gallery under a name");
    const auto options = std::make_shared<EnrollOptions>();
    command.add_option("gallery", options->galleryPath, "Gallery file; made if it is not there")
        ->required()
        ->type_name("GALLERY");
    command.add_option("name", options->name, "Whose faces these are")
        ->check(WrongWithName, "")
        ->type_name("NAME");
    options->faces.poor = Poor::kLeftOut;
    AddFaceOptions(command, options->faces, 1);
    command.get_option("pictures")->required(false);
    command
        .add_option("--folder", options->folder,
                    "Enroll everybody in this folder: a sub-folder a person, or pictures named "
                    "after people")
        ->excludes("name")
        ->excludes("pictures")
        ->excludes("--box")
        ->excludes("--all-faces")
        ->excludes("--save-crop")
        ->type_name("DIR");
    command.footer(kNotes);
    command.callback([options] { RunEnroll(*options); });
}

} // namespace kova_cli
