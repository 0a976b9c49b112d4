// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "device_api/device_fixture.h"
#include "support/random.h"
#include "support/stderr_capture.h"

using namespace device_test;

namespace {

constexpr int kThreads = 8;

// What the threads share: one frame on the fast path, one that is mapped and one that is scaled,
// with their features.
struct Scene {
    MediaFrame fast{256, 256, 256, 1};
    MediaFrame mapped{256, 256, 320, 2};
    MediaFrame scaled{96, 80, 100, 3};
    obj_img images[3] = {fast.image(1), mapped.image(0), scaled.image(0)};
    Feature features[3];

    // Needs an initialised API.
    void Learn() {
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(Extract(images[i], features[i]), KOVA_FR_OK);
        }
        EXPECT_FALSE(SameBits(features[0], features[1]));
        EXPECT_FALSE(SameBits(features[0], features[2]));
    }
};

// Collects what went wrong in any thread.
class Complaints {
  public:
    void Check(bool ok, const std::string& what) {
        if (!ok) {
            const std::lock_guard lock(mutex_);
            all_ += what + "\n";
        }
    }
    std::string all() {
        const std::lock_guard lock(mutex_);
        return all_;
    }

  private:
    std::mutex mutex_;
    std::string all_;
};

void RunThreads(const std::function<void(int)>& body) {
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back(body, i);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

// Calls with bad arguments have one answer each, whatever the other threads do.
void CallBadly(Complaints& complaints, orvo_test::Random& random, const Scene& scene) {
    Feature feature = Untouched();
    float distance = -1;
    obj_img image = scene.images[random.Between(0, 2)];
    switch (random.Between(0, 5)) {
        case 0:
            complaints.Check(kova_fr_get_distance(nullptr, 128, feature.data(), 128, &distance) ==
                                 KOVA_FR_ERR_NULL_PTR,
                             "null feature");
            break;
        case 1:
            complaints.Check(kova_fr_get_distance(feature.data(), 128, feature.data(), 127,
                                                  &distance) == KOVA_FR_ERR_ILLEGAL_PARAM,
                             "short feature");
            break;
        case 2:
            complaints.Check(
                kova_fr_extract_obj_feature(nullptr, 128, feature.data()) == KOVA_FR_ERR_NULL_PTR,
                "null image");
            break;
        case 3:
            image.width = 15;
            complaints.Check(Extract(image, feature) == KOVA_FR_ERR_ILLEGAL_PARAM, "narrow image");
            break;
        case 4:
            complaints.Check(kova_fr_extract_obj_feature(&image, 512, feature.data()) ==
                                 KOVA_FR_ERR_ILLEGAL_PARAM,
                             "length in bytes");
            break;
        default:
            complaints.Check(
                kova_fr_extract_obj_feature(&image, 128, nullptr) == KOVA_FR_ERR_NULL_PTR,
                "null result");
            break;
    }
    complaints.Check(SameBits(feature, Untouched()) && distance == -1, "refusal wrote a result");
}

} // namespace

TEST(DeviceThreads, EightThreadsExtractAndCompareAtOnce) {
    const InitialisedApi api;
    const orvo_test::StderrCapture capture;
    Scene scene;
    scene.Learn();
    float expected = 0;
    ASSERT_EQ(kova_fr_get_distance(scene.features[0].data(), 128, scene.features[1].data(), 128,
                                   &expected),
              KOVA_FR_OK);
    Complaints complaints;
    RunThreads([&](int index) {
        orvo_test::Random random(static_cast<uint64_t>(index));
        for (int round = 0; round < 20; ++round) {
            CallBadly(complaints, random, scene);
            float distance = -1;
            complaints.Check(
                kova_fr_get_distance(scene.features[0].data(), 128, scene.features[1].data(), 128,
                                     &distance) == KOVA_FR_OK,
                "distance refused");
            complaints.Check(distance == expected, "another distance");
            complaints.Check(kova_fr_init() == KOVA_FR_ERR_EXIST, "second init");
        }
        const int which = index % 3;
        Feature feature = Untouched();
        complaints.Check(Extract(scene.images[which], feature) == KOVA_FR_OK, "extraction refused");
        complaints.Check(SameBits(feature, scene.features[which]), "another feature");
    });
    EXPECT_EQ(complaints.all(), "");
    EXPECT_EQ(Usage().blocks, 4u); // three frames and the working memory
    EXPECT_EQ(Usage().mappings, 1u);
    EXPECT_EQ(Usage().jobs, 0u);
}

TEST(DeviceThreads, EightThreadsMixAllFourCalls) {
    const orvo_test::StderrCapture capture;
    Scene scene;
    ASSERT_EQ(kova_fr_init(), KOVA_FR_OK);
    scene.Learn();
    Complaints complaints;
    std::atomic<int> initialised = 1; // successful inits less successful deinits
    RunThreads([&](int index) {
        orvo_test::Random random(100 + static_cast<uint64_t>(index));
        int extractionsLeft = 1;
        for (int round = 0; round < 60; ++round) {
            CallBadly(complaints, random, scene);
            uint32_t code = 0;
            switch (random.Between(0, 4)) {
                case 0:
                    code = kova_fr_init();
                    initialised += code == KOVA_FR_OK;
                    complaints.Check(code == KOVA_FR_OK || code == KOVA_FR_ERR_EXIST, "init");
                    break;
                case 1:
                    code = kova_fr_deinit();
                    initialised -= code == KOVA_FR_OK;
                    complaints.Check(code == KOVA_FR_OK || code == KOVA_FR_ERR_UNEXIST, "deinit");
                    break;
                case 2: {
                    float distance = -1;
                    code = kova_fr_get_distance(scene.features[0].data(), 128,
                                                scene.features[0].data(), 128, &distance);
                    complaints.Check(code == KOVA_FR_OK
                                         ? distance > 0.999f && distance < 1.001f
                                         : code == KOVA_FR_ERR_UNEXIST && distance == -1,
                                     "distance");
                    break;
                }
                default: {
                    const int which = random.Between(0, 2);
                    if (extractionsLeft == 0) {
                        break;
                    }
                    Feature feature = Untouched();
                    code = Extract(scene.images[which], feature);
                    extractionsLeft -= code == KOVA_FR_OK;
                    complaints.Check(code == KOVA_FR_OK ? SameBits(feature, scene.features[which])
                                                        : code == KOVA_FR_ERR_UNEXIST &&
                                                              SameBits(feature, Untouched()),
                                     "extraction");
                    break;
                }
            }
        }
    });
    EXPECT_EQ(complaints.all(), "");
    const bool endedInitialised = IsInitialised();
    EXPECT_EQ(initialised, endedInitialised ? 1 : 0);
    EXPECT_EQ(kova_mpi_host_blocks_named("FR_MEM", nullptr), endedInitialised ? 1u : 0u);
    EXPECT_EQ(kova_mpi_host_blocks_named("FR_RESIZE", nullptr), 0u);
    EXPECT_EQ(Usage().jobs, 0u);
    if (endedInitialised) {
        EXPECT_EQ(kova_fr_deinit(), KOVA_FR_OK);
    }
}
