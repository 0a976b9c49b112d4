// SPDX-License-Identifier: MIT
//
// The first initialisation of a process, which opens the models, with everything else at the same moment. Each
// race is run by a process of its own, since a process opens its models once.
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <string>

#include "soak/crowd.h"
#include "soak/progress.h"
#include "soak/scene.h"

namespace orvo_soak {
namespace {

// What the threads of a race do, by their number and the race's.
enum class Role { kInit, kExtract, kDeinit, kDistance };
constexpr Role kRoles[kThreads] = {Role::kInit,    Role::kExtract, Role::kDeinit, Role::kInit,
                                   Role::kExtract, Role::kInit,    Role::kDeinit, Role::kDistance};

// What came of a race's extractions.
struct Answers {
    int64_t features;
    int64_t early;
};

struct Race {
    const Scene& scene;
    Complaint complaint;
    std::atomic<int> initialised = 0;
    std::atomic<int64_t> features = 0;
    std::atomic<int64_t> early = 0;

    void Run(Role role, size_t which) {
        Feature feature = {};
        float distance = 0;
        uint32_t code = KOVA_FR_OK;
        switch (role) {
            case Role::kInit:
                code = kova_fr_init();
                initialised += code == KOVA_FR_OK;
                return complaint.Check(code == KOVA_FR_OK || code == KOVA_FR_ERR_EXIST, "init");
            case Role::kDeinit:
                code = kova_fr_deinit();
                initialised -= code == KOVA_FR_OK;
                return complaint.Check(code == KOVA_FR_OK || code == KOVA_FR_ERR_UNEXIST, "deinit");
            case Role::kDistance:
                code =
                    kova_fr_get_distance(scene.feature(0).data(), KOVA_FR_FEATURE_LEN,
                                         scene.feature(0).data(), KOVA_FR_FEATURE_LEN, &distance);
                return complaint.Check(code == KOVA_FR_OK || code == KOVA_FR_ERR_UNEXIST,
                                       "distance");
            case Role::kExtract:
                code = Extract(scene.image(which), feature);
                features += code == KOVA_FR_OK;
                early += code == KOVA_FR_ERR_UNEXIST;
                return complaint.Check(code == KOVA_FR_OK ? SameBits(feature, scene.feature(which))
                                                          : code == KOVA_FR_ERR_UNEXIST,
                                       "extraction");
        }
    }
};

template <typename T>
void Send(int pipe, const T& what) {
    Require(write(pipe, &what, sizeof what) == sizeof what, "the pipe is full");
}

template <typename T>
void Receive(int pipe, T& what) {
    Require(read(pipe, &what, sizeof what) == sizeof what, "the pipe is empty");
}

// In a child, whose answers go through the pipe.
void RunRace(const Scene& scene, int64_t number, int pipe) {
    Race race{scene, {}};
    RunThreads([&](int thread) {
        const auto turn = static_cast<size_t>(thread + number);
        race.Run(kRoles[turn % kThreads], turn % scene.count());
    });
    Require(race.complaint.text().empty(), "a call was answered wrongly: " + race.complaint.text());
    const auto isInitialised = static_cast<uint32_t>(race.initialised);
    Require(isInitialised <= 1, "inits and deinits do not add up");
    scene.RequireNothingElseIsHeld(isInitialised, "after a race");
    Send(pipe, Answers{race.features, race.early});
}

// Runs the body in a child and returns how that ended.
template <typename Body>
int InAChild(const Body& body) {
    const pid_t child = fork();
    Require(child >= 0, "no process can be started");
    if (child == 0) {
        int status = 1;
        try {
            status = body();
        } catch (const std::exception& failure) {
            std::printf("%s\n", failure.what());
        }
        std::fflush(nullptr);
        _exit(status);
    }
    int status = 0;
    Require(waitpid(child, &status, 0) == child, "a process is lost");
    return status;
}

} // namespace

std::string RunRaces(int64_t count, Fault fault) {
    int pipe[2];
    Require(::pipe(pipe) == 0, "there is no pipe");
    // A child learns what the features are, so that this process never opens the models.
    std::array<Feature, Scene::kFrames> features = {};
    const int learnt = InAChild([&pipe] {
        Scene scene;
        Require(kova_fr_init() == KOVA_FR_OK, "the library cannot be initialised");
        scene.Learn();
        for (size_t i = 0; i < scene.count(); ++i) {
            Send(pipe[1], scene.feature(i));
        }
        return 0;
    });
    Require(learnt == 0, "the first features cannot be had");
    for (Feature& feature : features) {
        Receive(pipe[0], feature);
    }
    Answers all = {};
    Progress progress("races", count);
    for (int64_t race = 0; race < count; ++race) {
        const int status = InAChild([&] {
            Scene scene;
            scene.Expect(features);
            if (fault == Fault::kResult) {
                scene.SpoilTheFeatures();
            }
            RunRace(scene, race, pipe[1]);
            return 0;
        });
        Require(status == 0, "race " + std::to_string(race) + " failed");
        Answers answers = {};
        Receive(pipe[0], answers);
        all.features += answers.features;
        all.early += answers.early;
        progress.Done(race + 1);
    }
    Require(all.features > 0 && all.early > 0, "no extraction came first, or none last");
    return std::to_string(kThreads) +
           " threads each, in a process that had not opened the models; " +
           std::to_string(all.features) + " features as those of one thread, " +
           std::to_string(all.early) +
           " extractions before the initialisation; nothing left behind";
}

} // namespace orvo_soak
