// SPDX-License-Identifier: MIT
#include "gallery/gallery.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <thread>

#include "files/failure.h"
#include "files/staged_file.h"
#include "gallery/appending.h"
#include "gallery/formats.h"
#include "gallery/gallery_writer.h"
#include "terminal/label.h"

namespace kova_cli {
namespace {

// Where the system cannot say, a new gallery would take the place of the old one.
bool IsThere(const std::string& path) {
    std::error_code error;
    const std::filesystem::file_status status = std::filesystem::status(path, error);
    if (status.type() == std::filesystem::file_type::none) {
        throw Failure(path + ": cannot be read: " + error.message() +
                      "; name another gallery or see to the disk");
    }
    return std::filesystem::exists(status);
}

// Moving a new file to its place asks nobody whether the old one may be written, and the
// administrator may write everything: the mark counts.
void CheckWritable(const std::string& path) {
    constexpr mode_t kAnybodysWrite = 0222;
    struct stat status = {};
    if (stat(path.c_str(), &status) == 0 &&
        ((status.st_mode & kAnybodysWrite) == 0 || access(path.c_str(), W_OK) != 0)) {
        throw Failure(path +
                      ": is read-only; make it writable (chmod u+w) or name another gallery");
    }
}

void CheckEntries(const std::vector<Feature>& features, const std::vector<std::string>& names) {
    for (size_t i = 0; i < features.size(); ++i) {
        if (!IsFeature(features[i].data())) {
            FailNoFeature(i);
        }
        if (const std::string wrong = WrongWithName(names[i]); !wrong.empty()) {
            throw Failure(wrong);
        }
    }
}

// Nobody tells when a lock becomes free to those who wait only for some time: they look.
bool Lock(int folder, const std::optional<std::chrono::milliseconds>& patience) {
    constexpr std::chrono::milliseconds kBetween(5);
    if (!patience) {
        return flock(folder, LOCK_EX) == 0;
    }
    const auto until = std::chrono::steady_clock::now() + *patience;
    while (flock(folder, LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK || std::chrono::steady_clock::now() >= until) {
            return false;
        }
        std::this_thread::sleep_for(kBetween);
    }
    return true;
}

// Copies the entries that are kept.
template <typename IsKept>
void Copy(const GalleryFile& from, GalleryWriter& to, const IsKept& isKept) {
    from.Read([&](const GalleryBlock& block) {
        for (size_t i = 0; i < block.names.size(); ++i) {
            if (isKept(block.names[i])) {
                to.Add(block.features + i * kFeatureLength, block.names[i]);
            }
        }
    });
}

uint64_t WriteAnew(const std::string& path, const GalleryFile* old, const Sha256& models,
                   const std::vector<Feature>& features, const std::vector<std::string>& names) {
    GalleryWriter writer(path, models);
    if (old != nullptr) {
        Copy(*old, writer, [](std::string_view) { return true; });
    }
    for (size_t i = 0; i < features.size(); ++i) {
        writer.Add(features[i].data(), names[i]);
    }
    return writer.Finish();
}

} // namespace

std::string WrongWithName(const std::string& name) {
    if (name.empty() || name.size() > kLongestName || OneLine(name) != name) {
        return "a name has 1 to " + std::to_string(kLongestName) +
               " bytes of UTF-8 and no control characters";
    }
    return "";
}

void CheckGalleryCanGrow(const std::string& path, const Sha256& models) {
    if (IsThere(path)) {
        CheckWritable(path);
        const GalleryFile opened(path, models);
    }
}

uint64_t AddToGallery(const GalleryLock& lock, const Sha256& models,
                      const std::vector<Feature>& features, const std::vector<std::string>& names) {
    const std::string& path = lock.path();
    Naming(path, [&] { CheckEntries(features, names); });
    if (!IsThere(path)) {
        return WriteAnew(path, nullptr, models, features, names);
    }
    CheckWritable(path);
    RemoveStaleStages(FolderOf(RealPlace(path)));
    const GalleryFile old(path, models);
    if (old.head().version == 2 && AppendInPlace(path, old.head(), features, names)) {
        return old.count() + features.size();
    }
    return WriteAnew(path, &old, models, features, names);
}

uint64_t RemoveFromGallery(const GalleryLock& lock, const Sha256& models, const std::string& name) {
    const GalleryFile old(lock.path(), models);
    CheckWritable(lock.path());
    GalleryWriter writer(lock.path(), models);
    uint64_t removed = 0;
    Copy(old, writer, [&](std::string_view other) {
        removed += other == name ? 1 : 0;
        return other != name;
    });
    if (removed > 0) {
        writer.Finish();
    }
    return removed;
}

GalleryLock::GalleryLock(const std::string& path) : GalleryLock(path, std::nullopt) {}

GalleryLock::GalleryLock(const std::string& path, std::chrono::milliseconds patience)
    : GalleryLock(path, std::optional(patience)) {}

GalleryLock::GalleryLock(const std::string& path, std::optional<std::chrono::milliseconds> patience)
    : path_(path) {
    const std::filesystem::path folder = FolderOf(RealPlace(path));
    folder_ = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    // Where a disk knows no locks, two that enroll at once are on their own.
    if (folder_ < 0 || (!Lock(folder_, patience) && errno != EOPNOTSUPP && errno != ENOLCK)) {
        const int cause = errno;
        if (folder_ >= 0) {
            close(folder_);
        }
        if (cause == EWOULDBLOCK) {
            throw GalleryBusy(path + ": is being changed by others; try again soon");
        }
        throw Failure(path + ": its folder cannot be used: " + std::strerror(cause) +
                      "; choose another place");
    }
}

GalleryLock::~GalleryLock() { close(folder_); }

} // namespace kova_cli
