// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <vector>

#include "head/head_model.h"
#include "picture.h"

namespace facegen {

// One channel of a picture, reduced to size x size by averaging.
Picture ReducedChannel(const Picture& picture, int channel, int size);

// A hair texture at the size of its tile: tones relative to their mean, which becomes 128.
HairTexture BakeHairTexture(const Picture& rgba);

// Fills HeadModel::texelBase and ::texelUsed.
void BakeTexelBase(HeadModel& model);

// A skin's detail (see HeadModel::skins): its painted hair is taken out.
std::vector<std::int16_t> SkinDetail(const Picture& rgb, const HeadModel& model);

// How much of each texel of the skin an eyebrow covers.
std::vector<std::uint8_t> BrowCoverage(const Fitted& brow, const Picture& rgba,
                                       const HeadModel& model);

} // namespace facegen
