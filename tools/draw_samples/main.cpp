// SPDX-License-Identifier: MIT
// Draws the portraits of samples/ into a folder.
#include <cstdio>
#include <exception>

#include "output_file.h"
#include "picture_io.h"
#include "render.h"

namespace {

constexpr int kSize = 256;

void Draw(const std::string& folder) {
    std::vector<kova_cli::OutputFile> files;
    uint64_t seed = 1;
    for (const draw_samples::Portrait& portrait : draw_samples::AllPortraits()) {
        const std::vector<uint8_t> pixels = draw_samples::Render(portrait, kSize, seed++);
        files.push_back(
            {folder + "/" + portrait.fileName, true, kova_cli::EncodePng(pixels, kSize, kSize, 3)});
    }
    kova_cli::WriteFiles(files);
}

} // namespace

int main(int count, char** arguments) {
    if (count != 2) {
        std::fprintf(stderr, "usage: draw_samples FOLDER\n");
        return 2;
    }
    try {
        Draw(arguments[1]);
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "draw_samples: %s\n", error.what());
        return 1;
    }
}
