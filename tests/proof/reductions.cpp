// SPDX-License-Identifier: MIT
#include <algorithm>
#include <string>
#include <vector>

#include "orvo/q7_kernels.h"
#include "proof/families.h"
#include "proof/network_shapes.h"
#include "proof/regimes.h"
#include "reference/reference_small.h"

namespace orvo_proof {
namespace {

std::vector<int8_t> Filled(Regime regime, uint64_t seed, size_t count) {
    std::vector<int8_t> values(count);
    Fill(regime, seed, values);
    return values;
}

int32_t Dot(const int8_t* a, const int8_t* b, uint32_t count) {
    uint32_t sum = 0;
    for (uint32_t i = 0; i < count; ++i) {
        sum += static_cast<uint32_t>(a[i] * b[i]);
    }
    return static_cast<int32_t>(sum);
}

void Compare(Family& family, const Vectors& v, Regime regime, uint64_t seed) {
    const size_t planes = v.global ? v.outputs : 1;
    const std::vector<int8_t> src = Filled(regime, seed, planes * v.inputs);
    const std::vector<int8_t> weights =
        Filled(seed % 2 == 0 ? regime : Regime::kUniform, seed + 1, size_t{v.outputs} * v.inputs);
    std::vector<int32_t> bias(v.outputs);
    for (uint32_t o = 0; o < v.outputs; ++o) {
        const int8_t* of = src.data() + (v.global ? size_t{o} * v.inputs : 0);
        const int32_t sum = Dot(of, weights.data() + size_t{o} * v.inputs, v.inputs);
        const Regime edge = regime == Regime::kWrap ? Regime::kWrap : Regime::kEdges;
        bias[o] = o % 3 == 0 ? 0 : BiasToEdge(edge, sum, v.shift, seed + o);
    }
    const auto shift = static_cast<uint16_t>(v.shift);
    std::vector<int8_t> expected(v.outputs);
    if (v.global) {
        orvo_reference::GlobalConvolution(src.data(), v.inputs, 1, v.outputs, weights.data(),
                                          bias.data(), shift, expected.data());
    } else {
        orvo_reference::FullyConnected(src.data(), weights.data(), v.inputs, v.outputs, shift,
                                       bias.data(), expected.data());
    }
    family.Compare(
        AsBytes(expected),
        [&](uint8_t* bytes) {
            auto* dst = reinterpret_cast<int8_t*>(bytes);
            if (v.global) {
                ArmAConvolveGlobalChwQ7(src.data(), v.inputs, 1, v.outputs, weights.data(),
                                        bias.data(), shift, dst, nullptr);
            } else {
                ArmAFcQ7(src.data(), weights.data(), v.inputs, v.outputs, shift, bias.data(), dst,
                         nullptr);
            }
        },
        [&] {
            return std::to_string(v.inputs) + " inputs, shift " + std::to_string(v.shift) +
                   ", values " + Name(regime) + ", seed " + std::to_string(seed);
        });
}

uint64_t ProveNetworkVectors(const Plan& plan) {
    Family family("the networks' reductions to vectors", plan);
    for (uint64_t seed = 0; seed < plan.seeds; ++seed) {
        for (const Vectors& vectors : NetworkVectors()) {
            for (const Regime regime : kRegimes) {
                if (family.Takes()) {
                    Compare(family, vectors, regime, seed);
                }
            }
        }
    }
    return family.Report();
}

uint64_t ProveVectorLengths(const Plan& plan) {
    Family family("reductions of 1-300 inputs", plan);
    for (const bool global : {false, true}) {
        for (uint32_t inputs = 1; inputs <= 300; ++inputs) {
            for (const uint32_t outputs : {1u, 2u, 3u, 4u, 5u, 9u}) {
                for (const uint32_t shift : {0u, 7u, 11u, 31u}) {
                    for (const Regime regime : kRegimes) {
                        if (family.Takes()) {
                            Compare(family, {global, inputs, outputs, shift}, regime,
                                    inputs + outputs);
                        }
                    }
                }
            }
        }
    }
    return family.Report();
}

// Planes of one value, for all values: where the mean's halves lie.
uint64_t ProveAverages(const Plan& plan) {
    Family family("averages, each value x 1-12 x 1-12 x 0-8", plan);
    std::vector<int8_t> src;
    std::vector<int8_t> expected(256);
    for (uint32_t width = 1; width <= 12; ++width) {
        for (uint32_t height = 1; height <= 12; ++height) {
            const size_t plane = size_t{width} * height;
            src.resize(256 * plane);
            for (size_t i = 0; i < src.size(); ++i) {
                // Half of each plane is one more, as far as there is one more.
                const auto value = static_cast<int8_t>(static_cast<int>(i / plane) - 128);
                src[i] = static_cast<int8_t>(value + (i % 2 != 0 && value != 127 ? 1 : 0));
            }
            for (uint16_t shift = 0; shift <= 8; ++shift) {
                if (!family.Takes()) {
                    continue;
                }
                orvo_reference::GlobalAverage(src.data(), width, height, 256, shift,
                                              expected.data());
                family.Compare(
                    AsBytes(expected),
                    [&](uint8_t* dst) {
                        ArmAGapQ7Chw(src.data(), width, height, 256, shift, nullptr,
                                     reinterpret_cast<int8_t*>(dst));
                    },
                    [&] {
                        return std::to_string(width) + " x " + std::to_string(height) + ", shift " +
                               std::to_string(shift);
                    });
            }
        }
    }
    return family.Report();
}

uint64_t ProveUnitLength(const Plan& plan) {
    Family family("vectors of 1-130 values to unit length", plan);
    for (int32_t count = 1; count <= 130; ++count) {
        for (const Regime regime : kRegimes) {
            // Of zeros there is a not-a-number, whose bits are the machine's.
            if (regime == Regime::kZero || !family.Takes()) {
                continue;
            }
            const std::vector<int8_t> src =
                Filled(regime, static_cast<uint64_t>(count), static_cast<size_t>(count));
            std::vector<float> expected(src.size());
            orvo_reference::UnitLength(src.data(), count, expected.data());
            std::vector<float> dst(src.size());
            family.Compare(
                AsBytes(expected),
                [&](uint8_t* bytes) {
                    ArmAL2Norm(src.data(), count, dst.data());
                    const auto written = AsBytes(dst);
                    std::copy(written.begin(), written.end(), bytes);
                },
                [&] { return std::to_string(count) + " values " + Name(regime); });
        }
    }
    return family.Report();
}

} // namespace

uint64_t ProveReductions(const Plan& plan) {
    return ProveNetworkVectors(plan) + ProveVectorLengths(plan) + ProveAverages(plan) +
           ProveUnitLength(plan);
}

} // namespace orvo_proof
