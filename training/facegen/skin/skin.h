// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <vector>

#include "head/head_model.h"
#include "head/head_regions.h"
#include "head/identity.h"
#include "skin/atlas.h"
#include "skin/noise_fields.h"

namespace facegen {

// What painting skins needs, worked out once.
struct SkinKit {
    std::vector<NoiseField> broad, middling, fine;
    std::vector<float> azimuth;                        // by texel
    std::vector<std::uint8_t> lips, moustache, goatee; // by texel, 0 to 255
    std::vector<std::int8_t> beard;   // depth inside the beard's region, 1/200 dm, clamped
    std::vector<std::uint32_t> front; // texels of the face proper
    // Packed as the atlas is: density of stubble, of the lines and shadows about the mouth that a smile
    // deepens, and of those about the eyes.
    std::vector<std::uint32_t> stubble, mouthLines, eyeLines;
};

SkinKit MakeSkinKit(const HeadModel& model);

enum class BeardStyle { kNone, kShadow, kMoustache, kGoatee, kFull };

struct Hairiness {
    Hairline hairline;
    float scalp = 1; // how much of the scalp the painted hair hides
    BeardStyle beard = BeardStyle::kNone;
    float beardDensity = 0;
};

// Paints the skin tile of the atlas.
void PaintSkin(Atlas& atlas, const HeadModel& model, const SkinKit& kit, const Identity& identity,
               const Hairiness& hairiness, Random& random);

// Paints eyes, teeth and tongue.
void PaintEyesAndMouth(Atlas& atlas, const HeadModel& model, const Identity& identity,
                       Random& random);

} // namespace facegen
