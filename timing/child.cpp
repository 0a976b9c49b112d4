// SPDX-License-Identifier: MIT
#include "timing/child.h"

#include <cstdio>
#include <filesystem>
#include <memory>
#include <stdexcept>

namespace orvo_timing {
namespace {

std::string Quoted(const std::string& text) {
    std::string quoted = "'";
    for (const char c : text) {
        quoted += c == '\'' ? "'\\''" : std::string(1, c);
    }
    return quoted + "'";
}

std::string OutputOf(const std::string& command) {
    const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
    if (!pipe) {
        throw std::runtime_error("cannot run " + command);
    }
    std::string output;
    char chunk[4096];
    while (const size_t count = std::fread(chunk, 1, sizeof chunk, pipe.get())) {
        output.append(chunk, count);
    }
    return output;
}

std::string Command(const std::string& program, const std::string& path,
                    const std::vector<std::string>& arguments) {
    std::string command = path.empty() ? "" : "ORVO_FR_PATH=" + Quoted(path) + " ";
    command += Quoted(program);
    for (const std::string& argument : arguments) {
        command += " " + Quoted(argument);
    }
    return command;
}

std::string ThisProgram() { return std::filesystem::read_symlink("/proc/self/exe"); }

} // namespace

std::string RunProgram(const std::string& program, const std::string& path,
                       const std::vector<std::string>& arguments) {
    return OutputOf(Command(program, path, arguments));
}

std::string RunThisProgram(const std::string& path, const std::vector<std::string>& arguments) {
    return RunProgram(ThisProgram(), path, arguments);
}

std::string AskThisProgram(const std::string& path, const std::vector<std::string>& arguments) {
    return OutputOf("2>/dev/null " + Command(ThisProgram(), path, arguments));
}

} // namespace orvo_timing
