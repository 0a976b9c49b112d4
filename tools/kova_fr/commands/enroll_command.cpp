// SPDX-License-Identifier: MIT
#include <cstdio>
#include <filesystem>
#include <memory>

#include "commands/commands.h"
#include "commands/face_options.h"
#include "files/failure.h"
#include "gallery/gallery.h"
#include "terminal/json_line.h"
#include "terminal/label.h"

namespace kova_cli {
namespace {

struct EnrollOptions {
    std::string galleryPath;
    std::string name;
    FaceOptions faces;
};

constexpr const char* kNotes =
    R"(Adds the faces to the gallery under the name; a gallery that is not there yet is
made. Several pictures of a person, in different light and from different sides,
help. Of each picture the largest face that is good enough is taken; where none is,
the picture is left out. Where a picture cannot be read or shows no face nothing
is taken. A new gallery can be read by its owner alone.

Examples:
  kova-fr enroll people.gallery ada ada1.jpg ada2.jpg
  kova-fr enroll --crop people.gallery joe face.png
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

void RunEnroll(const EnrollOptions& options) {
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
        ->required()
        ->check(WrongWithName, "")
        ->type_name("NAME");
    options->faces.poor = Poor::kLeftOut;
    AddFaceOptions(command, options->faces, 1);
    command.footer(kNotes);
    command.callback([options] { RunEnroll(*options); });
}

} // namespace kova_cli
