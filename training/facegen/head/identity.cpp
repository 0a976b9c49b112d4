// SPDX-License-Identifier: MIT
#include "head/identity.h"

#include <map>
#include <string>

namespace facegen {
namespace {

void Add(std::vector<Vec3>& points, const Target& target, float weight) {
    for (std::size_t i = 0; i < target.point.size(); ++i) {
        points[target.point[i]] += target.shift[i] * weight;
    }
}

void DrawAge(Identity& identity, Random& random) {
    const float at = random.Uniform();
    identity.age = at < 0.1f   ? AgeBand::kChild
                   : at < 0.5f ? AgeBand::kYoung
                   : at < 0.8f ? AgeBand::kMiddle
                               : AgeBand::kOld;
    switch (identity.age) {
        case AgeBand::kChild:
        case AgeBand::kYoung:
            identity.wrinkles = random.Uniform(0.0f, 0.12f);
            break;
        case AgeBand::kMiddle:
            identity.wrinkles = random.Uniform(0.15f, 0.6f);
            break;
        case AgeBand::kOld:
            identity.wrinkles = random.Uniform(0.5f, 1.0f);
            break;
    }
}

void DrawEthnicity(Identity& identity, Random& random) {
    const int most = random.Below(kEthnicities);
    const float share =
        random.Chance(0.6f) ? random.Uniform(0.75f, 1.1f) : random.Uniform(0.4f, 0.75f);
    const float split = random.Uniform();
    identity.ethnicity[most] = share;
    identity.ethnicity[(most + 1) % kEthnicities] = (1.0f - share) * split;
    identity.ethnicity[(most + 2) % kEthnicities] = (1.0f - share) * (1.0f - split);
}

void DrawTones(Identity& identity, Random& random) {
    // Reflectances multiply, so that their logarithms are mixed.
    const float usual[kEthnicities] = {std::log(0.085f), std::log(0.3f), std::log(0.37f)};
    float tone = 0;
    for (int e = 0; e < kEthnicities; ++e) {
        tone += identity.ethnicity[e] * usual[e];
    }
    tone += random.NormalWithin(0.27f, 2.2f);
    identity.reflectance = std::clamp(std::exp(tone), 0.035f, 0.55f);

    const bool mayBeFair = identity.ethnicity[2] > 0.5f && random.Chance(0.6f);
    const float darkest = std::log(0.008f);
    const float fairest = std::log(mayBeFair ? 0.3f : 0.045f);
    identity.hairReflectance = std::exp(random.Uniform(darkest, fairest));
    const float greying = identity.age == AgeBand::kOld      ? 0.75f
                          : identity.age == AgeBand::kMiddle ? 0.25f
                                                             : 0.0f;
    if (random.Chance(greying)) {
        identity.hairReflectance = random.Uniform(0.1f, 0.4f);
    }
    identity.oiliness = random.Uniform(0.15f, 1.0f);
}

struct AgeWeights {
    float of[kAges];
};

AgeWeights AgeWeightsOf(AgeBand band, Random& random) {
    const float t = random.Uniform();
    switch (band) {
        case AgeBand::kChild:
            return {{Mix(0.35f, 0.85f, t), Mix(0.65f, 0.15f, t), 0.0f}};
        case AgeBand::kYoung:
            return {{Mix(0.15f, -0.1f, t), Mix(0.85f, 1.1f, t), 0.0f}};
        case AgeBand::kMiddle:
            return {{0.0f, Mix(0.8f, 0.4f, t), Mix(0.2f, 0.6f, t)}};
        case AgeBand::kOld:
            break;
    }
    return {{0.0f, Mix(0.35f, -0.1f, t), Mix(0.65f, 1.1f, t)}};
}

void AddMacro(std::vector<Vec3>& points, const HeadModel& model, const Identity& identity,
              Random& random) {
    const AgeWeights age = AgeWeightsOf(identity.age, random);
    const float sex[kSexes] = {1.0f - identity.male, identity.male};
    for (int e = 0; e < kEthnicities; ++e) {
        for (int s = 0; s < kSexes; ++s) {
            for (int a = 0; a < kAges; ++a) {
                const float weight = identity.ethnicity[e] * sex[s] * age.of[a];
                if (std::fabs(weight) > 0.01f) {
                    Add(points, model.macro[e][s][a], weight);
                }
            }
        }
    }
}

float StrengthOf(const std::string& stem) {
    struct Strength {
        const char* start;
        float deviation;
    };
    // The first that fits counts.
    static constexpr Strength kNown[] = {{"head-age", 0.25f},
                                         {"head-angle", 0.3f},
                                         {"head-trans", 0.1f},
                                         {"head-fat", 0.34f},
                                         {"head", 0.36f},
                                         {"eye-push", 0.3f},
                                         {"eye-trans", 0.4f},
                                         {"eye-height", 0.38f},
                                         {"eye-scale", 0.4f},
                                         {"eye", 0.5f},
                                         {"nose-trans", 0.35f},
                                         {"nose-scale", 0.42f},
                                         {"nose", 0.5f},
                                         {"mouth-trans", 0.3f},
                                         {"mouth-scale", 0.38f},
                                         {"mouth-lowerlip-middle", 0.15f},
                                         {"mouth-upperlip-middle", 0.15f},
                                         {"mouth-lowerlip-height", 0.25f},
                                         {"mouth-upperlip-height", 0.25f},
                                         {"mouth-lowerlip-ext", 0.2f},
                                         {"mouth-upperlip-ext", 0.2f},
                                         {"mouth", 0.4f},
                                         {"ear", 0.45f},
                                         {"chin-width", 0.34f},
                                         {"chin-bones", 0.36f},
                                         {"chin-jaw-drop", 0.34f},
                                         {"chin", 0.42f},
                                         {"cheek-volume", 0.38f},
                                         {"cheek", 0.48f},
                                         {"forehead", 0.48f},
                                         {"neck", 0.35f}};
    for (const Strength& s : kNown) {
        if (stem.starts_with(s.start)) {
            return s.deviation;
        }
    }
    return 0.4f;
}

// `share` weakens all but the ears, of which scans know little.
void AddDetails(std::vector<Vec3>& points, const HeadModel& model, float share, Random& random) {
    std::map<std::string, float> ofBothSides;
    // Some faces are near the average, others far from it.
    const float reach = random.Uniform(0.75f, 1.15f);
    for (const DetailAxis& axis : model.axes) {
        const bool oneWay = axis.more < 0 || axis.less < 0;
        const bool asymmetric = axis.stem.starts_with("asym");
        float weight = 0;
        if (asymmetric) {
            weight = random.Chance(0.22f) ? random.Uniform(0.1f, 0.55f) : 0.0f;
        } else {
            const auto [at, is_new] = ofBothSides.try_emplace(axis.stem, 0.0f);
            if (is_new) {
                at->second = oneWay ? (random.Chance(0.3f) ? random.Uniform(0.15f, 0.7f) : 0.0f)
                                    : reach * random.NormalWithin(StrengthOf(axis.stem), 2.2f);
            }
            weight = at->second + (axis.side != 0 ? random.NormalWithin(0.09f, 2.0f) : 0.0f);
        }
        weight *= axis.stem.starts_with("ear") ? 1.0f : share;
        const int way = weight > 0 ? axis.more : axis.less;
        if (way >= 0) {
            Add(points, model.details[static_cast<std::size_t>(way)],
                std::min(std::fabs(weight), 1.1f));
        } else if (oneWay && weight > 0) {
            Add(points, model.details[static_cast<std::size_t>(std::max(axis.more, axis.less))],
                weight);
        }
    }
}

// Smooth bumps and hollows that no target knows: what makes faces differ beyond the common axes.
void AddBumps(std::vector<Vec3>& points, const HeadModel& model, Random& random) {
    struct Bump {
        Vec3 at, shift;
        float inverse;
        bool bothSides;
    };
    std::vector<Bump> bumps;
    for (int i = 0; i < 22; ++i) {
        Bump bump;
        const float angle = random.Uniform(-1.4f, 1.4f);
        bump.at = {0.75f * std::sin(angle), random.Uniform(6.15f, 7.95f),
                   0.45f + 1.05f * std::cos(angle)};
        const float radius = random.Uniform(0.16f, 0.45f);
        const float reach = 0.085f * radius;
        bump.shift = {random.NormalWithin(reach, 2), random.NormalWithin(reach, 2),
                      random.NormalWithin(1.4f * reach, 2)};
        bump.inverse = 1.0f / (radius * radius);
        bump.bothSides = i % 4 != 3;
        bumps.push_back(bump);
    }
    for (std::size_t i = 0; i < points.size(); ++i) {
        const Vec3 base = model.base[i];
        if (base.y < 5.6f) {
            continue;
        }
        for (const Bump& bump : bumps) {
            const auto weight = [&](float side) {
                const Vec3 d = base - Vec3{bump.at.x * side, bump.at.y, bump.at.z};
                const float t = 1.0f - Dot(d, d) * bump.inverse;
                return t > 0 ? t * t : 0.0f;
            };
            points[i] += bump.shift * weight(1);
            if (bump.bothSides) {
                points[i] += Vec3{-bump.shift.x, bump.shift.y, bump.shift.z} * weight(-1);
            }
        }
    }
}

Vec3 Middle(const std::vector<Vec3>& points, const std::vector<std::uint32_t>& of) {
    Vec3 sum;
    for (const std::uint32_t point : of) {
        sum += points[point];
    }
    return sum * (1.0f / static_cast<float>(of.size()));
}

} // namespace

SkinTone Identity::Tone() const {
    return reflectance > 0.27f   ? SkinTone::kLight
           : reflectance > 0.13f ? SkinTone::kMedium
                                 : SkinTone::kDark;
}

int Identity::MainEthnicity() const {
    int most = 0;
    for (int e = 1; e < kEthnicities; ++e) {
        most = ethnicity[e] > ethnicity[most] ? e : most;
    }
    return most;
}

Identity DrawIdentity(Random& random) {
    Identity identity;
    DrawEthnicity(identity, random);
    DrawAge(identity, random);
    const float t = random.Uniform(0.0f, 0.25f);
    identity.male = random.Chance(0.5f) ? t : 1.0f - t;
    DrawTones(identity, random);
    return identity;
}

Shape DrawShape(const HeadModel& model, const ShapeSpace& space, const Identity& identity,
                Random& random) {
    Shape shape;
    shape.points = model.base;
    if (identity.scanned) {
        AddScannedShape(shape.points, space, identity.broad ? 0.55f : 0.7f, random);
        AddDetails(shape.points, model, 0.2f, random);
    } else {
        AddMacro(shape.points, model, identity, random);
        AddDetails(shape.points, model, identity.broad ? 0.7f : 1.0f, random);
        AddBumps(shape.points, model, random);
    }

    shape.leftEye = Middle(shape.points, model.leftEye);
    shape.rightEye = Middle(shape.points, model.rightEye);
    const Vec3 origin = (shape.leftEye + shape.rightEye) * 0.5f;
    for (Vec3& point : shape.points) {
        point = point - origin;
    }
    shape.leftEye = shape.leftEye - origin;
    shape.rightEye = shape.rightEye - origin;
    for (const std::uint32_t point : model.leftEye) {
        shape.eyeRadius = std::max(shape.eyeRadius, Length(shape.points[point] - shape.leftEye));
    }
    // Both points lie in the upright plane that touches the eyes: with them our box has the size of
    // a common frontal detector's, and moves as that does when the head turns or nods.
    shape.eyes = {0, 0, shape.eyeRadius};
    shape.mouth = shape.points[model.lipEdge];
    shape.mouth.z = shape.eyes.z;
    shape.normals.assign(shape.points.size(), Vec3{});
    AddNormals(model.skin, shape.points, shape.normals);
    Normalise(shape.normals);
    return shape;
}

} // namespace facegen
