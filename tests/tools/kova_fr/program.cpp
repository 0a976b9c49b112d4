// SPDX-License-Identifier: MIT
#include "program.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

extern char** environ;

namespace kova_fr_test {
namespace {

struct Pipe {
    int read = -1;
    int write = -1;

    Pipe() {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0) {
            std::abort();
        }
        read = ends[0];
        write = ends[1];
    }
};

// Both at once, so that neither pipe fills up while the other is read.
void ReadBoth(const Pipe& out, const Pipe& err, Outcome& run) {
    pollfd waits[2] = {{out.read, POLLIN, 0}, {err.read, POLLIN, 0}};
    std::string* texts[2] = {&run.out, &run.err};
    int open = 2;
    while (open > 0 && poll(waits, 2, -1) > 0) {
        for (int i = 0; i < 2; ++i) {
            char chunk[4096];
            if (waits[i].revents == 0) {
                continue;
            }
            const ssize_t count = read(waits[i].fd, chunk, sizeof chunk);
            if (count > 0) {
                texts[i]->append(chunk, static_cast<size_t>(count));
            } else {
                close(waits[i].fd);
                waits[i].fd = -1;
                --open;
            }
        }
    }
}

Outcome RunProgram(const std::vector<std::string>& command) {
    std::vector<char*> arguments;
    for (const std::string& word : command) {
        arguments.push_back(const_cast<char*>(word.c_str()));
    }
    arguments.push_back(nullptr);
    const Pipe out;
    const Pipe err;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out.write, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, err.write, STDERR_FILENO);
    pid_t child = 0;
    const int error =
        posix_spawn(&child, arguments[0], &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(out.write);
    close(err.write);
    EXPECT_EQ(error, 0) << command[0];
    Outcome run{};
    ReadBoth(out, err, run);
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    run.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return run;
}

} // namespace

const char* KovaFrProgram() { return KOVA_FR_PROGRAM; }

Outcome KovaFr(const std::vector<std::string>& arguments) {
    std::vector<std::string> command = {KOVA_FR_PROGRAM};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return RunProgram(command);
}

Outcome KovaFrOnCrops(const std::vector<std::string>& arguments) {
    static const std::set<std::string> kTakePictures = {"extract",  "compare", "inspect",  "enroll",
                                                        "identify", "eval",    "calibrate"};
    std::vector<std::string> changed = arguments;
    const bool hasBoxes = std::ranges::any_of(
        arguments, [](const std::string& word) { return word.starts_with("--box"); });
    if (!arguments.empty() && kTakePictures.contains(arguments[0]) && !hasBoxes) {
        changed.insert(changed.begin() + 1, "--crop");
    }
    return KovaFr(changed);
}

Outcome Shell(const std::string& command) {
    setenv("KOVA_FR", KOVA_FR_PROGRAM, 1);
    return RunProgram({"/bin/sh", "-c", command});
}

void ExpectRefusal(const Outcome& run, int status, const std::string& part) {
    EXPECT_EQ(run.status, status) << run.err;
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err.rfind("kova-fr: ", 0), 0u) << run.err;
    EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << run.err;
    EXPECT_EQ(run.err.back(), '\n');
    EXPECT_NE(run.err.find(part), std::string::npos) << run.err << "lacks: " << part;
}

TempFolder::TempFolder() {
    path_ = (std::filesystem::temp_directory_path() / "kova_fr_XXXXXX").string();
    if (mkdtemp(path_.data()) == nullptr) {
        std::abort();
    }
}

TempFolder::~TempFolder() {
    std::error_code error;
    std::filesystem::remove_all(path_, error);
}

std::vector<std::string> TempFolder::Names() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(path_)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::string ReadFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    EXPECT_TRUE(file.is_open()) << path;
    std::ostringstream bytes;
    bytes << file.rdbuf();
    return bytes.str();
}

void WriteFile(const std::string& path, const std::string& bytes) {
    std::ofstream file(path, std::ios::binary);
    file << bytes;
    file.close();
    EXPECT_TRUE(file.good()) << path;
}

std::vector<Feature> ParseFeatures(const std::string& out) {
    std::vector<Feature> features;
    std::istringstream lines(out);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::vector<float> values;
        for (std::string word; words >> word;) {
            char* end = nullptr;
            values.push_back(std::strtof(word.c_str(), &end));
            EXPECT_EQ(*end, '\0') << word;
        }
        EXPECT_EQ(values.size(), 128u);
        values.resize(128);
        Feature& feature = features.emplace_back();
        std::copy(values.begin(), values.end(), feature.begin());
    }
    return features;
}

Feature FeatureOf(const std::string& path, const std::vector<std::string>& more) {
    std::vector<std::string> arguments = {"extract", path};
    arguments.insert(arguments.end(), more.begin(), more.end());
    const Outcome run = KovaFrOnCrops(arguments);
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.err, "");
    const std::vector<Feature> features = ParseFeatures(run.out);
    EXPECT_EQ(features.size(), 1u);
    return features.empty() ? Feature{} : features[0];
}

} // namespace kova_fr_test
