// SPDX-License-Identifier: MIT
//
// A program that links the static library and defines one of the two bounded functions: the kernels
// pad through it, as they do where both are the program's.
#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "orvo/bounded_memory.h"
#include "orvo/q7_kernels.h"

namespace {
int g_fills = 0;
}

extern "C" int memset_s(void* dst, size_t dstSize, int value, size_t count) {
    ++g_fills;
    if (count > dstSize) {
        return ERANGE;
    }
    std::memset(dst, value, count);
    return 0;
}

namespace {

TEST(StaticLibrary, PadsThroughAProgramsOwnMemset) {
    const std::array<int8_t, 4> src = {1, 2, 3, 4};
    const std::array<int8_t, 9> sumOfNine = {1, 1, 1, 1, 1, 1, 1, 1, 1};
    const int32_t bias = 0;
    std::array<int8_t, 4> dst{};
    std::array<int8_t, 16> scratch{};
    arma_convolvedw_3x3_s1_chw_q7(src.data(), 2, 2, 1, sumOfNine.data(), 1, 3, 1, 1, &bias, 0,
                                  dst.data(), 2, 2, scratch.data());
    EXPECT_GT(g_fills, 0);
    EXPECT_EQ(dst, (std::array<int8_t, 4>{10, 10, 10, 10}));
    EXPECT_EQ(scratch, (std::array<int8_t, 16>{0, 0, 0, 0, 0, 1, 2, 0, 0, 3, 4}));
}

} // namespace
