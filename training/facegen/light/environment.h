// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <filesystem>
#include <string_view>
#include <vector>

#include "light/light.h"

namespace facegen {

// A panorama of real light, grey, as bright as 1 in the mean. Rows from the zenith down, columns by
// azimuth from behind over the left to behind again; the middle column lies straight ahead.
struct Environment {
    int width = 0, height = 0;
    std::vector<float> radiance; // as it is, for backgrounds
    int coarseWidth = 0, coarseHeight = 0;
    std::vector<float> coarse; // small, without the lamps, for light
    struct Source {
        float azimuth = 0, elevation = 0;
        float strength = 0; // light on a surface that faces it, in units of the mean radiance
    };
    std::array<Source, 2> lamps; // the brightest places, the brighter first
};

// A picture in the format "Radiance RGBE"; throws std::runtime_error naming it if it is none.
Environment ParseEnvironment(std::string_view bytes, const std::string& name);

// All *.hdr files of a folder in the order of their names.
std::vector<Environment> LoadEnvironments(const std::filesystem::path& folder);

// Lights a picture by the panorama, turned about the upright axis; keeps exposure and tone.
void LightBy(Light& light, const Environment& environment, float turn);

// What a camera that looks ahead sees of it, width x height, as bright as 1 in the panorama's mean;
// `across`: the view's half width over its distance.
void Look(const Environment& environment, float turn, float pitch, float across,
          std::vector<float>& tones, int width, int height);

} // namespace facegen
