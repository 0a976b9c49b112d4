// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <vector>

#include "fr_demo/step_digest.h"
#include "reference/reference_find_network.h"

namespace orvo_test {

inline constexpr int kGoldenWidth = 64;
inline constexpr int kGoldenHeight = 48;

// The digests of the reference network's steps with its seeded parameters.
inline std::vector<uint64_t> FindDigests(int picture) {
    std::vector<uint64_t> digests;
    orvo_reference::RunFind(orvo_reference::SeededFindModel(),
                            orvo_reference::SeededGrey(picture, kGoldenWidth, kGoldenHeight),
                            AppendTo(digests));
    return digests;
}

inline std::vector<uint64_t> LookDigests(orvo_reference::LookKind kind, int picture) {
    std::vector<uint64_t> digests;
    orvo_reference::RunLook(kind, orvo_reference::SeededFindModel(),
                            orvo_reference::SeededGrey(picture, 64, 64), AppendTo(digests));
    return digests;
}

inline std::vector<uint64_t> WideDigests(int picture) {
    return LookDigests(orvo_reference::LookKind::kWide, picture);
}

inline std::vector<uint64_t> CloseDigests(int picture) {
    return LookDigests(orvo_reference::LookKind::kClose, picture);
}

} // namespace orvo_test
