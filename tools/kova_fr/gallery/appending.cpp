// SPDX-License-Identifier: MIT
//
// What is added to a gallery costs what it is long. The order of the steps is the whole safety, for
// the program can be killed and the power can fail between any two of them, and in the middle of
// each:
//
//   1  what stands behind the blocks is cut off: an earlier addition that did not come to its end
//   2  the new blocks are written there, and behind them the new header; both are on the disk
//   3  the new header is written over the old one, and is on the disk
//   4  the copy of it is cut off
//
// Until 3 the old header counts, and with it nothing but the old blocks. While 3 is at work the
// header may fit no checksum, and then the copy counts. Blocks that count are never touched.
#include "gallery/appending.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "files/failure.h"
#include "files/open_file.h"
#include "gallery/version_2.h"

namespace kova_cli {
namespace {

// Single faces make small blocks, each of which costs readers two calls of the system. Twice as many
// as there must be, and some more, keep reading fast and writing anew rare: 256 KiB a face at most
// are written on the average.
constexpr uint64_t kSpareBlocks = 64;

uint64_t BlocksFor(uint64_t entries) { return (entries + kBlockEntries - 1) / kBlockEntries; }

// By what the blocks say of themselves; their features are not read.
uint64_t CountBlocks(const InputFile& file, const GalleryHead& head) {
    uint64_t blocks = 0;
    uint64_t entries = 0;
    for (uint64_t at = sizeof(Version2Header); at < head.end; ++blocks) {
        BlockHeader block;
        if (head.end - at < sizeof block) {
            FailDamaged();
        }
        file.Read(at, &block, sizeof block);
        if (!IsPlausible(block, entries, head.end - at)) {
            FailDamaged();
        }
        entries += block.count;
        at += ContentBytes(block) + sizeof(Checksum);
    }
    if (entries != head.count) {
        FailDamaged();
    }
    return blocks;
}

bool HasTooManyBlocks(const InputFile& file, const GalleryHead& head, uint64_t added) {
    return CountBlocks(file, head) + BlocksFor(added) >
           2 * BlocksFor(head.count + added) + kSpareBlocks;
}

std::span<const uint8_t> BytesOf(const Version2Header& header) {
    return {reinterpret_cast<const uint8_t*>(&header), sizeof header};
}

void CutTo(int file, uint64_t end, const std::string& path) {
    if (ftruncate(file, static_cast<off_t>(end)) != 0) {
        FailToWrite(path, errno);
    }
}

// The header first: where it was lost, its copy stands in what is cut off.
void CutOffUnfinished(int file, const GalleryHead& head, const std::string& path) {
    struct stat status = {};
    if (fstat(file, &status) != 0) {
        FailToWrite(path, errno);
    }
    if (static_cast<uint64_t>(status.st_size) > head.end) {
        WriteAllAt(file, 0, BytesOf(HeaderOf(head)), path);
        Sync(file, path);
        CutTo(file, head.end, path);
    }
}

void Write(int file, const GalleryHead& head, std::span<const uint8_t> blocks,
           const GalleryHead& newHead, const std::string& path) {
    const Version2Header header = HeaderOf(newHead);
    try {
        WriteAllAt(file, head.end, blocks, path);
        WriteAllAt(file, newHead.end, BytesOf(header), path);
        Sync(file, path);
    } catch (const Failure&) {
        static_cast<void>(!ftruncate(file, static_cast<off_t>(head.end))); // room for others
        throw;
    }
    WriteAllAt(file, 0, BytesOf(header), path);
    Sync(file, path);
    CutTo(file, newHead.end, path);
}

bool HasOtherNames(int file) {
    struct stat status = {};
    return fstat(file, &status) != 0 || status.st_nlink > 1;
}

} // namespace

bool AppendInPlace(const std::string& path, const GalleryHead& head,
                   std::span<const Feature> features, std::span<const std::string> names) {
    const OpenFile out(path, O_RDWR | O_CLOEXEC);
    if (out.descriptor() < 0) {
        FailToWrite(path, errno);
    }
    const InputFile in(path, UINT64_MAX);
    const bool isScattered =
        Naming(path, [&] { return HasTooManyBlocks(in, head, features.size()); });
    if (isScattered || HasOtherNames(out.descriptor())) {
        return false;
    }
    GalleryHead newHead = head;
    std::vector<uint8_t> blocks;
    for (size_t first = 0; first < features.size(); first += kBlockEntries) {
        const size_t count = std::min(kBlockEntries, features.size() - first);
        AppendBlock(blocks, newHead, features.subspan(first, count), names.subspan(first, count));
    }
    CutOffUnfinished(out.descriptor(), head, path);
    Write(out.descriptor(), head, blocks, newHead, path);
    return true;
}

} // namespace kova_cli
