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

std::string Describe(const PlaneSize& size) {
    return std::to_string(size.channels) + " x " + std::to_string(size.height) + " x " +
           std::to_string(size.width);
}

// The pooled planes, and behind them what the pooling leaves in its source.
void CompareStride1(Family& family, const PlaneSize& s, const std::vector<int8_t>& src) {
    const size_t pooled = size_t{s.width - 1} * (s.height - 1) * s.channels;
    std::vector<int8_t> expected(pooled);
    orvo_reference::MaxPool2x2Stride1(src.data(), s.width, s.height, s.channels, expected.data());
    std::vector<int8_t> left = src;
    orvo_reference::RightNeighbourMaxima(left.data(), s.width, s.height * s.channels);
    expected.insert(expected.end(), left.begin(), left.end());
    family.Compare(
        AsBytes(expected),
        [&](uint8_t* bytes) {
            std::vector<int8_t> work = src;
            ArmAMaxpoolK2x2S1x1ChwQ7(work.data(), s.width, s.height, s.channels,
                                     reinterpret_cast<int8_t*>(bytes), nullptr);
            std::copy(work.begin(), work.end(), bytes + pooled);
        },
        [&] { return Describe(s); });
}

void CompareStride2(Family& family, const PlaneSize& s, const std::vector<int8_t>& src) {
    std::vector<int8_t> expected(size_t{s.width / 2} * (s.height / 2) * s.channels);
    orvo_reference::MaxPool2x2Stride2(src.data(), expected.data(), s.width, s.height, s.channels,
                                      0);
    family.Compare(
        AsBytes(expected),
        [&](uint8_t* dst) {
            ArmAMaxPool2x2S2ChwQ7(src.data(), reinterpret_cast<int8_t*>(dst), s.width, s.height,
                                  static_cast<uint16_t>(s.channels), 0, nullptr);
        },
        [&] { return Describe(s); });
}

void CompareSample(Family& family, const PlaneSize& s, const std::vector<int8_t>& src) {
    std::vector<int8_t> expected(size_t{(s.width + 1) / 2} * ((s.height + 1) / 2) * s.channels);
    orvo_reference::Downsample(src.data(), s.width, s.height, s.channels, expected.data());
    family.Compare(
        AsBytes(expected),
        [&](uint8_t* dst) {
            ArmADownsample(src.data(), s.width, static_cast<int32_t>(s.height), s.channels,
                           reinterpret_cast<int8_t*>(dst), nullptr);
        },
        [&] { return Describe(s); });
}

void Compare(Family& family, PoolingKind kind, const PlaneSize& size,
             const std::vector<int8_t>& src) {
    switch (kind) {
        case PoolingKind::kMaximumStride1:
            return CompareStride1(family, size, src);
        case PoolingKind::kMaximumStride2:
            return CompareStride2(family, size, src);
        case PoolingKind::kSample:
            return CompareSample(family, size, src);
    }
}

constexpr PoolingKind kKinds[] = {PoolingKind::kMaximumStride1, PoolingKind::kMaximumStride2,
                                  PoolingKind::kSample};

std::vector<int8_t> Filled(const PlaneSize& size, Regime regime, uint64_t seed) {
    std::vector<int8_t> src(size_t{size.width} * size.height * size.channels);
    Fill(regime, seed, src);
    return src;
}

uint64_t ProveNetworkPoolings(const Plan& plan) {
    Family family("the networks' poolings and samplings", plan);
    for (uint64_t seed = 0; seed < plan.seeds; ++seed) {
        for (const NetworkPooling& pooling : NetworkPoolings()) {
            // The regimes of the sums are uniform here.
            for (const Regime regime : {Regime::kUniform, Regime::kAllLowest, Regime::kAllHighest,
                                        Regime::kAlternating, Regime::kZero}) {
                if (family.Takes()) {
                    Compare(family, pooling.kind, pooling.size, Filled(pooling.size, regime, seed));
                }
            }
        }
    }
    return family.Report();
}

uint64_t ProvePoolingSizes(const Plan& plan) {
    Family family("poolings and samplings, 2-70 x 2-9 x 1-3", plan);
    for (uint32_t width = 2; width <= 70; ++width) {
        for (uint32_t height = 2; height <= 9; ++height) {
            for (uint32_t channels = 1; channels <= 3; ++channels) {
                for (const PoolingKind kind : kKinds) {
                    if (family.Takes()) {
                        const PlaneSize size = {width, height, channels};
                        Compare(family, kind, size, Filled(size, Regime::kUniform, width + height));
                    }
                }
            }
        }
    }
    return family.Report();
}

// Each four of these values, in each order.
uint64_t ProveQuadruples(const Plan& plan) {
    constexpr int8_t kValues[] = {-128, -127, -64, -1, 0, 1, 63, 126, 127};
    constexpr size_t kCount = std::size(kValues);
    constexpr size_t kAll = kCount * kCount * kCount * kCount;
    Family family("maxima of all fours of nine values", plan);
    const PlaneSize size = {2 * kAll, 2, 1};
    std::vector<int8_t> src(size_t{4} * kAll);
    for (size_t i = 0; i < kAll; ++i) {
        src[2 * i] = kValues[i % kCount];
        src[2 * i + 1] = kValues[i / kCount % kCount];
        src[2 * (kAll + i)] = kValues[i / (kCount * kCount) % kCount];
        src[2 * (kAll + i) + 1] = kValues[i / (kCount * kCount * kCount)];
    }
    for (const PoolingKind kind : kKinds) {
        Compare(family, kind, size, src);
    }
    return family.Report();
}

} // namespace

uint64_t ProvePooling(const Plan& plan) {
    return ProveNetworkPoolings(plan) + ProvePoolingSizes(plan) + ProveQuadruples(plan);
}

} // namespace orvo_proof
