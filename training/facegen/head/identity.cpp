// SPDX-License-Identifier: MIT
#include "head/identity.h"

#include <map>
#include <string>

namespace facegen {
namespace {

void add(std::vector<Vec3>& points, const Target& target, float weight) {
    for (std::size_t i = 0; i < target.point.size(); ++i) {
        points[target.point[i]] += target.shift[i] * weight;
    }
}

void draw_age(Identity& identity, Random& random) {
    const float at = random.uniform();
    identity.age = at < 0.1F   ? AgeBand::child
                   : at < 0.5F ? AgeBand::young
                   : at < 0.8F ? AgeBand::middle
                               : AgeBand::old;
    switch (identity.age) {
        case AgeBand::child:
        case AgeBand::young:
            identity.wrinkles = random.uniform(0.0F, 0.12F);
            break;
        case AgeBand::middle:
            identity.wrinkles = random.uniform(0.15F, 0.6F);
            break;
        case AgeBand::old:
            identity.wrinkles = random.uniform(0.5F, 1.0F);
            break;
    }
}

void draw_ethnicity(Identity& identity, Random& random) {
    const int most = random.below(ethnicities);
    const float share =
        random.chance(0.6F) ? random.uniform(0.75F, 1.1F) : random.uniform(0.4F, 0.75F);
    const float split = random.uniform();
    identity.ethnicity[most] = share;
    identity.ethnicity[(most + 1) % ethnicities] = (1.0F - share) * split;
    identity.ethnicity[(most + 2) % ethnicities] = (1.0F - share) * (1.0F - split);
}

void draw_tones(Identity& identity, Random& random) {
    // Reflectances multiply, so that their logarithms are mixed.
    const float usual[ethnicities] = {std::log(0.085F), std::log(0.3F), std::log(0.37F)};
    float tone = 0;
    for (int e = 0; e < ethnicities; ++e) {
        tone += identity.ethnicity[e] * usual[e];
    }
    tone += random.normal_within(0.27F, 2.2F);
    identity.reflectance = std::clamp(std::exp(tone), 0.035F, 0.55F);

    const bool may_be_fair = identity.ethnicity[2] > 0.5F && random.chance(0.6F);
    const float darkest = std::log(0.008F);
    const float fairest = std::log(may_be_fair ? 0.3F : 0.045F);
    identity.hair_reflectance = std::exp(random.uniform(darkest, fairest));
    const float greying = identity.age == AgeBand::old      ? 0.75F
                          : identity.age == AgeBand::middle ? 0.25F
                                                            : 0.0F;
    if (random.chance(greying)) {
        identity.hair_reflectance = random.uniform(0.1F, 0.4F);
    }
    identity.oiliness = random.uniform(0.15F, 1.0F);
}

struct AgeWeights {
    float of[ages];
};

AgeWeights age_weights(AgeBand band, Random& random) {
    const float t = random.uniform();
    switch (band) {
        case AgeBand::child:
            return {{mix(0.35F, 0.85F, t), mix(0.65F, 0.15F, t), 0.0F}};
        case AgeBand::young:
            return {{mix(0.15F, -0.1F, t), mix(0.85F, 1.1F, t), 0.0F}};
        case AgeBand::middle:
            return {{0.0F, mix(0.8F, 0.4F, t), mix(0.2F, 0.6F, t)}};
        case AgeBand::old:
            break;
    }
    return {{0.0F, mix(0.35F, -0.1F, t), mix(0.65F, 1.1F, t)}};
}

void add_macro(std::vector<Vec3>& points, const HeadModel& model, const Identity& identity,
               Random& random) {
    const AgeWeights age = age_weights(identity.age, random);
    const float sex[sexes] = {1.0F - identity.male, identity.male};
    for (int e = 0; e < ethnicities; ++e) {
        for (int s = 0; s < sexes; ++s) {
            for (int a = 0; a < ages; ++a) {
                const float weight = identity.ethnicity[e] * sex[s] * age.of[a];
                if (std::fabs(weight) > 0.01F) {
                    add(points, model.macro[e][s][a], weight);
                }
            }
        }
    }
}

float strength_of(const std::string& stem) {
    struct Strength {
        const char* start;
        float deviation;
    };
    // The first that fits counts.
    static constexpr Strength known[] = {{"head-age", 0.25F},
                                         {"head-angle", 0.3F},
                                         {"head-trans", 0.1F},
                                         {"head-fat", 0.34F},
                                         {"head", 0.36F},
                                         {"eye-push", 0.3F},
                                         {"eye-trans", 0.4F},
                                         {"eye-height", 0.38F},
                                         {"eye-scale", 0.4F},
                                         {"eye", 0.5F},
                                         {"nose-trans", 0.35F},
                                         {"nose-scale", 0.42F},
                                         {"nose", 0.5F},
                                         {"mouth-trans", 0.3F},
                                         {"mouth-scale", 0.38F},
                                         {"mouth-lowerlip-middle", 0.15F},
                                         {"mouth-upperlip-middle", 0.15F},
                                         {"mouth-lowerlip-height", 0.25F},
                                         {"mouth-upperlip-height", 0.25F},
                                         {"mouth-lowerlip-ext", 0.2F},
                                         {"mouth-upperlip-ext", 0.2F},
                                         {"mouth", 0.4F},
                                         {"ear", 0.45F},
                                         {"chin-width", 0.34F},
                                         {"chin-bones", 0.36F},
                                         {"chin-jaw-drop", 0.34F},
                                         {"chin", 0.42F},
                                         {"cheek-volume", 0.38F},
                                         {"cheek", 0.48F},
                                         {"forehead", 0.48F},
                                         {"neck", 0.35F}};
    for (const Strength& s : known) {
        if (stem.starts_with(s.start)) {
            return s.deviation;
        }
    }
    return 0.4F;
}

// `share` weakens all but the ears, of which scans know little.
void add_details(std::vector<Vec3>& points, const HeadModel& model, float share, Random& random) {
    std::map<std::string, float> of_both_sides;
    // Some faces are near the average, others far from it.
    const float reach = random.uniform(0.75F, 1.15F);
    for (const DetailAxis& axis : model.axes) {
        const bool one_way = axis.more < 0 || axis.less < 0;
        const bool asymmetric = axis.stem.starts_with("asym");
        float weight = 0;
        if (asymmetric) {
            weight = random.chance(0.22F) ? random.uniform(0.1F, 0.55F) : 0.0F;
        } else {
            const auto [at, is_new] = of_both_sides.try_emplace(axis.stem, 0.0F);
            if (is_new) {
                at->second = one_way ? (random.chance(0.3F) ? random.uniform(0.15F, 0.7F) : 0.0F)
                                     : reach * random.normal_within(strength_of(axis.stem), 2.2F);
            }
            weight = at->second + (axis.side != 0 ? random.normal_within(0.09F, 2.0F) : 0.0F);
        }
        weight *= axis.stem.starts_with("ear") ? 1.0F : share;
        const int way = weight > 0 ? axis.more : axis.less;
        if (way >= 0) {
            add(points, model.details[static_cast<std::size_t>(way)],
                std::min(std::fabs(weight), 1.1F));
        } else if (one_way && weight > 0) {
            add(points, model.details[static_cast<std::size_t>(std::max(axis.more, axis.less))],
                weight);
        }
    }
}

// Smooth bumps and hollows that no target knows: what makes faces differ beyond the common axes.
void add_bumps(std::vector<Vec3>& points, const HeadModel& model, Random& random) {
    struct Bump {
        Vec3 at, shift;
        float inverse;
        bool both_sides;
    };
    std::vector<Bump> bumps;
    for (int i = 0; i < 22; ++i) {
        Bump bump;
        const float angle = random.uniform(-1.4F, 1.4F);
        bump.at = {0.75F * std::sin(angle), random.uniform(6.15F, 7.95F),
                   0.45F + 1.05F * std::cos(angle)};
        const float radius = random.uniform(0.16F, 0.45F);
        const float reach = 0.085F * radius;
        bump.shift = {random.normal_within(reach, 2), random.normal_within(reach, 2),
                      random.normal_within(1.4F * reach, 2)};
        bump.inverse = 1.0F / (radius * radius);
        bump.both_sides = i % 4 != 3;
        bumps.push_back(bump);
    }
    for (std::size_t i = 0; i < points.size(); ++i) {
        const Vec3 base = model.base[i];
        if (base.y < 5.6F) {
            continue;
        }
        for (const Bump& bump : bumps) {
            const auto weight = [&](float side) {
                const Vec3 d = base - Vec3{bump.at.x * side, bump.at.y, bump.at.z};
                const float t = 1.0F - dot(d, d) * bump.inverse;
                return t > 0 ? t * t : 0.0F;
            };
            points[i] += bump.shift * weight(1);
            if (bump.both_sides) {
                points[i] += Vec3{-bump.shift.x, bump.shift.y, bump.shift.z} * weight(-1);
            }
        }
    }
}

Vec3 middle(const std::vector<Vec3>& points, const std::vector<std::uint32_t>& of) {
    Vec3 sum;
    for (const std::uint32_t point : of) {
        sum += points[point];
    }
    return sum * (1.0F / static_cast<float>(of.size()));
}

} // namespace

SkinTone Identity::tone() const {
    return reflectance > 0.27F   ? SkinTone::light
           : reflectance > 0.13F ? SkinTone::medium
                                 : SkinTone::dark;
}

int Identity::main_ethnicity() const {
    int most = 0;
    for (int e = 1; e < ethnicities; ++e) {
        most = ethnicity[e] > ethnicity[most] ? e : most;
    }
    return most;
}

Identity draw_identity(Random& random) {
    Identity identity;
    draw_ethnicity(identity, random);
    draw_age(identity, random);
    const float t = random.uniform(0.0F, 0.25F);
    identity.male = random.chance(0.5F) ? t : 1.0F - t;
    draw_tones(identity, random);
    return identity;
}

Shape draw_shape(const HeadModel& model, const ShapeSpace& space, const Identity& identity,
                 Random& random) {
    Shape shape;
    shape.points = model.base;
    if (identity.scanned) {
        add_scanned_shape(shape.points, space, random);
        add_details(shape.points, model, 0.2F, random);
    } else {
        add_macro(shape.points, model, identity, random);
        add_details(shape.points, model, 1.0F, random);
        add_bumps(shape.points, model, random);
    }

    shape.left_eye = middle(shape.points, model.left_eye);
    shape.right_eye = middle(shape.points, model.right_eye);
    const Vec3 origin = (shape.left_eye + shape.right_eye) * 0.5F;
    for (Vec3& point : shape.points) {
        point = point - origin;
    }
    shape.left_eye = shape.left_eye - origin;
    shape.right_eye = shape.right_eye - origin;
    for (const std::uint32_t point : model.left_eye) {
        shape.eye_radius = std::max(shape.eye_radius, length(shape.points[point] - shape.left_eye));
    }
    // Both points lie in the upright plane that touches the eyes: with them our box has the size of
    // a common frontal detector's, and moves as that does when the head turns or nods.
    shape.eyes = {0, 0, shape.eye_radius};
    shape.mouth = shape.points[model.lip_edge];
    shape.mouth.z = shape.eyes.z;
    shape.normals.assign(shape.points.size(), Vec3{});
    add_normals(model.skin, shape.points, shape.normals);
    normalise(shape.normals);
    return shape;
}

} // namespace facegen
