// SPDX-License-Identifier: MIT
#include "tools/pack_models/input_file.h"

#include <fstream>

#include "tools/pack_models/pack_error.h"

namespace orvo::pack {
namespace {

// In the unit in which bounds are round.
std::string SizeText(size_t bytes) {
    return bytes >> 20 != 0 ? std::to_string(bytes >> 20) + " MiB"
                            : std::to_string(bytes >> 10) + " KiB";
}

} // namespace

std::vector<uint8_t> ReadFile(const std::string& path, size_t mostBytes) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        throw PackError(path + ": cannot be opened");
    }
    std::vector<uint8_t> bytes;
    std::vector<char> chunk(64 * 1024);
    while (file.read(chunk.data(), static_cast<std::streamsize>(chunk.size())) ||
           file.gcount() > 0) {
        bytes.insert(bytes.end(), chunk.begin(), chunk.begin() + file.gcount());
        if (bytes.size() > mostBytes) {
            throw PackError(path + ": is larger than " + SizeText(mostBytes));
        }
    }
    if (file.bad()) {
        throw PackError(path + ": cannot be read");
    }
    return bytes;
}

} // namespace orvo::pack
