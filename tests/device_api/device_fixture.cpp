// SPDX-License-Identifier: MIT
#include "device_api/device_fixture.h"

#include <gtest/gtest.h>

#include <cstring>
#include <ostream>

#include "support/drawn_frame.h"
#include "support/stderr_capture.h"

namespace device_test {

void PrintTo(const Outcome& outcome, std::ostream* out) {
    *out << "0x" << std::hex << outcome.code << std::dec << "\n" << outcome.text;
}

std::string HideLines(std::string text) {
    for (const std::string& before :
         {std::string("[Line]:"), std::string("[ERR] ../fr_demo/fr_api:")}) {
        for (size_t at = text.find(before); at != std::string::npos; at = text.find(before, at)) {
            at += before.size();
            const size_t end = text.find_first_not_of("0123456789", at);
            if (end != std::string::npos && end > at && text[at] != '0' && text[end] == ' ') {
                text.replace(at, end - at, "N");
            }
        }
    }
    return text;
}

Outcome Observe(const std::function<uint32_t()>& call) {
    orvo_test::StderrCapture capture;
    Outcome outcome;
    outcome.code = call();
    outcome.text = HideLines(capture.text());
    return outcome;
}

std::string Device(const std::string& function, const std::string& message) {
    return "[Func]:" + function + " [Line]:N [Info]:" + message;
}

std::string Core(const std::string& message) { return "[ERR] ../fr_demo/fr_api:N " + message; }

std::vector<kova_mpi_host_call> Calls() {
    std::vector<kova_mpi_host_call> calls(kova_mpi_host_call_count());
    for (uint32_t i = 0; i < calls.size(); ++i) {
        EXPECT_EQ(kova_mpi_host_get_call(i, &calls[i]), 0);
    }
    return calls;
}

std::vector<std::string> CallNames() {
    std::vector<std::string> names;
    for (const kova_mpi_host_call& call : Calls()) {
        names.push_back(call.function);
    }
    return names;
}

void ExpectNothingInUse() {
    const kova_mpi_host_usage usage = Usage();
    EXPECT_EQ(usage.blocks, 0u);
    EXPECT_EQ(usage.mappings, 0u);
    EXPECT_EQ(usage.jobs, 0u);
}

Feature Untouched() {
    Feature feature;
    for (size_t i = 0; i < feature.size(); ++i) {
        feature[i] = 1000.0f + static_cast<float>(i);
    }
    return feature;
}

bool SameBits(const Feature& a, const Feature& b) {
    return std::memcmp(a.data(), b.data(), sizeof a) == 0;
}

MediaFrame::MediaFrame(uint32_t width, uint32_t height, uint32_t stride, uint64_t seed)
    : memory_(Allocate(stride * height, "FRAME")), image_{} {
    const std::vector<uint8_t> bytes = orvo_test::DrawFrame(width, height, stride, seed);
    std::memcpy(memory_.vir, bytes.data(), bytes.size());
    image_.phy_addr = memory_.phy;
    image_.stride = stride;
    image_.width = width;
    image_.height = height;
}

MediaFrame::~MediaFrame() { EXPECT_EQ(KOVA_MPI_SYS_MmzFree(memory_.phy, memory_.vir), 0); }

obj_img MediaFrame::image(uint32_t memType) const {
    obj_img image = image_;
    image.mem_type = memType;
    image.vir_addr = memType == 1 ? reinterpret_cast<uintptr_t>(memory_.vir) : 0;
    return image;
}

uint32_t Extract(const obj_img& image, Feature& feature) {
    return kova_fr_extract_obj_feature(&image, KOVA_FR_FEATURE_LEN, feature.data());
}

Feature CoreFeature(const uint8_t* pixels, int32_t stride) {
    const FrImage image = {pixels, 256, 256, stride};
    Feature feature = Untouched();
    EXPECT_EQ(OrvoFrRun(&image, feature.data(), ORVO_FR_FEATURE_BYTES), 0);
    return feature;
}

InitialisedApi::InitialisedApi() {
    const orvo_test::StderrCapture capture;
    EXPECT_EQ(kova_fr_init(), KOVA_FR_OK);
}

InitialisedApi::~InitialisedApi() {
    const orvo_test::StderrCapture capture;
    kova_fr_deinit();
}

bool IsInitialised() {
    const orvo_test::StderrCapture capture;
    const Feature feature = {};
    float distance = 0;
    const uint32_t code = kova_fr_get_distance(feature.data(), 128, feature.data(), 128, &distance);
    EXPECT_TRUE(code == KOVA_FR_OK || code == KOVA_FR_ERR_UNEXIST);
    return code == KOVA_FR_OK;
}

} // namespace device_test
