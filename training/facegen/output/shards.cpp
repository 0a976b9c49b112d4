// SPDX-License-Identifier: MIT
#include "output/shards.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <exception>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "output/labels.h"
#include "output/npy.h"
#include "output/progress.h"
#include "random.h"

namespace facegen {
namespace {

struct Shard {
    std::uint64_t first = 0, count = 0; // pictures of the job, counted through all its people
    std::vector<std::uint8_t> pictures;
    std::vector<Labels> labels;
};

bool ShowsFace(const Job& job, std::uint64_t person, std::uint64_t picture) {
    if (job.emptyShare <= 0) {
        return true;
    }
    // A stream of its own, so that the other pictures stay the same whatever the share is.
    Random random(job.seed ^ 0x5eedULL, person, picture + 1, Purpose::kPicture);
    return !random.Chance(job.emptyShare);
}

// Five views of a bare head, two of them smiling.
PhotoPlan BarePhoto(const Studio& studio, const PhotoPlan& plan, std::uint64_t picture) {
    static constexpr float kYaws[] = {0, -30, 30, 10, -10}, kPitches[] = {0, 0, 0, 15, -15};
    const std::uint64_t view = picture % 5;
    PhotoPlan plain = PlainPhoto(plan, kYaws[view], kPitches[view]);
    if (view % 2 == 1) {
        plain.expression = Smile(studio.model, 0.7f);
    }
    plain.style = 0;
    plain.stubble = 0;
    plain.glassesAsWell = false;
    return plain;
}

// Renders the part of one person's pictures that lies in the shard.
void RenderPerson(const Studio& studio, const Job& job, Photographer& photographer,
                  std::uint64_t nth, Shard& shard) {
    const std::uint64_t number = job.firstPerson + nth;
    std::optional<Person> person;
    const auto size = static_cast<std::size_t>(PictureSize(job.view));
    const std::uint64_t from = std::max(shard.first, nth * job.pictures);
    const std::uint64_t to = std::min(shard.first + shard.count, (nth + 1) * job.pictures);
    for (std::uint64_t i = from; i < to; ++i) {
        const std::uint64_t picture = i - nth * job.pictures;
        const std::size_t slot = i - shard.first;
        std::uint8_t* pixels = shard.pictures.data() + slot * size * size;
        const std::uint64_t look = picture * job.looks / job.pictures;
        if (!person || person->look != look) {
            person = MakePerson(studio, job.seed, number, look);
        }
        if (ShowsFace(job, number, picture)) {
            PhotoPlan plan = PlanPhoto(studio, *person, job.view, picture);
            if (studio.bare && !studio.broad) {
                plan = BarePhoto(studio, plan, picture);
            }
            photographer.Take(*person, plan, picture, pixels);
            shard.labels[slot] = LabelsOf(*person, plan);
        } else {
            photographer.TakeEmpty(job.seed, number, picture, static_cast<int>(size), pixels);
            shard.labels[slot] = Labels{};
            shard.labels[slot][kLabelPerson] = -1;
        }
    }
}

void Render(const Studio& studio, const Job& job, Shard& shard, Progress& progress) {
    const std::uint64_t first = shard.first / job.pictures;
    const std::uint64_t last = (shard.first + shard.count - 1) / job.pictures;
    std::atomic<std::uint64_t> next{first};
    std::exception_ptr failure;
    std::atomic<bool> failed{false};
    const auto work = [&] {
        Photographer photographer(studio);
        try {
            for (std::uint64_t nth = next++; nth <= last && !failed; nth = next++) {
                RenderPerson(studio, job, photographer, nth, shard);
                progress.Add(std::min(shard.first + shard.count, (nth + 1) * job.pictures) -
                             std::max(shard.first, nth * job.pictures));
            }
        } catch (...) {
            if (!failed.exchange(true)) {
                failure = std::current_exception();
            }
        }
    };
    std::vector<std::thread> threads;
    for (int i = 1; i < job.threads; ++i) {
        threads.emplace_back(work);
    }
    work();
    for (std::thread& thread : threads) {
        thread.join();
    }
    if (failure) {
        std::rethrow_exception(failure);
    }
}

} // namespace

void RenderShards(const Studio& studio, const Job& job) {
    std::filesystem::create_directories(job.out);
    const std::uint64_t total = job.people * job.pictures;
    const auto size = static_cast<std::size_t>(PictureSize(job.view));
    const char* kind = job.view == View::kCrop ? "crops" : "frames";
    Progress progress(total);
    for (std::uint64_t index = 0; index * job.shardSize < total; ++index) {
        char name[64];
        std::snprintf(name, sizeof name, "%s-%05llu", kind, static_cast<unsigned long long>(index));
        const std::filesystem::path pictures = job.out / (std::string(name) + ".pictures.npy");
        const std::filesystem::path labelsFile = job.out / (std::string(name) + ".labels.npy");
        Shard shard;
        shard.first = index * job.shardSize;
        shard.count = std::min(job.shardSize, total - shard.first);
        if (std::filesystem::exists(pictures) && std::filesystem::exists(labelsFile)) {
            progress.Add(shard.count);
            continue;
        }
        shard.pictures.resize(shard.count * size * size);
        shard.labels.resize(shard.count);
        Render(studio, job, shard, progress);
        // The labels come last: where they are, the shard is complete.
        WriteNpy(pictures, "|u1", {shard.count, size, size}, shard.pictures.data(),
                 shard.pictures.size());
        WriteNpy(labelsFile, "<f4", {shard.count, kLabels}, shard.labels.data(),
                 shard.labels.size() * sizeof(Labels));
    }
    progress.Finish();
}

} // namespace facegen
