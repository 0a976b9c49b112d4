// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include "device_api/device_fixture.h"

using namespace device_test;

namespace {

const Outcome kOk = {KOVA_FR_OK, ""};

// Every init but the first in the life of the process hears this from the core and goes on.
const std::string kRepeatInit = Core("Repeat init.\n");
const Outcome kOkAgain = {KOVA_FR_OK, kRepeatInit};

const Outcome kNotInitialised = {KOVA_FR_ERR_UNEXIST,
                                 Device("kova_fr_deinit", "fr already deinited\n")};

} // namespace

TEST(DeviceInit, TwiceIsRefusedTheSecondTime) {
    EXPECT_EQ(Observe(kova_fr_init), kOk);
    const kova_mpi_host_usage before = Usage();
    kova_mpi_host_start_recording();
    EXPECT_EQ(Observe(kova_fr_init),
              (Outcome{0xa03f8004, Device("kova_fr_init", "fr already inited\n")}));
    EXPECT_EQ(kova_mpi_host_call_count(), 0u);
    EXPECT_EQ(Usage().blocks, before.blocks);
    EXPECT_TRUE(IsInitialised());
    EXPECT_EQ(Observe(kova_fr_deinit), kOk);
    ExpectNothingInUse();
}

TEST(DeviceInit, AfterDeinitSucceedsAndTheCoreSaysThatItWasInitialisedBefore) {
    EXPECT_EQ(Observe(kova_fr_init), kOk);
    EXPECT_EQ(Observe(kova_fr_deinit), kOk);
    EXPECT_EQ(Observe(kova_fr_init), kOkAgain);
    EXPECT_TRUE(IsInitialised());
    EXPECT_EQ(Observe(kova_fr_deinit), kOk);
    EXPECT_EQ(Observe(kova_fr_init), kOkAgain);
    EXPECT_EQ(Observe(kova_fr_deinit), kOk);
    ExpectNothingInUse();
}

TEST(DeviceInit, AllocatesTheWorkingMemoryAndHandsItToTheCore) {
    kova_mpi_host_start_recording();
    EXPECT_EQ(Observe(kova_fr_init), kOk);
    const std::vector<kova_mpi_host_call> calls = Calls();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_STREQ(calls[0].function, "KOVA_MPI_SYS_MmzAlloc_Cached");
    EXPECT_STREQ(calls[0].name, "FR_MEM");
    EXPECT_EQ(calls[0].has_zone, 0u);
    EXPECT_EQ(calls[0].size, 1410052u);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(g_frInnerImage), calls[0].vir + 1382404);
    kova_mpi_host_block block{};
    ASSERT_EQ(kova_mpi_host_get_block(0, &block), 0);
    EXPECT_STREQ(block.name, "FR_MEM");
    EXPECT_EQ(block.cached, 1u);
    EXPECT_EQ(Observe(kova_fr_deinit), kOk);
}

TEST(DeviceInit, FailsWhenTheAllocationFailsAndStaysUninitialised) {
    ASSERT_EQ(kova_mpi_host_fail_call("KOVA_MPI_SYS_MmzAlloc_Cached", 1, kPlatformCode, 0), 0);
    kova_mpi_host_start_recording();
    EXPECT_EQ(Observe(kova_fr_init),
              (Outcome{0xa03f800c, Device("kova_fr_init", "malloc failed, Error(0xa0ff1234)\n")}));
    EXPECT_EQ(CallNames(), std::vector<std::string>{"KOVA_MPI_SYS_MmzAlloc_Cached"});
    ExpectNothingInUse();
    EXPECT_FALSE(IsInitialised());
    EXPECT_EQ(Observe(kova_fr_deinit), kNotInitialised);
    EXPECT_EQ(Observe(kova_fr_init), kOkAgain); // the models are deciphered already
    EXPECT_EQ(Observe(kova_fr_deinit), kOk);
    ExpectNothingInUse();
}

TEST(DeviceInit, FailsWhenTheCoreRefusesABlockWithoutVirtualAddress) {
    ASSERT_EQ(
        kova_mpi_host_blank_address("KOVA_MPI_SYS_MmzAlloc_Cached", 1, KOVA_MPI_HOST_BLANK_VIR, 0),
        0);
    kova_mpi_host_start_recording();
    EXPECT_EQ(
        Observe(kova_fr_init),
        (Outcome{0xa03f800c, Core("OrvoFrSetMemory failed. Input addr is null!\n\n") +
                                 Device("kova_fr_init", "OrvoFrSetMemory failed, Error(0x1)\n")}));
    // A block with an address missing is not given back.
    EXPECT_EQ(CallNames(), std::vector<std::string>{"KOVA_MPI_SYS_MmzAlloc_Cached"});
    EXPECT_EQ(kova_mpi_host_blocks_named("FR_MEM", nullptr), 1u);
    EXPECT_FALSE(IsInitialised());
    EXPECT_EQ(Observe(kova_fr_init), kOkAgain);
    EXPECT_EQ(Observe(kova_fr_deinit), kOk);
}

TEST(DeviceInit, ABlockWithoutPhysicalAddressServesButIsNotGivenBack) {
    ASSERT_EQ(
        kova_mpi_host_blank_address("KOVA_MPI_SYS_MmzAlloc_Cached", 1, KOVA_MPI_HOST_BLANK_PHY, 0),
        0);
    EXPECT_EQ(Observe(kova_fr_init), kOk);
    EXPECT_TRUE(IsInitialised());
    kova_mpi_host_start_recording();
    EXPECT_EQ(Observe(kova_fr_deinit), kOk);
    EXPECT_EQ(kova_mpi_host_call_count(), 0u);
    EXPECT_FALSE(IsInitialised());
    EXPECT_EQ(kova_mpi_host_blocks_named("FR_MEM", nullptr), 1u);
}

TEST(DeviceDeinit, WithoutInitIsRefused) {
    kova_mpi_host_start_recording();
    EXPECT_EQ(Observe(kova_fr_deinit), kNotInitialised);
    EXPECT_EQ(kova_mpi_host_call_count(), 0u);
    EXPECT_EQ(kNotInitialised.code, 0xa03f8005);
}

TEST(DeviceDeinit, TwiceIsRefusedTheSecondTime) {
    EXPECT_EQ(Observe(kova_fr_init), kOk);
    EXPECT_EQ(Observe(kova_fr_deinit), kOk);
    EXPECT_EQ(Observe(kova_fr_deinit), kNotInitialised);
}

TEST(DeviceDeinit, FreesTheWorkingMemoryByBothItsAddresses) {
    EXPECT_EQ(Observe(kova_fr_init), kOk);
    kova_mpi_host_block block{};
    ASSERT_EQ(kova_mpi_host_get_block(0, &block), 0);
    kova_mpi_host_start_recording();
    EXPECT_EQ(Observe(kova_fr_deinit), kOk);
    const std::vector<kova_mpi_host_call> calls = Calls();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_STREQ(calls[0].function, "KOVA_MPI_SYS_MmzFree");
    EXPECT_EQ(calls[0].phy, block.phy);
    EXPECT_EQ(calls[0].vir, reinterpret_cast<uintptr_t>(block.vir));
    ExpectNothingInUse();
}

TEST(DeviceDeinit, PassesTheCodeOfAFailedFreeOnAndStaysInitialised) {
    EXPECT_EQ(Observe(kova_fr_init), kOk);
    ASSERT_EQ(kova_mpi_host_fail_call("KOVA_MPI_SYS_MmzFree", 1, kPlatformCode, 0), 0);
    EXPECT_EQ(Observe(kova_fr_deinit),
              (Outcome{0xa0ff1234, Device("kova_fr_deinit", "free failed, Error(0xa0ff1234)\n")}));
    EXPECT_TRUE(IsInitialised());
    EXPECT_EQ(kova_mpi_host_blocks_named("FR_MEM", nullptr), 1u);
    EXPECT_EQ(Observe(kova_fr_init),
              (Outcome{0xa03f8004, Device("kova_fr_init", "fr already inited\n")}));
    EXPECT_EQ(Observe(kova_fr_deinit), kOk); // the block is still recorded
    ExpectNothingInUse();
}
