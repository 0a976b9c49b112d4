// SPDX-License-Identifier: MIT
// A process without memory: each call of the stand-in answers with a status, keeps nothing, and succeeds later.
// No exception may leave it, since the library that calls it is built without them and would keep its lock.
#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <new>

#include "platform/platform_fixture.h"

using namespace platform_test;

namespace {

int g_untilFailure = 0; // allocations up to the one that fails; 0: none fails

constexpr char kLongName[] = "a name that does not fit into the string itself";
constexpr uint32_t kSide = 256;

// Fails the first allocation of `call`, the second, and so on, until it makes so few; returns how many failed.
int FailEach(int32_t noMemory, const std::function<int32_t()>& call) {
    for (int at = 1;; ++at) {
        const kova_mpi_host_usage before = Usage();
        g_untilFailure = at;
        const int32_t result = call();
        const bool failed = g_untilFailure == 0;
        g_untilFailure = 0;
        if (!failed) {
            EXPECT_EQ(result, 0);
            return at - 1;
        }
        EXPECT_EQ(result, noMemory) << "allocation " << at;
        const kova_mpi_host_usage after = Usage();
        EXPECT_EQ(after.blocks, before.blocks);
        EXPECT_EQ(after.mappings, before.mappings);
    }
}

TEST(NoMemory, EveryCallAnswersAndKeepsNothing) {
    Memory in, out;
    EXPECT_GE(FailEach(KOVA_SYS_ERR_NOMEM,
                       [&] {
                           return KOVA_MPI_SYS_MmzAlloc(&in.phy, &in.vir, kLongName, nullptr,
                                                        kSide * kSide);
                       }),
              2);
    EXPECT_GE(FailEach(KOVA_SYS_ERR_NOMEM,
                       [&] {
                           return KOVA_MPI_SYS_MmzAlloc_Cached(&out.phy, &out.vir, kLongName,
                                                               nullptr, kSide * kSide);
                       }),
              2);
    void* mapped = nullptr;
    EXPECT_GE(FailEach(KOVA_SYS_ERR_NOMEM,
                       [&] {
                           mapped = KOVA_MPI_SYS_Mmap(in.phy, kSide);
                           return mapped == nullptr ? KOVA_SYS_ERR_NOMEM : 0;
                       }),
              1);
    int32_t handle = -1;
    EXPECT_GE(FailEach(KOVA_VGS_ERR_NOMEM, [&] { return KOVA_MPI_VGS_BeginJob(&handle); }), 1);
    kova_vgs_task task{};
    task.in = Frame(in.phy, kSide, kSide, kSide);
    task.out = Frame(out.phy, kSide / 2, kSide / 2, kSide / 2);
    EXPECT_GE(
        FailEach(
            KOVA_VGS_ERR_NOMEM,
            [&] { return KOVA_MPI_VGS_AddScaleTask(handle, &task, KOVA_VGS_SCALE_COEF_NORMAL); }),
        1);
    EXPECT_GE(FailEach(KOVA_VGS_ERR_NOMEM, [&] { return KOVA_MPI_VGS_EndJob(handle); }), 1);
    EXPECT_EQ(KOVA_MPI_SYS_Munmap(mapped, kSide), 0);
    EXPECT_EQ(KOVA_MPI_SYS_MmzFree(in.phy, in.vir), 0);
    EXPECT_EQ(KOVA_MPI_SYS_MmzFree(out.phy, out.vir), 0);
}

TEST(NoMemory, ARecordWithoutRoomIsCountedAlone) {
    kova_mpi_host_start_recording();
    g_untilFailure = 1;
    Memory none;
    EXPECT_EQ(KOVA_MPI_SYS_MmzFree(none.phy, none.vir), KOVA_SYS_ERR_UNEXIST);
    EXPECT_EQ(g_untilFailure, 0);
    EXPECT_EQ(KOVA_MPI_SYS_MmzFree(none.phy, none.vir), KOVA_SYS_ERR_UNEXIST);
    EXPECT_EQ(kova_mpi_host_call_count(), 2u);
}

} // namespace

// In place of the standard library's, for the stand-in as well. Inlined, GCC would take them for a mismatch.
[[gnu::noinline]] ORVO_API void* operator new(size_t size) {
    if (g_untilFailure > 0 && --g_untilFailure == 0) {
        throw std::bad_alloc();
    }
    if (void* const memory = std::malloc(size == 0 ? 1 : size)) {
        return memory;
    }
    throw std::bad_alloc();
}
[[gnu::noinline]] ORVO_API void operator delete(void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] ORVO_API void operator delete(void* memory, size_t) noexcept {
    std::free(memory);
}
