// SPDX-License-Identifier: MIT
#include "platform/host/media_memory.h"

#include <algorithm>
#include <list>
#include <vector>

#include "orvo/kova_mpi.h"
#include "orvo/kova_mpi_host.h"

namespace kova_host {
namespace {

uint64_t RoundUpToPage(const MediaPool& pool, uint64_t size) {
    return (size + pool.page - 1) / pool.page * pool.page;
}

bool Contains(const Block& block, uint64_t phy, uint64_t size) {
    return phy >= block.phy && size <= block.size && phy - block.phy <= block.size - size;
}

// First fit: the lowest physical address with `size` free bytes behind it, or 0.
uint64_t FindRoom(const Platform& platform, uint64_t size) {
    std::vector<const Block*> byAddress;
    for (const Block& block : platform.blocks) {
        byAddress.push_back(&block);
    }
    std::sort(byAddress.begin(), byAddress.end(),
              [](const Block* a, const Block* b) { return a->phy < b->phy; });
    uint64_t at = platform.pool.base;
    for (const Block* block : byAddress) {
        if (block->phy - at >= size) {
            return at;
        }
        at = block->phy + RoundUpToPage(platform.pool, block->size);
    }
    return platform.pool.base + platform.pool.size - at >= size ? at : 0;
}

int32_t AllocateBlock(Platform& platform, bool cached, Fault::Kind blank, const char* name,
                      uint32_t size, uint64_t* phy, void** vir) {
    if (phy == nullptr || vir == nullptr || name == nullptr) {
        return KOVA_SYS_ERR_NULL_PTR;
    }
    if (platform.pool.size == 0) {
        return KOVA_SYS_ERR_NOT_READY;
    }
    if (size == 0) {
        return KOVA_SYS_ERR_ILLEGAL_PARAM;
    }
    // Made apart, so that nothing that can fail follows once its pages are shown.
    std::list<Block> made(1);
    Block& block = made.front();
    block.name = name;
    block.phy = FindRoom(platform, RoundUpToPage(platform.pool, size));
    if (block.phy == 0) {
        return KOVA_SYS_ERR_NOMEM;
    }
    block.window = OpenWindow(platform.pool, block.phy - platform.pool.base, size);
    if (block.window.data == nullptr) {
        return KOVA_SYS_ERR_NOMEM;
    }
    block.size = size;
    block.cached = cached;
    block.handedPhy = blank == Fault::kBlankPhy ? 0 : block.phy;
    block.handedVir = blank == Fault::kBlankVir ? nullptr : block.window.data;
    *phy = block.handedPhy;
    *vir = block.handedVir;
    platform.blocks.splice(platform.blocks.end(), made);
    return 0;
}

int32_t Allocate(Function function, uint64_t* phy, void** vir, const char* name, const char* zone,
                 uint32_t size) {
    Platform& platform = ThePlatform();
    const std::lock_guard lock(platform.mutex);
    kova_mpi_host_call call = NewCall(function);
    call.size = size;
    call.has_zone = zone != nullptr;
    if (name != nullptr) {
        CopyName(call.name, name);
    }
    return MakeCall(platform.trace, function, call, [&](Fault::Kind blank) {
        const int32_t result =
            AllocateBlock(platform, function == kMmzAllocCached, blank, name, size, phy, vir);
        if (result == 0) {
            call.phy = *phy;
            call.vir = reinterpret_cast<uintptr_t>(*vir);
        }
        return result;
    });
}

// What is still mapped of a block goes with it: its pages will belong to another block.
void DropMappingsOf(Platform& platform, const Block& block) {
    for (auto mapping = platform.mappings.begin(); mapping != platform.mappings.end();) {
        if (Contains(block, mapping->phy, mapping->size)) {
            CloseWindow(mapping->window);
            mapping = platform.mappings.erase(mapping);
        } else {
            ++mapping;
        }
    }
}

void ReleaseBlock(Platform& platform, Block& block) {
    DropMappingsOf(platform, block);
    CloseWindow(block.window);
    DiscardPages(platform.pool, block.phy - platform.pool.base,
                 RoundUpToPage(platform.pool, block.size));
}

int32_t FreeBlock(Platform& platform, uint64_t phy, const void* vir) {
    const auto block =
        std::find_if(platform.blocks.begin(), platform.blocks.end(),
                     [&](const Block& b) { return b.handedPhy == phy && b.handedVir == vir; });
    if (block == platform.blocks.end()) {
        return KOVA_SYS_ERR_UNEXIST;
    }
    ReleaseBlock(platform, *block);
    platform.blocks.erase(block);
    return 0;
}

int32_t MapRange(Platform& platform, uint64_t phy, uint32_t size, void** vir) {
    if (size == 0) {
        return KOVA_SYS_ERR_ILLEGAL_PARAM;
    }
    if (FindBlockAround(platform, phy, size) == nullptr) {
        return KOVA_SYS_ERR_UNEXIST;
    }
    for (Mapping& mapping : platform.mappings) {
        if (mapping.phy == phy && mapping.size == size) {
            // A user who never unmaps must not wrap the count to one that another user's unmapping
            // would bring to 0.
            mapping.users = std::max(mapping.users, mapping.users + 1);
            *vir = mapping.window.data;
            return 0;
        }
    }
    std::list<Mapping> made(1);
    Mapping& mapping = made.front();
    mapping.phy = phy;
    mapping.size = size;
    mapping.users = 1;
    mapping.window = OpenWindow(platform.pool, phy - platform.pool.base, size);
    if (mapping.window.data == nullptr) {
        return KOVA_SYS_ERR_NOMEM;
    }
    *vir = mapping.window.data;
    platform.mappings.splice(platform.mappings.end(), made);
    return 0;
}

int32_t UnmapRange(Platform& platform, const void* vir, uint32_t size) {
    if (vir == nullptr) {
        return KOVA_SYS_ERR_NULL_PTR;
    }
    const auto mapping = std::find_if(platform.mappings.begin(), platform.mappings.end(),
                                      [&](const Mapping& m) { return m.window.data == vir; });
    if (mapping == platform.mappings.end()) {
        return KOVA_SYS_ERR_UNEXIST;
    }
    if (mapping->size != size) {
        return KOVA_SYS_ERR_ILLEGAL_PARAM;
    }
    if (--mapping->users == 0) {
        CloseWindow(mapping->window);
        platform.mappings.erase(mapping);
    }
    return 0;
}

} // namespace

const Block* FindBlockAround(const Platform& platform, uint64_t phy, uint64_t size) {
    for (const Block& block : platform.blocks) {
        if (Contains(block, phy, size)) {
            return &block;
        }
    }
    return nullptr;
}

void FreeAllBlocks(Platform& platform) {
    for (Block& block : platform.blocks) {
        ReleaseBlock(platform, block);
    }
    platform.blocks.clear();
}

} // namespace kova_host

using namespace kova_host;

int32_t KOVA_MPI_SYS_MmzAlloc(uint64_t* phy, void** vir, const char* name, const char* zone,
                              uint32_t size) {
    return Allocate(kMmzAlloc, phy, vir, name, zone, size);
}

int32_t KOVA_MPI_SYS_MmzAlloc_Cached(uint64_t* phy, void** vir, const char* name, const char* zone,
                                     uint32_t size) {
    return Allocate(kMmzAllocCached, phy, vir, name, zone, size);
}

int32_t KOVA_MPI_SYS_MmzFree(uint64_t phy, void* vir) {
    Platform& platform = ThePlatform();
    const std::lock_guard lock(platform.mutex);
    kova_mpi_host_call call = NewCall(kMmzFree);
    call.phy = phy;
    call.vir = reinterpret_cast<uintptr_t>(vir);
    return MakeCall(platform.trace, kMmzFree, call,
                    [&](Fault::Kind) { return FreeBlock(platform, phy, vir); });
}

void* KOVA_MPI_SYS_Mmap(uint64_t phy, uint32_t size) {
    Platform& platform = ThePlatform();
    const std::lock_guard lock(platform.mutex);
    kova_mpi_host_call call = NewCall(kMmap);
    call.phy = phy;
    call.size = size;
    void* vir = nullptr;
    MakeCall(platform.trace, kMmap, call, [&](Fault::Kind) {
        const int32_t result = MapRange(platform, phy, size, &vir);
        call.vir = reinterpret_cast<uintptr_t>(vir);
        return result;
    });
    return vir;
}

int32_t KOVA_MPI_SYS_Munmap(void* vir, uint32_t size) {
    Platform& platform = ThePlatform();
    const std::lock_guard lock(platform.mutex);
    kova_mpi_host_call call = NewCall(kMunmap);
    call.vir = reinterpret_cast<uintptr_t>(vir);
    call.size = size;
    return MakeCall(platform.trace, kMunmap, call,
                    [&](Fault::Kind) { return UnmapRange(platform, vir, size); });
}
