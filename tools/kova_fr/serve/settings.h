// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace kova_cli {

// What the service is started with. Rates are requests a second, and 0 is no limit.
struct ServeSettings {
    std::string address = "127.0.0.1";
    uint16_t port = 8017; // 0: any that is free
    std::string token;    // empty: none is asked for
    std::vector<std::string> galleries;
    size_t bodyBytes = size_t{8} << 20;
    uint64_t pixels = 16'000'000;
    double rate = 200;
    double ratePerAddress = 50;
    size_t connections = 64;
    size_t connectionsPerAddress = 32;
    std::chrono::milliseconds timeout = std::chrono::seconds(10);
    size_t waiting = 16; // requests that wait for the one that works on pictures
    bool log = false;    // a line for each request on standard error
};

inline constexpr size_t kMostConnections = 512;
inline constexpr size_t kHeadBytes = 16384; // of a request, up to its body

} // namespace kova_cli
