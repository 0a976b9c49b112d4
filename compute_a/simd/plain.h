// SPDX-License-Identifier: MIT
#pragma once

#include "compute_a/simd/plain/routines.h"
