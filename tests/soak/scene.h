// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <memory>
#include <string>
#include <vector>

#include "orvo/kova_fr.h"
#include "soak/soak.h"

namespace orvo_soak {

using Feature = std::array<float, KOVA_FR_FEATURE_LEN>;

// A frame in media memory, given back at the end.
class Frame {
  public:
    Frame(uint32_t width, uint32_t height, uint32_t stride, uint32_t memType, uint64_t seed);
    ~Frame();
    Frame(const Frame&) = delete;
    Frame& operator=(const Frame&) = delete;

    const obj_img& image() const { return image_; }

  private:
    obj_img image_ = {};
};

// Frames of all kinds: used where they lie, mapped, scaled down and scaled up, and their features.
class Scene {
  public:
    static constexpr size_t kFrames = 8;
    static constexpr size_t kFramesInPlace = 5; // the first ones, which are used where they lie

    Scene();

    size_t count() const { return kFrames; }
    const obj_img& image(size_t which) const { return frames_[which]->image(); }
    const Feature& feature(size_t which) const { return features_[which]; }

    // Extracts every feature for the first time. Needs kova_fr_init().
    void Learn();
    // Takes the features as another process has learnt them.
    void Expect(const std::array<Feature, kFrames>& features) { features_ = features; }
    void SpoilTheFeatures();

    // Nothing is held of the platform but the frames, so many blocks more, and the mapping of the frame that is
    // mapped: the library asks for its removal by the low half of the physical address, which the stand-in refuses.
    void RequireNothingElseIsHeld(uint32_t moreBlocks, const std::string& when) const;

  private:
    std::vector<std::unique_ptr<Frame>> frames_;
    std::array<Feature, kFrames> features_ = {};
};

bool SameBits(const Feature& a, const Feature& b);

uint32_t Extract(const obj_img& image, Feature& feature);

} // namespace orvo_soak
