// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace kova_cli {

// One line on standard error; a bar that is shown there makes room for it.
void Warn(const std::string& text);

} // namespace kova_cli
