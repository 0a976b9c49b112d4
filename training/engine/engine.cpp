// SPDX-License-Identifier: MIT
//
// Forward and backward pass of a network up to its head, for training on a processor
// with AVX-512. Called from __init__.py beside it.
#include <omp.h>
#include <sys/mman.h>

#include <cmath>
#include <cstring>
#include <memory>
#include <vector>

#include "halving.h"
#include "stem.h"

namespace engine {
namespace {

enum Kind : int32_t { kStem, kPooled, kDepthwise, kPointwise, kAdd, kFirst, kHalving, kPatches };

bool HasParameters(int32_t kind) { return kind != kAdd && kind != kHalving && kind != kPatches; }

} // namespace

// One layer, with the addresses of its parameters and gradients. The same record exists in Python.
struct Layer {
    int32_t kind, inputs, outputs, size; // size: of the output's side
    int32_t source, shortcut;            // numbers of the layers read
    int32_t rectified, shift;
    int32_t branchShift, shortcutShift; // of an addition
    float *weights, *gamma, *beta, *gain, *mean, *variance;
    float *weightsGradient, *gammaGradient, *betaGradient;
};

namespace {

constexpr float kMost = 127.0f / 128;
constexpr int kPatchDistance = 4; // pixels from one patch to the next
constexpr int kMostPatch = 64;    // pixels
constexpr double kEpsilon = 1e-5;

// Memory for the life of the process's engine.
template <typename T>
T* Allocate(size_t count) {
    const size_t bytes = (count * sizeof(T) + 4095) / 4096 * 4096;
    void* memory = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) {
        std::abort();
    }
    madvise(memory, bytes, MADV_HUGEPAGE);
    return static_cast<T*>(memory);
}

// Gradients live shortly, so few buffers serve them all and stay in the cache.
class Buffers {
  public:
    explicit Buffers(size_t length) : length_(length) {}

    uint16_t* Take() {
        if (free_.empty()) {
            free_.push_back(Allocate<uint16_t>(length_));
        }
        uint16_t* buffer = free_.back();
        free_.pop_back();
        return buffer;
    }
    void Give(uint16_t* buffer) { free_.push_back(buffer); }

  private:
    size_t length_;
    std::vector<uint16_t*> free_;
};

// What a thread works with.
struct Thread {
    alignas(64) Sums sums;
    DepthwiseGradient depthwise;
    PointwiseScratch pointwise;
    PointwiseGradient pointwiseGradient;
    Picture picture;
    RowScratch rows;
    PatchSums patches;
    float stem[kTaps * kMostChannels];
    double first[kMostChannels], second[kMostChannels];

    void Gather(int channels) {
        for (int c = 0; c < channels; ++c) {
            first[c] += sums.first[c];
            second[c] += sums.second[c];
        }
        sums = {};
    }
};

struct Node {
    Layer layer;
    Tensor out;
    PointwiseWeights pointwise;
    std::vector<float> depthwise; // [9][channels]
    std::vector<double> mean, inverse;
    PatchSums patches;
};

class Net {
  public:
    Net(int pictures, int threads, bool quantised, const Layer* layers, int count)
        : pictures_(pictures), quantised_(quantised), threads_(threads), buffers_(0) {
        size_t largest = 0;
        for (int i = 0; i < count; ++i) {
            nodes_.push_back(std::make_unique<Node>());
            Prepare(layers[i], nodes_.back().get());
            if (layers[i].kind != kStem) {
                largest = std::max(largest, nodes_.back()->out.Length());
            }
        }
        buffers_ = Buffers(largest * pictures);
        scratch_ = Allocate<Thread>(threads);
        for (int t = 0; t < threads; ++t) {
            scratch_[t].pointwiseGradient.tiles = Allocate<float>(kMostChannels * kMostChannels);
        }
    }

    // Layers that nothing else reads, and what they answer or its gradient.
    struct Ends {
        int count;
        const int32_t* layers;
    };

    void Forward(const float* input, bool training, float momentum, const Ends& ends,
                 float* const* outputs) {
        input_ = input;
        training_ = training;
        momentum_ = momentum;
        for (auto& node : nodes_) {
            Forward(node.get());
        }
        for (int i = 0; i < ends.count; ++i) {
            Export(nodes_[static_cast<size_t>(ends.layers[i])]->out, outputs[i]);
        }
    }

    void Backward(const Ends& ends, const float* const* gradients) {
        for (int i = 0; i < ends.count; ++i) {
            Import(gradients[i], &nodes_[static_cast<size_t>(ends.layers[i])]->out);
        }
        for (size_t i = nodes_.size(); i-- > 0;) {
            Backward(nodes_[i].get());
        }
    }

  private:
    void Prepare(const Layer& layer, Node* node) {
        node->layer = layer;
        Tensor& out = node->out;
        out.channels = layer.outputs;
        out.size = layer.size;
        if (layer.kind != kStem) {
            out.values = Allocate<uint16_t>(out.Length() * pictures_);
        }
        std::fill(std::begin(out.a), std::end(out.a), 1.0f);
        std::fill(std::begin(out.b), std::end(out.b), 0.0f);
        const float least = quantised_ ? -128.0f : -1.0f;
        out.high = quantised_ ? 127.0f : kMost;
        out.low = layer.rectified ? 0.0f : least;
        // The integer 0 stands for everything from 0 to 1, and 127 for all above it.
        out.passLow = quantised_ ? out.low - 0.5f + (layer.rectified ? 0.0f : 1.0f) : out.low;
        out.passHigh = quantised_ ? 126.5f : kMost;
        node->mean.resize(static_cast<size_t>(layer.outputs));
        node->inverse.resize(static_cast<size_t>(layer.outputs));
        if (layer.kind == kPointwise) {
            const size_t length = static_cast<size_t>(layer.inputs) * layer.outputs;
            node->pointwise = {layer.inputs, layer.outputs, Allocate<uint16_t>(length),
                               Allocate<uint16_t>(length)};
        } else if (HasParameters(layer.kind)) {
            node->depthwise.resize(static_cast<size_t>(9 * layer.outputs));
        }
    }

    Node& Source(const Node& node) { return *nodes_[static_cast<size_t>(node.layer.source)]; }

    size_t Pixels(const Tensor& t) const { return t.Pixels() * static_cast<size_t>(pictures_); }

    // Runs work(thread, task) for all tasks; a thread's tasks follow each other.
    template <typename Work>
    void ForEach(size_t tasks, Work work) {
#pragma omp parallel num_threads(threads_)
        {
            const auto me = static_cast<size_t>(omp_get_thread_num());
            const auto all = static_cast<size_t>(omp_get_num_threads());
            ConfigureTiles();
            for (size_t task = tasks * me / all; task < tasks * (me + 1) / all; ++task) {
                work(scratch_[me], task);
            }
            ReleaseTiles();
        }
    }

    void ClearSums() {
        for (int t = 0; t < threads_; ++t) {
            std::memset(scratch_[t].first, 0, sizeof scratch_[t].first);
            std::memset(scratch_[t].second, 0, sizeof scratch_[t].second);
        }
    }

    // The threads' sums, into the first thread's.
    void MergeSums(int channels) {
        for (int t = 1; t < threads_; ++t) {
            for (int c = 0; c < channels; ++c) {
                scratch_[0].first[c] += scratch_[t].first[c];
                scratch_[0].second[c] += scratch_[t].second[c];
            }
        }
    }

    Finish FinishOf(const Layer& layer) const {
        return {quantised_, std::ldexp(1.0f, -layer.shift), layer.beta};
    }

    void PackWeights(Node* node) {
        const Layer& layer = node->layer;
        if (layer.kind == kPointwise) {
            node->pointwise.Pack(layer.weights);
            return;
        }
        for (int c = 0; c < layer.outputs; ++c) {
            for (int k = 0; k < 9; ++k) {
                node->depthwise[static_cast<size_t>(k * layer.outputs + c)] =
                    layer.weights[9 * c + k];
            }
        }
    }

    void Forward(Node* node) {
        if (node->layer.kind == kAdd) {
            AddForward(node);
            return;
        }
        if (node->layer.kind == kHalving) {
            const Tensor& source = Source(*node).out;
            ForEach(static_cast<size_t>(pictures_),
                    [&](Thread&, size_t picture) { HalvingForward(source, picture, &node->out); });
            return;
        }
        if (node->layer.kind == kPatches) {
            PatchesForward(node);
            return;
        }
        PackWeights(node);
        ClearSums();
        switch (node->layer.kind) {
            case kStem:
                StemStatistics(node);
                break;
            case kFirst:
                FirstForward(node);
                break;
            case kPooled:
                PooledForward(node);
                break;
            case kDepthwise:
                DepthwiseForward(node);
                break;
            default:
                PointwiseForward(node);
        }
        if (!quantised_) {
            if (training_ && node->layer.kind != kStem) {
                Statistics(node);
            }
            Normalise(node);
        }
    }

    void StemStatistics(Node* node) {
        if (quantised_ || !training_) {
            return;
        }
        for (int t = 0; t < threads_; ++t) {
            scratch_[t].patches = {};
        }
        ForEach(static_cast<size_t>(pictures_), [&](Thread& thread, size_t picture) {
            thread.picture.Read(input_ + picture * kPlane * kPlane, kPlane);
            thread.patches.Add(thread.picture);
        });
        node->patches = {};
        for (int t = 0; t < threads_; ++t) {
            node->patches.Add(scratch_[t].patches);
        }
        for (int c = 0; c < kStemChannels; ++c) {
            const float* w = node->layer.weights + kTaps * c;
            double first = 0, second = 0;
            for (int i = 0; i < kTaps; ++i) {
                first += w[i] * node->patches.tap[i];
                for (int j = 0; j < kTaps; ++j) {
                    second += static_cast<double>(w[i]) * w[j] * node->patches.Product(i, j);
                }
            }
            SetStatistics(node, c, first, second);
        }
    }

    // The pixels of each patch as channels; the others are zero, and so are pixels beyond the picture. `inputs`
    // is a patch's side; patches larger than their distance overlap.
    void PatchesForward(Node* node) {
        Tensor& out = node->out;
        const auto side = static_cast<size_t>(out.size);
        const V scale = All(quantised_ ? 1.0f : 1.0f / 128);
        const int patchSide = node->layer.inputs;
        const int margin = (patchSide - kPatchDistance) / 2;
        const int width = kPatchDistance * out.size;
        ForEach(side * static_cast<size_t>(pictures_), [&](Thread&, size_t row) {
            const float* picture = input_ + row / side * static_cast<size_t>(width * width);
            const int top = kPatchDistance * static_cast<int>(row % side) - margin;
            uint16_t* to = out.values + row * side * static_cast<size_t>(out.channels);
            for (int x = 0; x < out.size; ++x, to += out.channels) {
                alignas(64) float patch[kMostPatch] = {};
                const int left = kPatchDistance * x - margin;
                const int begin = std::max(left, 0), end = std::min(left + patchSide, width);
                for (int y = std::max(top, 0); y < std::min(top + patchSide, width); ++y) {
                    std::memcpy(patch + patchSide * (y - top) + (begin - left),
                                picture + y * width + begin,
                                static_cast<size_t>(end - begin) * sizeof(float));
                }
                for (int c = 0; c < out.channels; c += static_cast<int>(kLanes)) {
                    Store(to + c, _mm512_mul_ps(Load(patch + c), scale));
                }
            }
        });
    }

    void FirstForward(Node* node) {
        const Finish finish = FinishOf(node->layer);
        ForEachPicture(node->layer.outputs, [&](Thread& thread, size_t picture) {
            thread.picture.Read(input_ + picture * node->out.Pixels(), node->out.size);
            engine::FirstForward(thread.picture, node->depthwise.data(), finish, picture,
                                 &thread.rows, &node->out, &thread.sums);
        });
    }

    void FirstBackward(Node* node) {
        ClearDepthwise();
        ForEach(static_cast<size_t>(pictures_), [&](Thread& thread, size_t picture) {
            thread.picture.Read(input_ + picture * node->out.Pixels(), node->out.size);
            engine::FirstBackward(thread.picture, node->out, picture, &thread.rows,
                                  thread.depthwise.sums);
        });
        GatherDepthwise(node);
    }

    void HalvingBackward(Node* node) {
        Tensor& source = Source(*node).out;
        BeginGradient(&source);
        ForEachPicture(source.channels, [&](Thread& thread, size_t picture) {
            engine::HalvingBackward(source, node->out, picture, &thread.sums);
        });
        EndGradient(&source);
        buffers_.Give(node->out.gradient);
        node->out.gradient = nullptr;
    }

    void PooledForward(Node* node) {
        Node& source = Source(*node);
        const Finish finish = FinishOf(node->layer);
        const int channels = node->layer.outputs;
        if (source.layer.kind == kStem) {
            const Finish stemFinish = FinishOf(source.layer);
            ForEach(static_cast<size_t>(pictures_), [&](Thread& thread, size_t picture) {
                thread.picture.Read(input_ + picture * kPlane * kPlane, kPlane);
                StemRows rows{source.out, source.depthwise.data(),
                              stemFinish, thread.picture,
                              nullptr,    nullptr};
                engine::PooledForward(source.out, node->depthwise.data(), finish, picture, &rows,
                                      &thread.rows, &node->out, &thread.sums);
                thread.Gather(channels);
            });
            return;
        }
        ForEachPicture(channels, [&](Thread& thread, size_t picture) {
            StoredRows rows{source.out, picture, nullptr};
            engine::PooledForward(source.out, node->depthwise.data(), finish, picture, &rows,
                                  &thread.rows, &node->out, &thread.sums);
        });
    }

    template <typename Work>
    void ForEachPicture(int channels, Work work) {
        ForEach(static_cast<size_t>(pictures_), [&](Thread& thread, size_t picture) {
            work(thread, picture);
            thread.Gather(channels);
        });
    }

    void DepthwiseForward(Node* node) {
        const Tensor& source = Source(*node).out;
        const Finish finish = FinishOf(node->layer);
        ForEachPicture(node->layer.outputs, [&](Thread& thread, size_t picture) {
            const auto forward = source.size % kStrip == 0 ? engine::DepthwiseForward<kStrip>
                                                           : engine::DepthwiseForward<kEvenStrip>;
            forward(source, node->depthwise.data(), finish, picture, &thread.rows, &node->out,
                    &thread.sums);
        });
    }

    // Blocks of rows for pointwise layers.
    template <typename Work>
    void ForEachRows(const Tensor& t, Work work) {
        const size_t rows = Pixels(t);
        ForEach((rows + kBlockRows - 1) / kBlockRows, [&](Thread& thread, size_t block) {
            work(thread, block * kBlockRows, std::min(rows, (block + 1) * kBlockRows));
        });
    }

    void PointwiseForward(Node* node) {
        const Tensor& source = Source(*node).out;
        const Finish finish = FinishOf(node->layer);
        ForEachRows(source, [&](Thread& thread, size_t begin, size_t end) {
            engine::PointwiseForward(source, node->pointwise, finish, begin, end, &node->out,
                                     &thread.sums);
            thread.Gather(node->layer.outputs);
        });
    }

    void Statistics(Node* node) {
        MergeSums(node->layer.outputs);
        for (int c = 0; c < node->layer.outputs; ++c) {
            SetStatistics(node, c, scratch_[0].first[c], scratch_[0].second[c]);
        }
    }

    void SetStatistics(Node* node, int c, double first, double second) {
        const Layer& layer = node->layer;
        const auto count = static_cast<double>(Pixels(node->out));
        const double mean = first / count;
        const double variance = std::max(0.0, second / count - mean * mean);
        node->mean[static_cast<size_t>(c)] = mean;
        node->inverse[static_cast<size_t>(c)] = 1 / std::sqrt(variance + kEpsilon);
        layer.mean[c] += momentum_ * (static_cast<float>(mean) - layer.mean[c]);
        layer.variance[c] +=
            momentum_ * (static_cast<float>(variance * count / (count - 1)) - layer.variance[c]);
    }

    void Normalise(Node* node) {
        const Layer& layer = node->layer;
        for (int c = 0; c < layer.outputs; ++c) {
            const auto i = static_cast<size_t>(c);
            if (!training_) {
                node->mean[i] = layer.mean[c];
                node->inverse[i] = 1 / std::sqrt(layer.variance[c] + kEpsilon);
            }
            const double a = *layer.gain * (1.0 + layer.gamma[c]) * node->inverse[i];
            node->out.a[c] = static_cast<float>(a);
            node->out.b[c] = static_cast<float>(*layer.gain * layer.beta[c] - a * node->mean[i]);
        }
    }

    void AddForward(Node* node) {
        const Tensor& branch = Source(*node).out;
        const Tensor& shortcut = nodes_[static_cast<size_t>(node->layer.shortcut)]->out;
        Tensor& out = node->out;
        const V branchScale = All(BranchScale(node->layer));
        const V shortcutScale = All(ShortcutScale(node->layer));
        const V half = All(quantised_ && node->layer.shift > 0 ? 0.5f : 0.0f);
        ForEach(Pixels(out) / kRows, [&](Thread&, size_t block) {
            for (int c = 0; c < out.channels; c += kLanes) {
                const Reading first(branch, c), second(shortcut, c), third(out, c);
                for (int r = 0; r < kRows; ++r) {
                    const size_t at = (block * kRows + static_cast<size_t>(r)) *
                                          static_cast<size_t>(out.channels) +
                                      static_cast<size_t>(c);
                    V sum = Fma(branchScale, first.Value(Load(branch.values + at)), half);
                    sum = Fma(shortcutScale, second.Value(Load(shortcut.values + at)), sum);
                    if (quantised_) {
                        sum = _mm512_roundscale_ps(sum, _MM_FROUND_TO_NEG_INF | _MM_FROUND_NO_EXC);
                    }
                    Store(out.values + at, third.Value(sum));
                }
            }
        });
    }

    static float BranchScale(const Layer& l) { return std::ldexp(1.0f, l.branchShift - l.shift); }
    static float ShortcutScale(const Layer& l) {
        return std::ldexp(1.0f, l.shortcutShift - l.shift);
    }

    void Export(const Tensor& out, float* to) {
        ForEach(Pixels(out), [&](Thread&, size_t pixel) {
            for (int c = 0; c < out.channels; c += kLanes) {
                const size_t at =
                    pixel * static_cast<size_t>(out.channels) + static_cast<size_t>(c);
                Store(to + at, Reading(out, c).Value(Load(out.values + at)));
            }
        });
    }

    void Import(const float* gradient, Tensor* out) {
        BeginGradient(out);
        ForEach(static_cast<size_t>(pictures_), [&](Thread& thread, size_t picture) {
            for (int c = 0; c < out->channels; c += kLanes) {
                GradientWriter writer(*out, c);
                for (size_t pixel = 0; pixel < out->Pixels(); ++pixel) {
                    const size_t at = picture * out->Length() +
                                      pixel * static_cast<size_t>(out->channels) +
                                      static_cast<size_t>(c);
                    writer.Put(at, Load(gradient + at));
                }
                thread.sums.Add(c, writer.first, writer.second);
            }
            thread.Gather(out->channels);
        });
        EndGradient(out);
    }

    void BeginGradient(Tensor* t) {
        ClearSums();
        if (t->gradient != nullptr) { // from another layer that reads it
            t->extra = t->gradient;
            t->extraScale = 1;
        }
        if (t->values != nullptr) {
            t->gradient = buffers_.Take();
        }
    }

    void EndGradient(Tensor* t) {
        MergeSums(t->channels);
        std::copy(scratch_[0].first, scratch_[0].first + t->channels, t->gradientSum);
        std::copy(scratch_[0].second, scratch_[0].second + t->channels, t->gradientProduct);
        if (t->extra != nullptr) {
            buffers_.Give(const_cast<uint16_t*>(t->extra));
            t->extra = nullptr;
        }
    }

    // From the sums of the gradient to those of the parameters, and to how the sums' gradient
    // follows.
    void NormalisationGradient(Node* node) {
        const Layer& layer = node->layer;
        Tensor& out = node->out;
        const auto count = static_cast<double>(Pixels(out));
        for (int c = 0; c < layer.outputs; ++c) {
            const auto i = static_cast<size_t>(c);
            if (quantised_) {
                const float scale = std::ldexp(1.0f, -layer.shift);
                layer.betaGradient[c] += scale * static_cast<float>(out.gradientSum[c]);
                out.c1[c] = scale;
                out.c2[c] = out.c3[c] = 0;
                continue;
            }
            const double inverse = node->inverse[i], mean = node->mean[i];
            const double sum = out.gradientSum[c];
            const double product = inverse * (out.gradientProduct[c] - mean * sum);
            layer.betaGradient[c] += static_cast<float>(*layer.gain * sum);
            layer.gammaGradient[c] += static_cast<float>(*layer.gain * product);
            const double a = *layer.gain * (1.0 + layer.gamma[c]) * inverse;
            out.c1[c] = static_cast<float>(a);
            out.c2[c] = static_cast<float>(-a * inverse * product / count);
            out.c3[c] = static_cast<float>(a * (inverse * mean * product - sum) / count);
        }
    }

    void Backward(Node* node) {
        if (node->layer.kind == kAdd) {
            AddBackward(node);
            return;
        }
        if (node->layer.kind == kHalving) {
            HalvingBackward(node);
            return;
        }
        if (node->layer.kind == kPatches) {
            buffers_.Give(node->out.gradient);
            node->out.gradient = nullptr;
            return;
        }
        NormalisationGradient(node);
        switch (node->layer.kind) {
            case kStem:
                StemBackward(node);
                return;
            case kFirst:
                FirstBackward(node);
                break;
            case kPooled:
                PooledBackward(node);
                break;
            case kDepthwise:
                DepthwiseBackward(node);
                break;
            default:
                PointwiseBackward(node);
        }
        buffers_.Give(node->out.gradient);
        node->out.gradient = nullptr;
    }

    // The branch's gradient; the shortcut takes its share when its own gradient is computed.
    void AddBackward(Node* node) {
        Tensor& branch = Source(*node).out;
        Tensor& shortcut = nodes_[static_cast<size_t>(node->layer.shortcut)]->out;
        const Tensor& out = node->out;
        const V scale = All(BranchScale(node->layer));
        BeginGradient(&branch);
        ForEach(static_cast<size_t>(pictures_), [&](Thread& thread, size_t picture) {
            for (int c = 0; c < out.channels; c += kLanes) {
                GradientWriter writer(branch, c);
                for (size_t pixel = 0; pixel < out.Pixels(); ++pixel) {
                    const size_t at = picture * out.Length() +
                                      pixel * static_cast<size_t>(out.channels) +
                                      static_cast<size_t>(c);
                    writer.Put(at, _mm512_mul_ps(scale, Load(out.gradient + at)));
                }
                thread.sums.Add(c, writer.first, writer.second);
            }
            thread.Gather(out.channels);
        });
        EndGradient(&branch);
        shortcut.extra = out.gradient;
        shortcut.extraScale = ShortcutScale(node->layer);
        node->out.gradient = nullptr;
    }

    void GatherDepthwise(Node* node) {
        const int channels = node->layer.outputs;
        for (int t = 0; t < threads_; ++t) {
            for (int c = 0; c < channels; ++c) {
                for (int k = 0; k < 9; ++k) {
                    node->layer.weightsGradient[9 * c + k] +=
                        scratch_[t].depthwise.sums[k * channels + c];
                }
            }
        }
    }

    void ClearDepthwise() {
        for (int t = 0; t < threads_; ++t) {
            scratch_[t].depthwise = {};
            std::memset(scratch_[t].stem, 0, sizeof scratch_[t].stem);
        }
    }

    void PooledBackward(Node* node) {
        Node& source = Source(*node);
        ClearDepthwise();
        BeginGradient(&source.out);
        if (source.layer.kind == kStem) {
            const Finish stemFinish = FinishOf(source.layer);
            ForEach(static_cast<size_t>(pictures_), [&](Thread& thread, size_t picture) {
                thread.picture.Read(input_ + picture * kPlane * kPlane, kPlane);
                StemRows rows{source.out,  source.depthwise.data(),
                              stemFinish,  thread.picture,
                              thread.stem, &thread.sums};
                engine::PooledBackward(source.out, node->depthwise.data(), node->out, picture,
                                       &rows, &thread.rows, &thread.depthwise);
                thread.Gather(kStemChannels);
            });
        } else {
            ForEachPicture(node->layer.outputs, [&](Thread& thread, size_t picture) {
                StoredRows rows{source.out, picture, &thread.sums};
                engine::PooledBackward(source.out, node->depthwise.data(), node->out, picture,
                                       &rows, &thread.rows, &thread.depthwise);
            });
        }
        EndGradient(&source.out);
        GatherDepthwise(node);
        if (source.layer.kind == kStem) {
            GatherStem(&source);
        }
    }

    // Sums of gradient x patch; those of gradient x stored value follow, since a stored value is
    // the weights times the patch.
    void GatherStem(Node* stem) {
        for (int c = 0; c < kStemChannels; ++c) {
            double product = 0;
            for (int k = 0; k < kTaps; ++k) {
                for (int t = 1; t < threads_; ++t) {
                    scratch_[0].stem[k * kStemChannels + c] +=
                        scratch_[t].stem[k * kStemChannels + c];
                }
                product += static_cast<double>(stem->layer.weights[kTaps * c + k]) *
                           scratch_[0].stem[k * kStemChannels + c];
            }
            stem->out.gradientProduct[c] = product;
        }
    }

    void StemBackward(Node* node) {
        const Layer& layer = node->layer;
        const PatchSums& patches = node->patches;
        for (int c = 0; c < kStemChannels; ++c) {
            for (int k = 0; k < kTaps; ++k) {
                double gradient = node->out.c1[c] * scratch_[0].stem[k * kStemChannels + c] +
                                  node->out.c3[c] * patches.tap[k];
                for (int j = 0; j < kTaps; ++j) {
                    gradient +=
                        node->out.c2[c] * layer.weights[kTaps * c + j] * patches.Product(j, k);
                }
                layer.weightsGradient[kTaps * c + k] += static_cast<float>(gradient);
            }
        }
    }

    void DepthwiseBackward(Node* node) {
        Tensor& source = Source(*node).out;
        ClearDepthwise();
        BeginGradient(&source);
        ForEachPicture(node->layer.outputs, [&](Thread& thread, size_t picture) {
            const auto backward = source.size % kStrip == 0 ? engine::DepthwiseBackward<kStrip>
                                                            : engine::DepthwiseBackward<kEvenStrip>;
            backward(source, node->depthwise.data(), node->out, picture, &thread.rows,
                     &thread.depthwise, &thread.sums);
        });
        EndGradient(&source);
        GatherDepthwise(node);
    }

    void PointwiseBackward(Node* node) {
        Tensor& source = Source(*node).out;
        const size_t length = static_cast<size_t>(node->layer.inputs) * node->layer.outputs;
        for (int t = 0; t < threads_; ++t) {
            std::fill_n(scratch_[t].pointwiseGradient.tiles, length, 0.0f);
        }
        BeginGradient(&source);
        ForEachRows(source, [&](Thread& thread, size_t begin, size_t end) {
            engine::PointwiseBackward(source, node->pointwise, node->out, begin, end,
                                      &thread.pointwise, &thread.pointwiseGradient, &thread.sums);
            thread.Gather(source.channels);
        });
        EndGradient(&source);
        for (int t = 0; t < threads_; ++t) {
            scratch_[t].pointwiseGradient.AddTo(node->pointwise, node->layer.weightsGradient);
        }
    }

    int pictures_;
    bool quantised_;
    int threads_;
    bool training_ = true;
    float momentum_ = 0;
    const float* input_ = nullptr;
    std::vector<std::unique_ptr<Node>> nodes_;
    Buffers buffers_;
    Thread* scratch_ = nullptr;
};

} // namespace
} // namespace engine

extern "C" {

// Null if the system does not lend the matrix unit. `pictures`: a multiple of 8.
void* EngineNew(int pictures, int threads, int quantised, const engine::Layer* layers, int count) {
    if (!engine::RequestTiles()) {
        return nullptr;
    }
    return new engine::Net(pictures, threads, quantised != 0, layers, count);
}

// input: [pictures][side][side], with `kPatches` in units of 1 and else as the first layer reads it;
// outputs: [pictures][side][side][channels] of each of these layers, which none may read.
void EngineForward(void* net, const float* input, int training, float momentum, int count,
                   const int32_t* layers, float* const* outputs) {
    static_cast<engine::Net*>(net)->Forward(input, training != 0, momentum, {count, layers},
                                            outputs);
}

// Adds to the parameters' gradients. The input must still be that of the last forward pass.
void EngineBackward(void* net, int count, const int32_t* layers, const float* const* gradients) {
    static_cast<engine::Net*>(net)->Backward({count, layers}, gradients);
}
}
