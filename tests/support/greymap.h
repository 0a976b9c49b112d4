// SPDX-License-Identifier: MIT
//
// Tests of the library have no reader of PNG.
#pragma once

#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

namespace orvo_test {

struct Greymap {
    int32_t width = 0, height = 0;
    std::vector<uint8_t> pixels;
};

// A binary PGM of 8 bits without comments; an empty one where the file is none.
inline Greymap ReadGreymap(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::string kind;
    Greymap map;
    int32_t most = 0;
    file >> kind >> map.width >> map.height >> most;
    file.get();
    if (!file || kind != "P5" || most != 255 || map.width < 1 || map.height < 1) {
        return {};
    }
    map.pixels.resize(static_cast<size_t>(map.width) * static_cast<size_t>(map.height));
    file.read(reinterpret_cast<char*>(map.pixels.data()),
              static_cast<std::streamsize>(map.pixels.size()));
    return file ? map : Greymap{};
}

} // namespace orvo_test
