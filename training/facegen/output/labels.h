// SPDX-License-Identifier: MIT
#pragma once

#include <array>

#include "render/photo.h"

namespace facegen {

// The columns of a shard's labels.
enum Label {
    kLabelPerson,
    kLabelBoxLeft, // pixels of the picture
    kLabelBoxTop,
    kLabelBoxSize,
    kLabelYaw, // degrees
    kLabelPitch,
    kLabelRoll,
    kLabelLight,     // LightKind
    kLabelOcclusion, // Occlusion
    kLabelAge,       // AgeBand
    kLabelSkinTone,  // SkinTone
    kLabelSex,       // 0 female-ish to 1 male-ish
    kLabelExpression,
    kLabelBlur, // pixels
    kLabelHair, // the same number for the same cut
    kLabelReserved,
    kLabels
};

using Labels = std::array<float, kLabels>;

Labels LabelsOf(const Person& person, const PhotoPlan& plan);

} // namespace facegen
