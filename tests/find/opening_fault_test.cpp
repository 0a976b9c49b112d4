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
    // Nothing was changed yet, so that the next call succeeds.
    EXPECT_EQ(OrvoFindInit(), ORVO_FIND_OK);
}

} // namespace
