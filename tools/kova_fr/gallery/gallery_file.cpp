// SPDX-License-Identifier: MIT
#include "gallery/gallery_file.h"

#include <bit>
#include <cstring>

#include "files/failure.h"
#include "gallery/formats.h"

namespace kova_cli {
namespace {

static_assert(std::endian::native == std::endian::little, "features are stored as they lie");

constexpr uint64_t kMostBytes = uint64_t{16} << 30;

template <typename Step>
auto Naming(const std::string& path, Step step) {
    try {
        return step();
    } catch (const Failure& failure) {
        throw Failure(path + ": " + failure.what());
    }
}

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

} // namespace

void FailCutShort() { throw Failure("the gallery is cut short; restore it from a copy"); }

void FailDamaged() { throw Failure("the gallery is damaged or cut short; restore it from a copy"); }

void FailInconsistent() {
    throw Failure("the gallery's parts do not fit together; restore it from a copy");
}

void FailOtherModels() {
    throw Failure(
        "the gallery's features were made by other models than this program's; "
        "enroll the pictures again");
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

GalleryFile::GalleryFile(const std::string& path, const Sha256& models)
    : path_(path),
      file_(Naming(path, [&path] { return InputFile(path, kMostBytes); })),
      version_(Naming(path, [this] { return VersionOf(file_); })),
      count_(Naming(path, [this, &models] {
          return version_ == 1 ? CheckVersion1(file_, models) : CheckVersion2(file_, models);
      })) {}

void GalleryFile::Read(const TakeBlock& take) const {
    Naming(path_, [this, &take] {
        version_ == 1 ? ReadVersion1(file_, take) : ReadVersion2(file_, take);
    });
}

} // namespace kova_cli
