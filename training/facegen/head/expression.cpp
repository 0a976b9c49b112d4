// SPDX-License-Identifier: MIT
#include "head/expression.h"

#include <algorithm>
#include <string>

namespace facegen {
namespace {

class Composer {
  public:
    Composer(const HeadModel& model, Expression& expression)
        : model_(model), expression_(expression) {}

    void Add(const std::string& name, float weight) {
        for (std::size_t i = 0; i < model_.units.size(); ++i) {
            if (model_.units[i].name == name && weight > 0.02f) {
                expression_.parts.push_back({i, weight});
                expression_.strength += weight;
            }
        }
    }
    void Both(const std::string& before, const std::string& after, float weight, Random& random) {
        Add(before + "left" + after, weight * random.Uniform(0.8f, 1.0f));
        Add(before + "right" + after, weight * random.Uniform(0.8f, 1.0f));
    }

  private:
    const HeadModel& model_;
    Expression& expression_;
};

} // namespace

Expression DrawExpression(const HeadModel& model, Random& random) {
    Expression e;
    Composer c(model, e);
    const float kind = random.Uniform();
    if (kind < 0.25f) { // neutral, but for a trace
        c.Add("mouth-corner-puller", random.Uniform(0.0f, 0.15f));
    } else if (kind < 0.5f) { // a smile
        const float much = random.Uniform(0.2f, 1.0f);
        c.Add("mouth-corner-puller", much);
        c.Add("mouth-parling", random.Chance(0.4f) ? random.Uniform(0.0f, 0.5f) * much : 0.0f);
        e.openMouth = random.Chance(0.4f) ? random.Uniform(0.05f, 0.5f) * much : 0.0f;
        c.Both("eye-", "-slit", random.Uniform(0.0f, 0.5f) * much, random);
    } else if (kind < 0.65f) { // speaking
        e.openMouth = random.Uniform(0.05f, 0.6f);
        static constexpr const char* kShapes[] = {"mouth-pursing", "mouth-protusion",
                                                  "mouth-eversion", "mouth-part-later",
                                                  "mouth-retraction"};
        c.Add(kShapes[random.Below(5)], random.Uniform(0.0f, 0.6f));
    } else if (kind < 0.74f) { // surprise
        e.openMouth = random.Uniform(0.2f, 0.95f);
        c.Both("eyebrows-", "-up", random.Uniform(0.3f, 1.0f), random);
        c.Both("eye-", "-opened-up", random.Uniform(0.2f, 1.0f), random);
    } else if (kind < 0.83f) { // anger or effort
        c.Both("eyebrows-", "-down", random.Uniform(0.3f, 1.0f), random);
        c.Both("eye-", "-slit", random.Uniform(0.0f, 0.6f), random);
        c.Add("nose-compression", random.Uniform(0.0f, 0.6f));
        c.Add("mouth-compression", random.Uniform(0.0f, 0.7f));
    } else if (kind < 0.9f) { // sadness
        c.Both("eyebrows-", "-inner-up", random.Uniform(0.2f, 0.9f), random);
        c.Add("mouth-depression", random.Uniform(0.2f, 0.9f));
    } else { // anything
        for (int i = 0; i < 3; ++i) {
            const auto unit =
                static_cast<std::size_t>(random.Below(static_cast<int>(model.units.size())));
            const float weight = random.Uniform(0.1f, 0.6f);
            e.parts.push_back({unit, weight});
            e.strength += weight;
        }
    }
    if (random.Chance(0.12f)) {
        c.Both("eye-", "-closure", random.Uniform(0.3f, 1.0f), random);
    } else if (random.Chance(0.3f)) {
        c.Both("eye-", "-slit", random.Uniform(0.0f, 0.5f), random);
    }
    if (random.Chance(0.2f)) {
        c.Both("eyebrows-", "-extern-up", random.Uniform(0.0f, 0.7f), random);
    }
    c.Add("mouth-open", e.openMouth);
    e.strength = std::min(1.0f, e.strength / 2.0f);
    e.gazeYaw = random.NormalWithin(0.16f, 2.2f);
    e.gazePitch = random.NormalWithin(0.08f, 2.2f);
    return e;
}

Expression Smile(const HeadModel& model, float strength) {
    Expression e;
    Composer(model, e).Add("mouth-corner-puller", strength);
    return e;
}

void Strengthen(Expression& expression, float factor) {
    for (Expression::Part& part : expression.parts) {
        part.weight = std::min(factor * part.weight, std::max(part.weight, 1.2f));
    }
    expression.strength = std::min(1.0f, factor * expression.strength);
    expression.openMouth = std::min(1.0f, factor * expression.openMouth);
}

void QuietenMouth(Expression& expression, const HeadModel& model, const ShapeSpace& space) {
    expression.openMouth *= 0.1f;
    for (Expression::Part& part : expression.parts) {
        if (model.units[part.unit].name.starts_with("mouth")) {
            part.weight *= 0.1f;
        }
    }
    for (Expression::Part& part : expression.scanned) {
        const std::string& name = space.expressions[part.unit].name;
        if (name.starts_with("mouth") || name.starts_with("jaw")) {
            part.weight *= 0.1f;
        }
    }
}

void Apply(const Expression& expression, const HeadModel& model, const ShapeSpace& space,
           int ethnicity, std::vector<Vec3>& points) {
    const auto move = [&](const Target& target, float weight) {
        for (std::size_t i = 0; i < target.point.size(); ++i) {
            points[target.point[i]] += target.shift[i] * weight;
        }
    };
    for (const Expression::Part& part : expression.parts) {
        move(model.units[part.unit].target[ethnicity], part.weight);
    }
    for (const Expression::Part& part : expression.scanned) {
        move(space.expressions[part.unit].moves, part.weight);
    }
}

} // namespace facegen
