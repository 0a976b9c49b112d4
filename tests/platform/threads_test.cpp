// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <algorithm>
#include <thread>
#include <vector>

#include "platform/platform_fixture.h"

using namespace platform_test;

namespace {

// Allocates, maps, scales, looks around and gives back, and sees only its own bytes.
void UseThePlatform(uint8_t mark, int rounds, int* failures) {
    const auto check = [&](bool ok) { *failures += ok ? 0 : 1; };
    for (int round = 0; round < rounds; ++round) {
        const Memory in = Allocate(32 * 32);
        const Memory out = Allocate(48 * 40);
        check(in.vir != nullptr && out.vir != nullptr);
        uint8_t* const mapping = static_cast<uint8_t*>(KOVA_MPI_SYS_Mmap(in.phy, 32 * 32));
        check(mapping != nullptr);
        std::memset(mapping, mark, 32 * 32);
        check(KOVA_MPI_SYS_Munmap(LowHalf(in.phy), 32 * 32) == KOVA_SYS_ERR_UNEXIST);
        check(KOVA_MPI_SYS_Munmap(mapping, 32 * 32) == 0);
        kova_vgs_task task{};
        task.in = Frame(in.phy, 32, 32, 32);
        task.out = Frame(out.phy, 48, 40, 48);
        int32_t handle = -1;
        check(KOVA_MPI_VGS_BeginJob(&handle) == 0);
        check(KOVA_MPI_VGS_AddScaleTask(handle, &task, 1) == 0);
        if (round % 3 == 0) {
            check(KOVA_MPI_VGS_CancelJob(handle) == 0);
        } else {
            check(KOVA_MPI_VGS_EndJob(handle) == 0);
            check(std::all_of(out.bytes(), out.bytes() + 48 * 40,
                              [=](uint8_t b) { return b == mark; }));
        }
        check(Usage().blocks >= 2);
        kova_mpi_host_block block{};
        check(kova_mpi_host_get_block(0, &block) == 0);
        check(KOVA_MPI_SYS_MmzFree(in.phy, in.vir) == 0);
        check(KOVA_MPI_SYS_MmzFree(out.phy, out.vir) == 0);
    }
}

} // namespace

TEST(PlatformThreads, EightThreadsUseThePlatformAtOnce) {
    constexpr int kThreads = 8;
    constexpr int kRounds = 60;
    kova_mpi_host_start_recording();
    int failures[kThreads] = {};
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back(UseThePlatform, static_cast<uint8_t>(i + 1), kRounds, &failures[i]);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (const int failed : failures) {
        EXPECT_EQ(failed, 0);
    }
    EXPECT_EQ(Usage().blocks, 0u);
    EXPECT_EQ(Usage().mappings, 0u);
    EXPECT_EQ(Usage().jobs, 0u);
    // Per round: two allocations and frees, a map and two unmaps, three calls of the scaler.
    EXPECT_EQ(kova_mpi_host_call_count(), uint32_t{kThreads * kRounds * 10});
}
