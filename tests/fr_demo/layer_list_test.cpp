// SPDX-License-Identifier: MIT
//
// The library's list of its layers against the copy that the tests have of their own. That the
// networks call their kernels accordingly is compared in network_steps_test.cpp.
#include <gtest/gtest.h>

#include <initializer_list>
#include <stdexcept>
#include <string>
#include <vector>

#include "orvo/network_layers.h"
#include "reference/reference_layers.h"

namespace {

using orvo_reference::Place;
using orvo_reference::Step;
using orvo_reference::StepKind;
using Lines = std::vector<std::string>;

std::string Line(const std::string& kind, std::initializer_list<int> numbers) {
    std::string line = kind;
    for (const int number : numbers) {
        line += " " + std::to_string(number);
    }
    return line;
}

#define ORVO_LAYER(kind, number, inputs, side, outputs, shift) \
    Line(#kind, {number, inputs, side, outputs, shift}),
#define ORVO_STEP(kind, channels, side, shift) Line(#kind, {channels, side, shift}),
#define ORVO_ADD(channels, side, shortcutChannels, branchShift, shortcutShift, outShift) \
    Line("Add", {channels, side, shortcutChannels, branchShift, shortcutShift, outShift}),

const Lines kAlign = {ORVO_ALIGN_NETWORK(ORVO_LAYER, ORVO_STEP, ORVO_ADD)};
const Lines kFr = {ORVO_FR_NETWORK(ORVO_LAYER, ORVO_STEP, ORVO_ADD)};

const char* NameOf(StepKind kind) {
    switch (kind) {
        case StepKind::kConvolution:
            return "Convolution";
        case StepKind::kPointwise:
            return "Pointwise";
        case StepKind::kDepthwise:
            return "Depthwise";
        case StepKind::kDepthwiseRectified:
            return "DepthwiseRelu";
        case StepKind::kRectify:
            return "Rectify";
        case StepKind::kMaxPoolStride1:
            return "MaxPool1";
        case StepKind::kMaxPoolStride2:
            return "MaxPool2";
        case StepKind::kDownsample:
            return "Sample";
        case StepKind::kGlobalAverage:
            return "Average";
        case StepKind::kGlobal:
            return "Global";
        case StepKind::kFullyConnected:
            return "FullyConnected";
        case StepKind::kUnitLength:
            return "Normalise";
        default:
            throw std::logic_error("a step that no list has by that name");
    }
}

// A residual addition. The branch is what the step before it has made; the shortcut's planes are
// those that the list keeps behind the step that made them.
void PutAddition(const std::vector<Step>& steps, size_t at, std::vector<Lines>& lines) {
    const Step& step = steps.at(at);
    const bool branchIsFirst = step.src == steps.at(at - 1).dst;
    const Place shortcut = branchIsFirst ? step.second : step.src;
    const int shortcutChannels = branchIsFirst ? step.inChannels : step.outChannels;
    size_t origin = at - 1;
    while (steps.at(origin).dst != shortcut) {
        --origin;
    }
    lines.at(origin).push_back(Line("Keep", {shortcutChannels, step.size, 0}));
    lines.at(at).push_back(
        Line("Add", {step.outChannels, step.size, shortcutChannels,
                     branchIsFirst ? step.firstShift : step.secondShift,
                     branchIsFirst ? step.secondShift : step.firstShift, step.outShift}));
}

// The lines that a list must have for these steps.
Lines LinesOf(const std::vector<Step>& steps) {
    std::vector<Lines> lines(steps.size());
    for (size_t i = 0; i < steps.size(); ++i) {
        const Step& s = steps[i];
        if (s.kind == StepKind::kGreyToQ7) {
            continue; // of the picture, in no list
        }
        if (s.kind == StepKind::kAdd) {
            PutAddition(steps, i, lines);
        } else if (s.layer >= 0) {
            lines[i].push_back(
                Line(NameOf(s.kind), {s.layer, s.inChannels, s.size, s.outChannels, s.outShift}));
        } else {
            lines[i].push_back(Line(NameOf(s.kind), {s.inChannels, s.size, s.outShift}));
        }
    }
    Lines all;
    for (const Lines& step : lines) {
        all.insert(all.end(), step.begin(), step.end());
    }
    return all;
}

TEST(LayerList, OfTheAlignmentNetworkIsTheReferences) {
    EXPECT_EQ(kAlign, LinesOf(orvo_reference::AlignSteps()));
}

TEST(LayerList, OfTheRecognitionNetworkIsTheReferences) {
    EXPECT_EQ(kFr, LinesOf(orvo_reference::FrSteps()));
}

} // namespace
