// SPDX-License-Identifier: MIT
//
// What readers and writers of version 2 share: formats.h in C++.
#pragma once

#include <cstddef>

#include "gallery/formats.h"

namespace kova_cli {

struct Version2Header {
    FileBegin begin;
    Sha256 models;
    uint64_t count;
    uint64_t fileBytes;
    Checksum lastBlock;
    Checksum checksum;
};
static_assert(sizeof(Version2Header) == 96);

struct BlockHeader {
    uint64_t firstEntry;
    uint32_t count;
    uint32_t nameBytes;
};
static_assert(sizeof(BlockHeader) == 16);

inline constexpr size_t kLongestStoredName = 65535;

// The bytes of a header that fits its checksum.
Version2Header HeaderOf(const GalleryHead& head);
bool IsHeader(const Version2Header& header);

// Between a block's begin and its checksum.
uint64_t ContentBytes(const BlockHeader& block);

// What a block says of itself, before memory is asked for.
bool IsPlausible(const BlockHeader& block, uint64_t firstEntry, uint64_t bytesLeft);

// Adds a block of at most kBlockEntries to bytes that will stand where `head` ends, and to `head`.
void AppendBlock(std::vector<uint8_t>& bytes, GalleryHead& head, std::span<const Feature> features,
                 std::span<const std::string> names);

// A gallery without entries.
GalleryHead EmptyVersion2(const Sha256& models);

} // namespace kova_cli
