// SPDX-License-Identifier: MIT
//
// What the tests of all kernels rely on: a byte beside a buffer is noticed on either side of it.
#include "support/guarded_buffer.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace {

using orvo_test::GuardedBuffer;

constexpr size_t kSize = 100;

// Ends the process well if nobody objects to a write at the place.
[[noreturn]] void WriteAt(GuardedBuffer::Place place, ptrdiff_t at, bool readOnly) {
    {
        GuardedBuffer buffer(kSize, place);
        if (readOnly) {
            buffer.MakeReadOnly();
        }
        *const_cast<volatile uint8_t*>(buffer.bytes() + at) = 1;
    }
    std::exit(0);
}

constexpr ptrdiff_t kEnd = kSize;

TEST(GuardedBuffer, AllOfItCanBeWritten) {
    for (const auto place : {GuardedBuffer::kAtEnd, GuardedBuffer::kAtStart}) {
        EXPECT_EXIT(WriteAt(place, 0, false), testing::ExitedWithCode(0), "^$");
        EXPECT_EXIT(WriteAt(place, kEnd - 1, false), testing::ExitedWithCode(0), "^$");
    }
}

TEST(GuardedBuffer, NoByteBesideItCanBeWritten) {
    for (const auto place : {GuardedBuffer::kAtEnd, GuardedBuffer::kAtStart}) {
        EXPECT_DEATH(WriteAt(place, -1, false), "");
        EXPECT_DEATH(WriteAt(place, kEnd, false), "");
    }
    EXPECT_DEATH(WriteAt(GuardedBuffer::kAtEnd, -1, false), "written before a buffer");
    EXPECT_DEATH(WriteAt(GuardedBuffer::kAtStart, kEnd, false), "written behind a buffer");
    EXPECT_DEATH(WriteAt(GuardedBuffer::kAtStart, 4095, false), "written behind a buffer");
}

TEST(GuardedBuffer, NoByteOfAReadOnlyOneCanBeWritten) {
    for (const auto place : {GuardedBuffer::kAtEnd, GuardedBuffer::kAtStart}) {
        EXPECT_DEATH(WriteAt(place, 0, true), "");
    }
}

} // namespace
