// SPDX-License-Identifier: MIT
//
// How long `kova-fr identify` takes among many features, and how much memory: the whole program,
// from its start to its end, on a gallery that the system has in its cache. Beside it in the same
// run the same program on a gallery of one, and the bare reading of the file, which is the bound.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>
#include <stdexcept>

#include "gallery/gallery.h"
#include "orvo/orvo_fr.h"
#include "timing/machine.h"

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

struct Options {
    size_t features = 1'000'000;
    int rounds = 10;
};

// The least of all runs, of the memory the most. What the processor worked says more than the clock
// where others are at work, too.
struct Cost {
    double seconds = 1e9;
    double worked = 1e9;
    long kilobytes = 0;
};

class TempFolder {
  public:
    TempFolder() {
        std::string name = (fs::temp_directory_path() / "identify_time_XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) {
            throw std::runtime_error("no folder for the gallery");
        }
        path_ = name;
    }
    ~TempFolder() {
        std::error_code error;
        fs::remove_all(path_, error);
    }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    std::string operator/(const std::string& name) const { return (path_ / name).string(); }

  private:
    fs::path path_;
};

double Seconds(const timeval& time) {
    return static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_usec);
}

double SecondsWorked(const rusage& usage) {
    return Seconds(usage.ru_utime) + Seconds(usage.ru_stime);
}

double SecondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

void Write(const std::string& path, const void* bytes, size_t count) {
    std::ofstream file(path, std::ios::binary);
    file.write(static_cast<const char*>(bytes), static_cast<std::streamsize>(count));
    if (!file.flush()) {
        throw std::runtime_error(path + ": cannot be written; make room");
    }
}

// Random directions, each by a name of its own.
void WriteGallery(const std::string& path, const kova_cli::Sha256& models, size_t count) {
    std::mt19937 bits(1);
    std::normal_distribution<float> normal;
    std::vector<kova_cli::Feature> features;
    std::vector<std::string> names;
    for (size_t i = 0; i < count; ++i) {
        kova_cli::Feature feature;
        float squares = 0;
        for (float& value : feature) {
            value = normal(bits);
            squares += value * value;
        }
        for (float& value : feature) {
            value /= std::sqrt(squares);
        }
        features.push_back(feature);
        names.push_back("person " + std::to_string(i));
    }
    kova_cli::AddToGallery(kova_cli::GalleryLock(path), models, features, names);
}

void WritePicture(const std::string& path) {
    std::string picture = "P5 256 256 255\n";
    for (int i = 0; i < 256 * 256; ++i) {
        picture += static_cast<char>(64 + (i / 256 * (i % 256) / 97 + i / 512) % 128);
    }
    Write(path, picture.data(), picture.size());
}

void RunOnce(const std::vector<std::string>& command, Cost& cost) {
    std::vector<char*> words;
    for (const std::string& word : command) {
        words.push_back(const_cast<char*>(word.c_str()));
    }
    words.push_back(nullptr);
    const auto start = Clock::now();
    const pid_t child = fork();
    if (child == 0) {
        dup2(open("/dev/null", O_WRONLY), STDOUT_FILENO);
        execv(words[0], words.data());
        _exit(127);
    }
    int status = 1;
    rusage usage = {};
    if (wait4(child, &status, 0, &usage) != child || status != 0) {
        throw std::runtime_error(command[0] + " " + command[1] + " failed");
    }
    cost.seconds = std::min(cost.seconds, SecondsSince(start));
    cost.worked = std::min(cost.worked, SecondsWorked(usage));
    cost.kilobytes = std::max(cost.kilobytes, usage.ru_maxrss);
}

void ReadOnce(const std::string& path, Cost& cost) {
    rusage before = {};
    rusage after = {};
    std::vector<char> piece(262144);
    getrusage(RUSAGE_SELF, &before);
    const auto start = Clock::now();
    const int file = open(path.c_str(), O_RDONLY);
    while (read(file, piece.data(), piece.size()) > 0) {
    }
    close(file);
    cost.seconds = std::min(cost.seconds, SecondsSince(start));
    getrusage(RUSAGE_SELF, &after);
    cost.worked = std::min(cost.worked, SecondsWorked(after) - SecondsWorked(before));
}

void Print(const std::string& what, const Cost& cost) {
    std::printf("%-36s %6.3f s  %6.3f s", what.c_str(), cost.seconds, cost.worked);
    if (cost.kilobytes > 0) {
        std::printf("  %6.1f MB", static_cast<double>(cost.kilobytes) / 1024);
    }
    std::printf("\n");
}

void Measure(const Options& options) {
    const fs::path program = fs::read_symlink("/proc/self/exe").parent_path() / "kova-fr";
    const TempFolder folder;
    const std::string picture = folder / "picture.pgm";
    WritePicture(picture);
    if (OrvoFrInit() != ORVO_FR_OK) { // a gallery carries the digest of the opened models
        throw std::runtime_error("the models could not be opened");
    }
    WriteGallery(folder / "many", kova_cli::ModelsDigest(), options.features);
    WriteGallery(folder / "one", kova_cli::ModelsDigest(), 1);
    Cost many;
    Cost one;
    Cost reading;
    for (int i = 0; i < options.rounds; ++i) {
        RunOnce({program.string(), "identify", folder / "many", picture}, many);
        RunOnce({program.string(), "identify", folder / "one", picture}, one);
        ReadOnce(folder / "many", reading);
    }
    std::printf("%s, %s; least of %d: time, time that a processor worked, memory\n",
                orvo_timing::CpuName().c_str(), orvo_timing::CompilerName().c_str(),
                options.rounds);
    Print("identify among " + std::to_string(options.features), many);
    Print("identify in a gallery of one", one);
    Print("reading the file and no more", reading);
}

} // namespace

int main(int argc, char** argv) {
    Options options;
    CLI::App app("The time and the memory of kova-fr identify among many features");
    app.add_option("--features", options.features, "How many features the gallery has")
        ->capture_default_str();
    app.add_option("--rounds", options.rounds, "How often each is run")->capture_default_str();
    CLI11_PARSE(app, argc, argv);
    try {
        Measure(options);
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "identify_time: %s\n", error.what());
        return 1;
    }
}
