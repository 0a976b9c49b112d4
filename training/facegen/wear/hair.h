// SPDX-License-Identifier: MIT
#pragma once

#include <vector>

#include "head/head_model.h"
#include "head/identity.h"
#include "skin/atlas.h"
#include "skin/skin.h"
#include "wear/piece.h"

namespace facegen {

// Streaks for hair that grows on the scalp: tone (128 is the mean) and how high strands stand.
struct StreakTexture {
    Picture tone;
};

std::vector<StreakTexture> MakeStreaks();

// A way to wear hair.
struct HairStyle {
    int id = 0;                     // 0: none; the same number for the same cut
    Piece piece;                    // empty: nothing but what is painted on the scalp
    Piece fringe;                   // over the forehead
    Piece curtain;                  // hanging over ears, neck and shoulders
    int texture = -1;               // index into HeadModel::hairTextures
    std::vector<Triangle> underCap; // the piece's triangles that a cap leaves
};

struct Hairdress {
    Hairiness hairiness;
    std::vector<HairStyle> styles; // the first is the usual one
    Piece beard;
    int streaks = 0;
};

Hairiness DrawHairiness(const Identity& identity, Random& random);

Hairdress DrawHairdress(const HeadModel& model, const Shape& shape, const Identity& identity,
                        const Hairiness& hairiness, const std::vector<StreakTexture>& streaks,
                        Random& random);

// Paints the tiles of hair and streaks.
void PaintHairTiles(Atlas& atlas, const HeadModel& model, const Identity& identity,
                    const Hairdress& hairdress, const std::vector<StreakTexture>& streaks,
                    Random& random);

} // namespace facegen
