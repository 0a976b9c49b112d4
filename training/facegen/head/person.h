// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

#include "head/head_model.h"
#include "head/identity.h"
#include "light/environment.h"
#include "skin/atlas.h"
#include "skin/skin.h"
#include "wear/hair.h"
#include "wear/piece.h"

namespace facegen {

// Everything that all people share.
struct Studio {
    HeadModel model;
    SkinKit kit;
    std::vector<StreakTexture> streaks;
    ShapeSpace space;        // empty: everybody is made of the targets
    float scannedShare = 0;  // of the people, who are shaped by `space`
    bool broad = false;      // people and pictures vary as those before real cameras do
    bool calm = false;       // pictures are taken of people who want to be known
    bool lined = false;      // lines about eyes and mouth change from picture to picture
    float hairless = 0.12f;  // share of broad people with no more hair than is painted
    float drawnBrows = 0.5f; // share of broad people whose brows are drawn, not read
    std::vector<Environment> environments; // light and background of pictures, if any
    bool bare = false; // heads of one tone, without hair, brows and lashes: shape alone
};

Studio OpenStudio(const std::filesystem::path& assets);
// Lets a share of the people be shaped by the space of that folder.
void AddShapes(Studio& studio, const std::filesystem::path& shapes, float share);

// A person, ready to be photographed.
struct Person {
    std::uint64_t seed = 0, number = 0, look = 0;
    Identity identity;
    Shape shape;
    Hairdress hairdress;
    Hairiness hairiness;
    Piece eyes, lashes, teeth, tongue;
    Atlas atlas;
};

// Depends on the seed, the number and the look alone. Other looks of a person have other hair and
// another beard; look 0 is the usual one.
Person MakePerson(const Studio& studio, std::uint64_t seed, std::uint64_t number,
                  std::uint64_t look = 0);

} // namespace facegen
