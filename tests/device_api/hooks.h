// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "orvo/kova_mpi.h"
#include "orvo/orvo_fr.h"

namespace device_test {

// A test that links hooks.cpp stands between the device API and what it calls: the functions below
// are the test's own and go on to the real ones, unless a hook is set. So the core can be made to
// answer what it never answers by itself.
struct Hooks {
    std::function<int32_t()> init;
    std::function<uint32_t()> getMemorySize;
    std::function<int32_t(void*, uint32_t)> setMemory;
    std::function<int32_t(const FrImage*, void*, uint32_t)> run;
    std::function<float(const float*, uint32_t, const float*, uint32_t)> getDistance;
    std::function<int32_t(void*, uint32_t)> munmap;
    std::function<int32_t(int32_t*)> beginJob;
    std::function<int32_t(int32_t, const kova_vgs_task*, uint32_t)> addScaleTask;
};

// To be set while no other thread is in the library.
extern Hooks hooks;

} // namespace device_test
