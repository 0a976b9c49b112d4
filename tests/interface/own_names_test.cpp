// SPDX-License-Identifier: MIT
//
// A program that links the static library may use the names of the device API's static state for
// its own: neither sees the other's.
#include <gtest/gtest.h>

#include <cstdint>

#include "orvo/kova_fr.h"

// By their names the library's, and of other types.
extern "C" {
char g_frApiInited[] = "inited";
double g_frMemPhyAddr = 0.5;
double g_frMemVirAddr = 0.25;
char g_frMemSize = 's';
int g_frApiMutex() { return 7; }
}

namespace {

TEST(StaticLibrary, LeavesAProgramItsOwnNames) {
    ASSERT_EQ(kova_fr_init(), KOVA_FR_OK);
    EXPECT_EQ(kova_fr_init(), KOVA_FR_ERR_EXIST);
    EXPECT_EQ(kova_fr_deinit(), KOVA_FR_OK);
    EXPECT_STREQ(g_frApiInited, "inited");
    EXPECT_EQ(g_frMemPhyAddr, 0.5);
    EXPECT_EQ(g_frMemVirAddr, 0.25);
    EXPECT_EQ(g_frMemSize, 's');
    EXPECT_EQ(g_frApiMutex(), 7);
}

} // namespace
