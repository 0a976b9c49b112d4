// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <filesystem>

#include "render/photo.h"

namespace facegen {

struct Job {
    std::filesystem::path out;
    View view = View::kCrop;
    std::uint64_t people = 0, pictures = 0, seed = 0, firstPerson = 0;
    std::uint64_t looks = 1; // of a person, each in as many of the pictures: hair and beard
    float emptyShare = 0;    // of the pictures that show no face
    int threads = 1;
    std::uint64_t shardSize = 4096;
    bool clean = false; // sheets only: no blur, noise or JPEG
    bool plain = false; // sheets only: facing the camera in even light, too
};

// Renders a job into shards (see README.md), skipping those that are there already.
void RenderShards(const Studio& studio, const Job& job);

} // namespace facegen
