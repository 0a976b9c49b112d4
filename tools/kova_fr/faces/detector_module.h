// SPDX-License-Identifier: MIT
//
// The detector is a module of its own, loaded when it is asked for: OpenCV's libraries take longer
// to load than everything else that the program does, and a machine without them can run the rest.
#pragma once

#include <cstdint>

namespace kova_cli {

inline constexpr char kDetectorModule[] = "kova_fr_detector.so";
inline constexpr char kDetectFunction[] = "KovaFrDetect";

// A square that the detector takes for a face, in pixels.
struct Detection {
    int32_t left, top, side;
};

// Fills at most `most` detections and returns how many there are; -1 if the detector's data are not
// there.
using DetectFunction = int(const uint8_t* pixels, uint32_t width, uint32_t height, Detection* out,
                           int most);

} // namespace kova_cli
