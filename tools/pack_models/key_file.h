// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>

namespace orvo::pack {

using Block = std::array<uint8_t, 16>;

// What protects one model.
struct ModelKeys {
    Block key;     // AES-128 key of the arrays
    Block wrapIv;  // where the CBC chain of the wrapped key starts
    Block arrayIv; // where the CBC chain of every array starts
};

struct KeyFile {
    Block whiteBoxKey;            // folded into the tables; wraps the model keys
    std::array<uint8_t, 32> seed; // of the tables' random maps
    ModelKeys align;
    ModelKeys fr;
    std::optional<ModelKeys> find; // a product that finds no faces has none
};

// Reads lines `name = hex`; `#` starts a comment. Every name must stand there exactly once; the
// three of the finding model may be missing together.
// Messages name the file, the line and the entry, never a value.
KeyFile ReadKeyFile(const std::string& path);

} // namespace orvo::pack
