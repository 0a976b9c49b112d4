// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

// The white-box encryption tables, 10 rounds x 16 sub-tables x 256 words, under the key of table2.
// pack_models writes their definition. Private to the stand-in library.
extern const uint32_t g_wbEncryptTable[40960];
