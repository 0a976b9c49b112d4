// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace kova_cli {

// Four CRC-32C beside one another: of the 8-byte words 0, 4, 8 and so on, of the words 1, 5, 9 and
// so on, and the same from the third and the fourth word; the last 32 bytes are filled up with
// zeros. Each begins from the one before, the first from all ones, and is not inverted at the end.
//
// It is what processors compute at the speed of their second cache, ten times as fast as SHA-256;
// damage is to be noticed, not malice, for which a digest without a key does nothing either. A
// change of up to 32 neighbouring bits is always noticed, any other but for one in 2^32 if it lies
// within 8 bytes, and but for one in 2^128 if it goes over 32 bytes and more.
using Checksum = std::array<uint32_t, 4>;

inline constexpr Checksum kFirstChecksum = {~0u, ~0u, ~0u, ~0u};

Checksum ChecksumOf(const Checksum& before, const void* bytes, size_t count);
// The same, as processors compute it that have no instruction for it.
Checksum ChecksumByTables(const Checksum& before, const void* bytes, size_t count);

} // namespace kova_cli
