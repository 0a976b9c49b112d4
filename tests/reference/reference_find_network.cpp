// SPDX-License-Identifier: MIT
#include "reference/reference_find_network.h"

#include <map>
#include <stdexcept>

#include "reference/reference_conv.h"
#include "reference/reference_small.h"
#include "support/random.h"

namespace orvo_reference {
namespace {

using enum StepKind;
using enum FindPlace;

// A separable convolution: depthwise into `between`, pointwise into `dst`, rectifier.
void AddPair(std::vector<FindStep>* steps, int number, int stride, int in, int out, int shift,
             FindPlace src, FindPlace between, FindPlace dst) {
    steps->push_back({kDepthwise, number, src, in, stride, in, 6, between});
    steps->push_back({kPointwise, number + 1, between, in, stride, out, shift, dst});
    steps->push_back({kRectify, -1, dst, out, stride, out, 0, dst});
}

// All networks begin alike, with patches of so many pixels; at stride 8 with as many pairs, of so many
// planes.
std::vector<FindStep> TrunkSteps(int first, int patch, int pairs, int planes, int shift) {
    std::vector<FindStep> steps = {
        {kGreyToQ7, -1, kA, patch, 4, patch, 0, kA},
        {kPointwise, first, kA, patch, 4, 32, 7, kB},
        {kRectify, -1, kB, 32, 4, 32, 0, kB},
    };
    AddPair(&steps, first + 1, 4, 32, 32, 7, kB, kA, kB);
    steps.push_back({kDepthwise, first + 3, kB, 32, 4, 32, 6, kA});
    steps.push_back({kPointwise, first + 4, kA, 32, 4, 32, 7, kB});
    steps.push_back({kMaxPoolStride2, -1, kB, 32, 4, 32, 0, kA});
    steps.push_back({kRectify, -1, kA, 32, 8, 32, 0, kA});
    AddPair(&steps, first + 5, 8, 32, planes, 7, kA, kB, kA);
    for (int pair = 1; pair < pairs; ++pair) {
        AddPair(&steps, first + 5 + 2 * pair, 8, planes, planes, shift, kA, kB, kA);
    }
    return steps;
}

std::vector<FindStep> MakeSteps() {
    std::vector<FindStep> steps = TrunkSteps(0, 16, 4, 64, 7);
    AddPair(&steps, 13, 8, 64, 64, 7, kA, kB, kB2);
    steps.push_back({kPointwise, 15, kB2, 64, 8, 16, 8, kAnswer8});
    steps.push_back({kMaxPoolStride2, -1, kA, 64, 8, 64, 0, kB});
    AddPair(&steps, 16, 16, 64, 128, 7, kB, kB2, kA);
    AddPair(&steps, 18, 16, 128, 128, 8, kA, kB, kA);
    AddPair(&steps, 20, 16, 128, 128, 8, kA, kB, kA);
    AddPair(&steps, 22, 16, 128, 128, 8, kA, kB, kA);
    AddPair(&steps, 24, 16, 128, 64, 8, kA, kB, kA);
    steps.push_back({kPointwise, 26, kA, 64, 16, 16, 8, kAnswer16});
    return steps;
}

std::vector<FindStep> MakeLookSteps(int first, int patch) {
    std::vector<FindStep> steps = TrunkSteps(first, patch, 7, 128, 8);
    AddPair(&steps, first + 19, 8, 128, 128, 8, kA, kB, kB2);
    AddPair(&steps, first + 21, 8, 128, 128, 8, kB2, kB, kB2);
    steps.push_back({kPointwise, first + 23, kB2, 128, 8, 16, 7, kHeat});
    steps.push_back({kPointwise, first + 24, kA, 128, 8, 16, 7, kPart8});
    steps.push_back({kRectify, -1, kPart8, 16, 8, 16, 0, kPart8});
    steps.push_back({kMaxPoolStride2, -1, kA, 128, 8, 128, 0, kB});
    AddPair(&steps, first + 25, 16, 128, 128, 8, kB, kB2, kA);
    AddPair(&steps, first + 27, 16, 128, 128, 8, kA, kB, kA);
    AddPair(&steps, first + 29, 16, 128, 128, 8, kA, kB, kA);
    steps.push_back({kPointwise, first + 31, kA, 128, 16, 32, 8, kPart16});
    steps.push_back({kRectify, -1, kPart16, 32, 16, 32, 0, kPart16});
    steps.push_back({kFullyConnected, first + 32, kParts, 1536, 64, 16, 10, kRest});
    return steps;
}

LayerKind KindOf(const FindStep& step) {
    return step.kind == kPointwise        ? LayerKind::kPointwise
           : step.kind == kFullyConnected ? LayerKind::kFullyConnected
                                          : LayerKind::kDepthwise;
}

std::vector<Layer> MakeLayers() {
    std::vector<Layer> layers;
    for (const auto& steps :
         {FindSteps(), LookSteps(LookKind::kWide), LookSteps(LookKind::kClose)}) {
        for (const FindStep& step : steps) {
            if (step.layer >= 0) {
                layers.push_back(
                    {step.layer, KindOf(step), step.inChannels, step.outChannels, step.outShift});
            }
        }
    }
    return layers;
}

// 0 to 255 and back.
int Triangle(int phase) { return phase % 512 < 256 ? phase % 256 : 255 - phase % 256; }

int RoundUp16(int side) { return (side + 15) / 16 * 16; }

} // namespace

const std::vector<FindStep>& FindSteps() {
    static const std::vector<FindStep> steps = MakeSteps();
    return steps;
}

const std::vector<FindStep>& LookSteps(LookKind kind) {
    static const std::vector<FindStep> wide = MakeLookSteps(27, 16), close = MakeLookSteps(60, 64);
    return kind == LookKind::kWide ? wide : close;
}

const std::vector<Layer>& FindLayers() {
    static const std::vector<Layer> layers = MakeLayers();
    return layers;
}

Model SeededFindModel() { return SeededModel(FindLayers(), 3, 1.4); }

Grey SeededGrey(int picture, int width, int height) {
    Grey grey{width, height, {}};
    orvo_test::Random random(static_cast<uint64_t>(77 + picture));
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const int wave = Triangle(7 * x + 2 * y) + Triangle(11 * y + 3 * x) * 3 / 4;
            grey.pixels.push_back(picture == 0 ? static_cast<uint8_t>(20 + wave / 2)
                                               : random.Byte());
        }
    }
    return grey;
}

Grey PaddedGrey(const Grey& picture) {
    Grey padded{RoundUp16(picture.width), RoundUp16(picture.height), {}};
    for (int y = 0; y < padded.height; ++y) {
        for (int x = 0; x < padded.width; ++x) {
            const bool inside = x < picture.width && y < picture.height;
            padded.pixels.push_back(static_cast<uint8_t>(inside ? picture.at(x, y) : 128));
        }
    }
    return padded;
}

std::vector<uint8_t> PatchesOf(const Grey& plane, int side) {
    const int before = (side - 4) / 2;
    const auto at = [&](int x, int y) {
        const bool inside = x >= 0 && y >= 0 && x < plane.width && y < plane.height;
        return static_cast<uint8_t>(inside ? plane.at(x, y) : 128);
    };
    std::vector<uint8_t> patches;
    for (int r = 0; r < side; ++r) {
        for (int c = 0; c < side; ++c) {
            for (int y = 0; y < plane.height / 4; ++y) {
                for (int x = 0; x < plane.width / 4; ++x) {
                    patches.push_back(at(4 * x + c - before, 4 * y + r - before));
                }
            }
        }
    }
    return patches;
}

namespace {

using Places = std::map<FindPlace, std::vector<int8_t>>;

// The output of one step; planes are those of a picture of that size.
void RunStep(const Model& model, const FindStep& step, int pictureWidth, int pictureHeight,
             Places* places) {
    const std::vector<int8_t> src = places->at(step.src);
    const int width = pictureWidth / step.stride;
    const int height = pictureHeight / step.stride;
    const auto area = static_cast<size_t>(width) * static_cast<size_t>(height);
    if (src.size() != static_cast<size_t>(step.inChannels) * area) {
        throw std::logic_error("a step does not find the planes that it expects");
    }
    std::vector<int8_t>& dst = (*places)[step.dst];
    dst.assign(static_cast<size_t>(step.outChannels) * area, 0);
    const auto w = static_cast<uint32_t>(width);
    const auto h = static_cast<uint32_t>(height);
    const auto in = static_cast<uint32_t>(step.inChannels);
    const auto out = static_cast<uint32_t>(step.outChannels);
    const auto shift = static_cast<uint32_t>(step.outShift);
    if (step.kind == kGreyToQ7) {
        dst = src;
        GreyToQ7(reinterpret_cast<uint8_t*>(dst.data()), static_cast<uint32_t>(dst.size()));
    } else if (step.kind == kRectify) {
        Rectify(src.data(), dst.data(), static_cast<uint32_t>(src.size()));
    } else if (step.kind == kMaxPoolStride2) {
        dst.resize(dst.size() / 4);
        MaxPool2x2Stride2(src.data(), dst.data(), w, h, in, 0);
    } else {
        const LayerParameters& p = model.at(step.layer);
        const bool isDepthwise = step.kind == kDepthwise;
        ConvShape shape{width,
                        height,
                        step.inChannels,
                        step.outChannels,
                        isDepthwise ? 3 : 1,
                        isDepthwise ? 1 : 0,
                        1,
                        shift,
                        width,
                        height};
        if (isDepthwise) {
            ConvolveDepthwiseChw(shape, false, src.data(), p.weights.data(), p.bias.data(),
                                 dst.data());
        } else if (step.kind == kFullyConnected) {
            FullyConnected(src.data(), p.weights.data(), in, out, static_cast<uint16_t>(shift),
                           p.bias.data(), dst.data());
        } else {
            ConvolveChw(shape, src.data(), p.weights.data(), p.bias.data(), dst.data());
        }
    }
}

Places RunSteps(const Model& model, const std::vector<FindStep>& steps, const Grey& plane,
                const AfterStep& afterStep) {
    Places places;
    const std::vector<uint8_t> patches = PatchesOf(plane, steps.front().inChannels == 64 ? 8 : 4);
    places[kA].assign(patches.begin(), patches.end());
    int number = 0;
    for (const FindStep& step : steps) {
        if (step.src == kParts) {
            places[kParts] = places.at(kPart8);
            places[kParts].insert(places[kParts].end(), places.at(kPart16).begin(),
                                  places.at(kPart16).end());
        }
        RunStep(model, step, plane.width, plane.height, &places);
        const std::vector<int8_t>& dst = places.at(step.dst);
        afterStep(number++, dst.data(), dst.size());
    }
    return places;
}

} // namespace

FindAnswers RunFind(const Model& model, const Grey& plane, const AfterStep& afterStep) {
    const Places places = RunSteps(model, FindSteps(), plane, afterStep);
    return {places.at(kAnswer8), places.at(kAnswer16)};
}

LookAnswersPlain RunLook(LookKind kind, const Model& model, const Grey& look,
                         const AfterStep& afterStep) {
    const Places places = RunSteps(model, LookSteps(kind), look, afterStep);
    return {places.at(kHeat), places.at(kRest)};
}

} // namespace orvo_reference
