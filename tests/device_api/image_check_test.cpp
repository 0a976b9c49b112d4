// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <cstddef>

#include "device_api/device_fixture.h"

using namespace device_test;

// The record that applications fill, at the offsets they were built with.
static_assert(offsetof(obj_img, phy_addr) == 0);
static_assert(offsetof(obj_img, vir_addr) == 8);
static_assert(offsetof(obj_img, stride) == 16);
static_assert(offsetof(obj_img, width) == 20);
static_assert(offsetof(obj_img, height) == 24);
static_assert(offsetof(obj_img, pool_id) == 28);
static_assert(offsetof(obj_img, mem_type) == 32);
static_assert(sizeof(obj_img) == 40);

namespace {

const char* const kExtract = "kova_fr_extract_obj_feature";

const Outcome kNotInitialised = {0xa03f8005, Device(kExtract, "fr already deinited\n")};

obj_img GoodImage() {
    obj_img image{};
    image.phy_addr = 0x1000;
    image.vir_addr = 0x2000;
    image.stride = 64;
    image.width = 64;
    image.height = 48;
    image.mem_type = 1;
    return image;
}

Outcome TryImage(const obj_img* image) {
    Feature feature = Untouched();
    const Outcome outcome =
        Observe([&] { return kova_fr_extract_obj_feature(image, 128, feature.data()); });
    EXPECT_TRUE(SameBits(feature, Untouched()));
    return outcome;
}

Outcome Refused(uint32_t code, const std::string& message) {
    return {code, Device("fr_check_image", message) + Device(kExtract, "check image failed!\n")};
}

// Spoils a good image and expects the given refusal.
void ExpectRefusal(const std::string& message, const std::function<void(obj_img&)>& spoil) {
    SCOPED_TRACE(message);
    obj_img image = GoodImage();
    spoil(image);
    EXPECT_EQ(TryImage(&image), Refused(0xa03f8003, message));
}

// Every failure of the image check, alone and with everything that is tested later spoilt as well.
void ExpectImageFailures() {
    EXPECT_EQ(TryImage(nullptr), Refused(0xa03f8006, "Error: obj_img null!\n"));

    ExpectRefusal("Error: phy_addr cannot be zero!\n", [](obj_img& i) { i.phy_addr = 0; });
    ExpectRefusal("Error: phy_addr cannot be zero!\n", [](obj_img& i) {
        i = obj_img{};
        i.mem_type = 1;
    });

    ExpectRefusal("Error: vir_addr cannot be zero!\n", [](obj_img& i) { i.vir_addr = 0; });
    ExpectRefusal("Error: vir_addr cannot be zero!\n", [](obj_img& i) {
        i = obj_img{};
        i.phy_addr = 1;
        i.mem_type = 1;
    });

    ExpectRefusal("Error: width(15) can not less than 16!\n", [](obj_img& i) { i.width = 15; });
    ExpectRefusal("Error: width(0) can not less than 16!\n", [](obj_img& i) {
        i.width = 0;
        i.height = 0;
        i.mem_type = 2;
    });

    ExpectRefusal("Error: height(11) can not less than 12!\n", [](obj_img& i) { i.height = 11; });
    ExpectRefusal("Error: height(0) can not less than 12!\n", [](obj_img& i) {
        i.width = 65;
        i.height = 0;
        i.mem_type = 2;
    });

    ExpectRefusal("Error(0xa03f8003), width(63) should be an even number!\n",
                  [](obj_img& i) { i.width = 63; });
    ExpectRefusal("Error(0xa03f8003), width(4294967295) should be an even number!\n",
                  [](obj_img& i) {
                      i.width = 4294967295u;
                      i.height = 4294967295u;
                      i.mem_type = 2;
                  });

    ExpectRefusal("Error(0xa03f8003), height(47) should be an even number!\n",
                  [](obj_img& i) { i.height = 47; });
    ExpectRefusal("Error(0xa03f8003), height(4294967295) should be an even number!\n",
                  [](obj_img& i) {
                      i.width = 66;
                      i.height = 4294967295u;
                      i.mem_type = 2;
                  });

    ExpectRefusal("stride(63) can not less than width(64)\n", [](obj_img& i) { i.stride = 63; });
    ExpectRefusal("stride(0) can not less than width(-2)\n", [](obj_img& i) {
        i.width = 4294967294u;
        i.stride = 0;
        i.mem_type = 2;
    });
    // The comparison is unsigned, whatever the message makes of the values.
    ExpectRefusal("stride(2147483647) can not less than width(-2147483648)\n", [](obj_img& i) {
        i.width = 2147483648u;
        i.stride = 2147483647u;
    });

    ExpectRefusal("Error: mem_type(2) should be [0, 1]!\n", [](obj_img& i) { i.mem_type = 2; });
    ExpectRefusal("Error: mem_type(-1) should be [0, 1]!\n",
                  [](obj_img& i) { i.mem_type = 4294967295u; });
}

// Before init, an image that passes every check gets as far as the state.
void ExpectAccepted(const std::function<void(obj_img&)>& change) {
    obj_img image = GoodImage();
    change(image);
    EXPECT_EQ(TryImage(&image), kNotInitialised);
}

} // namespace

TEST(ImageCheck, RefusesEveryBadFieldInOrderBeforeInit) {
    kova_mpi_host_start_recording();
    ExpectImageFailures();
    EXPECT_EQ(kova_mpi_host_call_count(), 0u);
}

TEST(ImageCheck, RefusesTheSameWayAfterInit) {
    const InitialisedApi api;
    kova_mpi_host_start_recording();
    ExpectImageFailures();
    EXPECT_EQ(kova_mpi_host_call_count(), 0u);
    EXPECT_TRUE(IsInitialised());
}

TEST(ImageCheck, AcceptsTheSmallestImageAndRefusesOneTwoPixelsNarrower) {
    ExpectAccepted([](obj_img& i) {
        i.width = 16;
        i.height = 12;
    });
    ExpectRefusal("Error: width(14) can not less than 16!\n", [](obj_img& i) {
        i.width = 14;
        i.height = 12;
    });
}

TEST(ImageCheck, AcceptsAStrideEqualToTheWidthAndRefusesOneNarrower) {
    ExpectAccepted([](obj_img& i) { i.stride = i.width; });
    ExpectRefusal("stride(63) can not less than width(64)\n",
                  [](obj_img& i) { i.stride = i.width - 1; });
}

TEST(ImageCheck, HasNoUpperBoundOnTheSizes) {
    ExpectAccepted([](obj_img& i) {
        i.width = 4294967294u;
        i.height = 4294967294u;
        i.stride = 4294967295u;
    });
}

TEST(ImageCheck, LooksAtAll64BitsOfThePhysicalAddress) {
    ExpectAccepted([](obj_img& i) { i.phy_addr = uint64_t{1} << 32; });
    ExpectAccepted([](obj_img& i) { i.phy_addr = uint64_t{1} << 63; });
    ExpectAccepted([](obj_img& i) { i.vir_addr = uint64_t{1} << 32; });
}

TEST(ImageCheck, NeedsNoVirtualAddressWithMemType0) {
    ExpectAccepted([](obj_img& i) {
        i.mem_type = 0;
        i.vir_addr = 0;
    });
}

TEST(ImageCheck, ReportsAMemTypeOf2WithoutVirtualAddressAsABadMemType) {
    ExpectRefusal("Error: mem_type(2) should be [0, 1]!\n", [](obj_img& i) {
        i.mem_type = 2;
        i.vir_addr = 0;
    });
}

TEST(ImageCheck, DoesNotLookAtThePool) {
    ExpectAccepted([](obj_img& i) { i.pool_id = 4294967295u; });
}

TEST(FeatureCheck, RefusesANullFeatureOnlyAfterTheImage) {
    const obj_img good = GoodImage();
    obj_img bad = GoodImage();
    bad.width = 15;
    EXPECT_EQ(Observe([&] { return kova_fr_extract_obj_feature(&bad, 0, nullptr); }),
              Refused(0xa03f8003, "Error: width(15) can not less than 16!\n"));
    EXPECT_EQ(Observe([&] { return kova_fr_extract_obj_feature(&good, 0, nullptr); }),
              (Outcome{0xa03f8006, Device(kExtract, "Error: feature null!\n")}));
}

TEST(FeatureCheck, RefusesEveryLengthBut128BeforeAndAfterInit) {
    const obj_img image = GoodImage();
    Feature feature = Untouched();
    const auto check = [&] {
        for (const uint32_t length : {0u, 127u, 129u, 512u, 4294967295u}) {
            const std::string shown = std::to_string(static_cast<int32_t>(length));
            EXPECT_EQ(Observe([&] {
                          return kova_fr_extract_obj_feature(&image, length, feature.data());
                      }),
                      (Outcome{0xa03f8003, Device(kExtract, "Error: feature_len(" + shown +
                                                                ") must be 128!\n")}));
        }
    };
    kova_mpi_host_start_recording();
    check();
    EXPECT_EQ(kova_mpi_host_call_count(), 0u);
    const InitialisedApi api;
    check();
    EXPECT_TRUE(SameBits(feature, Untouched()));
}

TEST(FeatureCheck, RefusesALengthInBytes) {
    const obj_img image = GoodImage();
    Feature feature{};
    EXPECT_EQ(Observe([&] { return kova_fr_extract_obj_feature(&image, 512, feature.data()); }),
              (Outcome{0xa03f8003, Device(kExtract, "Error: feature_len(512) must be 128!\n")}));
}

TEST(FeatureCheck, IsRefusedAsNotInitialisedOnlyWithGoodArguments) {
    const obj_img image = GoodImage();
    kova_mpi_host_start_recording();
    EXPECT_EQ(TryImage(&image), kNotInitialised);
    { const InitialisedApi api; }
    kova_mpi_host_start_recording();
    EXPECT_EQ(TryImage(&image), kNotInitialised);
    EXPECT_EQ(kova_mpi_host_call_count(), 0u);
}
