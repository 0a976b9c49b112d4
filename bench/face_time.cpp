// SPDX-License-Identifier: MIT
//
// One face, timed or merely run: AlignRun() and FrRun() as the library has them, or only the layers
// of one kind, in their real order and shapes.
//
//   face_time                     prints RESULT<tab>own<tab>what<tab>median_ms<tab>least_ms;
//                                 layers of one kind are timed in the course of whole faces
//   face_time --count N [what]    runs N faces, or that part of each, and measures nothing: for
//                                 counting instructions under an emulator. "run" is OrvoFrRun() on
//                                 a picture: both networks and all that is around them
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

#include "bench/network_input.h"
#include "orvo/model_store.h"
#include "orvo/orvo_fr.h"
#include "orvo/q7_kernels.h"
#include "timing/layer_clock.h"

namespace {

using namespace orvo_timing;

// Beside the kinds of kernels.
constexpr unsigned kAlign = 1u << 9;
constexpr unsigned kRecognition = 1u << 10;
constexpr unsigned kNetworks = kAlign | kRecognition;
constexpr unsigned kRun = 1u << 11;

struct What {
    const char* name;  // on the command line
    const char* label; // in the results
    unsigned parts;
};

constexpr What kWhats[] = {
    {"run", "run", kRun | kAllKernels},         {"face", "face", kNetworks | kAllKernels},
    {"align", "align", kAlign | kAllKernels},   {"recog", "recog", kRecognition | kAllKernels},
    {"conv", "kind:conv", kNetworks | kConv},   {"pw", "kind:pw", kNetworks | kPointwise},
    {"dw", "kind:dw", kNetworks | kDepthwise},  {"maxpool", "kind:maxpool", kNetworks | kMaxPool},
    {"add", "kind:add", kNetworks | kAdd},      {"relu", "kind:relu", kNetworks | kRelu},
    {"ds", "kind:ds", kNetworks | kDownsample}, {"head", "kind:head", kNetworks | kHead},
};

// Some picture; the networks' layers meet values of both signs in it where they can.
const std::vector<uint8_t>& Picture() {
    static const auto picture = [] {
        std::vector<uint8_t> levels(size_t{ORVO_FR_IMAGE_SIZE} * ORVO_FR_IMAGE_SIZE);
        for (size_t i = 0; i < levels.size(); ++i) {
            levels[i] = static_cast<uint8_t>((i / ORVO_FR_IMAGE_SIZE + i) / 2);
        }
        return levels;
    }();
    return picture;
}

bool RunPicture() {
    const FrImage image{Picture().data(), ORVO_FR_IMAGE_SIZE, ORVO_FR_IMAGE_SIZE,
                        ORVO_FR_IMAGE_SIZE};
    float feature[ORVO_FR_FEATURE_LENGTH];
    g_parts = kAllKernels;
    return OrvoFrRun(&image, feature, sizeof feature) == ORVO_FR_OK;
}

void RunFace(unsigned parts) {
    g_parts = parts;
    if ((parts & kRun) != 0) {
        RunPicture();
    }
    if ((parts & kAlign) != 0) {
        AlignRun(orvo_bench::AlignInput());
    }
    if ((parts & kRecognition) != 0) {
        FrRun(orvo_bench::RecognitionInput());
    }
}

// Everything, of which the kernels of one kind are timed, or a network, timed as a whole.
Clock::duration TimeOnce(unsigned parts) {
    const auto face = [parts] { RunFace(parts | kAllKernels); };
    const bool isKind = (parts & kAllKernels) != kAllKernels;
    return isKind ? TimeKinds(parts & kAllKernels, face) : TimeWhole(face);
}

void Time(const What& what) {
    constexpr std::chrono::milliseconds kLongEnough{400};
    constexpr size_t kEnough = 11;
    std::vector<double> times;
    TimeOnce(what.parts);
    for (const auto start = Clock::now();
         times.size() < kEnough || Clock::now() - start < kLongEnough;) {
        times.push_back(Milliseconds(TimeOnce(what.parts)));
    }
    std::sort(times.begin(), times.end());
    std::printf("RESULT\town\t%s\t%.4f\t%.4f\n", what.label, times[times.size() / 2], times[0]);
}

int Usage() {
    std::fputs(
        "usage: face_time [--count N [run|align|recog|conv|pw|dw|maxpool|add|relu|ds|head]]\n"
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
#define ORVO_PLAIN(...) __VA_ARGS__
#define ORVO_ROUTE(part, name, parameters, arguments) \
    extern "C" void __real_##name parameters;         \
    extern "C" void __wrap_##name parameters;         \
    extern "C" void __wrap_##name parameters { RunPart<part>(__real_##name, ORVO_PLAIN arguments); }
#include "timing/routed_kernels.h"

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
