// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <optional>

namespace kova_cli {

// How many columns what is printed may have: those of the terminal, or what COLUMNS says where
// standard output is none. None: as many as are wanted.
std::optional<size_t> OutputColumns();

} // namespace kova_cli
