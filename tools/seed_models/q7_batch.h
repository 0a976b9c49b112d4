// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

// The networks' arithmetic on a batch of Q7 tensors, written plainly for clarity. The library's
// kernels, not these, are what the product runs; these only let the seeding measure activations.
namespace orvo::seed {

// Square planes in the order picture, channel, row, column.
template <typename T>
struct BatchOf {
    int pictures;
    int channels;
    int size;
    std::vector<T> values;

    BatchOf(int pictureCount, int channelCount, int planeSize)
        : pictures(pictureCount),
          channels(channelCount),
          size(planeSize),
          values(static_cast<size_t>(pictureCount) * channelCount * planeSize * planeSize) {}

    size_t PlaneLength() const { return static_cast<size_t>(size) * size; }
    T* Plane(int picture, int channel) {
        return values.data() + (static_cast<size_t>(picture) * channels + channel) * PlaneLength();
    }
    const T* Plane(int picture, int channel) const {
        return values.data() + (static_cast<size_t>(picture) * channels + channel) * PlaneLength();
    }
};

using Batch = BatchOf<int8_t>;
using Sums = BatchOf<double>;

int8_t Saturate(int32_t value);

void Rectify(Batch* batch);
Batch MaxPoolStride1(const Batch& in);
Batch MaxPoolStride2(const Batch& in);
Batch TakeEverySecond(const Batch& in);
Batch AveragePool(const Batch& in, int shift);

// ((a << aShift) + (b << bShift)) >> outShift, rounded; b may have fewer channels.
Batch Add(const Batch& a, const Batch& b, int aShift, int bShift, int outShift);

} // namespace orvo::seed
