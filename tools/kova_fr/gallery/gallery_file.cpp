// SPDX-License-Identifier: MIT
#include "gallery/gallery_file.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>

#include "files/failure.h"
#include "gallery/formats.h"

namespace kova_cli {
namespace {

static_assert(std::endian::native == std::endian::little, "features are stored as they lie");

constexpr uint64_t kMostBytes = uint64_t{16} << 30;

uint32_t VersionOf(const InputFile& file) {
    FileBegin begin = {};
    file.Read(0, &begin, std::min<uint64_t>(file.size(), sizeof begin));
    if (file.size() < sizeof begin.magic ||
        std::string_view(begin.magic, sizeof begin.magic) != kMagic) {
        throw Failure("is no gallery; make one with kova-fr enroll");
    }
    if (file.size() < sizeof begin) {
        FailCutShort();
    }
    if (begin.version != 1 && begin.version != 2) {
        throw Failure("is a gallery of version " + std::to_string(begin.version) +
                      ", this program knows versions 1 and 2; use the program that made it");
    }
    return begin.version;
}

GalleryHead HeadOf(const InputFile& file) {
    return VersionOf(file) == 1 ? HeadOfVersion1(file) : HeadOfVersion2(file);
}

[[noreturn]] void FailOtherModels(const InputFile& file, const GalleryHead& head,
                                  const Sha256& models) {
    if (head.version == 1) {
        CheckWholeVersion1(file);
    }
    throw Failure("the gallery's features were made by other models (sha256 " + Hex(head.models) +
                  ") than this program's (" + Hex(models) + "); enroll the pictures again");
}

} // namespace

void FailCutShort() { throw Failure("the gallery is cut short; restore it from a copy"); }

void FailDamaged() { throw Failure("the gallery is damaged or cut short; restore it from a copy"); }

void FailInconsistent() {
    throw Failure("the gallery's parts do not fit together; restore it from a copy");
}

void FailNoFeature(uint64_t entry) {
    throw Failure("entry " + std::to_string(entry) +
                  " is no feature: it needs finite numbers and unit length; enroll the picture "
                  "again");
}

void FailOtherLength(uint32_t featureLength) {
    throw Failure("the gallery's features were made by other models: they have " +
                  std::to_string(featureLength) + " numbers, this program's " +
                  std::to_string(kFeatureLength) + "; enroll the pictures again");
}

// Four sums side by side, as a processor adds them.
bool IsFeature(const float* feature) {
    constexpr float kMostOff = 1e-3f; // rounding leaves less than a thousandth of it
    float squares[4] = {};
    for (size_t i = 0; i < kFeatureLength; i += 4) {
        for (size_t lane = 0; lane < 4; ++lane) {
            squares[lane] += feature[i + lane] * feature[i + lane];
        }
    }
    const float sum = (squares[0] + squares[1]) + (squares[2] + squares[3]);
    return std::abs(sum - 1) <= kMostOff; // false of what is no number
}

bool TakeNames(Bytes& rest, size_t count, std::vector<std::string_view>& names) {
    names.clear();
    for (size_t i = 0; i < count; ++i) {
        const size_t length = rest.size() < 2 ? 0 : rest[0] | size_t{rest[1]} << 8;
        if (rest.size() < 2 + length) {
            return false;
        }
        names.emplace_back(reinterpret_cast<const char*>(rest.data()) + 2, length);
        rest = rest.subspan(2 + length);
    }
    return true;
}

void AppendName(std::vector<uint8_t>& bytes, std::string_view name) {
    bytes.push_back(static_cast<uint8_t>(name.size()));
    bytes.push_back(static_cast<uint8_t>(name.size() >> 8));
    bytes.insert(bytes.end(), name.begin(), name.end());
}

GalleryFile::GalleryFile(const std::string& path)
    : path_(path),
      file_(Naming(path, [&path] { return InputFile(path, kMostBytes); })),
      head_(Naming(path, [this] { return HeadOf(file_); })) {}

GalleryFile::GalleryFile(const std::string& path, const Sha256& models) : GalleryFile(path) {
    if (head_.models != models) {
        Naming(path_, [this, &models] { FailOtherModels(file_, head_, models); });
    }
}

void GalleryFile::Read(const TakeBlock& take) const {
    Naming(path_, [this, &take] {
        head_.version == 1 ? ReadVersion1(file_, take) : ReadVersion2(file_, head_, take);
    });
}

} // namespace kova_cli
