// SPDX-License-Identifier: MIT
#include "serve/base64.h"

#include <cstdint>

namespace kova_cli {
namespace {

// -1 for what is none of the 64.
int ValueOf(char c) {
    if (c >= 'A' && c <= 'Z') {
        return c - 'A';
    }
    if (c >= 'a' && c <= 'z') {
        return c - 'a' + 26;
    }
    if (c >= '0' && c <= '9') {
        return c - '0' + 52;
    }
    return c == '+' ? 62 : c == '/' ? 63 : -1;
}

} // namespace

std::optional<std::string> DecodeBase64(std::string_view text) {
    if (text.size() % 4 == 0) {
        for (int i = 0; i < 2 && text.ends_with('='); ++i) {
            text.remove_suffix(1);
        }
    }
    if (text.size() % 4 == 1) {
        return std::nullopt;
    }
    std::string bytes;
    bytes.reserve(text.size() / 4 * 3 + 2);
    uint32_t bits = 0;
    int count = 0;
    for (const char c : text) {
        const int value = ValueOf(c);
        if (value < 0) {
            return std::nullopt;
        }
        bits = bits << 6 | static_cast<uint32_t>(value);
        count += 6;
        if (count >= 8) {
            count -= 8;
            bytes += static_cast<char>(bits >> count);
        }
    }
    // Bits that no byte takes are 0.
    return (bits & ((1u << count) - 1)) == 0 ? std::optional(std::move(bytes)) : std::nullopt;
}

} // namespace kova_cli
