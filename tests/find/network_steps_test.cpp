// SPDX-License-Identifier: MIT
// Watches the networks of the finder at work. This executable defines the kernels that it calls,
// so that the calls arrive here: each is noted with its arguments, passed on to libkova_fr's own
// kernel, and its output digested.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <initializer_list>
#include <iterator>
#include <map>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "find/golden_find_steps.h"
#include "find/look_network.h"
#include "find/network.h"
#include "find/seeded_model.h"
#include "find/step_digests.h"
#include "orvo/find_layers.h"
#include "orvo/q7_kernels.h"
#include "reference/reference_find_network.h"
#include "support/call_text.h"
#include "support/guarded_buffer.h"

namespace {

using orvo::find::Answers;
using orvo::find::kAnswerPlanes;
using orvo::find::LookAnswers;
using orvo::find::LookNetwork;
using orvo::find::LookOutputBytes;
using orvo::find::LookScratchBytes;
using orvo::find::NetworkOutputBytes;
using orvo::find::NetworkScratchBytes;
using orvo::find::RunLookNetwork;
using orvo::find::RunNetwork;
using orvo::find::Size;
using orvo_reference::FindPlace;
using orvo_reference::FindStep;
using orvo_reference::Grey;
using orvo_reference::LookKind;
using orvo_reference::StepKind;
using orvo_test::CallText;
using orvo_test::Digest;
using orvo_test::GuardedBuffer;

struct NotedCall {
    std::string text;
    uint64_t digest;
};

struct Watch {
    bool active = false;
    std::map<const void*, std::string> places;
    std::vector<NotedCall> calls;
};

Watch watch;

std::string NameOf(const void* address) {
    const auto place = watch.places.find(address);
    if (place != watch.places.end()) {
        return place->second;
    }
    for (const ModelArray& array : orvo::find::g_findArray) {
        if (array.data == address) {
            return array.name;
        }
    }
    return "an unknown address";
}

template <typename Kernel, typename... Args>
void Forward(const char* name, const void* output, size_t outputSize, Args... args) {
    void* symbol = dlsym(RTLD_NEXT, name);
    if (symbol == nullptr) {
        std::abort();
    }
    reinterpret_cast<Kernel*>(symbol)(args...);
    if (watch.active) {
        watch.calls.push_back({CallText(NameOf, name, args...), Digest(output, outputSize)});
    }
}

} // namespace

#define ORVO_WATCHED_CONVOLUTION(name)                                                             \
    extern "C" void name(const int8_t* src, uint16_t srcWidth, uint16_t srcHeight,                 \
                         uint16_t srcChannels, const int8_t* weights, uint16_t dstChannels,        \
                         uint16_t kernelSize, uint16_t pad, uint16_t stride, const int32_t* bias,  \
                         uint16_t outShift, int8_t* dst, uint16_t dstWidth, uint16_t dstHeight,    \
                         int8_t* tmpBuffer) {                                                      \
        Forward<decltype(name)>(#name, dst, size_t{dstChannels} * dstWidth * dstHeight, src,       \
                                srcWidth, srcHeight, srcChannels, weights, dstChannels,            \
                                kernelSize, pad, stride, bias, outShift, dst, dstWidth, dstHeight, \
                                tmpBuffer);                                                        \
    }

ORVO_WATCHED_CONVOLUTION(ArmAConvolve1x1s1p0ChwQ7)
ORVO_WATCHED_CONVOLUTION(arma_convolvedw_3x3_s1_chw_q7)

extern "C" void ArmAMaxPool2x2S2ChwQ7(const int8_t* src, int8_t* dst, uint32_t width,
                                      uint32_t height, uint16_t channels, int32_t pad,
                                      int8_t* scratch) {
    Forward<decltype(ArmAMaxPool2x2S2ChwQ7)>("ArmAMaxPool2x2S2ChwQ7", dst,
                                             size_t{channels} * (width / 2) * (height / 2), src,
                                             dst, width, height, channels, pad, scratch);
}

extern "C" void ArmAXorQ7(uint8_t* data, int32_t count) {
    Forward<decltype(ArmAXorQ7)>("ArmAXorQ7", data, static_cast<size_t>(count), data, count);
}

extern "C" void ArmAFcQ7(const int8_t* src, const int8_t* weights, uint32_t inCount,
                         uint32_t outCount, uint16_t outShift, const int32_t* bias, int8_t* dst,
                         void* scratch) {
    Forward<decltype(ArmAFcQ7)>("ArmAFcQ7", dst, outCount, src, weights, inCount, outCount,
                                outShift, bias, dst, scratch);
}

extern "C" void ArmAReluChwQ7(const int8_t* src, int8_t* dst, uint32_t count) {
    Forward<decltype(ArmAReluChwQ7)>("ArmAReluChwQ7", dst, count, src, dst, count);
}

namespace {

std::string N(int value) { return std::to_string(value); }

std::string Call(const char* kernel, std::initializer_list<std::string> words) {
    std::string text = std::string(kernel) + "(";
    const char* separator = "";
    for (const std::string& word : words) {
        text += separator + word;
        separator = ", ";
    }
    return text + ")";
}

std::string Name(FindPlace place) {
    switch (place) {
        case FindPlace::kA:
            return "A";
        case FindPlace::kA2:
        case FindPlace::kAnswer8:
        case FindPlace::kPart8:
        case FindPlace::kParts:
            return "A2";
        case FindPlace::kB:
        case FindPlace::kRest:
            return "B";
        case FindPlace::kB2:
            return "B2";
        case FindPlace::kAnswer16:
            return "answer16";
        case FindPlace::kPart16:
            return "part16";
        case FindPlace::kHeat:
            return "heat";
    }
    throw std::logic_error("no such place");
}

// The call that a step is, on planes of a picture of that size.
std::string CallOf(const FindStep& s, Size picture) {
    const std::string src = Name(s.src);
    const std::string dst = Name(s.dst);
    const int w = picture.width / s.stride;
    const int h = picture.height / s.stride;
    const std::string count = N(s.inChannels * w * h);
    const std::string layer = N(s.layer);
    const auto convolution = [&](const char* kernel, int size) {
        return Call(kernel, {src, N(w), N(h), N(s.inChannels), "g_findWeights" + layer,
                             N(s.outChannels), N(size), N(size / 2), "1", "g_findBias" + layer,
                             N(s.outShift), dst, N(w), N(h), "scratch"});
    };
    switch (s.kind) {
        case StepKind::kGreyToQ7:
            return Call("ArmAXorQ7", {src, count});
        case StepKind::kPointwise:
            return convolution("ArmAConvolve1x1s1p0ChwQ7", 1);
        case StepKind::kDepthwise:
            return convolution("arma_convolvedw_3x3_s1_chw_q7", 3);
        case StepKind::kRectify:
            return Call("ArmAReluChwQ7", {src, dst, count});
        case StepKind::kFullyConnected:
            return Call("ArmAFcQ7", {src, "g_findWeights" + layer, count, N(s.outChannels),
                                     N(s.outShift), "g_findBias" + layer, dst, "scratch"});
        case StepKind::kMaxPoolStride2:
            return Call("ArmAMaxPool2x2S2ChwQ7",
                        {src, dst, N(w), N(h), N(s.inChannels), "0", "scratch"});
        default:
            throw std::logic_error("no step of this network");
    }
}

// The outputs' quarters, the scratch, and what else lies behind the second quarter's beginning.
struct Memory {
    GuardedBuffer outputs, scratch;

    Memory(const Grey& plane, int patch, uint32_t outputBytes, uint32_t scratchBytes,
           GuardedBuffer::Place place)
        : outputs(outputBytes, place), scratch(scratchBytes, place) {
        const std::vector<uint8_t> patches = orvo_reference::PatchesOf(plane, patch);
        std::copy(patches.begin(), patches.end(), outputs.bytes());
    }
    void Watch(const std::map<std::string, ptrdiff_t>& behindA2) {
        const auto quarter = static_cast<ptrdiff_t>(outputs.size() / 4);
        watch = {};
        watch.places = {{outputs.q7(), "A"},
                        {outputs.q7() + quarter, "A2"},
                        {outputs.q7() + 2 * quarter, "B"},
                        {outputs.q7() + 3 * quarter, "B2"},
                        {scratch.q7(), "scratch"}};
        for (const auto& [name, offset] : behindA2) {
            watch.places[outputs.q7() + quarter + offset] = name;
        }
        watch.active = true;
    }
};

struct Watched {
    std::vector<NotedCall> calls;
    std::vector<int8_t> answer8, answer16;
};

// Outputs and scratch of exactly their sizes between unmapped pages.
Watched WatchRun(const Grey& plane, GuardedBuffer::Place place) {
    const Size size = {plane.width, plane.height};
    Memory memory(plane, 4, NetworkOutputBytes(size), NetworkScratchBytes(size), place);
    const auto planeBytes = static_cast<ptrdiff_t>(plane.width / 4) * (plane.height / 4);
    memory.Watch({{"answer16", kAnswerPlanes * planeBytes / 4}});
    const Answers answers = RunNetwork(size, {memory.outputs.q7(), memory.scratch.q7()});
    watch.active = false;
    return {watch.calls,
            {answers.stride8, answers.stride8 + kAnswerPlanes * planeBytes / 4},
            {answers.stride16, answers.stride16 + kAnswerPlanes * planeBytes / 16}};
}

// The same of a network that looks: `answer8` is the heat, `answer16` the rest.
Watched WatchLook(LookKind kind, const Grey& look, GuardedBuffer::Place place) {
    const bool isWide = kind == LookKind::kWide;
    const auto network = isWide ? LookNetwork::kWide : LookNetwork::kClose;
    Memory memory(look, isWide ? 4 : 8, LookOutputBytes(), LookScratchBytes(), place);
    memory.Watch({{"part16", 16 * 64}, {"heat", LookOutputBytes() / 8}});
    const LookAnswers answers = RunLookNetwork(network, {memory.outputs.q7(), memory.scratch.q7()});
    watch.active = false;
    return {watch.calls,
            {answers.heat, answers.heat + ptrdiff_t{kAnswerPlanes} * 64},
            {answers.rest, answers.rest + kAnswerPlanes}};
}

Grey GoldenPlane(int picture) {
    return orvo_reference::SeededGrey(picture, orvo_test::kGoldenWidth, orvo_test::kGoldenHeight);
}

Grey GoldenLook(int picture) { return orvo_reference::SeededGrey(picture, 64, 64); }

void ExpectCalls(const Watched& run, const std::vector<FindStep>& steps, Size picture) {
    ASSERT_EQ(run.calls.size(), steps.size());
    for (size_t i = 0; i < steps.size(); ++i) {
        EXPECT_EQ(run.calls[i].text, CallOf(steps[i], picture)) << i;
    }
}

template <size_t kSteps>
void ExpectGolden(const Watched& run, const uint64_t (&golden)[kSteps]) {
    ASSERT_EQ(run.calls.size(), kSteps);
    for (size_t i = 0; i < kSteps; ++i) {
        ASSERT_EQ(run.calls[i].digest, golden[i])
            << "step " << i << " is the first wrong one: " << run.calls[i].text;
    }
}

TEST(FindNetwork, EveryCallHasItsLayersArguments) {
    orvo_test::Install(orvo_reference::SeededFindModel());
    const Grey plane = GoldenPlane(0);
    const Watched run = WatchRun(plane, GuardedBuffer::kAtEnd);
    ExpectCalls(run, orvo_reference::FindSteps(), {plane.width, plane.height});
}

TEST(LookNetwork, EveryCallHasItsLayersArguments) {
    orvo_test::Install(orvo_reference::SeededFindModel());
    for (const LookKind kind : {LookKind::kWide, LookKind::kClose}) {
        const Watched run = WatchLook(kind, GoldenLook(0), GuardedBuffer::kAtEnd);
        ExpectCalls(run, orvo_reference::LookSteps(kind), {64, 64});
    }
}

TEST(FindNetwork, EveryStepGivesTheGoldenBytes) {
    orvo_test::Install(orvo_reference::SeededFindModel());
    for (int picture = 0; picture < 2; ++picture) {
        ExpectGolden(WatchRun(GoldenPlane(picture), GuardedBuffer::kAtStart),
                     orvo_test::kFindGolden[picture]);
    }
}

TEST(LookNetwork, EveryStepGivesTheGoldenBytes) {
    orvo_test::Install(orvo_reference::SeededFindModel());
    for (int picture = 0; picture < 2; ++picture) {
        ExpectGolden(WatchLook(LookKind::kWide, GoldenLook(picture), GuardedBuffer::kAtStart),
                     orvo_test::kLookGolden[picture]);
        ExpectGolden(WatchLook(LookKind::kClose, GoldenLook(picture), GuardedBuffer::kAtStart),
                     orvo_test::kCloseGolden[picture]);
    }
}

TEST(LookNetwork, AnswersAreTheReferenceNetworks) {
    const orvo_reference::Model model = orvo_reference::SeededFindModel();
    orvo_test::Install(model);
    for (int picture = 0; picture < 2; ++picture) {
        const Grey look = GoldenLook(picture);
        for (const LookKind kind : {LookKind::kWide, LookKind::kClose}) {
            const Watched run = WatchLook(kind, look, GuardedBuffer::kAtEnd);
            const auto expected =
                orvo_reference::RunLook(kind, model, look, [](int, const void*, size_t) {});
            EXPECT_EQ(run.answer8, expected.heat);
            EXPECT_EQ(run.answer16, expected.rest);
        }
    }
}

TEST(FindNetwork, AnswersAreTheReferenceNetworksOnPlanesOfEveryShape) {
    const orvo_reference::Model model = orvo_reference::SeededFindModel();
    orvo_test::Install(model);
    for (const Size size :
         {Size{16, 16}, {32, 16}, {16, 48}, {112, 16}, {48, 80}, {80, 64}, {176, 32}}) {
        const Grey plane = orvo_reference::SeededGrey(1, size.width, size.height);
        const Watched run = WatchRun(plane, GuardedBuffer::kAtEnd);
        const orvo_reference::FindAnswers expected =
            orvo_reference::RunFind(model, plane, [](int, const void*, size_t) {});
        EXPECT_EQ(run.answer8, expected.stride8) << size.width << " x " << size.height;
        EXPECT_EQ(run.answer16, expected.stride16) << size.width << " x " << size.height;
    }
}

TEST(FindGoldens, AreTheReferenceNetworks) {
    for (int picture = 0; picture < 2; ++picture) {
        EXPECT_EQ(orvo_test::FindDigests(picture),
                  std::vector<uint64_t>(std::begin(orvo_test::kFindGolden[picture]),
                                        std::end(orvo_test::kFindGolden[picture])));
        EXPECT_EQ(orvo_test::WideDigests(picture),
                  std::vector<uint64_t>(std::begin(orvo_test::kLookGolden[picture]),
                                        std::end(orvo_test::kLookGolden[picture])));
        EXPECT_EQ(orvo_test::CloseDigests(picture),
                  std::vector<uint64_t>(std::begin(orvo_test::kCloseGolden[picture]),
                                        std::end(orvo_test::kCloseGolden[picture])));
    }
}

// A wrong layer shows only where the activations carry a signal.
void ExpectLively(int step, const void* output, size_t size) {
    const auto* values = static_cast<const int8_t*>(output);
    const std::set<int8_t> distinct(values, values + size);
    EXPECT_GE(distinct.size(), std::min<size_t>(size / 2, 20)) << "step " << step;
    const auto clipped =
        std::count_if(values, values + size, [](int8_t v) { return v == 127 || v == -128; });
    EXPECT_LT(static_cast<double>(clipped), 0.7 * static_cast<double>(size)) << "step " << step;
}

TEST(FindGoldens, ComeFromLivelyActivations) {
    const orvo_reference::Model model = orvo_reference::SeededFindModel();
    for (int picture = 0; picture < 2; ++picture) {
        orvo_reference::RunFind(model, GoldenPlane(picture), ExpectLively);
        for (const LookKind kind : {LookKind::kWide, LookKind::kClose}) {
            orvo_reference::RunLook(kind, model, GoldenLook(picture), ExpectLively);
        }
    }
}

TEST(FindGoldens, DifferBetweenThePicturesAtEveryStep) {
    for (size_t i = 0; i < std::size(orvo_test::kFindGolden[0]); ++i) {
        EXPECT_NE(orvo_test::kFindGolden[0][i], orvo_test::kFindGolden[1][i]) << i;
    }
    for (size_t i = 0; i < std::size(orvo_test::kLookGolden[0]); ++i) {
        EXPECT_NE(orvo_test::kLookGolden[0][i], orvo_test::kLookGolden[1][i]) << i;
        EXPECT_NE(orvo_test::kCloseGolden[0][i], orvo_test::kCloseGolden[1][i]) << i;
    }
}

// The one list of the layers, against the tests' own.
struct Listed {
    std::string kind;
    int number, inputs, stride, outputs, shift;

    bool operator==(const Listed&) const = default;
};

#define ORVO_LISTED_LAYER(kind, number, inputs, stride, outputs, shift) \
    {#kind, number, inputs, stride, outputs, shift},
#define ORVO_LISTED_STEP(kind, channels, stride) {#kind, -1, channels, stride, 0, 0},
const std::vector<Listed> kFindList = {ORVO_FIND_NETWORK(ORVO_LISTED_LAYER, ORVO_LISTED_STEP)};
const std::vector<Listed> kLookList = {ORVO_LOOK_NETWORK(ORVO_LISTED_LAYER, ORVO_LISTED_STEP)};
const std::vector<Listed> kCloseList = {ORVO_CLOSE_NETWORK(ORVO_LISTED_LAYER, ORVO_LISTED_STEP)};

// Lines that nothing is done for: they say what is read again, and what is an answer.
bool IsMark(const Listed& line) {
    return line.kind == "Keep" || line.kind == "Return" || line.kind == "Answer" ||
           line.kind == "Part";
}

const char* ListedKind(StepKind kind) {
    switch (kind) {
        case StepKind::kGreyToQ7:
            return "Patches";
        case StepKind::kPointwise:
            return "Pointwise";
        case StepKind::kDepthwise:
            return "Depthwise";
        case StepKind::kMaxPoolStride2:
            return "MaxPool2";
        case StepKind::kFullyConnected:
            return "FullyConnected";
        default:
            return "Rectify";
    }
}

void ExpectListed(const std::vector<Listed>& all, const std::vector<FindStep>& steps) {
    std::vector<Listed> listed;
    std::ranges::copy_if(all, std::back_inserter(listed), std::not_fn(IsMark));
    ASSERT_EQ(listed.size(), steps.size());
    for (size_t i = 0; i < steps.size(); ++i) {
        const FindStep& step = steps[i];
        const bool isLayer = step.layer >= 0;
        EXPECT_EQ(listed[i],
                  (Listed{ListedKind(step.kind), step.layer, step.inChannels, step.stride,
                          isLayer ? step.outChannels : 0, isLayer ? step.outShift : 0}))
            << i;
    }
}

// Each mark with the last layer before it.
std::vector<std::pair<std::string, int>> Marks(const std::vector<Listed>& all) {
    std::vector<std::pair<std::string, int>> marks;
    int number = -1;
    for (const Listed& line : all) {
        number = std::max(number, line.number);
        if (IsMark(line)) {
            marks.emplace_back(line.kind, number);
        }
    }
    return marks;
}

using ExpectedMarks = std::vector<std::pair<std::string, int>>;

ExpectedMarks LookMarks(int first) {
    return {{"Keep", first + 18},  {"Answer", first + 23}, {"Return", first + 23},
            {"Part", first + 24},  {"Return", first + 24}, {"Part", first + 31},
            {"Answer", first + 32}};
}

TEST(FindList, IsTheTestsOwn) {
    ExpectListed(kFindList, orvo_reference::FindSteps());
    ExpectListed(kLookList, orvo_reference::LookSteps(LookKind::kWide));
    ExpectListed(kCloseList, orvo_reference::LookSteps(LookKind::kClose));
    EXPECT_EQ(Marks(kFindList),
              (ExpectedMarks{{"Keep", 12}, {"Answer", 15}, {"Return", 15}, {"Answer", 26}}));
    EXPECT_EQ(Marks(kLookList), LookMarks(27));
    EXPECT_EQ(Marks(kCloseList), LookMarks(60));
}

} // namespace
