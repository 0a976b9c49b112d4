// SPDX-License-Identifier: MIT
//
// These take one value or two, so that all there are can be gone through.
#include <algorithm>
#include <string>
#include <vector>

#include "orvo/q7_kernels.h"
#include "proof/families.h"
#include "proof/network_shapes.h"
#include "reference/reference_small.h"

namespace orvo_proof {
namespace {

constexpr uint32_t kPairs = 65536;

// All values, over and over, from the one that `first` says on.
std::vector<int8_t> AllValues(size_t count, size_t first) {
    std::vector<int8_t> values(count);
    for (size_t i = 0; i < count; ++i) {
        values[i] = static_cast<int8_t>(static_cast<uint8_t>(first + i));
    }
    return values;
}

// Lengths with every tail, and starts that bring each value to each place of a vector of up to 64.
template <typename Function>
void ForAllLengthsAndStarts(Family& family, const Function& compare) {
    for (uint32_t count = 256; count < 256 + 130; ++count) {
        for (size_t start = 0; start < 64; ++start) {
            if (family.Takes()) {
                compare(count, start);
            }
        }
    }
}

std::string Describe(uint32_t count, size_t start) {
    return std::to_string(count) + " values from " + std::to_string(start) + " on";
}

uint64_t ProveRectifier(const Plan& plan) {
    Family family("the rectifier, all values in all places", plan);
    ForAllLengthsAndStarts(family, [&](uint32_t count, size_t start) {
        const std::vector<int8_t> src = AllValues(count, start);
        std::vector<int8_t> expected(count);
        orvo_reference::Rectify(src.data(), expected.data(), count);
        family.Compare(
            AsBytes(expected),
            [&](uint8_t* bytes) {
                auto* dst = reinterpret_cast<int8_t*>(bytes);
                if (start % 2 == 0) {
                    ArmAReluChwQ7(src.data(), dst, count);
                    return;
                }
                std::copy(src.begin(), src.end(), dst);
                ArmAReluChwQ7(dst, dst, count);
            },
            [&] { return Describe(count, start); });
    });
    return family.Report();
}

uint64_t ProveSignFlip(const Plan& plan) {
    Family family("the sign flip, all values in all places", plan);
    ForAllLengthsAndStarts(family, [&](uint32_t count, size_t start) {
        const std::vector<int8_t> values = AllValues(count, start);
        std::vector<uint8_t> expected(values.begin(), values.end());
        orvo_reference::GreyToQ7(expected.data(), count);
        family.Compare(
            AsBytes(expected),
            [&](uint8_t* data) {
                std::copy(values.begin(), values.end(), data);
                ArmAXorQ7(data, static_cast<int32_t>(count));
            },
            [&] { return Describe(count, start); });
    });
    return family.Report();
}

struct Operands {
    std::vector<int8_t> in1, in2;
    uint32_t width, height, outChannels, in2Channels;
};

// A plane of all pairs, and one of all values without a shortcut.
Operands AllPairs() {
    Operands operands = {
        std::vector<int8_t>(2 * size_t{kPairs}), std::vector<int8_t>(kPairs), 256, 256, 2, 1};
    for (uint32_t i = 0; i < 2 * kPairs; ++i) {
        operands.in1[i] = static_cast<int8_t>(static_cast<uint8_t>(i >> 8));
    }
    for (uint32_t i = 0; i < kPairs; ++i) {
        operands.in2[i] = static_cast<int8_t>(static_cast<uint8_t>(i));
    }
    return operands;
}

void CompareSum(Family& family, const Operands& o, const Shifts& shifts) {
    std::vector<int8_t> expected(o.in1.size());
    orvo_reference::ZeroPadPlus(o.in1.data(), o.in2.data(), expected.data(), shifts.in1, shifts.in2,
                                shifts.out, o.height, o.width, o.outChannels, o.in2Channels);
    const auto narrow = [](uint32_t value) { return static_cast<uint16_t>(value); };
    family.Compare(
        AsBytes(expected),
        [&](uint8_t* dst) {
            ArmAZpadPlusChwQ7(o.in1.data(), o.in2.data(), reinterpret_cast<int8_t*>(dst),
                              shifts.in1, shifts.in2, shifts.out, narrow(o.height), narrow(o.width),
                              narrow(o.outChannels), narrow(o.in2Channels), nullptr);
        },
        [&] {
            return "shifts " + std::to_string(shifts.in1) + ", " + std::to_string(shifts.in2) +
                   ", " + std::to_string(shifts.out);
        });
}

// None is left out of a part: it is what each face is made by.
uint64_t ProveNetworkSums(const Plan& plan) {
    Plan all = plan;
    all.every = 1;
    Family family("sums of all pairs, the networks' shifts", all);
    const Operands operands = AllPairs();
    for (const Shifts& shifts : NetworkShifts()) {
        CompareSum(family, operands, shifts);
    }
    return family.Report();
}

uint64_t ProveAllSums(const Plan& plan) {
    Family family("sums of all pairs, shifts 0-8, 0-8, 0-17", plan);
    const Operands operands = AllPairs();
    for (uint16_t in1 = 0; in1 <= 8; ++in1) {
        for (uint16_t in2 = 0; in2 <= 8; ++in2) {
            for (uint16_t out = 0; out <= 17; ++out) {
                if (family.Takes()) {
                    CompareSum(family, operands, {in1, in2, out});
                }
            }
        }
    }
    return family.Report();
}

// Planes of all lengths up to 300, so that blocks and what is left of them meet all kinds of values.
uint64_t ProveSumLengths(const Plan& plan) {
    Family family("sums of planes of 1-300 values", plan);
    for (uint32_t count = 1; count <= 300; ++count) {
        for (const Shifts& shifts : NetworkShifts()) {
            if (family.Takes()) {
                CompareSum(family,
                           {AllValues(3 * size_t{count}, count), AllValues(2 * size_t{count}, 77),
                            count, 1, 3, 2},
                           shifts);
            }
        }
    }
    return family.Report();
}

uint64_t ProveRescale(const Plan& plan) {
    Family family("rescaling of all values by -9 to 30", plan);
    for (int32_t shift = -9; shift <= 30; ++shift) {
        for (size_t start = 0; start < 64; ++start) {
            if (!family.Takes()) {
                continue;
            }
            const std::vector<int8_t> values = AllValues(256 + start, start);
            const auto count = static_cast<int32_t>(values.size());
            std::vector<int8_t> expected = values;
            orvo_reference::Rescale(expected.data(), count, shift);
            family.Compare(
                AsBytes(expected),
                [&](uint8_t* bytes) {
                    std::copy(values.begin(), values.end(), bytes);
                    ArmARescaleQ7(reinterpret_cast<int8_t*>(bytes), count, shift);
                },
                [&] { return "shift " + std::to_string(shift); });
        }
    }
    return family.Report();
}

} // namespace

uint64_t ProveElementwise(const Plan& plan) {
    return ProveRectifier(plan) + ProveSignFlip(plan) + ProveNetworkSums(plan) +
           ProveAllSums(plan) + ProveSumLengths(plan) + ProveRescale(plan);
}

} // namespace orvo_proof
