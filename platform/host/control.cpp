// SPDX-License-Identifier: MIT
#include <iterator>

#include "orvo/kova_mpi_host.h"
#include "platform/host/media_memory.h"

namespace kova_host {
namespace {

// The element of that rank, or null.
template <typename Element>
const Element* At(const std::list<Element>& elements, uint32_t index) {
    return index < elements.size() ? &*std::next(elements.begin(), static_cast<ptrdiff_t>(index))
                                   : nullptr;
}

} // namespace
} // namespace kova_host

using namespace kova_host;

void kova_mpi_host_get_pool(uint64_t* base, uint64_t* size) {
    Platform& platform = ThePlatform();
    const std::lock_guard lock(platform.mutex);
    *base = platform.pool.base;
    *size = platform.pool.size;
}

void kova_mpi_host_get_usage(kova_mpi_host_usage* usage) {
    Platform& platform = ThePlatform();
    const std::lock_guard lock(platform.mutex);
    *usage = kova_mpi_host_usage{};
    usage->blocks = static_cast<uint32_t>(platform.blocks.size());
    usage->mappings = static_cast<uint32_t>(platform.mappings.size());
    usage->jobs = static_cast<uint32_t>(platform.jobs.size());
    for (const Block& block : platform.blocks) {
        usage->block_bytes += block.size;
    }
    for (const Mapping& mapping : platform.mappings) {
        usage->mapping_bytes += mapping.size;
    }
}

uint32_t kova_mpi_host_blocks_named(const char* name, uint64_t* bytes) {
    Platform& platform = ThePlatform();
    const std::lock_guard lock(platform.mutex);
    uint32_t count = 0;
    uint64_t sum = 0;
    for (const Block& block : platform.blocks) {
        if (block.name == name) {
            ++count;
            sum += block.size;
        }
    }
    if (bytes != nullptr) {
        *bytes = sum;
    }
    return count;
}

int32_t kova_mpi_host_get_block(uint32_t index, kova_mpi_host_block* block) {
    Platform& platform = ThePlatform();
    const std::lock_guard lock(platform.mutex);
    const Block* const found = At(platform.blocks, index);
    if (found == nullptr) {
        return -1;
    }
    *block = kova_mpi_host_block{};
    CopyName(block->name, found->name.c_str());
    block->phy = found->handedPhy;
    block->vir = found->handedVir;
    block->size = found->size;
    block->cached = found->cached;
    return 0;
}

int32_t kova_mpi_host_get_mapping(uint32_t index, kova_mpi_host_mapping* mapping) {
    Platform& platform = ThePlatform();
    const std::lock_guard lock(platform.mutex);
    const Mapping* const found = At(platform.mappings, index);
    if (found == nullptr) {
        return -1;
    }
    *mapping = {found->phy, found->window.data, found->size, found->users};
    return 0;
}

void kova_mpi_host_start_recording(void) {
    Platform& platform = ThePlatform();
    const std::lock_guard lock(platform.mutex);
    platform.trace.calls.clear();
    platform.trace.callCount = 0;
    platform.trace.recording = true;
}

void kova_mpi_host_stop_recording(void) {
    Platform& platform = ThePlatform();
    const std::lock_guard lock(platform.mutex);
    platform.trace.recording = false;
}

uint32_t kova_mpi_host_call_count(void) {
    Platform& platform = ThePlatform();
    const std::lock_guard lock(platform.mutex);
    return platform.trace.callCount;
}

int32_t kova_mpi_host_get_call(uint32_t index, kova_mpi_host_call* call) {
    Platform& platform = ThePlatform();
    const std::lock_guard lock(platform.mutex);
    if (index >= platform.trace.calls.size()) {
        return -1;
    }
    *call = platform.trace.calls[index];
    return 0;
}

int32_t kova_mpi_host_fail_call(const char* function, uint32_t n, int32_t code, int32_t for_good) {
    const Function which = FunctionNamed(function);
    if (which == kFunctionCount || n == 0 || code == 0) {
        return -1;
    }
    Platform& platform = ThePlatform();
    const std::lock_guard lock(platform.mutex);
    platform.trace.faults[which] = {Fault::kFail, n, code, for_good != 0};
    return 0;
}

int32_t kova_mpi_host_blank_address(const char* function, uint32_t n, kova_mpi_host_blank blank,
                                    int32_t for_good) {
    const Function which = FunctionNamed(function);
    if ((which != kMmzAlloc && which != kMmzAllocCached) || n == 0) {
        return -1;
    }
    const Fault::Kind kind = blank == KOVA_MPI_HOST_BLANK_PHY ? Fault::kBlankPhy : Fault::kBlankVir;
    Platform& platform = ThePlatform();
    const std::lock_guard lock(platform.mutex);
    platform.trace.faults[which] = {kind, n, 0, for_good != 0};
    return 0;
}

void kova_mpi_host_clear_faults(void) {
    Platform& platform = ThePlatform();
    const std::lock_guard lock(platform.mutex);
    platform.trace.faults = {};
}

void kova_mpi_host_reset(void) {
    Platform& platform = ThePlatform();
    const std::lock_guard lock(platform.mutex);
    FreeAllBlocks(platform);
    platform.jobs.clear();
    platform.trace = {};
}
