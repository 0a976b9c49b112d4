// SPDX-License-Identifier: MIT
//
// Our two networks and the same two on other engines: one core, one thread, one after the other in
// many rounds, the least time of each. A face is the alignment and the recognition network.
//
// This is done for each class of machines that this one can stand for, with all three kept to its
// instructions, in a process of its own; with ORVO_FR_PATH set, for the class of that path.
#include <omp.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <iterator>
#include <limits>

#include "bench/peers/machine_class.h"
#include "bench/peers/peer.h"
#include "timing/machine.h"

namespace {

using orvo_bench::Contender;
using orvo_bench::KindTimes;
using orvo_bench::MachineClass;
using orvo_bench::Peer;
using orvo_bench::PeerStep;

using Clock = std::chrono::steady_clock;

double MillisecondsSince(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

constexpr int kFacesInARow = 10; // before the next engine's turn, so that each finds warm caches
constexpr double kUnknown = std::numeric_limits<double>::infinity();
constexpr size_t kContenders = 3;
constexpr const char* kKinds[] = {"conv", "pw", "dw", "maxpool", "ds", "relu", "add", "head"};

void RunAll(const std::vector<PeerStep>& steps) {
    for (const PeerStep& step : steps) {
        step.run();
    }
}

KindTimes TimeSteps(const Peer& peer) {
    KindTimes times;
    for (const auto* network : {&peer.align, &peer.recognition}) {
        for (const PeerStep& step : *network) {
            const auto start = Clock::now();
            step.run();
            times[step.kind] += MillisecondsSince(start);
        }
    }
    return times;
}

Contender FromPeer(const Peer& peer) {
    return {peer.name, [steps = peer.align] { RunAll(steps); },
            [steps = peer.recognition] { RunAll(steps); }, [peer] { return TimeSteps(peer); }};
}

// The least times so far.
struct Times {
    double align = kUnknown;
    double recognition = kUnknown;
    KindTimes kinds = {};

    double face() const { return align + recognition; }
};

enum class Caches { kWarm, kCold };

// What a program does between two faces: afterwards hardly anything of the networks is in a cache of the
// core, or in what it gets of the one that it shares.
void TouchOtherMemory() {
    constexpr size_t kBytes = size_t{96} << 20;
    constexpr size_t kLine = 64;
    static std::vector<uint8_t> other(kBytes);
    for (size_t i = 0; i < kBytes; i += kLine) {
        ++other[i];
    }
}

void MeasureNetworks(const Contender& contender, Caches caches, Times& times) {
    for (int face = 0; face < kFacesInARow; ++face) {
        if (caches == Caches::kCold) {
            TouchOtherMemory();
        }
        const auto start = Clock::now();
        contender.align();
        times.align = std::min(times.align, MillisecondsSince(start));
        const auto middle = Clock::now();
        contender.recognise();
        times.recognition = std::min(times.recognition, MillisecondsSince(middle));
    }
}

void MeasureKinds(const Contender& contender, Times& times) {
    for (int face = 0; face < kFacesInARow; ++face) {
        for (const auto& [kind, time] : contender.timeKinds()) {
            const auto known = times.kinds.try_emplace(kind, kUnknown).first;
            known->second = std::min(known->second, time);
        }
    }
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
std::vector<double> Of(const std::vector<Times>& times, Value value) {
    std::vector<double> values;
    std::ranges::transform(times, std::back_inserter(values), value);
    return values;
}

void PrintTable(const MachineClass& machine, const std::vector<Contender>& contenders,
                const std::vector<Times>& times) {
    std::printf("\n%s\n%-12s", machine.name.c_str(), "ms, ratio");
    for (const Contender& contender : contenders) {
        std::printf(" %20s", contender.name.c_str());
    }
    std::printf("\n");
    PrintRow("face", Of(times, &Times::face));
    PrintRow("align", Of(times, [](const Times& t) { return t.align; }));
    PrintRow("recognition", Of(times, [](const Times& t) { return t.recognition; }));
    if (times[0].kinds.empty()) {
        return;
    }
    for (const char* kind : kKinds) {
        PrintRow(std::string("  ") + kind, Of(times, [&](const Times& t) {
                     const auto found = t.kinds.find(kind);
                     return found == t.kinds.end() ? 0 : found->second;
                 }));
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

using FaceTimes = std::array<double, kContenders>;

FaceTimes Compare(const MachineClass& machine, int rounds, Caches caches) {
    orvo_bench::HoldTo(machine);
    const std::vector<Contender> contenders = {orvo_bench::Own(), FromPeer(orvo_bench::OneDnn()),
                                               FromPeer(orvo_bench::Xnnpack())};
    std::vector<Times> times(contenders.size());
    for (int round = 0; round < rounds; ++round) {
        for (size_t i = 0; i < contenders.size(); ++i) {
            MeasureNetworks(contenders[i], caches, times[i]);
        }
        for (size_t i = 0; i < contenders.size() && caches == Caches::kWarm; ++i) {
            MeasureKinds(contenders[i], times[i]);
        }
    }
    PrintTable(machine, contenders, times);
    std::fflush(stdout);
    FaceTimes faces;
    std::ranges::transform(times, faces.begin(), &Times::face);
    return faces;
}

// Each engine chooses its instructions once in the life of a process.
FaceTimes CompareInChild(const MachineClass& machine, int rounds, Caches caches) {
    int ends[2];
    if (pipe(ends) != 0) {
        throw std::runtime_error("no pipe");
    }
    std::fflush(stdout);
    const pid_t child = fork();
    if (child == 0) {
        try {
            const FaceTimes faces = Compare(machine, rounds, caches);
            _exit(write(ends[1], faces.data(), sizeof faces) == sizeof faces ? 0 : 1);
        } catch (const std::exception& error) {
            std::fprintf(stderr, "peers_bench: %s\n", error.what());
            _exit(1);
        }
    }
    close(ends[1]);
    FaceTimes faces;
    const bool isWhole = read(ends[0], faces.data(), sizeof faces) == sizeof faces;
    close(ends[0]);
    int status = 1;
    if (waitpid(child, &status, 0) != child || status != 0 || !isWhole) {
        throw std::runtime_error("the comparison failed for " + machine.name);
    }
    return faces;
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

    PinToOneCore(core);
    std::printf("CPU       %s\ncompiler  %s\ncommit    %s\n", orvo_timing::CpuName().c_str(),
                orvo_timing::CompilerName().c_str(), commit.c_str());
    const std::vector<MachineClass> machines = orvo_bench::MachineClasses();
    std::vector<FaceTimes> faces;
    faces.reserve(machines.size());
    for (const MachineClass& machine : machines) {
        faces.push_back(CompareInChild(machine, rounds, isCold ? Caches::kCold : Caches::kWarm));
    }
    std::printf("\n%-12s %20s %20s %20s\n", "a face", "own", "oneDNN", "XNNPACK");
    for (size_t i = 0; i < machines.size(); ++i) {
        PrintRow(machines[i].name, {faces[i].begin(), faces[i].end()});
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
