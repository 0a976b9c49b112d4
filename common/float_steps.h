// SPDX-License-Identifier: MIT
//
// Each float operation is rounded to its own type, so that results are the same bytes on every machine. Where floats
// are computed with more bits, as by the x87 of 32-bit x86, they would not be, and nothing is compiled.
#pragma once

#include <cfloat>

static_assert(
    FLT_EVAL_METHOD == 0,
    "floats are computed with more bits than they have: compile with -msse2 -mfpmath=sse");
