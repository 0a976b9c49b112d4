// SPDX-License-Identifier: MIT
#include <map>
#include <memory>

#include "commands/commands.h"
#include "commands/face_options.h"
#include "files/failure.h"
#include "gallery/gallery.h"
#include "terminal/json_line.h"
#include "terminal/label.h"

namespace kova_cli {
namespace {

struct GalleryOptions {
    std::string path;
    std::string remove; // empty: nobody
    bool json = false;
};

constexpr const char* kNotes = R"(Examples:
  kova-fr gallery people.gallery
  kova-fr gallery --remove ada people.gallery)";

void Remove(const GalleryOptions& options, const Sha256& models) {
    const GalleryLock lock(options.path);
    if (RemoveFromGallery(lock, models, options.remove) == 0) {
        throw Failure(options.path + ": there is no " + options.remove +
                      "; see kova-fr gallery for the names");
    }
}

std::map<std::string, size_t> FeaturesOfNames(const GalleryFile& gallery) {
    std::map<std::string, size_t> counts;
    gallery.Read([&counts](const GalleryBlock& block) {
        for (const std::string_view name : block.names) {
            ++counts[std::string(name)];
        }
    });
    return counts;
}

std::string Text(const std::map<std::string, size_t>& counts) {
    size_t features = 0;
    std::string text;
    for (const auto& [name, count] : counts) {
        text += PadLeft(std::to_string(count), 6) + "  " + OneLine(name) + "\n";
        features += count;
    }
    return text + std::to_string(counts.size()) + (counts.size() == 1 ? " name, " : " names, ") +
           std::to_string(features) + (features == 1 ? " feature\n" : " features\n");
}

std::string Json(const std::map<std::string, size_t>& counts) {
    nlohmann::ordered_json json;
    json["names"] = nlohmann::ordered_json::array();
    for (const auto& [name, count] : counts) {
        json["names"].push_back({{"name", name}, {"features", count}});
    }
    return JsonLine(json);
}

void RunGallery(const GalleryOptions& options) {
    const Recogniser opened; // opens the models, whose digest the gallery carries
    const Sha256 models = ModelsDigest();
    if (!options.remove.empty()) {
        Remove(options, models);
    }
    const std::map<std::string, size_t> counts = FeaturesOfNames(GalleryFile(options.path, models));
    WriteStandardOutput(options.json ? Json(counts) : Text(counts));
}

} // namespace

void AddGalleryCommand(CLI::App& program) {
    CLI::App& command =
        *program.add_subcommand("gallery", "List the names in a gallery, or remove one");
    const auto options = std::make_shared<GalleryOptions>();
    command.add_option("gallery", options->path, "Gallery file")->required()->type_name("GALLERY");
    command.add_option("--remove", options->remove, "Remove all features of this name")
        ->type_name("NAME");
    command.add_flag("--json", options->json, "Print one JSON object");
    command.footer(kNotes);
    command.callback([options] { RunGallery(*options); });
}

} // namespace kova_cli
