// SPDX-License-Identifier: MIT
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "find/candidates.h"
#include "reference/reference_find_faces.h"

namespace orvo_test {

inline void ExpectSame(const orvo::find::Description& face,
                       const orvo_reference::PlainFace& expected, const std::string& what) {
    EXPECT_EQ(face.x, expected.x) << what;
    EXPECT_EQ(face.y, expected.y) << what;
    EXPECT_EQ(face.side, expected.side) << what;
    EXPECT_EQ(face.yaw, expected.yaw) << what;
    EXPECT_EQ(face.covered, expected.covered) << what;
    for (int i = 0; i < 2 * orvo::find::kPoints; ++i) {
        EXPECT_EQ(face.points[i], expected.points[i]) << what << ", point " << i;
    }
}

} // namespace orvo_test
