// SPDX-License-Identifier: MIT
// Renders grey pictures of people who do not exist, for training and evaluating the networks.

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <string>
#include <tuple>

#include "output/cutouts.h"
#include "output/portraits.h"
#include "output/shards.h"
#include "output/sheet.h"

namespace {

using facegen::Job;

struct Options {
    std::string assets, shapes, lights;
    float scannedShare = 0.5f, hairless = 0.12f, drawnBrows = 0.5f;
    Job job;
    bool frames = false, bare = false, broad = false, calm = false, lined = false;
};

CLI::App* AddCommand(CLI::App& app, Options& options, const char* name, const char* what) {
    CLI::App* command = app.add_subcommand(name, what);
    command->add_option("--assets", options.assets, "Folder with the head assets")
        ->required()
        ->check(CLI::ExistingDirectory);
    CLI::Option* shapes =
        command->add_option("--shapes", options.shapes, "Folder with a second space of head shapes")
            ->check(CLI::ExistingDirectory);
    command
        ->add_option("--scanned-share", options.scannedShare,
                     "Share of the people whom that space shapes")
        ->capture_default_str()
        ->check(CLI::Range(0.0f, 1.0f))
        ->needs(shapes);
    command
        ->add_option("--lights", options.lights,
                     "Folder with panoramas (*.hdr): light and background of many pictures")
        ->check(CLI::ExistingDirectory);
    CLI::Option* broad = command->add_flag(
        "--broad", options.broad,
        "Poses, expressions, covers, skins and brows as broad as before real cameras");
    for (const auto& [flag, share, says] :
         {std::tuple{"--hairless", &options.hairless, "Share of people without hair"},
          std::tuple{"--drawn-brows", &options.drawnBrows,
                     "Share of brows that are drawn strokes"}}) {
        command->add_option(flag, *share, says)
            ->capture_default_str()
            ->check(CLI::Range(0.0f, 1.0f))
            ->needs(broad);
    }
    command->add_flag("--calm", options.calm,
                      "Upright, towards the camera, in light that serves, with little on");
    command->add_flag("--lined", options.lined,
                      "Lines and shadows about eyes and mouth that change from picture to picture");
    command->add_option("--out", options.job.out, "Where the result goes")->required();
    command->add_option("--people", options.job.people, "How many people")
        ->required()
        ->check(CLI::PositiveNumber);
    command->add_option("--pictures", options.job.pictures, "How many pictures of each")
        ->required()
        ->check(CLI::PositiveNumber);
    command->add_option("--seed", options.job.seed, "The same seed gives the same pictures")
        ->capture_default_str();
    command->add_option("--first-person", options.job.firstPerson, "Number of the first person")
        ->capture_default_str();
    return command;
}

} // namespace

int main(int argc, char** argv) {
    CLI::App app{"Renders grey pictures of people who do not exist."};
    app.require_subcommand(1);
    Options options;
    CLI::App* crops =
        AddCommand(app, options, "crops", "shards of 128 x 128 pictures around faces");
    CLI::App* frames =
        AddCommand(app, options, "frames", "shards of 256 x 256 pictures with a face anywhere");
    CLI::App* cutouts =
        AddCommand(app, options, "cutouts", "shards of people alone, with covers and landmarks");
    CLI::App* sheet = AddCommand(app, options, "sheet", "a contact sheet, one row a person");
    AddCommand(app, options, "people", "PNG files, one folder a person, and boxes.json");
    CLI::App* portraits = AddCommand(app, options, "portraits",
                                     "PNG files in friendly light, to show, one folder a person");
    CLI::App* group = AddCommand(app, options, "group", "one PNG with all people in two rows");
    cutouts->add_option("--shard-size", options.job.shardSize, "Cutouts a shard")
        ->check(CLI::PositiveNumber);
    for (CLI::App* command : {crops, frames}) {
        command->add_option("--threads", options.job.threads, "Threads to render with")
            ->capture_default_str()
            ->check(CLI::Range(1, 256));
        command->add_option("--shard-size", options.job.shardSize, "Pictures a shard")
            ->capture_default_str()
            ->check(CLI::PositiveNumber);
    }
    for (CLI::App* command : {crops, frames}) {
        command
            ->add_option("--looks", options.job.looks,
                         "Looks of a person: hair and beard, each in as many of the pictures")
            ->capture_default_str()
            ->check(CLI::PositiveNumber);
        command->add_flag("--bare", options.bare, "Bare heads in five even views: shape alone");
    }
    frames->add_option("--empty", options.job.emptyShare, "Share of pictures without a face")
        ->check(CLI::Range(0.0f, 1.0f));
    sheet->add_flag("--frames", options.frames, "Frames with their boxes instead of crops");
    sheet->add_flag("--clean", options.job.clean, "Without blur, noise and JPEG");
    sheet->add_flag("--plain", options.job.plain, "Clean, facing the camera, in even light");
    CLI11_PARSE(app, argc, argv);

    try {
        facegen::Studio studio = facegen::OpenStudio(options.assets);
        if (!options.shapes.empty()) {
            facegen::AddShapes(studio, options.shapes, options.scannedShare);
        }
        if (!options.lights.empty()) {
            studio.environments = facegen::LoadEnvironments(options.lights);
        }
        studio.broad = options.broad;
        studio.calm = options.calm;
        studio.lined = options.lined;
        studio.hairless = options.hairless;
        studio.drawnBrows = options.drawnBrows;
        studio.bare = options.bare;
        if (*crops || *frames) {
            options.job.view = *frames ? facegen::View::kFrame : facegen::View::kCrop;
            facegen::RenderShards(studio, options.job);
        } else if (*cutouts) {
            facegen::RenderCutouts(studio, options.job);
        } else if (*sheet) {
            options.job.view = options.frames ? facegen::View::kFrame : facegen::View::kCrop;
            facegen::RenderSheet(studio, options.job);
        } else if (*portraits) {
            facegen::RenderPortraits(studio, options.job);
        } else if (*group) {
            facegen::RenderGroup(studio, options.job);
        } else {
            facegen::RenderPeople(studio, options.job);
        }
    } catch (const std::exception& e) {
        std::fprintf(stderr, "facegen: %s\n", e.what());
        return 1;
    }
    return 0;
}
