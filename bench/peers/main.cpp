// SPDX-License-Identifier: MIT
//
// Our two networks and the same two on other engines: one core, one thread, one after the other in
// many rounds, the least time of each. A face is the alignment and the recognition network.
//
// The others are held to the instructions that a machine has for which a path of ours is the best.
//
// With ORVO_FR_PATH set this is done for that path of ours, otherwise for each in turn, in a
// process of its own, since the library chooses once in the life of a process.
#include <omp.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <map>

#include "bench/network_input.h"
#include "bench/peers/hold.h"
#include "bench/peers/peer.h"
#include "compute_a/routines.h"
#include "orvo/orvo_fr.h"
#include "timing/machine.h"

namespace {

using orvo_bench::Peer;
using orvo_bench::PeerStep;

using Clock = std::chrono::steady_clock;

double MillisecondsSince(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

constexpr int kFacesInARow = 10; // before the next engine's turn, so that each finds warm caches
constexpr double kUnknown = std::numeric_limits<double>::infinity();

void RunAll(const std::vector<PeerStep>& steps) {
    for (const PeerStep& step : steps) {
        step.run();
    }
}

// What is measured in turn, with the least times so far.
struct Contender {
    std::string name;
    std::function<void()> align;
    std::function<void()> recognise;
    Peer layers;
    double alignTime = kUnknown;
    double recognitionTime = kUnknown;
    std::vector<double> layerTimes = {};

    double faceTime() const { return alignTime + recognitionTime; }
};

Contender FromPeer(const Peer& peer) {
    return {peer.name, [steps = peer.align] { RunAll(steps); },
            [steps = peer.recognition] { RunAll(steps); }, peer};
}

Contender Own() {
    static std::vector<uint8_t> memory(OrvoFrGetMemorySize());
    if (OrvoFrInit() != ORVO_FR_OK ||
        OrvoFrSetMemory(memory.data(), OrvoFrGetMemorySize()) != ORVO_FR_OK) {
        throw std::runtime_error("the core could not be initialised");
    }
    return {std::string("own, ") + orvo::ChosenRoutines().name,
            [] { AlignRun(orvo_bench::AlignInput()); },
            [] { FrRun(orvo_bench::RecognitionInput()); }, orvo_bench::OwnLayers()};
}

// More than the caches of a core and what it gets of the one that it shares.
constexpr size_t kOtherBytes = size_t{96} << 20;

// What a program does between two faces: afterwards hardly anything of the networks is in a cache.
void TouchOtherMemory() {
    static std::vector<uint8_t> other(kOtherBytes);
    for (size_t i = 0; i < other.size(); i += 64) {
        ++other[i];
    }
}

enum class Caches { kWarm, kCold };

void MeasureNetworks(Contender& contender, Caches caches) {
    for (int face = 0; face < kFacesInARow; ++face) {
        if (caches == Caches::kCold) {
            TouchOtherMemory();
        }
        const auto start = Clock::now();
        contender.align();
        contender.alignTime = std::min(contender.alignTime, MillisecondsSince(start));
        const auto middle = Clock::now();
        contender.recognise();
        contender.recognitionTime = std::min(contender.recognitionTime, MillisecondsSince(middle));
    }
}

void MeasureLayers(Contender& contender) {
    std::vector<const PeerStep*> steps;
    for (const auto* network : {&contender.layers.align, &contender.layers.recognition}) {
        for (const PeerStep& step : *network) {
            steps.push_back(&step);
        }
    }
    contender.layerTimes.resize(steps.size(), kUnknown);
    for (int face = 0; face < kFacesInARow; ++face) {
        for (size_t i = 0; i < steps.size(); ++i) {
            const auto start = Clock::now();
            steps[i]->run();
            contender.layerTimes[i] = std::min(contender.layerTimes[i], MillisecondsSince(start));
        }
    }
}

std::map<std::string, double> TimesByKind(const Contender& contender) {
    std::map<std::string, double> times;
    size_t i = 0;
    for (const auto* network : {&contender.layers.align, &contender.layers.recognition}) {
        for (const PeerStep& step : *network) {
            times[step.kind] += contender.layerTimes[i++];
        }
    }
    return times;
}

void PrintRow(const std::string& name, const std::vector<double>& milliseconds) {
    std::printf("%-12s", name.c_str());
    for (const double time : milliseconds) {
        if (time == 0) {
            std::printf(" %20s", "fused");
        } else {
            std::printf(" %11.4f %6.2f x", time, time / milliseconds[0]);
        }
    }
    std::printf("\n");
}

template <typename Value>
std::vector<double> Of(const std::vector<Contender>& contenders, Value value) {
    std::vector<double> values;
    for (const Contender& contender : contenders) {
        values.push_back(value(contender));
    }
    return values;
}

void PrintTable(const std::vector<Contender>& contenders) {
    std::printf("\n%-12s", "ms, ratio");
    for (const Contender& contender : contenders) {
        std::printf(" %20s", contender.name.c_str());
    }
    std::printf("\n");
    PrintRow("face", Of(contenders, [](const Contender& c) { return c.faceTime(); }));
    PrintRow("align", Of(contenders, [](const Contender& c) { return c.alignTime; }));
    PrintRow("recognition", Of(contenders, [](const Contender& c) { return c.recognitionTime; }));
    if (contenders[0].layerTimes.empty()) {
        return;
    }
    for (const char* kind : {"conv", "pw", "dw", "maxpool", "ds", "relu", "add", "head"}) {
        PrintRow(std::string("  ") + kind,
                 Of(contenders, [&](const Contender& c) { return TimesByKind(c)[kind]; }));
    }
}

void PinToOneCore(int core) {
    cpu_set_t cores;
    CPU_ZERO(&cores);
    CPU_SET(core, &cores);
    if (sched_setaffinity(0, sizeof cores, &cores) != 0) {
        throw std::runtime_error("cannot run on the core asked for");
    }
    omp_set_num_threads(1);
}

void Compare(int rounds, Caches caches) {
    orvo_bench::HoldPeersTo(orvo::ChosenRoutines().name);
    std::vector<Contender> contenders = {Own(), FromPeer(orvo_bench::OneDnn()),
                                         FromPeer(orvo_bench::Xnnpack())};
    for (int round = 0; round < rounds; ++round) {
        std::ranges::for_each(contenders, [=](Contender& c) { MeasureNetworks(c, caches); });
        if (caches == Caches::kWarm) {
            std::ranges::for_each(contenders, MeasureLayers);
        }
    }
    PrintTable(contenders);
}

void CompareWithPath(const char* path, int rounds, Caches caches) {
    std::fflush(stdout);
    const pid_t child = fork();
    if (child == 0) {
        setenv("ORVO_FR_PATH", path, 1);
        Compare(rounds, caches);
        std::fflush(stdout);
        _exit(0);
    }
    int status = 1;
    if (waitpid(child, &status, 0) != child || status != 0) {
        throw std::runtime_error(std::string("the comparison failed with the path ") + path);
    }
}

} // namespace

int main(int argc, char** argv) try {
    CLI::App app("Our networks beside the same on oneDNN and XNNPACK");
    int rounds = 20;
    int core = 0;
    std::string commit = "unknown";
    app.add_option("--rounds", rounds, "Turns of each engine")->capture_default_str();
    app.add_option("--core", core, "The core to run on")->capture_default_str();
    app.add_option("--commit", commit, "The commit to state in the heading");
    bool isCold = false;
    app.add_flag("--cold", isCold,
                 "Touch 96 MB before each face, so that it finds nothing of its own in the caches");
    CLI11_PARSE(app, argc, argv);
    const Caches caches = isCold ? Caches::kCold : Caches::kWarm;

    PinToOneCore(core);
    std::printf("CPU       %s\ncompiler  %s\ncommit    %s\n", orvo_timing::CpuName().c_str(),
                orvo_timing::CompilerName().c_str(), commit.c_str());
    if (std::getenv("ORVO_FR_PATH") != nullptr) {
        Compare(rounds, caches);
    } else {
        const orvo::Routines* paths[orvo::kMaxPaths];
        const size_t count = orvo::AvailableRoutines(paths);
        for (size_t i = 0; i < count; ++i) {
            CompareWithPath(paths[i]->name, rounds, caches);
        }
    }
    std::printf(
        "\nThe engines' rectifiers and samplings are in the layers before them, oneDNN's additions "
        "in\n"
        "pw and dw (what is left in its row is the widening of shortcuts).\n");
    return 0;
} catch (const std::exception& error) {
    std::fprintf(stderr, "peers_bench: %s\n", error.what());
    return 1;
}
