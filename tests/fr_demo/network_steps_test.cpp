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
#include <type_traits>
#include <utility>
#include <vector>

#include "fr_demo/array_sizes.h"
#include "fr_demo/golden_steps.h"
#include "fr_demo/step_digest.h"
#include "orvo/orvo_fr.h"
#include "orvo/q7_kernels.h"
#include "reference/reference_conv.h"
#include "reference/reference_networks.h"
#include "support/guarded_buffer.h"

namespace {

using orvo_reference::Layer;
using orvo_reference::LayerKind;
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

template <typename T>
std::string Word(const T& value) {
    if constexpr (std::is_pointer_v<T>) {
        return NameOf(value);
    } else {
        return std::to_string(value);
    }
}

template <typename... Args>
std::string Text(const char* kernel, const Args&... args) {
    std::string text = std::string(kernel) + "(";
    const char* separator = "";
    ((text += separator + Word(args), separator = ", "), ...);
    return text + ")";
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
        watch.calls.push_back({Text(name, args...), Digest(output, outputSize)});
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

// One network's table. Layers are named by number; every square plane by its one size.
class Table {
  public:
    explicit Table(std::string network) : prefix_("g_" + std::move(network)) {}

    static std::string Xor(int count) { return "ArmAXorQ7(input, " + N(count) + ")"; }
    std::string Conv(const char* src, int in, int size, int layer, int out, int shift,
                     const char* dst) const {
        return Convolution("arma_convolve_chw_q7", 3, src, in, size, layer, out, shift, dst);
    }
    std::string Pw(const char* src, int in, int size, int layer, int out, int shift,
                   const char* dst) const {
        return Convolution("ArmAConvolve1x1s1p0ChwQ7", 1, src, in, size, layer, out, shift, dst);
    }
    std::string Dw(const char* src, int in, int size, int layer, int out, int shift,
                   const char* dst) const {
        return Convolution("arma_convolvedw_3x3_s1_chw_q7", 3, src, in, size, layer, out, shift,
                           dst);
    }
    std::string Dwr(const char* src, int in, int size, int layer, int out, int shift,
                    const char* dst) const {
        return Convolution("ArmAConvolvedwRelu3x3s1ChwQ7", 3, src, in, size, layer, out, shift,
                           dst);
    }
    static std::string Add(const char* in1, const char* in2, const char* dst, int in1Shift,
                           int in2Shift, int outShift, int size, int outChannels, int in2Channels) {
        return "ArmAZpadPlusChwQ7(" +
               Join({in1, in2, dst, N(in1Shift), N(in2Shift), N(outShift), N(size), N(size),
                     N(outChannels), N(in2Channels), "workspace"}) +
               ")";
    }
    static std::string Relu(const char* data, int count) {
        return "ArmAReluChwQ7(" + Join({data, data, N(count)}) + ")";
    }
    static std::string Mp1(const char* src, int channels, int size, const char* dst) {
        return "ArmAMaxpoolK2x2S1x1ChwQ7(" +
               Join({src, N(size), N(size), N(channels), dst, "workspace"}) + ")";
    }
    static std::string Mp2(const char* src, int size, int channels, const char* dst) {
        return "ArmAMaxPool2x2S2ChwQ7(" +
               Join({src, dst, N(size), N(size), N(channels), "0", "workspace"}) + ")";
    }
    static std::string Ds(const char* src, int channels, int size, const char* dst) {
        return "ArmADownsample(" + Join({src, N(size), N(size), N(channels), dst, "workspace"}) +
               ")";
    }
    static std::string Gap(const char* src, int size, int channels, int shift, const char* dst) {
        return "ArmAGapQ7Chw(" +
               Join({src, N(size), N(size), N(channels), N(shift), "workspace", dst}) + ")";
    }
    std::string Global(const char* src, int size, int channels, int layer, int shift,
                       const char* dst) const {
        return "ArmAConvolveGlobalChwQ7(" +
               Join({src, N(size), N(size), N(channels), Weights(layer), Bias(layer), N(shift), dst,
                     "workspace"}) +
               ")";
    }
    std::string Fc(const char* src, int layer, int in, int out, int shift, const char* dst) const {
        return "ArmAFcQ7(" +
               Join({src, Weights(layer), N(in), N(out), N(shift), Bias(layer), dst, "workspace"}) +
               ")";
    }
    static std::string Norm(const char* src, int count) {
        return "ArmAL2Norm(" + Join({src, N(count), "g_frResult"}) + ")";
    }

  private:
    std::string Weights(int layer) const { return prefix_ + "Weights" + N(layer); }
    std::string Bias(int layer) const { return prefix_ + "Bias" + N(layer); }
    std::string Convolution(const char* kernel, int kernelSize, const char* src, int in, int size,
                            int layer, int out, int shift, const char* dst) const {
        return std::string(kernel) + "(" +
               Join({src, N(size), N(size), N(in), Weights(layer), N(out), N(kernelSize),
                     N(kernelSize / 2), "1", Bias(layer), N(shift), dst, N(size), N(size),
                     "workspace"}) +
               ")";
    }

    std::string prefix_;
};

struct AlignTable : Table {
    AlignTable() : Table("align") {}
    // clang-format off
    std::vector<std::string> Steps() const {
        return {
            Xor(576),
            Conv("input", 1, 24, 0, 32, 8, "X"),
            Pw("X", 32, 24, 1, 18, 7, "Y"),
            Dwr("Y", 18, 24, 2, 18, 6, "Z"),
            Pw("Z", 18, 24, 4, 36, 7, "Y"),
            Dw("Y", 36, 24, 5, 36, 6, "Z"),
            Add("Z", "X", "Y", 1, 0, 1, 24, 36, 32),
            Pw("Y", 36, 24, 7, 20, 5, "X"),
            Dwr("X", 20, 24, 8, 20, 7, "Z"),
            Pw("Z", 20, 24, 10, 40, 6, "X"),
            Dw("X", 40, 24, 11, 40, 6, "Z"),
            Add("Z", "Y", "X", 0, 1, 1, 24, 40, 36),
            Pw("X", 40, 24, 13, 22, 6, "Y"),
            Dwr("Y", 22, 24, 14, 22, 6, "Z"),
            Pw("Z", 22, 24, 16, 44, 7, "Y"),
            Dw("Y", 44, 24, 17, 44, 7, "Z"),
            Add("Z", "X", "Y", 0, 1, 0, 24, 44, 40),
            Mp2("Y", 24, 44, "X"),
            Pw("X", 44, 12, 20, 24, 6, "Y"),
            Dwr("Y", 24, 12, 21, 24, 6, "Z"),
            Pw("Z", 24, 12, 23, 48, 6, "Y"),
            Dw("Y", 48, 12, 24, 48, 6, "Z"),
            Add("Z", "X", "Y", 0, 0, 0, 12, 48, 44),
            Pw("Y", 48, 12, 26, 26, 6, "X"),
            Dwr("X", 26, 12, 27, 26, 7, "Z"),
            Pw("Z", 26, 12, 29, 52, 7, "X"),
            Dw("X", 52, 12, 30, 52, 7, "Z"),
            Add("Z", "Y", "X", 1, 0, 1, 12, 52, 48),
            Pw("X", 52, 12, 32, 28, 5, "Y"),
            Dwr("Y", 28, 12, 33, 28, 6, "Z"),
            Pw("Z", 28, 12, 35, 56, 6, "Y"),
            Dw("Y", 56, 12, 36, 56, 7, "Z"),
            Add("Z", "X", "Y", 0, 0, 0, 12, 56, 52),
            Mp2("Y", 12, 56, "X"),
            Pw("X", 56, 6, 39, 30, 5, "Y"),
            Dwr("Y", 30, 6, 40, 30, 6, "Z"),
            Pw("Z", 30, 6, 42, 60, 7, "Y"),
            Dw("Y", 60, 6, 43, 60, 5, "Z"),
            Add("Z", "X", "Y", 0, 0, 0, 6, 60, 56),
            Pw("Y", 60, 6, 45, 32, 5, "X"),
            Dwr("X", 32, 6, 46, 32, 7, "Z"),
            Pw("Z", 32, 6, 48, 64, 6, "X"),
            Dw("X", 64, 6, 49, 64, 6, "Z"),
            Add("Z", "Y", "X", 0, 0, 1, 6, 64, 60),
            Pw("X", 64, 6, 51, 34, 6, "Y"),
            Dwr("Y", 34, 6, 52, 34, 7, "Z"),
            Pw("Z", 34, 6, 54, 68, 6, "Y"),
            Dw("Y", 68, 6, 55, 68, 6, "Z"),
            Add("Z", "X", "Y", 0, 1, 1, 6, 68, 64),
            Gap("Y", 6, 68, 3, "X"),
            Fc("X", 58, 68, 4, 8, "Y"),
        };
    }
    // clang-format on
};

struct FrTable : Table {
    FrTable() : Table("fr") {}
    // clang-format off
    std::vector<std::string> Steps() const {
        return {
            Xor(27648),
            Conv("input", 3, 96, 0, 32, 11, "X"),
            Mp1("X", 32, 96, "Y"),
            Dw("Y", 32, 95, 2, 32, 9, "X"),
            Ds("X", 32, 95, "Y"),
            Relu("Y", 73728),
            Dwr("Y", 32, 48, 5, 32, 4, "X"),
            Pw("X", 32, 48, 7, 64, 7, "Y"),
            Relu("Y", 147456),
            Dw("Y", 64, 48, 9, 64, 7, "X"),
            Mp1("X", 64, 48, "Y"),
            Dw("Y", 64, 47, 11, 64, 9, "X"),
            Ds("X", 64, 47, "Y"),
            Relu("Y", 36864),
            Pw("Y", 64, 24, 14, 32, 6, "X"),
            Pw("X", 32, 24, 15, 64, 8, "Y"),
            Relu("Y", 36864),
            Dwr("Y", 64, 24, 17, 64, 4, "Z"),
            Pw("Z", 64, 24, 19, 32, 7, "Y"),
            Add("X", "Y", "Z", 1, 0, 1, 24, 32, 32),
            Pw("Z", 32, 24, 21, 64, 6, "Y"),
            Relu("Y", 36864),
            Dwr("Y", 64, 24, 23, 64, 6, "X"),
            Pw("X", 64, 24, 25, 32, 6, "Y"),
            Add("Z", "Y", "X", 1, 0, 1, 24, 32, 32),
            Pw("X", 32, 24, 27, 64, 7, "Y"),
            Relu("Y", 36864),
            Dwr("Y", 64, 24, 29, 64, 6, "Z"),
            Pw("Z", 64, 24, 31, 32, 6, "Y"),
            Add("X", "Y", "Z", 1, 0, 1, 24, 32, 32),
            Pw("Z", 32, 24, 33, 64, 7, "Y"),
            Relu("Y", 36864),
            Dwr("Y", 64, 24, 35, 64, 7, "X"),
            Pw("X", 64, 24, 37, 32, 5, "Y"),
            Add("Z", "Y", "X", 1, 0, 1, 24, 32, 32),
            Pw("X", 32, 24, 39, 128, 7, "Y"),
            Relu("Y", 73728),
            Dw("Y", 128, 24, 41, 128, 8, "X"),
            Mp1("X", 128, 24, "Y"),
            Dw("Y", 128, 23, 43, 128, 8, "X"),
            Ds("X", 128, 23, "Y"),
            Relu("Y", 18432),
            Pw("Y", 128, 12, 46, 64, 7, "X"),
            Pw("X", 64, 12, 47, 128, 9, "Y"),
            Relu("Y", 18432),
            Dwr("Y", 128, 12, 49, 128, 4, "Z"),
            Pw("Z", 128, 12, 51, 64, 6, "Y"),
            Add("X", "Y", "Z", 1, 0, 1, 12, 64, 64),
            Pw("Z", 64, 12, 53, 128, 8, "Y"),
            Relu("Y", 18432),
            Dwr("Y", 128, 12, 55, 128, 4, "X"),
            Pw("X", 128, 12, 57, 64, 6, "Y"),
            Add("Z", "Y", "X", 1, 0, 1, 12, 64, 64),
            Pw("X", 64, 12, 59, 128, 7, "Y"),
            Relu("Y", 18432),
            Dwr("Y", 128, 12, 61, 128, 7, "Z"),
            Pw("Z", 128, 12, 63, 64, 5, "Y"),
            Add("X", "Y", "Z", 0, 0, 0, 12, 64, 64),
            Pw("Z", 64, 12, 65, 128, 8, "Y"),
            Relu("Y", 18432),
            Dwr("Y", 128, 12, 67, 128, 5, "X"),
            Pw("X", 128, 12, 69, 64, 6, "Y"),
            Add("Z", "Y", "X", 0, 0, 1, 12, 64, 64),
            Pw("X", 64, 12, 71, 128, 8, "Y"),
            Relu("Y", 18432),
            Dwr("Y", 128, 12, 73, 128, 6, "Z"),
            Pw("Z", 128, 12, 75, 64, 6, "Y"),
            Add("X", "Y", "Z", 1, 0, 1, 12, 64, 64),
            Pw("Z", 64, 12, 77, 128, 7, "Y"),
            Relu("Y", 18432),
            Dwr("Y", 128, 12, 79, 128, 6, "X"),
            Pw("X", 128, 12, 81, 64, 7, "Y"),
            Add("Z", "Y", "X", 0, 0, 0, 12, 64, 64),
            Pw("X", 64, 12, 83, 256, 8, "Y"),
            Relu("Y", 36864),
            Dw("Y", 256, 12, 85, 256, 7, "X"),
            Mp1("X", 256, 12, "Y"),
            Dw("Y", 256, 11, 87, 256, 8, "X"),
            Ds("X", 256, 11, "Y"),
            Relu("Y", 9216),
            Pw("Y", 256, 6, 90, 64, 7, "X"),
            Pw("X", 64, 6, 91, 128, 9, "Y"),
            Relu("Y", 4608),
            Dwr("Y", 128, 6, 93, 128, 6, "Z"),
            Pw("Z", 128, 6, 95, 64, 6, "Y"),
            Add("X", "Y", "Z", 1, 0, 1, 6, 64, 64),
            Pw("Z", 64, 6, 97, 128, 8, "Y"),
            Relu("Y", 4608),
            Dwr("Y", 128, 6, 99, 128, 5, "X"),
            Pw("X", 128, 6, 101, 64, 7, "Y"),
            Add("Z", "Y", "X", 0, 0, 1, 6, 64, 64),
            Pw("X", 64, 6, 103, 256, 7, "Y"),
            Relu("Y", 9216),
            Global("Y", 6, 256, 105, 6, "X"),
            Fc("X", 106, 256, 128, 7, "Y"),
            Norm("Y", 128),
        };
    }
    // clang-format on
};

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
    ExpectArguments(WatchAlign(0), AlignTable().Steps());
}

TEST(AlignmentNetwork, EveryStepOnASmoothPictureGivesTheGoldenBytes) {
    ExpectGolden(WatchAlign(0), orvo_test::kAlignGolden[0]);
}

TEST(AlignmentNetwork, EveryStepOnNoiseGivesTheGoldenBytes) {
    ExpectGolden(WatchAlign(1), orvo_test::kAlignGolden[1]);
}

TEST(RecognitionNetwork, EveryCallHasItsLayersArguments) {
    ExpectArguments(WatchFr(0), FrTable().Steps());
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
