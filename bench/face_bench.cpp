// SPDX-License-Identifier: MIT
//
// Times of every kernel on every layer shape, of the networks, the pipeline, the opening of the
// models and the distance.
//
// The library chooses its path once in the life of a process. With ORVO_FR_PATH set this program
// measures that path and is an ordinary Google Benchmark; without, it runs itself once for each
// path and prints one table (or, with --json, one JSON object) of all. The last column is no path
// but the same layers as naive loops.
#include <benchmark/benchmark.h>
#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <map>
#include <stdexcept>
#include <vector>

#include "bench/naive_layers.h"
#include "bench/network_input.h"
#include "bench/own_layers.h"
#include "bench/path_table.h"
#include "bench/peak.h"
#include "compute_a/routines.h"
#include "orvo/cipher.h"
#include "orvo/model_store.h"
#include "orvo/orvo_fr.h"
#include "search/distances.h"
#ifdef ORVO_HAVE_FIND
#include "bench/find_input.h"
#endif

namespace {

using orvo_bench::Layer;

struct Core {
    std::vector<uint8_t> memory = std::vector<uint8_t>(OrvoFrGetMemorySize());
    std::vector<uint8_t> picture = std::vector<uint8_t>(ORVO_FR_IMAGE_SIZE * ORVO_FR_IMAGE_SIZE);

    Core() {
        if (OrvoFrInit() != ORVO_FR_OK ||
            OrvoFrSetMemory(memory.data(), OrvoFrGetMemorySize()) != ORVO_FR_OK) {
            throw std::runtime_error("the core could not be initialised");
        }
        for (size_t i = 0; i < picture.size(); ++i) { // a soft gradient
            picture[i] = static_cast<uint8_t>((i / ORVO_FR_IMAGE_SIZE + i) / 2);
        }
        run(); // brings code and weights into the caches
    }

    void run() {
        const FrImage image{picture.data(), ORVO_FR_IMAGE_SIZE, ORVO_FR_IMAGE_SIZE,
                            ORVO_FR_IMAGE_SIZE};
        float feature[ORVO_FR_FEATURE_LENGTH];
        if (OrvoFrRun(&image, feature, sizeof feature) != ORVO_FR_OK) {
            throw std::runtime_error("no feature");
        }
        benchmark::DoNotOptimize(feature);
    }
};

Core& TheCore() {
    static Core core;
    return core;
}

void TimePeak(benchmark::State& state, const orvo_bench::Peak& peak) {
    constexpr size_t kSteps = 1000;
    for (auto _ : state) {
        peak.run(kSteps);
    }
    state.counters["products"] = static_cast<double>(kSteps * peak.productsPerStep);
}

// OrvoFrInit() runs once in a process, so every time is another process's first.
void TimeInit(benchmark::State& state) {
    for (auto _ : state) {
        int ends[2];
        if (pipe(ends) != 0) {
            throw std::runtime_error("no pipe");
        }
        const pid_t child = fork();
        if (child == 0) {
            const auto start = std::chrono::steady_clock::now();
            const int32_t status = OrvoFrInit();
            const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;
            const double seconds = time.count();
            const bool sent = write(ends[1], &seconds, sizeof seconds) == sizeof seconds;
            _exit(status == ORVO_FR_OK && sent ? 0 : 1);
        }
        double seconds = 0;
        const bool received = read(ends[0], &seconds, sizeof seconds) == sizeof seconds;
        close(ends[0]);
        close(ends[1]);
        int status = 1;
        if (waitpid(child, &status, 0) != child || status != 0 || !received) {
            throw std::runtime_error("OrvoFrInit failed");
        }
        state.SetIterationTime(seconds);
    }
}

// The bulk of OrvoFrInit() on memory that is warm already.
void TimeDecipher(benchmark::State& state) {
    std::vector<uint8_t> buffer(32768);
    const uint8_t key[16] = {1};
    int64_t bytes = 0;
    for (auto _ : state) {
        for (const auto& [arrays, count] : {std::pair{g_alignArray, std::size(g_alignArray)},
                                            std::pair{g_frArray, std::size(g_frArray)}}) {
            for (size_t i = 0; i < count; ++i) {
                const uint32_t size = arrays[i].size & ~15u;
                AES_ctx context;
                AES_init_ctx_iv(&context, key, key);
                AES_CBC_decrypt_buffer(&context, buffer.data(), size);
                bytes += size;
            }
        }
    }
    state.SetBytesProcessed(bytes);
}

void TimeAlignRun(benchmark::State& state) {
    TheCore();
    for (auto _ : state) {
        AlignRun(orvo_bench::AlignInput());
    }
}

void TimeFrRun(benchmark::State& state) {
    TheCore();
    for (auto _ : state) {
        FrRun(orvo_bench::RecognitionInput());
    }
}

void TimeOrvoFrRun(benchmark::State& state) {
    Core& core = TheCore();
    for (auto _ : state) {
        core.run();
    }
}

#ifdef ORVO_HAVE_FIND
orvo_bench::Finder& TheFinder() {
    static orvo_bench::Finder finder;
    return finder;
}

void TimeFindRun(benchmark::State& state) {
    orvo_bench::Finder& finder = TheFinder();
    for (auto _ : state) {
        finder.run();
    }
}

void TimeUpright(benchmark::State& state) {
    orvo_bench::Finder& finder = TheFinder();
    for (auto _ : state) {
        finder.upright();
    }
}
#endif

void TimeDistance(benchmark::State& state) {
    float a[ORVO_FR_FEATURE_LENGTH];
    float b[ORVO_FR_FEATURE_LENGTH];
    for (int i = 0; i < ORVO_FR_FEATURE_LENGTH; ++i) {
        a[i] = 0.01f * static_cast<float>(i);
        b[i] = 1.0f - a[i];
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(OrvoFrGetDistance(a, sizeof a, b, sizeof b));
    }
}

// The time of one distance of many: those to as many features as fit a processor's second cache.
void TimeDistances(benchmark::State& state) {
    constexpr size_t kEntries = 1024;
    std::vector<float> entries(kEntries * ORVO_FR_FEATURE_LENGTH);
    for (size_t i = 0; i < entries.size(); ++i) {
        entries[i] = 0.01f * static_cast<float>(i % 97) - 0.4f;
    }
    std::vector<float> distances(kEntries);
    const orvo::Features features = orvo::LookThrough(entries.data(), kEntries);
    while (state.KeepRunningBatch(kEntries)) {
        orvo::Distances(entries.data(), features, distances.data());
        benchmark::DoNotOptimize(distances.data());
        benchmark::ClobberMemory();
    }
}

// Of one feature of many.
void TimeLookThrough(benchmark::State& state) {
    constexpr size_t kEntries = 1024;
    const std::vector<float> entries(kEntries * ORVO_FR_FEATURE_LENGTH, 0.1f);
    while (state.KeepRunningBatch(kEntries)) {
        benchmark::DoNotOptimize(orvo::LookThrough(entries.data(), kEntries).areOrdinary);
    }
}

using MakeStep = decltype(&orvo_bench::OwnStep);

void TimeLayer(benchmark::State& state, MakeStep makeStep, const Layer& layer, int perFace) {
    const orvo_bench::Step step = makeStep(layer);
    for (auto _ : state) {
        step();
    }
    // The statistics of a counter that is always 0 are not numbers.
    if (const uint64_t products = orvo_bench::Products(layer)) {
        state.counters["products"] = static_cast<double>(products);
    }
    state.counters["per_face"] = perFace;
}

uint64_t Products(const orvo_bench::Network& network) {
    uint64_t sum = 0;
    for (const Layer& layer : network) {
        sum += orvo_bench::Products(layer);
    }
    return sum;
}

// What stands in a row is the best of several short runs: a machine has other things to do.
template <typename... Args>
benchmark::internal::Benchmark* Register(const std::string& name, Args&&... args) {
    return benchmark::RegisterBenchmark(name.c_str(), std::forward<Args>(args)...)
        ->MinTime(0.01)
        ->Repetitions(7)
        ->ComputeStatistics(
            "least", [](const std::vector<double>& v) { return *std::ranges::min_element(v); })
        ->ReportAggregatesOnly();
}

void TimeSteps(benchmark::State& state, MakeStep makeStep, const orvo_bench::Network& network) {
    std::vector<orvo_bench::Step> steps;
    for (const Layer& layer : network) {
        steps.push_back(makeStep(layer));
    }
    for (auto _ : state) {
        for (const orvo_bench::Step& step : steps) {
            step();
        }
    }
}

struct Networks {
    orvo_bench::Network align = orvo_bench::AlignNetwork();
    orvo_bench::Network recognition = orvo_bench::RecognitionNetwork();

    orvo_bench::Network both() const {
        orvo_bench::Network layers = align;
        layers.insert(layers.end(), recognition.begin(), recognition.end());
        return layers;
    }
};

void RegisterLayers(MakeStep makeStep, const Networks& networks) {
    orvo_bench::Network layers = networks.both();
    std::map<std::string, int> count;
    for (const Layer& layer : layers) {
        ++count[ShapeName(layer)];
    }
    std::ranges::stable_sort(layers, {}, &Layer::kind);
    for (const Layer& layer : layers) {
        const std::string name = ShapeName(layer);
        if (const auto times = count.extract(name)) {
            Register(name, TimeLayer, makeStep, layer, times.mapped());
        }
    }
}

// With the time counts what the network multiplies.
auto Counting(const orvo_bench::Network& network, auto time) {
    return [=, products = Products(network)](benchmark::State& state) {
        time(state);
        state.counters["products"] = static_cast<double>(products);
    };
}

void RegisterLibrary() {
    // First of all: the processes that it starts must not have an initialised core.
    Register("OrvoFrInit", TimeInit)->UseManualTime();
    if (const orvo_bench::Peak* peak = orvo_bench::PeakOf(orvo::ChosenRoutines().name)) {
        // Longer, since the other rows are set against it.
        Register(orvo_bench::kPeakRow, TimePeak, *peak)->Repetitions(40);
    }
    const Networks networks;
    RegisterLayers(orvo_bench::OwnStep, networks);
    Register(orvo_bench::kAlignRow, Counting(networks.align, TimeAlignRun));
    Register(orvo_bench::kRecognitionRow, Counting(networks.recognition, TimeFrRun));
    Register("OrvoFrRun", Counting(networks.both(), TimeOrvoFrRun));
#ifdef ORVO_HAVE_FIND
    Register("OrvoFindRun", TimeFindRun);
    Register("OrvoFindUpright", TimeUpright);
#endif
    Register("OrvoFrGetDistance", TimeDistance);
    Register("a distance of many", TimeDistances);
    Register("look through a feature", TimeLookThrough);
    Register("decipher the models", TimeDecipher);
}

void RegisterNaive() {
    const Networks networks;
    RegisterLayers(orvo_bench::NaiveStep, networks);
    const auto steps = [](const orvo_bench::Network& network) {
        return Counting(network, [=](benchmark::State& state) {
            TimeSteps(state, orvo_bench::NaiveStep, network);
        });
    };
    Register(orvo_bench::kAlignRow, steps(networks.align));
    Register(orvo_bench::kRecognitionRow, steps(networks.recognition));
}

int MeasureThisPath(int argc, char** argv) {
    const std::string_view path = std::getenv("ORVO_FR_PATH");
    path == orvo_bench::kNaivePath ? RegisterNaive() : RegisterLibrary();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}

int CompareAllPaths(int argc, char** argv) {
    CLI::App app("Times of the library's kernels, networks and calls, for every path");
    orvo_bench::TableOptions options;
    app.add_flag("--json", options.json, "Print one JSON object instead of a table");
    app.add_option("--filter", options.filter, "Only rows whose name matches this expression");
    app.add_option("--commit", options.commit, "The commit to state in the heading");
    CLI11_PARSE(app, argc, argv);

    const orvo::Routines* paths[orvo::kMaxPaths];
    const size_t count = orvo::AvailableRoutines(paths);
    for (size_t i = 0; i < count; ++i) {
        options.paths.push_back(paths[i]->name);
    }
    options.paths.push_back(orvo_bench::kNaivePath);
    orvo_bench::PrintPathTable(options);
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    try {
        return std::getenv("ORVO_FR_PATH") != nullptr ? MeasureThisPath(argc, argv)
                                                      : CompareAllPaths(argc, argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "face_bench: %s\n", error.what());
        return 1;
    }
}
