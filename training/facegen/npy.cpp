// SPDX-License-Identifier: MIT
#include "npy.h"

#include <fstream>
#include <stdexcept>
#include <string>

namespace facegen {

void write_npy(const std::filesystem::path& file, const char* type,
               const std::vector<std::size_t>& shape, const void* data, std::size_t bytes) {
    std::string header =
        std::string("{'descr': '") + type + "', 'fortran_order': False, 'shape': (";
    for (const std::size_t side : shape) {
        header += std::to_string(side) + ",";
    }
    header += "), }";
    // Magic, version and length take 10 bytes; all together is a multiple of 64 that ends a line.
    header.append(63 - (10 + header.size()) % 64, ' ');
    header += '\n';
    const std::filesystem::path temporary = file.string() + ".part";
    std::ofstream out(temporary, std::ios::binary);
    out.write("\x93NUMPY\x01\x00", 8);
    out.put(static_cast<char>(header.size() & 0xff));
    out.put(static_cast<char>(header.size() >> 8));
    out << header;
    out.write(static_cast<const char*>(data), static_cast<std::streamsize>(bytes));
    out.close();
    if (!out) {
        throw std::runtime_error(temporary.string() + ": cannot be written");
    }
    std::filesystem::rename(temporary, file);
}

} // namespace facegen
