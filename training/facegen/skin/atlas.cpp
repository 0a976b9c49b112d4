// SPDX-License-Identifier: MIT
#include "skin/atlas.h"

namespace facegen {

void Atlas::Pack() {
    // From top to bottom and left to right, so that every neighbour still holds its single texel.
    for (int y = 0; y < atlas::kHeight; ++y) {
        std::uint32_t* row = texels_.data() + static_cast<std::size_t>(y) * atlas::kWidth;
        const std::uint32_t* below = y + 1 < atlas::kHeight ? row + atlas::kWidth : row;
        for (int x = 0; x + 1 < atlas::kWidth; ++x) {
            row[x] |= (row[x + 1] << 8) | ((below[x] & 0xff) << 16) | ((below[x + 1] & 0xff) << 24);
        }
    }
}

} // namespace facegen
