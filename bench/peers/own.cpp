// SPDX-License-Identifier: MIT
//
// Our networks, and the times of their layers in the course of whole faces: what a layer takes may
// depend on its weights and values. The linker routes the networks' kernel calls through here (--wrap).
#include <orvo/orvo_fr.h>

#include <stdexcept>

#include "bench/network_input.h"
#include "bench/peers/peer.h"
#include "compute_a/routines.h"
#include "orvo/q7_kernels.h"
#include "timing/layer_clock.h"

// __wrap_NAME stands for NAME in the networks, __real_NAME is the kernel itself.
#define ORVO_PLAIN(...) __VA_ARGS__
#define ORVO_ROUTE(part, name, parameters, arguments)                    \
    extern "C" void __real_##name parameters;                            \
    extern "C" void __wrap_##name parameters;                            \
    extern "C" void __wrap_##name parameters {                           \
        orvo_timing::RunPart<part>(__real_##name, ORVO_PLAIN arguments); \
    }
#include "timing/routed_kernels.h"

namespace orvo_bench {
namespace {

using namespace orvo_timing;

constexpr struct {
    const char* name;
    Part part;
} kKinds[] = {{"conv", kConv},     {"pw", kPointwise}, {"dw", kDepthwise}, {"maxpool", kMaxPool},
              {"ds", kDownsample}, {"relu", kRelu},    {"add", kAdd},      {"head", kHead}};

void Align() { AlignRun(AlignInput()); }
void Recognise() { FrRun(RecognitionInput()); }

KindTimes TimeOwnKinds() {
    KindTimes times;
    for (const auto& kind : kKinds) {
        times[kind.name] = Milliseconds(TimeKinds(kind.part, [] {
            Align();
            Recognise();
        }));
    }
    return times;
}

} // namespace

Contender Own() {
    static std::vector<uint8_t> memory(OrvoFrGetMemorySize());
    if (OrvoFrInit() != ORVO_FR_OK ||
        OrvoFrSetMemory(memory.data(), OrvoFrGetMemorySize()) != ORVO_FR_OK) {
        throw std::runtime_error("the core could not be initialised");
    }
    return {std::string("own, ") + orvo::ChosenRoutines().name, Align, Recognise, TimeOwnKinds};
}

} // namespace orvo_bench
