// SPDX-License-Identifier: MIT
#include "wear/hair.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "skin/noise_fields.h"
#include "wear/shell.h"

namespace facegen {
namespace {

constexpr int kStreakSize = atlas::kStreaks.width;

Picture StreakPicture(float along, float across, float waviness, std::uint32_t seed) {
    Picture tone(kStreakSize, kStreakSize, 1);
    for (int y = 0; y < kStreakSize; ++y) {
        for (int x = 0; x < kStreakSize; ++x) {
            const float fx = static_cast<float>(x), fy = static_cast<float>(y);
            const float bend = waviness * ValueNoise({fx / 40.0f, fy / 40.0f, 0.5f}, seed + 7);
            const float sx = (fx + bend) / across, sy = (fy + 0.5f * bend) / along;
            const float value = 0.6f * ValueNoise({sx, sy, 0.0f}, seed) +
                                0.4f * ValueNoise({sx / 3.0f, sy / 2.0f, 3.0f}, seed + 1);
            *tone.At(x, y) =
                static_cast<std::uint8_t>(std::clamp(128.0f + 90.0f * value, 0.0f, 255.0f));
        }
    }
    return tone;
}

// Strands run from the crown outwards: rows of the texture are rings about it.
void CombFromCrown(const HeadModel& model, Piece& piece) {
    for (std::size_t i = 0; i < piece.surface.point.size(); ++i) {
        const Vec3 base = model.base[piece.follows[piece.surface.point[i]]];
        const Vec3 away = base - Vec3{0, 7.3f, 0.35f};
        const float around =
            std::fabs(std::atan2(away.x, away.z + 0.25f)) / std::numbers::pi_v<float>;
        const float down =
            std::acos(std::clamp(away.y / Length(away), -1.0f, 1.0f)) / std::numbers::pi_v<float>;
        piece.surface.u[i] = static_cast<float>(atlas::kStreaks.x) + 1.0f + around * 252.0f;
        piece.surface.v[i] = static_cast<float>(atlas::kStreaks.y) + 1.0f + down * 252.0f;
    }
}

void CombDownwards(const HeadModel& model, Piece& piece) {
    for (std::size_t i = 0; i < piece.surface.point.size(); ++i) {
        const Vec3 base = model.base[piece.follows[piece.surface.point[i]]];
        piece.surface.u[i] = static_cast<float>(atlas::kStreaks.x) + 126.0f +
                             std::clamp(base.x * 150.0f, -124.0f, 124.0f);
        piece.surface.v[i] = static_cast<float>(atlas::kStreaks.y) + 1.0f +
                             std::clamp((7.4f - base.y) * 150.0f, 0.0f, 252.0f);
    }
}

void CoverWithStreaks(Piece& piece, const StreakTexture& streaks, Material material, float sharp,
                      float fray) {
    piece.style.material = material;
    piece.style.twoSided = true;
    piece.style.coverage = {Coverage::Kind::kField, &streaks.tone, atlas::kStreaks.x,
                            atlas::kStreaks.y,      sharp,         fray};
}

struct Cut {
    float top, side, front, swirl, bumps;
    int parting; // -1, 0, 1
};

Cut DrawCut(const Identity& identity, bool curly, Random& random) {
    Cut cut{};
    const float size = random.Uniform();
    cut.top = 0.03f + 0.33f * size * size;
    cut.side = cut.top * random.Uniform(0.12f, 0.8f);
    cut.front = random.Chance(0.4f) ? random.Uniform(0.0f, 0.22f) : 0.0f;
    cut.swirl = random.Uniform(0.0f, 0.35f);
    cut.bumps = random.Uniform(0.1f, 0.5f);
    cut.parting = random.Below(3) - 1;
    if (curly && random.Chance(0.6f)) {
        cut.top = random.Uniform(0.15f, identity.male > 0.5f ? 0.5f : 0.75f);
        cut.side = cut.top * random.Uniform(0.6f, 1.0f);
    }
    return cut;
}

Piece GrowHair(const HeadModel& model, const Shape& shape, const Hairline& hairline, const Cut& cut,
               bool curly, const StreakTexture& streaks, Random& random) {
    const auto seed = static_cast<std::uint32_t>(random.Next());
    Piece piece = GrowShell(model, shape.points, -0.06f, [&](std::uint32_t point) {
        const Vec3 base = model.base[point];
        if (base.y < 5.9f) {
            return ShellPoint{{}, -1.0f};
        }
        const float above = AboveHairline(base, hairline);
        const float top = SmoothStep(7.65f, 8.25f, base.y);
        const float at = Azimuth(base);
        const float front = SmoothStep(1.1f, 0.3f, at) * SmoothStep(7.75f, 8.1f, base.y);
        float thickness = Mix(cut.side, cut.top, top) + cut.front * front;
        thickness *= 1.0f + cut.bumps * ValueNoise(base * 4.0f, seed);
        if (cut.parting != 0) {
            const float away = (base.x * static_cast<float>(cut.parting) - 0.28f) / 0.07f;
            thickness *= 1.0f - 0.7f * top * std::exp(-away * away);
        }
        thickness *= SmoothStep(-0.04f, curly ? 0.1f : 0.26f, above);
        Vec3 way = shape.normals[point] + Vec3{0, 0.35f * top, 0.5f * front};
        // A slope, not a wall, where the hair begins.
        thickness = std::min(thickness, 0.03f + 1.1f * std::max(above, 0.0f));
        way += Vec3{cut.swirl * static_cast<float>(cut.parting) * top, 0, 0};
        return ShellPoint{Normalised(way) * (thickness + 0.006f), above};
    });
    CombFromCrown(model, piece);
    CoverWithStreaks(piece, streaks, kHairMaterial, curly ? 16.0f : 11.0f,
                     random.Uniform(0.06f, 0.22f));
    return piece;
}

Piece GrowBeard(const HeadModel& model, const Shape& shape, BeardStyle style,
                const StreakTexture& streaks, Random& random) {
    const float lengthAtChin = random.Uniform(0.02f, style == BeardStyle::kFull ? 0.3f : 0.13f);
    const float length_at_cheek = lengthAtChin * random.Uniform(0.15f, 0.6f);
    const auto seed = static_cast<std::uint32_t>(random.Next());
    Piece piece = GrowShell(model, shape.points, -0.05f, [&](std::uint32_t point) {
        const Vec3 base = model.base[point];
        float depth = InsideBeard(base);
        if (style == BeardStyle::kGoatee) {
            depth = std::min(depth, 0.25f * (Goatee(base) - 0.3f));
        } else if (style == BeardStyle::kMoustache) {
            depth = std::min(depth, 0.2f * (Moustache(base) - 0.3f));
        }
        const float chin = Goatee(base);
        float thickness = Mix(length_at_cheek, lengthAtChin, chin * SmoothStep(6.7f, 6.4f, base.y));
        thickness *=
            (1.0f + 0.4f * ValueNoise(base * 6.0f, seed)) * SmoothStep(-0.02f, 0.14f, depth);
        const Vec3 way = Normalised(shape.normals[point] + Vec3{0, -0.6f, 0.1f});
        return ShellPoint{way * (thickness + 0.008f), depth};
    });
    CombDownwards(model, piece);
    CoverWithStreaks(piece, streaks, kBeardMaterial, 14.0f, random.Uniform(0.08f, 0.2f));
    return piece;
}

// Hair that hangs from the sides and the back of the head: a sheet around it, open in front.
Piece HangCurtain(const HeadModel& model, const Shape& shape, bool curly,
                  const StreakTexture& streaks, Random& random) {
    // The head's half width, back and middle at the level of the temples.
    float wide = 0, back = kFarAway;
    for (std::size_t i = 0; i < shape.points.size(); ++i) {
        const Vec3 base = model.base[i];
        if (base.y > 7.4f && base.y < 8.1f && std::fabs(base.x) < 0.8f) {
            wide = std::max(wide, std::fabs(shape.points[i].x));
            back = std::min(back, shape.points[i].z);
        }
    }
    const float front = -0.32f;
    const float middle = 0.5f * (front + back) - 0.1f;
    const float volume = random.Uniform(0.04f, curly ? 0.4f : 0.2f);
    const float length =
        random.Chance(0.5f) ? random.Uniform(0.6f, 1.3f) : random.Uniform(1.2f, 2.8f);
    const float opening = random.Uniform(0.75f, 1.3f); // angle from straight ahead
    const float flare = random.Uniform(-0.15f, 0.3f),
                wave = random.Uniform(0.0f, curly ? 0.07f : 0.035f);
    const float rings = random.Uniform(5.0f, 16.0f), layer = random.Uniform(0.0f, 0.35f);
    const auto seed = static_cast<std::uint32_t>(random.Next());
    constexpr int columns = 44, rows = 26;
    Piece piece;
    for (int c = 0; c <= columns; ++c) {
        const float s = static_cast<float>(c) / columns;
        const float angle = Mix(opening, 2 * std::numbers::pi_v<float> - opening, s);
        const float fromFront = std::min(s, 1.0f - s) * 2.0f; // 0 at the open edges
        for (int r = 0; r <= rows; ++r) {
            const float t = static_cast<float>(r) / rows;
            const float top = 0.62f, y = Mix(top, -length + layer * (1.0f - fromFront), t);
            // Close to the skull on top, falling straight below the ears.
            const float out = volume * SmoothStep(top, 0.05f, y) +
                              flare * SmoothStep(-0.3f, -length, y) +
                              0.06f * SmoothStep(0.45f, -0.1f, y);
            const float close = 0.24f * SmoothStep(0.2f, top, y);
            const float lock =
                0.035f * ValueNoise({angle * 6.0f, y * 0.7f, 0.0f}, seed) +
                wave * std::sin(rings * y + 5.0f * ValueNoise({angle * 3.0f, y, 4.0f}, seed));
            const float a = wide + out - close + lock,
                        b = 0.5f * (front - back) + 0.28f + 0.7f * out - close + lock;
            piece.points.push_back({a * std::sin(angle), y, middle + b * std::cos(angle)});
            // Frayed at the hem and at the open edges.
            piece.field.push_back(
                std::min({1.2f * (1.0f - t) * length, 1.6f * fromFront, 0.5f * t + 0.1f}) - 0.04f);
            piece.occlusion.push_back(Mix(0.5f, 0.95f, SmoothStep(-1.2f, 0.3f, y)));
            piece.surface.point.push_back(static_cast<std::uint32_t>(piece.points.size() - 1));
            piece.surface.u.push_back(static_cast<float>(atlas::kStreaks.x) + 1.0f + 252.0f * s);
            piece.surface.v.push_back(static_cast<float>(atlas::kStreaks.y) + 1.0f +
                                      252.0f * std::min(t * length / 2.8f, 1.0f));
        }
    }
    for (std::uint32_t c = 0; c < columns; ++c) {
        for (std::uint32_t r = 0; r < rows; ++r) {
            const std::uint32_t a = c * (rows + 1) + r, b = a + rows + 1;
            piece.surface.triangles.push_back({a, b, b + 1});
            piece.surface.triangles.push_back({a, b + 1, a + 1});
        }
    }
    CoverWithStreaks(piece, streaks, kHairMaterial, 9.0f, random.Uniform(0.1f, 0.3f));
    return piece;
}

// Hair combed over the forehead, to one side or straight.
Piece GrowFringe(const HeadModel& model, const Shape& shape, const Hairline& hairline,
                 const StreakTexture& streaks, Random& random) {
    Hairline lower = hairline;
    lower.raise -= random.Uniform(0.1f, 0.36f);
    lower.recede = random.Uniform(-0.1f, 0.1f);
    lower.peak = 0;
    const float slant = random.Uniform(-0.35f, 0.35f);
    const float thick = random.Uniform(0.03f, 0.1f);
    Piece piece = GrowShell(model, shape.points, -0.05f, [&](std::uint32_t point) {
        const Vec3 base = model.base[point];
        const float above = AboveHairline(base, lower) + slant * base.x;
        const float inside = std::min(above, 0.6f * (0.95f - Azimuth(base)));
        const float high = base.y > 8.25f ? -1.0f : inside;
        const float thickness = thick * SmoothStep(-0.03f, 0.1f, inside);
        return ShellPoint{shape.normals[point] * (thickness + 0.008f), high};
    });
    CombFromCrown(model, piece);
    CoverWithStreaks(piece, streaks, kHairMaterial, 13.0f, random.Uniform(0.08f, 0.2f));
    return piece;
}

// A ready-made style on this head, a little different for each person.
Piece FitHair(const HeadModel& model, const Shape& shape, std::size_t which, Random& random) {
    const Fitted& hair = model.hairs[which];
    Piece piece;
    piece.points = Fit(hair.fitting, shape.points);
    piece.surface = hair.surface;
    const bool mirrored = random.Chance(0.5f);
    const Vec3 scale{random.Uniform(0.98f, 1.1f), random.Uniform(0.97f, 1.1f),
                     random.Uniform(0.99f, 1.07f)};
    const float sway = random.Uniform(-0.05f, 0.05f);
    const float longer = random.Uniform(-0.35f, 0.25f);
    // Cut off at the chin, the neck or the shoulders; what hangs lower is folded up into the hem.
    const float hem = random.Chance(0.5f) ? random.Uniform(-2.4f, -0.55f) : -kFarAway;
    for (Vec3& p : piece.points) {
        const Vec3 middle{0, 0.1f, -0.75f};
        const Vec3 d = p - middle;
        p = middle + Vec3{d.x * scale.x, d.y * scale.y, d.z * scale.z};
        const float hanging = std::max(-0.3f - p.y, 0.0f);
        p.y -= longer * hanging * 0.5f;
        p.x += sway * hanging;
        p.y = std::max(p.y, hem + 0.04f * std::sin(9.0f * p.x + 7.0f * p.z));
        p.x = mirrored ? -p.x : p.x;
    }
    if (mirrored) {
        for (Triangle& t : piece.surface.triangles) {
            std::swap(t[1], t[2]);
        }
    }
    piece.style.material = kHairMaterial;
    piece.style.twoSided = true;
    piece.style.coverage = {Coverage::Kind::kTexture,
                            &model.hairTextures[which].alpha,
                            atlas::kHair.x,
                            atlas::kHair.y,
                            1.25f,
                            0};
    // Strands deep inside the hair get little light.
    for (const Vec3& p : piece.points) {
        piece.occlusion.push_back(SmoothStep(0.35f, 1.15f, Length(p - Vec3{0, 0.1f, -0.75f})));
    }
    return piece;
}

std::vector<Triangle> BelowRim(const Piece& piece) {
    std::vector<Triangle> kept;
    for (const Triangle& t : piece.surface.triangles) {
        float highest = -kFarAway;
        for (const std::uint32_t vertex : t) {
            highest = std::max(highest, piece.points[piece.surface.point[vertex]].y);
        }
        if (highest < 0.2f) {
            kept.push_back(t);
        }
    }
    return kept;
}

// Which ready-made styles suit (short03 hides an eye, hence seldom); names that are not among the
// assets are passed over.
std::vector<std::size_t> Suiting(const HeadModel& model, const Identity& identity) {
    const std::vector<std::string> hers{"long01", "ponytail01", "braid01"};
    const std::vector<std::string> his{"short01", "short02", "short04", "short01",
                                       "short02", "short04", "short03"};
    std::vector<std::size_t> fitting;
    for (const std::string& name : identity.male > 0.5f ? his : hers) {
        for (std::size_t i = 0; i < model.hairs.size(); ++i) {
            if (model.hairs[i].name == name) {
                fitting.push_back(i);
            }
        }
    }
    return fitting;
}

} // namespace

std::vector<StreakTexture> MakeStreaks() {
    std::vector<StreakTexture> all;
    all.push_back({StreakPicture(34, 1.6f, 3, 1)});    // straight
    all.push_back({StreakPicture(22, 2.2f, 14, 2)});   // wavy
    all.push_back({StreakPicture(5, 3.0f, 22, 3)});    // curly
    all.push_back({StreakPicture(3.2f, 2.6f, 10, 4)}); // tight curls
    return all;
}

Hairiness DrawHairiness(const Identity& identity, Random& random) {
    Hairiness h;
    const bool man = identity.male > 0.5f;
    const bool grown = identity.age != AgeBand::kChild;
    h.hairline.raise = random.Uniform(-0.12f, 0.1f);
    h.hairline.recede = random.Uniform(-0.05f, 0.06f);
    if (man && grown && random.Chance(0.35f)) {
        h.hairline.raise += random.Uniform(0.0f, 0.22f);
        h.hairline.recede += random.Uniform(0.05f, 0.4f);
    }
    h.hairline.peak = random.Chance(0.4f) ? random.Uniform(0.0f, 0.12f) : 0.0f;
    h.hairline.sideburn = random.Uniform(-0.15f, man ? 0.25f : 0.0f);
    h.hairline.wave = random.Uniform(0.0f, 0.025f);
    h.hairline.wavePhase = random.Uniform(0.0f, 6.28f);
    h.scalp = random.Uniform(0.85f, 1.0f);
    if (man && grown && random.Chance(0.62f)) {
        const float at = random.Uniform();
        h.beard = at < 0.45f   ? BeardStyle::kShadow
                  : at < 0.58f ? BeardStyle::kMoustache
                  : at < 0.74f ? BeardStyle::kGoatee
                               : BeardStyle::kFull;
        h.beardDensity = h.beard == BeardStyle::kShadow ? random.Uniform(0.05f, 0.45f)
                                                        : random.Uniform(0.5f, 1.0f);
    }
    return h;
}

Hairdress DrawHairdress(const HeadModel& model, const Shape& shape, const Identity& identity,
                        const Hairiness& hairiness, const std::vector<StreakTexture>& streaks,
                        Random& random) {
    Hairdress dress;
    const bool man = identity.male > 0.5f;
    const bool african = identity.MainEthnicity() == 0;
    const bool curly = random.Chance(african ? 0.75f : 0.12f);
    dress.streaks = curly ? 2 + random.Below(2) : random.Below(2);
    const StreakTexture& streak = streaks[static_cast<std::size_t>(dress.streaks)];
    const auto suits = Suiting(model, identity);
    const float fittedShare = man ? 0.35f : (curly ? 0.25f : 0.5f);
    const bool fitted = !suits.empty() && hairiness.scalp > 0 && random.Chance(fittedShare);
    const float bald = man && identity.age != AgeBand::kChild
                           ? (identity.age == AgeBand::kYoung ? 0.05f : 0.17f)
                           : 0.0f;
    const bool shaven = random.Chance(bald + (man ? 0.08f : 0.0f));

    HairStyle usual;
    if (hairiness.scalp == 0 || shaven) {
        usual.id = 1;
    } else if (fitted) {
        const std::size_t which =
            suits[static_cast<std::size_t>(random.Below(static_cast<int>(suits.size())))];
        usual.id = 10 + static_cast<int>(which);
        usual.texture = static_cast<int>(which);
        usual.piece = FitHair(model, shape, which, random);
        usual.underCap = BelowRim(usual.piece);
        if (!man && random.Chance(0.4f)) {
            usual.fringe = GrowFringe(model, shape, hairiness.hairline, streak, random);
        }
    } else {
        usual.id = 2;
        usual.piece = GrowHair(model, shape, hairiness.hairline, DrawCut(identity, curly, random),
                               curly, streak, random);
        usual.underCap = BelowRim(usual.piece);
        if (random.Chance(man ? 0.07f : 0.7f)) {
            usual.id = 4;
            usual.curtain = HangCurtain(model, shape, curly, streak, random);
            if (random.Chance(0.4f)) {
                usual.fringe = GrowFringe(model, shape, hairiness.hairline, streak, random);
            }
        }
    }
    dress.styles.push_back(std::move(usual));
    if (hairiness.scalp > 0) {
        // Another day, another cut.
        HairStyle other;
        other.id = 3;
        other.piece = GrowHair(model, shape, hairiness.hairline, DrawCut(identity, curly, random),
                               curly, streak, random);
        other.underCap = BelowRim(other.piece);
        if (!man && random.Chance(0.6f)) {
            other.id = 5;
            other.curtain = HangCurtain(model, shape, curly, streak, random);
        }
        dress.styles.push_back(std::move(other));
    }
    const bool mayBeLong =
        hairiness.beard != BeardStyle::kNone && hairiness.beard != BeardStyle::kShadow;
    if (mayBeLong && random.Chance(0.6f)) {
        dress.beard = GrowBeard(model, shape, hairiness.beard, streak, random);
    }
    return dress;
}

void PaintHairTiles(Atlas& atlas, const HeadModel& model, const Identity& identity,
                    const Hairdress& hairdress, const std::vector<StreakTexture>& streaks,
                    Random& random) {
    const auto paint = [&](const atlas::Tile& tile, const Picture& tone, float contrast) {
        for (int y = 0; y < tile.height; ++y) {
            for (int x = 0; x < tile.width; ++x) {
                const float t = static_cast<float>(*tone.At(x, y)) / 128.0f;
                const float relative = std::max(0.15f, 1.0f + contrast * (t - 1.0f));
                atlas.Set(tile.x + x, tile.y + y,
                          std::min(identity.hairReflectance * relative, 0.9f));
            }
        }
    };
    paint(atlas::kStreaks, streaks[static_cast<std::size_t>(hairdress.streaks)].tone,
          random.Uniform(0.5f, 1.1f));
    const int texture = hairdress.styles.front().texture;
    if (texture >= 0) {
        paint(atlas::kHair, model.hairTextures[static_cast<std::size_t>(texture)].tone,
              random.Uniform(0.6f, 1.1f));
    }
}

} // namespace facegen
