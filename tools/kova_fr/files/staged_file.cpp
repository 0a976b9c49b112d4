// SPDX-License-Identifier: MIT
#include "files/staged_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "files/failure.h"

namespace kova_cli {
namespace {

namespace fs = std::filesystem;

constexpr char kStageBegin[] = ".kova-fr-";
constexpr char kStageEnd[] = ".part";

// Names that nobody can have had before: in containers process numbers and times repeat.
std::string RandomStageName() {
    uint64_t number = 0;
    if (getentropy(&number, sizeof number) != 0) {
        throw Failure(std::string("the system gives no random numbers: ") + std::strerror(errno) +
                      "; report this");
    }
    char digits[2 * sizeof number + 1];
    std::snprintf(digits, sizeof digits, "%016llx", static_cast<unsigned long long>(number));
    return std::string(kStageBegin) + digits + kStageEnd;
}

bool IsStageName(const std::string& name) {
    return name.starts_with(kStageBegin) && name.ends_with(kStageEnd);
}

// Whoever writes a stage holds a lock on it, which goes with the process however that ends. Where a
// disk knows no locks, nothing is known about a stage, and it stays.
bool IsLocked(int descriptor) { return flock(descriptor, LOCK_EX | LOCK_NB) == 0; }

// Makes the new name last. Not every file system can do that for a folder.
bool SyncFolder(const fs::path& folder) {
    const OpenFile file(folder.string(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    return file.descriptor() < 0 || fsync(file.descriptor()) == 0 || errno == EINVAL;
}

} // namespace

StagedFile::StagedFile(const std::string& path, bool mayReplace, bool isPrivate)
    : path_(path), mayReplace_(mayReplace), place_(RealPlace(path)), folder_(FolderOf(place_)) {
    RemoveStaleStages(folder_);
    while (!Open(isPrivate)) {
    }
    KeepPermissions();
}

StagedFile::~StagedFile() {
    if (isStaged_) {
        unlink(stage_.c_str());
    }
}

void StagedFile::Write(std::span<const uint8_t> bytes) {
    WriteAll(out_->descriptor(), bytes, path_);
}

void StagedFile::WriteAt(uint64_t at, std::span<const uint8_t> bytes) {
    WriteAllAt(out_->descriptor(), at, bytes, path_);
}

void StagedFile::Finish() { Sync(out_->descriptor(), path_); }

void StagedFile::MoveToPlace() {
    if (!Rename()) {
        if (errno == EEXIST) {
            FailExists(path_);
        }
        FailToWrite(path_, errno);
    }
    isStaged_ = false;
    if (!out_->Close() || !SyncFolder(folder_)) {
        FailToWrite(path_, errno);
    }
}

// False where another program took the stage for stale before it was locked.
bool StagedFile::Open(bool isPrivate) {
    stage_ = (folder_ / RandomStageName()).string();
    out_.emplace(stage_, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, isPrivate ? 0600 : 0666);
    if (out_->descriptor() < 0) {
        FailToWrite(path_, errno);
    }
    isStaged_ = true;
    struct stat status = {};
    const bool isTaken = !IsLocked(out_->descriptor()) && errno == EWOULDBLOCK;
    if (fstat(out_->descriptor(), &status) != 0) {
        const int error = errno;
        unlink(stage_.c_str()); // whose destructor does not run
        FailToWrite(path_, error);
    }
    return !isTaken && status.st_nlink > 0;
}

void StagedFile::KeepPermissions() const {
    struct stat status = {};
    if (stat(place_.c_str(), &status) == 0) {
        // Where that is not allowed the file gets those of a new one.
        static_cast<void>(!fchmod(out_->descriptor(), status.st_mode & 07777));
    }
}

bool StagedFile::Rename() const {
    return mayReplace_ ? rename(stage_.c_str(), place_.c_str()) == 0 : RenameToFreePlace();
}

// Not every kernel, sandbox and disk has the first of these, nor the second.
bool StagedFile::RenameToFreePlace() const {
    if (renameat2(AT_FDCWD, stage_.c_str(), AT_FDCWD, place_.c_str(), RENAME_NOREPLACE) == 0) {
        return true;
    }
    if (errno == EEXIST) {
        return false;
    }
    if (link(stage_.c_str(), place_.c_str()) == 0) {
        return unlink(stage_.c_str()) == 0;
    }
    struct stat status = {};
    if (errno == EEXIST || lstat(place_.c_str(), &status) == 0) {
        errno = EEXIST;
        return false;
    }
    return rename(stage_.c_str(), place_.c_str()) == 0;
}

std::filesystem::path RealPlace(const std::string& path) {
    constexpr int kMostLinks = 40; // as the kernel follows
    fs::path place = path;
    for (int i = 0; i < kMostLinks; ++i) {
        std::error_code error;
        const fs::path target = fs::read_symlink(place, error);
        if (error) {
            return place;
        }
        place = place.parent_path() / target; // which may be absolute and then stands alone
    }
    FailToWrite(path, ELOOP);
}

std::filesystem::path FolderOf(const std::filesystem::path& place) {
    return place.has_parent_path() ? place.parent_path() : ".";
}

void RemoveStaleStages(const fs::path& folder) {
    std::error_code error;
    for (fs::directory_iterator at(folder, error), end; !error && at != end; at.increment(error)) {
        if (IsStageName(at->path().filename().string())) {
            const OpenFile stage(at->path().string(),
                                 O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
            if (stage.descriptor() >= 0 && IsLocked(stage.descriptor())) {
                unlink(at->path().c_str());
            }
        }
    }
}

void FailExists(const std::string& path) {
    throw Failure(path + ": exists already; remove it or choose another name");
}

} // namespace kova_cli
