// SPDX-License-Identifier: MIT
//
// A found face framed as the recogniser knows faces: by libkova_fr's alignment network.
#pragma once

#include <cstdint>

#include "orvo/orvo_find.h"

namespace orvo::find {

// The face with a better box, whole eighths like the one that it replaces; its points show which way
// is up. Needs the core open and its memory set, and what Upright() needs; `crop` has room for one.
OrvoFindFace Framed(const OrvoFindPicture& picture, const OrvoFindFace& face, float* floats,
                    uint8_t* room, uint8_t* crop);

// What Framed() makes of the alignment network's answer: left, top, right and bottom in 128ths of
// the window.
OrvoFindFace FramedByAnswer(const OrvoFindFace& face, const int8_t* answer);

} // namespace orvo::find
