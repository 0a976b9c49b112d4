// SPDX-License-Identifier: MIT
//
// The device API's diagnostic: two writes to standard error, a prefix that names the reporting
// function and the line, then the message.
#pragma once

#include <cstdio>

#define KOVA_FR_INFO(...)                                                     \
    (std::fprintf(stderr, "[Func]:%s [Line]:%d [Info]:", __func__, __LINE__), \
     std::fprintf(stderr, __VA_ARGS__))
