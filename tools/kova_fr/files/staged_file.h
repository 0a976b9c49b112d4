// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>

#include "files/open_file.h"

namespace kova_cli {

// One file beside its place, short of name and on the same disk, until it is whole. Removed unless
// it was moved there; what killed programs left beside the place is removed on the way. Failures
// name the path.
class StagedFile {
  public:
    // The file gets the permissions of the one that it replaces; a new one those of any other, or
    // is readable by its owner alone.
    StagedFile(const std::string& path, bool mayReplace, bool isPrivate);
    ~StagedFile();
    StagedFile(const StagedFile&) = delete;
    StagedFile& operator=(const StagedFile&) = delete;

    void Write(std::span<const uint8_t> bytes);
    void WriteAt(uint64_t at, std::span<const uint8_t> bytes);
    // Everything is on the disk.
    void Finish();
    // The stage is locked until then.
    void MoveToPlace();

  private:
    bool Open(bool isPrivate);
    void KeepPermissions() const;
    bool Rename() const;
    bool RenameToFreePlace() const;

    std::string path_;
    bool mayReplace_;
    std::filesystem::path place_;
    std::filesystem::path folder_;
    std::string stage_;
    std::optional<OpenFile> out_;
    bool isStaged_ = false;
};

// Where the links of a path lead, also to a file that is not there yet, so that a link itself stays
// one.
std::filesystem::path RealPlace(const std::string& path);

// The folder that a place lies in.
std::filesystem::path FolderOf(const std::filesystem::path& place);

// Removes what killed programs left in a folder: files that nobody writes any more.
void RemoveStaleStages(const std::filesystem::path& folder);

[[noreturn]] void FailExists(const std::string& path);

} // namespace kova_cli
