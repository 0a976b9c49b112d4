// SPDX-License-Identifier: MIT
// Every call of the platform fails, at every position of two lives of the library, once and for good, alone and
// together with another. Whatever fails, a call says so or gives the right feature, nothing stays held but
// what the platform refused to take back, and the next life is as good as the first.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "device_api/device_fixture.h"
#include "device_api/hooks.h"
#include "support/stderr_capture.h"

using namespace device_test;

namespace {

const char* const kFunctions[] = {"KOVA_MPI_SYS_MmzAlloc_Cached", "KOVA_MPI_SYS_MmzAlloc",
                                  "KOVA_MPI_SYS_MmzFree",         "KOVA_MPI_SYS_Mmap",
                                  "KOVA_MPI_SYS_Munmap",          "KOVA_MPI_VGS_BeginJob",
                                  "KOVA_MPI_VGS_AddScaleTask",    "KOVA_MPI_VGS_EndJob",
                                  "KOVA_MPI_VGS_CancelJob"};

// A core run that costs little: what it writes depends on every pixel.
int32_t Summed(const FrImage* image, void* result, uint32_t) {
    uint32_t sum = 1;
    for (int32_t y = 0; y < 256; ++y) {
        for (int32_t x = 0; x < 256; ++x) {
            sum = sum * 31 + image->addr[y * image->stride + x];
        }
    }
    Feature feature;
    for (size_t i = 0; i < feature.size(); ++i) {
        feature[i] = static_cast<float>((sum >> i % 16) & 0xffff);
    }
    std::memcpy(result, feature.data(), sizeof feature);
    return 0;
}

// What the calls of a life answered. A refused feature or distance was left alone.
struct Life {
    std::vector<uint32_t> codes;
    std::vector<Feature> features; // of the calls that succeeded
};

class FaultLoop : public testing::Test {
  protected:
    FaultLoop() {
        hooks = Hooks{};
        hooks.run = Summed;
        kova_mpi_host_start_recording();
        whole_ = Live();
        kova_mpi_host_stop_recording();
        EXPECT_EQ(whole_.features.size(), 3u);
        for (const uint32_t code : whole_.codes) {
            EXPECT_EQ(code, KOVA_FR_OK);
        }
        blocks_ = Usage().blocks;
        mappings_ = Usage().mappings;
    }
    ~FaultLoop() override { hooks = Hooks{}; }

    void ExtractInto(Life& life, const obj_img& image) {
        Feature feature = Untouched();
        life.codes.push_back(Extract(image, feature));
        EXPECT_EQ(SameBits(feature, Untouched()), life.codes.back() != KOVA_FR_OK);
        if (life.codes.back() == KOVA_FR_OK) {
            life.features.push_back(feature);
        }
    }

    // Each kind of call once: a frame that is mapped, one that is scaled, one that is used as it is.
    Life Live() {
        const orvo_test::StderrCapture capture;
        Life life;
        life.codes.push_back(kova_fr_init());
        ExtractInto(life, wholeSize_.image(0));
        ExtractInto(life, small_.image(0));
        ExtractInto(life, wholeSize_.image(1));
        const Feature feature = {1.0f};
        float distance = -7.0f;
        life.codes.push_back(
            kova_fr_get_distance(feature.data(), 128, feature.data(), 128, &distance));
        EXPECT_EQ(distance, life.codes.back() == KOVA_FR_OK ? 1.0f : -7.0f);
        life.codes.push_back(kova_fr_deinit());
        return life;
    }

    // A feature is right or there is none.
    void ExpectRightFeatures(const Life& life) {
        for (const Feature& feature : life.features) {
            EXPECT_TRUE(
                std::any_of(whole_.features.begin(), whole_.features.end(),
                            [&](const Feature& right) { return SameBits(feature, right); }));
        }
    }

    // What the platform itself kept: blocks that it did not take back or whose address it left out, jobs that
    // it did not cancel. They are given back here, so that the next fault starts anew.
    void ExpectNothingElseHeld() {
        uint32_t blocksKept = 0;
        uint32_t jobsKept = 0;
        std::map<uint64_t, kova_mpi_host_block> live;
        kova_mpi_host_block block;
        for (uint32_t i = 0; kova_mpi_host_get_block(i, &block) == 0; ++i) {
            live[block.phy] = block;
        }
        for (const kova_mpi_host_call& call : Calls()) {
            const std::string function = call.function;
            const bool isRefused = call.result != 0;
            if (function == "KOVA_MPI_SYS_MmzFree" && isRefused && live.contains(call.phy)) {
                ++blocksKept;
                EXPECT_EQ(KOVA_MPI_SYS_MmzFree(call.phy, live[call.phy].vir), 0);
                live.erase(call.phy);
            } else if (function == "KOVA_MPI_VGS_CancelJob" && isRefused) {
                ++jobsKept;
                EXPECT_EQ(KOVA_MPI_VGS_CancelJob(call.handle), 0);
            }
        }
        EXPECT_EQ(Usage().blocks, blocks_) << blocksKept << " more were not taken back";
        EXPECT_EQ(Usage().jobs, 0u) << jobsKept << " more were not cancelled";
        EXPECT_EQ(Usage().mappings, mappings_);
    }

    // Two lives with the faults that are set, then one without.
    void LiveAndLiveOn(const std::string& fault) {
        SCOPED_TRACE(fault);
        kova_mpi_host_start_recording();
        ExpectRightFeatures(Live());
        ExpectRightFeatures(Live());
        kova_mpi_host_clear_faults();
        {
            const orvo_test::StderrCapture capture;
            if (IsInitialised()) {
                EXPECT_EQ(kova_fr_deinit(), KOVA_FR_OK);
            }
        }
        kova_mpi_host_stop_recording();
        ExpectNothingElseHeld();
        const Life after = Live();
        EXPECT_EQ(after.codes, whole_.codes);
        EXPECT_EQ(after.features, whole_.features);
        ++faults_;
    }

    void TearDown() override { RecordProperty("faults", faults_); }

    const MediaFrame wholeSize_{256, 256, 256};
    const MediaFrame small_{64, 48, 64};
    Life whole_;
    uint32_t blocks_ = 0;
    uint32_t mappings_ = 0;
    int faults_ = 0;
};

// In two lives no function is called more often.
constexpr uint32_t kMostCalls = 4;

TEST_F(FaultLoop, EachCallFailsWithEachKindOfCode) {
    for (const char* function : kFunctions) {
        for (uint32_t n = 1; n <= kMostCalls; ++n) {
            for (const int32_t forGood : {0, 1}) {
                for (const int32_t code : {1, -1, INT32_MAX, INT32_MIN, 7, kPlatformCode}) {
                    ASSERT_EQ(kova_mpi_host_fail_call(function, n, code, forGood), 0);
                    LiveAndLiveOn(std::string(function) + " " + std::to_string(n) +
                                  (forGood != 0 ? " for good" : " once"));
                }
            }
        }
    }
    EXPECT_EQ(faults_, 9 * 4 * 2 * 6);
}

TEST_F(FaultLoop, EachTwoFunctionsFailTogether) {
    for (size_t first = 0; first < std::size(kFunctions); ++first) {
        for (size_t second = 0; second < first; ++second) {
            for (uint32_t n = 1; n <= kMostCalls; ++n) {
                for (const uint32_t m : {1u, 3u}) {
                    for (const int32_t forGood : {0, 1}) {
                        const char* const names[] = {kFunctions[first], kFunctions[second]};
                        ASSERT_EQ(kova_mpi_host_fail_call(names[0], n, kPlatformCode, forGood), 0);
                        ASSERT_EQ(kova_mpi_host_fail_call(names[1], m, -3, 1 - forGood), 0);
                        LiveAndLiveOn(std::string(names[0]) + " " + std::to_string(n) + " and " +
                                      names[1] + " " + std::to_string(m));
                    }
                }
            }
        }
    }
    EXPECT_EQ(faults_, 36 * 4 * 2 * 2);
}

// The core fails in between: what was acquired before goes all the same.
TEST_F(FaultLoop, TheCoreFailsAtEachRun) {
    for (int at = 1; at <= 6; ++at) {
        for (const bool forGood : {false, true}) {
            for (const int32_t code : {1, 2, 6, -1}) {
                int runs = 0;
                hooks.run = [&](const FrImage* image, void* result, uint32_t size) {
                    const bool fails = ++runs == at || (forGood && runs > at);
                    return fails ? code : Summed(image, result, size);
                };
                kova_mpi_host_start_recording();
                ExpectRightFeatures(Live());
                ExpectRightFeatures(Live());
                kova_mpi_host_stop_recording();
                ExpectNothingElseHeld();
                hooks.run = Summed;
                EXPECT_EQ(Live().features, whole_.features);
                ++faults_;
            }
        }
    }
}

} // namespace
