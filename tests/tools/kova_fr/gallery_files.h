// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "program.h"

namespace kova_fr_test {

// Gallery files written from the description of their format, byte by byte.

using Sums = std::array<uint32_t, 4>;

// The checksum of version 2 as it is defined, a bit at a time.
Sums PlainChecksum(const Sums& before, const std::string& bytes);

struct Entries {
    std::vector<Feature> features;
    std::vector<std::string> names;
};

// Random features of unit length by the names "name 0", "name 1" and so on.
Entries RandomEntries(size_t count, uint64_t seed);

struct FileBlock {
    uint64_t firstEntry;
    uint32_t count;
    uint32_t nameBytes;
    std::string content; // features and names
};

std::vector<FileBlock> BlocksOf(const Entries& entries, size_t blockEntries = 512);

// `models` are 32 bytes. All checksums fit, whatever the blocks say.
std::string Version2File(const std::string& models, const std::vector<FileBlock>& blocks,
                         uint64_t count);
// Makes the header's checksum fit again.
void SealVersion2(std::string& file);

std::string Version1File(const std::string& models, const Entries& entries);
// Makes the digest at the end fit again.
void SealVersion1(std::string& file);

} // namespace kova_fr_test
