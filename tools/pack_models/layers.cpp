// SPDX-License-Identifier: MIT
#include "tools/pack_models/layers.h"

namespace orvo::pack {
namespace {

using enum LayerKind;

constexpr Layer kAlignLayers[] = {
    {0, kConvolution, 1, 32}, {1, kPointwise, 32, 18},      {2, kDepthwise, 18, 18},
    {4, kPointwise, 18, 36},  {5, kDepthwise, 36, 36},      {7, kPointwise, 36, 20},
    {8, kDepthwise, 20, 20},  {10, kPointwise, 20, 40},     {11, kDepthwise, 40, 40},
    {13, kPointwise, 40, 22}, {14, kDepthwise, 22, 22},     {16, kPointwise, 22, 44},
    {17, kDepthwise, 44, 44}, {20, kPointwise, 44, 24},     {21, kDepthwise, 24, 24},
    {23, kPointwise, 24, 48}, {24, kDepthwise, 48, 48},     {26, kPointwise, 48, 26},
    {27, kDepthwise, 26, 26}, {29, kPointwise, 26, 52},     {30, kDepthwise, 52, 52},
    {32, kPointwise, 52, 28}, {33, kDepthwise, 28, 28},     {35, kPointwise, 28, 56},
    {36, kDepthwise, 56, 56}, {39, kPointwise, 56, 30},     {40, kDepthwise, 30, 30},
    {42, kPointwise, 30, 60}, {43, kDepthwise, 60, 60},     {45, kPointwise, 60, 32},
    {46, kDepthwise, 32, 32}, {48, kPointwise, 32, 64},     {49, kDepthwise, 64, 64},
    {51, kPointwise, 64, 34}, {52, kDepthwise, 34, 34},     {54, kPointwise, 34, 68},
    {55, kDepthwise, 68, 68}, {58, kFullyConnected, 68, 4},
};

constexpr Layer kFrLayers[] = {
    {0, kConvolution, 3, 32},   {2, kDepthwise, 32, 32},    {5, kDepthwise, 32, 32},
    {7, kPointwise, 32, 64},    {9, kDepthwise, 64, 64},    {11, kDepthwise, 64, 64},
    {14, kPointwise, 64, 32},   {15, kPointwise, 32, 64},   {17, kDepthwise, 64, 64},
    {19, kPointwise, 64, 32},   {21, kPointwise, 32, 64},   {23, kDepthwise, 64, 64},
    {25, kPointwise, 64, 32},   {27, kPointwise, 32, 64},   {29, kDepthwise, 64, 64},
    {31, kPointwise, 64, 32},   {33, kPointwise, 32, 64},   {35, kDepthwise, 64, 64},
    {37, kPointwise, 64, 32},   {39, kPointwise, 32, 128},  {41, kDepthwise, 128, 128},
    {43, kDepthwise, 128, 128}, {46, kPointwise, 128, 64},  {47, kPointwise, 64, 128},
    {49, kDepthwise, 128, 128}, {51, kPointwise, 128, 64},  {53, kPointwise, 64, 128},
    {55, kDepthwise, 128, 128}, {57, kPointwise, 128, 64},  {59, kPointwise, 64, 128},
    {61, kDepthwise, 128, 128}, {63, kPointwise, 128, 64},  {65, kPointwise, 64, 128},
    {67, kDepthwise, 128, 128}, {69, kPointwise, 128, 64},  {71, kPointwise, 64, 128},
    {73, kDepthwise, 128, 128}, {75, kPointwise, 128, 64},  {77, kPointwise, 64, 128},
    {79, kDepthwise, 128, 128}, {81, kPointwise, 128, 64},  {83, kPointwise, 64, 256},
    {85, kDepthwise, 256, 256}, {87, kDepthwise, 256, 256}, {90, kPointwise, 256, 64},
    {91, kPointwise, 64, 128},  {93, kDepthwise, 128, 128}, {95, kPointwise, 128, 64},
    {97, kPointwise, 64, 128},  {99, kDepthwise, 128, 128}, {101, kPointwise, 128, 64},
    {103, kPointwise, 64, 256}, {105, kGlobal, 256, 256},   {106, kFullyConnected, 256, 128},
};

} // namespace

std::span<const Layer> AlignLayers() { return kAlignLayers; }

std::span<const Layer> FrLayers() { return kFrLayers; }

std::vector<int64_t> WeightShape(const Layer& layer) {
    switch (layer.kind) {
        case kConvolution:
            return {layer.out, layer.in, 3, 3};
        case kPointwise:
            return {layer.out, layer.in, 1, 1};
        case kDepthwise:
            return {layer.out, 1, 3, 3};
        case kGlobal:
            return {layer.out, 1, 6, 6};
        case kFullyConnected:
            break;
    }
    return {layer.out, layer.in};
}

std::string WeightName(const Layer& layer) { return std::to_string(layer.number) + ".weight"; }

std::string BiasName(const Layer& layer) { return std::to_string(layer.number) + ".bias"; }

} // namespace orvo::pack
