// SPDX-License-Identifier: MIT
// Under a limit of the address space (ulimit -v) the pool leaves room for the memory that it is to
// hand out, however narrow the limit is.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>

#include "platform/platform_fixture.h"

using namespace platform_test;

namespace {

constexpr uint32_t kWorkingMemory = 1410052; // what the library asks for first
constexpr uint32_t kFrame = 256 * 256;
// Half of it fits the pool.
constexpr uint64_t kWidestLimit = uint64_t{sizeof(void*) >= 8 ? 1400 : 160} << 20;

uint64_t AddressesInUse() {
    unsigned long long pages = 0;
    FILE* const file = std::fopen("/proc/self/statm", "r");
    EXPECT_NE(file, nullptr);
    EXPECT_EQ(std::fscanf(file, "%llu", &pages), 1);
    std::fclose(file);
    return pages * static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
}

bool LeaveAddresses(uint64_t left) {
    rlimit limit{};
    limit.rlim_cur = limit.rlim_max = static_cast<rlim_t>(AddressesInUse() + left);
    return setrlimit(RLIMIT_AS, &limit) == 0;
}

// What a process of its own makes of `isTrue`.
bool InAProcess(bool (*isTrue)()) {
    const pid_t child = fork();
    if (child == 0) {
        _exit(isTrue() ? 0 : 1);
    }
    int status = 1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

// Whether a process with so many bytes of addresses left gets that memory from a platform that it
// opens then.
bool IsHandedOut(uint64_t left, std::initializer_list<uint32_t> sizes) {
    const pid_t child = fork();
    if (child == 0) {
        if (!LeaveAddresses(left)) {
            _exit(2);
        }
        for (const uint32_t size : sizes) {
            const Memory memory = Allocate(size);
            if (memory.vir == nullptr) {
                _exit(1);
            }
            std::memset(memory.vir, 1, size);
        }
        _exit(0);
    }
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_LE(WEXITSTATUS(status), 1);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

// Until it goes the process gets no more of what is limited.
class NoMore {
  public:
    NoMore(decltype(RLIMIT_AS) what, uint64_t most) : what_(what) {
        EXPECT_EQ(getrlimit(what, &before_), 0);
        rlimit limit = before_;
        limit.rlim_cur = static_cast<rlim_t>(most);
        EXPECT_EQ(setrlimit(what, &limit), 0);
    }
    ~NoMore() { setrlimit(what_, &before_); }
    NoMore(const NoMore&) = delete;
    NoMore& operator=(const NoMore&) = delete;

  private:
    decltype(RLIMIT_AS) what_;
    rlimit before_{};
};

// Emulators of other processors take the limit and do not keep it.
bool IsKept(uint64_t limitedTo) {
    const NoMore noAddresses(RLIMIT_AS, limitedTo);
    void* const at = mmap(nullptr, 1 << 20, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (at != MAP_FAILED) {
        munmap(at, 1 << 20);
    }
    return at == MAP_FAILED;
}

} // namespace

// The pool is a file: without one there is none, for good.
TEST(AddressLimit, WithoutAFileThereIsNoMediaMemory) {
    const NoMore noFiles(RLIMIT_NOFILE, 0);
    uint64_t phy = 1;
    void* vir = &phy;
    EXPECT_EQ(KOVA_MPI_SYS_MmzAlloc(&phy, &vir, "X", nullptr, 64), KOVA_SYS_ERR_NOT_READY);
    EXPECT_EQ(phy, 1u);
    EXPECT_EQ(vir, &phy);
    EXPECT_EQ(Usage().blocks, 0u);
}

TEST(AddressLimit, WithoutAddressesEveryCallThatNeedsSomeSaysSo) {
    if (!IsKept(AddressesInUse())) {
        GTEST_SKIP() << "no limit of the address space is kept here";
    }
    constexpr uint32_t kSide = 512;
    const Memory memory = Allocate(2 * kSide * kSide);
    ASSERT_NE(memory.vir, nullptr);
    std::memset(memory.vir, 7, 2 * kSide * kSide);
    kova_vgs_task task{};
    task.in = Frame(memory.phy, kSide, kSide, kSide);
    task.out = Frame(memory.phy + kSide * kSide, kSide, kSide, kSide);
    memory.bytes()[kSide * kSide] = 1;
    int32_t handle = -1;
    ASSERT_EQ(KOVA_MPI_VGS_BeginJob(&handle), 0);
    ASSERT_EQ(KOVA_MPI_VGS_AddScaleTask(handle, &task, KOVA_VGS_SCALE_COEF_NORMAL), 0);
    uint64_t phy = 1;
    void* vir = nullptr;
    {
        const NoMore noAddresses(RLIMIT_AS, AddressesInUse());
        EXPECT_EQ(KOVA_MPI_SYS_MmzAlloc(&phy, &vir, "X", nullptr, kSide * kSide),
                  KOVA_SYS_ERR_NOMEM);
        EXPECT_EQ(KOVA_MPI_SYS_Mmap(memory.phy, kSide * kSide), nullptr);
        EXPECT_EQ(KOVA_MPI_VGS_EndJob(handle), KOVA_VGS_ERR_NOMEM);
    }
    EXPECT_EQ(memory.bytes()[kSide * kSide], 1);
    EXPECT_EQ(Usage().blocks, 1u);
    EXPECT_EQ(Usage().mappings, 0u);
    // Room for one of a task's two frames is not enough, and is given back.
    {
        const NoMore oneWindow(RLIMIT_AS, AddressesInUse() + kSide * kSide + 65536);
        EXPECT_EQ(KOVA_MPI_VGS_EndJob(handle), KOVA_VGS_ERR_NOMEM);
        EXPECT_NE(KOVA_MPI_SYS_Mmap(memory.phy, kSide * kSide), nullptr);
    }
    EXPECT_EQ(KOVA_MPI_VGS_EndJob(handle), 0);
    EXPECT_EQ(memory.bytes()[kSide * kSide], 7);
}

TEST(AddressLimit, LibrarysMemoryIsHandedOutWhereverThereIsRoomForIt) {
    constexpr uint64_t kNeeded = kWorkingMemory + 2 * kFrame;
    constexpr uint64_t kAllowance = 256 * 1024; // pages beside the windows, and the heap's records
    for (uint64_t left = kNeeded + kAllowance; left < kWidestLimit; left += left / 16) {
        EXPECT_TRUE(IsHandedOut(left, {kWorkingMemory, kFrame, kFrame})) << left;
    }
}

TEST(AddressLimit, HalfOfWhatIsLeftCanBeHandedOut) {
    for (uint64_t left = uint64_t{8} << 20; left < kWidestLimit; left *= 2) {
        EXPECT_TRUE(IsHandedOut(left, {kWorkingMemory, static_cast<uint32_t>(left / 2)})) << left;
    }
}

// The pool is a file without a name.
TEST(FileLimit, WithoutAFileForThePoolNothingIsReady) {
    EXPECT_TRUE(InAProcess([] {
        const rlimit none{};
        uint64_t phy = 0;
        void* vir = nullptr;
        return setrlimit(RLIMIT_NOFILE, &none) == 0 &&
               KOVA_MPI_SYS_MmzAlloc(&phy, &vir, "TEST", nullptr, 4096) == KOVA_SYS_ERR_NOT_READY;
    }));
}

TEST(AddressLimit, AFrameThatCannotBeReachedEndsTheJob) {
    if (!IsKept(AddressesInUse())) {
        GTEST_SKIP() << "no limit of the address space is kept here";
    }
    EXPECT_TRUE(InAProcess([] {
        const Memory in = Allocate(16 << 20);
        const Memory out = Allocate(16 << 20);
        kova_vgs_task task{};
        task.in = Frame(in.phy, 4096, 4096, 4096);
        task.out = Frame(out.phy, 4096, 4096, 4096);
        int32_t handle = -1;
        return KOVA_MPI_VGS_BeginJob(&handle) == 0 &&
               KOVA_MPI_VGS_AddScaleTask(handle, &task, 1) == 0 && LeaveAddresses(1 << 20) &&
               KOVA_MPI_VGS_EndJob(handle) == KOVA_VGS_ERR_NOMEM &&
               KOVA_MPI_VGS_CancelJob(handle) == 0 && Usage().jobs == 0;
    }));
}
