// SPDX-License-Identifier: MIT
#include "output/cutouts.h"

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "output/labels.h"
#include "output/npy.h"
#include "output/progress.h"
#include "random.h"

namespace facegen {
namespace {

constexpr std::size_t kPixels = std::size_t{kCutoutSize} * kCutoutSize;

struct Shard {
    std::uint64_t first = 0, count = 0; // cutouts of the job, counted through all its people
    std::vector<std::uint8_t> pictures; // tones, then cover, of each
    std::vector<Labels> labels;
    std::vector<FacePoints> points;
};

// From the front mostly, from all sides often; one of eight shows the back of a head.
PhotoPlan PlanCutout(const Studio& studio, const Person& person, std::uint64_t picture) {
    PhotoPlan plan = PlanPhoto(studio, person, View::kFrame, picture);
    Random random(person.seed ^ 0xc07ULL, person.number, picture + 1, Purpose::kPicture);
    plan.size = kCutoutSize;
    plan.box = {kCutoutLeft, kCutoutTop, kCutoutBox};
    const float at = random.Uniform();
    plan.yaw = at < 0.5f     ? random.NormalWithin(22.0f, 2.6f)
               : at < 0.875f ? random.Uniform(-98.0f, 98.0f)
                             : random.Sign() * random.Uniform(115.0f, 180.0f);
    plan.pitch =
        random.Chance(0.7f) ? random.NormalWithin(11.0f, 2.4f) : random.Uniform(-40.0f, 40.0f);
    plan.roll = random.NormalWithin(8.0f, 2.5f);
    return plan;
}

void RenderOne(const Studio& studio, Photographer& photographer, const Person& person,
               std::uint64_t picture, std::size_t slot, Shard& shard) {
    const PhotoPlan plan = PlanCutout(studio, person, picture);
    std::uint8_t* pixels = shard.pictures.data() + slot * 2 * kPixels;
    photographer.TakeCutout(person, plan, picture, pixels, pixels + kPixels);
    shard.labels[slot] = LabelsOf(person, plan);
    shard.points[slot] = photographer.PointsOf(person, plan);
}

void Render(const Studio& studio, const Job& job, Shard& shard, Progress& progress) {
    Photographer photographer(studio);
    for (std::uint64_t i = shard.first; i < shard.first + shard.count;) {
        const std::uint64_t nth = i / job.pictures;
        const Person person = MakePerson(studio, job.seed, job.firstPerson + nth);
        const std::uint64_t end = std::min(shard.first + shard.count, (nth + 1) * job.pictures);
        for (; i < end; ++i) {
            RenderOne(studio, photographer, person, i - nth * job.pictures, i - shard.first, shard);
            progress.Add(1);
        }
    }
}

} // namespace

void RenderCutouts(const Studio& studio, const Job& job) {
    std::filesystem::create_directories(job.out);
    const std::uint64_t total = job.people * job.pictures;
    Progress progress(total);
    for (std::uint64_t index = 0; index * job.shardSize < total; ++index) {
        char name[64];
        std::snprintf(name, sizeof name, "cutouts-%05llu", static_cast<unsigned long long>(index));
        const auto file = [&](const char* what) {
            return job.out / (std::string(name) + "." + what + ".npy");
        };
        Shard shard;
        shard.first = index * job.shardSize;
        shard.count = std::min(job.shardSize, total - shard.first);
        if (std::filesystem::exists(file("labels"))) {
            progress.Add(shard.count);
            continue;
        }
        shard.pictures.resize(shard.count * 2 * kPixels);
        shard.labels.resize(shard.count);
        shard.points.resize(shard.count);
        Render(studio, job, shard, progress);
        const std::size_t side = kCutoutSize;
        WriteNpy(file("pictures"), "|u1", {shard.count, 2, side, side}, shard.pictures.data(),
                 shard.pictures.size());
        WriteNpy(file("points"), "<f4", {shard.count, 5, 2}, shard.points.data(),
                 shard.points.size() * sizeof(FacePoints));
        // The labels come last: where they are, the shard is complete.
        WriteNpy(file("labels"), "<f4", {shard.count, kLabels}, shard.labels.data(),
                 shard.labels.size() * sizeof(Labels));
    }
    progress.Finish();
}

} // namespace facegen
