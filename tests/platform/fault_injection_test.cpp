// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <string>

#include "platform/platform_fixture.h"

using namespace platform_test;

namespace {

constexpr int32_t kCode = static_cast<int32_t>(0xA0FF1234);

kova_mpi_host_call Call(uint32_t index) {
    kova_mpi_host_call call{};
    EXPECT_EQ(kova_mpi_host_get_call(index, &call), 0);
    return call;
}

} // namespace

TEST(FaultInjection, FailsTheNthCallOnce) {
    uint64_t phy = 0;
    void* vir = nullptr;
    ASSERT_EQ(kova_mpi_host_fail_call("KOVA_MPI_SYS_MmzAlloc", 3, kCode, 0), 0);
    const int32_t expected[] = {0, 0, kCode, 0, 0};
    for (const int32_t result : expected) {
        EXPECT_EQ(KOVA_MPI_SYS_MmzAlloc(&phy, &vir, "X", nullptr, 16), result);
    }
    EXPECT_EQ(Usage().blocks, 4u);
}

TEST(FaultInjection, FailsForGoodFromTheNthCallOn) {
    uint64_t phy = 0;
    void* vir = nullptr;
    ASSERT_EQ(kova_mpi_host_fail_call("KOVA_MPI_SYS_MmzAlloc_Cached", 2, kCode, 1), 0);
    const int32_t expected[] = {0, kCode, kCode, kCode};
    for (const int32_t result : expected) {
        EXPECT_EQ(KOVA_MPI_SYS_MmzAlloc_Cached(&phy, &vir, "X", nullptr, 16), result);
    }
    kova_mpi_host_clear_faults();
    EXPECT_EQ(KOVA_MPI_SYS_MmzAlloc_Cached(&phy, &vir, "X", nullptr, 16), 0);
}

TEST(FaultInjection, AFailedCallDoesNothing) {
    const Memory memory = Allocate(4096);
    void* const mapping = KOVA_MPI_SYS_Mmap(memory.phy, 4096);
    int32_t handle = -1;
    ASSERT_EQ(KOVA_MPI_VGS_BeginJob(&handle), 0);
    const char* const names[] = {
        "KOVA_MPI_SYS_MmzAlloc",     "KOVA_MPI_SYS_MmzAlloc_Cached", "KOVA_MPI_SYS_MmzFree",
        "KOVA_MPI_SYS_Mmap",         "KOVA_MPI_SYS_Munmap",          "KOVA_MPI_VGS_BeginJob",
        "KOVA_MPI_VGS_AddScaleTask", "KOVA_MPI_VGS_EndJob",          "KOVA_MPI_VGS_CancelJob"};
    for (const char* name : names) {
        ASSERT_EQ(kova_mpi_host_fail_call(name, 1, kCode, 0), 0);
    }
    uint64_t phy = 5;
    void* vir = &phy;
    int32_t untouched = -1;
    kova_vgs_task task{};
    EXPECT_EQ(KOVA_MPI_SYS_MmzAlloc(&phy, &vir, "X", nullptr, 1), kCode);
    EXPECT_EQ(KOVA_MPI_SYS_MmzAlloc_Cached(&phy, &vir, "X", nullptr, 1), kCode);
    EXPECT_EQ(KOVA_MPI_SYS_MmzFree(memory.phy, memory.vir), kCode);
    EXPECT_EQ(KOVA_MPI_SYS_Mmap(memory.phy, 16), nullptr);
    EXPECT_EQ(KOVA_MPI_SYS_Munmap(mapping, 4096), kCode);
    EXPECT_EQ(KOVA_MPI_VGS_BeginJob(&untouched), kCode);
    EXPECT_EQ(KOVA_MPI_VGS_AddScaleTask(handle, &task, 1), kCode);
    EXPECT_EQ(KOVA_MPI_VGS_EndJob(handle), kCode);
    EXPECT_EQ(KOVA_MPI_VGS_CancelJob(handle), kCode);
    EXPECT_EQ(phy, 5u);
    EXPECT_EQ(vir, &phy);
    EXPECT_EQ(untouched, -1);
    const kova_mpi_host_usage usage = Usage();
    EXPECT_EQ(usage.blocks, 1u);
    EXPECT_EQ(usage.mappings, 1u);
    EXPECT_EQ(usage.jobs, 1u);
    // Every fault was for one call only.
    EXPECT_EQ(KOVA_MPI_VGS_CancelJob(handle), 0);
    EXPECT_EQ(KOVA_MPI_SYS_Munmap(mapping, 4096), 0);
    EXPECT_EQ(KOVA_MPI_SYS_MmzFree(memory.phy, memory.vir), 0);
}

TEST(FaultInjection, RefusesUnknownFunctionsAndEmptyFaults) {
    EXPECT_EQ(kova_mpi_host_fail_call("KOVA_MPI_SYS_Nothing", 1, kCode, 0), -1);
    EXPECT_EQ(kova_mpi_host_fail_call(nullptr, 1, kCode, 0), -1);
    EXPECT_EQ(kova_mpi_host_fail_call("KOVA_MPI_SYS_Mmap", 0, kCode, 0), -1);
    EXPECT_EQ(kova_mpi_host_fail_call("KOVA_MPI_SYS_Mmap", 1, 0, 0), -1);
    EXPECT_EQ(kova_mpi_host_blank_address("KOVA_MPI_SYS_Mmap", 1, KOVA_MPI_HOST_BLANK_VIR, 0), -1);
    EXPECT_EQ(kova_mpi_host_blank_address("KOVA_MPI_SYS_MmzAlloc", 0, KOVA_MPI_HOST_BLANK_VIR, 0),
              -1);
    const Memory memory = Allocate(64);
    EXPECT_NE(KOVA_MPI_SYS_Mmap(memory.phy, 64), nullptr);
}

TEST(FaultInjection, LeavesOutTheVirtualAddress) {
    ASSERT_EQ(kova_mpi_host_blank_address("KOVA_MPI_SYS_MmzAlloc", 2, KOVA_MPI_HOST_BLANK_VIR, 0),
              0);
    uint64_t phy = 0;
    void* vir = nullptr;
    ASSERT_EQ(KOVA_MPI_SYS_MmzAlloc(&phy, &vir, "X", nullptr, 64), 0);
    EXPECT_NE(vir, nullptr);
    ASSERT_EQ(KOVA_MPI_SYS_MmzAlloc(&phy, &vir, "X", nullptr, 64), 0);
    EXPECT_EQ(vir, nullptr);
    EXPECT_NE(KOVA_MPI_SYS_Mmap(phy, 64), nullptr); // the block is really there
    EXPECT_EQ(KOVA_MPI_SYS_MmzFree(phy, nullptr), 0);
    EXPECT_EQ(Usage().blocks, 1u);
    EXPECT_EQ(Usage().mappings, 0u);
}

TEST(FaultInjection, LeavesOutThePhysicalAddressForGood) {
    ASSERT_EQ(
        kova_mpi_host_blank_address("KOVA_MPI_SYS_MmzAlloc_Cached", 1, KOVA_MPI_HOST_BLANK_PHY, 1),
        0);
    for (uint32_t i = 1; i <= 2; ++i) {
        uint64_t phy = 1;
        void* vir = nullptr;
        ASSERT_EQ(KOVA_MPI_SYS_MmzAlloc_Cached(&phy, &vir, "X", nullptr, 64), 0);
        EXPECT_EQ(phy, 0u);
        ASSERT_NE(vir, nullptr);
        static_cast<uint8_t*>(vir)[63] = 1;
        EXPECT_EQ(Usage().blocks, i);
        if (i == 2) {
            EXPECT_EQ(KOVA_MPI_SYS_MmzFree(0, vir), 0);
        }
    }
    EXPECT_EQ(Usage().blocks, 1u);
}

TEST(CallRecord, HoldsTheCallsInOrderWithArgumentsAndResults) {
    Allocate(32); // before the start: not in the record
    kova_mpi_host_start_recording();
    uint64_t phy = 0;
    void* vir = nullptr;
    ASSERT_EQ(KOVA_MPI_SYS_MmzAlloc_Cached(&phy, &vir, "FIRST", nullptr, 4096), 0);
    EXPECT_EQ(KOVA_MPI_SYS_MmzAlloc(&phy, &vir, "ZONED", "zone", 0), KOVA_SYS_ERR_ILLEGAL_PARAM);
    void* const mapping = KOVA_MPI_SYS_Mmap(phy, 256);
    EXPECT_EQ(KOVA_MPI_SYS_Munmap(mapping, 256), 0);
    int32_t handle = -1;
    ASSERT_EQ(KOVA_MPI_VGS_BeginJob(&handle), 0);
    kova_vgs_task task{};
    task.in = Frame(phy, 16, 16, 16);
    task.in.pool_id = 77;
    task.out = Frame(phy + 1024, 8, 8, 8);
    EXPECT_EQ(KOVA_MPI_VGS_AddScaleTask(handle, &task, 1), 0);
    EXPECT_EQ(KOVA_MPI_VGS_EndJob(handle), 0);
    EXPECT_EQ(KOVA_MPI_VGS_CancelJob(handle), KOVA_VGS_ERR_UNEXIST);
    EXPECT_EQ(KOVA_MPI_SYS_MmzFree(phy, vir), 0);
    kova_mpi_host_stop_recording();
    Allocate(32); // after the end

    ASSERT_EQ(kova_mpi_host_call_count(), 9u);
    EXPECT_STREQ(Call(0).function, "KOVA_MPI_SYS_MmzAlloc_Cached");
    EXPECT_STREQ(Call(0).name, "FIRST");
    EXPECT_EQ(Call(0).size, 4096u);
    EXPECT_EQ(Call(0).has_zone, 0u);
    EXPECT_EQ(Call(0).handle, -1);
    EXPECT_EQ(Call(0).phy, phy);
    EXPECT_EQ(Call(0).vir, reinterpret_cast<uintptr_t>(vir));
    EXPECT_STREQ(Call(1).function, "KOVA_MPI_SYS_MmzAlloc");
    EXPECT_EQ(Call(1).has_zone, 1u);
    EXPECT_EQ(Call(1).result, KOVA_SYS_ERR_ILLEGAL_PARAM);
    EXPECT_STREQ(Call(2).function, "KOVA_MPI_SYS_Mmap");
    EXPECT_EQ(Call(2).phy, phy);
    EXPECT_EQ(Call(2).size, 256u);
    EXPECT_EQ(Call(2).vir, reinterpret_cast<uintptr_t>(mapping));
    EXPECT_STREQ(Call(3).function, "KOVA_MPI_SYS_Munmap");
    EXPECT_EQ(Call(3).vir, reinterpret_cast<uintptr_t>(mapping));
    EXPECT_STREQ(Call(4).function, "KOVA_MPI_VGS_BeginJob");
    EXPECT_EQ(Call(4).handle, handle);
    EXPECT_STREQ(Call(5).function, "KOVA_MPI_VGS_AddScaleTask");
    EXPECT_EQ(Call(5).mode, 1u);
    EXPECT_EQ(Call(5).task.in.pool_id, 77u);
    EXPECT_EQ(Call(5).task.out.phy_addr[0], phy + 1024);
    EXPECT_STREQ(Call(6).function, "KOVA_MPI_VGS_EndJob");
    EXPECT_EQ(Call(6).handle, handle);
    EXPECT_STREQ(Call(7).function, "KOVA_MPI_VGS_CancelJob");
    EXPECT_EQ(Call(7).result, KOVA_VGS_ERR_UNEXIST);
    EXPECT_STREQ(Call(8).function, "KOVA_MPI_SYS_MmzFree");
    EXPECT_EQ(Call(8).phy, phy);
    EXPECT_EQ(Call(8).vir, reinterpret_cast<uintptr_t>(vir));
    kova_mpi_host_call none{};
    EXPECT_EQ(kova_mpi_host_get_call(9, &none), -1);
}

TEST(CallRecord, HoldsFailedCallsWithTheirCode) {
    kova_mpi_host_start_recording();
    ASSERT_EQ(kova_mpi_host_fail_call("KOVA_MPI_SYS_Mmap", 1, kCode, 0), 0);
    EXPECT_EQ(KOVA_MPI_SYS_Mmap(1, 2), nullptr);
    ASSERT_EQ(kova_mpi_host_call_count(), 1u);
    EXPECT_EQ(Call(0).result, kCode);
    EXPECT_EQ(Call(0).phy, 1u);
}

TEST(CallRecord, StaysBoundedAndGoesOnCounting) {
    kova_mpi_host_start_recording();
    for (int i = 0; i < 5000; ++i) {
        KOVA_MPI_VGS_CancelJob(i);
    }
    EXPECT_EQ(kova_mpi_host_call_count(), 5000u);
    EXPECT_EQ(Call(4095).handle, 4095);
    kova_mpi_host_call call{};
    EXPECT_EQ(kova_mpi_host_get_call(4096, &call), -1);
    kova_mpi_host_start_recording();
    EXPECT_EQ(kova_mpi_host_call_count(), 0u);
}
