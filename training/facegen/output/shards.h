// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <filesystem>

#include "render/photo.h"

namespace facegen {

struct Job {
    std::filesystem::path out;
    View view = View::crop;
    std::uint64_t people = 0, pictures = 0, seed = 0, first_person = 0;
    float empty_share = 0; // of the pictures that show no face
    int threads = 1;
    std::uint64_t shard_size = 4096;
    bool clean = false; // sheets only: no blur, noise or JPEG
    bool plain = false; // sheets only: facing the camera in even light, too
};

// Renders a job into shards (see README.md), skipping those that are there already.
void render_shards(const Studio& studio, const Job& job);

} // namespace facegen
