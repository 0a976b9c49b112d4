// SPDX-License-Identifier: MIT
#include "wear/hair.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "skin/noise_fields.h"
#include "wear/shell.h"

namespace facegen {
namespace {

constexpr int streak_size = atlas::streaks.width;

Picture streak_picture(float along, float across, float waviness, std::uint32_t seed) {
    Picture tone(streak_size, streak_size, 1);
    for (int y = 0; y < streak_size; ++y) {
        for (int x = 0; x < streak_size; ++x) {
            const float fx = static_cast<float>(x), fy = static_cast<float>(y);
            const float bend = waviness * value_noise({fx / 40.0F, fy / 40.0F, 0.5F}, seed + 7);
            const float sx = (fx + bend) / across, sy = (fy + 0.5F * bend) / along;
            const float value = 0.6F * value_noise({sx, sy, 0.0F}, seed) +
                                0.4F * value_noise({sx / 3.0F, sy / 2.0F, 3.0F}, seed + 1);
            *tone.at(x, y) =
                static_cast<std::uint8_t>(std::clamp(128.0F + 90.0F * value, 0.0F, 255.0F));
        }
    }
    return tone;
}

// Strands run from the crown outwards: rows of the texture are rings about it.
void comb_from_crown(const HeadModel& model, Piece& piece) {
    for (std::size_t i = 0; i < piece.surface.point.size(); ++i) {
        const Vec3 base = model.base[piece.follows[piece.surface.point[i]]];
        const Vec3 away = base - Vec3{0, 7.3F, 0.35F};
        const float around =
            std::fabs(std::atan2(away.x, away.z + 0.25F)) / std::numbers::pi_v<float>;
        const float down =
            std::acos(std::clamp(away.y / length(away), -1.0F, 1.0F)) / std::numbers::pi_v<float>;
        piece.surface.u[i] = static_cast<float>(atlas::streaks.x) + 1.0F + around * 252.0F;
        piece.surface.v[i] = static_cast<float>(atlas::streaks.y) + 1.0F + down * 252.0F;
    }
}

void comb_downwards(const HeadModel& model, Piece& piece) {
    for (std::size_t i = 0; i < piece.surface.point.size(); ++i) {
        const Vec3 base = model.base[piece.follows[piece.surface.point[i]]];
        piece.surface.u[i] = static_cast<float>(atlas::streaks.x) + 126.0F +
                             std::clamp(base.x * 150.0F, -124.0F, 124.0F);
        piece.surface.v[i] = static_cast<float>(atlas::streaks.y) + 1.0F +
                             std::clamp((7.4F - base.y) * 150.0F, 0.0F, 252.0F);
    }
}

void cover_with_streaks(Piece& piece, const StreakTexture& streaks, Material material, float sharp,
                        float fray) {
    piece.style.material = material;
    piece.style.two_sided = true;
    piece.style.coverage = {Coverage::Kind::field, &streaks.tone, atlas::streaks.x,
                            atlas::streaks.y,      sharp,         fray};
}

struct Cut {
    float top, side, front, swirl, bumps;
    int parting; // -1, 0, 1
};

Cut draw_cut(const Identity& identity, bool curly, Random& random) {
    Cut cut{};
    const float size = random.uniform();
    cut.top = 0.03F + 0.33F * size * size;
    cut.side = cut.top * random.uniform(0.12F, 0.8F);
    cut.front = random.chance(0.4F) ? random.uniform(0.0F, 0.22F) : 0.0F;
    cut.swirl = random.uniform(0.0F, 0.35F);
    cut.bumps = random.uniform(0.1F, 0.5F);
    cut.parting = random.below(3) - 1;
    if (curly && random.chance(0.6F)) {
        cut.top = random.uniform(0.15F, identity.male > 0.5F ? 0.5F : 0.75F);
        cut.side = cut.top * random.uniform(0.6F, 1.0F);
    }
    return cut;
}

Piece grow_hair(const HeadModel& model, const Shape& shape, const Hairline& hairline,
                const Cut& cut, bool curly, const StreakTexture& streaks, Random& random) {
    const auto seed = static_cast<std::uint32_t>(random.next());
    Piece piece = grow_shell(model, shape.points, -0.06F, [&](std::uint32_t point) {
        const Vec3 base = model.base[point];
        if (base.y < 5.9F) {
            return ShellPoint{{}, -1.0F};
        }
        const float above = above_hairline(base, hairline);
        const float top = smooth_step(7.65F, 8.25F, base.y);
        const float at = azimuth(base);
        const float front = smooth_step(1.1F, 0.3F, at) * smooth_step(7.75F, 8.1F, base.y);
        float thickness = mix(cut.side, cut.top, top) + cut.front * front;
        thickness *= 1.0F + cut.bumps * value_noise(base * 4.0F, seed);
        if (cut.parting != 0) {
            const float away = (base.x * static_cast<float>(cut.parting) - 0.28F) / 0.07F;
            thickness *= 1.0F - 0.7F * top * std::exp(-away * away);
        }
        thickness *= smooth_step(-0.04F, curly ? 0.1F : 0.26F, above);
        Vec3 way = shape.normals[point] + Vec3{0, 0.35F * top, 0.5F * front};
        // A slope, not a wall, where the hair begins.
        thickness = std::min(thickness, 0.03F + 1.1F * std::max(above, 0.0F));
        way += Vec3{cut.swirl * static_cast<float>(cut.parting) * top, 0, 0};
        return ShellPoint{normalised(way) * (thickness + 0.006F), above};
    });
    comb_from_crown(model, piece);
    cover_with_streaks(piece, streaks, hair_material, curly ? 16.0F : 11.0F,
                       random.uniform(0.06F, 0.22F));
    return piece;
}

Piece grow_beard(const HeadModel& model, const Shape& shape, BeardStyle style,
                 const StreakTexture& streaks, Random& random) {
    const float length_at_chin = random.uniform(0.02F, style == BeardStyle::full ? 0.3F : 0.13F);
    const float length_at_cheek = length_at_chin * random.uniform(0.15F, 0.6F);
    const auto seed = static_cast<std::uint32_t>(random.next());
    Piece piece = grow_shell(model, shape.points, -0.05F, [&](std::uint32_t point) {
        const Vec3 base = model.base[point];
        float depth = inside_beard(base);
        if (style == BeardStyle::goatee) {
            depth = std::min(depth, 0.25F * (goatee(base) - 0.3F));
        } else if (style == BeardStyle::moustache) {
            depth = std::min(depth, 0.2F * (moustache(base) - 0.3F));
        }
        const float chin = goatee(base);
        float thickness =
            mix(length_at_cheek, length_at_chin, chin * smooth_step(6.7F, 6.4F, base.y));
        thickness *=
            (1.0F + 0.4F * value_noise(base * 6.0F, seed)) * smooth_step(-0.02F, 0.14F, depth);
        const Vec3 way = normalised(shape.normals[point] + Vec3{0, -0.6F, 0.1F});
        return ShellPoint{way * (thickness + 0.008F), depth};
    });
    comb_downwards(model, piece);
    cover_with_streaks(piece, streaks, beard_material, 14.0F, random.uniform(0.08F, 0.2F));
    return piece;
}

// Hair that hangs from the sides and the back of the head: a sheet around it, open in front.
Piece hang_curtain(const HeadModel& model, const Shape& shape, bool curly,
                   const StreakTexture& streaks, Random& random) {
    // The head's half width, back and middle at the level of the temples.
    float wide = 0, back = far_away;
    for (std::size_t i = 0; i < shape.points.size(); ++i) {
        const Vec3 base = model.base[i];
        if (base.y > 7.4F && base.y < 8.1F && std::fabs(base.x) < 0.8F) {
            wide = std::max(wide, std::fabs(shape.points[i].x));
            back = std::min(back, shape.points[i].z);
        }
    }
    const float front = -0.32F;
    const float middle = 0.5F * (front + back) - 0.1F;
    const float volume = random.uniform(0.04F, curly ? 0.4F : 0.2F);
    const float length =
        random.chance(0.5F) ? random.uniform(0.6F, 1.3F) : random.uniform(1.2F, 2.8F);
    const float opening = random.uniform(0.75F, 1.3F); // angle from straight ahead
    const float flare = random.uniform(-0.15F, 0.3F),
                wave = random.uniform(0.0F, curly ? 0.07F : 0.035F);
    const float rings = random.uniform(5.0F, 16.0F), layer = random.uniform(0.0F, 0.35F);
    const auto seed = static_cast<std::uint32_t>(random.next());
    constexpr int columns = 44, rows = 26;
    Piece piece;
    for (int c = 0; c <= columns; ++c) {
        const float s = static_cast<float>(c) / columns;
        const float angle = mix(opening, 2 * std::numbers::pi_v<float> - opening, s);
        const float from_front = std::min(s, 1.0F - s) * 2.0F; // 0 at the open edges
        for (int r = 0; r <= rows; ++r) {
            const float t = static_cast<float>(r) / rows;
            const float top = 0.62F, y = mix(top, -length + layer * (1.0F - from_front), t);
            // Close to the skull on top, falling straight below the ears.
            const float out = volume * smooth_step(top, 0.05F, y) +
                              flare * smooth_step(-0.3F, -length, y) +
                              0.06F * smooth_step(0.45F, -0.1F, y);
            const float close = 0.24F * smooth_step(0.2F, top, y);
            const float lock =
                0.035F * value_noise({angle * 6.0F, y * 0.7F, 0.0F}, seed) +
                wave * std::sin(rings * y + 5.0F * value_noise({angle * 3.0F, y, 4.0F}, seed));
            const float a = wide + out - close + lock,
                        b = 0.5F * (front - back) + 0.28F + 0.7F * out - close + lock;
            piece.points.push_back({a * std::sin(angle), y, middle + b * std::cos(angle)});
            // Frayed at the hem and at the open edges.
            piece.field.push_back(
                std::min({1.2F * (1.0F - t) * length, 1.6F * from_front, 0.5F * t + 0.1F}) - 0.04F);
            piece.occlusion.push_back(mix(0.5F, 0.95F, smooth_step(-1.2F, 0.3F, y)));
            piece.surface.point.push_back(static_cast<std::uint32_t>(piece.points.size() - 1));
            piece.surface.u.push_back(static_cast<float>(atlas::streaks.x) + 1.0F + 252.0F * s);
            piece.surface.v.push_back(static_cast<float>(atlas::streaks.y) + 1.0F +
                                      252.0F * std::min(t * length / 2.8F, 1.0F));
        }
    }
    for (std::uint32_t c = 0; c < columns; ++c) {
        for (std::uint32_t r = 0; r < rows; ++r) {
            const std::uint32_t a = c * (rows + 1) + r, b = a + rows + 1;
            piece.surface.triangles.push_back({a, b, b + 1});
            piece.surface.triangles.push_back({a, b + 1, a + 1});
        }
    }
    cover_with_streaks(piece, streaks, hair_material, 9.0F, random.uniform(0.1F, 0.3F));
    return piece;
}

// Hair combed over the forehead, to one side or straight.
Piece grow_fringe(const HeadModel& model, const Shape& shape, const Hairline& hairline,
                  const StreakTexture& streaks, Random& random) {
    Hairline lower = hairline;
    lower.raise -= random.uniform(0.1F, 0.36F);
    lower.recede = random.uniform(-0.1F, 0.1F);
    lower.peak = 0;
    const float slant = random.uniform(-0.35F, 0.35F);
    const float thick = random.uniform(0.03F, 0.1F);
    Piece piece = grow_shell(model, shape.points, -0.05F, [&](std::uint32_t point) {
        const Vec3 base = model.base[point];
        const float above = above_hairline(base, lower) + slant * base.x;
        const float inside = std::min(above, 0.6F * (0.95F - azimuth(base)));
        const float high = base.y > 8.25F ? -1.0F : inside;
        const float thickness = thick * smooth_step(-0.03F, 0.1F, inside);
        return ShellPoint{shape.normals[point] * (thickness + 0.008F), high};
    });
    comb_from_crown(model, piece);
    cover_with_streaks(piece, streaks, hair_material, 13.0F, random.uniform(0.08F, 0.2F));
    return piece;
}

// A ready-made style on this head, a little different for each person.
Piece fit_hair(const HeadModel& model, const Shape& shape, std::size_t which, Random& random) {
    const Fitted& hair = model.hairs[which];
    Piece piece;
    piece.points = fit(hair.fitting, shape.points);
    piece.surface = hair.surface;
    const bool mirrored = random.chance(0.5F);
    const Vec3 scale{random.uniform(0.98F, 1.1F), random.uniform(0.97F, 1.1F),
                     random.uniform(0.99F, 1.07F)};
    const float sway = random.uniform(-0.05F, 0.05F);
    const float longer = random.uniform(-0.35F, 0.25F);
    // Cut off at the chin, the neck or the shoulders; what hangs lower is folded up into the hem.
    const float hem = random.chance(0.5F) ? random.uniform(-2.4F, -0.55F) : -far_away;
    for (Vec3& p : piece.points) {
        const Vec3 middle{0, 0.1F, -0.75F};
        const Vec3 d = p - middle;
        p = middle + Vec3{d.x * scale.x, d.y * scale.y, d.z * scale.z};
        const float hanging = std::max(-0.3F - p.y, 0.0F);
        p.y -= longer * hanging * 0.5F;
        p.x += sway * hanging;
        p.y = std::max(p.y, hem + 0.04F * std::sin(9.0F * p.x + 7.0F * p.z));
        p.x = mirrored ? -p.x : p.x;
    }
    if (mirrored) {
        for (Triangle& t : piece.surface.triangles) {
            std::swap(t[1], t[2]);
        }
    }
    piece.style.material = hair_material;
    piece.style.two_sided = true;
    piece.style.coverage = {Coverage::Kind::texture,
                            &model.hair_textures[which].alpha,
                            atlas::hair.x,
                            atlas::hair.y,
                            1.25F,
                            0};
    // Strands deep inside the hair get little light.
    for (const Vec3& p : piece.points) {
        piece.occlusion.push_back(smooth_step(0.35F, 1.15F, length(p - Vec3{0, 0.1F, -0.75F})));
    }
    return piece;
}

std::vector<Triangle> below_rim(const Piece& piece) {
    std::vector<Triangle> kept;
    for (const Triangle& t : piece.surface.triangles) {
        float highest = -far_away;
        for (const std::uint32_t vertex : t) {
            highest = std::max(highest, piece.points[piece.surface.point[vertex]].y);
        }
        if (highest < 0.2F) {
            kept.push_back(t);
        }
    }
    return kept;
}

// Which ready-made styles suit (short03 hides an eye, hence seldom); names that are not among the
// assets are passed over.
std::vector<std::size_t> suiting(const HeadModel& model, const Identity& identity) {
    const std::vector<std::string> hers{"long01", "ponytail01", "braid01"};
    const std::vector<std::string> his{"short01", "short02", "short04", "short01",
                                       "short02", "short04", "short03"};
    std::vector<std::size_t> fitting;
    for (const std::string& name : identity.male > 0.5F ? his : hers) {
        for (std::size_t i = 0; i < model.hairs.size(); ++i) {
            if (model.hairs[i].name == name) {
                fitting.push_back(i);
            }
        }
    }
    return fitting;
}

} // namespace

std::vector<StreakTexture> make_streaks() {
    std::vector<StreakTexture> all;
    all.push_back({streak_picture(34, 1.6F, 3, 1)});    // straight
    all.push_back({streak_picture(22, 2.2F, 14, 2)});   // wavy
    all.push_back({streak_picture(5, 3.0F, 22, 3)});    // curly
    all.push_back({streak_picture(3.2F, 2.6F, 10, 4)}); // tight curls
    return all;
}

Hairiness draw_hairiness(const Identity& identity, Random& random) {
    Hairiness h;
    const bool man = identity.male > 0.5F;
    const bool grown = identity.age != AgeBand::child;
    h.hairline.raise = random.uniform(-0.12F, 0.1F);
    h.hairline.recede = random.uniform(-0.05F, 0.06F);
    if (man && grown && random.chance(0.35F)) {
        h.hairline.raise += random.uniform(0.0F, 0.22F);
        h.hairline.recede += random.uniform(0.05F, 0.4F);
    }
    h.hairline.peak = random.chance(0.4F) ? random.uniform(0.0F, 0.12F) : 0.0F;
    h.hairline.sideburn = random.uniform(-0.15F, man ? 0.25F : 0.0F);
    h.hairline.wave = random.uniform(0.0F, 0.025F);
    h.hairline.wave_phase = random.uniform(0.0F, 6.28F);
    h.scalp = random.uniform(0.85F, 1.0F);
    if (man && grown && random.chance(0.62F)) {
        const float at = random.uniform();
        h.beard = at < 0.45F   ? BeardStyle::shadow
                  : at < 0.58F ? BeardStyle::moustache
                  : at < 0.74F ? BeardStyle::goatee
                               : BeardStyle::full;
        h.beard_density = h.beard == BeardStyle::shadow ? random.uniform(0.05F, 0.45F)
                                                        : random.uniform(0.5F, 1.0F);
    }
    return h;
}

Hairdress draw_hairdress(const HeadModel& model, const Shape& shape, const Identity& identity,
                         const Hairiness& hairiness, const std::vector<StreakTexture>& streaks,
                         Random& random) {
    Hairdress dress;
    const bool man = identity.male > 0.5F;
    const bool african = identity.main_ethnicity() == 0;
    const bool curly = random.chance(african ? 0.75F : 0.12F);
    dress.streaks = curly ? 2 + random.below(2) : random.below(2);
    const StreakTexture& streak = streaks[static_cast<std::size_t>(dress.streaks)];
    const auto suits = suiting(model, identity);
    const float fitted_share = man ? 0.35F : (curly ? 0.25F : 0.5F);
    const bool fitted = !suits.empty() && hairiness.scalp > 0 && random.chance(fitted_share);
    const float bald = man && identity.age != AgeBand::child
                           ? (identity.age == AgeBand::young ? 0.05F : 0.17F)
                           : 0.0F;
    const bool shaven = random.chance(bald + (man ? 0.08F : 0.0F));

    HairStyle usual;
    if (hairiness.scalp == 0 || shaven) {
        usual.id = 1;
    } else if (fitted) {
        const std::size_t which =
            suits[static_cast<std::size_t>(random.below(static_cast<int>(suits.size())))];
        usual.id = 10 + static_cast<int>(which);
        usual.texture = static_cast<int>(which);
        usual.piece = fit_hair(model, shape, which, random);
        usual.under_cap = below_rim(usual.piece);
        if (!man && random.chance(0.4F)) {
            usual.fringe = grow_fringe(model, shape, hairiness.hairline, streak, random);
        }
    } else {
        usual.id = 2;
        usual.piece = grow_hair(model, shape, hairiness.hairline, draw_cut(identity, curly, random),
                                curly, streak, random);
        usual.under_cap = below_rim(usual.piece);
        if (random.chance(man ? 0.07F : 0.7F)) {
            usual.id = 4;
            usual.curtain = hang_curtain(model, shape, curly, streak, random);
            if (random.chance(0.4F)) {
                usual.fringe = grow_fringe(model, shape, hairiness.hairline, streak, random);
            }
        }
    }
    dress.styles.push_back(std::move(usual));
    if (hairiness.scalp > 0) {
        // Another day, another cut.
        HairStyle other;
        other.id = 3;
        other.piece = grow_hair(model, shape, hairiness.hairline, draw_cut(identity, curly, random),
                                curly, streak, random);
        other.under_cap = below_rim(other.piece);
        if (!man && random.chance(0.6F)) {
            other.id = 5;
            other.curtain = hang_curtain(model, shape, curly, streak, random);
        }
        dress.styles.push_back(std::move(other));
    }
    const bool may_be_long =
        hairiness.beard != BeardStyle::none && hairiness.beard != BeardStyle::shadow;
    if (may_be_long && random.chance(0.6F)) {
        dress.beard = grow_beard(model, shape, hairiness.beard, streak, random);
    }
    return dress;
}

void paint_hair_tiles(Atlas& atlas, const HeadModel& model, const Identity& identity,
                      const Hairdress& hairdress, const std::vector<StreakTexture>& streaks,
                      Random& random) {
    const auto paint = [&](const atlas::Tile& tile, const Picture& tone, float contrast) {
        for (int y = 0; y < tile.height; ++y) {
            for (int x = 0; x < tile.width; ++x) {
                const float t = static_cast<float>(*tone.at(x, y)) / 128.0F;
                const float relative = std::max(0.15F, 1.0F + contrast * (t - 1.0F));
                atlas.set(tile.x + x, tile.y + y,
                          std::min(identity.hair_reflectance * relative, 0.9F));
            }
        }
    };
    paint(atlas::streaks, streaks[static_cast<std::size_t>(hairdress.streaks)].tone,
          random.uniform(0.5F, 1.1F));
    const int texture = hairdress.styles.front().texture;
    if (texture >= 0) {
        paint(atlas::hair, model.hair_textures[static_cast<std::size_t>(texture)].tone,
              random.uniform(0.6F, 1.1F));
    }
}

} // namespace facegen
