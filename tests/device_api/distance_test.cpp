// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <climits>
#include <cstring>

#include "device_api/device_fixture.h"
#include "support/random.h"

using namespace device_test;

namespace {

// The arguments of one call, all good until spoilt.
struct Arguments {
    Feature featureA{};
    Feature featureB{};
    float distance = -123.0f;
    const float* a = featureA.data();
    int32_t aLength = 128;
    const float* b = featureB.data();
    int32_t bLength = 128;
    float* result = &distance;

    Arguments() = default;
    Arguments(const Arguments&) = delete;
    Arguments& operator=(const Arguments&) = delete;

    Outcome Call() {
        return Observe([this] { return kova_fr_get_distance(a, aLength, b, bLength, result); });
    }
};

Outcome Refused(uint32_t code, const std::string& message) {
    return {code, Device("kova_fr_get_distance", message)};
}

const Outcome kNotInitialised = Refused(0xa03f8005, "fr already deinited\n");

// Every argument failure, each with all later arguments bad as well: the first test decides.
void ExpectArgumentFailures() {
    Arguments arguments;
    arguments.result = nullptr;
    EXPECT_EQ(arguments.Call(), Refused(0xa03f8006, "Error: result null!\n"));
    for (const int32_t length : {127, 129, 0, -1, 512, INT_MAX, INT_MIN}) {
        arguments.bLength = length;
        EXPECT_EQ(arguments.Call(),
                  Refused(0xa03f8003,
                          "Error: feature_b_len(" + std::to_string(length) + ") must be 128!\n"));
    }
    arguments.b = nullptr;
    EXPECT_EQ(arguments.Call(), Refused(0xa03f8006, "Error: feature_b null!\n"));
    for (const int32_t length : {127, 129, 0, -1, 512, INT_MAX, INT_MIN}) {
        arguments.aLength = length;
        EXPECT_EQ(arguments.Call(),
                  Refused(0xa03f8003,
                          "Error: feature_a_len(" + std::to_string(length) + ") must be 128!\n"));
    }
    arguments.a = nullptr;
    EXPECT_EQ(arguments.Call(), Refused(0xa03f8006, "Error: feature_a null!\n"));
    EXPECT_EQ(arguments.distance, -123.0f);
}

} // namespace

TEST(DeviceDistance, RefusesBadArgumentsInOrderBeforeInit) {
    kova_mpi_host_start_recording();
    ExpectArgumentFailures();
    EXPECT_EQ(kova_mpi_host_call_count(), 0u);
}

TEST(DeviceDistance, RefusesBadArgumentsTheSameWayAfterInit) {
    const InitialisedApi api;
    ExpectArgumentFailures();
}

TEST(DeviceDistance, NamesALengthOf127AndTheExpected128) {
    Arguments arguments;
    arguments.bLength = 127;
    EXPECT_EQ(arguments.Call(), Refused(0xa03f8003, "Error: feature_b_len(127) must be 128!\n"));
}

TEST(DeviceDistance, BeforeInitFailsOnlyAfterAllArgumentChecks) {
    Arguments arguments;
    EXPECT_EQ(arguments.Call(), kNotInitialised);
    EXPECT_EQ(arguments.distance, -123.0f);
}

TEST(DeviceDistance, AfterDeinitIsRefused) {
    { const InitialisedApi api; }
    Arguments arguments;
    EXPECT_EQ(arguments.Call(), kNotInitialised);
    EXPECT_EQ(arguments.distance, -123.0f);
}

TEST(DeviceDistance, IsTheCoresDistanceBitForBit) {
    const InitialisedApi api;
    orvo_test::Random random(11);
    for (int round = 0; round < 50; ++round) {
        Arguments arguments;
        for (size_t i = 0; i < 128; ++i) {
            arguments.featureA[i] = static_cast<float>(random.Q7()) / 1000.0f;
            arguments.featureB[i] = static_cast<float>(random.Q7()) / 1000.0f;
        }
        kova_mpi_host_start_recording();
        EXPECT_EQ(arguments.Call(), (Outcome{KOVA_FR_OK, ""}));
        EXPECT_EQ(kova_mpi_host_call_count(), 0u);
        const float expected = OrvoFrGetDistance(arguments.a, 512, arguments.b, 512);
        EXPECT_NE(expected, 0.0f);
        EXPECT_EQ(std::memcmp(&arguments.distance, &expected, sizeof expected), 0);
    }
}

TEST(DeviceDistance, OfAUnitFeatureWithItselfIsOne) {
    const InitialisedApi api;
    Arguments arguments;
    arguments.featureA[7] = 0.6f;
    arguments.featureA[120] = -0.8f;
    arguments.b = arguments.a;
    EXPECT_EQ(arguments.Call(), (Outcome{KOVA_FR_OK, ""}));
    EXPECT_NEAR(arguments.distance, 1.0f, 1e-6f);
}
