// SPDX-License-Identifier: MIT
#include "head/scanned_expression.h"

#include <algorithm>
#include <string>

namespace facegen {
namespace {

class Composer {
  public:
    Composer(const ShapeSpace& space, Expression& expression, Random& random)
        : space_(space), expression_(expression), random_(random) {}

    void Add(const std::string& name, float weight) {
        for (std::size_t i = 0; i < space_.expressions.size(); ++i) {
            if (space_.expressions[i].name == name && weight > 0.02f) {
                expression_.scanned.push_back({i, std::min(weight, 1.1f)});
                expression_.strength += 0.5f * weight;
            }
        }
    }
    void Add(const std::string& name, float from, float to) {
        Add(name, random_.Uniform(from, to));
    }
    // Both sides, about equally.
    void Both(const std::string& name, float from, float to) {
        const float weight = random_.Uniform(from, to);
        Add(name + "_L", weight * random_.Uniform(0.8f, 1.1f));
        Add(name + "_R", weight * random_.Uniform(0.8f, 1.1f));
    }
    void Jaw(float from, float to) {
        const float weight = random_.Uniform(from, to);
        Add("jawOpen", weight);
        expression_.openMouth = 2.0f * weight;
    }

  private:
    const ShapeSpace& space_;
    Expression& expression_;
    Random& random_;
};

void SmileShut(Composer& c) {
    c.Both("mouthSmile", 0.2f, 0.9f);
    c.Both("cheekSquint", 0.0f, 0.7f);
    c.Both("mouthPress", 0.0f, 0.3f);
}

void Laugh(Composer& c, Random& random) {
    c.Both("mouthSmile", 0.5f, 1.0f);
    c.Both("cheekSquint", 0.2f, 1.0f);
    c.Both("mouthUpperUp", 0.0f, 0.6f);
    c.Both("mouthLowerDown", 0.0f, 0.5f);
    c.Both("eyeSquint", 0.0f, 0.8f);
    c.Both("mouthDimple", 0.0f, 0.4f);
    c.Jaw(0.0f, random.Chance(0.3f) ? 0.45f : 0.18f);
}

void Speak(Composer& c, Random& random) {
    static constexpr const char* kForms[] = {"mouthFunnel", "mouthPucker", "mouthRollLower",
                                             "mouthShrugUpper", "mouthShrugLower"};
    c.Jaw(0.03f, 0.35f);
    c.Add(kForms[random.Below(5)], 0.0f, 0.7f);
    c.Both(random.Chance(0.5f) ? "mouthStretch" : "mouthLowerDown", 0.0f, 0.6f);
}

void Surprise(Composer& c, Random& random) {
    c.Both("browInnerUp", 0.3f, 1.0f);
    c.Both("browOuterUp", 0.2f, 1.0f);
    c.Both("eyeWide", 0.2f, 1.0f);
    if (random.Chance(0.8f)) {
        c.Jaw(0.08f, 0.6f);
    }
}

void Squeeze(Composer& c, Random& random) {
    c.Both("browDown", 0.3f, 1.0f);
    c.Both("eyeSquint", 0.2f, 1.0f);
    c.Both("cheekSquint", 0.0f, 0.9f);
    c.Both("noseSneer", 0.0f, 0.9f);
    c.Both(random.Chance(0.5f) ? "mouthPress" : "mouthUpperUp", 0.0f, 0.8f);
    if (random.Chance(0.35f)) {
        c.Both("eyeBlink", 0.5f, 1.0f);
    }
}

void Sorrow(Composer& c) {
    c.Both("browInnerUp", 0.2f, 1.0f);
    c.Both("mouthFrown", 0.2f, 0.9f);
    c.Add("mouthShrugLower", 0.0f, 0.7f);
}

// Moves that a head's own eyes or the jaw's joint forbid are left out of what is mixed at random.
bool IsMixed(const std::string& name) {
    return !name.starts_with("eyeLook") && !name.starts_with("Pupil") && name != "mouthClose";
}

} // namespace

Expression DrawFriendlyExpression(const ShapeSpace& space, Random& random) {
    Expression e;
    Composer c(space, e, random);
    const float kind = random.Uniform();
    if (kind < 0.4f) {
        c.Both("mouthSmile", 0.0f, 0.3f);
    } else if (kind < 0.8f) {
        SmileShut(c);
    } else {
        Laugh(c, random);
    }
    e.strength = std::min(1.0f, e.strength / 2.0f);
    e.gazeYaw = random.NormalWithin(0.1f, 2.2f);
    e.gazePitch = random.NormalWithin(0.06f, 2.2f);
    return e;
}

Expression DrawScannedExpression(const ShapeSpace& space, Random& random) {
    Expression e;
    Composer c(space, e, random);
    const float kind = random.Uniform();
    if (kind < 0.2f) { // neutral, but for a trace
        c.Both("mouthSmile", 0.0f, 0.25f);
    } else if (kind < 0.38f) {
        SmileShut(c);
    } else if (kind < 0.58f) {
        Laugh(c, random);
    } else if (kind < 0.7f) {
        Speak(c, random);
    } else if (kind < 0.79f) {
        Surprise(c, random);
    } else if (kind < 0.88f) {
        Squeeze(c, random);
    } else if (kind < 0.93f) {
        Sorrow(c);
    } else { // anything
        for (int i = 0; i < 5; ++i) {
            const auto at =
                static_cast<std::size_t>(random.Below(static_cast<int>(space.expressions.size())));
            if (IsMixed(space.expressions[at].name)) {
                c.Add(space.expressions[at].name, 0.2f, 0.8f);
            }
        }
    }
    if (random.Chance(0.1f)) {
        c.Both("eyeBlink", 0.3f, 1.0f);
    } else if (random.Chance(0.3f)) {
        c.Both("eyeSquint", 0.0f, 0.6f);
    }
    if (random.Chance(0.15f)) {
        c.Both("browOuterUp", 0.0f, 0.6f);
    }
    e.strength = std::min(1.0f, e.strength / 2.0f);
    e.gazeYaw = random.NormalWithin(0.16f, 2.2f);
    e.gazePitch = random.NormalWithin(0.08f, 2.2f);
    return e;
}

} // namespace facegen
