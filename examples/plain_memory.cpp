// SPDX-License-Identifier: MIT
//
// The same on plain memory, through the core's interface and in C++: no frames, no media memory.
//
//     plain_memory A B      two files of 256 x 256 grey levels, or binary PGM of that size
#include <orvo/orvo_fr.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <stdexcept>
#include <vector>

namespace {

constexpr int kSize = ORVO_FR_IMAGE_SIZE;
using Picture = std::array<char, kSize * kSize>;
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

    Feature Extract(const Picture& picture) {
        const FrImage image{reinterpret_cast<const uint8_t*>(picture.data()), kSize, kSize, kSize};
        Feature feature;
        if (OrvoFrRun(&image, feature.data(), sizeof feature) != ORVO_FR_OK) {
            throw std::runtime_error("no feature");
        }
        return feature;
    }

  private:
    std::vector<uint8_t> memory_;
};

// A PGM file's pixels are its last bytes.
Picture Load(const char* path) {
    std::ifstream file(path, std::ios::binary);
    Picture picture;
    file.seekg(-static_cast<std::streamoff>(picture.size()), std::ios::end);
    if (!file.read(picture.data(), picture.size())) {
        throw std::runtime_error(std::string(path) + ": cannot be read as a picture");
    }
    return picture;
}

} // namespace

int main(int count, char** arguments) {
    if (count != 3) {
        std::fputs("usage: plain_memory A B\n", stderr);
        return 2;
    }
    try {
        Recogniser recogniser;
        const Feature a = recogniser.Extract(Load(arguments[1]));
        const Feature b = recogniser.Extract(Load(arguments[2]));
        std::printf("%.9g\n", OrvoFrGetDistance(a.data(), sizeof a, b.data(), sizeof b));
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "plain_memory: %s\n", error.what());
        return 1;
    }
}
