// SPDX-License-Identifier: MIT
#include "gallery/version_2.h"

#include <algorithm>
#include <cstring>

namespace kova_cli {
namespace {

Checksum ChecksumOfBegin(const Version2Header& header) {
    return ChecksumOf(kFirstChecksum, &header, offsetof(Version2Header, count));
}

Checksum ChecksumOfHeader(const Version2Header& header) {
    return ChecksumOf(kFirstChecksum, &header, offsetof(Version2Header, checksum));
}

Version2Header ReadHeader(const InputFile& file, uint64_t at) {
    Version2Header header;
    file.Read(at, &header, sizeof header);
    return header;
}

// The header of a file of this size, or the one behind the blocks of an exchange that stopped in the
// middle. One that fits neither place is returned as it is.
Version2Header FindHeader(const InputFile& file, uint64_t size) {
    const Version2Header first = ReadHeader(file, 0);
    if (IsHeader(first) || size < 2 * sizeof first) {
        return first;
    }
    const uint64_t at = size - sizeof first;
    const Version2Header last = ReadHeader(file, at);
    return IsHeader(last) && last.fileBytes == at ? last : first;
}

bool IsWhole(const Version2Header& header, uint64_t size) {
    return IsHeader(header) && header.fileBytes >= sizeof header && header.fileBytes <= size;
}

// Somebody may be adding to the file: then it has changed when it is looked at again.
Version2Header WholeHeader(const InputFile& file) {
    uint64_t size = file.SizeNow();
    Version2Header header = FindHeader(file, size);
    while (!IsWhole(header, size)) {
        const uint64_t newSize = file.SizeNow();
        const Version2Header newHeader = FindHeader(file, newSize);
        if (newSize == size && std::memcmp(&newHeader, &header, sizeof header) == 0) {
            FailDamaged();
        }
        size = newSize;
        header = newHeader;
    }
    return header;
}

// One block after the other.
class BlockReader {
  public:
    BlockReader(const InputFile& file, const GalleryHead& head)
        : file_(file), head_(head), before_(head.begin) {}

    bool HasNext() const { return at_ < head_.end; }

    GalleryBlock Next() {
        const size_t contentBytes = ReadNext();
        const auto* bytes = reinterpret_cast<const uint8_t*>(block_.data());
        Checksum stored;
        std::memcpy(&stored, bytes + contentBytes, sizeof stored);
        if (ChecksumOf(before_, bytes, contentBytes) != stored) {
            FailDamaged();
        }
        BlockHeader header;
        std::memcpy(&header, bytes, sizeof header);
        Bytes names(bytes + contentBytes - header.nameBytes, header.nameBytes);
        if (!TakeNames(names, header.count, names_) || !names.empty()) {
            FailInconsistent();
        }
        const float* features = block_.data() + sizeof header / sizeof(float);
        for (size_t i = 0; i < header.count; ++i) {
            if (!IsFeature(features + i * kFeatureLength)) {
                FailNoFeature(entries_ + i);
            }
        }
        before_ = stored;
        at_ += contentBytes + sizeof stored;
        const size_t first = entries_;
        entries_ += header.count;
        return {first, features, names_};
    }

    void CheckEnd() const {
        if (entries_ != head_.count || before_ != head_.lastBlock) {
            FailDamaged();
        }
    }

  private:
    // Returns how many bytes stand in front of its checksum.
    size_t ReadNext() {
        const uint64_t bytesLeft = head_.end - at_;
        BlockHeader header;
        if (bytesLeft < sizeof header) {
            FailDamaged();
        }
        file_.Read(at_, &header, sizeof header);
        if (!IsPlausible(header, entries_, bytesLeft)) {
            FailDamaged();
        }
        const size_t contentBytes = ContentBytes(header);
        const size_t bytes = contentBytes + sizeof(Checksum);
        block_.resize(std::max(block_.size(), bytes / sizeof(float) + 1));
        std::memcpy(block_.data(), &header, sizeof header);
        file_.Read(at_ + sizeof header, block_.data() + sizeof header / sizeof(float),
                   bytes - sizeof header);
        return contentBytes;
    }

    const InputFile& file_;
    const GalleryHead& head_;
    Checksum before_;
    uint64_t at_ = sizeof(Version2Header);
    size_t entries_ = 0;
    std::vector<float> block_; // as it lies in the file, so that its features are floats
    std::vector<std::string_view> names_;
};

void Append(std::vector<uint8_t>& bytes, const void* data, size_t size) {
    const auto* from = static_cast<const uint8_t*>(data);
    bytes.insert(bytes.end(), from, from + size);
}

} // namespace

bool IsHeader(const Version2Header& header) { return header.checksum == ChecksumOfHeader(header); }

Version2Header HeaderOf(const GalleryHead& head) {
    Version2Header header = {};
    std::copy(kMagic.begin(), kMagic.end(), header.begin.magic);
    header.begin.version = 2;
    header.begin.featureLength = kFeatureLength;
    header.models = head.models;
    header.count = head.count;
    header.fileBytes = head.end;
    header.lastBlock = head.lastBlock;
    header.checksum = ChecksumOfHeader(header);
    return header;
}

uint64_t ContentBytes(const BlockHeader& block) {
    return sizeof block + uint64_t{block.count} * sizeof(Feature) + block.nameBytes;
}

bool IsPlausible(const BlockHeader& block, uint64_t firstEntry, uint64_t bytesLeft) {
    return block.firstEntry == firstEntry && block.count > 0 && block.count <= kBlockEntries &&
           block.nameBytes <= block.count * (2 + kLongestStoredName) &&
           ContentBytes(block) + sizeof(Checksum) <= bytesLeft;
}

void AppendBlock(std::vector<uint8_t>& bytes, GalleryHead& head, std::span<const Feature> features,
                 std::span<const std::string> names) {
    BlockHeader header = {head.count, static_cast<uint32_t>(features.size()), 0};
    for (const std::string& name : names) {
        header.nameBytes += static_cast<uint32_t>(2 + name.size());
    }
    const size_t begin = bytes.size();
    Append(bytes, &header, sizeof header);
    Append(bytes, features.data(), features.size_bytes());
    for (const std::string& name : names) {
        AppendName(bytes, name);
    }
    head.lastBlock = ChecksumOf(head.lastBlock, bytes.data() + begin, bytes.size() - begin);
    Append(bytes, &head.lastBlock, sizeof head.lastBlock);
    head.count += features.size();
    head.end += bytes.size() - begin;
}

GalleryHead EmptyVersion2(const Sha256& models) {
    GalleryHead head = {2, 0, models, sizeof(Version2Header), {}, {}};
    head.begin = ChecksumOfBegin(HeaderOf(head));
    head.lastBlock = head.begin;
    return head;
}

GalleryHead HeadOfVersion2(const InputFile& file) {
    if (file.size() < sizeof(Version2Header)) {
        FailCutShort();
    }
    const Version2Header header = WholeHeader(file);
    if (header.begin.featureLength != kFeatureLength) {
        FailOtherLength(header.begin.featureLength);
    }
    return {2,
            header.count,
            header.models,
            header.fileBytes,
            ChecksumOfBegin(header),
            header.lastBlock};
}

void ReadVersion2(const InputFile& file, const GalleryHead& head, const TakeBlock& take) {
    BlockReader reader(file, head);
    while (reader.HasNext()) {
        take(reader.Next());
    }
    reader.CheckEnd();
}

} // namespace kova_cli
