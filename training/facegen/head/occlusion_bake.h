// SPDX-License-Identifier: MIT
#pragma once

#include "head/head_model.h"

namespace facegen {

// Fills HeadModel::occlusion and ::inner from the base mesh, by looking at it from many sides.
void BakeOcclusion(HeadModel& model);

} // namespace facegen
