// SPDX-License-Identifier: MIT
#include "find/quality.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>

#include "find/answer_tables.h"
#include "find/settings.h"
#include "orvo/orvo_find.h"

namespace orvo::find {
namespace {

constexpr int32_t kCrop = ORVO_FIND_CROP_SIZE;
// Light is measured in the middle of the crop, where there is nothing but the face.
constexpr int32_t kMargin = 16;
constexpr int32_t kMiddlePixels = (kCrop - 2 * kMargin) * (kCrop - 2 * kMargin);

int64_t SquareRoot(int64_t value) {
    int64_t root = 0;
    for (int64_t bit = int64_t{1} << 31; bit > 0; bit >>= 1) {
        if ((root + bit) * (root + bit) <= value) {
            root += bit;
        }
    }
    return root;
}

// The standard deviation of a crop's grey levels, in sixteenths.
int64_t Deviation(const uint8_t* crop) {
    constexpr int64_t kPixels = kCrop * kCrop;
    int32_t sum = 0;
    int32_t squares = 0; // at most 9216 * 255^2
    for (int32_t i = 0; i < kPixels; ++i) {
        sum += crop[i];
        squares += crop[i] * crop[i];
    }
    return SquareRoot(256 * (kPixels * squares - int64_t{sum} * sum)) / kPixels;
}

// How much the grey levels bend along rows and columns, against how much there is to see: sixteenths.
int32_t Sharpness(const uint8_t* crop) {
    int32_t bends = 0;
    const auto bend = [](int32_t before, int32_t here, int32_t after) {
        return std::abs(before - 2 * here + after);
    };
    for (int32_t y = 0; y < kCrop; ++y) {
        const uint8_t* const row = crop + y * kCrop;
        for (int32_t x = 1; x < kCrop - 1; ++x) {
            bends += bend(row[x - 1], row[x], row[x + 1]);
        }
    }
    for (int32_t y = 1; y < kCrop - 1; ++y) {
        const uint8_t* const row = crop + y * kCrop;
        for (int32_t x = 0; x < kCrop; ++x) {
            bends += bend(row[x - kCrop], row[x], row[x + kCrop]);
        }
    }
    constexpr int64_t kBends = 2 * (kCrop - 2) * kCrop;
    return static_cast<int32_t>(int64_t{16 * 256 * 16} * bends /
                                (kBends * (16 * 16 + Deviation(crop))));
}

struct Light {
    int32_t quantile; // 90 % of the pixels are not brighter
    int32_t white;    // thousandths
};

Light LightOf(const uint8_t* crop) {
    int32_t pixelsOf[256] = {};
    for (int32_t y = kMargin; y < kCrop - kMargin; ++y) {
        for (int32_t x = kMargin; x < kCrop - kMargin; ++x) {
            ++pixelsOf[crop[y * kCrop + x]];
        }
    }
    Light light = {-1, 0};
    for (int32_t level = 0, pixels = 0; level < 256; ++level) {
        pixels += pixelsOf[level];
        if (light.quantile < 0 && 10 * pixels >= 9 * kMiddlePixels) {
            light.quantile = level;
        }
        light.white += level >= kWhite ? pixelsOf[level] : 0;
    }
    light.white = light.white * 1000 / kMiddlePixels;
    return light;
}

// How far the tip of the nose is from its place between eyes and mouth, in percent of that. An
// upturned face has it near the eyes, one that looks down near the mouth.
int32_t NoseOff(const int32_t* points) {
    // Twice as long, so that the middles of pupils and corners are whole.
    const int64_t downX = int64_t{points[6]} + points[8] - points[0] - points[2];
    const int64_t downY = int64_t{points[7]} + points[9] - points[1] - points[3];
    const int64_t noseX = 2 * int64_t{points[4]} - points[0] - points[2];
    const int64_t noseY = 2 * int64_t{points[5]} - points[1] - points[3];
    const int64_t length = downX * downX + downY * downY;
    if (length == 0) {
        return kTiltedRamp.none;
    }
    const int64_t place = 100 * (downX * noseX + downY * noseY) / length;
    return static_cast<int32_t>(std::min<int64_t>(std::abs(place - kNosePlace), kNosePlace) * 100 /
                                kNosePlace);
}

int64_t Distance(const int32_t* from, const int32_t* to) {
    const int64_t x = int64_t{to[0]} - from[0];
    const int64_t y = int64_t{to[1]} - from[1];
    return SquareRoot(256 * (x * x + y * y));
}

// How far the mouth's width is from that of a mouth at rest, in percent of the pupils' distance. Of a
// turned head both are foreshortened: it counts less from 30 degrees of yaw on, and from 45 not at all.
int32_t MouthOff(const Description& face) {
    const int64_t eyes = Distance(face.points, face.points + 2);
    if (eyes == 0) {
        return 0;
    }
    const int64_t width = 100 * Distance(face.points + 6, face.points + 8) / eyes;
    const int64_t off = std::min<int64_t>(std::abs(width - kMouthPlace), 100);
    constexpr int32_t kFirst = 4 * 30, kLast = 4 * 45; // quarter degrees
    const int32_t counts = std::clamp(kLast - 3 * std::abs(face.yaw), 0, kLast - kFirst);
    return static_cast<int32_t>(off * counts / (kLast - kFirst));
}

// Eighths of a pixel of a span that lie between 0 and `size` pixels.
int64_t Inside(int32_t middle, int32_t side, int32_t size) {
    const int64_t first = std::max<int64_t>(2 * int64_t{middle} - side, 0);
    const int64_t last = std::min(2 * int64_t{middle} + side, 8 * int64_t{size});
    return std::max<int64_t>(last - first, 0);
}

int32_t CutOff(const Description& face, Size picture) {
    const int64_t inside =
        Inside(face.x, face.side, picture.width) * Inside(face.y, face.side, picture.height);
    const int64_t whole = 4 * int64_t{face.side} * face.side;
    return static_cast<int32_t>(100 * (whole - inside) / whole);
}

// In 256ths.
int32_t FactorOf(int32_t measure, const Ramp& ramp) {
    const int32_t factor = 256 * (measure - ramp.none) / (ramp.full - ramp.none);
    return std::clamp(factor, 0, 256);
}

// The least score, a logit in sixteenths, that has this probability: near 1 the probabilities of
// good faces lie too close together to tell them apart.
int32_t ScoreOf(int32_t probability) {
    const auto* const at =
        std::lower_bound(std::begin(kProbability), std::end(kProbability), probability);
    return static_cast<int32_t>(at - std::begin(kProbability)) - 128;
}

int32_t ScoreFactor(int32_t score) {
    const int32_t least = ScoreOf(kReportedProbability);
    const int32_t more = (256 - kLeastScoreFactor) * (score - least) / (kSureScore - least);
    return std::clamp(kLeastScoreFactor + more, 0, 256);
}

} // namespace

Measures Measure(const FoundFace& found, Size picture, const uint8_t* crop) {
    const Description& face = found.face;
    const Light light = LightOf(crop);
    return {face.side,
            Sharpness(crop),
            light.quantile,
            light.white,
            3 * std::abs(face.yaw),
            NoseOff(face.points),
            (face.covered + 128) * 100 / 255,
            CutOff(face, picture),
            MouthOff(face),
            ScoreOf(found.probability)};
}

Quality Judge(const Measures& m) {
    const struct {
        int32_t factor;
        uint32_t reason;
    } flaws[] = {
        {FactorOf(m.side, kSmallRamp), ORVO_FIND_SMALL},
        {FactorOf(m.sharpness, kBlurredRamp), ORVO_FIND_BLURRED},
        {FactorOf(m.brightness, kDarkRamp), ORVO_FIND_DARK},
        {FactorOf(m.white, kOverexposedRamp), ORVO_FIND_OVEREXPOSED},
        {FactorOf(m.yaw, kTurnedRamp), ORVO_FIND_TURNED},
        {FactorOf(m.noseOff, kTiltedRamp), ORVO_FIND_TILTED},
        {FactorOf(m.covered, kCoveredRamp), ORVO_FIND_COVERED},
        {FactorOf(m.cutOff, kCutOffRamp), ORVO_FIND_CUT_OFF},
        {FactorOf(m.mouthOff, kGrimacingRamp), ORVO_FIND_GRIMACING},
    };
    constexpr int32_t kOne = 1 << 16;
    Quality quality = {0, 0};
    int64_t left = int64_t{100} * kOne * ScoreFactor(m.score) / 256;
    for (const auto& flaw : flaws) {
        left = left * flaw.factor / 256;
        quality.reasons |= flaw.factor < 128 ? flaw.reason : 0;
    }
    quality.value = static_cast<int32_t>((left + kOne / 2) / kOne);
    return quality;
}

} // namespace orvo::find
