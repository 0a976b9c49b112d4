// SPDX-License-Identifier: MIT
//
// Eight threads call the device API as they like, initialisation and shut-down among it. What a call
// answers is what one thread alone was answered, or that the library is not initialised.
#include <array>
#include <string>

#include "orvo/orvo_fr.h"
#include "soak/crowd.h"
#include "soak/progress.h"
#include "soak/scene.h"
#include "support/random.h"

namespace orvo_soak {
namespace {

using orvo_test::Random;

struct Tally {
    std::atomic<int64_t> features = 0;
    std::atomic<int64_t> distances = 0;
    std::atomic<int64_t> cycles = 0;   // successful inits
    std::atomic<int64_t> early = 0;    // "not initialised"
    std::atomic<int64_t> refusals = 0; // of bad arguments
    std::atomic<int> initialised = 0;  // successful inits less successful deinits
    std::atomic<int64_t> done = 0;
};

// What all threads share.
struct Crowd {
    Scene scene;
    std::array<float, 64> distances; // of each frame's feature to each other's
    Complaint complaint;
    Tally tally;
};

Feature Untouched() {
    Feature feature;
    feature.fill(1000.0f);
    return feature;
}

uint32_t DistanceOf(const Scene& scene, size_t a, size_t b, float& distance) {
    return kova_fr_get_distance(scene.feature(a).data(), KOVA_FR_FEATURE_LEN,
                                scene.feature(b).data(), KOVA_FR_FEATURE_LEN, &distance);
}

void CallInit(Crowd& crowd) {
    const uint32_t code = kova_fr_init();
    crowd.tally.initialised += code == KOVA_FR_OK;
    crowd.tally.cycles += code == KOVA_FR_OK;
    crowd.complaint.Check(code == KOVA_FR_OK || code == KOVA_FR_ERR_EXIST, "init");
}

void CallDeinit(Crowd& crowd) {
    const uint32_t code = kova_fr_deinit();
    crowd.tally.initialised -= code == KOVA_FR_OK;
    crowd.complaint.Check(code == KOVA_FR_OK || code == KOVA_FR_ERR_UNEXIST, "deinit");
}

void CallExtract(Crowd& crowd, Random& random) {
    const auto which = static_cast<size_t>(random.Next() % crowd.scene.count());
    Feature feature = Untouched();
    const uint32_t code = Extract(crowd.scene.image(which), feature);
    if (code == KOVA_FR_OK) {
        ++crowd.tally.features;
        crowd.complaint.Check(SameBits(feature, crowd.scene.feature(which)), "another feature");
        return;
    }
    ++crowd.tally.early;
    crowd.complaint.Check(code == KOVA_FR_ERR_UNEXIST, "extraction");
    crowd.complaint.Check(SameBits(feature, Untouched()), "a refused extraction wrote a result");
}

void CallDistance(Crowd& crowd, Random& random) {
    const auto a = static_cast<size_t>(random.Next() % crowd.scene.count());
    const auto b = static_cast<size_t>(random.Next() % crowd.scene.count());
    float distance = -5;
    const uint32_t code = DistanceOf(crowd.scene, a, b, distance);
    if (code == KOVA_FR_OK) {
        ++crowd.tally.distances;
        crowd.complaint.Check(distance == crowd.distances[a * crowd.scene.count() + b],
                              "another distance");
        return;
    }
    ++crowd.tally.early;
    crowd.complaint.Check(code == KOVA_FR_ERR_UNEXIST && distance == -5, "distance");
}

// Bad arguments have one answer each, whatever the other threads do.
void CallBadly(Crowd& crowd, Random& random) {
    const Scene& scene = crowd.scene;
    Feature feature = Untouched();
    float distance = -5;
    obj_img image = scene.image(0);
    bool isRight = false;
    switch (random.Between(0, 3)) {
        case 0:
            image.width = 15;
            isRight = Extract(image, feature) == KOVA_FR_ERR_ILLEGAL_PARAM;
            break;
        case 1:
            isRight = kova_fr_extract_obj_feature(nullptr, KOVA_FR_FEATURE_LEN, feature.data()) ==
                      KOVA_FR_ERR_NULL_PTR;
            break;
        case 2:
            isRight = kova_fr_get_distance(scene.feature(0).data(), 127, scene.feature(1).data(),
                                           128, &distance) == KOVA_FR_ERR_ILLEGAL_PARAM;
            break;
        default:
            isRight = kova_fr_get_distance(nullptr, 128, scene.feature(1).data(), 128, &distance) ==
                      KOVA_FR_ERR_NULL_PTR;
            break;
    }
    ++crowd.tally.refusals;
    crowd.complaint.Check(isRight, "bad arguments");
    crowd.complaint.Check(SameBits(feature, Untouched()) && distance == -5,
                          "a refusal wrote a result");
}

// Of ten calls two extract, three compare, two initialise, one shuts down, one is bad, and one may be
// made at any time without the lock.
void CallOnce(Crowd& crowd, Random& random) {
    switch (random.Between(0, 9)) {
        case 0:
        case 1:
            return CallExtract(crowd, random);
        case 2:
        case 3:
        case 4:
            return CallDistance(crowd, random);
        case 5:
        case 6:
            return CallInit(crowd);
        case 7:
            return CallDeinit(crowd);
        case 8:
            return CallBadly(crowd, random);
        default:
            return crowd.complaint.Check(
                OrvoFrGetDistance(crowd.scene.feature(0).data(), ORVO_FR_FEATURE_BYTES,
                                  crowd.scene.feature(1).data(),
                                  ORVO_FR_FEATURE_BYTES) == crowd.distances[1],
                "another distance without the lock");
    }
}

// One thread alone, before the others.
void Learn(Crowd& crowd) {
    Require(kova_fr_init() == KOVA_FR_OK, "the library cannot be initialised");
    crowd.tally.initialised = 1;
    crowd.scene.Learn();
    const size_t count = crowd.scene.count();
    Require(count * count <= crowd.distances.size(), "there are more frames than distances");
    for (size_t i = 0; i < count * count; ++i) {
        Require(DistanceOf(crowd.scene, i / count, i % count, crowd.distances[i]) == KOVA_FR_OK,
                "a first distance is refused");
    }
}

// Nothing is held but the frames and, where the library is initialised still, its memory.
void CheckEnd(Crowd& crowd) {
    const auto isInitialised = static_cast<uint32_t>(crowd.tally.initialised);
    Require(isInitialised <= 1, "inits and deinits do not add up");
    crowd.scene.RequireNothingElseIsHeld(isInitialised, "at the end");
    Require((kova_fr_deinit() == KOVA_FR_OK) == (isInitialised == 1),
            "the library is not in the state that its answers say");
}

} // namespace

std::string RunCalls(int64_t count, Fault fault) {
    Crowd crowd;
    Learn(crowd);
    if (fault == Fault::kResult) {
        crowd.scene.SpoilTheFeatures();
    }
    int unguarded = 0; // what two threads write at once, where a fault is asked for
    Progress progress("calls", count * kThreads);
    RunThreads([&](int thread) {
        Random random(static_cast<uint64_t>(thread));
        for (int64_t i = 0; i < count; ++i) {
            CallOnce(crowd, random);
            const int64_t done = ++crowd.tally.done;
            if (thread == 0) {
                progress.Done(done);
            }
            if (fault == Fault::kRace) {
                ++unguarded;
            }
        }
    });
    Require(crowd.complaint.text().empty(),
            "a call was answered wrongly: " + crowd.complaint.text());
    Require((unguarded != 0) == (fault == Fault::kRace), "nothing was written");
    CheckEnd(crowd);
    Require(crowd.tally.features > 0 && crowd.tally.distances > 0 && crowd.tally.early > 0,
            "some kind of answer never came; more calls are needed");
    const Tally& tally = crowd.tally;
    return std::to_string(tally.features) + " features and " + std::to_string(tally.distances) +
           " distances equal to those of one thread, " + std::to_string(tally.cycles) +
           " inits between deinits, " + std::to_string(tally.early) +
           " calls answered that the library is not initialised, " +
           std::to_string(tally.refusals) + " bad calls refused";
}

} // namespace orvo_soak
