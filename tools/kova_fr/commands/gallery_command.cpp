// SPDX-License-Identifier: MIT
#include <filesystem>
#include <map>
#include <memory>

#include "commands/commands.h"
#include "commands/face_options.h"
#include "files/failure.h"
#include "gallery/exporting.h"
#include "gallery/gallery.h"
#include "gallery/importing.h"
#include "terminal/json_line.h"
#include "terminal/label.h"

namespace kova_cli {
namespace {

struct GalleryOptions {
    std::string path;
    std::string remove;     // empty: nobody
    std::string exportPath; // empty: nothing is exported
    std::string importPath; // empty: nothing is imported
    std::string models;     // that made what is imported: the first digits of their digest
    bool json = false;
};

constexpr const char* kNotes =
    R"(Lists the names, how many features each has, and the models that made them; kova-fr
info shows those of this program. --remove writes the file anew, so that nothing of
the person stays in it. --export writes features for other programs, by the
ending of the name: FILE.csv has a line an entry, the name and 128 numbers; FILE.npy
is NumPy's array of 32-bit floats, a row an entry, and the rows' names stand in
FILE.names.csv beside it. Features are of unit length, so that their inner product is
the score that identify prints.

--import adds what --export wrote, in one write; a gallery that is not there yet is
made. Such files do not say which models made the features, and features of two
models cannot be compared. So --models says it: the digest that kova-fr gallery
showed where they were exported, or its first 8 digits.

Examples:
  kova-fr gallery people.gallery
  kova-fr gallery --remove ada people.gallery
  kova-fr gallery --export people.npy people.gallery
  kova-fr gallery --import people.npy --models 0123abcd other.gallery)";

using Counts = std::map<std::string, size_t>;

bool EndsIn(const std::string& path, const char* extension) {
    return std::filesystem::path(path).extension() == extension;
}

std::string CheckEnding(const std::string& path) {
    return EndsIn(path, ".npy") || EndsIn(path, ".csv")
               ? ""
               : "'" + path + "' ends neither in .npy nor in .csv";
}

std::string CheckDigits(const std::string& text) {
    constexpr size_t kFewest = 8;
    constexpr size_t kMost = 2 * std::tuple_size_v<Sha256>;
    const bool isHex = text.find_first_not_of("0123456789abcdef") == std::string::npos;
    return isHex && text.size() >= kFewest && text.size() <= kMost
               ? ""
               : "'" + text + "' has not 8 to 64 digits of a digest (0 to 9, a to f)";
}

void Remove(const GalleryOptions& options) {
    const GalleryLock lock(options.path);
    if (RemoveFromGallery(lock, ModelsDigest(), options.remove) == 0) {
        throw Failure(options.path + ": there is no " + options.remove +
                      "; see kova-fr gallery for the names");
    }
}

Counts FeaturesOfNames(const GalleryFile& gallery) {
    Counts counts;
    gallery.Read([&counts](const GalleryBlock& block) {
        for (const std::string_view name : block.names) {
            ++counts[std::string(name)];
        }
    });
    return counts;
}

std::string Text(const GalleryFile& gallery, const Counts& counts) {
    std::string text;
    for (const auto& [name, count] : counts) {
        text += PadLeft(std::to_string(count), 6) + "  " + OneLine(name) + "\n";
    }
    text += std::to_string(counts.size()) + (counts.size() == 1 ? " name, " : " names, ") +
            std::to_string(gallery.count()) + (gallery.count() == 1 ? " feature" : " features");
    return text + "\nmade by " + (gallery.models() == ModelsDigest() ? "" : "other ") +
           "models sha256 " + Hex(gallery.models()) + "\n";
}

std::string Json(const GalleryFile& gallery, const Counts& counts) {
    nlohmann::ordered_json json = {{"models_sha256", Hex(gallery.models())}};
    json["names"] = nlohmann::ordered_json::array();
    for (const auto& [name, count] : counts) {
        json["names"].push_back({{"name", name}, {"features", count}});
    }
    return JsonLine(json);
}

void List(const GalleryFile& gallery, bool json) {
    const Counts counts = FeaturesOfNames(gallery);
    WriteStandardOutput(json ? Json(gallery, counts) : Text(gallery, counts));
}

void Export(const GalleryFile& gallery, const GalleryOptions& options) {
    const std::string& path = options.exportPath;
    CheckOutputs({{path, true, {}}}, {options.path});
    std::vector<std::string> files = {path};
    uint64_t entries = 0;
    if (EndsIn(path, ".csv")) {
        entries = ExportCsv(gallery, path);
    } else {
        files.push_back(NamesPath(path));
        entries = ExportNpy(gallery, path, files.back());
    }
    if (options.json) {
        WriteStandardOutput(JsonLine(
            {{"features", entries}, {"models_sha256", Hex(gallery.models())}, {"files", files}}));
        return;
    }
    std::string text = std::to_string(entries) + (entries == 1 ? " feature: " : " features: ");
    for (const std::string& file : files) {
        text += (file == path ? "" : ", ") + OneLine(file);
    }
    WriteStandardOutput(text + "\nmade by models sha256 " + Hex(gallery.models()) + "\n");
}

void Import(const GalleryOptions& options) {
    const std::string& path = options.importPath;
    const Sha256 models = ModelsDigest();
    if (!Hex(models).starts_with(options.models)) {
        throw Failure(path + ": its features were made by other models (" + options.models +
                      ") than those of this program (" + Hex(models).substr(0, 8) +
                      "); enroll the pictures again");
    }
    CheckGalleryCanGrow(options.path, models);
    const ImportedEntries entries =
        EndsIn(path, ".csv") ? ImportCsv(path) : ImportNpy(path, NamesPath(path));
    const uint64_t all =
        AddToGallery(GalleryLock(options.path), models, entries.features, entries.names);
    const size_t added = entries.features.size();
    WriteStandardOutput(options.json
                            ? JsonLine({{"added", added}, {"features", all}})
                            : std::to_string(added) + (added == 1 ? " feature" : " features") +
                                  " added; the gallery has " + std::to_string(all) + "\n");
}

void RunGallery(const GalleryOptions& options) {
    const Recogniser opened; // opens the models, whose digest the gallery carries
    if (!options.remove.empty()) {
        Remove(options);
    }
    if (!options.importPath.empty()) {
        Import(options);
        return;
    }
    const GalleryFile gallery(options.path);
    if (!options.exportPath.empty()) {
        Export(gallery, options);
    } else {
        List(gallery, options.json);
    }
}

} // namespace

void AddGalleryCommand(CLI::App& program) {
    CLI::App& command = *program.add_subcommand(
        "gallery", "List the names in a gallery, remove one, export or import the features");
    const auto options = std::make_shared<GalleryOptions>();
    command.add_option("gallery", options->path, "Gallery file")->required()->type_name("GALLERY");
    command.add_option("--remove", options->remove, "Remove all features of this name")
        ->type_name("NAME");
    command
        .add_option("--export", options->exportPath,
                    "Write all features to FILE.npy (and the names to FILE.names.csv) or FILE.csv")
        ->check(CheckEnding, "")
        ->type_name("FILE");
    auto* const import = command
                             .add_option("--import", options->importPath,
                                         "Add the features of FILE.npy (and the names of "
                                         "FILE.names.csv) or FILE.csv, as --export writes them")
                             ->check(CheckEnding, "")
                             ->excludes("--remove")
                             ->excludes("--export")
                             ->type_name("FILE");
    auto* const models =
        command
            .add_option("--models", options->models,
                        "The models that made what is imported: the digest, or its first 8 digits")
            ->check(CheckDigits, "")
            ->needs(import)
            ->type_name("SHA256");
    import->needs(models);
    command.add_flag("--json", options->json, "Print one JSON object");
    command.footer(kNotes);
    command.callback([options] { RunGallery(*options); });
}

} // namespace kova_cli
