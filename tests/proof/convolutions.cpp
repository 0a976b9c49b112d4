// SPDX-License-Identifier: MIT
#include <string>
#include <vector>

#include "proof/families.h"
#include "proof/network_shapes.h"
#include "proof/regimes.h"

namespace orvo_proof {
namespace {

using orvo_test::ChwSubject;
using orvo_test::ConvData;
using orvo_test::ConvShape;

// What stands in the scratch memory must not matter; it is what the path before left there.
std::vector<int8_t> scratch;

std::string Describe(const ConvShape& s, Regime regime, uint64_t seed) {
    return std::to_string(s.srcChannels) + " x " + std::to_string(s.srcHeight) + " x " +
           std::to_string(s.srcWidth) + " to " + std::to_string(s.dstChannels) +
           " channels, kernel " + std::to_string(s.kernelSize) + ", pad " + std::to_string(s.pad) +
           ", shift " + std::to_string(s.outShift) + ", values " + Name(regime) + ", seed " +
           std::to_string(seed);
}

void Compare(Family& family, const ChwSubject& subject, const ConvShape& shape, Regime regime,
             uint64_t seed) {
    const ConvData data = MakeData(subject, shape, regime, seed);
    const std::vector<int8_t> packed = subject.packedWeights(shape, data.weights);
    const std::vector<int8_t> expected = subject.reference(shape, data);
    if (scratch.size() < subject.scratchBytes(shape)) {
        scratch.resize(subject.scratchBytes(shape), 0x35);
    }
    family.Compare(
        AsBytes(expected),
        [&](uint8_t* dst) {
            orvo_test::Call(subject.kernel, shape, data.src.data(), packed.data(), data.bias.data(),
                            reinterpret_cast<int8_t*>(dst), scratch.data());
        },
        [&] { return Describe(shape, regime, seed); });
}

uint64_t ProveLayers(const char* name, const std::vector<NetworkConvolution>& layers,
                     const Plan& plan) {
    Family family(name, plan);
    for (uint64_t seed = 0; seed < plan.seeds; ++seed) {
        for (const NetworkConvolution& layer : layers) {
            for (const Regime regime : kRegimes) {
                if (family.Takes()) {
                    Compare(family, *layer.subject, layer.shape, regime, seed);
                }
            }
        }
    }
    return family.Report();
}

constexpr uint32_t kGridShifts[] = {0, 7, 11, 31};

void CompareRegimes(Family& family, const ChwSubject& subject, ConvShape shape) {
    for (const uint32_t shift : kGridShifts) {
        shape.outShift = shift;
        for (const Regime regime : kRegimes) {
            if (family.Takes()) {
                const auto seed = static_cast<uint64_t>(shape.dstChannels + 3 * shape.dstWidth +
                                                        7 * shape.srcChannels);
                Compare(family, subject, shape, regime, seed);
            }
        }
    }
}

// Dot products of 1 to 33 inputs, by either of the kernels that multiply matrices. A kernel of 3 x 3 makes
// its own of 9, 18 and 27.
uint64_t ProveProducts(const char* name, const ChwSubject& subject, const Plan& plan) {
    Family family(name, plan);
    ConvShape shape;
    shape.srcHeight = shape.dstHeight = 1;
    for (int channels = 1; channels <= 9; ++channels) {
        for (int pixels = 1; pixels <= 17; ++pixels) {
            for (int inner = 1; inner <= 33; ++inner) {
                shape.srcWidth = shape.dstWidth = pixels;
                shape.srcChannels = inner;
                shape.dstChannels = channels;
                CompareRegimes(family, subject, shape);
            }
        }
    }
    return family.Report();
}

ConvShape Padded3x3(int width, int height, int inputs, int outputs) {
    ConvShape shape;
    shape.srcWidth = shape.dstWidth = width;
    shape.srcHeight = shape.dstHeight = height;
    shape.srcChannels = inputs;
    shape.dstChannels = outputs;
    shape.kernelSize = 3;
    shape.pad = 1;
    return shape;
}

uint64_t Prove3x3(const Plan& plan) {
    Family family("3 x 3 convolutions of small planes", plan);
    for (int channels = 1; channels <= 9; ++channels) {
        for (int width = 1; width <= 17; ++width) {
            for (const int height : {1, 2, 3, 5}) {
                for (int inputs = 1; inputs <= 3; ++inputs) {
                    CompareRegimes(family, orvo_test::kGenericConv,
                                   Padded3x3(width, height, inputs, channels));
                }
            }
        }
    }
    return family.Report();
}

uint64_t ProveDepthwise(const char* name, const ChwSubject& subject, const Plan& plan) {
    Family family(name, plan);
    for (int channels = 1; channels <= 9; channels += 2) {
        for (int width = 1; width <= 33; ++width) {
            for (const int height : {1, 2, 3, 4, 5, 8, 17}) {
                CompareRegimes(family, subject, Padded3x3(width, height, channels, channels));
            }
        }
    }
    return family.Report();
}

} // namespace

uint64_t ProveConvolutions(const Plan& plan) {
    return ProveLayers("the recogniser's convolutions", RecogniserConvolutions(), plan) +
           ProveLayers("the finder's convolutions", FinderConvolutions(), plan) +
           ProveProducts("pointwise products, 1-9 x 1-17 x 1-33", orvo_test::kPointwiseConv, plan) +
           ProveProducts("generic products, 1-9 x 1-17 x 1-33", orvo_test::kGenericConv, plan) +
           Prove3x3(plan) +
           ProveDepthwise("depthwise convolutions of small planes", orvo_test::kDepthwiseConv,
                          plan) +
           ProveDepthwise("the same, rectified", orvo_test::kDepthwiseReluConv, plan);
}

} // namespace orvo_proof
