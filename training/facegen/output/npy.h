// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

namespace facegen {

// Writes an array in NumPy's format: first under a temporary name, renamed when it is complete, so
// that whoever reads the folder meanwhile sees whole files only. `type` is NumPy's, such as "|u1".
void WriteNpy(const std::filesystem::path& file, const char* type,
              const std::vector<std::size_t>& shape, const void* data, std::size_t bytes);

// An array in C order as it lies in its file.
struct NpyFile {
    std::string type;
    std::vector<std::size_t> shape;
    std::vector<char> bytes;

    template <typename Value>
    const Value* Data() const {
        return reinterpret_cast<const Value*>(bytes.data());
    }
};

NpyFile ReadNpy(const std::filesystem::path& file);

} // namespace facegen
