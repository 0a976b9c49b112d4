// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "device_api/device_fixture.h"

using namespace device_test;

namespace {

const char* const kExtract = "kova_fr_extract_obj_feature";
const Outcome kOk = {KOVA_FR_OK, ""};

// What every extraction from a mapped frame reports: the address that it unmaps is the low half of
// the physical one, which the platform refuses.
const Outcome kOkMapped = {
    KOVA_FR_OK, Device("fr_destory_img", "KOVA_MPI_SYS_Munmap failed, Error(0xa0028005)\n")};

// Extracts and expects the feature to be written exactly when the call succeeds.
Outcome Observed(const obj_img& image, Feature& feature) {
    feature = Untouched();
    const Outcome outcome = Observe([&] { return Extract(image, feature); });
    EXPECT_EQ(SameBits(feature, Untouched()), outcome.code != KOVA_FR_OK);
    return outcome;
}

Outcome Observed(const obj_img& image) {
    Feature feature;
    return Observed(image, feature);
}

// The failure of a step that gets the 256 x 256 image, with its code.
Outcome CreateFailed(uint32_t code, const std::string& diagnostic) {
    char code16[16];
    std::snprintf(code16, sizeof code16, "0x%x", code);
    return {code, diagnostic +
                      Device(kExtract, std::string("fr_create_img failed, ret:") + code16 + "\n")};
}

// Orders the failure of one platform function's next call.
void Fail(const char* function, int32_t code = kPlatformCode) {
    ASSERT_EQ(kova_mpi_host_fail_call(function, 1, code, 0), 0);
}

// What the platform's scaler and then the core make of a frame.
Feature ScaledCoreFeature(const obj_img& image) {
    const Memory buffer = Allocate(65536, "SCALED");
    kova_vgs_task task{};
    task.in = platform_test::Frame(image.phy_addr, image.width, image.height, image.stride);
    task.out = platform_test::Frame(buffer.phy, 256, 256, 256);
    int32_t handle = -1;
    EXPECT_EQ(KOVA_MPI_VGS_BeginJob(&handle), 0);
    EXPECT_EQ(KOVA_MPI_VGS_AddScaleTask(handle, &task, 1), 0);
    EXPECT_EQ(KOVA_MPI_VGS_EndJob(handle), 0);
    const Feature feature = CoreFeature(buffer.bytes(), 256);
    EXPECT_EQ(KOVA_MPI_SYS_MmzFree(buffer.phy, buffer.vir), 0);
    return feature;
}

// Expects that nothing but the working memory and the test's frame is in use.
void ExpectOnlyTheFrame() {
    EXPECT_EQ(Usage().blocks, 2u);
    EXPECT_EQ(kova_mpi_host_blocks_named("FR_RESIZE", nullptr), 0u);
    EXPECT_EQ(Usage().mappings, 0u);
    EXPECT_EQ(Usage().jobs, 0u);
}

using Names = std::vector<std::string>;

} // namespace

TEST(Extract, GivesUnitFeaturesThatDifferBetweenPictures) {
    const InitialisedApi api;
    const MediaFrame one(256, 256, 256, 1);
    const MediaFrame two(256, 256, 256, 2);
    Feature a;
    Feature b;
    EXPECT_EQ(Observed(one.image(1), a), kOk);
    EXPECT_EQ(Observed(two.image(1), b), kOk);
    EXPECT_FALSE(SameBits(a, b));
    for (const Feature& feature : {a, b}) {
        double length = 0;
        for (const float element : feature) {
            length += double{element} * element;
        }
        EXPECT_NEAR(std::sqrt(length), 1.0, 1e-5);
    }
}

TEST(Extract, NeedsNoPlatformCallOnTheFastPath) {
    const InitialisedApi api;
    const MediaFrame frame(256, 256, 256);
    obj_img image = frame.image(1);
    image.phy_addr = 1; // is not used
    kova_mpi_host_start_recording();
    Feature feature;
    EXPECT_EQ(Observed(image, feature), kOk);
    EXPECT_EQ(kova_mpi_host_call_count(), 0u);
    EXPECT_TRUE(SameBits(feature, CoreFeature(frame.memory().bytes(), 256)));
    ExpectOnlyTheFrame();
}

TEST(Extract, HandsALargerStrideOnTheFastPathToTheCore) {
    const InitialisedApi api;
    const MediaFrame frame(256, 256, 331);
    Feature feature;
    EXPECT_EQ(Observed(frame.image(1), feature), kOk);
    EXPECT_TRUE(SameBits(feature, CoreFeature(frame.memory().bytes(), 331)));
    EXPECT_FALSE(SameBits(feature, CoreFeature(frame.memory().bytes(), 256)));
}

TEST(Extract, MapsAFrameThatItKnowsByPhysicalAddressOnly) {
    const InitialisedApi api;
    const MediaFrame frame(256, 256, 256);
    kova_mpi_host_start_recording();
    Feature feature;
    EXPECT_EQ(Observed(frame.image(0), feature), kOkMapped);
    EXPECT_TRUE(SameBits(feature, CoreFeature(frame.memory().bytes(), 256)));
    const std::vector<kova_mpi_host_call> calls = Calls();
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_STREQ(calls[0].function, "KOVA_MPI_SYS_Mmap");
    EXPECT_EQ(calls[0].phy, frame.memory().phy);
    EXPECT_EQ(calls[0].size, 65536u);
    // The unmapping is given the low half of the physical address, not the mapping, which so stays
    // behind.
    EXPECT_STREQ(calls[1].function, "KOVA_MPI_SYS_Munmap");
    EXPECT_EQ(calls[1].vir, static_cast<uint32_t>(frame.memory().phy));
    EXPECT_EQ(calls[1].size, 65536u);
    EXPECT_EQ(calls[1].result, KOVA_SYS_ERR_UNEXIST);
    kova_mpi_host_mapping left{};
    ASSERT_EQ(kova_mpi_host_get_mapping(0, &left), 0);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(left.vir), calls[0].vir);
    EXPECT_EQ(left.phy, frame.memory().phy);
}

TEST(Extract, MapsAndUnmapsAFrameAtAnOddAddress) {
    const InitialisedApi api;
    const MediaFrame frame(256, 256, 300);
    obj_img image = frame.image(0);
    image.phy_addr += 1;
    image.stride = 256;
    kova_mpi_host_start_recording();
    Feature feature;
    EXPECT_EQ(Observed(image, feature), kOkMapped);
    EXPECT_TRUE(SameBits(feature, CoreFeature(frame.memory().bytes() + 1, 256)));
    const std::vector<kova_mpi_host_call> calls = Calls();
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].phy, frame.memory().phy + 1);
    EXPECT_EQ(calls[1].vir, static_cast<uint32_t>(frame.memory().phy + 1));
}

TEST(Extract, MapsStrideTimes256Bytes) {
    const InitialisedApi api;
    const MediaFrame frame(256, 256, 300);
    kova_mpi_host_start_recording();
    Feature feature;
    EXPECT_EQ(Observed(frame.image(0), feature), kOkMapped);
    EXPECT_TRUE(SameBits(feature, CoreFeature(frame.memory().bytes(), 300)));
    const std::vector<kova_mpi_host_call> calls = Calls();
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].size, 300u * 256);
    EXPECT_EQ(calls[1].size, 300u * 256);
}

TEST(Extract, DoesNotUseTheVirtualAddressWithMemType0) {
    const InitialisedApi api;
    const MediaFrame frame(256, 256, 256);
    obj_img image = frame.image(0);
    image.vir_addr = 1;
    Feature feature;
    EXPECT_EQ(Observed(image, feature), kOkMapped);
    EXPECT_TRUE(SameBits(feature, CoreFeature(frame.memory().bytes(), 256)));
}

TEST(Extract, ReusesTheMappingThatStaysBehind) {
    const InitialisedApi api;
    const MediaFrame frame(256, 256, 256);
    EXPECT_EQ(Observed(frame.image(0)), kOkMapped);
    const kova_mpi_host_usage first = Usage();
    EXPECT_EQ(first.mappings, 1u);
    EXPECT_EQ(first.mapping_bytes, 65536u);
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(Observed(frame.image(0)), kOkMapped);
        EXPECT_EQ(Usage().mappings, first.mappings);
        EXPECT_EQ(Usage().mapping_bytes, first.mapping_bytes);
        EXPECT_EQ(Usage().block_bytes, first.block_bytes);
    }
}

TEST(Extract, FailsWhenTheFrameCannotBeMapped) {
    const InitialisedApi api;
    const MediaFrame frame(256, 256, 256);
    const Outcome failed =
        CreateFailed(0xa03f8006, Device("fr_create_img", "Error: KOVA_MPI_SYS_Mmap failed\n"));
    kova_mpi_host_start_recording();
    Fail("KOVA_MPI_SYS_Mmap");
    EXPECT_EQ(Observed(frame.image(0)), failed);
    EXPECT_EQ(CallNames(), Names{"KOVA_MPI_SYS_Mmap"});
    // The same when the platform knows no such memory.
    obj_img elsewhere = frame.image(0);
    elsewhere.phy_addr += 1;
    EXPECT_EQ(Observed(elsewhere), failed);
    ExpectOnlyTheFrame();
    EXPECT_EQ(Observed(frame.image(0)), kOkMapped);
}

TEST(Extract, RefusesAStrideWhoseFrameLengthWrapsToZero) {
    const InitialisedApi api;
    const MediaFrame frame(256, 256, 256);
    kova_mpi_host_start_recording();
    for (const uint32_t stride : {0x01000000u, 0x80000000u, 0xff000000u}) {
        obj_img image = frame.image(0);
        image.stride = stride;
        EXPECT_EQ(Observed(image),
                  CreateFailed(0xa03f8003,
                               Device("fr_create_img", "Error:image size can not be zero\n")));
    }
    EXPECT_EQ(kova_mpi_host_call_count(), 0u);
    EXPECT_TRUE(IsInitialised());
}

TEST(Extract, TheCoreRefusesAStrideOf2To31AndAbove) {
    const InitialisedApi api;
    const MediaFrame frame(256, 256, 256);
    kova_mpi_host_start_recording();
    const struct {
        uint32_t stride;
        const char* shown;
    } cases[] = {{0x80000000u, "-2147483648"}, {0xffffffffu, "-1"}};
    for (const auto& c : cases) {
        obj_img image = frame.image(1);
        image.stride = c.stride;
        EXPECT_EQ(
            Observed(image),
            (Outcome{0xa03f8041, Core(std::string("CheckInput failed. InImage stride error: ") +
                                      c.shown + ", expect greater than or equal to: 256\n\n") +
                                     Device(kExtract, "fr extract obj feature fail,Error:2\n")}));
    }
    EXPECT_EQ(kova_mpi_host_call_count(), 0u);
    EXPECT_EQ(Observed(frame.image(1)), kOk);
}

TEST(Extract, ScalesAFrameOfAnotherSizeIntoATemporaryBuffer) {
    const InitialisedApi api;
    const MediaFrame frame(640, 360, 704);
    obj_img image = frame.image(1);
    image.pool_id = 0xABCD1234;
    kova_mpi_host_start_recording();
    Feature feature;
    EXPECT_EQ(Observed(image, feature), kOk);
    const std::vector<kova_mpi_host_call> calls = Calls();
    ASSERT_EQ(CallNames(),
              (Names{"KOVA_MPI_SYS_MmzAlloc", "KOVA_MPI_VGS_BeginJob", "KOVA_MPI_VGS_AddScaleTask",
                     "KOVA_MPI_VGS_EndJob", "KOVA_MPI_SYS_MmzFree"}));
    EXPECT_STREQ(calls[0].name, "FR_RESIZE");
    EXPECT_EQ(calls[0].has_zone, 0u);
    EXPECT_EQ(calls[0].size, 65536u);
    kova_vgs_task expected;
    std::memset(&expected, 0, sizeof expected);
    expected.in.width = 640;
    expected.in.height = 360;
    expected.in.stride[0] = 704;
    expected.in.pixel_format = 40;
    expected.in.phy_addr[0] = image.phy_addr;
    expected.in.vir_addr[0] = image.vir_addr;
    expected.in.pool_id = 0xABCD1234;
    expected.out.width = 256;
    expected.out.height = 256;
    expected.out.stride[0] = 256;
    expected.out.pixel_format = 40;
    expected.out.phy_addr[0] = calls[0].phy;
    expected.out.vir_addr[0] = calls[0].vir;
    EXPECT_EQ(std::memcmp(&calls[2].task, &expected, sizeof expected), 0);
    EXPECT_EQ(calls[2].mode, 1u);
    EXPECT_EQ(calls[2].handle, calls[1].handle);
    EXPECT_EQ(calls[3].handle, calls[1].handle);
    EXPECT_EQ(calls[4].phy, calls[0].phy);
    EXPECT_EQ(calls[4].vir, calls[0].vir);
    ExpectOnlyTheFrame();
    EXPECT_TRUE(SameBits(feature, ScaledCoreFeature(image)));
}

TEST(Extract, ScalesTheSmallestFrameUp) {
    const InitialisedApi api;
    const MediaFrame frame(16, 12, 16);
    kova_mpi_host_start_recording();
    Feature feature;
    EXPECT_EQ(Observed(frame.image(0), feature), kOk);
    const std::vector<kova_mpi_host_call> calls = Calls();
    ASSERT_EQ(calls.size(), 5u);
    EXPECT_EQ(calls[2].task.in.vir_addr[0], 0u); // as the caller gave it
    EXPECT_TRUE(SameBits(feature, ScaledCoreFeature(frame.image(0))));
    ExpectOnlyTheFrame();
}

TEST(Extract, ScalesWhenOnlyOneSideDiffersFrom256) {
    const InitialisedApi api;
    const MediaFrame wide(258, 256, 260);
    const MediaFrame low(256, 254, 256);
    for (const MediaFrame* frame : {&wide, &low}) {
        kova_mpi_host_start_recording();
        Feature feature;
        EXPECT_EQ(Observed(frame->image(1), feature), kOk);
        EXPECT_EQ(kova_mpi_host_call_count(), 5u);
        EXPECT_TRUE(SameBits(feature, ScaledCoreFeature(frame->image(1))));
    }
}

TEST(ScalingFailure, OfTheAllocationHasNothingToFree) {
    const InitialisedApi api;
    const MediaFrame frame(64, 48, 64);
    kova_mpi_host_start_recording();
    Fail("KOVA_MPI_SYS_MmzAlloc");
    EXPECT_EQ(
        Observed(frame.image(0)),
        CreateFailed(0xa0ff1234, Device("fr_create_img",
                                        "Error: KOVA_MPI_SYS_MmzAlloc failed, ret:0xa0ff1234\n")));
    EXPECT_EQ(CallNames(), Names{"KOVA_MPI_SYS_MmzAlloc"});
    ExpectOnlyTheFrame();
    EXPECT_EQ(Observed(frame.image(0)), kOk);
}

TEST(ScalingFailure, OfBeginJobFreesTheBufferAndCancelsNothing) {
    const InitialisedApi api;
    const MediaFrame frame(64, 48, 64);
    kova_mpi_host_start_recording();
    Fail("KOVA_MPI_VGS_BeginJob");
    EXPECT_EQ(
        Observed(frame.image(0)),
        CreateFailed(0xa0ff1234,
                     Device("fr_resize", "Error: KOVA_MPI_VGS_BeginJob failed,ret:0xa0ff1234\n")));
    EXPECT_EQ(CallNames(),
              (Names{"KOVA_MPI_SYS_MmzAlloc", "KOVA_MPI_VGS_BeginJob", "KOVA_MPI_SYS_MmzFree"}));
    ExpectOnlyTheFrame();
    EXPECT_EQ(Observed(frame.image(0)), kOk);
}

TEST(ScalingFailure, OfAddScaleTaskCancelsTheJobAndFreesTheBuffer) {
    const InitialisedApi api;
    const MediaFrame frame(64, 48, 64);
    kova_mpi_host_start_recording();
    Fail("KOVA_MPI_VGS_AddScaleTask");
    EXPECT_EQ(
        Observed(frame.image(0)),
        CreateFailed(0xa0ff1234, Device("fr_resize",
                                        "Error(0xa0ff1234), KOVA_MPI_VGS_AddScaleTask failed!\n")));
    EXPECT_EQ(CallNames(),
              (Names{"KOVA_MPI_SYS_MmzAlloc", "KOVA_MPI_VGS_BeginJob", "KOVA_MPI_VGS_AddScaleTask",
                     "KOVA_MPI_VGS_CancelJob", "KOVA_MPI_SYS_MmzFree"}));
    const std::vector<kova_mpi_host_call> calls = Calls();
    EXPECT_EQ(calls[3].handle, calls[1].handle);
    EXPECT_EQ(calls[3].result, 0);
    EXPECT_EQ(calls[4].phy, calls[0].phy);
    EXPECT_EQ(calls[4].vir, calls[0].vir);
    ExpectOnlyTheFrame();
    EXPECT_EQ(Observed(frame.image(0)), kOk);
}

TEST(ScalingFailure, OfEndJobCancelsTheJobAndFreesTheBuffer) {
    const InitialisedApi api;
    const MediaFrame frame(64, 48, 64);
    kova_mpi_host_start_recording();
    Fail("KOVA_MPI_VGS_EndJob");
    EXPECT_EQ(Observed(frame.image(0)),
              CreateFailed(0xa0ff1234, Device("fr_resize",
                                              "Error(0xa0ff1234), KOVA_MPI_VGS_EndJob failed!\n")));
    EXPECT_EQ(CallNames(),
              (Names{"KOVA_MPI_SYS_MmzAlloc", "KOVA_MPI_VGS_BeginJob", "KOVA_MPI_VGS_AddScaleTask",
                     "KOVA_MPI_VGS_EndJob", "KOVA_MPI_VGS_CancelJob", "KOVA_MPI_SYS_MmzFree"}));
    const std::vector<kova_mpi_host_call> calls = Calls();
    EXPECT_EQ(calls[4].handle, calls[1].handle);
    EXPECT_EQ(calls[4].result, 0);
    EXPECT_EQ(calls[5].phy, calls[0].phy);
    ExpectOnlyTheFrame();
    EXPECT_EQ(Observed(frame.image(0)), kOk);
}

TEST(ScalingFailure, IsReportedTheSameWayWhenCancellingAndFreeingFailToo) {
    const InitialisedApi api;
    const MediaFrame frame(64, 48, 64);
    const int32_t other = static_cast<int32_t>(0xA0FF5678);
    kova_mpi_host_start_recording();
    Fail("KOVA_MPI_VGS_EndJob");
    Fail("KOVA_MPI_VGS_CancelJob", other);
    Fail("KOVA_MPI_SYS_MmzFree", other);
    EXPECT_EQ(Observed(frame.image(0)),
              CreateFailed(0xa0ff1234, Device("fr_resize",
                                              "Error(0xa0ff1234), KOVA_MPI_VGS_EndJob failed!\n")));
    EXPECT_EQ(kova_mpi_host_call_count(), 6u);
    Fail("KOVA_MPI_VGS_AddScaleTask");
    Fail("KOVA_MPI_VGS_CancelJob", other);
    EXPECT_EQ(
        Observed(frame.image(0)),
        CreateFailed(0xa0ff1234, Device("fr_resize",
                                        "Error(0xa0ff1234), KOVA_MPI_VGS_AddScaleTask failed!\n")));
}

TEST(ScalingFailure, HandsOnThePlatformsOwnRefusalOfAFrameOutsideItsMemory) {
    const InitialisedApi api;
    const MediaFrame frame(64, 48, 64);
    obj_img image = frame.image(0);
    image.height = 50;
    kova_mpi_host_start_recording();
    EXPECT_EQ(
        Observed(image),
        CreateFailed(0xa0038003, Device("fr_resize",
                                        "Error(0xa0038003), KOVA_MPI_VGS_AddScaleTask failed!\n")));
    EXPECT_EQ(kova_mpi_host_call_count(), 5u);
    ExpectOnlyTheFrame();
}

TEST(ScalingBuffer, WithoutVirtualAddressIsRefusedByTheCore) {
    const InitialisedApi api;
    const MediaFrame frame(64, 48, 64);
    ASSERT_EQ(kova_mpi_host_blank_address("KOVA_MPI_SYS_MmzAlloc", 1, KOVA_MPI_HOST_BLANK_VIR, 0),
              0);
    kova_mpi_host_start_recording();
    EXPECT_EQ(Observed(frame.image(0)),
              (Outcome{0xa03f8041,
                       Core("CheckInput failed. The img or imgAddr or resultAddr or g_frInnerImage "
                            "is null!\n\n") +
                           Device(kExtract, "fr extract obj feature fail,Error:1\n")}));
    // A buffer with an address missing is not given back.
    EXPECT_EQ(CallNames(), (Names{"KOVA_MPI_SYS_MmzAlloc", "KOVA_MPI_VGS_BeginJob",
                                  "KOVA_MPI_VGS_AddScaleTask", "KOVA_MPI_VGS_EndJob"}));
    EXPECT_EQ(kova_mpi_host_blocks_named("FR_RESIZE", nullptr), 1u);
    EXPECT_EQ(Observed(frame.image(0)), kOk);
}

TEST(ScalingBuffer, WithAnAddressMissingIsNotFreedAfterAFailure) {
    const InitialisedApi api;
    const MediaFrame frame(64, 48, 64);
    for (const kova_mpi_host_blank blank : {KOVA_MPI_HOST_BLANK_VIR, KOVA_MPI_HOST_BLANK_PHY}) {
        ASSERT_EQ(kova_mpi_host_blank_address("KOVA_MPI_SYS_MmzAlloc", 1, blank, 0), 0);
        Fail("KOVA_MPI_VGS_BeginJob");
        kova_mpi_host_start_recording();
        EXPECT_EQ(Observed(frame.image(0)),
                  CreateFailed(
                      0xa0ff1234,
                      Device("fr_resize", "Error: KOVA_MPI_VGS_BeginJob failed,ret:0xa0ff1234\n")));
        EXPECT_EQ(CallNames(), (Names{"KOVA_MPI_SYS_MmzAlloc", "KOVA_MPI_VGS_BeginJob"}));
    }
    EXPECT_EQ(kova_mpi_host_blocks_named("FR_RESIZE", nullptr), 2u);
}

TEST(ScalingBuffer, ThatCannotBeFreedShowsOnlyAsADiagnostic) {
    const InitialisedApi api;
    const MediaFrame frame(64, 48, 64);
    Fail("KOVA_MPI_SYS_MmzFree");
    Feature feature;
    EXPECT_EQ(Observed(frame.image(0), feature),
              (Outcome{KOVA_FR_OK, Device("fr_destory_img",
                                          "KOVA_MPI_SYS_MmzFree failed, Error(0xa0ff1234)\n")}));
    EXPECT_EQ(kova_mpi_host_blocks_named("FR_RESIZE", nullptr), 1u);
    EXPECT_TRUE(SameBits(feature, ScaledCoreFeature(frame.image(0))));
}
