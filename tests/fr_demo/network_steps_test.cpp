// SPDX-License-Identifier: MIT
// Watches both networks at work. This executable defines the kernels that the networks call, so
// that the library's calls arrive here: each is noted with its arguments, passed on to the
// library's own kernel, and its output digested. The arguments are compared with the layer tables,
// the outputs with the digests of the reference networks.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <iterator>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "fr_demo/array_sizes.h"
#include "fr_demo/golden_steps.h"
#include "fr_demo/step_digest.h"
#include "orvo/orvo_fr.h"
#include "orvo/q7_kernels.h"
#include "reference/reference_conv.h"
#include "reference/reference_networks.h"
#include "support/call_text.h"
#include "support/guarded_buffer.h"

namespace {

using orvo_reference::Layer;
using orvo_reference::LayerKind;
using orvo_reference::Place;
using orvo_reference::Step;
using orvo_reference::StepKind;
using orvo_test::CallText;
using orvo_test::Digest;
using orvo_test::GuardedBuffer;

// ---- What is noted

struct Call {
    std::string text; // the kernel and its arguments, addresses by the name of what lies there
    uint64_t digest;  // of the output
};

struct Watch {
    bool active = false;
    const void* input = nullptr;
    const int8_t* innerBuf = nullptr;
    size_t slotSize = 0;
    const void* workspace = nullptr;
    std::vector<Call> calls;
};

Watch watch;

std::string NameOf(const void* address) {
    const auto* byte = static_cast<const int8_t*>(address);
    if (address == watch.input) {
        return "input";
    }
    if (address == watch.workspace) {
        return "workspace";
    }
    if (address == static_cast<const void*>(g_frResult)) {
        return "g_frResult";
    }
    for (size_t slot = 0; slot < 3; ++slot) {
        if (byte == watch.innerBuf + slot * watch.slotSize) {
            return std::string(1, "XYZ"[slot]);
        }
    }
    Dl_info info{};
    if (dladdr(address, &info) != 0 && info.dli_saddr == address) {
        return info.dli_sname;
    }
    return "an unknown address";
}

template <typename Kernel>
Kernel* LibrarysOwn(const char* name) {
    void* symbol = dlsym(RTLD_NEXT, name);
    if (symbol == nullptr) {
        std::abort();
    }
    return reinterpret_cast<Kernel*>(symbol);
}

// Passes a call on to the library and notes it, with the digest of what it has written.
template <typename Kernel, typename... Args>
void Forward(const char* name, const void* output, size_t outputSize, Args... args) {
    LibrarysOwn<Kernel>(name)(args...);
    if (watch.active) {
        watch.calls.push_back({CallText(NameOf, name, args...), Digest(output, outputSize)});
    }
}

size_t Volume(uint32_t channels, uint32_t width, uint32_t height) {
    return size_t{channels} * width * height;
}

} // namespace

// ---- The kernels

#define ORVO_WATCHED_CONVOLUTION(name)                                                             \
    extern "C" void name(const int8_t* src, uint16_t srcWidth, uint16_t srcHeight,                 \
                         uint16_t srcChannels, const int8_t* weights, uint16_t dstChannels,        \
                         uint16_t kernelSize, uint16_t pad, uint16_t stride, const int32_t* bias,  \
                         uint16_t outShift, int8_t* dst, uint16_t dstWidth, uint16_t dstHeight,    \
                         int8_t* tmpBuffer) {                                                      \
        Forward<decltype(name)>(#name, dst, Volume(dstChannels, dstWidth, dstHeight), src,         \
                                srcWidth, srcHeight, srcChannels, weights, dstChannels,            \
                                kernelSize, pad, stride, bias, outShift, dst, dstWidth, dstHeight, \
                                tmpBuffer);                                                        \
    }

ORVO_WATCHED_CONVOLUTION(arma_convolve_chw_q7)
ORVO_WATCHED_CONVOLUTION(ArmAConvolve1x1s1p0ChwQ7)
ORVO_WATCHED_CONVOLUTION(arma_convolvedw_3x3_s1_chw_q7)
ORVO_WATCHED_CONVOLUTION(ArmAConvolvedwRelu3x3s1ChwQ7)

extern "C" void ArmAConvolveGlobalChwQ7(const int8_t* src, uint32_t width, uint32_t height,
                                        uint32_t channels, const int8_t* weights,
                                        const int32_t* bias, uint16_t outShift, int8_t* dst,
                                        void* scratch) {
    Forward<decltype(ArmAConvolveGlobalChwQ7)>("ArmAConvolveGlobalChwQ7", dst, channels, src, width,
                                               height, channels, weights, bias, outShift, dst,
                                               scratch);
}

extern "C" void ArmAFcQ7(const int8_t* src, const int8_t* weights, uint32_t inCount,
                         uint32_t outCount, uint16_t outShift, const int32_t* bias, int8_t* dst,
                         void* scratch) {
    Forward<decltype(ArmAFcQ7)>("ArmAFcQ7", dst, outCount, src, weights, inCount, outCount,
                                outShift, bias, dst, scratch);
}

extern "C" void ArmAMaxPool2x2S2ChwQ7(const int8_t* src, int8_t* dst, uint32_t width,
                                      uint32_t height, uint16_t channels, int32_t pad,
                                      int8_t* scratch) {
    Forward<decltype(ArmAMaxPool2x2S2ChwQ7)>("ArmAMaxPool2x2S2ChwQ7", dst,
                                             Volume(channels, width / 2, height / 2), src, dst,
                                             width, height, channels, pad, scratch);
}

extern "C" void ArmAMaxpoolK2x2S1x1ChwQ7(int8_t* src, uint32_t width, uint32_t height,
                                         uint32_t channels, int8_t* dst, void* scratch) {
    Forward<decltype(ArmAMaxpoolK2x2S1x1ChwQ7)>("ArmAMaxpoolK2x2S1x1ChwQ7", dst,
                                                Volume(channels, width - 1, height - 1), src, width,
                                                height, channels, dst, scratch);
}

extern "C" void ArmADownsample(const int8_t* src, uint32_t width, int32_t height, uint32_t channels,
                               int8_t* dst, void* scratch) {
    const auto rows = static_cast<uint32_t>(height);
    Forward<decltype(ArmADownsample)>("ArmADownsample", dst,
                                      Volume(channels, (width + 1) / 2, (rows + 1) / 2), src, width,
                                      height, channels, dst, scratch);
}

extern "C" void ArmAGapQ7Chw(const int8_t* src, uint32_t width, uint32_t height, uint32_t channels,
                             uint16_t shift, void* scratch, int8_t* dst) {
    Forward<decltype(ArmAGapQ7Chw)>("ArmAGapQ7Chw", dst, channels, src, width, height, channels,
                                    shift, scratch, dst);
}

extern "C" void ArmAXorQ7(uint8_t* data, int32_t count) {
    Forward<decltype(ArmAXorQ7)>("ArmAXorQ7", data, static_cast<size_t>(count), data, count);
}

extern "C" void ArmAReluChwQ7(const int8_t* src, int8_t* dst, uint32_t count) {
    Forward<decltype(ArmAReluChwQ7)>("ArmAReluChwQ7", dst, count, src, dst, count);
}

extern "C" void ArmAZpadPlusChwQ7(const int8_t* in1, const int8_t* in2, int8_t* dst,
                                  uint16_t in1Shift, uint16_t in2Shift, uint16_t outShift,
                                  uint16_t height, uint16_t width, uint16_t outChannels,
                                  uint16_t in2Channels, void* scratch) {
    Forward<decltype(ArmAZpadPlusChwQ7)>(
        "ArmAZpadPlusChwQ7", dst, Volume(outChannels, width, height), in1, in2, dst, in1Shift,
        in2Shift, outShift, height, width, outChannels, in2Channels, scratch);
}

extern "C" void ArmAL2Norm(const int8_t* src, int32_t count, float* dst) {
    Forward<decltype(ArmAL2Norm)>("ArmAL2Norm", dst, static_cast<size_t>(count) * sizeof(float),
                                  src, count, dst);
}

namespace {

// ---- What is expected: one line a step, as the layer tables have them

std::string Join(std::initializer_list<std::string> words) {
    std::string text;
    for (const std::string& word : words) {
        text += (text.empty() ? "" : ", ") + word;
    }
    return text;
}

std::string N(int value) { return std::to_string(value); }

// The call that a step of a network is: g_align or g_fr names its parameters.
class CallOf {
  public:
    CallOf(std::string prefix, const Step& step) : prefix_(std::move(prefix)), s_(step) {}

    std::string Text() const {
        const std::string size = N(s_.size);
        const std::string planes = N(s_.inChannels);
        const std::string shift = N(s_.outShift);
        const std::string src = Name(s_.src);
        const std::string dst = Name(s_.dst);
        const std::string count = N(s_.inChannels * s_.size * s_.size);
        switch (s_.kind) {
            case StepKind::kGreyToQ7:
                return Call("ArmAXorQ7", {src, count});
            case StepKind::kConvolution:
                return Convolution("arma_convolve_chw_q7", 3);
            case StepKind::kPointwise:
                return Convolution("ArmAConvolve1x1s1p0ChwQ7", 1);
            case StepKind::kDepthwise:
                return Convolution("arma_convolvedw_3x3_s1_chw_q7", 3);
            case StepKind::kDepthwiseRectified:
                return Convolution("ArmAConvolvedwRelu3x3s1ChwQ7", 3);
            case StepKind::kAdd:
                return Call("ArmAZpadPlusChwQ7",
                            {src, Name(s_.second), dst, N(s_.firstShift), N(s_.secondShift), shift,
                             size, size, N(s_.outChannels), planes, "workspace"});
            case StepKind::kRectify:
                return Call("ArmAReluChwQ7", {src, dst, count});
            case StepKind::kMaxPoolStride1:
                return Call("ArmAMaxpoolK2x2S1x1ChwQ7",
                            {src, size, size, planes, dst, "workspace"});
            case StepKind::kMaxPoolStride2:
                return Call("ArmAMaxPool2x2S2ChwQ7",
                            {src, dst, size, size, planes, "0", "workspace"});
            case StepKind::kDownsample:
                return Call("ArmADownsample", {src, size, size, planes, dst, "workspace"});
            case StepKind::kGlobalAverage:
                return Call("ArmAGapQ7Chw", {src, size, size, planes, shift, "workspace", dst});
            case StepKind::kGlobal:
                return Call("ArmAConvolveGlobalChwQ7",
                            {src, size, size, planes, Weights(), Bias(), shift, dst, "workspace"});
            case StepKind::kFullyConnected:
                return Call("ArmAFcQ7", {src, Weights(), planes, N(s_.outChannels), shift, Bias(),
                                         dst, "workspace"});
            case StepKind::kUnitLength:
                return Call("ArmAL2Norm", {src, planes, "g_frResult"});
        }
        throw std::logic_error("no such kind of step");
    }

  private:
    static std::string Call(const char* kernel, std::initializer_list<std::string> arguments) {
        return std::string(kernel) + "(" + Join(arguments) + ")";
    }
    static std::string Name(Place place) {
        return place == Place::kInput
                   ? "input"
                   : std::string(1, "XYZ"[static_cast<int>(place) - static_cast<int>(Place::kX)]);
    }
    std::string Weights() const { return prefix_ + "Weights" + N(s_.layer); }
    std::string Bias() const { return prefix_ + "Bias" + N(s_.layer); }
    std::string Convolution(const char* kernel, int kernelSize) const {
        const std::string size = N(s_.size);
        return Call(kernel, {Name(s_.src), size, size, N(s_.inChannels), Weights(),
                             N(s_.outChannels), N(kernelSize), N(kernelSize / 2), "1", Bias(),
                             N(s_.outShift), Name(s_.dst), size, size, "workspace"});
    }

    std::string prefix_;
    const Step& s_;
};

std::vector<std::string> CallsOf(const char* prefix, const std::vector<Step>& steps) {
    std::vector<std::string> calls;
    for (const Step& step : steps) {
        calls.push_back(CallOf(prefix, step).Text());
    }
    return calls;
}

// ---- The networks under watch

// The exported array of that name.
int8_t* FindArray(const std::string& name) {
    void* address = dlsym(RTLD_DEFAULT, name.c_str());
    if (address == nullptr) {
        throw std::runtime_error(name + " is not exported");
    }
    return static_cast<int8_t*>(address);
}

// Writes natural-order parameters straight into the library's arrays, in each kernel's order.
void Install(const char* network, const std::vector<Layer>& layers,
             const orvo_reference::Model& model) {
    for (const Layer& layer : layers) {
        const orvo_reference::LayerParameters& p = model.at(layer.number);
        const std::string number = std::to_string(layer.number);
        const std::string prefix = std::string("g_") + network;
        int8_t* weights = FindArray(prefix + "Weights" + number);
        const size_t size = orvo_test::WeightsSize(layer);
        std::memset(weights, 0, size);
        if (layer.kind == LayerKind::kConvolution) {
            orvo_reference::PackConvWeights(p.weights.data(), layer.outChannels, layer.inChannels,
                                            3, weights, size);
        } else if (layer.kind == LayerKind::kPointwise) {
            orvo_reference::PackPointwiseWeights(p.weights.data(), layer.outChannels,
                                                 layer.inChannels, weights, size);
        } else {
            std::memcpy(weights, p.weights.data(), size);
        }
        std::memcpy(FindArray(prefix + "Bias" + number), p.bias.data(),
                    p.bias.size() * sizeof(int32_t));
    }
}

// Scratch, slots and input of one run, each of exactly its size between unmapped pages.
struct Buffers {
    GuardedBuffer workspace;
    GuardedBuffer innerBuf;
    GuardedBuffer input;
    Buffers(size_t workspaceSize, size_t slotSize, const std::vector<uint8_t>& picture)
        : workspace(workspaceSize), innerBuf(3 * slotSize), input(picture.size()) {
        std::copy(picture.begin(), picture.end(), input.bytes());
    }
};

void StartWatch(Buffers& buffers) {
    watch = {};
    watch.input = buffers.input.bytes();
    watch.innerBuf = buffers.innerBuf.q7();
    watch.slotSize = buffers.innerBuf.size() / 3;
    watch.workspace = buffers.workspace.bytes();
    watch.active = true;
}

std::vector<Call> WatchAlign(int picture) {
    Install("align", orvo_reference::AlignLayers(), orvo_reference::SeededAlignModel());
    Buffers buffers(38408, 25344, orvo_reference::SeededPicture(picture, 1, 24));
    AlignSetWorkspace(buffers.workspace.bytes());
    AlignSetInnerbuf(buffers.innerBuf.bytes());
    StartWatch(buffers);
    AlignRun(buffers.input.bytes());
    watch.active = false;
    EXPECT_EQ(g_alignResOffset, 25344);
    EXPECT_EQ(Digest(AlignGetOutput(), 4), watch.calls.back().digest);
    return watch.calls;
}

std::vector<Call> WatchFr(int picture) {
    Install("fr", orvo_reference::FrLayers(), orvo_reference::SeededFrModel());
    Buffers buffers(497668, 294912, orvo_reference::SeededPicture(picture, 3, 96));
    FrSetWorkspace(buffers.workspace.bytes());
    FrSetInnerbuf(buffers.innerBuf.bytes());
    StartWatch(buffers);
    FrRun(buffers.input.bytes());
    watch.active = false;
    EXPECT_EQ(Digest(FrGetOutput(), 512), watch.calls.back().digest);
    return watch.calls;
}

void ExpectArguments(const std::vector<Call>& calls, const std::vector<std::string>& steps) {
    for (size_t step = 0; step < std::min(calls.size(), steps.size()); ++step) {
        ASSERT_EQ(calls[step].text, steps[step]) << "step " << step;
    }
    EXPECT_EQ(calls.size(), steps.size());
}

template <size_t kSteps>
void ExpectGolden(const std::vector<Call>& calls, const uint64_t (&golden)[kSteps]) {
    for (size_t step = 0; step < std::min(calls.size(), kSteps); ++step) {
        ASSERT_EQ(calls[step].digest, golden[step])
            << "step " << step << " is the first wrong one: " << calls[step].text;
    }
    EXPECT_EQ(calls.size(), kSteps);
}

TEST(AlignmentNetwork, EveryCallHasItsLayersArguments) {
    ExpectArguments(WatchAlign(0), CallsOf("g_align", orvo_reference::AlignSteps()));
}

TEST(AlignmentNetwork, EveryStepOnASmoothPictureGivesTheGoldenBytes) {
    ExpectGolden(WatchAlign(0), orvo_test::kAlignGolden[0]);
}

TEST(AlignmentNetwork, EveryStepOnNoiseGivesTheGoldenBytes) {
    ExpectGolden(WatchAlign(1), orvo_test::kAlignGolden[1]);
}

TEST(RecognitionNetwork, EveryCallHasItsLayersArguments) {
    ExpectArguments(WatchFr(0), CallsOf("g_fr", orvo_reference::FrSteps()));
}

TEST(RecognitionNetwork, EveryStepOnASmoothPictureGivesTheGoldenBytes) {
    ExpectGolden(WatchFr(0), orvo_test::kFrGolden[0]);
}

TEST(RecognitionNetwork, EveryStepOnNoiseGivesTheGoldenBytes) {
    ExpectGolden(WatchFr(1), orvo_test::kFrGolden[1]);
}

// ---- The golden digests themselves

template <size_t kSteps>
std::vector<uint64_t> Steps(const uint64_t (&golden)[kSteps]) {
    return std::vector<uint64_t>(std::begin(golden), std::end(golden));
}

TEST(GoldenSteps, OfTheAlignmentNetworkAreTheReferenceNetworks) {
    EXPECT_EQ(orvo_test::AlignDigests(0), Steps(orvo_test::kAlignGolden[0]));
    EXPECT_EQ(orvo_test::AlignDigests(1), Steps(orvo_test::kAlignGolden[1]));
}

TEST(GoldenSteps, OfTheRecognitionNetworkOnASmoothPictureAreTheReferenceNetworks) {
    EXPECT_EQ(orvo_test::FrDigests(0), Steps(orvo_test::kFrGolden[0]));
}

TEST(GoldenSteps, OfTheRecognitionNetworkOnNoiseAreTheReferenceNetworks) {
    EXPECT_EQ(orvo_test::FrDigests(1), Steps(orvo_test::kFrGolden[1]));
}

// A wrong layer shows only where the activations carry a signal: many values, few of them clipped,
// and other ones for another picture.
void ExpectAlive(int step, const void* output, size_t size) {
    const auto* values = static_cast<const int8_t*>(output);
    const std::set<int8_t> distinct(values, values + size);
    EXPECT_GE(distinct.size(), std::min<size_t>(size, 20)) << "step " << step;
    const auto clipped =
        std::count_if(values, values + size, [](int8_t v) { return v == 127 || v == -128; });
    EXPECT_LT(static_cast<double>(clipped), 0.7 * static_cast<double>(size)) << "step " << step;
}

TEST(GoldenSteps, OfTheAlignmentNetworkComeFromLivelyActivations) {
    for (int picture = 0; picture < orvo_reference::kPictures; ++picture) {
        orvo_reference::RunAlign(orvo_reference::SeededAlignModel(),
                                 orvo_reference::SeededPicture(picture, 1, 24), ExpectAlive);
    }
}

TEST(GoldenSteps, OfTheRecognitionNetworkOnASmoothPictureComeFromLivelyActivations) {
    orvo_reference::RunFr(orvo_reference::SeededFrModel(), orvo_reference::SeededPicture(0, 3, 96),
                          ExpectAlive);
}

TEST(GoldenSteps, OfTheRecognitionNetworkOnNoiseComeFromLivelyActivations) {
    orvo_reference::RunFr(orvo_reference::SeededFrModel(), orvo_reference::SeededPicture(1, 3, 96),
                          ExpectAlive);
}

TEST(GoldenSteps, DifferBetweenThePicturesAtEveryStep) {
    for (size_t step = 0; step < std::size(orvo_test::kAlignGolden[0]); ++step) {
        EXPECT_NE(orvo_test::kAlignGolden[0][step], orvo_test::kAlignGolden[1][step]) << step;
    }
    for (size_t step = 0; step < std::size(orvo_test::kFrGolden[0]); ++step) {
        EXPECT_NE(orvo_test::kFrGolden[0][step], orvo_test::kFrGolden[1][step]) << step;
    }
}

} // namespace
