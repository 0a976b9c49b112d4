// SPDX-License-Identifier: MIT
#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace kova_cli {

// The program's manual page in the language of man(7), made from what the commands say of
// themselves, so that nothing in it can be out of date.
std::string ManualPage(const CLI::App& program);

} // namespace kova_cli
