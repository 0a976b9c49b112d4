// SPDX-License-Identifier: MIT
#pragma once

#include "head/expression.h"
#include "head/shape_space.h"
#include "random.h"

namespace facegen {

// An expression made of those of scanned people, alone or mixed, faint to full.
Expression DrawScannedExpression(const ShapeSpace& space, Random& random);

// Neutral, or a smile: what most people show who are photographed.
Expression DrawFriendlyExpression(const ShapeSpace& space, Random& random);

} // namespace facegen
