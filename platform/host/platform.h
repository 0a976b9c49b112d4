// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <list>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "orvo/kova_mpi_host.h"
#include "platform/host/call_trace.h"
#include "platform/host/media_pool.h"

namespace kova_host {

struct Block {
    std::string name;
    uint64_t phy = 0;       // where it really is
    uint64_t handedPhy = 0; // what the caller was told: `phy`, unless a fault blanked it
    void* handedVir = nullptr;
    uint32_t size = 0;
    bool cached = false;
    Window window;
};

struct Mapping {
    uint64_t phy = 0;
    uint32_t size = 0;
    uint32_t users = 0;
    Window window;
};

struct Job {
    std::vector<kova_vgs_task> tasks;
};

// All state of the stand-in. Every member is guarded by the mutex.
struct Platform {
    std::mutex mutex;
    MediaPool pool;
    std::list<Block> blocks;     // in order of allocation
    std::list<Mapping> mappings; // in order of making
    std::map<int32_t, Job> jobs;
    int32_t lastHandle = 0;
    CallTrace trace;
};

// The one platform of the process. It is never torn down, since other threads may still be in it
// when the process ends.
Platform& ThePlatform();

} // namespace kova_host
