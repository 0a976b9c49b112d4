// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

#include "atlas.h"
#include "hair.h"
#include "head_model.h"
#include "identity.h"
#include "piece.h"
#include "skin.h"

namespace facegen {

// Everything that all people share.
struct Studio {
    HeadModel model;
    SkinKit kit;
    std::vector<StreakTexture> streaks;
};

Studio open_studio(const std::filesystem::path& assets);

// A person, ready to be photographed.
struct Person {
    std::uint64_t seed = 0, number = 0;
    Identity identity;
    Shape shape;
    Hairdress hairdress;
    Hairiness hairiness;
    Piece eyes, lashes, teeth, tongue;
    Atlas atlas;
};

// Depends on the seed and the number alone.
Person make_person(const Studio& studio, std::uint64_t seed, std::uint64_t number);

} // namespace facegen
