// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "device_api/device_fixture.h"

using namespace device_test;

namespace {

// Takes over standard error with a socket that keeps every write apart, and gives the writes.
std::vector<std::string> Writes(const std::function<void()>& call) {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends) != 0) {
        ADD_FAILURE() << "no socket pair";
        return {};
    }
    const int saved = dup(STDERR_FILENO);
    dup2(ends[0], STDERR_FILENO);
    call();
    dup2(saved, STDERR_FILENO);
    close(saved);
    close(ends[0]);
    std::vector<std::string> writes;
    char packet[1024];
    for (ssize_t n; (n = recv(ends[1], packet, sizeof packet, 0)) > 0;) {
        writes.emplace_back(packet, static_cast<size_t>(n));
    }
    close(ends[1]);
    return writes;
}

void ExpectPair(const std::vector<std::string>& writes, size_t at, const std::string& function,
                const std::string& message) {
    ASSERT_LT(at + 1, writes.size());
    EXPECT_EQ(HideLines(writes[at]), Device(function, ""));
    EXPECT_EQ(writes[at + 1], message);
}

} // namespace

TEST(DeviceDiagnostics, AreTwoWritesPrefixThenMessage) {
    const std::vector<std::string> one = Writes([] { kova_fr_deinit(); });
    ASSERT_EQ(one.size(), 2u);
    ExpectPair(one, 0, "kova_fr_deinit", "fr already deinited\n");

    const std::vector<std::string> two =
        Writes([] { return kova_fr_extract_obj_feature(nullptr, 0, nullptr); });
    ASSERT_EQ(two.size(), 4u);
    ExpectPair(two, 0, "fr_check_image", "Error: obj_img null!\n");
    ExpectPair(two, 2, "kova_fr_extract_obj_feature", "check image failed!\n");

    const Feature feature{};
    const std::vector<std::string> withValues =
        Writes([&] { return kova_fr_get_distance(feature.data(), -7, nullptr, 0, nullptr); });
    ASSERT_EQ(withValues.size(), 2u);
    ExpectPair(withValues, 0, "kova_fr_get_distance", "Error: feature_a_len(-7) must be 128!\n");
}

TEST(DeviceDiagnostics, OfAHelperComeBeforeItsCallers) {
    const InitialisedApi api;
    const MediaFrame frame(64, 48, 64);
    ASSERT_EQ(kova_mpi_host_fail_call("KOVA_MPI_VGS_EndJob", 1, kPlatformCode, 0), 0);
    Feature feature{};
    const std::vector<std::string> writes =
        Writes([&] { EXPECT_EQ(Extract(frame.image(0), feature), 0xa0ff1234); });
    ASSERT_EQ(writes.size(), 4u);
    ExpectPair(writes, 0, "fr_resize", "Error(0xa0ff1234), KOVA_MPI_VGS_EndJob failed!\n");
    ExpectPair(writes, 2, "kova_fr_extract_obj_feature", "fr_create_img failed, ret:0xa0ff1234\n");
}

TEST(DeviceDiagnostics, NameTheLineThatReports) {
    const auto lineOf = [](const std::string& write) {
        const std::string before = "[Line]:";
        const size_t at = write.find(before);
        return at == std::string::npos ? 0 : std::stoi(write.substr(at + before.size()));
    };
    const Feature feature{};
    const float* const good = feature.data();
    const int first = lineOf(
        Writes([&] { return kova_fr_get_distance(nullptr, 128, good, 128, nullptr); }).at(0));
    const int second =
        lineOf(Writes([&] { return kova_fr_get_distance(good, 127, good, 128, nullptr); }).at(0));
    const int third = lineOf(
        Writes([&] { return kova_fr_get_distance(good, 128, nullptr, 128, nullptr); }).at(0));
    EXPECT_GT(first, 0);
    EXPECT_LT(first, second);
    EXPECT_LT(second, third);
}

TEST(DeviceDiagnostics, AreAbsentFromASuccessfulLife) {
    const MediaFrame frame(256, 256, 256);
    Feature feature{};
    float distance = 0;
    const Outcome outcome = Observe([&]() -> uint32_t {
        return kova_fr_init() + Extract(frame.image(1), feature) +
               kova_fr_get_distance(feature.data(), 128, feature.data(), 128, &distance) +
               kova_fr_deinit();
    });
    EXPECT_EQ(outcome, (Outcome{KOVA_FR_OK, ""}));
    EXPECT_NEAR(distance, 1.0f, 1e-5f);
    EXPECT_EQ(Usage().blocks, 1u); // the test's frame
}
