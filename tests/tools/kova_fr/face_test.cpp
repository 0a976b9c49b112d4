// SPDX-License-Identifier: MIT
// Media memory is given back on every path, also when the platform or the library fails.
#include "faces/face.h"

#include <gtest/gtest.h>

#include "files/failure.h"
#include "orvo/kova_mpi_host.h"
#include "picture_files.h"
#include "program.h"
#include "support/stderr_capture.h"

namespace kova_fr_test {
namespace {

using kova_cli::Failure;
using kova_cli::Recogniser;

constexpr int32_t kPlatformCode = 0x12345678;

std::string FailureText(const Recogniser& recogniser, const std::string& path) {
    try {
        recogniser.Recognise(kova_cli::LoadPicture(path), std::nullopt);
    } catch (const Failure& failure) {
        return failure.what();
    }
    return "";
}

uint32_t LiveBlocks() {
    kova_mpi_host_usage usage = {};
    kova_mpi_host_get_usage(&usage);
    EXPECT_EQ(usage.mappings, 0u);
    EXPECT_EQ(usage.jobs, 0u);
    return usage.blocks;
}

class FaceMemory : public testing::Test {
  protected:
    FaceMemory() {
        WriteFile(scaled_, BinaryPgm(Pattern(300, 200)));
        WriteFile(bad_, "no picture");
    }
    ~FaceMemory() override { kova_mpi_host_clear_faults(); }

    TempFolder folder_;
    const std::string scaled_ = folder_ / "scaled.pgm";
    const std::string bad_ = folder_ / "bad.pgm";
};

TEST_F(FaceMemory, IsGivenBackAfterSuccess) {
    {
        const Recogniser recogniser;
        EXPECT_EQ(LiveBlocks(), 1u); // the library's working memory
        EXPECT_EQ(FailureText(recogniser, scaled_), "");
        EXPECT_EQ(LiveBlocks(), 1u);
    }
    EXPECT_EQ(LiveBlocks(), 0u);
}

TEST_F(FaceMemory, IsGivenBackAfterABadPicture) {
    {
        const Recogniser recogniser;
        EXPECT_NE(FailureText(recogniser, bad_).find(bad_), std::string::npos);
        EXPECT_EQ(LiveBlocks(), 1u);
    }
    EXPECT_EQ(LiveBlocks(), 0u);
}

TEST_F(FaceMemory, IsGivenBackAfterAFailedScalerJob) {
    const orvo_test::StderrCapture diagnostics;
    {
        const Recogniser recogniser;
        ASSERT_EQ(kova_mpi_host_fail_call("KOVA_MPI_VGS_EndJob", 1, kPlatformCode, 0), 0);
        const std::string text = FailureText(recogniser, scaled_);
        EXPECT_NE(text.find("0x12345678"), std::string::npos) << text;
        EXPECT_EQ(LiveBlocks(), 1u);
        EXPECT_EQ(FailureText(recogniser, scaled_), "");
    }
    EXPECT_EQ(LiveBlocks(), 0u);
}

TEST_F(FaceMemory, ShortageIsReported) {
    {
        const Recogniser recogniser;
        ASSERT_EQ(kova_mpi_host_fail_call("KOVA_MPI_SYS_MmzAlloc_Cached", 1, kPlatformCode, 0), 0);
        const std::string text = FailureText(recogniser, scaled_);
        EXPECT_NE(text.find("no media memory for the frame (0x12345678)"), std::string::npos)
            << text;
    }
    EXPECT_EQ(LiveBlocks(), 0u);
}

TEST_F(FaceMemory, FailedStartIsReported) {
    const orvo_test::StderrCapture diagnostics;
    ASSERT_EQ(kova_mpi_host_fail_call("KOVA_MPI_SYS_MmzAlloc_Cached", 1, kPlatformCode, 0), 0);
    std::string text;
    try {
        const Recogniser recogniser;
    } catch (const Failure& failure) {
        text = failure.what();
    }
    EXPECT_NE(text.find("0xa03f800c"), std::string::npos) << text;
    EXPECT_EQ(LiveBlocks(), 0u);
}

} // namespace
} // namespace kova_fr_test
