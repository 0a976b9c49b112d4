// SPDX-License-Identifier: MIT
#include "cipher/wipe.h"

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>

namespace {

TEST(Wipe, ZeroesWhatItIsGivenAndNothingElse) {
    for (size_t size = 0; size <= 40; ++size) {
        std::array<uint8_t, 48> bytes;
        bytes.fill(0x5c);
        orvo::Wipe(bytes.data() + 4, size);
        for (size_t i = 0; i < bytes.size(); ++i) {
            EXPECT_EQ(bytes[i], i >= 4 && i < 4 + size ? 0 : 0x5c) << size << ' ' << i;
        }
    }
}

} // namespace
