// SPDX-License-Identifier: MIT
#include "output/portraits.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "output/picture_files.h"
#include "output/progress.h"

namespace facegen {
namespace {

constexpr int kCutout = 440;       // pixels along a side of one of the group
constexpr float kCutoutFace = 104; // the box of one in the front row
constexpr float kAboveFace = 90;
constexpr int kGroupHeight = 440, kApart = 150, kMargin = 130;

// Daylight from a window beside the camera.
Light Friendly(Random& random) {
    Light light;
    light.ambient = 0.55f;
    light.gradient = {random.Sign() * 0.25f, 0.3f, 0.3f};
    light.sky = 0.15f;
    light.lamps[0] = {
        Normalised({random.Sign() * random.Uniform(0.3f, 0.8f), random.Uniform(0.3f, 0.7f), 1.0f}),
        0.35f, 0.12f};
    light.meanLevel = 0.36f;
    light.shoulder = 1;
    return light;
}

PhotoPlan PlanPortrait(const Studio& studio, const Person& person, std::uint64_t picture) {
    Random random(person.seed ^ 0x9047ULL, person.number, picture + 1, Purpose::kPicture);
    PhotoPlan plan;
    plan.size = kFrameSize;
    const float side = random.Uniform(118.0f, 138.0f), frame = static_cast<float>(kFrameSize);
    plan.box = {(frame - side) / 2 + random.Uniform(-14.0f, 14.0f),
                (frame - side) / 2 + random.Uniform(-4.0f, 16.0f), side};
    const float threeQuarters = picture % 2 == 0 ? 0.0f : (picture % 4 == 1 ? 1.0f : -1.0f);
    plan.yaw = 28.0f * threeQuarters + random.NormalWithin(4.0f, 2.0f);
    plan.pitch = random.NormalWithin(3.0f, 2.0f);
    plan.roll = random.NormalWithin(2.5f, 2.0f);
    plan.distance = random.Uniform(10.0f, 18.0f);
    plan.expression = Smile(studio.model, random.Uniform(0.1f, 0.55f));
    plan.light = Friendly(random);
    if (!studio.environments.empty()) {
        plan.scene.environment = random.Below(static_cast<int>(studio.environments.size()));
        plan.scene.turn = random.Uniform(-3.14159265f, 3.14159265f);
        plan.scene.across = 0.3f;
    }
    return plan;
}

// What is behind a group: a panorama where there is one.
std::vector<float> Backdrop(const Studio& studio, int width, int height, Random& random) {
    std::vector<float> tones(static_cast<std::size_t>(width) * static_cast<std::size_t>(height),
                             0.6f);
    if (!studio.environments.empty()) {
        const auto which =
            static_cast<std::size_t>(random.Below(static_cast<int>(studio.environments.size())));
        Look(studio.environments[which], random.Uniform(-3.14159265f, 3.14159265f), 0.05f, 0.6f,
             tones, width, height);
        for (float& tone : tones) {
            tone = std::pow(std::min(0.2f * tone, 1.0f), 1.0f / 2.2f);
        }
    }
    return tones;
}

struct Place {
    int left = 0, top = 0;
    float face = kCutoutFace;
};

// The first half stands behind, a little smaller, in the gaps of those in front.
Place PlaceOf(std::uint64_t nth, std::uint64_t people) {
    const std::uint64_t behind = people / 2;
    const bool back = nth < behind;
    const auto inRow = static_cast<int>(back ? nth : nth - behind);
    const int shift = back && people % 2 != 0 ? kApart / 2 : 0;
    Place place;
    place.face = back ? 0.88f * kCutoutFace : kCutoutFace;
    place.left =
        kMargin + shift + (back && people % 2 == 0 ? kApart / 2 : 0) + inRow * kApart - kCutout / 2;
    place.top = back ? 0 : 126;
    return place;
}

void Blend(Picture& group, const std::vector<std::uint8_t>& tones,
           const std::vector<std::uint8_t>& cover, const Place& place) {
    for (int y = 0; y < kCutout; ++y) {
        for (int x = 0; x < kCutout; ++x) {
            const int toX = place.left + x, toY = place.top + y;
            if (toX < 0 || toX >= group.width || toY < 0 || toY >= group.height) {
                continue;
            }
            const auto from = static_cast<std::size_t>(y * kCutout + x);
            std::uint8_t& pixel = *group.At(toX, toY);
            pixel = static_cast<std::uint8_t>(
                (tones[from] * cover[from] + pixel * (255 - cover[from]) + 127) / 255);
        }
    }
}

} // namespace

void RenderPortraits(const Studio& studio, const Job& job) {
    Photographer photographer(studio);
    Picture one(kFrameSize, kFrameSize, 1);
    Progress progress(job.people * job.pictures);
    for (std::uint64_t p = 0; p < job.people; ++p) {
        const Person person = MakePerson(studio, job.seed, job.firstPerson + p);
        char name[48];
        std::snprintf(name, sizeof name, "person-%05llu",
                      static_cast<unsigned long long>(job.firstPerson + p));
        const std::filesystem::path folder = job.out / name;
        std::filesystem::create_directories(folder);
        for (std::uint64_t i = 0; i < job.pictures; ++i) {
            photographer.Take(person, PlanPortrait(studio, person, i), i, one.pixels.data());
            std::snprintf(name, sizeof name, "%03llu.png", static_cast<unsigned long long>(i));
            WritePng(folder / name, one);
            progress.Add(1);
        }
    }
    progress.Finish();
}

void RenderGroup(const Studio& studio, const Job& job) {
    const auto inRow = static_cast<int>(job.people - job.people / 2);
    Picture group(2 * kMargin + (inRow - 1) * kApart + (job.people % 2 == 0 ? kApart / 2 : 0),
                  kGroupHeight, 1);
    Random random(job.seed, job.firstPerson, 0, Purpose::kBackground);
    const std::vector<float> backdrop = Backdrop(studio, group.width, group.height, random);
    std::transform(backdrop.begin(), backdrop.end(), group.pixels.begin(), [](float tone) {
        return static_cast<std::uint8_t>(255.0f * std::clamp(tone, 0.0f, 1.0f) + 0.5f);
    });
    Photographer photographer(studio);
    std::vector<std::uint8_t> tones(std::size_t{kCutout} * kCutout), cover(tones.size());
    Random light(job.seed, job.firstPerson, 1, Purpose::kBackground);
    const Light same = Friendly(light);
    for (std::uint64_t p = 0; p < job.people; ++p) {
        const Person person = MakePerson(studio, job.seed, job.firstPerson + p);
        const Place place = PlaceOf(p, job.people);
        PhotoPlan plan = PlanPortrait(studio, person, 1000 + p);
        plan.size = kCutout;
        plan.box = {(kCutout - place.face) / 2, kAboveFace, place.face};
        plan.yaw *= 0.6f;
        plan.scene = Scene{};
        plan.light = same;
        photographer.TakeCutout(person, plan, 1000 + p, tones.data(), cover.data());
        Blend(group, tones, cover, place);
    }
    WritePng(job.out, group);
}

} // namespace facegen
