// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <vector>

#include "random.h"

namespace facegen {

// What a camera and its file format take away.
struct Degradation {
    float blur = 0;   // standard deviation, pixels
    float motion = 0; // length, pixels
    float motionAngle = 0;
    float small = 1;       // below 1: was that much smaller once
    float noise = 0;       // standard deviation, shares of full scale
    float sensorNoise = 0; // grows with the square root of the light
    int jpeg = 0;          // quality; 0: none
    float contrast = 1, lift = 0;
};

// `unit` is the face box's side over 96 pixels: larger faces stand larger blur.
Degradation DrawDegradation(bool dark, float unit, Random& random);

// Turns tones (0 to 1) into pixels.
void Degrade(std::vector<float>& tones, int width, int height, const Degradation& degradation,
             Random& random, std::uint8_t* pixels);

} // namespace facegen
