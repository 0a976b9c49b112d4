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

    void add(const std::string& name, float weight) {
        for (std::size_t i = 0; i < model_.units.size(); ++i) {
            if (model_.units[i].name == name && weight > 0.02F) {
                expression_.parts.push_back({i, weight});
                expression_.strength += weight;
            }
        }
    }
    void both(const std::string& before, const std::string& after, float weight, Random& random) {
        add(before + "left" + after, weight * random.uniform(0.8F, 1.0F));
        add(before + "right" + after, weight * random.uniform(0.8F, 1.0F));
    }

  private:
    const HeadModel& model_;
    Expression& expression_;
};

} // namespace

Expression draw_expression(const HeadModel& model, Random& random) {
    Expression e;
    Composer c(model, e);
    const float kind = random.uniform();
    if (kind < 0.25F) { // neutral, but for a trace
        c.add("mouth-corner-puller", random.uniform(0.0F, 0.15F));
    } else if (kind < 0.5F) { // a smile
        const float much = random.uniform(0.2F, 1.0F);
        c.add("mouth-corner-puller", much);
        c.add("mouth-parling", random.chance(0.4F) ? random.uniform(0.0F, 0.5F) * much : 0.0F);
        e.open_mouth = random.chance(0.4F) ? random.uniform(0.05F, 0.5F) * much : 0.0F;
        c.both("eye-", "-slit", random.uniform(0.0F, 0.5F) * much, random);
    } else if (kind < 0.65F) { // speaking
        e.open_mouth = random.uniform(0.05F, 0.6F);
        static constexpr const char* shapes[] = {"mouth-pursing", "mouth-protusion",
                                                 "mouth-eversion", "mouth-part-later",
                                                 "mouth-retraction"};
        c.add(shapes[random.below(5)], random.uniform(0.0F, 0.6F));
    } else if (kind < 0.74F) { // surprise
        e.open_mouth = random.uniform(0.2F, 0.95F);
        c.both("eyebrows-", "-up", random.uniform(0.3F, 1.0F), random);
        c.both("eye-", "-opened-up", random.uniform(0.2F, 1.0F), random);
    } else if (kind < 0.83F) { // anger or effort
        c.both("eyebrows-", "-down", random.uniform(0.3F, 1.0F), random);
        c.both("eye-", "-slit", random.uniform(0.0F, 0.6F), random);
        c.add("nose-compression", random.uniform(0.0F, 0.6F));
        c.add("mouth-compression", random.uniform(0.0F, 0.7F));
    } else if (kind < 0.9F) { // sadness
        c.both("eyebrows-", "-inner-up", random.uniform(0.2F, 0.9F), random);
        c.add("mouth-depression", random.uniform(0.2F, 0.9F));
    } else { // anything
        for (int i = 0; i < 3; ++i) {
            const auto unit =
                static_cast<std::size_t>(random.below(static_cast<int>(model.units.size())));
            const float weight = random.uniform(0.1F, 0.6F);
            e.parts.push_back({unit, weight});
            e.strength += weight;
        }
    }
    if (random.chance(0.12F)) {
        c.both("eye-", "-closure", random.uniform(0.3F, 1.0F), random);
    } else if (random.chance(0.3F)) {
        c.both("eye-", "-slit", random.uniform(0.0F, 0.5F), random);
    }
    if (random.chance(0.2F)) {
        c.both("eyebrows-", "-extern-up", random.uniform(0.0F, 0.7F), random);
    }
    c.add("mouth-open", e.open_mouth);
    e.strength = std::min(1.0F, e.strength / 2.0F);
    e.gaze_yaw = random.normal_within(0.16F, 2.2F);
    e.gaze_pitch = random.normal_within(0.08F, 2.2F);
    return e;
}

Expression smile(const HeadModel& model, float strength) {
    Expression e;
    Composer(model, e).add("mouth-corner-puller", strength);
    return e;
}

void strengthen(Expression& expression, float factor) {
    for (Expression::Part& part : expression.parts) {
        part.weight = std::min(factor * part.weight, std::max(part.weight, 1.2F));
    }
    expression.strength = std::min(1.0F, factor * expression.strength);
    expression.open_mouth = std::min(1.0F, factor * expression.open_mouth);
}

void quieten_mouth(Expression& expression, const HeadModel& model) {
    expression.open_mouth *= 0.1F;
    for (Expression::Part& part : expression.parts) {
        if (model.units[part.unit].name.starts_with("mouth")) {
            part.weight *= 0.1F;
        }
    }
}

void apply(const Expression& expression, const HeadModel& model, int ethnicity,
           std::vector<Vec3>& points) {
    for (const Expression::Part& part : expression.parts) {
        const Target& target = model.units[part.unit].target[ethnicity];
        for (std::size_t i = 0; i < target.point.size(); ++i) {
            points[target.point[i]] += target.shift[i] * part.weight;
        }
    }
}

} // namespace facegen
