// SPDX-License-Identifier: MIT
//
// One face in a WebAssembly module for itself, for module_time.js: whole runs, or the layers of one
// kind in the course of whole runs.
//
// The linker routes the networks' kernel calls through here (--wrap).
#include <cstdint>

#include "orvo/orvo_fr.h"
#include "orvo/q7_kernels.h"
#include "timing/layer_clock.h"

#define ORVO_MODULE extern "C" __attribute__((used, visibility("default")))

namespace {

using namespace orvo_timing;

alignas(64) uint8_t g_memory[ORVO_FR_MEMORY_SIZE];
uint8_t g_picture[ORVO_FR_IMAGE_SIZE * ORVO_FR_IMAGE_SIZE];
float g_feature[ORVO_FR_FEATURE_LENGTH];

bool Run() {
    const FrImage image{g_picture, ORVO_FR_IMAGE_SIZE, ORVO_FR_IMAGE_SIZE, ORVO_FR_IMAGE_SIZE};
    return OrvoFrRun(&image, g_feature, sizeof g_feature) == ORVO_FR_OK;
}

} // namespace

// 0 is success.
ORVO_MODULE int32_t FaceModuleOpen() {
    for (uint32_t i = 0; i < sizeof g_picture; ++i) {
        g_picture[i] = static_cast<uint8_t>((i / ORVO_FR_IMAGE_SIZE + i) / 2);
    }
    return OrvoFrInit() == ORVO_FR_OK && OrvoFrSetMemory(g_memory, sizeof g_memory) == ORVO_FR_OK &&
                   Run()
               ? 0
               : 1;
}

// Milliseconds of one OrvoFrRun(), or of its kernels of these kinds (see layer_clock.h).
ORVO_MODULE double FaceModuleTime(uint32_t kinds) {
    return Milliseconds(kinds == 0 ? TimeWhole(Run) : TimeKinds(kinds, Run));
}

// Of ORVO_FR_FEATURE_LENGTH floats, of the last run.
ORVO_MODULE const float* FaceModuleFeature() { return g_feature; }

// __wrap_NAME stands for NAME in the networks, __real_NAME is the kernel itself.
#define ORVO_PLAIN(...) __VA_ARGS__
#define ORVO_ROUTE(part, name, parameters, arguments) \
    extern "C" void __real_##name parameters;         \
    extern "C" void __wrap_##name parameters;         \
    extern "C" void __wrap_##name parameters { RunPart<part>(__real_##name, ORVO_PLAIN arguments); }
#include "timing/routed_kernels.h"
