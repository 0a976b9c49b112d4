// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>

#include "output/shards.h"

namespace facegen {

// A contact sheet as PNG, one row a person; frames carry their boxes.
void RenderSheet(const Studio& studio, const Job& job);

// One folder a person with frames as PNG, and boxes.json beside the folders.
void RenderPeople(const Studio& studio, const Job& job);

} // namespace facegen
