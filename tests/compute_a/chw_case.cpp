// SPDX-License-Identifier: MIT
#include "compute_a/chw_case.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <set>
#include <string>

#include "support/random.h"

namespace orvo_test {
namespace {

using orvo_reference::DstBytes;

// Read-only bytes at a distance from the start of their guarded memory.
class Input {
  public:
    Input(const void* data, size_t size, GuardedBuffer::Place place, size_t offset)
        : buffer_(size + offset, place), offset_(offset) {
        if (size != 0) {
            std::memcpy(buffer_.bytes() + offset, data, size);
        }
        buffer_.MakeReadOnly();
    }
    template <typename T>
    const T* as() {
        return reinterpret_cast<const T*>(buffer_.bytes() + offset_);
    }

  private:
    GuardedBuffer buffer_;
    size_t offset_;
};

::testing::AssertionResult Same(const std::vector<int8_t>& expected,
                                const std::vector<int8_t>& actual) {
    if (expected.size() != actual.size()) {
        return ::testing::AssertionFailure() << "sizes differ";
    }
    const auto [e, a] = std::mismatch(expected.begin(), expected.end(), actual.begin());
    if (e == expected.end()) {
        return ::testing::AssertionSuccess();
    }
    return ::testing::AssertionFailure()
           << "byte " << e - expected.begin() << " of " << expected.size() << " is " << int{*a}
           << ", expected " << int{*e};
}

std::string Describe(const ConvShape& s) {
    return "src " + std::to_string(s.srcChannels) + "x" + std::to_string(s.srcHeight) + "x" +
           std::to_string(s.srcWidth) + " dst " + std::to_string(s.dstChannels) + "x" +
           std::to_string(s.dstHeight) + "x" + std::to_string(s.dstWidth) + " kernel " +
           std::to_string(s.kernelSize) + " pad " + std::to_string(s.pad) + " stride " +
           std::to_string(s.stride) + " shift " + std::to_string(s.outShift);
}

} // namespace

bool IsLively(const std::vector<int8_t>& values) {
    const auto limits =
        std::count_if(values.begin(), values.end(), [](int8_t v) { return v == -128 || v == 127; });
    const std::set<int8_t> different(values.begin(), values.end());
    return 2 * static_cast<size_t>(limits) < values.size() && different.size() > 50;
}

std::vector<int8_t> RunGuarded(const ChwSubject& subject, const ConvShape& shape,
                               const ConvData& data, const Placement& at) {
    const std::vector<int8_t> packed = subject.packedWeights(shape, data.weights);
    Input src(data.src.data(), data.src.size(), at.place, at.srcOffset);
    Input weights(packed.data(), packed.size(), at.place, at.weightsOffset);
    Input bias(data.bias.data(), data.bias.size() * sizeof(int32_t), at.place, 0);
    GuardedBuffer dst(DstBytes(shape) + at.dstOffset, at.place);
    GuardedBuffer scratch(subject.scratchBytes(shape) + at.scratchOffset, at.place);
    Call(subject.kernel, shape, src.as<int8_t>(), weights.as<int8_t>(), bias.as<int32_t>(),
         dst.q7() + at.dstOffset, scratch.q7() + at.scratchOffset);
    for (size_t i = 0; i < at.dstOffset; ++i) {
        EXPECT_EQ(dst.bytes()[i], 0xA5) << "written before dst";
    }
    for (size_t i = 0; i < at.scratchOffset; ++i) {
        EXPECT_EQ(scratch.bytes()[i], 0xA5) << "written before tmpBuffer";
    }
    return {dst.q7() + at.dstOffset, dst.q7() + dst.size()};
}

::testing::AssertionResult MatchesReference(const ChwSubject& subject, const ConvShape& shape,
                                            const ConvData& data) {
    const std::vector<int8_t> expected = subject.reference(shape, data);
    for (const GuardedBuffer::Place place : {GuardedBuffer::kAtEnd, GuardedBuffer::kAtStart}) {
        Placement placement;
        placement.place = place;
        const auto same = Same(expected, RunGuarded(subject, shape, data, placement));
        if (!same) {
            return ::testing::AssertionFailure() << Describe(shape) << ": " << same.message();
        }
    }
    return ::testing::AssertionSuccess();
}

void CheckLayers(const ChwSubject& subject, LayerKernel kernel, std::span<const Layer> layers) {
    int checked = 0;
    for (const Layer& layer : layers) {
        if (layer.kernel != kernel) {
            continue;
        }
        SCOPED_TRACE("layer " + std::to_string(layer.number));
        const ConvShape shape = ShapeOf(layer);
        const uint64_t seed = static_cast<uint64_t>(layer.number);
        const ConvData lively = LivelyData(subject, shape, seed);
        EXPECT_TRUE(IsLively(subject.reference(shape, lively)));
        EXPECT_TRUE(MatchesReference(subject, shape, lively));
        EXPECT_TRUE(MatchesReference(subject, shape, ExtremeData(subject, shape, seed)));
        ++checked;
    }
    EXPECT_GT(checked, 0);
}

void CheckEveryShift(const ChwSubject& subject, ConvShape shape) {
    std::vector<uint32_t> shifts = {32, 33, 40, 63, 64, 255, 256, 65535};
    for (uint32_t shift = 0; shift < 32; ++shift) {
        shifts.push_back(shift);
    }
    for (const uint32_t shift : shifts) {
        shape.outShift = shift;
        ConvData data = LivelyData(subject, shape, shift);
        EXPECT_TRUE(MatchesReference(subject, shape, data));
        // Biases of the size that this shift leaves something of.
        Random random(shift);
        for (int32_t& b : data.bias) {
            const int32_t bound = shift >= 24 ? INT32_MAX : (1 << (shift + 7)) - 1;
            b = random.Between(-bound - 1, bound);
        }
        EXPECT_TRUE(MatchesReference(subject, shape, data));
    }
}

void CheckUniformExtremes(const ChwSubject& subject, ConvShape shape) {
    for (const uint32_t shift : {0u, 8u, 14u, 18u, 31u}) {
        shape.outShift = shift;
        for (const int8_t input : {int8_t{-128}, int8_t{127}}) {
            for (const int8_t weight : {int8_t{-128}, int8_t{127}}) {
                for (const int32_t bias : {0, INT32_MAX, INT32_MIN}) {
                    EXPECT_TRUE(MatchesReference(subject, shape,
                                                 UniformData(subject, shape, input, weight, bias)));
                }
            }
        }
    }
}

void CheckBiasWraps(const ChwSubject& subject, ConvShape shape) {
    const auto all = [](const std::vector<int8_t>& values, int expected) {
        return !values.empty() && std::all_of(values.begin(), values.end(),
                                              [expected](int8_t v) { return v == expected; });
    };
    // Beyond the largest sum follows the smallest one, and the other way round; the sums themselves
    // are small enough to leave the upper eight bits alone.
    shape.outShift = 24;
    const ConvData up = UniformData(subject, shape, 127, 127, INT32_MAX);
    const ConvData down = UniformData(subject, shape, 127, -128, INT32_MIN);
    const bool rectified = subject.kernel == kDepthwiseReluConv.kernel;
    EXPECT_TRUE(all(RunGuarded(subject, shape, up, {}), rectified ? 0 : -128));
    EXPECT_TRUE(all(RunGuarded(subject, shape, down, {}), 127));
    shape.outShift = 0;
    EXPECT_TRUE(all(RunGuarded(subject, shape, up, {}), rectified ? 0 : -128));
    EXPECT_TRUE(all(RunGuarded(subject, shape, down, {}), 127));
}

void CheckOddAddresses(const ChwSubject& subject, const ConvShape& shape) {
    const ConvData data = LivelyData(subject, shape, 1);
    const std::vector<int8_t> expected = subject.reference(shape, data);
    for (const GuardedBuffer::Place place : {GuardedBuffer::kAtEnd, GuardedBuffer::kAtStart}) {
        for (size_t offset = 1; offset < 16; offset += 2) {
            EXPECT_TRUE(Same(expected, RunGuarded(subject, shape, data,
                                                  {place, offset, 16 - offset, (offset + 4) % 16,
                                                   (offset + 10) % 16})));
        }
    }
}

} // namespace orvo_test
