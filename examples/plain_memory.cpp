// SPDX-License-Identifier: MIT
//
// The same on plain memory, through the core's interface and in C++: no frames, no media memory.
//
//     plain_memory A B      two PNG or binary PGM files of 256 x 256, or as many grey levels without a header
#include <orvo/orvo_fr.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "picture.h"

namespace {

constexpr int kSize = ORVO_FR_IMAGE_SIZE;
using Feature = std::array<float, ORVO_FR_FEATURE_LENGTH>;

// The core: its models, and the working memory that it is given. One thread at a time may use it.
class Recogniser {
  public:
    Recogniser() : memory_(OrvoFrGetMemorySize()) {
        if (OrvoFrInit() != ORVO_FR_OK ||
            OrvoFrSetMemory(memory_.data(), static_cast<uint32_t>(memory_.size())) != ORVO_FR_OK) {
            throw std::runtime_error("the face library could not be started");
        }
    }

    Feature Extract(const uint8_t* pixels) {
        const FrImage image{pixels, kSize, kSize, kSize};
        Feature feature;
        if (OrvoFrRun(&image, feature.data(), sizeof feature) != ORVO_FR_OK) {
            throw std::runtime_error("no feature");
        }
        return feature;
    }

  private:
    std::vector<uint8_t> memory_;
};

struct Free {
    void operator()(uint8_t* pixels) const { std::free(pixels); }
};
using Pixels = std::unique_ptr<uint8_t, Free>;

Pixels Load(const char* path) {
    picture file;
    if (picture_load(path, &file) != 0) {
        throw std::runtime_error("no picture");
    }
    Pixels pixels(file.pixels);
    if (file.width != kSize || file.height != kSize) {
        throw std::runtime_error(std::string(path) + ": is not 256 x 256");
    }
    return pixels;
}

} // namespace

int main(int count, char** arguments) {
    if (count != 3) {
        std::fputs("usage: plain_memory A B\n", stderr);
        return 2;
    }
    try {
        Recogniser recogniser;
        const Feature a = recogniser.Extract(Load(arguments[1]).get());
        const Feature b = recogniser.Extract(Load(arguments[2]).get());
        std::printf("%.9g\n", OrvoFrGetDistance(a.data(), sizeof a, b.data(), sizeof b));
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "plain_memory: %s\n", error.what());
        return 1;
    }
}
