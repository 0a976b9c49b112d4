// SPDX-License-Identifier: MIT
#include "files/output_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <list>
#include <optional>

#include "files/failure.h"

namespace kova_cli {
namespace {

namespace fs = std::filesystem;

[[noreturn]] void FailToWrite(const std::string& path, int error) {
    throw Failure(path + ": cannot be written: " + std::strerror(error) +
                  "; choose another place or make room");
}

[[noreturn]] void FailExists(const std::string& path) {
    throw Failure(path + ": exists already; remove it or choose another name");
}

void WriteAll(int file, const std::vector<uint8_t>& bytes, const std::string& path) {
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t count = write(file, bytes.data() + done, bytes.size() - done);
        if (count < 0 && errno != EINTR) {
            FailToWrite(path, errno);
        }
        done += count > 0 ? static_cast<size_t>(count) : 0;
    }
}

class OpenFile {
  public:
    OpenFile(const std::string& path, int flags) : descriptor_(open(path.c_str(), flags, 0666)) {}
    ~OpenFile() { Close(); }
    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;

    int descriptor() const { return descriptor_; }
    // Some disks report that they are full only here.
    bool Close() {
        const int closing = descriptor_;
        descriptor_ = -1;
        return closing < 0 || close(closing) == 0;
    }

  private:
    int descriptor_;
};

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

// Removes what killed programs left in the folder.
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

// Makes the new name last. Not every file system can do that for a folder.
bool SyncFolder(const fs::path& folder) {
    const OpenFile file(folder.string(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    return file.descriptor() < 0 || fsync(file.descriptor()) == 0 || errno == EINVAL;
}

// One file beside its place, short of name and on the same disk. Removed unless it was moved there.
class StagedFile {
  public:
    explicit StagedFile(const OutputFile& file)
        : file_(file), place_(RealPlace(file.path)), folder_(FolderOf(place_)) {
        RemoveStaleStages(folder_);
        while (!Open()) {
        }
    }
    ~StagedFile() {
        if (isStaged_) {
            unlink(stage_.c_str());
        }
    }
    StagedFile(const StagedFile&) = delete;
    StagedFile& operator=(const StagedFile&) = delete;

    void Write() {
        KeepPermissions();
        WriteAll(out_->descriptor(), file_.bytes, file_.path);
        if (fsync(out_->descriptor()) != 0) {
            FailToWrite(file_.path, errno);
        }
    }

    // The lock is held until then.
    void MoveToPlace() {
        if (!Rename()) {
            if (errno == EEXIST) {
                FailExists(file_.path);
            }
            FailToWrite(file_.path, errno);
        }
        isStaged_ = false;
        if (!out_->Close() || !SyncFolder(folder_)) {
            FailToWrite(file_.path, errno);
        }
    }

  private:
    // False where another program took the stage for stale before it was locked.
    bool Open() {
        stage_ = (folder_ / RandomStageName()).string();
        out_.emplace(stage_, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC);
        if (out_->descriptor() < 0) {
            FailToWrite(file_.path, errno);
        }
        isStaged_ = true;
        struct stat status = {};
        const bool isTaken = !IsLocked(out_->descriptor()) && errno == EWOULDBLOCK;
        return !isTaken && fstat(out_->descriptor(), &status) == 0 && status.st_nlink > 0;
    }

    void KeepPermissions() const {
        struct stat status = {};
        if (stat(place_.c_str(), &status) == 0) {
            // Where that is not allowed the file gets those of a new one.
            static_cast<void>(!fchmod(out_->descriptor(), status.st_mode & 07777));
        }
    }

    bool Rename() const {
        return file_.mayReplace ? rename(stage_.c_str(), place_.c_str()) == 0 : RenameToFreePlace();
    }

    // Not every kernel, sandbox and disk has the first of these, nor the second.
    bool RenameToFreePlace() const {
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

    const OutputFile& file_;
    fs::path place_;
    fs::path folder_;
    std::string stage_;
    std::optional<OpenFile> out_;
    bool isStaged_ = false;
};

// A device or a pipe must not be replaced by a file.
bool IsWrittenDirectly(const std::string& path) {
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    return fs::exists(status) && !fs::is_regular_file(status) && !fs::is_directory(status);
}

void WriteDirectly(const OutputFile& file) {
    OpenFile out(file.path, O_WRONLY | O_CLOEXEC);
    if (out.descriptor() < 0) {
        FailToWrite(file.path, errno);
    }
    WriteAll(out.descriptor(), file.bytes, file.path);
    if (!out.Close()) {
        FailToWrite(file.path, errno);
    }
}

void CheckOutput(const OutputFile& file, const std::vector<std::string>& inputs) {
    std::error_code error;
    if (fs::is_directory(file.path, error)) {
        throw Failure(file.path + ": is a folder; name a file in it");
    }
    if (!file.mayReplace && fs::exists(fs::symlink_status(file.path, error))) {
        FailExists(file.path);
    }
    for (const std::string& input : inputs) {
        if (fs::equivalent(file.path, input, error) && !IsWrittenDirectly(file.path)) {
            throw Failure(file.path + ": would replace a picture to be read; choose another name");
        }
    }
}

} // namespace

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

void CheckOutputs(const std::vector<OutputFile>& files, const std::vector<std::string>& inputs) {
    for (const OutputFile& file : files) {
        CheckOutput(file, inputs);
    }
}

void WriteFiles(const std::vector<OutputFile>& files) {
    std::list<StagedFile> staged;
    for (const OutputFile& file : files) {
        if (IsWrittenDirectly(file.path)) {
            WriteDirectly(file);
        } else {
            staged.emplace_back(file).Write();
        }
    }
    for (StagedFile& file : staged) {
        file.MoveToPlace();
    }
}

void WriteStandardOutput(const std::string& text) {
    const bool isWritten = std::fwrite(text.data(), 1, text.size(), stdout) == text.size();
    if (!isWritten || std::fflush(stdout) != 0) {
        throw Failure(std::string("the result cannot be written to standard output: ") +
                      std::strerror(errno) + "; choose another place or make room");
    }
}

} // namespace kova_cli
