// SPDX-License-Identifier: MIT
#include "soak/scene.h"

#include <cstdlib>
#include <cstring>

#include "orvo/kova_mpi.h"
#include "orvo/kova_mpi_host.h"
#include "support/drawn_frame.h"

namespace orvo_soak {

Frame::Frame(uint32_t width, uint32_t height, uint32_t stride, uint32_t memType, uint64_t seed) {
    void* vir = nullptr;
    Require(KOVA_MPI_SYS_MmzAlloc(&image_.phy_addr, &vir, "FRAME", nullptr, stride * height) == 0,
            "there is no media memory for a frame");
    const std::vector<uint8_t> bytes = orvo_test::DrawFrame(width, height, stride, seed);
    std::memcpy(vir, bytes.data(), bytes.size());
    image_.vir_addr = reinterpret_cast<uintptr_t>(vir);
    image_.stride = stride;
    image_.width = width;
    image_.height = height;
    image_.mem_type = memType;
}

Frame::~Frame() {
    void* const vir = reinterpret_cast<void*>(static_cast<uintptr_t>(image_.vir_addr));
    (void)KOVA_MPI_SYS_MmzFree(image_.phy_addr, vir);
}

Scene::Scene() {
    for (uint64_t seed = 0; seed < kFramesInPlace; ++seed) {
        frames_.push_back(std::make_unique<Frame>(256, 256, 256 + 16 * seed, 1, seed));
    }
    frames_.push_back(std::make_unique<Frame>(256, 256, 320, 0, 10));
    frames_.push_back(std::make_unique<Frame>(96, 80, 100, 0, 11));
    frames_.push_back(std::make_unique<Frame>(640, 360, 640, 1, 12));
    Require(frames_.size() == kFrames, "there are not as many frames as are said to be");
}

void Scene::Learn() {
    for (size_t i = 0; i < count(); ++i) {
        Require(Extract(image(i), features_[i]) == KOVA_FR_OK, "a first extraction is refused");
        Require(i == 0 || !SameBits(features_[i], features_[0]), "two frames have one feature");
    }
}

void Scene::SpoilTheFeatures() {
    for (Feature& feature : features_) {
        feature[0] += 1.0f;
    }
}

void Scene::RequireNothingElseIsHeld(uint32_t moreBlocks, const std::string& when) const {
    kova_mpi_host_usage usage;
    kova_mpi_host_get_usage(&usage);
    Require(usage.blocks == kFrames + moreBlocks && usage.mappings <= 1 && usage.jobs == 0,
            when + ": media memory is left behind");
}

bool SameBits(const Feature& a, const Feature& b) {
    return std::memcmp(a.data(), b.data(), sizeof a) == 0;
}

uint32_t Extract(const obj_img& image, Feature& feature) {
    return kova_fr_extract_obj_feature(&image, KOVA_FR_FEATURE_LEN, feature.data());
}

} // namespace orvo_soak
