// SPDX-License-Identifier: MIT
#include "output/labels.h"

namespace facegen {

Labels LabelsOf(const Person& person, const PhotoPlan& plan) {
    Labels l{};
    l[kLabelPerson] = static_cast<float>(person.number);
    l[kLabelBoxLeft] = plan.box.left;
    l[kLabelBoxTop] = plan.box.top;
    l[kLabelBoxSize] = plan.box.size;
    l[kLabelYaw] = plan.yaw;
    l[kLabelPitch] = plan.pitch;
    l[kLabelRoll] = plan.roll;
    l[kLabelLight] = static_cast<float>(plan.light.kind);
    l[kLabelOcclusion] = static_cast<float>(plan.occlusion);
    l[kLabelAge] = static_cast<float>(person.identity.age);
    l[kLabelSkinTone] = static_cast<float>(person.identity.Tone());
    l[kLabelSex] = person.identity.male;
    l[kLabelExpression] = plan.expression.strength;
    l[kLabelBlur] = plan.degradation.blur;
    l[kLabelHair] = static_cast<float>(person.hairdress.styles[plan.style].id);
    return l;
}

} // namespace facegen
