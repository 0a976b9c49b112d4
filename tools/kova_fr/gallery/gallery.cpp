// SPDX-License-Identifier: MIT
#include "gallery/gallery.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string_view>
#include <unordered_set>

#include "files/failure.h"
#include "files/input_file.h"
#include "files/output_file.h"

namespace kova_cli {
namespace {

static_assert(std::endian::native == std::endian::little, "features are stored as they lie");

constexpr char kMagic[] = {'K', 'F', 'R', 'G', 'A', 'L', 'R', 'Y'};
constexpr uint32_t kVersion = 1;
constexpr uint64_t kMostBytes = uint64_t{16} << 30;

struct Header {
    char magic[sizeof kMagic];
    uint32_t version;
    uint32_t featureLength;
    uint64_t count;
    Sha256 models;
};
static_assert(sizeof(Header) == 56);

Sha256 DigestOf(Bytes bytes) {
    Sha256Stream stream;
    stream.Add(bytes.data(), bytes.size());
    return stream.Finish();
}

// What is in front of the digest at the end, which must be right.
Bytes CheckedContent(Bytes file) {
    Header header;
    if (file.size() < sizeof kMagic || std::memcmp(file.data(), kMagic, sizeof kMagic) != 0) {
        throw Failure("is no gallery; make one with kova-fr enroll");
    }
    if (file.size() >= sizeof header) {
        std::memcpy(&header, file.data(), sizeof header);
        if (header.version != kVersion) {
            throw Failure("is a gallery of version " + std::to_string(header.version) +
                          ", this program knows version " + std::to_string(kVersion) +
                          "; use the program that made it");
        }
    }
    Sha256 stored;
    if (file.size() < sizeof header + sizeof stored) {
        throw Failure("the gallery is cut short; restore it from a copy");
    }
    const Bytes content = file.first(file.size() - sizeof stored);
    std::memcpy(stored.data(), file.data() + content.size(), sizeof stored);
    if (stored != DigestOf(content)) {
        throw Failure("the gallery is damaged or cut short; restore it from a copy");
    }
    return content;
}

[[noreturn]] void FailInconsistent() {
    throw Failure("the gallery's parts do not fit together; restore it from a copy");
}

std::vector<Feature> ReadFeatures(Bytes& rest, uint64_t count) {
    if (count > rest.size() / sizeof(Feature)) {
        FailInconsistent();
    }
    std::vector<Feature> features(count);
    const Bytes bytes = rest.first(count * sizeof(Feature));
    std::copy(bytes.begin(), bytes.end(), reinterpret_cast<uint8_t*>(features.data()));
    rest = rest.subspan(bytes.size());
    return features;
}

std::vector<std::string> ReadNames(Bytes& rest, uint64_t count) {
    std::vector<std::string> names;
    names.reserve(count);
    for (uint64_t i = 0; i < count; ++i) {
        const size_t length = rest.size() < 2 ? 0 : rest[0] | size_t{rest[1]} << 8;
        if (rest.size() < 2 + length) {
            FailInconsistent();
        }
        names.emplace_back(reinterpret_cast<const char*>(rest.data()) + 2, length);
        rest = rest.subspan(2 + length);
    }
    return names;
}

Gallery Unpack(Bytes file, const Sha256& models) {
    Bytes rest = CheckedContent(file);
    Header header;
    std::memcpy(&header, rest.data(), sizeof header);
    if (header.models != models || header.featureLength != std::tuple_size_v<Feature>) {
        throw Failure(
            "the gallery's features were made by other models than this program's; "
            "enroll the pictures again");
    }
    rest = rest.subspan(sizeof header);
    Gallery gallery;
    gallery.models = header.models;
    gallery.features = ReadFeatures(rest, header.count);
    gallery.names = ReadNames(rest, header.count);
    if (!rest.empty()) {
        FailInconsistent();
    }
    return gallery;
}

void Append(std::vector<uint8_t>& bytes, const void* data, size_t size) {
    const auto* from = static_cast<const uint8_t*>(data);
    bytes.insert(bytes.end(), from, from + size);
}

} // namespace

void Gallery::Add(const std::string& name, const Feature& feature) {
    features.push_back(feature);
    names.push_back(name);
}

size_t Gallery::Remove(const std::string& name) {
    size_t kept = 0;
    for (size_t i = 0; i < names.size(); ++i) {
        if (names[i] != name) {
            features[kept] = features[i];
            std::swap(names[kept], names[i]);
            ++kept;
        }
    }
    const size_t removed = names.size() - kept;
    features.resize(kept);
    names.resize(kept);
    return removed;
}

Gallery LoadGallery(const std::string& path, const Sha256& models) {
    try {
        return Unpack(ReadWholeFile(path, kMostBytes), models);
    } catch (const Failure& failure) {
        throw Failure(path + ": " + failure.what());
    }
}

std::vector<uint8_t> PackGallery(const Gallery& gallery) {
    Header header{};
    std::memcpy(header.magic, kMagic, sizeof kMagic);
    header.version = kVersion;
    header.featureLength = std::tuple_size_v<Feature>;
    header.count = gallery.features.size();
    header.models = gallery.models;
    std::vector<uint8_t> bytes;
    Append(bytes, &header, sizeof header);
    Append(bytes, gallery.features.data(), gallery.features.size() * sizeof(Feature));
    for (const std::string& name : gallery.names) {
        bytes.push_back(static_cast<uint8_t>(name.size()));
        bytes.push_back(static_cast<uint8_t>(name.size() >> 8));
        Append(bytes, name.data(), name.size());
    }
    const Sha256 digest = DigestOf(bytes);
    Append(bytes, digest.data(), digest.size());
    return bytes;
}

GalleryLock::GalleryLock(const std::string& path) {
    const std::filesystem::path folder = FolderOf(RealPlace(path));
    folder_ = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    // Where a disk knows no locks, two that enroll at once are on their own.
    if (folder_ < 0 || (flock(folder_, LOCK_EX) != 0 && errno != EOPNOTSUPP && errno != ENOLCK)) {
        const int cause = errno;
        if (folder_ >= 0) {
            close(folder_);
        }
        throw Failure(path + ": its folder cannot be used: " + std::strerror(cause) +
                      "; choose another place");
    }
}

GalleryLock::~GalleryLock() { close(folder_); }

std::vector<Match> Search(const Gallery& gallery, const Feature& feature, size_t count) {
    std::vector<Match> heap;
    heap.reserve(gallery.features.size());
    for (size_t i = 0; i < gallery.features.size(); ++i) {
        heap.push_back({i, OrvoFrGetDistance(feature.data(), sizeof feature,
                                             gallery.features[i].data(), sizeof feature)});
    }
    const auto isWorse = [](const Match& a, const Match& b) {
        return a.distance != b.distance ? a.distance < b.distance : a.entry > b.entry;
    };
    std::make_heap(heap.begin(), heap.end(), isWorse);
    // From the best entry on, the first of each name.
    std::vector<Match> matches;
    std::unordered_set<std::string_view> seen;
    while (matches.size() < count && !heap.empty()) {
        std::pop_heap(heap.begin(), heap.end(), isWorse);
        if (seen.insert(gallery.names[heap.back().entry]).second) {
            matches.push_back(heap.back());
        }
        heap.pop_back();
    }
    return matches;
}

} // namespace kova_cli
