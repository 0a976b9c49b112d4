// SPDX-License-Identifier: MIT
//
// A face turned upright, as the recogniser takes it.
#pragma once

#include <cstdint>

#include "orvo/orvo_find.h"

namespace orvo::find {

// The direction of the upright face's rows: (cosine, sine) of its roll.
struct Axis {
    float cosine, sine;
};
Axis AxisOf(const OrvoFindFace& face);

// The roll in degrees, within 0.001 of the arc tangent; the same on every machine.
float RollOf(const Axis& axis);

// Whether Upright() can do it, see OrvoFindUpright().
bool CanTurnUpright(const OrvoFindPicture& picture, const OrvoFindFace& face);

// Bytes at `floats`, which must be aligned for them. At `room` LevelRow() has its own.
uint32_t UprightBytes();

void Upright(const OrvoFindPicture& picture, const OrvoFindFace& face, float* floats, uint8_t* room,
             uint8_t* crop);

} // namespace orvo::find
