// SPDX-License-Identifier: MIT
// The device API over a core and a platform that answer what the test wants.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <thread>

#include "device_api/device_fixture.h"
#include "device_api/hooks.h"

using namespace device_test;

namespace {

const char* const kExtract = "kova_fr_extract_obj_feature";
const Outcome kOk = {KOVA_FR_OK, ""};

using Names = std::vector<std::string>;

Outcome InitFailed(uint32_t code, const std::string& message) {
    return {code, Device("kova_fr_init", message)};
}

// The state after a failed init: as if it had never been called. What the core printed about its
// own repeated initialisation does not matter here.
void ExpectUninitialisedAndUsable() {
    EXPECT_FALSE(IsInitialised());
    hooks = Hooks{};
    const InitialisedApi api;
    EXPECT_TRUE(IsInitialised());
}

// A core run that costs nothing and answers with a feature of its own.
constexpr float kFakeElement = 0.25f;

int32_t FakeRun(const FrImage*, void* result, uint32_t) {
    Feature feature;
    feature.fill(kFakeElement);
    std::memcpy(result, feature.data(), sizeof feature);
    return 0;
}

// A one-way gate between threads. (The 32-bit target's standard library has no futures.)
class Gate {
  public:
    void Open() {
        const std::lock_guard lock(mutex_);
        open_ = true;
        changed_.notify_all();
    }
    void Wait() {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return open_; });
    }
    bool WaitFor(std::chrono::seconds limit) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, limit, [this] { return open_; });
    }

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool open_ = false;
};

// Calls the library from another thread; a mutex that a call before left locked ends the test.
void ExpectFreeMutex() {
    Gate done;
    std::thread probe([&] {
        IsInitialised();
        done.Open();
    });
    if (!done.WaitFor(std::chrono::seconds(120))) {
        std::fputs("the device mutex was left locked\n", stdout);
        std::abort();
    }
    probe.join();
}

Outcome Observed(const obj_img& image, Feature& feature) {
    feature = Untouched();
    return Observe([&] { return Extract(image, feature); });
}

} // namespace

TEST(CoreAnswers, AnInitThatFailsLeavesTheDeviceUninitialised) {
    const struct {
        int32_t answer;
        const char* shown;
    } cases[] = {{6, "0x6"}, {1, "0x1"}, {8, "0x8"}, {-1, "0xffffffff"}};
    for (const auto& c : cases) {
        hooks.init = [&] { return c.answer; };
        kova_mpi_host_start_recording();
        EXPECT_EQ(Observe(kova_fr_init),
                  InitFailed(0xa03f8008, std::string("fr init failed,Error(") + c.shown + ")\n"));
        EXPECT_EQ(kova_mpi_host_call_count(), 0u);
        ExpectNothingInUse();
    }
    ExpectUninitialisedAndUsable();
}

TEST(CoreAnswers, AnInitThatWasDoneBeforeCountsAsSuccess) {
    hooks.init = [] { return int32_t{ORVO_FR_REPEAT_INIT}; };
    EXPECT_EQ(Observe(kova_fr_init), kOk);
    EXPECT_TRUE(IsInitialised());
    EXPECT_EQ(Observe(kova_fr_deinit), kOk);
}

TEST(CoreAnswers, AMemorySizeOfZeroIsRefused) {
    hooks.getMemorySize = [] { return 0u; };
    kova_mpi_host_start_recording();
    EXPECT_EQ(Observe(kova_fr_init), InitFailed(0xa03f800c, "Get memory size 0\n"));
    EXPECT_EQ(kova_mpi_host_call_count(), 0u);
    ExpectUninitialisedAndUsable();
}

TEST(CoreAnswers, ABlockThatTheCoreRefusesIsFreed) {
    hooks.setMemory = [](void*, uint32_t) { return 2; };
    kova_mpi_host_start_recording();
    EXPECT_EQ(Observe(kova_fr_init),
              InitFailed(0xa03f800c, "OrvoFrSetMemory failed, Error(0x2)\n"));
    ASSERT_EQ(CallNames(), (Names{"KOVA_MPI_SYS_MmzAlloc_Cached", "KOVA_MPI_SYS_MmzFree"}));
    EXPECT_EQ(Calls()[1].phy, Calls()[0].phy);
    EXPECT_EQ(Calls()[1].vir, Calls()[0].vir);
    ExpectNothingInUse();
    ExpectUninitialisedAndUsable();
}

TEST(CoreAnswers, ARefusedBlockThatCannotBeFreedIsReportedTheSameWay) {
    hooks.setMemory = [](void*, uint32_t) { return 2; };
    ASSERT_EQ(kova_mpi_host_fail_call("KOVA_MPI_SYS_MmzFree", 1, kPlatformCode, 0), 0);
    EXPECT_EQ(Observe(kova_fr_init),
              InitFailed(0xa03f800c, "OrvoFrSetMemory failed, Error(0x2)\n"));
    ExpectUninitialisedAndUsable();
}

TEST(CoreAnswers, ARefusedBlockWithAnAddressMissingIsNotFreed) {
    for (const kova_mpi_host_blank blank : {KOVA_MPI_HOST_BLANK_VIR, KOVA_MPI_HOST_BLANK_PHY}) {
        hooks.setMemory = [](void*, uint32_t) { return 2; };
        ASSERT_EQ(kova_mpi_host_blank_address("KOVA_MPI_SYS_MmzAlloc_Cached", 1, blank, 0), 0);
        kova_mpi_host_start_recording();
        EXPECT_EQ(Observe(kova_fr_init).code, 0xa03f800c);
        EXPECT_EQ(CallNames(), Names{"KOVA_MPI_SYS_MmzAlloc_Cached"});
    }
    ExpectUninitialisedAndUsable();
}

TEST(CoreAnswers, ABlockWithoutVirtualAddressThatTheCoreTakesIsNotFreedLater) {
    hooks.setMemory = [](void*, uint32_t) { return 0; };
    ASSERT_EQ(
        kova_mpi_host_blank_address("KOVA_MPI_SYS_MmzAlloc_Cached", 1, KOVA_MPI_HOST_BLANK_VIR, 0),
        0);
    EXPECT_EQ(Observe(kova_fr_init), kOk);
    kova_mpi_host_start_recording();
    EXPECT_EQ(Observe(kova_fr_deinit), kOk);
    EXPECT_EQ(kova_mpi_host_call_count(), 0u);
    EXPECT_FALSE(IsInitialised());
}

TEST(CoreAnswers, InitAsksInOrderAndHandsOnTheSizeThatItWasTold) {
    std::vector<std::string> order;
    const auto note = [&](const std::string& what) {
        order.push_back(what + " after " + std::to_string(kova_mpi_host_call_count()));
    };
    void* handed = nullptr;
    hooks.init = [&] {
        note("init");
        return 0;
    };
    hooks.getMemorySize = [&] {
        note("size");
        return 5000u;
    };
    hooks.setMemory = [&](void* addr, uint32_t size) {
        note("memory of " + std::to_string(size));
        handed = addr;
        return 0;
    };
    kova_mpi_host_start_recording();
    EXPECT_EQ(Observe(kova_fr_init), kOk);
    EXPECT_EQ(order, (Names{"init after 0", "size after 0", "memory of 5000 after 1"}));
    EXPECT_EQ(Calls()[0].size, 5000u);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(handed), Calls()[0].vir);
    EXPECT_EQ(Observe(kova_fr_deinit), kOk);
    ExpectNothingInUse();
}

TEST(CoreAnswers, NothingIsAskedOfTheCoreWhenInitialisedAlready) {
    EXPECT_EQ(Observe(kova_fr_init), kOk);
    int asked = 0;
    hooks.init = [&] { return ++asked, 0; };
    hooks.getMemorySize = [&] { return ++asked, 1410052u; };
    hooks.setMemory = [&](void*, uint32_t) { return ++asked, 0; };
    EXPECT_EQ(Observe(kova_fr_init).code, 0xa03f8004);
    EXPECT_EQ(asked, 0);
    EXPECT_EQ(Observe(kova_fr_deinit), kOk);
}

TEST(CoreAnswers, TheDistanceIsAskedForWithSizesInBytes) {
    const InitialisedApi api;
    const Feature a{};
    const Feature b{};
    int asked = 0;
    hooks.getDistance = [&](const float* x, uint32_t xSize, const float* y, uint32_t ySize) {
        ++asked;
        EXPECT_EQ(x, a.data());
        EXPECT_EQ(xSize, 512u);
        EXPECT_EQ(y, b.data());
        EXPECT_EQ(ySize, 512u);
        return 0.125f;
    };
    float distance = 0;
    EXPECT_EQ(kova_fr_get_distance(a.data(), 128, b.data(), 128, &distance), KOVA_FR_OK);
    EXPECT_EQ(distance, 0.125f);
    EXPECT_EQ(asked, 1);
}

TEST(CoreAnswers, TheCoreIsHandedTheFrameAsItLies) {
    const InitialisedApi api;
    const MediaFrame frame(256, 256, 272);
    Feature feature;
    for (const uint32_t memType : {0u, 1u}) {
        kova_mpi_host_start_recording();
        int runs = 0;
        hooks.run = [&](const FrImage* img, void* result, uint32_t size) {
            ++runs;
            EXPECT_EQ(reinterpret_cast<uintptr_t>(img->addr),
                      memType == 1 ? frame.image(1).vir_addr : Calls()[0].vir);
            EXPECT_EQ(img->height, 256);
            EXPECT_EQ(img->width, 256);
            EXPECT_EQ(img->stride, 272);
            EXPECT_EQ(result, feature.data());
            EXPECT_EQ(size, 512u);
            return FakeRun(img, result, size);
        };
        EXPECT_EQ(Observed(frame.image(memType), feature).code, KOVA_FR_OK);
        EXPECT_EQ(runs, 1);
        EXPECT_EQ(feature[127], kFakeElement);
    }
}

TEST(CoreAnswers, TheCoreIsHandedTheScalingBuffer) {
    const InitialisedApi api;
    const MediaFrame frame(300, 200, 320);
    kova_mpi_host_start_recording();
    hooks.run = [](const FrImage* img, void* result, uint32_t size) {
        EXPECT_EQ(kova_mpi_host_call_count(), 4u); // after EndJob, before the free
        EXPECT_EQ(reinterpret_cast<uintptr_t>(img->addr), Calls()[0].vir);
        EXPECT_EQ(img->height, 256);
        EXPECT_EQ(img->width, 256);
        EXPECT_EQ(img->stride, 256);
        EXPECT_EQ(size, 512u);
        return FakeRun(img, result, size);
    };
    Feature feature;
    EXPECT_EQ(Observed(frame.image(0), feature), kOk);
    EXPECT_EQ(kova_mpi_host_call_count(), 5u);
}

TEST(CoreAnswers, TheJobHandleIsMinusOneUntilThePlatformGivesOne) {
    const InitialisedApi api;
    const MediaFrame frame(64, 48, 64);
    int32_t seen = 0;
    hooks.beginJob = [&](int32_t* handle) {
        seen = *handle;
        return kPlatformCode;
    };
    Feature feature;
    EXPECT_EQ(Observed(frame.image(0), feature).code, 0xa0ff1234);
    EXPECT_EQ(seen, -1);
}

TEST(CoreAnswers, AFailedRunIsReportedAndTheScalingBufferFreed) {
    const InitialisedApi api;
    const MediaFrame frame(64, 48, 64);
    for (const int32_t answer : {1, 2, 6, -5}) {
        hooks.run = [&](const FrImage*, void*, uint32_t) { return answer; };
        kova_mpi_host_start_recording();
        Feature feature;
        EXPECT_EQ(Observed(frame.image(0), feature),
                  (Outcome{0xa03f8041, Device(kExtract, "fr extract obj feature fail,Error:" +
                                                            std::to_string(answer) + "\n")}));
        EXPECT_TRUE(SameBits(feature, Untouched()));
        ASSERT_EQ(kova_mpi_host_call_count(), 5u);
        EXPECT_STREQ(Calls()[4].function, "KOVA_MPI_SYS_MmzFree");
        EXPECT_EQ(kova_mpi_host_blocks_named("FR_RESIZE", nullptr), 0u);
        EXPECT_EQ(Usage().jobs, 0u);
    }
    EXPECT_TRUE(IsInitialised());
}

TEST(CoreAnswers, AFailedRunOnAMappedFrameStillUnmaps) {
    const InitialisedApi api;
    const MediaFrame frame(256, 256, 256);
    hooks.run = [](const FrImage*, void*, uint32_t) { return 2; };
    kova_mpi_host_start_recording();
    Feature feature;
    EXPECT_EQ(Observed(frame.image(0), feature),
              (Outcome{0xa03f8041, Device(kExtract, "fr extract obj feature fail,Error:2\n") +
                                       Device("fr_destory_img",
                                              "KOVA_MPI_SYS_Munmap failed, Error(0xa0028005)\n")}));
    EXPECT_EQ(CallNames(), (Names{"KOVA_MPI_SYS_Mmap", "KOVA_MPI_SYS_Munmap"}));
}

// Of strides from 2^24 on, 256 rows are longer than the platform's 32-bit lengths can say: the
// mapping is asked for with what is left of the length, and what it covers is not read.
TEST(CoreAnswers, AFrameLongerThanTheMappingIsRefusedAndUnmapped) {
    const InitialisedApi api;
    const MediaFrame frame(256, 256, 256);
    int runs = 0;
    hooks.run = [&](const FrImage*, void*, uint32_t) { return ++runs, 0; };
    uint32_t unmapped = 0;
    hooks.munmap = [&](void*, uint32_t size) { return unmapped = size, 0; };
    std::vector<uint32_t> strides;
    for (uint64_t high = 1; high < 256; ++high) {
        for (const uint32_t low : {1u, 2u, 255u, 256u}) {
            strides.push_back(static_cast<uint32_t>((high << 24) + low));
        }
    }
    for (const uint32_t stride : strides) {
        obj_img image = frame.image(0);
        image.stride = stride;
        kova_mpi_host_start_recording();
        unmapped = 0;
        Feature feature;
        const Outcome outcome = Observed(image, feature);
        ASSERT_EQ(CallNames(), Names{"KOVA_MPI_SYS_Mmap"}) << stride;
        ASSERT_EQ(Calls()[0].size, stride << 8) << stride;
        const bool isMapped = Calls()[0].vir != 0;
        ASSERT_EQ(unmapped, isMapped ? stride << 8 : 0) << stride;
        ASSERT_EQ(outcome.code, isMapped ? 0xa03f8041u : 0xa03f8006u) << stride;
        ASSERT_TRUE(SameBits(feature, Untouched())) << stride;
    }
    EXPECT_EQ(runs, 0);
    // What of the length is left where nothing is.
    for (uint64_t high = 1; high < 256; ++high) {
        obj_img image = frame.image(0);
        image.stride = static_cast<uint32_t>(high << 24);
        Feature feature;
        ASSERT_EQ(Observed(image, feature).code, 0xa03f8003u) << high;
    }
    EXPECT_EQ(runs, 0);
}

TEST(CoreAnswers, ALongFrameThatTheCallerMapsIsTheCallersBusiness) {
    const InitialisedApi api;
    const MediaFrame frame(256, 256, 256);
    int32_t stride = 0;
    hooks.run = [&](const FrImage* img, void*, uint32_t) { return stride = img->stride, 0; };
    obj_img image = frame.image(1);
    image.stride = 0x01000100;
    Feature feature;
    EXPECT_EQ(Observed(image, feature).code, KOVA_FR_OK);
    EXPECT_EQ(stride, 0x01000100);
}

TEST(CoreAnswers, AFailedRunStaysAFailureWhateverReleasingAnswers) {
    const InitialisedApi api;
    const MediaFrame frame(64, 48, 64);
    hooks.run = [](const FrImage*, void*, uint32_t) { return 2; };
    ASSERT_EQ(kova_mpi_host_fail_call("KOVA_MPI_SYS_MmzFree", 1, kPlatformCode, 0), 0);
    Feature feature;
    EXPECT_EQ(
        Observed(frame.image(0), feature),
        (Outcome{0xa03f8041, Device(kExtract, "fr extract obj feature fail,Error:2\n") +
                                 Device("fr_destory_img",
                                        "KOVA_MPI_SYS_MmzFree failed, Error(0xa0ff1234)\n")}));
}

TEST(CoreAnswers, AnUnmappingThatSucceedsIsSilent) {
    const InitialisedApi api;
    const MediaFrame frame(256, 256, 256);
    hooks.run = FakeRun;
    void* given = nullptr;
    hooks.munmap = [&](void* vir, uint32_t size) {
        given = vir;
        EXPECT_EQ(size, 65536u);
        return 0;
    };
    Feature feature;
    EXPECT_EQ(Observed(frame.image(0), feature), kOk);
    EXPECT_EQ(given, LowHalf(frame.memory().phy));
}

TEST(CoreAnswers, AScalingBufferWithoutPhysicalAddressIsNotFreedAfterTheRun) {
    const InitialisedApi api;
    const MediaFrame frame(64, 48, 64);
    hooks.run = FakeRun;
    hooks.addScaleTask = [](int32_t, const kova_vgs_task* task, uint32_t) {
        EXPECT_EQ(task->out.phy_addr[0], 0u);
        return 0;
    };
    ASSERT_EQ(kova_mpi_host_blank_address("KOVA_MPI_SYS_MmzAlloc", 1, KOVA_MPI_HOST_BLANK_PHY, 0),
              0);
    kova_mpi_host_start_recording();
    Feature feature;
    EXPECT_EQ(Observed(frame.image(0), feature), kOk);
    EXPECT_EQ(CallNames(),
              (Names{"KOVA_MPI_SYS_MmzAlloc", "KOVA_MPI_VGS_BeginJob", "KOVA_MPI_VGS_EndJob"}));
    EXPECT_EQ(kova_mpi_host_blocks_named("FR_RESIZE", nullptr), 1u);
}

TEST(LongRun, AThousandExtractionsUseNoMoreThanTheFirst) {
    const InitialisedApi api;
    const MediaFrame frame(256, 256, 256);
    const MediaFrame small(32, 24, 32);
    hooks.run = FakeRun;
    kova_mpi_host_usage first{};
    Observe([&] {
        uint32_t failed = 0;
        for (int i = 0; i < 1000; ++i) {
            Feature feature;
            failed += Extract(frame.image(0), feature) != KOVA_FR_OK;
            failed += Extract(frame.image(1), feature) != KOVA_FR_OK;
            failed += i % 10 == 0 && Extract(small.image(0), feature) != KOVA_FR_OK;
            if (i == 0) {
                first = Usage();
            }
        }
        EXPECT_EQ(failed, 0u);
        return failed;
    });
    const kova_mpi_host_usage last = Usage();
    EXPECT_EQ(last.blocks, first.blocks);
    EXPECT_EQ(last.block_bytes, first.block_bytes);
    EXPECT_EQ(last.mappings, 1u);
    EXPECT_EQ(first.mappings, 1u);
    EXPECT_EQ(last.mapping_bytes, first.mapping_bytes);
    EXPECT_EQ(last.jobs, 0u);
}

// While one extraction is in the core, bad arguments are answered at once and every good call
// waits.
TEST(DeviceMutex, IsTakenAfterTheArgumentChecksAndHeldToTheEnd) {
    const InitialisedApi api;
    const MediaFrame frame(256, 256, 256);
    Gate inTheCore;
    Gate release;
    hooks.run = [&](const FrImage* img, void* result, uint32_t size) {
        inTheCore.Open();
        release.Wait();
        return FakeRun(img, result, size);
    };
    Feature feature;
    std::thread extraction([&] { EXPECT_EQ(Extract(frame.image(1), feature), KOVA_FR_OK); });
    inTheCore.Wait();

    float distance = 0;
    Feature other = {};
    EXPECT_EQ(Observe([] { return kova_fr_extract_obj_feature(nullptr, 128, nullptr); }).code,
              KOVA_FR_ERR_NULL_PTR);
    EXPECT_EQ(
        Observe([&] { return kova_fr_get_distance(nullptr, 128, nullptr, 128, &distance); }).code,
        KOVA_FR_ERR_NULL_PTR);

    std::atomic<int> finished = 0;
    std::thread getDistance([&] {
        EXPECT_EQ(kova_fr_get_distance(other.data(), 128, other.data(), 128, &distance),
                  KOVA_FR_OK);
        ++finished;
    });
    std::thread init([&] {
        EXPECT_EQ(kova_fr_init(), KOVA_FR_ERR_EXIST);
        ++finished;
    });
    std::thread extract([&] {
        obj_img outside = frame.image(0);
        outside.phy_addr = 1;
        EXPECT_EQ(Extract(outside, other), KOVA_FR_ERR_NULL_PTR);
        ++finished;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_EQ(finished, 0);
    release.Open();
    for (std::thread* thread : {&extraction, &getDistance, &init, &extract}) {
        thread->join();
    }
    EXPECT_EQ(finished, 3);
    EXPECT_EQ(feature[0], kFakeElement);
}

// Every call leaves the mutex free, the failing ones as well.
TEST(DeviceMutex, IsReleasedByEveryFailure) {
    const MediaFrame frame(64, 48, 64);
    Feature feature{};
    const Outcome outcome = Observe([&]() -> uint32_t {
        EXPECT_EQ(kova_fr_deinit(), KOVA_FR_ERR_UNEXIST);
        ExpectFreeMutex();
        EXPECT_EQ(Extract(frame.image(0), feature), KOVA_FR_ERR_UNEXIST);
        ExpectFreeMutex();
        hooks.init = [] { return 6; };
        EXPECT_EQ(kova_fr_init(), KOVA_FR_ERR_NOT_READY);
        ExpectFreeMutex();
        hooks = Hooks{};
        hooks.getMemorySize = [] { return 0u; };
        EXPECT_EQ(kova_fr_init(), KOVA_FR_ERR_NOMEM);
        ExpectFreeMutex();
        hooks = Hooks{};
        EXPECT_EQ(kova_mpi_host_fail_call("KOVA_MPI_SYS_MmzAlloc_Cached", 1, kPlatformCode, 0), 0);
        EXPECT_EQ(kova_fr_init(), KOVA_FR_ERR_NOMEM);
        ExpectFreeMutex();
        hooks.setMemory = [](void*, uint32_t) { return 2; };
        EXPECT_EQ(kova_fr_init(), KOVA_FR_ERR_NOMEM);
        ExpectFreeMutex();
        hooks = Hooks{};
        EXPECT_EQ(kova_fr_init(), KOVA_FR_OK);
        EXPECT_EQ(kova_fr_init(), KOVA_FR_ERR_EXIST);
        ExpectFreeMutex();
        EXPECT_EQ(kova_mpi_host_fail_call("KOVA_MPI_SYS_MmzAlloc", 1, kPlatformCode, 0), 0);
        EXPECT_EQ(Extract(frame.image(0), feature), 0xa0ff1234);
        ExpectFreeMutex();
        hooks.run = [](const FrImage*, void*, uint32_t) { return 2; };
        EXPECT_EQ(Extract(frame.image(0), feature), KOVA_FR_ERR_RUN);
        ExpectFreeMutex();
        EXPECT_EQ(kova_mpi_host_fail_call("KOVA_MPI_SYS_MmzFree", 1, kPlatformCode, 0), 0);
        EXPECT_EQ(kova_fr_deinit(), 0xa0ff1234);
        ExpectFreeMutex();
        return kova_fr_deinit();
    });
    EXPECT_EQ(outcome.code, KOVA_FR_OK);
}
