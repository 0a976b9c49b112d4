// SPDX-License-Identifier: MIT
//
// What the finder is measured with: 320 x 240 grey levels, and a record of a face in the middle, so
// that turning upright is measured whatever the network finds.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <vector>

#include "orvo/orvo_find.h"

namespace orvo_bench {

class Finder {
  public:
    static constexpr int32_t kWidth = 320;
    static constexpr int32_t kHeight = 240;

    Finder() {
        for (int32_t y = 0; y < kHeight; ++y) { // a soft gradient
            for (int32_t x = 0; x < kWidth; ++x) {
                pixels_.push_back(static_cast<uint8_t>((x + 2 * y) / 4));
            }
        }
        const auto size = static_cast<uint32_t>(memory_.size());
        if (OrvoFindInit() != ORVO_FIND_OK ||
            OrvoFindSetMemory(memory_.data(), size) != ORVO_FIND_OK) {
            throw std::runtime_error("the finder could not be initialised");
        }
        run(); // brings code and weights into the caches
    }
    void run() {
        OrvoFindFace faces[8];
        int32_t count = 0;
        const OrvoFindPicture picture = view();
        Require(OrvoFindRun(&picture, ORVO_FIND_SMALLEST, faces, 8, &count));
    }
    void upright() {
        const OrvoFindFace face = {
            100, 60, 120, 1, {{135, 105}, {182, 112}, {158, 125}, {138, 150}, {174, 155}},
            0,   0,  0,   0, 0};
        uint8_t crop[ORVO_FIND_CROP_SIZE * ORVO_FIND_CROP_SIZE];
        const OrvoFindPicture picture = view();
        Require(OrvoFindUpright(&picture, &face, crop));
    }

  private:
    OrvoFindPicture view() const { return {pixels_.data(), kWidth, kHeight, kWidth}; }
    static void Require(int32_t status) {
        if (status != ORVO_FIND_OK) {
            throw std::runtime_error("the finder refuses its picture");
        }
    }

    std::vector<uint8_t> memory_ =
        std::vector<uint8_t>(OrvoFindGetMemorySize(kWidth, kHeight, ORVO_FIND_SMALLEST));
    std::vector<uint8_t> pixels_;
};

} // namespace orvo_bench
