// SPDX-License-Identifier: MIT
#include "tools/seed_models/seeder.h"

#include <algorithm>
#include <cmath>

namespace orvo::seed {
namespace {

using pack::Layer;
using pack::LayerKind;

// The input channels and the kernel of one output channel.
struct Filter {
    int firstChannel;
    int channels;
    int kernel;
};

Filter FilterOf(const Layer& layer, int inputSize, int output) {
    switch (layer.kind) {
        case LayerKind::kConvolution:
            return {0, layer.in, 3};
        case LayerKind::kDepthwise:
            return {output, 1, 3};
        case LayerKind::kGlobal:
            return {output, 1, inputSize};
        case LayerKind::kPointwise:
        case LayerKind::kFullyConnected:
            break;
    }
    return {0, layer.in, 1};
}

// Adds one input plane, weighted and displaced, to a plane of sums; outside it is zero.
void AddShifted(const int8_t* in, int size, double weight, int dy, int dx, double* sums) {
    for (int y = std::max(0, -dy); y < std::min(size, size - dy); ++y) {
        for (int x = std::max(0, -dx); x < std::min(size, size - dx); ++x) {
            sums[y * size + x] += weight * in[(y + dy) * size + x + dx];
        }
    }
}

// The sums of products of a layer; whole numbers where the weights are, hence exact.
Sums Convolve(const Batch& in, const Layer& layer, const std::vector<double>& weights) {
    const bool global = layer.kind == LayerKind::kGlobal;
    Sums sums(in.pictures, layer.out, global ? 1 : in.size);
    const size_t perOutput = weights.size() / static_cast<size_t>(layer.out);
    for (int p = 0; p < in.pictures; ++p) {
        for (int o = 0; o < layer.out; ++o) {
            const Filter filter = FilterOf(layer, in.size, o);
            const double* w = weights.data() + perOutput * static_cast<size_t>(o);
            double* out = sums.Plane(p, o);
            for (int c = 0; c < filter.channels; ++c) {
                const int8_t* plane = in.Plane(p, filter.firstChannel + c);
                for (int k = 0; k < filter.kernel * filter.kernel; ++k, ++w) {
                    if (global) {
                        *out += *w * plane[k];
                    } else {
                        const int margin = filter.kernel / 2;
                        AddShifted(plane, in.size, *w, k / filter.kernel - margin,
                                   k % filter.kernel - margin, out);
                    }
                }
            }
        }
    }
    return sums;
}

struct Moments {
    double mean;
    double deviation;
};

Moments Measure(const Sums& sums, int channel) {
    double sum = 0;
    double squares = 0;
    for (int p = 0; p < sums.pictures; ++p) {
        const double* plane = sums.Plane(p, channel);
        for (size_t i = 0; i < sums.PlaneLength(); ++i) {
            sum += plane[i];
            squares += plane[i] * plane[i];
        }
    }
    const double count = static_cast<double>(sums.PlaneLength()) * sums.pictures;
    const double mean = sum / count;
    return {mean, std::sqrt(std::max(0.0, squares / count - mean * mean))};
}

// Scales each channel's weights to the wanted deviation, as far as 8 bits allow, and rounds them.
void Quantise(const Sums& sums, double deviation, std::vector<double>* weights) {
    const size_t perOutput = weights->size() / static_cast<size_t>(sums.channels);
    for (int o = 0; o < sums.channels; ++o) {
        const std::span w =
            std::span(*weights).subspan(perOutput * static_cast<size_t>(o), perOutput);
        double largest = 0;
        for (const double weight : w) {
            largest = std::max(largest, std::abs(weight));
        }
        const double limit = 127.0 / largest;
        const double measured = Measure(sums, o).deviation;
        const double scale = measured * limit > deviation ? deviation / measured : limit;
        for (double& weight : w) {
            weight = std::round(weight * scale);
        }
    }
}

} // namespace

// Small filters that only shift and mix would blur to nothing after many layers, and purely random
// ones average smooth pictures away: a filter is a strong centre (or, in the first layer, an
// overall weight) with random deviations.
std::vector<double> Seeder::DrawWeights(const Layer& layer) {
    size_t count = 1;
    for (const int64_t extent : pack::WeightShape(layer)) {
        count *= static_cast<size_t>(extent);
    }
    std::vector<double> weights(count);
    for (double& weight : weights) {
        weight = random_.Normal();
    }
    if (layer.kind == LayerKind::kDepthwise) {
        for (size_t i = 4; i < count; i += 9) {
            weights[i] += 4.0;
        }
    } else if (layer.kind == LayerKind::kConvolution) {
        const size_t perOutput = count / static_cast<size_t>(layer.out);
        double overall = 0;
        for (size_t i = 0; i < count; ++i) {
            overall = i % perOutput == 0 ? 0.7 * random_.Normal() : overall;
            weights[i] += overall;
        }
    }
    return weights;
}

Batch Seeder::Run(const Batch& in, int number, int shift, double spread,
                  std::span<const double> centres) {
    const Layer& layer = *std::find_if(layers_.begin(), layers_.end(),
                                       [&](const Layer& l) { return l.number == number; });
    const double unit = static_cast<double>(1 << shift);
    std::vector<double> weights = DrawWeights(layer);
    Quantise(Convolve(in, layer, weights), spread * unit, &weights);

    const Sums sums = Convolve(in, layer, weights);
    pack::LayerParameters& parameters = parameters_[number];
    parameters.weights.assign(weights.begin(), weights.end());
    Batch out(in.pictures, layer.out, sums.size);
    for (int o = 0; o < layer.out; ++o) {
        const double centre = centres.empty() ? 0.0 : centres[static_cast<size_t>(o)];
        const double bias = std::round(centre * unit - Measure(sums, o).mean + unit / 2);
        parameters.biases.push_back(static_cast<int32_t>(bias));
        for (int p = 0; p < in.pictures; ++p) {
            for (size_t i = 0; i < sums.PlaneLength(); ++i) {
                const auto sum = static_cast<int32_t>(sums.Plane(p, o)[i] + bias);
                out.Plane(p, o)[i] = Saturate(sum >> shift);
            }
        }
    }
    return out;
}

} // namespace orvo::seed
