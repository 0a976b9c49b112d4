// SPDX-License-Identifier: MIT
//
// bounded_faults.cpp under the names that the linker's --wrap gives the replacements.
#define memcpy_s __wrap_memcpy_s
#define memset_s __wrap_memset_s
#include "support/bounded_faults.cpp"
