// SPDX-License-Identifier: MIT
//
// Faces one after the other, as in a lock that nobody restarts.
#include <string>
#include <vector>

#include "soak/memory_watch.h"
#include "soak/progress.h"
#include "soak/scene.h"

namespace orvo_soak {
namespace {

// Most frames are used where they lie. The others cost time in the stand-in, which is not what is asked about.
size_t FrameOf(int64_t round, const Scene& scene) {
    const auto number = static_cast<size_t>(round);
    return number % 16 == 15 ? number / 16 % scene.count() : number % Scene::kFramesInPlace;
}

} // namespace

std::string RunFaces(int64_t count, Fault fault) {
    Scene scene;
    Require(kova_fr_init() == KOVA_FR_OK, "the library cannot be initialised");
    scene.Learn();
    MemoryWatch memory(count);
    Progress progress("faces", count);
    std::vector<std::string> grown;
    for (int64_t round = 0; round < count; ++round) {
        const size_t which = FrameOf(round, scene);
        Feature feature = {};
        Require(Extract(scene.image(which), feature) == KOVA_FR_OK,
                "face " + std::to_string(round) + " is refused");
        if (fault == Fault::kResult && round == count / 2) {
            scene.SpoilTheFeatures();
        }
        if (fault == Fault::kGrowth && round % 100 == 0) {
            grown.emplace_back(100, 'x');
        }
        Require(SameBits(feature, scene.feature(which)),
                "face " + std::to_string(round) + " has another feature than the first time");
        memory.After(round);
        progress.Done(round + 1);
    }
    scene.RequireNothingElseIsHeld(1, "at the end");
    Require(kova_fr_deinit() == KOVA_FR_OK, "the library cannot be de-initialised");
    return "each feature equal to the first of its frame (" + std::to_string(scene.count()) +
           " frames); " + memory.Text();
}

} // namespace orvo_soak
