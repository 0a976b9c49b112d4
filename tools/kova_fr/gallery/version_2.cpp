// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cstddef>
#include <cstring>

#include "gallery/checksum.h"
#include "gallery/formats.h"

namespace kova_cli {
namespace {

struct Header {
    FileBegin begin;
    Sha256 models;
    uint64_t count;
    uint64_t fileBytes;
    Checksum lastBlock;
    Checksum checksum;
};
static_assert(sizeof(Header) == 96);

struct BlockHeader {
    uint64_t firstEntry;
    uint32_t count;
    uint32_t nameBytes;
};
static_assert(sizeof(BlockHeader) == 16);

constexpr size_t kLongestStoredName = 65535;

Checksum ChecksumOfBegin(const Header& header) {
    return ChecksumOf(kFirstChecksum, &header, offsetof(Header, count));
}

Checksum ChecksumOfHeader(const Header& header) {
    return ChecksumOf(kFirstChecksum, &header, offsetof(Header, checksum));
}

Header HeaderOf(const InputFile& file) {
    Header header;
    file.Read(0, &header, sizeof header);
    return header;
}

uint64_t ContentBytes(const BlockHeader& block) {
    return sizeof block + uint64_t{block.count} * sizeof(Feature) + block.nameBytes;
}

// What a block says of itself, before memory is asked for.
bool IsPlausible(const BlockHeader& block, uint64_t firstEntry, uint64_t bytesLeft) {
    return block.firstEntry == firstEntry && block.count > 0 && block.count <= kBlockEntries &&
           block.nameBytes <= block.count * (2 + kLongestStoredName) &&
           ContentBytes(block) + sizeof(Checksum) <= bytesLeft;
}

// One block after the other.
class BlockReader {
  public:
    explicit BlockReader(const InputFile& file)
        : file_(file), header_(HeaderOf(file)), before_(ChecksumOfBegin(header_)) {}

    bool HasNext() const { return at_ < header_.fileBytes; }

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
        before_ = stored;
        at_ += contentBytes + sizeof stored;
        const size_t first = entries_;
        entries_ += header.count;
        return {first, block_.data() + sizeof header / sizeof(float), names_};
    }

    void CheckEnd() const {
        if (entries_ != header_.count || before_ != header_.lastBlock) {
            FailDamaged();
        }
    }

  private:
    // Returns how many bytes stand in front of its checksum.
    size_t ReadNext() {
        const uint64_t bytesLeft = header_.fileBytes - at_;
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
    const Header header_;
    Checksum before_;
    uint64_t at_ = sizeof(Header);
    size_t entries_ = 0;
    std::vector<float> block_; // as it lies in the file, so that its features are floats
    std::vector<std::string_view> names_;
};

void Append(std::vector<uint8_t>& bytes, const void* data, size_t size) {
    const auto* from = static_cast<const uint8_t*>(data);
    bytes.insert(bytes.end(), from, from + size);
}

// Returns the block's checksum.
Checksum AppendBlock(std::vector<uint8_t>& bytes, const Checksum& before, size_t firstEntry,
                     std::span<const Feature> features, std::span<const std::string> names) {
    BlockHeader header = {firstEntry, static_cast<uint32_t>(features.size()), 0};
    for (const std::string& name : names) {
        header.nameBytes += static_cast<uint32_t>(2 + name.size());
    }
    const size_t begin = bytes.size();
    Append(bytes, &header, sizeof header);
    Append(bytes, features.data(), features.size_bytes());
    for (const std::string& name : names) {
        AppendName(bytes, name);
    }
    const Checksum checksum = ChecksumOf(before, bytes.data() + begin, bytes.size() - begin);
    Append(bytes, &checksum, sizeof checksum);
    return checksum;
}

size_t PackedBytes(const std::vector<std::string>& names) {
    const size_t blocks = (names.size() + kBlockEntries - 1) / kBlockEntries;
    size_t bytes = sizeof(Header) + blocks * (sizeof(BlockHeader) + sizeof(Checksum));
    for (const std::string& name : names) {
        bytes += sizeof(Feature) + 2 + name.size();
    }
    return bytes;
}

} // namespace

uint64_t CheckVersion2(const InputFile& file, const Sha256& models) {
    if (file.size() < sizeof(Header)) {
        FailCutShort();
    }
    const Header header = HeaderOf(file);
    if (header.checksum != ChecksumOfHeader(header) || header.fileBytes != file.size()) {
        FailDamaged();
    }
    if (header.models != models || header.begin.featureLength != kFeatureLength) {
        FailOtherModels();
    }
    return header.count;
}

void ReadVersion2(const InputFile& file, const TakeBlock& take) {
    BlockReader reader(file);
    while (reader.HasNext()) {
        take(reader.Next());
    }
    reader.CheckEnd();
}

std::vector<uint8_t> PackVersion2(const Sha256& models, const std::vector<Feature>& features,
                                  const std::vector<std::string>& names) {
    Header header = {};
    std::copy(kMagic.begin(), kMagic.end(), header.begin.magic);
    header.begin.version = 2;
    header.begin.featureLength = kFeatureLength;
    header.models = models;
    header.count = features.size();
    header.fileBytes = PackedBytes(names);
    header.lastBlock = ChecksumOfBegin(header);
    std::vector<uint8_t> bytes;
    bytes.reserve(header.fileBytes);
    bytes.resize(sizeof header); // filled in at the end
    for (size_t first = 0; first < features.size(); first += kBlockEntries) {
        const size_t count = std::min(kBlockEntries, features.size() - first);
        header.lastBlock =
            AppendBlock(bytes, header.lastBlock, first, std::span(features).subspan(first, count),
                        std::span(names).subspan(first, count));
    }
    header.checksum = ChecksumOfHeader(header);
    std::memcpy(bytes.data(), &header, sizeof header);
    return bytes;
}

} // namespace kova_cli
