// SPDX-License-Identifier: MIT
// The finder's model that cannot be opened. Links support/bounded_faults.cpp, to fail a bounded copy.
#include <gtest/gtest.h>

#include "orvo/orvo_find.h"
#include "support/bounded_faults.h"
#include "support/stderr_capture.h"

namespace {

TEST(FindOpening, AModelThatCannotBeOpenedIsSaidAndLeavesTheFinderClosed) {
    orvo_test::StderrCapture errors;
    orvo_test::FailBoundedCall(1, 22);
    EXPECT_EQ(OrvoFindInit(), ORVO_FIND_NOT_DECRYPTED);
    orvo_test::StopBoundedFaults();
    const std::string text = errors.text();
    EXPECT_NE(text.find("error in cbc_encryption.\n\n"), std::string::npos) << text;
    EXPECT_NE(text.find("OrvoFindInit failed.\n"), std::string::npos) << text;
    static uint8_t memory[1 << 20], pixels[64 * 64];
    const OrvoFindPicture picture = {pixels, 64, 64, 64};
    OrvoFindFace face;
    int32_t count = 0;
    ASSERT_EQ(OrvoFindSetMemory(memory, sizeof memory), ORVO_FIND_OK);
    EXPECT_EQ(OrvoFindRun(&picture, 20, &face, 1, &count), ORVO_FIND_NOT_DECRYPTED);
    // Nothing was changed yet, so that the next call succeeds.
    EXPECT_EQ(OrvoFindInit(), ORVO_FIND_OK);
    EXPECT_EQ(OrvoFindRun(&picture, 20, &face, 1, &count), ORVO_FIND_OK);
}

} // namespace
