// SPDX-License-Identifier: MIT
//
// How galleries lie in files. Both versions begin alike: 8 bytes "KFRGALRY", then the version and
// the floats a feature (128) in 4 bytes each. All numbers have their lowest byte first, and a
// feature is 128 floats.
//
// Version 2, which is written, goes on with
//
//   32        SHA-256 of the models that made the features
//   8 + 8     number of entries, bytes of the file
//   16        checksum of the last block; of what stands before the entries' number if there is none
//   16        checksum of everything before this one, from the first checksum (checksum.h)
//
// and blocks of up to 512 entries, each with
//
//   8         number of the first entry, from 0
//   4 + 4     number of entries, bytes of their names
//   ...       the features
//   ...       for each entry the length of its name in 2 bytes, and the name
//   16        checksum of the block up to here, from that of the block before; the first block's from
//             that of what stands before the entries' number
//
// A block can be checked by itself, and since each checksum begins from another, blocks that were
// lost, exchanged or left over from an earlier file are noticed as well as changed bytes are.
//
// Blocks are added behind the others, and the header is exchanged last (appending.cpp). So the file
// may be longer than the header says: what follows was not finished and does not count. But where
// the header does not fit its checksum, as after a loss of power while it was exchanged, the file's
// last 96 bytes are the header, if they fit theirs and say that the blocks end before them.
//
// Version 1, which earlier programs wrote, goes on with
//
//   8         number of entries
//   32        SHA-256 of the models that made the features
//   ...       the features
//   ...       for each entry the length of its name in 2 bytes, and the name
//   32        SHA-256 of everything before
//
// Features of other models mean nothing to this one, and half a file is worse than none: both are
// refused. docs/GALLERY.md says the same to those who read galleries with programs of their own.
#pragma once

#include <string_view>
#include <vector>

#include "gallery/gallery_file.h"

namespace kova_cli {

struct FileBegin {
    char magic[8];
    uint32_t version;
    uint32_t featureLength;
};
static_assert(sizeof(FileBegin) == 16);

inline constexpr std::string_view kMagic = "KFRGALRY";
inline constexpr uint32_t kFeatureLength = std::tuple_size_v<Feature>;
inline constexpr size_t kBlockEntries = 512; // 256 KiB of features stay in a second cache

// The Failures of both versions, which do not name the file.
[[noreturn]] void FailCutShort();
[[noreturn]] void FailDamaged();
[[noreturn]] void FailInconsistent();
[[noreturn]] void FailNoFeature(uint64_t entry);
[[noreturn]] void FailOtherLength(uint32_t featureLength);

// Finite numbers and unit length, which every feature has. The distances mean nothing without.
bool IsFeature(const float* feature);

// Takes the next `count` names from the front of `rest`; false if they do not fit into it.
bool TakeNames(Bytes& rest, size_t count, std::vector<std::string_view>& names);
void AppendName(std::vector<uint8_t>& bytes, std::string_view name);

// What stands in front of the entries.
GalleryHead HeadOfVersion1(const InputFile& file);
GalleryHead HeadOfVersion2(const InputFile& file);

// Before anything is said about a gallery's content: a damaged one of version 1 may say anything.
void CheckWholeVersion1(const InputFile& file);

void ReadVersion1(const InputFile& file, const TakeBlock& take);
void ReadVersion2(const InputFile& file, const GalleryHead& head, const TakeBlock& take);

} // namespace kova_cli
