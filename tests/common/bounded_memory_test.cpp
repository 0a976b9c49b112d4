// SPDX-License-Identifier: MIT
#include "orvo/bounded_memory.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <string>

#include "support/guarded_buffer.h"

namespace {

using orvo_test::GuardedBuffer;

std::string Text(GuardedBuffer& buffer) { return std::string(buffer.as<char>(), buffer.size()); }

TEST(BoundedCopy, CopiesExactlyTheCount) {
    char dst[] = "abcdef";
    EXPECT_EQ(memcpy_s(dst, 6, "UVWXYZ", 4), 0);
    EXPECT_STREQ(dst, "UVWXef");
}

TEST(BoundedCopy, MayFillTheDestinationCompletely) {
    GuardedBuffer dst(6);
    GuardedBuffer src(6);
    EXPECT_EQ(memset_s(src.bytes(), 6, 'x', 6), 0);
    src.MakeReadOnly();
    EXPECT_EQ(memcpy_s(dst.bytes(), 6, src.bytes(), 6), 0);
    EXPECT_EQ(Text(dst), "xxxxxx");
}

TEST(BoundedCopy, CountBeyondTheDestinationIsRefusedAndNothingWritten) {
    GuardedBuffer dst(3);
    GuardedBuffer src(4);
    const std::string before = Text(dst);
    EXPECT_EQ(memcpy_s(dst.bytes(), 3, src.bytes(), 4), ERANGE);
    EXPECT_EQ(memcpy_s(dst.bytes(), 0, src.bytes(), 1), ERANGE);
    EXPECT_EQ(memcpy_s(dst.bytes(), 3, src.bytes(), SIZE_MAX), ERANGE);
    EXPECT_EQ(Text(dst), before);
}

TEST(BoundedCopy, NullAddressesAreRefused) {
    char dst[] = "abc";
    EXPECT_EQ(memcpy_s(nullptr, 3, "x", 1), EINVAL);
    EXPECT_EQ(memcpy_s(dst, 3, nullptr, 1), EINVAL);
    EXPECT_EQ(memcpy_s(nullptr, 0, nullptr, 0), EINVAL);
    EXPECT_EQ(memcpy_s(dst, 3, nullptr, 0), EINVAL);
    EXPECT_EQ(memcpy_s(nullptr, 3, "x", 0), EINVAL);
    // The address is looked at before the sizes.
    EXPECT_EQ(memcpy_s(dst, 0, nullptr, 1), EINVAL);
    EXPECT_STREQ(dst, "abc");
}

TEST(BoundedCopy, CountZeroSucceedsAndWritesNothing) {
    GuardedBuffer nothing(0);
    char dst[] = "abc";
    EXPECT_EQ(memcpy_s(dst, 3, nothing.bytes(), 0), 0);
    EXPECT_EQ(memcpy_s(dst, 0, nothing.bytes(), 0), 0);
    EXPECT_STREQ(dst, "abc");
}

TEST(BoundedFill, FillsExactlyTheCount) {
    char dst[] = "abcdef";
    EXPECT_EQ(memset_s(dst, 6, 'x', 4), 0);
    EXPECT_STREQ(dst, "xxxxef");
}

TEST(BoundedFill, TakesTheLowByteOfTheValue) {
    uint8_t dst[2] = {1, 1};
    EXPECT_EQ(memset_s(dst, 2, -128, 1), 0);
    EXPECT_EQ(dst[0], 0x80);
    EXPECT_EQ(memset_s(dst, 2, 0x1234, 1), 0);
    EXPECT_EQ(dst[0], 0x34);
    EXPECT_EQ(dst[1], 1);
}

TEST(BoundedFill, CountBeyondTheDestinationIsRefusedAndNothingWritten) {
    GuardedBuffer dst(3);
    const std::string before = Text(dst);
    EXPECT_EQ(memset_s(dst.bytes(), 3, 0, 4), ERANGE);
    EXPECT_EQ(memset_s(dst.bytes(), 0, 0, 1), ERANGE);
    EXPECT_EQ(memset_s(dst.bytes(), 3, 0, SIZE_MAX), ERANGE);
    EXPECT_EQ(Text(dst), before);
}

TEST(BoundedFill, NullAddressIsRefused) {
    EXPECT_EQ(memset_s(nullptr, 3, 0, 1), EINVAL);
    EXPECT_EQ(memset_s(nullptr, 0, 0, 0), EINVAL);
    EXPECT_EQ(memset_s(nullptr, 0, 0, 1), EINVAL);
}

TEST(BoundedFill, CountZeroSucceedsAndWritesNothing) {
    GuardedBuffer nothing(0);
    EXPECT_EQ(memset_s(nothing.bytes(), 0, 0, 0), 0);
    EXPECT_EQ(memset_s(nothing.bytes(), 5, 0, 0), 0);
}

} // namespace
