// SPDX-License-Identifier: MIT
//
// Gallery files of both versions: as they are, with their checksums made to fit, and made from a description
// and then changed. What is read to its end has as many entries as it says, all of them features, and can be
// searched and added to.
#include <algorithm>
#include <cstddef>
#include <cstring>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "files/failure.h"
#include "gallery/appending.h"
#include "gallery/search.h"
#include "gallery/version_2.h"
#include "input.h"
#include "memory_file.h"
#include "require.h"

namespace orvo_fuzz {
namespace {

using kova_cli::BlockHeader;
using kova_cli::Checksum;
using kova_cli::Feature;
using kova_cli::Version2Header;

using File = std::vector<uint8_t>;

constexpr kova_cli::Sha256 kModels = {};
constexpr size_t kVersion1Begin = 24; // up to the digest of the models
constexpr size_t kDigestBytes = 32;
constexpr size_t kMostBytes = 8192; // of a file that grows

const MemoryFile& TheFile() {
    static const MemoryFile file;
    return file;
}

Feature FeatureAlong(size_t axis) {
    Feature feature = {};
    feature[axis % feature.size()] = 1;
    return feature;
}

Checksum SumOf(const Checksum& before, const uint8_t* bytes, size_t count) {
    return kova_cli::ChecksumOf(before, bytes, count);
}

// The checksum of each block that fits into the file, whatever the blocks say; then the header's.
void SealVersion2(File& file, bool withEnd) {
    if (file.size() < sizeof(Version2Header)) {
        return;
    }
    Checksum sum = SumOf(kova_cli::kFirstChecksum, file.data(), offsetof(Version2Header, count));
    size_t at = sizeof(Version2Header);
    while (file.size() - at >= sizeof(BlockHeader) + sizeof(Checksum)) {
        BlockHeader block;
        std::memcpy(&block, file.data() + at, sizeof block);
        const uint64_t content = kova_cli::ContentBytes(block);
        if (content > file.size() - at - sizeof sum) {
            break;
        }
        sum = SumOf(sum, file.data() + at, content);
        std::memcpy(file.data() + at + content, &sum, sizeof sum);
        at += content + sizeof sum;
    }
    if (withEnd) {
        const uint64_t end = at;
        std::memcpy(file.data() + offsetof(Version2Header, fileBytes), &end, sizeof end);
        std::memcpy(file.data() + offsetof(Version2Header, lastBlock), &sum, sizeof sum);
    }
    const Checksum whole =
        SumOf(kova_cli::kFirstChecksum, file.data(), offsetof(Version2Header, checksum));
    std::memcpy(file.data() + offsetof(Version2Header, checksum), &whole, sizeof whole);
}

void SealVersion1(File& file) {
    if (file.size() < kDigestBytes) {
        return;
    }
    kova_cli::Sha256Stream stream;
    stream.Add(file.data(), file.size() - kDigestBytes);
    const kova_cli::Sha256 digest = stream.Finish();
    std::copy(digest.begin(), digest.end(), file.end() - kDigestBytes);
}

struct Description {
    std::vector<Feature> features;
    std::vector<std::string> names;
};

Description Describe(Input& input) {
    Description described;
    const uint32_t count = input.Byte() % 6;
    for (uint32_t i = 0; i < count; ++i) {
        described.features.push_back(FeatureAlong(input.Byte()));
        const auto name = input.Bytes(input.Byte() % 12);
        described.names.emplace_back(name.begin(), name.end());
    }
    return described;
}

File Version1Of(const Description& described) {
    File file(kova_cli::kMagic.begin(), kova_cli::kMagic.end());
    const auto append = [&file](const void* from, size_t size) {
        const auto* bytes = static_cast<const uint8_t*>(from);
        file.insert(file.end(), bytes, bytes + size);
    };
    const uint32_t numbers[2] = {1, kova_cli::kFeatureLength};
    const uint64_t count = described.features.size();
    append(numbers, sizeof numbers);
    append(&count, sizeof count);
    Require(file.size() == kVersion1Begin, "version 1 begins as it is described");
    append(kModels.data(), kModels.size());
    append(described.features.data(), count * sizeof(Feature));
    for (const std::string& name : described.names) {
        kova_cli::AppendName(file, name);
    }
    file.resize(file.size() + kDigestBytes);
    return file;
}

// In blocks of one entry or of all.
File Version2Of(const Description& described, bool inOneBlock) {
    kova_cli::GalleryHead head = kova_cli::EmptyVersion2(kModels);
    File blocks;
    const size_t count = described.features.size();
    const size_t step = inOneBlock ? std::max<size_t>(count, 1) : 1;
    for (size_t first = 0; first < count; first += step) {
        kova_cli::AppendBlock(blocks, head, std::span(described.features).subspan(first, step),
                              std::span(described.names).subspan(first, step));
    }
    const Version2Header header = kova_cli::HeaderOf(head);
    File file(sizeof header);
    std::memcpy(file.data(), &header, sizeof header);
    file.insert(file.end(), blocks.begin(), blocks.end());
    return file;
}

// Bytes changed, or the end cut off or repeated.
void Change(Input& input, File& file) {
    while (input.left() >= 4 && !file.empty()) {
        const uint8_t kind = input.Byte();
        const size_t at = input.Number<uint16_t>() % file.size();
        const uint8_t value = input.Byte();
        if (kind < 250) {
            file[at] = static_cast<uint8_t>(file[at] ^ value);
        } else if (kind < 253) {
            file.resize(at);
        } else if (file.size() < kMostBytes) {
            const File end(file.begin() + static_cast<std::ptrdiff_t>(at), file.end());
            file.insert(file.end(), end.begin(), end.end());
        }
    }
}

File MakeFile(Input& input) {
    const uint8_t kind = input.Byte();
    if (kind < 64) {
        const auto rest = input.Rest();
        File file(rest.begin(), rest.end());
        if ((kind & 3) == 1) {
            SealVersion2(file, (kind & 4) != 0);
        } else if ((kind & 3) == 2) {
            SealVersion1(file);
        }
        return file;
    }
    const Description described = Describe(input);
    const bool isSecond = (kind & 1) != 0;
    File file = isSecond ? Version2Of(described, (kind & 2) != 0) : Version1Of(described);
    if (!isSecond) {
        SealVersion1(file);
    }
    Change(input, file);
    if ((kind & 4) != 0) {
        isSecond ? SealVersion2(file, (kind & 8) != 0) : SealVersion1(file);
    }
    return file;
}

size_t ReadAll(const kova_cli::GalleryFile& gallery) {
    size_t entries = 0;
    gallery.Read([&entries](const kova_cli::GalleryBlock& block) {
        Require(block.firstEntry == entries, "blocks come in their order");
        for (size_t i = 0; i < block.names.size(); ++i) {
            Require(kova_cli::IsFeature(block.features + i * kova_cli::kFeatureLength),
                    "each entry is a feature");
            Require(block.names[i].size() <= kova_cli::kLongestStoredName,
                    "names are not too long");
        }
        entries += block.names.size();
    });
    return entries;
}

void SearchIt(const kova_cli::GalleryFile& gallery) {
    const auto found = kova_cli::Search(gallery, {FeatureAlong(3), FeatureAlong(70)}, 3);
    std::set<std::string> names;
    for (const kova_cli::Match& match : found.front()) {
        Require(names.insert(match.name).second, "a name is found once");
        Require(match.entry < gallery.count(), "what is found is there");
    }
}

void AddToIt(const kova_cli::GalleryFile& gallery) {
    const Feature features[] = {FeatureAlong(5)};
    const std::string names[] = {"added"};
    if (!kova_cli::AppendInPlace(TheFile().path(), gallery.head(), features, names)) {
        return;
    }
    const kova_cli::GalleryFile grown(TheFile().path(), kModels);
    Require(grown.count() == gallery.count() + 1, "one entry more is there");
    Require(ReadAll(grown) == grown.count(), "the gallery that grew is whole");
}

} // namespace
} // namespace orvo_fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace orvo_fuzz;
    Input input(data, size);
    TheFile().Write(MakeFile(input));
    try {
        const kova_cli::GalleryFile gallery(TheFile().path(), kModels);
        Require(ReadAll(gallery) == gallery.count(), "as many entries are read as are there");
        SearchIt(gallery);
        if (gallery.head().version == 2) {
            AddToIt(gallery);
        }
    } catch (const kova_cli::Failure& failure) {
        Require(std::string_view(failure.what()).find('\n') == std::string_view::npos,
                "a message is one line");
    }
    return 0;
}
