// SPDX-License-Identifier: MIT
#include "faulted_commands.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>

#include "photograph.h"
#include "picture_files.h"

namespace kova_fr_test {
namespace {

namespace fs = std::filesystem;

constexpr char kEarlier[] = "an earlier file";

struct Command {
    const char* name;
    std::vector<const char*> words;
};

const std::vector<Command>& Commands() {
    static const std::vector<Command> kCommands = {
        {"EnrollIntoAGallery", {"enroll", "--crop", "@g", "third", "@p.png"}},
        {"EnrollIntoANewGallery", {"enroll", "--crop", "@new", "ada", "@p.png"}},
        {"EnrollAFolder", {"enroll", "--crop", "--folder", "@people", "@g"}},
        {"GalleryRemove", {"gallery", "--remove", "first", "@g"}},
        {"GalleryExportText", {"gallery", "--export", "@out.csv", "@g"}},
        {"GalleryExportArray", {"gallery", "--export", "@out.npy", "@g"}},
        {"Calibrate", {"calibrate", "--crop", "--rounds", "10", "--out", "@calibration", "@many"}},
        {"Extract",
         {"extract", "--crop", "--output", "@features", "--save-crop", "@crop.png", "@p.png"}},
        {"IdentifyAnnotate", {"identify", "--annotate", "@named.png", "@g", "@photo.png"}},
        {"FindOutput", {"find", "--output", "@found.png", "@photo.png"}},
        {"Eval",
         {"eval", "--crop", "--rounds", "10", "--out", "@report", "--scores", "@scores.csv",
          "@people"}},
    };
    return kCommands;
}

bool IsStage(const std::string& path) {
    return fs::path(path).filename().string().starts_with(".kova-fr-");
}

// The pictures and galleries that the commands read.
void MakeInputs(const std::string& folder, bool needsMany) {
    const auto write = [](const std::string& path, const Grey& picture) {
        WriteFile(path, GreyPng(picture));
    };
    write(folder + "/p.png", Pattern(64, 64, 1));
    write(folder + "/q.png", Pattern(64, 64, 2));
    for (const char* name : {"first", "second"}) {
        EXPECT_EQ(
            KovaFr({"enroll", "--crop", folder + "/g", name, folder + "/p.png", folder + "/q.png"})
                .status,
            0);
    }
    write(folder + "/photo.png", Crop(Photograph({{"ada-1.png", {40, 40, 1}}}), 0, 0, 340, 340));
    for (const std::string person : {"ada", "joe"}) {
        fs::create_directories(folder + "/people/" + person);
        for (uint32_t i = 1; i <= 2; ++i) {
            write(folder + "/people/" + person + "/" + std::to_string(i) + ".png",
                  Pattern(48, 48, i + (person == "joe" ? 10 : 20)));
        }
    }
    for (uint32_t i = 0; needsMany && i < 51; ++i) {
        fs::create_directories(folder + "/many");
        write(folder + "/many/" + std::to_string(i) + ".png", Pattern(32, 32, 100 + i));
    }
}

} // namespace

std::vector<std::string> FaultedCommandNames() {
    std::vector<std::string> names;
    for (const Command& command : Commands()) {
        names.emplace_back(command.name);
    }
    return names;
}

std::vector<std::string> WordsOf(const std::string& name) {
    for (const Command& command : Commands()) {
        if (name == command.name) {
            return {command.words.begin(), command.words.end()};
        }
    }
    return {};
}

std::vector<size_t> Positions(size_t all) {
    constexpr size_t kSome = 8;
    const char* const wanted = std::getenv("KOVA_FR_FAULTS");
    const size_t count = std::min(all, wanted == nullptr ? kSome : std::stoul(wanted));
    std::vector<size_t> positions;
    for (size_t i = 0; i < count; ++i) {
        positions.push_back(1 + (count < 2 ? 0 : i * (all - 1) / (count - 1)));
    }
    return positions;
}

FaultedCommand::FaultedCommand(const std::string& name, const std::vector<std::string>& words)
    : leavesOut_(name == "EnrollAFolder" || name == "Calibrate" || name == "Eval") {
    MakeInputs(folder_.path(), name == "Calibrate");
    for (const std::string& word : words) {
        arguments_.push_back(word[0] == '@' ? folder_ / word.substr(1) : word);
        // Each file that is written lies there already, but for galleries and numbered crops.
        if (word == "@out.csv" || word == "@out.npy" || word == "@calibration" ||
            word == "@features" || word == "@crop.png" || word == "@named.png" ||
            word == "@found.png" || word == "@scores.csv") {
            WriteFile(arguments_.back(), kEarlier);
        }
    }
    old_ = Files();
    oldListing_ = Listing("g");
    whole_ = KovaFr(arguments_);
    EXPECT_EQ(whole_.status, 0) << whole_.err;
    new_ = Files();
    newListing_ = Listing("g");
    EXPECT_NE(old_, new_) << "nothing was written";
}

std::map<std::string, std::string> FaultedCommand::Files() const {
    std::map<std::string, std::string> files;
    for (const auto& entry : fs::recursive_directory_iterator(folder_.path())) {
        if (entry.is_regular_file()) {
            files[entry.path().string()] = ReadFile(entry.path().string());
        }
    }
    return files;
}

std::string FaultedCommand::Listing(const std::string& gallery) const {
    const Outcome run = KovaFr({"gallery", "--json", folder_ / gallery});
    return run.status == 0 ? run.out : "damaged: " + run.err;
}

void FaultedCommand::PutBack() {
    for (const auto& [path, content] : Files()) {
        if (!old_.contains(path)) {
            fs::remove(path);
        }
    }
    for (const auto& [path, content] : old_) {
        if (ReadFile(path) != content) {
            WriteFile(path, content);
        }
    }
    for (const auto& [path, content] : new_) {
        const fs::path parent = fs::path(path).parent_path();
        if (!old_.contains(path) && parent != folder_.path()) {
            fs::remove_all(parent);
        }
    }
}

std::string FaultedCommand::Complaint(const Outcome& run, bool mayLeaveStage) {
    const std::string gallery = folder_ / "g";
    const auto files = Files();
    if (leavesOut_ && run.status == 0 && run.out + run.err != whole_.out + whole_.err) {
        return Listing("g").starts_with("damaged") ? "the gallery is damaged" : "";
    }
    for (const auto& [path, content] : files) {
        const bool isOld = old_.contains(path) && old_[path] == content;
        const bool isNew = new_.contains(path) && new_[path] == content;
        // Faces that cannot be read once more are grey squares on the sheet of the worst pairs.
        const bool isSheet = path.ends_with("/worst.png");
        if (isOld || isNew || isSheet || (IsStage(path) && mayLeaveStage)) {
            continue;
        }
        if (path != gallery) {
            return path + " is neither the old nor the new file (" +
                   std::to_string(content.size()) + " bytes)";
        }
    }
    for (const auto& [path, content] : old_) {
        if (!files.contains(path)) {
            return path + " is gone";
        }
    }
    // What was appended to a gallery and is not in its count yet is not in it.
    const std::string listing = Listing("g");
    if (listing != oldListing_ && listing != newListing_) {
        return "the gallery is neither the old nor the new one: " + listing;
    }
    if (run.status == 0) {
        for (const auto& [path, content] : new_) {
            if (path != gallery && !path.ends_with("/worst.png") &&
                (!files.contains(path) || files.at(path) != content)) {
                return path + " is not the new file, though the run succeeded";
            }
        }
        return run.out == whole_.out && listing == newListing_
                   ? ""
                   : "succeeded with another result: " + run.out + run.err;
    }
    // Warnings of what could not be read may come before the line.
    const std::string err = run.err;
    const size_t last = err.size() < 2 ? 0 : err.rfind('\n', err.size() - 2) + 1;
    if (run.status != 1 || !err.ends_with('\n') || err.compare(last, 9, "kova-fr: ") != 0) {
        return "status " + std::to_string(run.status) + ": " + err;
    }
    // What comes after the result may fail, too.
    return run.out.empty() || run.out == whole_.out ? "" : "failed, and printed " + run.out;
}

std::string FaultedCommand::ComplaintAboutNextRun() {
    // A gallery that took the faces already takes them once more.
    const bool mayBeNew = arguments_[0] == "enroll" || arguments_[0] == "gallery";
    if (mayBeNew && Files() != old_) {
        PutBack();
    }
    const Outcome run = KovaFr(arguments_);
    if (run.status != 0) {
        return "the next run failed: " + run.err;
    }
    return Complaint(run, false);
}

} // namespace kova_fr_test
