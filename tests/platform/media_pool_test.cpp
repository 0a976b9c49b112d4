// SPDX-License-Identifier: MIT
// The pool behind media memory, on a system that refuses: the test stands between it and the system's calls.
#include "platform/host/media_pool.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>

#include <cerrno>
#include <cstring>
#include <functional>
#include <vector>

namespace {

constexpr uint64_t kGiB = uint64_t{1} << 30;
constexpr uint64_t kLargest = sizeof(void*) >= 8 ? kGiB : kGiB / 8;
constexpr uint64_t kSmallest = kGiB / 64;
constexpr uint64_t kStep = kGiB / 4;

// What was asked of mmap(): an address space of its own, in which nothing is really mapped.
struct Request {
    uint64_t where;
    uint64_t size;
};

bool operator==(const Request& a, const Request& b) {
    return a.where == b.where && a.size == b.size;
}

struct System {
    // Answers a reservation at a place; without it the real system does.
    std::function<void*(const Request&)> reserve;
    std::function<bool(int protection)> refusesMapping;
    std::vector<Request> reserved;
    std::vector<Request> released;
    bool hasLimit = false;
    bool hidesLimits = false;
    bool refusesFile = false;
    bool refusesSize = false;
    bool refusesHoles = false;
};
System g_system;

uint64_t Number(const void* at) { return reinterpret_cast<uintptr_t>(at); }
void* Place(uint64_t at) { return reinterpret_cast<void*>(static_cast<uintptr_t>(at)); }

class MediaPoolTest : public testing::Test {
  protected:
    MediaPoolTest() { g_system = System{}; }
    ~MediaPoolTest() override { g_system = System{}; }

    static void RefuseAll() {
        g_system.reserve = [](const Request&) { return MAP_FAILED; };
    }
};

} // namespace

extern "C" {
void* __real_mmap(void* where, size_t size, int protection, int flags, int file, off_t offset);
int __real_munmap(void* at, size_t size);
int __real_memfd_create(const char* name, unsigned flags);
int __real_ftruncate(int file, off_t size);
int __real_fallocate(int file, int mode, off_t offset, off_t size);
int __real_getrlimit(int which, rlimit* limit);

void* __wrap_mmap(void* where, size_t size, int protection, int flags, int file, off_t offset) {
    if (g_system.refusesMapping && g_system.refusesMapping(protection)) {
        return MAP_FAILED;
    }
    if (!g_system.reserve) {
        return __real_mmap(where, size, protection, flags, file, offset);
    }
    g_system.reserved.push_back({Number(where), size});
    return g_system.reserve(g_system.reserved.back());
}
int __wrap_munmap(void* at, size_t size) {
    g_system.released.push_back({Number(at), size});
    return g_system.reserve ? 0 : __real_munmap(at, size);
}
int __wrap_memfd_create(const char* name, unsigned flags) {
    return g_system.refusesFile ? -1 : __real_memfd_create(name, flags);
}
int __wrap_ftruncate(int file, off_t size) {
    return g_system.refusesSize ? -1 : __real_ftruncate(file, size);
}
int __wrap_fallocate(int file, int mode, off_t offset, off_t size) {
    return g_system.refusesHoles ? -1 : __real_fallocate(file, mode, offset, size);
}
int __wrap_getrlimit(int which, rlimit* limit) {
    const int status = __real_getrlimit(which, limit);
    limit->rlim_cur = g_system.hasLimit ? kGiB : RLIM_INFINITY;
    return g_system.hidesLimits ? -1 : status;
}
}

namespace {

using kova_host::CloseWindow;
using kova_host::DiscardPages;
using kova_host::MediaPool;
using kova_host::OpenMediaPool;
using kova_host::OpenWindow;
using kova_host::Window;

TEST_F(MediaPoolTest, WithoutAFileThereIsNone) {
    g_system.refusesFile = true;
    const MediaPool pool = OpenMediaPool();
    EXPECT_LT(pool.file, 0);
    EXPECT_EQ(pool.size, 0u);
}

TEST_F(MediaPoolTest, OfAFileThatCannotGrowHasNoBytes) {
    g_system.refusesSize = true;
    EXPECT_EQ(OpenMediaPool().size, 0u);
}

TEST_F(MediaPoolTest, LiesAtTheFirstPlaceBelowFourGiBThatIsFree) {
    g_system.reserve = [](const Request& request) {
        return request.where < 3 * kStep ? MAP_FAILED : Place(request.where);
    };
    const MediaPool pool = OpenMediaPool();
    EXPECT_EQ(pool.size, kLargest);
    EXPECT_EQ(pool.base & (4 * kGiB - 1), 3 * kStep);
    EXPECT_EQ(
        g_system.reserved,
        (std::vector<Request>{{kStep, kLargest}, {2 * kStep, kLargest}, {3 * kStep, kLargest}}));
    EXPECT_TRUE(g_system.released.empty());
}

TEST_F(MediaPoolTest, AsksForEveryPlaceAndThenForHalfTheSizeDownToTheSmallest) {
    RefuseAll();
    EXPECT_EQ(OpenMediaPool().size, 0u);
    std::vector<Request> expected;
    for (uint64_t size = kLargest; size >= kSmallest; size /= 2) {
        for (uint64_t where = kStep; where + size <= 4 * kGiB; where += kStep) {
            expected.push_back({where, size});
        }
    }
    EXPECT_EQ(g_system.reserved, expected);
    EXPECT_TRUE(g_system.released.empty());
}

TEST_F(MediaPoolTest, IsSmallerWhereTheAddressesAreCrowded) {
    g_system.reserve = [](const Request& request) {
        return request.size > kLargest / 4 ? MAP_FAILED : Place(request.where);
    };
    EXPECT_EQ(OpenMediaPool().size, kLargest / 4);
}

TEST_F(MediaPoolTest, TakesAnotherPlaceThanItAskedForIfThatEndsBelowFourGiB) {
    if (sizeof(void*) < 8) {
        GTEST_SKIP() << "every address is below 4 GiB";
    }
    constexpr uint64_t kLast = 4 * kGiB - kLargest;
    g_system.reserve = [](const Request& request) {
        return Place(request.where == kStep ? kLast + 4096 : kLast);
    };
    const MediaPool pool = OpenMediaPool();
    EXPECT_EQ(pool.base & (4 * kGiB - 1), kLast);
    // What reached beyond was given back.
    EXPECT_EQ(g_system.released, (std::vector<Request>{{kLast + 4096, kLargest}}));
}

TEST_F(MediaPoolTest, UnderALimitReservesNothing) {
    g_system.hasLimit = true;
    g_system.reserve = [](const Request& request) { return Place(request.where); };
    const MediaPool pool = OpenMediaPool();
    EXPECT_EQ(pool.base & (4 * kGiB - 1), kStep);
    EXPECT_EQ(pool.size, kLargest);
    EXPECT_EQ(g_system.released, g_system.reserved);
}

TEST_F(MediaPoolTest, WhereLimitsAreNotToldThereIsNone) {
    g_system.hasLimit = true;
    g_system.hidesLimits = true;
    g_system.reserve = [](const Request& request) { return Place(request.where); };
    EXPECT_EQ(OpenMediaPool().size, kLargest);
    EXPECT_TRUE(g_system.released.empty());
}

TEST_F(MediaPoolTest, UnderALimitLiesWhereTheLimitAloneRefuses) {
    g_system.hasLimit = true;
    g_system.reserve = [](const Request& request) {
        errno = request.where < 2 * kStep ? EEXIST : ENOMEM;
        return MAP_FAILED;
    };
    const MediaPool pool = OpenMediaPool();
    EXPECT_EQ(pool.base & (4 * kGiB - 1), 2 * kStep);
    EXPECT_TRUE(g_system.released.empty());
}

// Systems that do not know MAP_FIXED_NOREPLACE take the place for a wish.
TEST_F(MediaPoolTest, UnderALimitAnotherPlaceThanItAskedForIsNotFree) {
    g_system.hasLimit = true;
    g_system.reserve = [](const Request& request) {
        return Place(request.where + (request.where == kStep ? 4096 : 0));
    };
    const MediaPool pool = OpenMediaPool();
    EXPECT_EQ(pool.base & (4 * kGiB - 1), 2 * kStep);
    EXPECT_EQ(g_system.released,
              (std::vector<Request>{{kStep + 4096, kLargest}, {2 * kStep, kLargest}}));
}

TEST_F(MediaPoolTest, UnderALimitAsksForEveryPlaceToo) {
    g_system.hasLimit = true;
    errno = EEXIST;
    RefuseAll();
    EXPECT_EQ(OpenMediaPool().size, 0u);
    ASSERT_FALSE(g_system.reserved.empty());
    EXPECT_EQ(g_system.reserved.front(), (Request{kStep, kLargest}));
    EXPECT_EQ(g_system.reserved.back(), (Request{4 * kGiB - kStep, kSmallest}));
}

TEST_F(MediaPoolTest, AWindowWithoutAddressesIsClosed) {
    const MediaPool pool = OpenMediaPool();
    g_system.released.clear();
    RefuseAll();
    Window window = OpenWindow(pool, 0, pool.page);
    EXPECT_EQ(window.data, nullptr);
    CloseWindow(window);
    EXPECT_TRUE(g_system.released.empty());
}

TEST_F(MediaPoolTest, AWindowThatCannotShowThePoolGivesItsAddressesBack) {
    const MediaPool pool = OpenMediaPool();
    g_system.released.clear();
    g_system.refusesMapping = [](int protection) { return protection != PROT_NONE; };
    Window window = OpenWindow(pool, 0, pool.page);
    EXPECT_EQ(window.data, nullptr);
    EXPECT_EQ(window.reservation, nullptr);
    ASSERT_EQ(g_system.released.size(), 1u);
    EXPECT_EQ(g_system.released[0].size, 3 * pool.page);
}

TEST_F(MediaPoolTest, DiscardedPagesReadAsZeroAlsoWhereFilesHaveNoHoles) {
    const MediaPool pool = OpenMediaPool();
    for (const bool refuses : {false, true}) {
        g_system.refusesHoles = refuses;
        Window window = OpenWindow(pool, 0, 3 * pool.page);
        ASSERT_NE(window.data, nullptr);
        std::memset(window.data, 7, 3 * pool.page);
        DiscardPages(pool, pool.page, pool.page);
        EXPECT_EQ(window.data[pool.page - 1], 7);
        EXPECT_EQ(window.data[pool.page], 0);
        EXPECT_EQ(window.data[2 * pool.page - 1], 0);
        EXPECT_EQ(window.data[2 * pool.page], 7);
        g_system.released.clear();
        CloseWindow(window);
        EXPECT_EQ(g_system.released.size(), 1u);
    }
}

TEST_F(MediaPoolTest, PagesThatNothingCanDiscardStay) {
    const MediaPool pool = OpenMediaPool();
    Window window = OpenWindow(pool, 0, pool.page);
    ASSERT_NE(window.data, nullptr);
    window.data[0] = 7;
    g_system.refusesHoles = true;
    g_system.refusesMapping = [](int) { return true; };
    DiscardPages(pool, 0, pool.page);
    g_system.refusesMapping = nullptr;
    EXPECT_EQ(window.data[0], 7);
    CloseWindow(window);
}

} // namespace
