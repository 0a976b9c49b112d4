// SPDX-License-Identifier: MIT
#include "output/labels.h"

namespace facegen {

Labels labels_of(const Person& person, const PhotoPlan& plan) {
    Labels l{};
    l[label_person] = static_cast<float>(person.number);
    l[label_box_left] = plan.box.left;
    l[label_box_top] = plan.box.top;
    l[label_box_size] = plan.box.size;
    l[label_yaw] = plan.yaw;
    l[label_pitch] = plan.pitch;
    l[label_roll] = plan.roll;
    l[label_light] = static_cast<float>(plan.light.kind);
    l[label_occlusion] = static_cast<float>(plan.occlusion);
    l[label_age] = static_cast<float>(person.identity.age);
    l[label_skin_tone] = static_cast<float>(person.identity.tone());
    l[label_sex] = person.identity.male;
    l[label_expression] = plan.expression.strength;
    l[label_blur] = plan.degradation.blur;
    l[label_hair] = static_cast<float>(person.hairdress.styles[plan.style].id);
    return l;
}

} // namespace facegen
