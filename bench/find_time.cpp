// SPDX-License-Identifier: MIT
//
// The faces in a picture of 320 x 240, run for counting instructions under an emulator:
//
//   find_time --count N [run|upright]    looks for faces N times, or turns one upright N times
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>

#include "bench/find_input.h"

int main(int argc, char** argv) {
    const char* const what = argc == 4 ? argv[3] : "run";
    char* end = nullptr;
    const long count = argc >= 3 ? std::strtol(argv[2], &end, 10) : -1;
    if (argc < 3 || argc > 4 || std::strcmp(argv[1], "--count") != 0 || end == argv[2] ||
        *end != '\0' || count < 0 ||
        (std::strcmp(what, "run") != 0 && std::strcmp(what, "upright") != 0)) {
        std::fputs("usage: find_time --count N [run|upright]\n", stderr);
        return 2;
    }
    try {
        orvo_bench::Finder finder;
        for (long i = 0; i < count; ++i) {
            *what == 'r' ? finder.run() : finder.upright();
        }
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "find_time: %s\n", error.what());
        return 1;
    }
}
