// SPDX-License-Identifier: MIT
#include "proof/network_shapes.h"

#include <algorithm>
#include <tuple>

#include "orvo/find_layers.h"
#include "orvo/network_layers.h"

namespace orvo_proof {
namespace {

using orvo_test::ConvShape;

// A picture whose sides are odd multiples of 16, so that planes of odd sides come up.
constexpr int kPictureWidth = 176;
constexpr int kPictureHeight = 112;
constexpr int kLookSide = 64;

enum class Kind {
    Convolution,
    Pointwise,
    Depthwise,
    DepthwiseRelu,
    Global,
    FullyConnected,
    MaxPool1,
    MaxPool2,
    Sample,
    Other
};
constexpr Kind Keep = Kind::Other;
constexpr Kind Rectify = Kind::Other;
constexpr Kind Average = Kind::Other;
constexpr Kind Normalise = Kind::Other;
constexpr Kind Patches = Kind::Other;
constexpr Kind Return = Kind::Other;
constexpr Kind Part = Kind::Other;
constexpr Kind Answer = Kind::Other;
using enum Kind;

struct Line {
    Kind kind;
    int inputs, width, height, outputs;
    uint32_t shift;
};

#define ORVO_LAYER(kind, number, inputs, side, outputs, shift) \
    {kind, inputs, side, side, outputs, shift},
#define ORVO_STEP(kind, channels, side, shift) {kind, channels, side, side, channels, shift},
constexpr Line kRecogniser[] = {ORVO_ALIGN_NETWORK(ORVO_LAYER, ORVO_STEP, ORVO_NO_LAYER)
                                    ORVO_FR_NETWORK(ORVO_LAYER, ORVO_STEP, ORVO_NO_LAYER)};
#undef ORVO_LAYER
#undef ORVO_STEP

// The finder's lists have strides in place of sides.
struct StridedLine {
    Kind kind;
    int inputs, stride, outputs;
    uint32_t shift;
};

#define ORVO_LAYER(kind, number, inputs, stride, outputs, shift) \
    {kind, inputs, stride, outputs, shift},
#define ORVO_STEP(kind, channels, stride) {kind, channels, stride, channels, 0},
constexpr StridedLine kFinder[] = {ORVO_FIND_NETWORK(ORVO_LAYER, ORVO_STEP)};
constexpr StridedLine kLook[] = {ORVO_LOOK_NETWORK(ORVO_LAYER, ORVO_STEP)};
#undef ORVO_LAYER
#undef ORVO_STEP

// The networks write the branch first or the shortcut first: both are taken.
#define ORVO_SUM(channels, side, shortcut, branchShift, shortcutShift, outShift) \
    {branchShift, shortcutShift, outShift}, {shortcutShift, branchShift, outShift},
constexpr Shifts kSums[] = {ORVO_ALIGN_NETWORK(ORVO_NO_LAYER, ORVO_NO_LAYER, ORVO_SUM)
                                ORVO_FR_NETWORK(ORVO_NO_LAYER, ORVO_NO_LAYER, ORVO_SUM)};
#undef ORVO_SUM

auto Key(const Line& line) {
    return std::tuple(line.kind, line.inputs, line.width, line.height, line.outputs, line.shift);
}

std::vector<Line> Once(std::vector<Line> lines) {
    std::sort(lines.begin(), lines.end(),
              [](const Line& a, const Line& b) { return Key(a) < Key(b); });
    lines.erase(std::unique(lines.begin(), lines.end(),
                            [](const Line& a, const Line& b) { return Key(a) == Key(b); }),
                lines.end());
    return lines;
}

std::vector<Line> FinderLines() {
    std::vector<Line> lines;
    const auto add = [&lines](const StridedLine& l, int width, int height) {
        lines.push_back(
            {l.kind, l.inputs, width / l.stride, height / l.stride, l.outputs, l.shift});
    };
    for (const StridedLine& line : kFinder) {
        add(line, kPictureWidth, kPictureHeight);
    }
    for (const StridedLine& line : kLook) {
        add(line, kLookSide, kLookSide);
    }
    return Once(lines);
}

std::vector<Line> Together() {
    std::vector<Line> lines = FinderLines();
    lines.insert(lines.end(), std::begin(kRecogniser), std::end(kRecogniser));
    return Once(lines);
}

const orvo_test::ChwSubject* SubjectOf(Kind kind) {
    switch (kind) {
        case Convolution:
            return &orvo_test::kGenericConv;
        case Pointwise:
            return &orvo_test::kPointwiseConv;
        case Depthwise:
            return &orvo_test::kDepthwiseConv;
        case DepthwiseRelu:
            return &orvo_test::kDepthwiseReluConv;
        default:
            return nullptr;
    }
}

std::vector<NetworkConvolution> ConvolutionsOf(const std::vector<Line>& lines) {
    std::vector<NetworkConvolution> convolutions;
    for (const Line& line : lines) {
        const orvo_test::ChwSubject* subject = SubjectOf(line.kind);
        if (subject == nullptr) {
            continue;
        }
        ConvShape shape;
        shape.srcWidth = shape.dstWidth = line.width;
        shape.srcHeight = shape.dstHeight = line.height;
        shape.srcChannels = line.inputs;
        shape.dstChannels = line.outputs;
        shape.kernelSize = line.kind == Pointwise ? 1 : 3;
        shape.pad = line.kind == Pointwise ? 0 : 1;
        shape.outShift = line.shift;
        convolutions.push_back({subject, shape});
    }
    return convolutions;
}

} // namespace

std::vector<NetworkConvolution> RecogniserConvolutions() {
    return ConvolutionsOf(Once({std::begin(kRecogniser), std::end(kRecogniser)}));
}

std::vector<NetworkConvolution> FinderConvolutions() { return ConvolutionsOf(FinderLines()); }

std::vector<Vectors> NetworkVectors() {
    std::vector<Vectors> vectors;
    for (const Line& line : Together()) {
        if (line.kind == Global || line.kind == FullyConnected) {
            const bool global = line.kind == Global;
            const int inputs = global ? line.width * line.height : line.inputs;
            vectors.push_back({global, static_cast<uint32_t>(inputs),
                               static_cast<uint32_t>(line.outputs), line.shift});
        }
    }
    return vectors;
}

std::vector<NetworkPooling> NetworkPoolings() {
    std::vector<NetworkPooling> poolings;
    for (const Line& line : Together()) {
        const PlaneSize size = {static_cast<uint32_t>(line.width),
                                static_cast<uint32_t>(line.height),
                                static_cast<uint32_t>(line.inputs)};
        switch (line.kind) {
            case MaxPool1:
                poolings.push_back({PoolingKind::kMaximumStride1, size});
                break;
            case MaxPool2:
                poolings.push_back({PoolingKind::kMaximumStride2, size});
                break;
            case Sample:
                poolings.push_back({PoolingKind::kSample, size});
                break;
            default:
                break;
        }
    }
    return poolings;
}

std::vector<Shifts> NetworkShifts() {
    const auto key = [](const Shifts& s) { return std::tuple(s.in1, s.in2, s.out); };
    std::vector<Shifts> shifts(std::begin(kSums), std::end(kSums));
    std::sort(shifts.begin(), shifts.end(),
              [key](const Shifts& a, const Shifts& b) { return key(a) < key(b); });
    shifts.erase(std::unique(shifts.begin(), shifts.end(),
                             [key](const Shifts& a, const Shifts& b) { return key(a) == key(b); }),
                 shifts.end());
    return shifts;
}

} // namespace orvo_proof
