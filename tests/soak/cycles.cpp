// SPDX-License-Identifier: MIT
//
// The device API taken up and put down again, with a face in between.
#include <string>
#include <vector>

#include "soak/memory_watch.h"
#include "soak/progress.h"
#include "soak/scene.h"

namespace orvo_soak {

std::string RunCycles(int64_t count, Fault fault) {
    Scene scene;
    Require(kova_fr_init() == KOVA_FR_OK, "the library cannot be initialised");
    scene.Learn();
    Require(kova_fr_deinit() == KOVA_FR_OK, "the library cannot be de-initialised");
    MemoryWatch memory(count);
    Progress progress("cycles", count);
    std::vector<std::string> grown;
    for (int64_t round = 0; round < count; ++round) {
        const std::string name = "cycle " + std::to_string(round) + ": ";
        const size_t which = static_cast<size_t>(round) % scene.count();
        Feature feature = {};
        Require(kova_fr_init() == KOVA_FR_OK, name + "init is refused");
        Require(Extract(scene.image(which), feature) == KOVA_FR_OK, name + "the face is refused");
        Require(kova_fr_deinit() == KOVA_FR_OK, name + "deinit is refused");
        if (fault == Fault::kResult && round == count / 2) {
            scene.SpoilTheFeatures();
        }
        if (fault == Fault::kGrowth && round % 10 == 0) {
            grown.emplace_back(100, 'x');
        }
        Require(SameBits(feature, scene.feature(which)), name + "another feature");
        scene.RequireNothingElseIsHeld(0, "cycle " + std::to_string(round));
        memory.After(round);
        progress.Done(round + 1);
    }
    return "nothing held after any; each feature equal to the first of its frame; " + memory.Text();
}

} // namespace orvo_soak
