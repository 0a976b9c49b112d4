// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <type_traits>

namespace orvo_test {

// "kernel(argument, ...)", addresses by what nameOf(address) says of them.
template <typename NameOf, typename... Args>
std::string CallText(const NameOf& nameOf, const char* kernel, const Args&... args) {
    const auto word = [&nameOf](const auto& value) {
        if constexpr (std::is_pointer_v<std::decay_t<decltype(value)>>) {
            return nameOf(value);
        } else {
            return std::to_string(value);
        }
    };
    std::string text = std::string(kernel) + "(";
    const char* separator = "";
    ((text += separator + word(args), separator = ", "), ...);
    return text + ")";
}

} // namespace orvo_test
