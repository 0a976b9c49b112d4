// SPDX-License-Identifier: MIT
#include "files/output_file.h"

#include <fcntl.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <list>

#include "files/failure.h"
#include "files/staged_file.h"

namespace kova_cli {
namespace {

namespace fs = std::filesystem;

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
            StagedFile& stage = staged.emplace_back(file.path, file.mayReplace, file.isPrivate);
            stage.Write(file.bytes);
            stage.Finish();
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
