// SPDX-License-Identifier: MIT
#include "output/shards.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <exception>
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

bool shows_face(const Job& job, std::uint64_t person, std::uint64_t picture) {
    if (job.empty_share <= 0) {
        return true;
    }
    // A stream of its own, so that the other pictures stay the same whatever the share is.
    Random random(job.seed ^ 0x5eedULL, person, picture + 1, Purpose::picture);
    return !random.chance(job.empty_share);
}

// Five views of a bare head, two of them smiling.
PhotoPlan bare_photo(const Studio& studio, const PhotoPlan& plan, std::uint64_t picture) {
    static constexpr float yaws[] = {0, -30, 30, 10, -10}, pitches[] = {0, 0, 0, 15, -15};
    const std::uint64_t view = picture % 5;
    PhotoPlan plain = plain_photo(plan, yaws[view], pitches[view]);
    if (view % 2 == 1) {
        plain.expression = smile(studio.model, 0.7F);
    }
    plain.style = 0;
    plain.stubble = 0;
    plain.glasses_as_well = false;
    return plain;
}

// Renders the part of one person's pictures that lies in the shard.
void render_person(const Studio& studio, const Job& job, Photographer& photographer,
                   std::uint64_t nth, Shard& shard) {
    const std::uint64_t number = job.first_person + nth;
    const Person person = make_person(studio, job.seed, number);
    const auto size = static_cast<std::size_t>(picture_size(job.view));
    const std::uint64_t from = std::max(shard.first, nth * job.pictures);
    const std::uint64_t to = std::min(shard.first + shard.count, (nth + 1) * job.pictures);
    for (std::uint64_t i = from; i < to; ++i) {
        const std::uint64_t picture = i - nth * job.pictures;
        const std::size_t slot = i - shard.first;
        std::uint8_t* pixels = shard.pictures.data() + slot * size * size;
        if (shows_face(job, number, picture)) {
            PhotoPlan plan = plan_photo(studio, person, job.view, picture);
            if (studio.bare) {
                plan = bare_photo(studio, plan, picture);
            }
            photographer.take(person, plan, picture, pixels);
            shard.labels[slot] = labels_of(person, plan);
        } else {
            photographer.take_empty(job.seed, number, picture, static_cast<int>(size), pixels);
            shard.labels[slot] = Labels{};
            shard.labels[slot][label_person] = -1;
        }
    }
}

void render(const Studio& studio, const Job& job, Shard& shard, Progress& progress) {
    const std::uint64_t first = shard.first / job.pictures;
    const std::uint64_t last = (shard.first + shard.count - 1) / job.pictures;
    std::atomic<std::uint64_t> next{first};
    std::exception_ptr failure;
    std::atomic<bool> failed{false};
    const auto work = [&] {
        Photographer photographer(studio);
        try {
            for (std::uint64_t nth = next++; nth <= last && !failed; nth = next++) {
                render_person(studio, job, photographer, nth, shard);
                progress.add(std::min(shard.first + shard.count, (nth + 1) * job.pictures) -
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

void render_shards(const Studio& studio, const Job& job) {
    std::filesystem::create_directories(job.out);
    const std::uint64_t total = job.people * job.pictures;
    const auto size = static_cast<std::size_t>(picture_size(job.view));
    const char* kind = job.view == View::crop ? "crops" : "frames";
    Progress progress(total);
    for (std::uint64_t index = 0; index * job.shard_size < total; ++index) {
        char name[64];
        std::snprintf(name, sizeof name, "%s-%05llu", kind, static_cast<unsigned long long>(index));
        const std::filesystem::path pictures = job.out / (std::string(name) + ".pictures.npy");
        const std::filesystem::path labels_file = job.out / (std::string(name) + ".labels.npy");
        Shard shard;
        shard.first = index * job.shard_size;
        shard.count = std::min(job.shard_size, total - shard.first);
        if (std::filesystem::exists(pictures) && std::filesystem::exists(labels_file)) {
            progress.add(shard.count);
            continue;
        }
        shard.pictures.resize(shard.count * size * size);
        shard.labels.resize(shard.count);
        render(studio, job, shard, progress);
        // The labels come last: where they are, the shard is complete.
        write_npy(pictures, "|u1", {shard.count, size, size}, shard.pictures.data(),
                  shard.pictures.size());
        write_npy(labels_file, "<f4", {shard.count, labels}, shard.labels.data(),
                  shard.labels.size() * sizeof(Labels));
    }
    progress.finish();
}

} // namespace facegen
