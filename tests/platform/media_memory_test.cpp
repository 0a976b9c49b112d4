// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "platform/platform_fixture.h"

using namespace platform_test;

namespace {

uint64_t PageSize() { return static_cast<uint64_t>(sysconf(_SC_PAGESIZE)); }

bool AllZero(const uint8_t* bytes, size_t count) {
    return std::all_of(bytes, bytes + count, [](uint8_t b) { return b == 0; });
}

kova_mpi_host_mapping OnlyMapping() {
    kova_mpi_host_mapping mapping{};
    EXPECT_EQ(kova_mpi_host_get_mapping(0, &mapping), 0);
    EXPECT_EQ(kova_mpi_host_get_mapping(1, &mapping), -1);
    return mapping;
}

} // namespace

TEST(MediaMemory, GivesPhysicalAddressesAboveFourGiBInsideThePool) {
    uint64_t base = 0;
    uint64_t size = 0;
    kova_mpi_host_get_pool(&base, &size);
    EXPECT_GT(base, uint64_t{1} << 32);
    EXPECT_GE(size, uint64_t{1} << 24);
    const Memory memory = Allocate(5000);
    ASSERT_NE(memory.phy, 0u);
    EXPECT_GE(memory.phy, base);
    EXPECT_LE(memory.phy + 5000, base + size);
    EXPECT_NE(memory.phy, reinterpret_cast<uintptr_t>(memory.vir));
    EXPECT_EQ(KOVA_MPI_SYS_MmzFree(memory.phy, memory.vir), 0);
}

TEST(MediaMemory, BlocksStartAtAPageAndDoNotOverlap) {
    std::vector<Memory> all;
    const uint32_t sizes[] = {1, 4095, 4096, 4097, 65536, 1410052};
    for (const uint32_t size : sizes) {
        const Memory memory = Allocate(size);
        ASSERT_NE(memory.vir, nullptr);
        EXPECT_EQ(memory.phy % PageSize(), 0u);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(memory.vir) % PageSize(), 0u);
        all.push_back(memory);
    }
    for (size_t i = 0; i < all.size(); ++i) {
        std::memset(all[i].vir, static_cast<int>(i + 1), sizes[i]);
        if (i > 0) {
            EXPECT_GE(all[i].phy, all[i - 1].phy + sizes[i - 1]);
        }
    }
    for (size_t i = 0; i < all.size(); ++i) {
        const uint8_t* const bytes = all[i].bytes();
        EXPECT_TRUE(std::all_of(bytes, bytes + sizes[i], [&](uint8_t b) { return b == i + 1; }));
        EXPECT_EQ(KOVA_MPI_SYS_MmzFree(all[i].phy, all[i].vir), 0);
    }
}

TEST(MediaMemory, TakesTheFirstGapThatFits) {
    const uint32_t page = static_cast<uint32_t>(PageSize());
    const Memory a = Allocate(page);
    const Memory b = Allocate(2 * page);
    const Memory c = Allocate(page);
    ASSERT_EQ(KOVA_MPI_SYS_MmzFree(b.phy, b.vir), 0);
    EXPECT_EQ(Allocate(2 * page + 1).phy, c.phy + page);
    EXPECT_EQ(Allocate(page).phy, a.phy + page);
    EXPECT_EQ(Allocate(page).phy, a.phy + 2 * page);
}

TEST(MediaMemory, BlocksAreZeroAlsoWhereOneWasBefore) {
    const Memory first = Allocate(70000);
    EXPECT_TRUE(AllZero(first.bytes(), 70000));
    std::memset(first.vir, 0x5A, 70000);
    ASSERT_EQ(KOVA_MPI_SYS_MmzFree(first.phy, first.vir), 0);
    const Memory second = Allocate(70000);
    ASSERT_EQ(second.phy, first.phy);
    EXPECT_TRUE(AllZero(second.bytes(), 70000));
}

TEST(MediaMemory, KnowsEachBlockWithItsNameAndCaching) {
    uint64_t phy = 0;
    void* vir = nullptr;
    ASSERT_EQ(KOVA_MPI_SYS_MmzAlloc_Cached(&phy, &vir, "CACHED", "zone", 100), 0);
    const Memory plain = Allocate(200, "PLAIN");
    kova_mpi_host_block block{};
    ASSERT_EQ(kova_mpi_host_get_block(0, &block), 0);
    EXPECT_STREQ(block.name, "CACHED");
    EXPECT_EQ(block.phy, phy);
    EXPECT_EQ(block.vir, vir);
    EXPECT_EQ(block.size, 100u);
    EXPECT_EQ(block.cached, 1u);
    ASSERT_EQ(kova_mpi_host_get_block(1, &block), 0);
    EXPECT_STREQ(block.name, "PLAIN");
    EXPECT_EQ(block.phy, plain.phy);
    EXPECT_EQ(block.cached, 0u);
    EXPECT_EQ(kova_mpi_host_get_block(2, &block), -1);
}

TEST(MediaMemory, CountsLiveBlocksByName) {
    const Memory one = Allocate(100, "A");
    Allocate(50, "A");
    Allocate(7, "B");
    uint64_t bytes = 0;
    EXPECT_EQ(kova_mpi_host_blocks_named("A", &bytes), 2u);
    EXPECT_EQ(bytes, 150u);
    EXPECT_EQ(kova_mpi_host_blocks_named("B", nullptr), 1u);
    EXPECT_EQ(kova_mpi_host_blocks_named("C", &bytes), 0u);
    EXPECT_EQ(bytes, 0u);
    EXPECT_EQ(Usage().blocks, 3u);
    EXPECT_EQ(Usage().block_bytes, 157u);
    EXPECT_EQ(KOVA_MPI_SYS_MmzFree(one.phy, one.vir), 0);
    EXPECT_EQ(kova_mpi_host_blocks_named("A", &bytes), 1u);
    EXPECT_EQ(bytes, 50u);
}

TEST(MediaMemory, LongBlockNamesStayWhole) {
    const std::string name(100, 'x');
    Allocate(10, name.c_str());
    EXPECT_EQ(kova_mpi_host_blocks_named(name.c_str(), nullptr), 1u);
    kova_mpi_host_block block{};
    ASSERT_EQ(kova_mpi_host_get_block(0, &block), 0);
    EXPECT_EQ(std::string(block.name), name.substr(0, KOVA_MPI_HOST_NAME_SIZE - 1));
}

TEST(MediaMemory, RefusesBadAllocations) {
    uint64_t phy = 1;
    void* vir = &phy;
    EXPECT_EQ(KOVA_MPI_SYS_MmzAlloc(nullptr, &vir, "X", nullptr, 1), KOVA_SYS_ERR_NULL_PTR);
    EXPECT_EQ(KOVA_MPI_SYS_MmzAlloc(&phy, nullptr, "X", nullptr, 1), KOVA_SYS_ERR_NULL_PTR);
    EXPECT_EQ(KOVA_MPI_SYS_MmzAlloc(&phy, &vir, nullptr, nullptr, 1), KOVA_SYS_ERR_NULL_PTR);
    EXPECT_EQ(KOVA_MPI_SYS_MmzAlloc_Cached(&phy, &vir, "X", nullptr, 0),
              KOVA_SYS_ERR_ILLEGAL_PARAM);
    EXPECT_EQ(KOVA_MPI_SYS_MmzAlloc(&phy, &vir, "X", nullptr, UINT32_MAX), KOVA_SYS_ERR_NOMEM);
    EXPECT_EQ(phy, 1u);
    EXPECT_EQ(vir, &phy);
    EXPECT_EQ(Usage().blocks, 0u);
}

TEST(MediaMemory, IsFullAtThePoolsSizeAndServesAgainAfterAFree) {
    uint64_t base = 0;
    uint64_t size = 0;
    kova_mpi_host_get_pool(&base, &size);
    const uint32_t half = static_cast<uint32_t>(size / 2);
    // On a 32-bit target the process has little address space, so one half at a time is mapped.
    const Memory first = Allocate(half);
    ASSERT_NE(first.vir, nullptr);
    uint64_t phy = 0;
    void* vir = nullptr;
    EXPECT_EQ(KOVA_MPI_SYS_MmzAlloc(&phy, &vir, "X", nullptr, half + 1), KOVA_SYS_ERR_NOMEM);
    ASSERT_EQ(KOVA_MPI_SYS_MmzAlloc(&phy, &vir, "X", nullptr, half), 0);
    EXPECT_EQ(phy, first.phy + half);
    EXPECT_EQ(KOVA_MPI_SYS_MmzFree(first.phy, first.vir), 0);
    EXPECT_EQ(Allocate(half).phy, base);
}

TEST(MediaMemory, FreesOnlyWhatItHandedOut) {
    const Memory memory = Allocate(8192);
    int own = 0;
    EXPECT_EQ(KOVA_MPI_SYS_MmzFree(0, nullptr), KOVA_SYS_ERR_UNEXIST);
    EXPECT_EQ(KOVA_MPI_SYS_MmzFree(memory.phy, nullptr), KOVA_SYS_ERR_UNEXIST);
    EXPECT_EQ(KOVA_MPI_SYS_MmzFree(memory.phy, &own), KOVA_SYS_ERR_UNEXIST);
    EXPECT_EQ(KOVA_MPI_SYS_MmzFree(memory.phy + 4096, memory.vir), KOVA_SYS_ERR_UNEXIST);
    EXPECT_EQ(KOVA_MPI_SYS_MmzFree(static_cast<uint32_t>(memory.phy), memory.vir),
              KOVA_SYS_ERR_UNEXIST);
    EXPECT_EQ(KOVA_MPI_SYS_MmzFree(reinterpret_cast<uintptr_t>(memory.vir), memory.vir),
              KOVA_SYS_ERR_UNEXIST);
    memory.bytes()[8191] = 1; // still there
    EXPECT_EQ(Usage().block_bytes, 8192u);
    EXPECT_EQ(KOVA_MPI_SYS_MmzFree(memory.phy, memory.vir), 0);
    EXPECT_EQ(KOVA_MPI_SYS_MmzFree(memory.phy, memory.vir), KOVA_SYS_ERR_UNEXIST);
    EXPECT_EQ(Usage().blocks, 0u);
}

TEST(MediaMemory, MapsTheSameBytesAtAnotherAddress) {
    const Memory memory = Allocate(65536);
    memory.bytes()[100] = 7;
    uint8_t* const mapping = static_cast<uint8_t*>(KOVA_MPI_SYS_Mmap(memory.phy, 65536));
    ASSERT_NE(mapping, nullptr);
    EXPECT_NE(mapping, memory.bytes());
    EXPECT_EQ(mapping[100], 7);
    mapping[65535] = 9;
    EXPECT_EQ(memory.bytes()[65535], 9);
    EXPECT_EQ(Usage().mappings, 1u);
    EXPECT_EQ(Usage().mapping_bytes, 65536u);
    EXPECT_EQ(KOVA_MPI_SYS_Munmap(mapping, 65536), 0);
    EXPECT_EQ(Usage().mappings, 0u);
}

TEST(MediaMemory, MapsAnyRangeInsideABlock) {
    const Memory memory = Allocate(20000);
    for (uint32_t i = 0; i < 20000; ++i) {
        memory.bytes()[i] = static_cast<uint8_t>(i * 31 >> 3);
    }
    const struct {
        uint32_t offset, size;
    } ranges[] = {{0, 1}, {1, 19999}, {4095, 2}, {4096, 4096}, {12345, 678}, {19999, 1}};
    for (const auto& range : ranges) {
        void* const mapping = KOVA_MPI_SYS_Mmap(memory.phy + range.offset, range.size);
        ASSERT_NE(mapping, nullptr);
        EXPECT_EQ(std::memcmp(mapping, memory.bytes() + range.offset, range.size), 0);
        EXPECT_EQ(KOVA_MPI_SYS_Munmap(mapping, range.size), 0);
    }
}

TEST(MediaMemory, RefusesToMapWhatIsNotWhollyInOneLiveBlock) {
    const Memory memory = Allocate(4096);
    const Memory next = Allocate(4096);
    ASSERT_EQ(next.phy, memory.phy + 4096);
    kova_mpi_host_start_recording();
    EXPECT_EQ(KOVA_MPI_SYS_Mmap(memory.phy, 0), nullptr);
    EXPECT_EQ(KOVA_MPI_SYS_Mmap(memory.phy, 4097), nullptr); // runs into the next block
    EXPECT_EQ(KOVA_MPI_SYS_Mmap(memory.phy - 1, 2), nullptr);
    EXPECT_EQ(KOVA_MPI_SYS_Mmap(next.phy + 4096, 1), nullptr);
    EXPECT_EQ(KOVA_MPI_SYS_Mmap(next.phy + 1, UINT32_MAX), nullptr);
    EXPECT_EQ(KOVA_MPI_SYS_Mmap(static_cast<uint32_t>(memory.phy), 16), nullptr);
    EXPECT_EQ(KOVA_MPI_SYS_Mmap(reinterpret_cast<uintptr_t>(memory.vir), 16), nullptr);
    EXPECT_EQ(KOVA_MPI_SYS_Mmap(0, 16), nullptr);
    EXPECT_EQ(KOVA_MPI_SYS_Mmap(UINT64_MAX, 16), nullptr);
    ASSERT_EQ(kova_mpi_host_call_count(), 9u);
    for (uint32_t i = 0; i < 9; ++i) {
        kova_mpi_host_call call{};
        ASSERT_EQ(kova_mpi_host_get_call(i, &call), 0);
        EXPECT_EQ(call.result, i == 0 ? KOVA_SYS_ERR_ILLEGAL_PARAM : KOVA_SYS_ERR_UNEXIST);
    }
    EXPECT_EQ(Usage().mappings, 0u);
}

TEST(MediaMemory, RefusesABlockThatWasFreed) {
    const Memory memory = Allocate(4096);
    ASSERT_EQ(KOVA_MPI_SYS_MmzFree(memory.phy, memory.vir), 0);
    EXPECT_EQ(KOVA_MPI_SYS_Mmap(memory.phy, 4096), nullptr);
}

TEST(MediaMemory, MapsARangeThatIsMappedAlreadyOnlyOnce) {
    const Memory memory = Allocate(65536);
    void* const first = KOVA_MPI_SYS_Mmap(memory.phy, 65536);
    for (int i = 0; i < 5000; ++i) {
        ASSERT_EQ(KOVA_MPI_SYS_Mmap(memory.phy, 65536), first);
    }
    EXPECT_EQ(Usage().mappings, 1u);
    EXPECT_EQ(Usage().mapping_bytes, 65536u);
    void* const other = KOVA_MPI_SYS_Mmap(memory.phy, 65535);
    EXPECT_NE(other, first);
    EXPECT_EQ(Usage().mappings, 2u);
}

TEST(MediaMemory, AMappingGoesWithItsLastUser) {
    const Memory memory = Allocate(4096);
    uint8_t* const mapping = static_cast<uint8_t*>(KOVA_MPI_SYS_Mmap(memory.phy, 4096));
    ASSERT_EQ(KOVA_MPI_SYS_Mmap(memory.phy, 4096), mapping);
    EXPECT_EQ(OnlyMapping().users, 2u);
    EXPECT_EQ(KOVA_MPI_SYS_Munmap(mapping, 4096), 0);
    mapping[4095] = 3; // the other user's
    EXPECT_EQ(OnlyMapping().users, 1u);
    EXPECT_EQ(OnlyMapping().phy, memory.phy);
    EXPECT_EQ(OnlyMapping().vir, mapping);
    EXPECT_EQ(OnlyMapping().size, 4096u);
    EXPECT_EQ(KOVA_MPI_SYS_Munmap(mapping, 4096), 0);
    EXPECT_EQ(KOVA_MPI_SYS_Munmap(mapping, 4096), KOVA_SYS_ERR_UNEXIST);
    EXPECT_EQ(memory.bytes()[4095], 3);
}

TEST(MediaMemory, UnmapsOnlyWhatItMapped) {
    const Memory memory = Allocate(8192);
    uint8_t* const mapping = static_cast<uint8_t*>(KOVA_MPI_SYS_Mmap(memory.phy, 8192));
    std::vector<uint8_t> own(8192, 1);
    EXPECT_EQ(KOVA_MPI_SYS_Munmap(nullptr, 8192), KOVA_SYS_ERR_NULL_PTR);
    EXPECT_EQ(KOVA_MPI_SYS_Munmap(own.data(), 8192), KOVA_SYS_ERR_UNEXIST);
    EXPECT_EQ(KOVA_MPI_SYS_Munmap(memory.vir, 8192), KOVA_SYS_ERR_UNEXIST);
    EXPECT_EQ(KOVA_MPI_SYS_Munmap(mapping + 4096, 4096), KOVA_SYS_ERR_UNEXIST);
    EXPECT_EQ(KOVA_MPI_SYS_Munmap(mapping, 4096), KOVA_SYS_ERR_ILLEGAL_PARAM);
    EXPECT_EQ(KOVA_MPI_SYS_Munmap(mapping, 0), KOVA_SYS_ERR_ILLEGAL_PARAM);
    EXPECT_EQ(Usage().mappings, 1u);
    memory.bytes()[8191] = 77;
    EXPECT_EQ(mapping[8191], 77); // all still there
    EXPECT_EQ(own[8191], 1);
    EXPECT_EQ(KOVA_MPI_SYS_Munmap(mapping, 8192), 0);
}

// Software that unmaps the low half of a physical address in place of the mapping harms nothing:
// it is told so, and the mapping stays behind and shows.
TEST(MediaMemory, RefusesToUnmapTheLowHalfOfAPhysicalAddress) {
    const Memory memory = Allocate(65536);
    uint8_t* const mapping = static_cast<uint8_t*>(KOVA_MPI_SYS_Mmap(memory.phy, 65536));
    mapping[0] = 42;
    EXPECT_EQ(KOVA_MPI_SYS_Munmap(LowHalf(memory.phy), 65536), KOVA_SYS_ERR_UNEXIST);
    EXPECT_EQ(mapping[0], 42);
    EXPECT_EQ(memory.bytes()[0], 42);
    EXPECT_EQ(Usage().mappings, 1u);
    EXPECT_EQ(KOVA_MPI_SYS_Mmap(memory.phy, 65536), mapping);
    EXPECT_EQ(Usage().mappings, 1u);
}

TEST(MediaMemory, FreeingABlockRemovesWhatIsStillMappedOfIt) {
    const Memory memory = Allocate(8192);
    const Memory other = Allocate(8192);
    void* const part = KOVA_MPI_SYS_Mmap(memory.phy + 100, 50);
    void* const whole = KOVA_MPI_SYS_Mmap(memory.phy, 8192);
    void* const kept = KOVA_MPI_SYS_Mmap(other.phy, 8192);
    EXPECT_EQ(Usage().mappings, 3u);
    EXPECT_EQ(KOVA_MPI_SYS_MmzFree(memory.phy, memory.vir), 0);
    EXPECT_EQ(Usage().mappings, 1u);
    EXPECT_EQ(OnlyMapping().vir, kept);
    EXPECT_EQ(KOVA_MPI_SYS_Munmap(whole, 8192), KOVA_SYS_ERR_UNEXIST);
    EXPECT_EQ(KOVA_MPI_SYS_Munmap(part, 50), KOVA_SYS_ERR_UNEXIST);
    EXPECT_EQ(KOVA_MPI_SYS_Munmap(kept, 8192), 0);
}

TEST(MediaMemory, ResetFreesEverything) {
    const Memory memory = Allocate(4096);
    ASSERT_NE(KOVA_MPI_SYS_Mmap(memory.phy, 4096), nullptr);
    int32_t handle = -1;
    ASSERT_EQ(KOVA_MPI_VGS_BeginJob(&handle), 0);
    ASSERT_EQ(kova_mpi_host_fail_call("KOVA_MPI_SYS_MmzAlloc", 1, 5, 1), 0);
    kova_mpi_host_start_recording();
    kova_mpi_host_reset();
    const kova_mpi_host_usage usage = Usage();
    EXPECT_EQ(usage.blocks, 0u);
    EXPECT_EQ(usage.block_bytes, 0u);
    EXPECT_EQ(usage.mappings, 0u);
    EXPECT_EQ(usage.mapping_bytes, 0u);
    EXPECT_EQ(usage.jobs, 0u);
    EXPECT_EQ(KOVA_MPI_VGS_EndJob(handle), KOVA_VGS_ERR_UNEXIST);
    EXPECT_EQ(KOVA_MPI_SYS_MmzFree(memory.phy, memory.vir), KOVA_SYS_ERR_UNEXIST);
    EXPECT_NE(Allocate(4096).vir, nullptr);
    EXPECT_EQ(kova_mpi_host_call_count(), 0u);
}

// Using a physical address as a pointer, whole or cut to 32 bits, faults at once.
using MediaMemoryDeathTest = testing::Test;

TEST(MediaMemoryDeathTest, ThePhysicalAddressIsNoPointer) {
    const Memory memory = Allocate(65536);
    // Under 32-bit targets the cut to the pointer's size is the low half.
    volatile uint8_t* const whole =
        reinterpret_cast<volatile uint8_t*>(static_cast<uintptr_t>(memory.phy));
    EXPECT_DEATH(*whole = 1, "");
}

TEST(MediaMemoryDeathTest, TheLowHalfOfThePhysicalAddressIsNoPointer) {
    const Memory memory = Allocate(65536);
    volatile uint8_t* const low = static_cast<volatile uint8_t*>(LowHalf(memory.phy + 65535));
    EXPECT_DEATH(*low = 1, "");
}

TEST(MediaMemoryDeathTest, NoPointerReachesPastABlocksPages) {
    const Memory memory = Allocate(65536);
    const Memory next = Allocate(65536);
    ASSERT_EQ(next.phy, memory.phy + 65536);
    volatile uint8_t* const bytes = memory.bytes();
    EXPECT_DEATH(bytes[65536] = 1, "");
    EXPECT_DEATH(*(bytes - 1) = 1, "");
}

TEST(MediaMemoryDeathTest, AMappingOfAFreedBlockIsGone) {
    const Memory memory = Allocate(4096);
    volatile uint8_t* const mapping =
        static_cast<volatile uint8_t*>(KOVA_MPI_SYS_Mmap(memory.phy, 4096));
    ASSERT_EQ(KOVA_MPI_SYS_MmzFree(memory.phy, memory.vir), 0);
    EXPECT_DEATH(*mapping = 1, "");
}
