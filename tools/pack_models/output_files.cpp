// SPDX-License-Identifier: MIT
#include "tools/pack_models/output_files.h"

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <system_error>

#include "tools/pack_models/pack_error.h"

namespace orvo::pack {
namespace {

namespace fs = std::filesystem;

// Removes what has been written so far unless the work was completed.
class Cleanup {
  public:
    ~Cleanup() {
        for (const fs::path& path : paths_) {
            std::error_code ignored;
            fs::remove(path, ignored);
        }
    }
    void Add(const fs::path& path) { paths_.push_back(path); }
    void Keep() { paths_.clear(); }

  private:
    std::vector<fs::path> paths_;
};

// Two packers that write into one folder must not meet in a temporary file.
fs::path TemporaryName(const fs::path& target) {
    return target.string() + "." + std::to_string(getpid()) + ".tmp";
}

void WriteFile(const fs::path& path, const std::string& text) {
    std::ofstream file(path, std::ios::binary);
    file.write(text.data(), static_cast<std::streamsize>(text.size()));
    file.close();
    if (!file) {
        throw PackError(path.string() + ": cannot be written");
    }
}

} // namespace

void WriteOutputFiles(const std::string& folder, const std::vector<OutputFile>& files) {
    std::error_code error;
    fs::create_directories(folder, error);
    if (!fs::is_directory(folder, error)) {
        throw PackError(folder + ": cannot be made");
    }
    Cleanup cleanup;
    for (const OutputFile& file : files) {
        const fs::path temporary = TemporaryName(fs::path(folder) / file.name);
        cleanup.Add(temporary);
        WriteFile(temporary, file.text);
    }
    for (const OutputFile& file : files) {
        const fs::path target = fs::path(folder) / file.name;
        fs::rename(TemporaryName(target), target, error);
        if (error) {
            throw PackError(target.string() + ": cannot be written");
        }
        cleanup.Add(target);
    }
    cleanup.Keep();
}

} // namespace orvo::pack
