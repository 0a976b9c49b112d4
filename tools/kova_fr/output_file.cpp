// SPDX-License-Identifier: MIT
#include "output_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <list>

#include "failure.h"

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

// One file beside its place. Removed unless it was moved there.
class StagedFile {
  public:
    explicit StagedFile(const OutputFile& file)
        : file_(file), place_(RealPlace(file.path)), stage_(StageBeside(place_)) {}
    ~StagedFile() {
        if (isStaged_) {
            unlink(stage_.c_str());
        }
    }
    StagedFile(const StagedFile&) = delete;
    StagedFile& operator=(const StagedFile&) = delete;

    void Write() {
        OpenFile out(stage_, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC);
        if (out.descriptor() < 0) {
            FailToWrite(file_.path, errno);
        }
        isStaged_ = true;
        KeepPermissions(out.descriptor());
        WriteAll(out.descriptor(), file_.bytes, file_.path);
        if (fsync(out.descriptor()) != 0 || !out.Close()) {
            FailToWrite(file_.path, errno);
        }
    }

    void MoveToPlace() {
        if (!Rename()) {
            if (errno == EEXIST) {
                FailExists(file_.path);
            }
            FailToWrite(file_.path, errno);
        }
        isStaged_ = false;
    }

  private:
    // Where a link points to, so that the link itself stays.
    static std::string RealPlace(const std::string& path) {
        std::error_code error;
        const fs::path real = fs::weakly_canonical(path, error);
        return error ? path : real.string();
    }

    // Short and in the same folder, so that it is on the same disk and never too long a name.
    static std::string StageBeside(const fs::path& place) {
        static int count = 0;
        const std::string name =
            ".kova-fr-" + std::to_string(getpid()) + "-" + std::to_string(++count) + ".part";
        return (place.parent_path() / name).string();
    }

    void KeepPermissions(int descriptor) const {
        struct stat status = {};
        if (stat(place_.c_str(), &status) == 0) {
            // Where that is not allowed the file gets those of a new one.
            static_cast<void>(!fchmod(descriptor, status.st_mode & 07777));
        }
    }

    bool Rename() const {
        if (file_.mayReplace) {
            return rename(stage_.c_str(), place_.c_str()) == 0;
        }
        if (renameat2(AT_FDCWD, stage_.c_str(), AT_FDCWD, place_.c_str(), RENAME_NOREPLACE) == 0) {
            return true;
        }
        // Some network disks do not know that flag; CheckOutputs() found the place free.
        return errno == EINVAL && rename(stage_.c_str(), place_.c_str()) == 0;
    }

    const OutputFile& file_;
    std::string place_;
    std::string stage_;
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
