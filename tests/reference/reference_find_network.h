// SPDX-License-Identifier: MIT
//
// The three networks of the finder, written down a second time: what each step is, and the networks over
// plain definitions of their operations.
#pragma once

#include <cstdint>
#include <vector>

#include "reference/reference_layers.h"
#include "reference/reference_networks.h"

namespace orvo_reference {

// Where a step reads and writes: one of four places, the last two beside each other behind the first
// two, or an answer. kPart8 and kPart16 lie beside each other and are read as kParts.
enum class FindPlace {
    kA,
    kA2,
    kB,
    kB2,
    kAnswer8,
    kAnswer16,
    kHeat,
    kPart8,
    kPart16,
    kParts,
    kRest
};

struct FindStep {
    StepKind kind;
    int layer; // number of its parameters, or -1
    FindPlace src;
    int inChannels;
    int stride; // of the planes that it reads
    int outChannels;
    int outShift;
    FindPlace dst;
};

// From the patches on, which are no kernel's work. The planes of the networks that look are those of a
// picture of 64 x 64: of the wide look and of the close one.
enum class LookKind { kWide, kClose };
const std::vector<FindStep>& FindSteps();
const std::vector<FindStep>& LookSteps(LookKind kind);

// Of all networks.
const std::vector<Layer>& FindLayers();
Model SeededFindModel();

struct Grey {
    int width = 0;
    int height = 0;
    std::vector<uint8_t> pixels;

    int at(int x, int y) const {
        return pixels[static_cast<size_t>(y) * static_cast<size_t>(width) + static_cast<size_t>(x)];
    }
};

// Picture 0 is smooth, picture 1 is noise.
Grey SeededGrey(int picture, int width, int height);

// Sides rounded up to multiples of 16 with grey level 128.
Grey PaddedGrey(const Grey& picture);

// Patches of `side` rows and columns, 4 or 8, every 4 pixels of a plane whose sides are multiples of 4:
// plane side * r + c has pixel (r, c) of each, 128 beyond the plane. Those of 4 lie side by side, those of
// 8 reach 2 pixels further on every side.
std::vector<uint8_t> PatchesOf(const Grey& plane, int side);

struct FindAnswers {
    std::vector<int8_t> stride8;
    std::vector<int8_t> stride16;
};

// On a plane whose sides are multiples of 16.
FindAnswers RunFind(const Model& model, const Grey& plane, const AfterStep& afterStep);

struct LookAnswersPlain {
    std::vector<int8_t> heat; // 16 planes of 8 x 8
    std::vector<int8_t> rest;
};
LookAnswersPlain RunLook(LookKind kind, const Model& model, const Grey& look,
                         const AfterStep& afterStep);

} // namespace orvo_reference
