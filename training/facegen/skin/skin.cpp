// SPDX-License-Identifier: MIT
#include "skin/skin.h"

#include <algorithm>
#include <bit>
#include <cmath>

namespace facegen {
namespace {

constexpr int tile_width = atlas::skin.width, tile_height = atlas::skin.height;

// 2^x to about 3 parts in 10000, in a form that compilers vectorise.
inline float fast_exp2(float x) {
    x = std::max(x, -24.0F);
    const float whole = std::floor(x);
    const float part = x - whole;
    const float power = 1.0F + part * (0.69583282F + part * (0.22606716F + part * 0.07810022F));
    return power * std::bit_cast<float>((static_cast<std::int32_t>(whole) + 127) << 23);
}

std::uint8_t byte(float share) { return static_cast<std::uint8_t>(255.0F * clamp01(share)); }

// Skins of the same depth of tone go together best.
std::size_t pick_skin(const HeadModel& model, const Identity& identity, Random& random) {
    const bool dark = identity.reflectance < 0.15F;
    for (int attempt = 0; attempt < 40; ++attempt) {
        const auto at =
            static_cast<std::size_t>(random.below(static_cast<int>(model.skins.size())));
        const std::string& name = model.skin_names[at];
        const bool is_dark = name.find("darkskinned") != std::string::npos;
        const bool is_old = name.starts_with("old");
        const bool wants_old = identity.age == AgeBand::old ||
                               (identity.age == AgeBand::middle && random.chance(0.3F));
        if (is_dark == dark && is_old == wants_old) {
            return at;
        }
    }
    return static_cast<std::size_t>(random.below(static_cast<int>(model.skins.size())));
}

using Logs = std::vector<float>; // log2 of reflectance over the skin's own, by texel

Logs mixed_skins(const HeadModel& model, const SkinKit& kit, const Identity& identity,
                 Random& random) {
    const std::int16_t* one = model.skins[pick_skin(model, identity, random)].data();
    const std::int16_t* other = model.skins[pick_skin(model, identity, random)].data();
    const float contrast = random.uniform(0.9F, 1.6F);
    const float share = random.uniform();
    const float of_one = contrast * share / 2048.0F, of_other = contrast * (1.0F - share) / 2048.0F;
    Logs logs(model.texel_base.size());
    for (std::size_t i = 0; i < logs.size(); ++i) {
        logs[i] = of_one * static_cast<float>(one[i]) + of_other * static_cast<float>(other[i]);
    }
    const auto add = [&](const NoiseField& field, float weight) {
        const std::int8_t* from = field.data();
        for (std::size_t i = 0; i < logs.size(); ++i) {
            logs[i] += weight * static_cast<float>(from[i]);
        }
    };
    const float broad = random.uniform(0.03F, 0.13F) / 127.0F;
    for (const NoiseField& field : kit.broad) {
        add(field, broad * random.normal_within(1, 2));
    }
    const float middling = random.uniform(0.02F, 0.1F) / 127.0F;
    for (const NoiseField& field : kit.middling) {
        add(field, middling * random.normal_within(1, 2));
    }
    const float fine = (0.02F + 0.05F * random.uniform() + 0.06F * identity.wrinkles) / 127.0F;
    for (const NoiseField& field : kit.fine) {
        add(field, fine * random.normal_within(1, 2));
    }
    return logs;
}

void paint_spot(Logs& logs, int x, int y, float radius, float depth) {
    const int reach = static_cast<int>(radius * 1.6F) + 1;
    for (int j = std::max(0, y - reach); j <= std::min(tile_height - 1, y + reach); ++j) {
        for (int i = std::max(0, x - reach); i <= std::min(tile_width - 1, x + reach); ++i) {
            const float away = std::hypot(static_cast<float>(i - x), static_cast<float>(j - y));
            logs[static_cast<std::size_t>(j) * tile_width + static_cast<std::size_t>(i)] -=
                depth * smooth_step(radius * 1.3F, radius * 0.5F, away);
        }
    }
}

void paint_spots(Logs& logs, const SkinKit& kit, const Identity& identity, Random& random) {
    const auto anywhere = [&] {
        return kit
            .front[static_cast<std::size_t>(random.below(static_cast<int>(kit.front.size())))];
    };
    const auto spot = [&](float radius, float depth) {
        const std::uint32_t at = anywhere();
        paint_spot(logs, static_cast<int>(at % tile_width), static_cast<int>(at / tile_width),
                   radius, depth);
    };
    const int moles = random.chance(0.6F) ? random.below(6) : 0;
    for (int i = 0; i < moles; ++i) {
        spot(random.uniform(1.0F, 3.2F), random.uniform(0.5F, 1.8F));
    }
    if (random.chance(0.12F)) {
        spot(random.uniform(5.0F, 16.0F), random.uniform(-0.4F, 0.6F)); // a birthmark
    }
    if (identity.reflectance > 0.25F && random.chance(0.2F)) {
        const int freckles = 60 + random.below(250);
        for (int i = 0; i < freckles; ++i) {
            spot(random.uniform(0.7F, 1.5F), random.uniform(0.1F, 0.45F));
        }
    }
    const int blotches = random.below(identity.age == AgeBand::old ? 24 : 8);
    for (int i = 0; i < blotches; ++i) {
        spot(random.uniform(2.0F, 7.0F), random.uniform(-0.12F, 0.25F));
    }
    if (random.chance(0.08F)) { // a scar
        const std::uint32_t from = anywhere();
        const float angle = random.uniform(0.0F, 6.28F), depth = random.uniform(-0.5F, 0.5F);
        const int steps = 6 + random.below(16);
        for (int i = 0; i < steps; ++i) {
            const float along = 1.5F * static_cast<float>(i);
            paint_spot(
                logs,
                static_cast<int>(from % tile_width) + static_cast<int>(along * std::cos(angle)),
                static_cast<int>(from / tile_width) + static_cast<int>(along * std::sin(angle)),
                1.2F, depth);
        }
    }
}

// Folds and shadows of the face itself, in the base mesh's coordinates.
struct Folds {
    float forehead, frown, laugh, crow, bags, sockets, cheeks, nose;
    float laugh_slant, forehead_pitch, forehead_phase;

    float operator()(Vec3 p) const {
        const float x = std::fabs(p.x);
        float dark = 0;
        const auto line = [](float distance, float width) {
            const float t = distance / width;
            return 1.0F / (1.0F + t * t * t * t);
        };
        if (p.y > 7.5F && p.y < 7.92F && x < 0.48F) {
            const float wave = 0.012F * std::sin(7.0F * p.x + forehead_phase);
            const float at = (p.y + wave - 7.53F) / forehead_pitch;
            const float away = std::fabs(at - std::round(at)) * forehead_pitch;
            dark += forehead * line(away, 0.011F) * smooth_step(0.48F, 0.3F, x) *
                    smooth_step(7.92F, 7.85F, p.y);
        }
        if (p.y > 7.3F && p.y < 7.55F && x < 0.12F) {
            dark += frown * line(std::fabs(x - 0.06F - 0.1F * (p.y - 7.35F)), 0.011F) *
                    smooth_step(7.3F, 7.36F, p.y) * smooth_step(7.55F, 7.46F, p.y);
        }
        if (p.y > 6.5F && p.y < 6.98F && x > 0.1F && x < 0.5F) {
            const float middle = 0.2F + (6.95F - p.y) * laugh_slant;
            dark += laugh * line(std::fabs(x - middle), 0.016F) * smooth_step(6.98F, 6.9F, p.y) *
                    smooth_step(6.5F, 6.62F, p.y);
        }
        if (x > 0.5F && x < 0.7F && p.y > 7.1F && p.y < 7.42F) {
            const float spread = (p.y - 7.27F) / (0.35F + (x - 0.5F)) * 9.0F;
            dark += crow * line(std::fabs(spread - std::round(spread)), 0.2F) *
                    smooth_step(0.5F, 0.55F, x) * smooth_step(0.7F, 0.6F, x);
        }
        const float eye_x = (x - 0.31F) / 0.17F;
        const float under = (p.y - 7.16F - 0.05F * eye_x * eye_x) / 0.06F;
        dark += bags * std::exp(-1.5F * (eye_x * eye_x + under * under));
        const float over = (p.y - 7.36F) / 0.07F;
        dark += sockets * std::exp(-1.2F * (eye_x * eye_x + over * over));
        const float cheek_x = (x - 0.44F) / 0.18F, cheek_y = (p.y - 6.93F) / 0.17F;
        dark += cheeks * std::exp(-cheek_x * cheek_x - cheek_y * cheek_y);
        const float nose_x = x / 0.13F, nose_y = (p.y - 6.93F) / 0.12F;
        dark += nose * std::exp(-nose_x * nose_x - nose_y * nose_y);
        return dark;
    }
};

Folds draw_folds(const Identity& identity, Random& random) {
    const float age = identity.wrinkles;
    Folds folds{};
    folds.forehead = age * random.uniform(0.0F, 0.75F);
    folds.frown = age * random.uniform(0.0F, 0.8F);
    folds.laugh = (0.08F + age) * random.uniform(0.1F, 0.75F);
    folds.crow = age * random.uniform(0.0F, 0.6F);
    folds.bags = random.uniform(-0.05F, 0.25F) + age * random.uniform(0.0F, 0.45F);
    folds.sockets = random.uniform(-0.1F, 0.45F);
    folds.cheeks = random.uniform(-0.15F, 0.25F);
    folds.nose = random.uniform(-0.15F, 0.25F);
    folds.laugh_slant = random.uniform(0.3F, 0.55F);
    folds.forehead_pitch = random.uniform(0.075F, 0.11F);
    folds.forehead_phase = random.uniform(0.0F, 6.28F);
    return folds;
}

// The dark lines and hollows of the inner face that every real face shows, sharp where they are
// sharp in pictures: nostrils and the shadow under the nose, the lids' crease and edge, the line
// between the lips, the groove beside the nostrils and that above the chin.
struct Hollows {
    float nostrils, nose_base, crease, lid_edge, lip_line, wings, chin;
    float crease_lift, nostril_size;

    float operator()(Vec3 p) const {
        const float x = std::fabs(p.x);
        const auto line = [](float distance, float width) {
            const float t = distance / width;
            return 1.0F / (1.0F + t * t * t * t);
        };
        const auto spot = [&](Vec3 at, float radius) {
            const Vec3 d{x - at.x, p.y - at.y, p.z - at.z};
            return std::exp(-dot(d, d) / (radius * radius));
        };
        float dark = 0;
        dark += nostrils * spot({0.086F, 6.858F, 1.553F}, nostril_size);
        dark += wings * spot({0.176F, 6.895F, 1.474F}, 0.03F);
        if (x < 0.2F && p.y > 6.76F && p.y < 6.9F) {
            dark += nose_base * smooth_step(0.2F, 0.1F, x) * smooth_step(6.76F, 6.83F, p.y) *
                    smooth_step(6.9F, 6.86F, p.y);
        }
        const float along = (x - 0.325F) / 0.12F;
        if (std::fabs(along) < 1.25F && p.y > 7.25F && p.y < 7.45F && p.z > 1.2F) {
            const float ends = smooth_step(1.25F, 0.8F, std::fabs(along));
            const float arch = 0.042F * along * along;
            dark += crease * ends * line(p.y - (7.368F + crease_lift - arch), 0.009F);
            dark += lid_edge * ends * line(p.y - (7.332F - 1.2F * arch), 0.008F);
        }
        if (x < 0.27F && p.y > 6.5F && p.y < 6.7F && p.z > 1.38F) {
            dark += lip_line * smooth_step(0.27F, 0.22F, x) * line(p.y - 6.604F, 0.009F);
        }
        const float chin_x = x / 0.16F, chin_y = (p.y - 6.42F) / 0.035F;
        dark += chin * std::exp(-chin_x * chin_x - chin_y * chin_y);
        return dark;
    }
};

Hollows draw_hollows(Random& random) {
    Hollows hollows{};
    hollows.nostrils = random.uniform(1.2F, 3.2F);
    hollows.nostril_size = random.uniform(0.022F, 0.036F);
    hollows.nose_base = random.uniform(0.05F, 0.45F);
    hollows.crease = random.chance(0.75F) ? random.uniform(0.2F, 0.9F) : 0.0F;
    hollows.crease_lift = random.uniform(-0.012F, 0.02F);
    hollows.lid_edge = random.uniform(0.2F, 1.0F);
    hollows.lip_line = random.uniform(0.3F, 1.3F);
    hollows.wings = random.uniform(0.1F, 0.7F);
    hollows.chin = random.uniform(0.0F, 0.35F);
    return hollows;
}

void paint_hollows(Logs& logs, const HeadModel& model, const SkinKit& kit, Random& random) {
    const Hollows hollows = draw_hollows(random);
    for (const std::uint32_t i : kit.front) {
        logs[i] -= hollows(model.texel_base[i]);
    }
}

void paint_face(Logs& logs, const HeadModel& model, const SkinKit& kit, const Identity& identity,
                Random& random) {
    const Folds folds = draw_folds(identity, random);
    const float lip_tone = random.chance(0.15F * (1.0F - identity.male))
                               ? random.uniform(-1.3F, -0.6F) // lipstick
                               : random.uniform(-0.75F, 0.0F);
    for (const std::uint32_t i : kit.front) {
        logs[i] -= folds(model.texel_base[i]);
        logs[i] += lip_tone * static_cast<float>(kit.lips[i]) * (1.0F / 255.0F);
    }
}

void paint_brows(Logs& logs, const HeadModel& model, const SkinKit& kit, const Identity& identity,
                 float hair_log, Random& random) {
    const auto pick = [&] {
        return static_cast<std::size_t>(random.below(static_cast<int>(model.brows.size())));
    };
    const std::uint8_t* one = model.brows[pick()].data();
    const std::uint8_t* other = model.brows[pick()].data();
    const float share = random.chance(0.5F) ? 1.0F : random.uniform(0.4F, 1.0F);
    const float density = random.uniform(0.7F, 2.0F) * mix(0.85F, 1.15F, identity.male) *
                          (identity.scanned ? 1.35F : 1.0F);
    const float tone = mix(hair_log, random.uniform(-3.0F, -1.0F), 0.35F);
    // Brows differ in their place too: the coverage is read a little off.
    const int shift = (random.below(11) - 5) + tile_width * (random.below(7) - 3);
    for (const std::uint32_t i : kit.front) {
        const auto from = static_cast<std::size_t>(
            std::clamp(static_cast<int>(i) + shift, 0, tile_width * tile_height - 1));
        const float coverage = clamp01(density *
                                       (share * static_cast<float>(one[from]) +
                                        (1.0F - share) * static_cast<float>(other[from])) *
                                       (1.0F / 255.0F));
        logs[i] = mix(logs[i], std::min(tone, logs[i]), coverage);
    }
}

void paint_hair(Logs& logs, const HeadModel& model, const SkinKit& kit, const Hairiness& hairiness,
                float hair_log, Random& random) {
    const float ragged = random.uniform(0.0002F, 0.0006F);
    const NoiseField& fine =
        kit.fine[static_cast<std::size_t>(random.below(static_cast<int>(kit.fine.size())))];
    const NoiseField& other = kit.middling[0];
    for (std::size_t i = 0; i < logs.size(); ++i) {
        const Vec3 base = model.texel_base[i];
        if (base.y < 6.2F || hairiness.scalp == 0) {
            continue;
        }
        const float above = above_hairline(base, kit.azimuth[i], hairiness.hairline) +
                            ragged * static_cast<float>(fine[i] + other[i]);
        if (above > -0.05F) {
            const float coverage = hairiness.scalp * smooth_step(-0.05F, 0.07F, above);
            const float tone = hair_log + 0.0025F * static_cast<float>(fine[i]);
            logs[i] = mix(logs[i], tone, coverage);
        }
    }
    if (hairiness.beard == BeardStyle::none) {
        return;
    }
    const float edge = random.uniform(0.03F, 0.12F), start = random.uniform(-0.02F, 0.07F);
    const float chin = random.uniform(0.6F, 1.0F);
    for (std::size_t i = 0; i < logs.size(); ++i) {
        if (kit.beard[i] == -128) {
            continue;
        }
        const float depth = static_cast<float>(kit.beard[i]) * (1.0F / 200.0F);
        float coverage = smooth_step(start, start + edge, depth);
        if (hairiness.beard == BeardStyle::moustache) {
            coverage = static_cast<float>(kit.moustache[i]) * (1.0F / 255.0F);
        } else if (hairiness.beard == BeardStyle::goatee) {
            coverage = static_cast<float>(kit.goatee[i]) * (1.0F / 255.0F);
        } else {
            coverage *= mix(chin, 1.0F, static_cast<float>(kit.goatee[i]) * (1.0F / 255.0F));
        }
        coverage *= hairiness.beard_density * (1.0F + 0.004F * static_cast<float>(fine[i]));
        logs[i] = mix(logs[i], std::min(hair_log, logs[i]), clamp01(coverage));
    }
}

} // namespace

SkinKit make_skin_kit(const HeadModel& model) {
    SkinKit kit;
    for (std::uint32_t i = 0; i < 8; ++i) {
        kit.broad.push_back(noise_field(model.texel_base, 0.33F, 11 + i));
    }
    for (std::uint32_t i = 0; i < 6; ++i) {
        kit.middling.push_back(noise_field(model.texel_base, 0.1F, 31 + i));
    }
    for (std::uint32_t i = 0; i < 4; ++i) {
        kit.fine.push_back(noise_field(model.texel_base, 0.022F, 51 + i));
    }
    const std::size_t texels = model.texel_base.size();
    for (const Vec3& base : model.texel_base) {
        kit.azimuth.push_back(azimuth(base));
    }
    kit.lips.resize(texels);
    kit.moustache.resize(texels);
    kit.goatee.resize(texels);
    kit.beard.assign(texels, -128);
    std::vector<std::uint8_t> stubble(texels);
    for (std::size_t i = 0; i < texels; ++i) {
        if (!model.texel_used[i]) {
            continue;
        }
        const Vec3 base = model.texel_base[i];
        kit.lips[i] = byte(lips(base));
        kit.moustache[i] = byte(moustache(base));
        kit.goatee[i] = byte(goatee(base));
        const float depth = inside_beard(base);
        kit.beard[i] = static_cast<std::int8_t>(std::clamp(depth * 200.0F, -127.0F, 127.0F));
        const float grain = 1.0F + 0.5F * static_cast<float>(kit.fine[1][i]) / 127.0F;
        stubble[i] = byte(0.8F * grain * smooth_step(0.0F, 0.12F, depth));
        if (base.z > 0.75F && std::fabs(base.x) < 0.72F && base.y > 6.1F && base.y < 7.95F) {
            kit.front.push_back(static_cast<std::uint32_t>(i));
        }
    }
    kit.stubble.assign(static_cast<std::size_t>(atlas::width) * atlas::height, 0);
    for (int y = 0; y + 1 < tile_height; ++y) {
        for (int x = 0; x + 1 < tile_width; ++x) {
            const std::uint8_t* at = stubble.data() + static_cast<std::size_t>(y) * tile_width + x;
            kit.stubble[static_cast<std::size_t>(y) * atlas::width + static_cast<std::size_t>(x)] =
                static_cast<std::uint32_t>(at[0]) | static_cast<std::uint32_t>(at[1]) << 8 |
                static_cast<std::uint32_t>(at[tile_width]) << 16 |
                static_cast<std::uint32_t>(at[tile_width + 1]) << 24;
        }
    }
    return kit;
}

void paint_skin(Atlas& atlas, const HeadModel& model, const SkinKit& kit, const Identity& identity,
                const Hairiness& hairiness, Random& random) {
    const float hair_log = std::log2(identity.hair_reflectance / identity.reflectance);
    Logs logs = mixed_skins(model, kit, identity, random);
    paint_face(logs, model, kit, identity, random);
    paint_spots(logs, kit, identity, random);
    if (identity.scanned) {
        paint_hollows(logs, model, kit, random);
    }
    paint_brows(logs, model, kit, identity, hair_log, random);
    paint_hair(logs, model, kit, hairiness, hair_log, random);
    const float tone = identity.reflectance;
    for (int y = 0; y < tile_height; ++y) {
        const float* from = logs.data() + static_cast<std::size_t>(y) * tile_width;
        std::uint32_t row[tile_width];
        for (int x = 0; x < tile_width; ++x) {
            const float reflectance = std::min(tone * fast_exp2(from[x]), 0.95F);
            row[x] = static_cast<std::uint32_t>(std::sqrt(reflectance) * 255.0F + 0.5F);
        }
        for (int x = 0; x < tile_width; ++x) {
            atlas.set_code(x, y, row[x]);
        }
    }
}

void paint_eyes_and_mouth(Atlas& atlas, const HeadModel& model, const Identity& identity,
                          Random& random) {
    const auto pick =
        static_cast<std::size_t>(random.below(static_cast<int>(model.eye_tones.size())));
    const Picture& eye = model.eye_tones[pick];
    const float light_eyes =
        identity.ethnicity[2] > 0.5F ? random.uniform(0.05F, 1.1F) : random.uniform(0.03F, 0.35F);
    const float white = random.uniform(0.33F, 0.55F);
    // The two irises in the eye textures, as shares of their width.
    constexpr float iris_x[2] = {0.705F, 0.292F}, iris_y[2] = {0.296F, 0.701F},
                    iris_radius = 0.118F;
    for (int y = 0; y < eye.height; ++y) {
        for (int x = 0; x < eye.width; ++x) {
            const float fx = (static_cast<float>(x) + 0.5F) / static_cast<float>(eye.width);
            const float fy = (static_cast<float>(y) + 0.5F) / static_cast<float>(eye.height);
            float away = 1.0F;
            for (int i = 0; i < 2; ++i) {
                away = std::min(away, std::hypot(fx - iris_x[i], fy - iris_y[i]));
            }
            const float code = *eye.at(x, y) / 255.0F;
            const float iris = light_eyes * code * code;
            const float sclera = white * std::min(1.0F, code * code * 2.3F);
            const float on_white = smooth_step(iris_radius * 0.96F, iris_radius * 1.08F, away);
            atlas.set(atlas::eyes.x + x, atlas::eyes.y + y, mix(iris, sclera, on_white));
        }
    }
    const auto fill = [&](const atlas::Tile& tile, float reflectance) {
        for (int y = 0; y < tile.height; ++y) {
            for (int x = 0; x < tile.width; ++x) {
                atlas.set(tile.x + x, tile.y + y, reflectance);
            }
        }
    };
    fill(atlas::teeth, random.uniform(0.4F, 0.75F));
    fill(atlas::tongue, random.uniform(0.15F, 0.28F));
}

} // namespace facegen
