// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "reference/reference_networks.h"

namespace orvo_test {

// FNV-1a, 64 bits.
inline uint64_t Digest(const void* data, size_t size) {
    const auto* bytes = static_cast<const uint8_t*>(data);
    uint64_t hash = 0xCBF29CE484222325u;
    for (size_t i = 0; i < size; ++i) {
        hash = (hash ^ bytes[i]) * 0x100000001B3u;
    }
    return hash;
}

// Collects a digest of every step's output, in step order.
inline orvo_reference::AfterStep AppendTo(std::vector<uint64_t>& digests) {
    return [&digests](int, const void* output, size_t size) {
        digests.push_back(Digest(output, size));
    };
}

// The digests of the reference networks with their seeded parameters.
inline std::vector<uint64_t> AlignDigests(int picture) {
    std::vector<uint64_t> digests;
    orvo_reference::RunAlign(orvo_reference::SeededAlignModel(),
                             orvo_reference::SeededPicture(picture, 1, 24), AppendTo(digests));
    return digests;
}

inline std::vector<uint64_t> FrDigests(int picture) {
    std::vector<uint64_t> digests;
    orvo_reference::RunFr(orvo_reference::SeededFrModel(),
                          orvo_reference::SeededPicture(picture, 3, 96), AppendTo(digests));
    return digests;
}

} // namespace orvo_test
