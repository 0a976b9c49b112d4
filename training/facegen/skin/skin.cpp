// SPDX-License-Identifier: MIT
#include "skin/skin.h"

#include <algorithm>
#include <bit>
#include <cmath>

namespace facegen {
namespace {

constexpr int kTileWidth = atlas::kSkin.width, kTileHeight = atlas::kSkin.height;

// 2^x to about 3 parts in 10000, in a form that compilers vectorise.
inline float FastExp2(float x) {
    x = std::max(x, -24.0f);
    const float whole = std::floor(x);
    const float part = x - whole;
    const float power = 1.0f + part * (0.69583282f + part * (0.22606716f + part * 0.07810022f));
    return power * std::bit_cast<float>((static_cast<std::int32_t>(whole) + 127) << 23);
}

std::uint8_t Byte(float share) { return static_cast<std::uint8_t>(255.0f * Clamp01(share)); }

// Skins of the same depth of tone go together best.
std::size_t PickSkin(const HeadModel& model, const Identity& identity, Random& random) {
    const bool dark = identity.reflectance < 0.15f;
    for (int attempt = 0; attempt < 40; ++attempt) {
        const auto at =
            static_cast<std::size_t>(random.Below(static_cast<int>(model.skins.size())));
        const std::string& name = model.skinNames[at];
        const bool isDark = name.find("darkskinned") != std::string::npos;
        const bool isOld = name.starts_with("old");
        const bool wantsOld = identity.age == AgeBand::kOld ||
                              (identity.age == AgeBand::kMiddle && random.Chance(0.3f));
        if (isDark == dark && isOld == wantsOld) {
            return at;
        }
    }
    return static_cast<std::size_t>(random.Below(static_cast<int>(model.skins.size())));
}

using Logs = std::vector<float>; // log2 of reflectance over the skin's own, by texel

Logs MixedSkins(const HeadModel& model, const SkinKit& kit, const Identity& identity,
                Random& random) {
    const std::int16_t* one = model.skins[PickSkin(model, identity, random)].data();
    const std::int16_t* other = model.skins[PickSkin(model, identity, random)].data();
    const float contrast = random.Uniform(0.9f, 1.6f);
    const float share = random.Uniform();
    const float ofOne = contrast * share / 2048.0f, ofOther = contrast * (1.0f - share) / 2048.0f;
    Logs logs(model.texelBase.size());
    for (std::size_t i = 0; i < logs.size(); ++i) {
        logs[i] = ofOne * static_cast<float>(one[i]) + ofOther * static_cast<float>(other[i]);
    }
    const auto add = [&](const NoiseField& field, float weight) {
        const std::int8_t* from = field.data();
        for (std::size_t i = 0; i < logs.size(); ++i) {
            logs[i] += weight * static_cast<float>(from[i]);
        }
    };
    const float broad = random.Uniform(0.03f, 0.13f) / 127.0f;
    for (const NoiseField& field : kit.broad) {
        add(field, broad * random.NormalWithin(1, 2));
    }
    const float middling = random.Uniform(0.02f, 0.1f) / 127.0f;
    for (const NoiseField& field : kit.middling) {
        add(field, middling * random.NormalWithin(1, 2));
    }
    const float fine = (0.02f + 0.05f * random.Uniform() + 0.06f * identity.wrinkles) / 127.0f;
    for (const NoiseField& field : kit.fine) {
        add(field, fine * random.NormalWithin(1, 2));
    }
    return logs;
}

void PaintSpot(Logs& logs, int x, int y, float radius, float depth) {
    const int reach = static_cast<int>(radius * 1.6f) + 1;
    for (int j = std::max(0, y - reach); j <= std::min(kTileHeight - 1, y + reach); ++j) {
        for (int i = std::max(0, x - reach); i <= std::min(kTileWidth - 1, x + reach); ++i) {
            const float away = std::hypot(static_cast<float>(i - x), static_cast<float>(j - y));
            logs[static_cast<std::size_t>(j) * kTileWidth + static_cast<std::size_t>(i)] -=
                depth * SmoothStep(radius * 1.3f, radius * 0.5f, away);
        }
    }
}

void PaintSpots(Logs& logs, const SkinKit& kit, const Identity& identity, Random& random) {
    const auto anywhere = [&] {
        return kit
            .front[static_cast<std::size_t>(random.Below(static_cast<int>(kit.front.size())))];
    };
    const auto spot = [&](float radius, float depth) {
        const std::uint32_t at = anywhere();
        PaintSpot(logs, static_cast<int>(at % kTileWidth), static_cast<int>(at / kTileWidth),
                  radius, depth);
    };
    const int moles = random.Chance(0.6f) ? random.Below(6) : 0;
    for (int i = 0; i < moles; ++i) {
        spot(random.Uniform(1.0f, 3.2f), random.Uniform(0.5f, 1.8f));
    }
    if (random.Chance(0.12f)) {
        spot(random.Uniform(5.0f, 16.0f), random.Uniform(-0.4f, 0.6f)); // a birthmark
    }
    if (identity.reflectance > 0.25f && random.Chance(0.2f)) {
        const int freckles = 60 + random.Below(250);
        for (int i = 0; i < freckles; ++i) {
            spot(random.Uniform(0.7f, 1.5f), random.Uniform(0.1f, 0.45f));
        }
    }
    const int blotches = random.Below(identity.age == AgeBand::kOld ? 24 : 8);
    for (int i = 0; i < blotches; ++i) {
        spot(random.Uniform(2.0f, 7.0f), random.Uniform(-0.12f, 0.25f));
    }
    if (random.Chance(0.08f)) { // a scar
        const std::uint32_t from = anywhere();
        const float angle = random.Uniform(0.0f, 6.28f), depth = random.Uniform(-0.5f, 0.5f);
        const int steps = 6 + random.Below(16);
        for (int i = 0; i < steps; ++i) {
            const float along = 1.5f * static_cast<float>(i);
            PaintSpot(
                logs,
                static_cast<int>(from % kTileWidth) + static_cast<int>(along * std::cos(angle)),
                static_cast<int>(from / kTileWidth) + static_cast<int>(along * std::sin(angle)),
                1.2f, depth);
        }
    }
}

// 1 in the middle of a line, a half at its width.
float Line(float distance, float width) {
    const float t = distance / width;
    return 1.0f / (1.0f + t * t * t * t);
}

// Folds and shadows of the face itself, in the base mesh's coordinates.
struct Folds {
    float forehead, frown, laugh, crow, bags, sockets, cheeks, nose;
    float laughSlant, foreheadPitch, foreheadPhase;

    float operator()(Vec3 p) const {
        const float x = std::fabs(p.x);
        float dark = 0;
        if (p.y > 7.5f && p.y < 7.92f && x < 0.48f) {
            const float wave = 0.012f * std::sin(7.0f * p.x + foreheadPhase);
            const float at = (p.y + wave - 7.53f) / foreheadPitch;
            const float away = std::fabs(at - std::round(at)) * foreheadPitch;
            dark += forehead * Line(away, 0.011f) * SmoothStep(0.48f, 0.3f, x) *
                    SmoothStep(7.92f, 7.85f, p.y);
        }
        if (p.y > 7.3f && p.y < 7.55f && x < 0.12f) {
            dark += frown * Line(std::fabs(x - 0.06f - 0.1f * (p.y - 7.35f)), 0.011f) *
                    SmoothStep(7.3f, 7.36f, p.y) * SmoothStep(7.55f, 7.46f, p.y);
        }
        if (p.y > 6.5f && p.y < 6.98f && x > 0.1f && x < 0.5f) {
            const float middle = 0.2f + (6.95f - p.y) * laughSlant;
            dark += laugh * Line(std::fabs(x - middle), 0.016f) * SmoothStep(6.98f, 6.9f, p.y) *
                    SmoothStep(6.5f, 6.62f, p.y);
        }
        if (x > 0.5f && x < 0.7f && p.y > 7.1f && p.y < 7.42f) {
            const float spread = (p.y - 7.27f) / (0.35f + (x - 0.5f)) * 9.0f;
            dark += crow * Line(std::fabs(spread - std::round(spread)), 0.2f) *
                    SmoothStep(0.5f, 0.55f, x) * SmoothStep(0.7f, 0.6f, x);
        }
        const float eyeX = (x - 0.31f) / 0.17f;
        const float under = (p.y - 7.16f - 0.05f * eyeX * eyeX) / 0.06f;
        dark += bags * std::exp(-1.5f * (eyeX * eyeX + under * under));
        const float over = (p.y - 7.36f) / 0.07f;
        dark += sockets * std::exp(-1.2f * (eyeX * eyeX + over * over));
        const float cheekX = (x - 0.44f) / 0.18f, cheekY = (p.y - 6.93f) / 0.17f;
        dark += cheeks * std::exp(-cheekX * cheekX - cheekY * cheekY);
        const float noseX = x / 0.13f, noseY = (p.y - 6.93f) / 0.12f;
        dark += nose * std::exp(-noseX * noseX - noseY * noseY);
        return dark;
    }
};

Folds DrawFolds(const Identity& identity, Random& random) {
    const float age = identity.wrinkles;
    Folds folds{};
    folds.forehead = age * random.Uniform(0.0f, 0.75f);
    folds.frown = age * random.Uniform(0.0f, 0.8f);
    folds.laugh = (0.08f + age) * random.Uniform(0.1f, 0.75f);
    folds.crow = age * random.Uniform(0.0f, 0.6f);
    folds.bags = random.Uniform(-0.05f, 0.25f) + age * random.Uniform(0.0f, 0.45f);
    folds.sockets = random.Uniform(-0.1f, 0.45f);
    folds.cheeks = random.Uniform(-0.15f, 0.25f);
    folds.nose = random.Uniform(-0.15f, 0.25f);
    folds.laughSlant = random.Uniform(0.3f, 0.55f);
    folds.foreheadPitch = random.Uniform(0.075f, 0.11f);
    folds.foreheadPhase = random.Uniform(0.0f, 6.28f);
    return folds;
}

// The dark lines and hollows of the inner face that every real face shows, sharp where they are
// sharp in pictures: nostrils and the shadow under the nose, the lids' crease and edge, the line
// between the lips, the groove beside the nostrils and that above the chin.
struct Hollows {
    float nostrils, noseBase, crease, lidEdge, lipLine, wings, chin;
    float creaseLift, nostrilSize;

    float operator()(Vec3 p) const {
        const float x = std::fabs(p.x);
        const auto spot = [&](Vec3 at, float radius) {
            const Vec3 d{x - at.x, p.y - at.y, p.z - at.z};
            return std::exp(-Dot(d, d) / (radius * radius));
        };
        float dark = 0;
        dark += nostrils * spot({0.086f, 6.858f, 1.553f}, nostrilSize);
        dark += wings * spot({0.176f, 6.895f, 1.474f}, 0.03f);
        if (x < 0.2f && p.y > 6.76f && p.y < 6.9f) {
            dark += noseBase * SmoothStep(0.2f, 0.1f, x) * SmoothStep(6.76f, 6.83f, p.y) *
                    SmoothStep(6.9f, 6.86f, p.y);
        }
        const float along = (x - 0.325f) / 0.12f;
        if (std::fabs(along) < 1.25f && p.y > 7.25f && p.y < 7.45f && p.z > 1.2f) {
            const float ends = SmoothStep(1.25f, 0.8f, std::fabs(along));
            const float arch = 0.042f * along * along;
            dark += crease * ends * Line(p.y - (7.368f + creaseLift - arch), 0.009f);
            dark += lidEdge * ends * Line(p.y - (7.332f - 1.2f * arch), 0.008f);
        }
        if (x < 0.27f && p.y > 6.5f && p.y < 6.7f && p.z > 1.38f) {
            dark += lipLine * SmoothStep(0.27f, 0.22f, x) * Line(p.y - 6.604f, 0.009f);
        }
        const float chinX = x / 0.16f, chinY = (p.y - 6.42f) / 0.035f;
        dark += chin * std::exp(-chinX * chinX - chinY * chinY);
        return dark;
    }
};

Hollows DrawHollows(Random& random) {
    Hollows hollows{};
    hollows.nostrils = random.Uniform(1.2f, 3.2f);
    hollows.nostrilSize = random.Uniform(0.022f, 0.036f);
    hollows.noseBase = random.Uniform(0.05f, 0.45f);
    hollows.crease = random.Chance(0.75f) ? random.Uniform(0.2f, 0.9f) : 0.0f;
    hollows.creaseLift = random.Uniform(-0.012f, 0.02f);
    hollows.lidEdge = random.Uniform(0.2f, 1.0f);
    hollows.lipLine = random.Uniform(0.3f, 1.3f);
    hollows.wings = random.Uniform(0.1f, 0.7f);
    hollows.chin = random.Uniform(0.0f, 0.35f);
    return hollows;
}

void PaintHollows(Logs& logs, const HeadModel& model, const SkinKit& kit, Random& random) {
    const Hollows hollows = DrawHollows(random);
    for (const std::uint32_t i : kit.front) {
        logs[i] -= hollows(model.texelBase[i]);
    }
}

void PaintFace(Logs& logs, const HeadModel& model, const SkinKit& kit, const Identity& identity,
               Random& random) {
    const Folds folds = DrawFolds(identity, random);
    const float lipTone = random.Chance(0.15f * (1.0f - identity.male))
                              ? random.Uniform(-1.3f, -0.6f) // lipstick
                              : random.Uniform(-0.75f, 0.0f);
    for (const std::uint32_t i : kit.front) {
        logs[i] -= folds(model.texelBase[i]);
        logs[i] += lipTone * static_cast<float>(kit.lips[i]) * (1.0f / 255.0f);
    }
}

void PaintBrows(Logs& logs, const HeadModel& model, const SkinKit& kit, const Identity& identity,
                float hairLog, Random& random) {
    const auto pick = [&] {
        return static_cast<std::size_t>(random.Below(static_cast<int>(model.brows.size())));
    };
    const std::uint8_t* one = model.brows[pick()].data();
    const std::uint8_t* other = model.brows[pick()].data();
    const float share = random.Chance(0.5f) ? 1.0f : random.Uniform(0.4f, 1.0f);
    const float density = random.Uniform(0.7f, 2.0f) * Mix(0.85f, 1.15f, identity.male) *
                          (identity.scanned ? 1.35f : 1.0f);
    const float tone = Mix(hairLog, random.Uniform(-3.0f, -1.0f), 0.35f);
    // Brows differ in their place too: the coverage is read a little off.
    const int shift = (random.Below(11) - 5) + kTileWidth * (random.Below(7) - 3);
    for (const std::uint32_t i : kit.front) {
        const auto from = static_cast<std::size_t>(
            std::clamp(static_cast<int>(i) + shift, 0, kTileWidth * kTileHeight - 1));
        const float coverage = Clamp01(density *
                                       (share * static_cast<float>(one[from]) +
                                        (1.0f - share) * static_cast<float>(other[from])) *
                                       (1.0f / 255.0f));
        logs[i] = Mix(logs[i], std::min(tone, logs[i]), coverage);
    }
}

// Brows drawn rather than read: strokes along the ridge above the eye, of any height, slope and width.
struct DrawnBrow {
    float height, slope, arch, thickness, inner, outer, density, fade;

    float operator()(Vec3 p) const {
        const float along = (std::fabs(p.x) - inner) / (outer - inner);
        if (p.z < 0.9f || along < -0.1f || along > 1.1f) {
            return 0;
        }
        const float bow = along - 0.6f;
        const float middle = height + slope * (along - 0.5f) - arch * bow * bow;
        const float half = thickness * (along < 0.5f ? 1.0f : Mix(1.0f, 0.35f, 2 * along - 1));
        return density * SmoothStep(-0.06f, fade, along) * SmoothStep(1.08f, 0.85f, along) *
               SmoothStep(1.25f * half, 0.55f * half, std::fabs(p.y - middle));
    }
};

void DrawBrows(Logs& logs, const HeadModel& model, const SkinKit& kit, const Identity& identity,
               float hairLog, Random& random) {
    DrawnBrow brow{};
    brow.height = random.Normal(7.47f, 0.03f);
    brow.slope = random.Normal(0.03f, 0.03f);
    brow.arch = random.Uniform(0.0f, 0.16f);
    brow.thickness = random.Uniform(0.018f, 0.036f) * Mix(0.85f, 1.2f, identity.male);
    brow.inner = random.Uniform(0.06f, 0.16f);
    brow.outer = random.Uniform(0.48f, 0.58f);
    brow.density = random.Uniform(0.35f, 1.0f);
    brow.fade = random.Uniform(0.05f, 0.3f);
    const float tone = std::max(Mix(hairLog, random.Uniform(-3.0f, -1.2f), 0.4f), -4.0f);
    const NoiseField& fine =
        kit.fine[static_cast<std::size_t>(random.Below(static_cast<int>(kit.fine.size())))];
    for (const std::uint32_t i : kit.front) {
        const float hairs = 1.0f + 0.5f * static_cast<float>(fine[i]) / 127.0f;
        const float coverage = Clamp01(brow(model.texelBase[i]) * hairs);
        logs[i] = Mix(logs[i], std::min(tone, logs[i]), coverage);
    }
}

// Some skins show everything, others next to nothing.
void Weaken(Logs& logs, Random& random) {
    const float share =
        random.Chance(0.25f) ? random.Uniform(0.0f, 0.4f) : random.Uniform(0.5f, 1.1f);
    for (float& log : logs) {
        log *= share;
    }
}

void PaintHair(Logs& logs, const HeadModel& model, const SkinKit& kit, const Hairiness& hairiness,
               float hairLog, Random& random) {
    const float ragged = random.Uniform(0.0002f, 0.0006f);
    const NoiseField& fine =
        kit.fine[static_cast<std::size_t>(random.Below(static_cast<int>(kit.fine.size())))];
    const NoiseField& other = kit.middling[0];
    for (std::size_t i = 0; i < logs.size(); ++i) {
        const Vec3 base = model.texelBase[i];
        if (base.y < 6.2f || hairiness.scalp == 0) {
            continue;
        }
        const float above = AboveHairline(base, kit.azimuth[i], hairiness.hairline) +
                            ragged * static_cast<float>(fine[i] + other[i]);
        if (above > -0.05f) {
            const float coverage = hairiness.scalp * SmoothStep(-0.05f, 0.07f, above);
            const float tone = hairLog + 0.0025f * static_cast<float>(fine[i]);
            logs[i] = Mix(logs[i], tone, coverage);
        }
    }
    if (hairiness.beard == BeardStyle::kNone) {
        return;
    }
    const float edge = random.Uniform(0.03f, 0.12f), start = random.Uniform(-0.02f, 0.07f);
    const float chin = random.Uniform(0.6f, 1.0f);
    for (std::size_t i = 0; i < logs.size(); ++i) {
        if (kit.beard[i] == -128) {
            continue;
        }
        const float depth = static_cast<float>(kit.beard[i]) * (1.0f / 200.0f);
        float coverage = SmoothStep(start, start + edge, depth);
        if (hairiness.beard == BeardStyle::kMoustache) {
            coverage = static_cast<float>(kit.moustache[i]) * (1.0f / 255.0f);
        } else if (hairiness.beard == BeardStyle::kGoatee) {
            coverage = static_cast<float>(kit.goatee[i]) * (1.0f / 255.0f);
        } else {
            coverage *= Mix(chin, 1.0f, static_cast<float>(kit.goatee[i]) * (1.0f / 255.0f));
        }
        coverage *= hairiness.beardDensity * (1.0f + 0.004f * static_cast<float>(fine[i]));
        logs[i] = Mix(logs[i], std::min(hairLog, logs[i]), Clamp01(coverage));
    }
}

float Spot(float x, float y, float width, float height) {
    return std::exp(-x * x / (width * width) - y * y / (height * height));
}

// The folds from the nose to beside the mouth with the shadow within them, the nose's own, the corners of
// the mouth and the line between the lips.
float MouthLines(Vec3 p) {
    const float x = std::fabs(p.x);
    const float fold = x - 0.2f - (6.95f - p.y) * 0.45f;
    const float along = SmoothStep(7.0f, 6.9f, p.y) * SmoothStep(6.42f, 6.6f, p.y);
    float dark = along * (0.9f * Line(fold, 0.026f) + 0.4f * Spot(fold + 0.05f, 0, 0.05f, 1));
    dark += 0.3f * SmoothStep(0.03f, -0.03f, fold) * SmoothStep(6.9f, 6.8f, p.y) *
            SmoothStep(6.54f, 6.62f, p.y);
    dark += 0.4f * SmoothStep(0.2f, 0.1f, x) * Spot(0, p.y - 6.83f, 1, 0.05f);
    dark += 0.9f * Spot(x - 0.29f, p.y - 6.59f, 0.075f, 0.045f);
    dark += 0.9f * SmoothStep(0.31f, 0.25f, x) * Line(p.y - 6.604f, 0.016f);
    dark += 0.35f * Spot(x, p.y - 6.44f, 0.2f, 0.04f); // above the chin
    return dark;
}

// The shadow below the brows and beside the nose's root, the edge of the upper lid with its lashes, and
// the crease below the lower one.
float EyeLines(Vec3 p) {
    const float x = std::fabs(p.x);
    const float along = (x - 0.325f) / 0.12f;
    const float ends = SmoothStep(1.5f, 0.8f, std::fabs(along));
    const float arch = 0.042f * along * along;
    float dark = 0.6f * Spot(x - 0.28f, p.y - 7.4f, 0.17f, 0.055f);
    dark += 0.6f * Spot(x - 0.15f, p.y - 7.31f, 0.05f, 0.07f);
    dark += ends * Line(p.y - (7.337f - 1.2f * arch), 0.016f);
    dark += 0.5f * ends * Line(p.y - (7.165f + 0.6f * arch), 0.016f);
    dark += 0.35f * Spot(x - 0.3f, p.y - 7.2f, 0.13f, 0.04f);
    return dark;
}

// Four neighbours a word, as the atlas has them.
std::vector<std::uint32_t> Packed(const std::vector<std::uint8_t>& texels) {
    std::vector<std::uint32_t> words(static_cast<std::size_t>(atlas::kWidth) * atlas::kHeight, 0);
    for (int y = 0; y + 1 < kTileHeight; ++y) {
        for (int x = 0; x + 1 < kTileWidth; ++x) {
            const std::uint8_t* at = texels.data() + static_cast<std::size_t>(y) * kTileWidth + x;
            words[static_cast<std::size_t>(y) * atlas::kWidth + static_cast<std::size_t>(x)] =
                static_cast<std::uint32_t>(at[0]) | static_cast<std::uint32_t>(at[1]) << 8 |
                static_cast<std::uint32_t>(at[kTileWidth]) << 16 |
                static_cast<std::uint32_t>(at[kTileWidth + 1]) << 24;
        }
    }
    return words;
}

} // namespace

SkinKit MakeSkinKit(const HeadModel& model) {
    SkinKit kit;
    for (std::uint32_t i = 0; i < 8; ++i) {
        kit.broad.push_back(MakeNoiseField(model.texelBase, 0.33f, 11 + i));
    }
    for (std::uint32_t i = 0; i < 6; ++i) {
        kit.middling.push_back(MakeNoiseField(model.texelBase, 0.1f, 31 + i));
    }
    for (std::uint32_t i = 0; i < 4; ++i) {
        kit.fine.push_back(MakeNoiseField(model.texelBase, 0.022f, 51 + i));
    }
    const std::size_t texels = model.texelBase.size();
    for (const Vec3& base : model.texelBase) {
        kit.azimuth.push_back(Azimuth(base));
    }
    kit.lips.resize(texels);
    kit.moustache.resize(texels);
    kit.goatee.resize(texels);
    kit.beard.assign(texels, -128);
    std::vector<std::uint8_t> stubble(texels), mouth(texels), eyes(texels);
    for (std::size_t i = 0; i < texels; ++i) {
        if (!model.texelUsed[i]) {
            continue;
        }
        const Vec3 base = model.texelBase[i];
        kit.lips[i] = Byte(Lips(base));
        kit.moustache[i] = Byte(Moustache(base));
        kit.goatee[i] = Byte(Goatee(base));
        const float depth = InsideBeard(base);
        kit.beard[i] = static_cast<std::int8_t>(std::clamp(depth * 200.0f, -127.0f, 127.0f));
        const float grain = 1.0f + 0.5f * static_cast<float>(kit.fine[1][i]) / 127.0f;
        stubble[i] = Byte(0.8f * grain * SmoothStep(0.0f, 0.12f, depth));
        if (base.z > 0.75f && std::fabs(base.x) < 0.72f && base.y > 6.1f && base.y < 7.95f) {
            kit.front.push_back(static_cast<std::uint32_t>(i));
            mouth[i] = Byte(MouthLines(base));
            eyes[i] = Byte(EyeLines(base));
        }
    }
    kit.stubble = Packed(stubble);
    kit.mouthLines = Packed(mouth);
    kit.eyeLines = Packed(eyes);
    return kit;
}

void PaintSkin(Atlas& atlas, const HeadModel& model, const SkinKit& kit, const Identity& identity,
               const Hairiness& hairiness, Random& random) {
    const float hairLog = std::log2(identity.hairReflectance / identity.reflectance);
    Logs logs = MixedSkins(model, kit, identity, random);
    PaintFace(logs, model, kit, identity, random);
    PaintSpots(logs, kit, identity, random);
    if (identity.broad) {
        Weaken(logs, random);
    }
    if (identity.scanned || (identity.broad && random.Chance(0.5f))) {
        PaintHollows(logs, model, kit, random);
    }
    if (identity.broad && random.Chance(identity.drawnBrows)) {
        DrawBrows(logs, model, kit, identity, hairLog, random);
    } else if (!identity.broad || random.Chance(0.9f)) {
        PaintBrows(logs, model, kit, identity, hairLog, random);
    }
    PaintHair(logs, model, kit, hairiness, hairLog, random);
    const float tone = identity.reflectance;
    for (int y = 0; y < kTileHeight; ++y) {
        const float* from = logs.data() + static_cast<std::size_t>(y) * kTileWidth;
        std::uint32_t row[kTileWidth];
        for (int x = 0; x < kTileWidth; ++x) {
            const float reflectance = std::min(tone * FastExp2(from[x]), 0.95f);
            row[x] = static_cast<std::uint32_t>(std::sqrt(reflectance) * 255.0f + 0.5f);
        }
        for (int x = 0; x < kTileWidth; ++x) {
            atlas.SetCode(x, y, row[x]);
        }
    }
}

void PaintEyesAndMouth(Atlas& atlas, const HeadModel& model, const Identity& identity,
                       Random& random) {
    const auto pick =
        static_cast<std::size_t>(random.Below(static_cast<int>(model.eyeTones.size())));
    const Picture& eye = model.eyeTones[pick];
    const float lightEyes =
        identity.ethnicity[2] > 0.5f ? random.Uniform(0.05f, 1.1f) : random.Uniform(0.03f, 0.35f);
    const float white = random.Uniform(0.33f, 0.55f);
    // The two irises in the eye textures, as shares of their width.
    constexpr float irisX[2] = {0.705f, 0.292f}, irisY[2] = {0.296f, 0.701f}, irisRadius = 0.118f;
    for (int y = 0; y < eye.height; ++y) {
        for (int x = 0; x < eye.width; ++x) {
            const float fx = (static_cast<float>(x) + 0.5f) / static_cast<float>(eye.width);
            const float fy = (static_cast<float>(y) + 0.5f) / static_cast<float>(eye.height);
            float away = 1.0f;
            for (int i = 0; i < 2; ++i) {
                away = std::min(away, std::hypot(fx - irisX[i], fy - irisY[i]));
            }
            const float code = *eye.At(x, y) / 255.0f;
            const float iris = lightEyes * code * code;
            const float sclera = white * std::min(1.0f, code * code * 2.3f);
            const float onWhite = SmoothStep(irisRadius * 0.96f, irisRadius * 1.08f, away);
            atlas.Set(atlas::kEyes.x + x, atlas::kEyes.y + y, Mix(iris, sclera, onWhite));
        }
    }
    const auto fill = [&](const atlas::Tile& tile, float reflectance) {
        for (int y = 0; y < tile.height; ++y) {
            for (int x = 0; x < tile.width; ++x) {
                atlas.Set(tile.x + x, tile.y + y, reflectance);
            }
        }
    };
    fill(atlas::kTeeth, random.Uniform(0.4f, 0.75f));
    fill(atlas::kTongue, random.Uniform(0.15f, 0.28f));
}

} // namespace facegen
