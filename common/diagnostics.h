// SPDX-License-Identifier: MIT
//
// The core's one diagnostic: a single line on standard error that names the source unit and the
// line.
#pragma once

#include <cstdio>

// `unit` is a literal, not __FILE__: the unit's name is part of the interface and must not change
// with the folder that the build runs in.
#define ORVO_ERR_AT(unit, line, format, ...) \
    std::fprintf(stderr, "[ERR] %s:%d " format, unit, line __VA_OPT__(, ) __VA_ARGS__)

#define ORVO_ERR(unit, format, ...) ORVO_ERR_AT(unit, __LINE__, format __VA_OPT__(, ) __VA_ARGS__)
