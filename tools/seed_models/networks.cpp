// SPDX-License-Identifier: MIT
#include "tools/seed_models/networks.h"

namespace orvo::seed {
namespace {

constexpr int kMostChannels = 256;

struct LayerStep {
    int number;
    int shift;
};

struct AddShifts {
    int first;
    int second;
    int out;
};

// What inner layers spread by.
constexpr double kInnerSpread = 26.0;
// What rectified layers spread around.
constexpr double kRectifiedCentre = 35.0;
// Around a central box, in units of 2 pixels: left, top, right, bottom.
constexpr double kBox[] = {16, 16, 112, 112};
// How far its sides move from picture to picture.
constexpr double kBoxSpread = 1.5;
// The feature is normalised afterwards, so it may use more of the range than inner layers.
constexpr double kFeatureSpread = 34.0;
// Random residual branches as strong as their shortcut would tell pictures apart that hardly
// differ.
constexpr double kBranchSpread = 8.0;

// Most values of a rectified layer lie above zero: a rectifier that cuts half of them away loses
// much of what it is given, and so many in a row would leave nothing of it.
Batch RunRectified(const Batch& in, LayerStep step, Seeder* seeder) {
    static const std::vector<double> centres(kMostChannels, kRectifiedCentre);
    Batch out = seeder->Run(in, step.number, step.shift, kInnerSpread, centres);
    Rectify(&out);
    return out;
}

// Narrow pointwise, rectified depthwise, wide pointwise, depthwise, addition of the shortcut.
Batch AlignBlock(const Batch& in, LayerStep narrow, LayerStep rectified, LayerStep wide,
                 LayerStep plain, AddShifts add, Seeder* seeder) {
    Batch x = seeder->Run(in, narrow.number, narrow.shift, kInnerSpread);
    x = RunRectified(x, rectified, seeder);
    x = seeder->Run(x, wide.number, wide.shift, kInnerSpread);
    x = seeder->Run(x, plain.number, plain.shift, kInnerSpread);
    return Add(x, in, add.first, add.second, add.out);
}

// Wide pointwise, rectifier, rectified depthwise, narrow pointwise, added to the shortcut.
Batch FrBlock(const Batch& in, LayerStep wide, LayerStep rectified, LayerStep narrow, AddShifts add,
              Seeder* seeder) {
    Batch x = RunRectified(in, wide, seeder);
    x = RunRectified(x, rectified, seeder);
    x = seeder->Run(x, narrow.number, narrow.shift, kBranchSpread);
    return Add(in, x, add.first, add.second, add.out);
}

// 2 x 2 maximum, depthwise, every second pixel, rectifier.
Batch FrReduce(const Batch& in, LayerStep filter, Seeder* seeder) {
    Batch x = MaxPoolStride1(in);
    x = TakeEverySecond(RunRectified(x, filter, seeder));
    return x;
}

// Wide pointwise, rectifier and depthwise in front of a reduction, a projection behind it.
Batch FrStage(const Batch& in, LayerStep wide, LayerStep first, LayerStep second,
              LayerStep projection, Seeder* seeder) {
    Batch x = RunRectified(in, wide, seeder);
    x = seeder->Run(x, first.number, first.shift, kInnerSpread);
    x = FrReduce(x, second, seeder);
    return seeder->Run(x, projection.number, projection.shift, kInnerSpread);
}

} // namespace

Batch SeedAlign(const Batch& in, Seeder* seeder) {
    Batch x = seeder->Run(in, 0, 8, kInnerSpread);
    x = AlignBlock(x, {1, 7}, {2, 6}, {4, 7}, {5, 6}, {1, 0, 1}, seeder);
    x = AlignBlock(x, {7, 5}, {8, 7}, {10, 6}, {11, 6}, {0, 1, 1}, seeder);
    x = AlignBlock(x, {13, 6}, {14, 6}, {16, 7}, {17, 7}, {0, 1, 0}, seeder);
    x = MaxPoolStride2(x);
    x = AlignBlock(x, {20, 6}, {21, 6}, {23, 6}, {24, 6}, {0, 0, 0}, seeder);
    x = AlignBlock(x, {26, 6}, {27, 7}, {29, 7}, {30, 7}, {1, 0, 1}, seeder);
    x = AlignBlock(x, {32, 5}, {33, 6}, {35, 6}, {36, 7}, {0, 0, 0}, seeder);
    x = MaxPoolStride2(x);
    x = AlignBlock(x, {39, 5}, {40, 6}, {42, 7}, {43, 5}, {0, 0, 0}, seeder);
    x = AlignBlock(x, {45, 5}, {46, 7}, {48, 6}, {49, 6}, {0, 0, 1}, seeder);
    x = AlignBlock(x, {51, 6}, {52, 7}, {54, 6}, {55, 6}, {0, 1, 1}, seeder);
    x = AveragePool(x, 3);
    return seeder->Run(x, 58, 8, kBoxSpread, kBox);
}

Batch SeedFr(const Batch& in, Seeder* seeder) {
    Batch x = seeder->Run(in, 0, 11, kInnerSpread);
    x = FrReduce(x, {2, 9}, seeder);
    x = RunRectified(x, {5, 4}, seeder);
    x = FrStage(x, {7, 7}, {9, 7}, {11, 9}, {14, 6}, seeder);
    x = FrBlock(x, {15, 8}, {17, 4}, {19, 7}, {1, 0, 1}, seeder);
    x = FrBlock(x, {21, 6}, {23, 6}, {25, 6}, {1, 0, 1}, seeder);
    x = FrBlock(x, {27, 7}, {29, 6}, {31, 6}, {1, 0, 1}, seeder);
    x = FrBlock(x, {33, 7}, {35, 7}, {37, 5}, {1, 0, 1}, seeder);
    x = FrStage(x, {39, 7}, {41, 8}, {43, 8}, {46, 7}, seeder);
    x = FrBlock(x, {47, 9}, {49, 4}, {51, 6}, {1, 0, 1}, seeder);
    x = FrBlock(x, {53, 8}, {55, 4}, {57, 6}, {1, 0, 1}, seeder);
    x = FrBlock(x, {59, 7}, {61, 7}, {63, 5}, {0, 0, 0}, seeder);
    x = FrBlock(x, {65, 8}, {67, 5}, {69, 6}, {0, 0, 1}, seeder);
    x = FrBlock(x, {71, 8}, {73, 6}, {75, 6}, {1, 0, 1}, seeder);
    x = FrBlock(x, {77, 7}, {79, 6}, {81, 7}, {0, 0, 0}, seeder);
    x = FrStage(x, {83, 8}, {85, 7}, {87, 8}, {90, 7}, seeder);
    x = FrBlock(x, {91, 9}, {93, 6}, {95, 6}, {1, 0, 1}, seeder);
    x = FrBlock(x, {97, 8}, {99, 5}, {101, 7}, {0, 0, 1}, seeder);
    x = RunRectified(x, {103, 7}, seeder);
    x = seeder->Run(x, 105, 6, kInnerSpread);
    return seeder->Run(x, 106, 7, kFeatureSpread);
}

} // namespace orvo::seed
