// SPDX-License-Identifier: MIT
#include "photograph.h"

#include "program.h"

namespace kova_fr_test {

std::string Sample(const std::string& name) { return std::string(ORVO_SAMPLES "/") + name; }

Grey Photograph(const std::vector<std::pair<std::string, Placed>>& people) {
    Grey photograph = Flat(1200, 800, 128);
    for (const auto& [name, at] : people) {
        const Grey sample = DecodeGreyPng(ReadFile(Sample(name)));
        for (uint32_t y = 0; y < 256 * at.scale; ++y) {
            for (uint32_t x = 0; x < 256 * at.scale; ++x) {
                photograph.pixels[(at.top + y) * 1200 + at.left + x] =
                    sample.pixels[y / at.scale * 256 + x / at.scale];
            }
        }
    }
    return photograph;
}

Grey FarAway(const std::string& name) {
    constexpr uint32_t kTimes = 6;
    const Grey sample = DecodeGreyPng(ReadFile(Sample(name)));
    Grey far = Flat(128, 128, 128);
    for (uint32_t y = 0; y < 256 / kTimes; ++y) {
        for (uint32_t x = 0; x < 256 / kTimes; ++x) {
            uint32_t sum = 0;
            for (uint32_t i = 0; i < kTimes * kTimes; ++i) {
                sum += sample.pixels[(kTimes * y + i / kTimes) * 256 + kTimes * x + i % kTimes];
            }
            far.pixels[(y + 40) * 128 + x + 40] = static_cast<uint8_t>(sum / (kTimes * kTimes));
        }
    }
    return far;
}

} // namespace kova_fr_test
