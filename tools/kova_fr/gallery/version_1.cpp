// SPDX-License-Identifier: MIT
//
// Galleries of earlier programs. Their one digest goes over the whole file and cannot be computed
// faster than some bytes a cycle; the first change by this program writes version 2 instead.
#include <algorithm>

#include "gallery/formats.h"

namespace kova_cli {
namespace {

struct Header {
    FileBegin begin;
    uint64_t count;
    Sha256 models;
};
static_assert(sizeof(Header) == 56);

constexpr size_t kDigestBytes = sizeof(Sha256);

Header HeaderOf(const InputFile& file) {
    Header header;
    file.Read(0, &header, sizeof header);
    return header;
}

uint64_t ContentBytes(const InputFile& file) { return file.size() - kDigestBytes; }

void CheckDigest(const InputFile& file, Sha256Stream& content) {
    Sha256 stored;
    file.Read(ContentBytes(file), stored.data(), stored.size());
    if (stored != content.Finish()) {
        FailDamaged();
    }
}

uint64_t NamesAt(const Header& header) { return sizeof header + header.count * sizeof(Feature); }

std::vector<uint8_t> NamesOf(const InputFile& file, const Header& header) {
    std::vector<uint8_t> names(ContentBytes(file) - NamesAt(header));
    file.Read(NamesAt(header), names.data(), names.size());
    return names;
}

} // namespace

void CheckWholeVersion1(const InputFile& file) {
    Sha256Stream stream;
    std::vector<uint8_t> piece(kBlockEntries * sizeof(Feature));
    for (uint64_t at = 0; at < ContentBytes(file); at += piece.size()) {
        piece.resize(std::min<uint64_t>(piece.size(), ContentBytes(file) - at));
        file.Read(at, piece.data(), piece.size());
        stream.Add(piece.data(), piece.size());
    }
    CheckDigest(file, stream);
}

GalleryHead HeadOfVersion1(const InputFile& file) {
    if (file.size() < sizeof(Header) + kDigestBytes) {
        FailCutShort();
    }
    const Header header = HeaderOf(file);
    if (header.begin.featureLength != kFeatureLength) {
        CheckWholeVersion1(file);
        FailOtherLength(header.begin.featureLength);
    }
    if (header.count > (ContentBytes(file) - sizeof header) / sizeof(Feature)) {
        CheckWholeVersion1(file);
        FailInconsistent();
    }
    return {1, header.count, header.models, 0, {}, {}};
}

// Names come last in the file and are needed first, so they are read beforehand.
void ReadVersion1(const InputFile& file, const TakeBlock& take) {
    const Header header = HeaderOf(file);
    const std::vector<uint8_t> allNames = NamesOf(file, header);
    Bytes rest = allNames;
    Sha256Stream stream;
    stream.Add(&header, sizeof header);
    std::vector<float> features(kBlockEntries * kFeatureLength);
    std::vector<std::string_view> names;
    for (uint64_t first = 0; first < header.count; first += kBlockEntries) {
        const size_t count = std::min<uint64_t>(kBlockEntries, header.count - first);
        file.Read(sizeof header + first * sizeof(Feature), features.data(),
                  count * sizeof(Feature));
        stream.Add(features.data(), count * sizeof(Feature));
        if (!TakeNames(rest, count, names)) {
            CheckWholeVersion1(file);
            FailInconsistent();
        }
        for (size_t i = 0; i < count; ++i) {
            if (!IsFeature(&features[i * kFeatureLength])) {
                CheckWholeVersion1(file);
                FailNoFeature(first + i);
            }
        }
        take({first, features.data(), names});
    }
    stream.Add(allNames.data(), allNames.size());
    CheckDigest(file, stream);
    if (!rest.empty()) {
        FailInconsistent();
    }
}

} // namespace kova_cli
