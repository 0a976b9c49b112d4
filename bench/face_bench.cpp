// SPDX-License-Identifier: MIT
//
// Time per face: the two networks, the whole pipeline from picture to feature, and the distance.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <vector>

#include "orvo/orvo_fr.h"

namespace {

struct Core {
    std::vector<uint8_t> memory = std::vector<uint8_t>(OrvoFrGetMemorySize());
    std::vector<uint8_t> picture = std::vector<uint8_t>(ORVO_FR_IMAGE_SIZE * ORVO_FR_IMAGE_SIZE);

    Core() {
        if (OrvoFrInit() != ORVO_FR_OK ||
            OrvoFrSetMemory(memory.data(), OrvoFrGetMemorySize()) != ORVO_FR_OK) {
            std::fputs("face_bench: the core could not be initialised\n", stderr);
            std::exit(1);
        }
        // A soft gradient; the time does not depend on the picture.
        for (size_t i = 0; i < picture.size(); ++i) {
            picture[i] = static_cast<uint8_t>((i / ORVO_FR_IMAGE_SIZE + i) / 2);
        }
    }
};

Core& TheCore() {
    static Core core;
    return core;
}

void BM_AlignRun(benchmark::State& state) {
    TheCore();
    for (auto _ : state) {
        AlignRun(g_frInnerImage);
    }
}
BENCHMARK(BM_AlignRun)->Unit(benchmark::kMillisecond);

void BM_FrRun(benchmark::State& state) {
    TheCore();
    for (auto _ : state) {
        FrRun(g_frInnerImage);
    }
}
BENCHMARK(BM_FrRun)->Unit(benchmark::kMillisecond);

void BM_OrvoFrRun(benchmark::State& state) {
    const FrImage image{TheCore().picture.data(), ORVO_FR_IMAGE_SIZE, ORVO_FR_IMAGE_SIZE,
                        ORVO_FR_IMAGE_SIZE};
    float feature[ORVO_FR_FEATURE_LENGTH];
    for (auto _ : state) {
        OrvoFrRun(&image, feature, sizeof feature);
        benchmark::DoNotOptimize(feature);
    }
}
BENCHMARK(BM_OrvoFrRun)->Unit(benchmark::kMillisecond);

void BM_OrvoFrGetDistance(benchmark::State& state) {
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
BENCHMARK(BM_OrvoFrGetDistance);

} // namespace

BENCHMARK_MAIN();
