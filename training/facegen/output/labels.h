// SPDX-License-Identifier: MIT
#pragma once

#include <array>

#include "render/photo.h"

namespace facegen {

// The columns of a shard's labels.
enum Label {
    label_person,
    label_box_left, // pixels of the picture
    label_box_top,
    label_box_size,
    label_yaw, // degrees
    label_pitch,
    label_roll,
    label_light,     // LightKind
    label_occlusion, // Occlusion
    label_age,       // AgeBand
    label_skin_tone, // SkinTone
    label_sex,       // 0 female-ish to 1 male-ish
    label_expression,
    label_blur, // pixels
    label_hair, // the same number for the same cut
    label_reserved,
    labels
};

using Labels = std::array<float, labels>;

Labels labels_of(const Person& person, const PhotoPlan& plan);

} // namespace facegen
