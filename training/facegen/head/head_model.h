// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "head/asset_files.h"
#include "head/surface.h"
#include "picture.h"

namespace facegen {

constexpr int kEthnicities = 3; // african, asian, caucasian
constexpr int kSexes = 2;       // female, male
constexpr int kAges = 3;        // child, young, old

// Something that is fitted to the base mesh: eyes, lashes, a hair style.
struct Fitted {
    std::string name;
    Fitting fitting;
    Surface surface; // texture coordinates in texels of the atlas
};

// A hair texture at the size of its tile, with the transparent texels filled from their neighbours.
struct HairTexture {
    Picture tone, alpha; // one channel each
};

// One way a face differs from another: a target each way, of which either may be missing.
struct DetailAxis {
    std::string stem;         // without side and direction, so that both sides can move together
    int side = 0;             // -1 right, 1 left, 0 both at once
    int more = -1, less = -1; // indices into HeadModel::details
};

struct ExpressionUnit {
    std::string name;
    Target target[kEthnicities];
};

// Everything read from the assets, the same for all people. Indices of points are into `base`,
// which keeps the part of the base mesh that is used.
struct HeadModel {
    std::vector<Vec3> base;
    std::vector<std::uint32_t> number; // by point: what the base mesh's file counts it as
    std::vector<float> occlusion;      // by point: share of the sky that it sees, 0 to 1
    std::vector<bool> inner;           // by point: inside the mouth or behind the eyes
    std::vector<float> headWeight;     // by point: 1 where it follows the head, 0 on the shoulders

    Surface skin; // the head and neck first, then what only a wide view needs
    std::size_t closeTriangles = 0;
    Surface teeth, tongue;

    Fitted eyes;
    std::vector<Fitted> lashes, hairs;
    std::vector<Picture> lashAlpha;        // by lashes
    std::vector<HairTexture> hairTextures; // by hair
    std::vector<Picture> eyeTones;         // at the size of the eyes' tile

    std::vector<std::uint32_t> leftEye, rightEye; // points about each eyeball
    // Of the eyes' own points those nearest the middle of each pupil.
    std::vector<std::uint32_t> leftPupil, rightPupil;
    std::vector<std::uint32_t> nose; // points about the nose's tip
    std::uint32_t lipEdge = 0;       // where the mouth begins, on the midline

    Target macro[kEthnicities][kSexes][kAges];
    std::vector<Target> details;
    std::vector<DetailAxis> axes;
    std::vector<ExpressionUnit> units;

    // By texel of the atlas's skin tile, row by row.
    std::vector<Vec3> texelBase; // base coordinates; those far down where no skin is
    std::vector<bool> texelUsed;
    std::vector<std::vector<std::int16_t>>
        skins; // log2 of reflectance over the face's mean, x 2048
    std::vector<std::string> skinNames;
    std::vector<std::vector<std::uint8_t>> brows; // coverage
};

HeadModel LoadHeadModel(const std::filesystem::path& assets);

// Where the fitted points of `fitted` lie on a head with these points.
std::vector<Vec3> Fit(const Fitting& fitting, const std::vector<Vec3>& points);

} // namespace facegen
