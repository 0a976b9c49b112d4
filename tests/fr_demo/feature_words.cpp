// SPDX-License-Identifier: MIT
//
// Prints the feature of one picture as 128 numbers in hexadecimal, so that machines can be compared
// that keep the bytes of a number in different orders. Given a command, fails where that prints
// others.
#include <bit>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "orvo/orvo_fr.h"

namespace {

// Not flat anywhere, and no two rows alike.
std::vector<uint8_t> Picture() {
    std::vector<uint8_t> pixels(256 * 256);
    for (uint32_t i = 0; i < pixels.size(); ++i) {
        pixels[i] = static_cast<uint8_t>((i % 256 * 3 + i / 256 * 5 + i * i % 251) / 4);
    }
    return pixels;
}

std::string Feature() {
    const std::vector<uint8_t> pixels = Picture();
    std::vector<uint32_t> memory(OrvoFrGetMemorySize() / 4);
    float feature[ORVO_FR_FEATURE_BYTES / 4] = {};
    const FrImage image = {pixels.data(), 256, 256, 256};
    if (OrvoFrInit() != ORVO_FR_OK ||
        OrvoFrSetMemory(memory.data(), OrvoFrGetMemorySize()) != ORVO_FR_OK ||
        OrvoFrRun(&image, feature, ORVO_FR_FEATURE_BYTES) != ORVO_FR_OK) {
        return "";
    }
    std::string text;
    for (const float value : feature) {
        char word[16];
        std::snprintf(word, sizeof word, "%08x\n", std::bit_cast<uint32_t>(value));
        text += word;
    }
    return text;
}

std::string OutputOf(const char* command) {
    std::string text;
    if (FILE* const pipe = popen(command, "r"); pipe != nullptr) {
        for (int c = fgetc(pipe); c != EOF; c = fgetc(pipe)) {
            text += static_cast<char>(c);
        }
        pclose(pipe);
    }
    return text;
}

} // namespace

int main(int argc, char** argv) {
    const std::string feature = Feature();
    if (feature.empty()) {
        std::fputs("there is no feature\n", stderr);
        return 1;
    }
    if (argc < 2) {
        std::fputs(feature.c_str(), stdout);
        return 0;
    }
    const bool same = OutputOf(argv[1]) == feature;
    std::printf("the feature is %s as from %s\n", same ? "the same" : "not the same", argv[1]);
    return same ? 0 : 1;
}
