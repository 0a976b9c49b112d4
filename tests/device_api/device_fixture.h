// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "orvo/kova_fr.h"
#include "orvo/kova_mpi.h"
#include "orvo/kova_mpi_host.h"
#include "orvo/orvo_fr.h"
#include "platform/platform_fixture.h"

namespace device_test {

using platform_test::Allocate;
using platform_test::LowHalf;
using platform_test::Memory;
using platform_test::Usage;

// A code that no part of the system returns by itself.
constexpr int32_t kPlatformCode = static_cast<int32_t>(0xA0FF1234);

using Feature = std::array<float, KOVA_FR_FEATURE_LEN>;

// What a call returned and what it wrote to standard error, with every line number as N.
struct Outcome {
    uint32_t code;
    std::string text;

    bool operator==(const Outcome&) const = default;
};
void PrintTo(const Outcome& outcome, std::ostream* out);

// Puts N for the line number of every diagnostic, where there is a positive one.
std::string HideLines(std::string text);

Outcome Observe(const std::function<uint32_t()>& call);

// One diagnostic of the device API, and one of the core.
std::string Device(const std::string& function, const std::string& message);
std::string Core(const std::string& message);

// The calls of the platform since kova_mpi_host_start_recording().
std::vector<kova_mpi_host_call> Calls();
std::vector<std::string> CallNames();

// Expects that no block, mapping or job is left.
void ExpectNothingInUse();

// A feature with a pattern that a failing call must leave alone.
Feature Untouched();
bool SameBits(const Feature& a, const Feature& b);

// A frame in media memory, given back at the end.
class MediaFrame {
  public:
    MediaFrame(uint32_t width, uint32_t height, uint32_t stride, uint64_t seed = 1);
    ~MediaFrame();
    MediaFrame(const MediaFrame&) = delete;
    MediaFrame& operator=(const MediaFrame&) = delete;

    obj_img image(uint32_t memType) const;
    const Memory& memory() const { return memory_; }

  private:
    Memory memory_;
    obj_img image_;
};

uint32_t Extract(const obj_img& image, Feature& feature);

// What the core itself makes of 256 x 256 pixels. Needs kova_fr_init().
Feature CoreFeature(const uint8_t* pixels, int32_t stride);

// kova_fr_init(), expected to succeed, and kova_fr_deinit() at the end if still initialised; what
// they write to standard error is dropped.
class InitialisedApi {
  public:
    InitialisedApi();
    ~InitialisedApi();
    InitialisedApi(const InitialisedApi&) = delete;
    InitialisedApi& operator=(const InitialisedApi&) = delete;
};

// Whether the device API says that it is initialised.
bool IsInitialised();

} // namespace device_test
