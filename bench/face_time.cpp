// SPDX-License-Identifier: MIT
//
// One face, timed or merely run: AlignRun() and FrRun() as the library has them, or only the layers
// of one kind, in their real order and shapes.
//
//   face_time                     prints RESULT<tab>own<tab>what<tab>median_ms<tab>least_ms;
//                                 layers of one kind are timed in the course of whole faces
//   face_time --count N [what]    runs N faces, or that part of each, and measures nothing: for
//                                 counting instructions under an emulator
//   face_time --init 0|1          prints how many bytes OrvoFrInit() deciphers; calls it only with
//   1
//
// The linker routes the networks' kernel calls through here (--wrap), where the kernels of other
// kinds are left out. Their outputs are missing then, so that what a path does for inputs without a
// sign may not be done.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "orvo/model_store.h"
#include "orvo/orvo_fr.h"
#include "orvo/q7_kernels.h"

namespace {

enum Part : unsigned {
    kConv = 1u << 0,
    kPointwise = 1u << 1,
    kDepthwise = 1u << 2,
    kMaxPool = 1u << 3,
    kAdd = 1u << 4,
    kRelu = 1u << 5,
    kDownsample = 1u << 6,
    kHead = 1u << 7,
    kFlip = 1u << 8,
    kAllKernels = (1u << 9) - 1,
    kAlign = 1u << 9,
    kRecognition = 1u << 10,
    kNetworks = kAlign | kRecognition,
};

struct What {
    const char* name;  // on the command line
    const char* label; // in the results
    unsigned parts;
};

constexpr What kWhats[] = {
    {"face", "face", kNetworks | kAllKernels},         {"align", "align", kAlign | kAllKernels},
    {"recog", "recog", kRecognition | kAllKernels},    {"conv", "kind:conv", kNetworks | kConv},
    {"pw", "kind:pw", kNetworks | kPointwise},         {"dw", "kind:dw", kNetworks | kDepthwise},
    {"maxpool", "kind:maxpool", kNetworks | kMaxPool}, {"add", "kind:add", kNetworks | kAdd},
    {"relu", "kind:relu", kNetworks | kRelu},          {"ds", "kind:ds", kNetworks | kDownsample},
    {"head", "kind:head", kNetworks | kHead},
};

using Clock = std::chrono::steady_clock;

unsigned g_parts;            // kernels that run
unsigned g_timedParts;       // kernels whose time is added up
Clock::duration g_partsTime; // how long they took

template <unsigned kPart, typename... Parameters>
void RunPart(void (*kernel)(Parameters...), Parameters... arguments) {
    if ((g_parts & kPart) == 0) {
        return;
    }
    if ((g_timedParts & kPart) == 0) {
        kernel(arguments...);
        return;
    }
    const auto from = Clock::now();
    kernel(arguments...);
    g_partsTime += Clock::now() - from;
}

void RunFace(unsigned parts) {
    g_parts = parts;
    if ((parts & kAlign) != 0) {
        AlignRun(g_frInnerImage);
    }
    if ((parts & kRecognition) != 0) {
        FrRun(g_frInnerImage);
    }
}

// Everything, of which the kernels of one kind are timed, or a network, timed as a whole.
Clock::duration TimeOnce(unsigned parts) {
    const bool isKind = (parts & kAllKernels) != kAllKernels;
    g_timedParts = isKind ? parts & kAllKernels : 0;
    g_partsTime = {};
    const auto from = Clock::now();
    RunFace(parts | kAllKernels);
    return isKind ? g_partsTime : Clock::now() - from;
}

void Time(const What& what) {
    constexpr std::chrono::milliseconds kLongEnough{400};
    constexpr size_t kEnough = 11;
    std::vector<double> times;
    TimeOnce(what.parts);
    for (const auto start = Clock::now();
         times.size() < kEnough || Clock::now() - start < kLongEnough;) {
        times.push_back(std::chrono::duration<double, std::milli>(TimeOnce(what.parts)).count());
    }
    std::sort(times.begin(), times.end());
    std::printf("RESULT\town\t%s\t%.4f\t%.4f\n", what.label, times[times.size() / 2], times[0]);
}

// Some picture, so that the networks' layers meet values of both signs where they can.
bool RunPicture() {
    std::vector<uint8_t> picture(size_t{ORVO_FR_IMAGE_SIZE} * ORVO_FR_IMAGE_SIZE);
    for (size_t i = 0; i < picture.size(); ++i) {
        picture[i] = static_cast<uint8_t>((i / ORVO_FR_IMAGE_SIZE + i) / 2);
    }
    const FrImage image{picture.data(), ORVO_FR_IMAGE_SIZE, ORVO_FR_IMAGE_SIZE, ORVO_FR_IMAGE_SIZE};
    float feature[ORVO_FR_FEATURE_LENGTH];
    g_parts = kAllKernels;
    return OrvoFrRun(&image, feature, sizeof feature) == ORVO_FR_OK;
}

int Usage() {
    std::fputs(
        "usage: face_time [--count N [align|recog|conv|pw|dw|maxpool|add|relu|ds|head]]\n"
        "       face_time --init 0|1\n",
        stderr);
    return 2;
}

int Count(const char* number, const char* name) {
    char* end = nullptr;
    const long faces = std::strtol(number, &end, 10);
    const auto what = std::find_if(std::begin(kWhats), std::end(kWhats), [name](const What& w) {
        return std::strcmp(w.name, name) == 0;
    });
    if (end == number || *end != '\0' || faces < 0 || what == std::end(kWhats)) {
        return Usage();
    }
    for (long i = 0; i < faces; ++i) {
        RunFace(what->parts);
    }
    return 0;
}

// Whole blocks are deciphered; what is left of an array is stored plain.
size_t DecipheredBytes() {
    size_t bytes = 0;
    const auto add = [&bytes](const ModelArray& array) { bytes += array.size & ~15u; };
    std::for_each(std::begin(g_alignArray), std::end(g_alignArray), add);
    std::for_each(std::begin(g_frArray), std::end(g_frArray), add);
    return bytes;
}

int Init(const char* calls) {
    if (std::strcmp(calls, "0") != 0 && std::strcmp(calls, "1") != 0) {
        return Usage();
    }
    std::printf("deciphered %zu\n", DecipheredBytes());
    return *calls == '1' && OrvoFrInit() != ORVO_FR_OK ? 1 : 0;
}

} // namespace

// __wrap_NAME stands for NAME in the networks, __real_NAME is the kernel itself.
#define ROUTED(part, name, parameters, arguments) \
    extern "C" void __real_##name parameters;     \
    extern "C" void __wrap_##name parameters;     \
    extern "C" void __wrap_##name parameters { RunPart<part> arguments; }

#define CONVOLUTION(part, name)                                                             \
    ROUTED(part, name,                                                                      \
           (const int8_t* src, uint16_t srcWidth, uint16_t srcHeight, uint16_t srcChannels, \
            const int8_t* weights, uint16_t dstChannels, uint16_t kernelSize, uint16_t pad, \
            uint16_t stride, const int32_t* bias, uint16_t outShift, int8_t* dst,           \
            uint16_t dstWidth, uint16_t dstHeight, int8_t* tmpBuffer),                      \
           (__real_##name, src, srcWidth, srcHeight, srcChannels, weights, dstChannels,     \
            kernelSize, pad, stride, bias, outShift, dst, dstWidth, dstHeight, tmpBuffer))

CONVOLUTION(kConv, arma_convolve_chw_q7)
CONVOLUTION(kPointwise, ArmAConvolve1x1s1p0ChwQ7)
CONVOLUTION(kDepthwise, arma_convolvedw_3x3_s1_chw_q7)
CONVOLUTION(kDepthwise, ArmAConvolvedwRelu3x3s1ChwQ7)

ROUTED(kMaxPool, ArmAMaxPool2x2S2ChwQ7,
       (const int8_t* src, int8_t* dst, uint32_t width, uint32_t height, uint16_t channels,
        int32_t pad, int8_t* scratch),
       (__real_ArmAMaxPool2x2S2ChwQ7, src, dst, width, height, channels, pad, scratch))
ROUTED(kMaxPool, ArmAMaxpoolK2x2S1x1ChwQ7,
       (int8_t * src, uint32_t width, uint32_t height, uint32_t channels, int8_t* dst,
        void* scratch),
       (__real_ArmAMaxpoolK2x2S1x1ChwQ7, src, width, height, channels, dst, scratch))
ROUTED(kDownsample, ArmADownsample,
       (const int8_t* src, uint32_t width, int32_t height, uint32_t channels, int8_t* dst,
        void* scratch),
       (__real_ArmADownsample, src, width, height, channels, dst, scratch))
ROUTED(kRelu, ArmAReluChwQ7, (const int8_t* src, int8_t* dst, uint32_t count),
       (__real_ArmAReluChwQ7, src, dst, count))
ROUTED(kAdd, ArmAZpadPlusChwQ7,
       (const int8_t* in1, const int8_t* in2, int8_t* dst, uint16_t in1Shift, uint16_t in2Shift,
        uint16_t outShift, uint16_t height, uint16_t width, uint16_t outChannels,
        uint16_t in2Channels, void* scratch),
       (__real_ArmAZpadPlusChwQ7, in1, in2, dst, in1Shift, in2Shift, outShift, height, width,
        outChannels, in2Channels, scratch))
ROUTED(kHead, ArmAGapQ7Chw,
       (const int8_t* src, uint32_t width, uint32_t height, uint32_t channels, uint16_t shift,
        void* scratch, int8_t* dst),
       (__real_ArmAGapQ7Chw, src, width, height, channels, shift, scratch, dst))
ROUTED(kHead, ArmAConvolveGlobalChwQ7,
       (const int8_t* src, uint32_t width, uint32_t height, uint32_t channels,
        const int8_t* weights, const int32_t* bias, uint16_t outShift, int8_t* dst, void* scratch),
       (__real_ArmAConvolveGlobalChwQ7, src, width, height, channels, weights, bias, outShift, dst,
        scratch))
ROUTED(kHead, ArmAFcQ7,
       (const int8_t* src, const int8_t* weights, uint32_t inCount, uint32_t outCount,
        uint16_t outShift, const int32_t* bias, int8_t* dst, void* scratch),
       (__real_ArmAFcQ7, src, weights, inCount, outCount, outShift, bias, dst, scratch))
ROUTED(kHead, ArmAL2Norm, (const int8_t* src, int32_t count, float* dst),
       (__real_ArmAL2Norm, src, count, dst))
ROUTED(kFlip, ArmAXorQ7, (uint8_t * data, int32_t count), (__real_ArmAXorQ7, data, count))

int main(int argc, char** argv) {
    const bool counts = argc >= 3 && argc <= 4 && std::strcmp(argv[1], "--count") == 0;
    if (argc == 3 && std::strcmp(argv[1], "--init") == 0) {
        return Init(argv[2]);
    }
    if (argc > 1 && !counts) {
        return Usage();
    }
    std::vector<uint8_t> memory(OrvoFrGetMemorySize());
    if (OrvoFrInit() != ORVO_FR_OK ||
        OrvoFrSetMemory(memory.data(), OrvoFrGetMemorySize()) != ORVO_FR_OK || !RunPicture()) {
        return 1;
    }
    if (counts) {
        return Count(argv[2], argc == 4 ? argv[3] : "face");
    }
    for (const What& what : kWhats) {
        Time(what);
    }
    return 0;
}
