// SPDX-License-Identifier: MIT
//
// Weights in natural order, sums in the order of the formula, borders by a test of the position.
// The arithmetic is the kernels': wrapping 32-bit sums, a shift without rounding, saturation.
#include "bench/naive_layers.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <memory>
#include <random>
#include <stdexcept>
#include <vector>

namespace orvo_bench {
namespace {

constexpr size_t kSlotBytes = 32 * 96 * 96; // the largest activation tensor
constexpr int kShift = 7;

using Bytes = std::vector<int8_t>;

Bytes RandomBytes(size_t count) {
    static std::minstd_rand generator(2);
    Bytes bytes(count);
    for (int8_t& byte : bytes) {
        byte = static_cast<int8_t>(generator() >> 8);
    }
    return bytes;
}

struct Slots {
    Bytes src = RandomBytes(kSlotBytes);
    Bytes shortcut = RandomBytes(kSlotBytes);
    Bytes dst = Bytes(kSlotBytes);
    std::vector<float> floats = std::vector<float>(256);
};

Slots& TheSlots() {
    static Slots slots;
    return slots;
}

int8_t Saturate(int32_t value) { return static_cast<int8_t>(std::min(std::max(value, -128), 127)); }

struct Filters {
    Bytes weights; // output channel, input channel, row, column
    std::vector<int32_t> bias;
    int lowest;

    int8_t Finish(uint32_t sum, int channel) const {
        const auto biased = static_cast<int32_t>(sum + static_cast<uint32_t>(bias[channel]));
        return std::max(Saturate(biased >> kShift), static_cast<int8_t>(lowest));
    }
};

uint32_t Product(int8_t a, int8_t b) { return static_cast<uint32_t>(a * b); }

void Convolve(const Layer& l, const Filters& f, const int8_t* src, int8_t* dst) {
    for (int o = 0; o < l.outChannels; ++o) {
        for (int y = 0; y < l.size; ++y) {
            for (int x = 0; x < l.size; ++x) {
                uint32_t sum = 0;
                for (int c = 0; c < l.channels; ++c) {
                    for (int ky = 0; ky < 3; ++ky) {
                        for (int kx = 0; kx < 3; ++kx) {
                            const int iy = y + ky - 1;
                            const int ix = x + kx - 1;
                            if (iy >= 0 && iy < l.size && ix >= 0 && ix < l.size) {
                                sum += Product(src[(c * l.size + iy) * l.size + ix],
                                               f.weights[((o * l.channels + c) * 3 + ky) * 3 + kx]);
                            }
                        }
                    }
                }
                dst[(o * l.size + y) * l.size + x] = f.Finish(sum, o);
            }
        }
    }
}

void ConvolvePointwise(const Layer& l, const Filters& f, const int8_t* src, int8_t* dst) {
    const int pixels = l.size * l.size;
    for (int o = 0; o < l.outChannels; ++o) {
        for (int i = 0; i < pixels; ++i) {
            uint32_t sum = 0;
            for (int c = 0; c < l.channels; ++c) {
                sum += Product(src[c * pixels + i], f.weights[o * l.channels + c]);
            }
            dst[o * pixels + i] = f.Finish(sum, o);
        }
    }
}

void ConvolveDepthwise(const Layer& l, const Filters& f, const int8_t* src, int8_t* dst) {
    for (int c = 0; c < l.channels; ++c) {
        for (int y = 0; y < l.size; ++y) {
            for (int x = 0; x < l.size; ++x) {
                uint32_t sum = 0;
                for (int ky = 0; ky < 3; ++ky) {
                    for (int kx = 0; kx < 3; ++kx) {
                        const int iy = y + ky - 1;
                        const int ix = x + kx - 1;
                        if (iy >= 0 && iy < l.size && ix >= 0 && ix < l.size) {
                            sum += Product(src[(c * l.size + iy) * l.size + ix],
                                           f.weights[(c * 3 + ky) * 3 + kx]);
                        }
                    }
                }
                dst[(c * l.size + y) * l.size + x] = f.Finish(sum, c);
            }
        }
    }
}

void MaxPool(const Layer& l, int stride, const int8_t* src, int8_t* dst) {
    const int outSize = OutSize(l);
    for (int c = 0; c < l.channels; ++c) {
        for (int y = 0; y < outSize; ++y) {
            for (int x = 0; x < outSize; ++x) {
                const int8_t* at = src + (c * l.size + stride * y) * l.size + stride * x;
                *dst++ = std::max(std::max(at[0], at[1]), std::max(at[l.size], at[l.size + 1]));
            }
        }
    }
}

void Sample(const Layer& l, const int8_t* src, int8_t* dst) {
    const int outSize = OutSize(l);
    for (int c = 0; c < l.channels; ++c) {
        for (int y = 0; y < outSize; ++y) {
            for (int x = 0; x < outSize; ++x) {
                *dst++ = src[(c * l.size + 2 * y) * l.size + 2 * x];
            }
        }
    }
}

void Rectify(const Layer& l, int8_t* values) {
    for (int i = 0; i < l.channels * l.size * l.size; ++i) {
        values[i] = std::max<int8_t>(values[i], 0);
    }
}

void Add(const Layer& l, const int8_t* in1, const int8_t* in2, int8_t* dst) {
    const int shared = l.channels * l.size * l.size;
    for (int i = 0; i < l.outChannels * l.size * l.size; ++i) {
        const int shortcut = i < shared ? in2[i] : 0;
        dst[i] = Saturate((in1[i] * 2 + shortcut + 1) >> 1);
    }
}

void Average(const Layer& l, const int8_t* src, int8_t* dst) {
    const int pixels = l.size * l.size;
    for (int c = 0; c < l.channels; ++c) {
        int32_t sum = 0;
        for (int i = 0; i < pixels; ++i) {
            sum += src[c * pixels + i];
        }
        dst[c] = Saturate(sum * 8 / pixels);
    }
}

void ConvolveGlobal(const Layer& l, const Filters& f, const int8_t* src, int8_t* dst) {
    const int pixels = l.size * l.size;
    for (int c = 0; c < l.channels; ++c) {
        uint32_t sum = 0;
        for (int i = 0; i < pixels; ++i) {
            sum += Product(src[c * pixels + i], f.weights[c * pixels + i]);
        }
        dst[c] = f.Finish(sum, c);
    }
}

void ConnectFully(const Layer& l, const Filters& f, const int8_t* src, int8_t* dst) {
    for (int o = 0; o < l.outChannels; ++o) {
        uint32_t sum = 0;
        for (int c = 0; c < l.channels; ++c) {
            sum += Product(src[c], f.weights[o * l.channels + c]);
        }
        dst[o] = f.Finish(sum, o);
    }
}

void Normalise(const Layer& l, const int8_t* src, float* dst) {
    float squares = 0;
    for (int i = 0; i < l.channels; ++i) {
        squares += static_cast<float>(src[i] * src[i]);
    }
    for (int i = 0; i < l.channels; ++i) {
        dst[i] = static_cast<float>(src[i]) / std::sqrt(squares);
    }
}

using Convolution = decltype(&Convolve);

Step ConvolutionStep(Convolution kernel, const Layer& layer, size_t weights, int lowest = -128) {
    auto filters = std::make_shared<Filters>();
    filters->weights = RandomBytes(weights);
    filters->bias.assign(static_cast<size_t>(layer.outChannels), 100);
    filters->lowest = lowest;
    return [=] { kernel(layer, *filters, TheSlots().src.data(), TheSlots().dst.data()); };
}

} // namespace

Step NaiveStep(const Layer& layer) {
    const size_t in = static_cast<size_t>(layer.channels);
    const size_t out = static_cast<size_t>(layer.outChannels);
    const size_t pixels = static_cast<size_t>(layer.size) * static_cast<size_t>(layer.size);
    Slots& s = TheSlots();
    switch (layer.kind) {
        case LayerKind::kConvolution:
            return ConvolutionStep(Convolve, layer, 9 * in * out);
        case LayerKind::kPointwise:
            return ConvolutionStep(ConvolvePointwise, layer, in * out);
        case LayerKind::kDepthwise:
            return ConvolutionStep(ConvolveDepthwise, layer, 9 * in);
        case LayerKind::kDepthwiseRelu:
            return ConvolutionStep(ConvolveDepthwise, layer, 9 * in, 0);
        case LayerKind::kMaxPool1:
            return [=, &s] { MaxPool(layer, 1, s.src.data(), s.dst.data()); };
        case LayerKind::kMaxPool2:
            return [=, &s] { MaxPool(layer, 2, s.src.data(), s.dst.data()); };
        case LayerKind::kSample:
            return [=, &s] { Sample(layer, s.src.data(), s.dst.data()); };
        case LayerKind::kRectify:
            return [=, &s] { Rectify(layer, s.dst.data()); };
        case LayerKind::kAdd:
            return [=, &s] { Add(layer, s.src.data(), s.shortcut.data(), s.dst.data()); };
        case LayerKind::kAverage:
            return [=, &s] { Average(layer, s.src.data(), s.dst.data()); };
        case LayerKind::kGlobal:
            return ConvolutionStep(ConvolveGlobal, layer, in * pixels);
        case LayerKind::kFullyConnected:
            return ConvolutionStep(ConnectFully, layer, in * out);
        case LayerKind::kNormalise:
            return [=, &s] { Normalise(layer, s.src.data(), s.floats.data()); };
    }
    throw std::invalid_argument("no such layer");
}

} // namespace orvo_bench
