// SPDX-License-Identifier: MIT
#include "output/npy.h"

#include <fstream>
#include <stdexcept>
#include <string>

#include "head/asset_files.h"

namespace facegen {

void WriteNpy(const std::filesystem::path& file, const char* type,
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

namespace {

// What stands behind `'name': ` in the header, up to one of `ends`.
std::string Entry(const std::string& header, const std::string& name, const char* ends) {
    const std::string key = "'" + name + "': ";
    const std::size_t at = header.find(key);
    if (at == std::string::npos) {
        return {};
    }
    const std::size_t begin = at + key.size();
    return header.substr(begin, header.find_first_of(ends, begin) - begin);
}

// Bytes of one value: "<f4" has 4.
std::size_t ValueSize(const std::string& type) {
    return type.size() == 3 && type[2] > '0' && type[2] <= '8'
               ? static_cast<std::size_t>(type[2] - '0')
               : 0;
}

} // namespace

NpyFile ReadNpy(const std::filesystem::path& file) {
    const std::string all = ReadText(file);
    const auto fail = [&](const char* what) {
        throw std::runtime_error(file.string() + ": " + what);
    };
    if (all.size() < 10 || all.compare(0, 8, std::string("\x93NUMPY\x01\x00", 8)) != 0) {
        fail("not an array in NumPy's first format");
    }
    const std::size_t length =
        static_cast<unsigned char>(all[8]) + 256U * static_cast<unsigned char>(all[9]);
    if (all.size() < 10 + length) {
        fail("cut off");
    }
    const std::string header = all.substr(10, length);
    NpyFile array;
    array.type = Entry(header, "descr", ",");
    array.type = array.type.size() > 2 ? array.type.substr(1, array.type.size() - 2) : "";
    if (Entry(header, "fortran_order", ",") != "False" || ValueSize(array.type) == 0) {
        fail("of an order or type that is not read here");
    }
    std::size_t values = 1;
    const std::string shape = Entry(header, "shape", ")");
    for (std::size_t i = 0; i < shape.size(); ++i) {
        if (shape[i] >= '0' && shape[i] <= '9') {
            std::size_t end = i;
            array.shape.push_back(std::stoul(shape.substr(i), &end));
            values *= array.shape.back();
            i += end - 1;
        }
    }
    if (all.size() - 10 - length != values * ValueSize(array.type)) {
        fail("of another size than its header says");
    }
    array.bytes.assign(all.begin() + static_cast<std::ptrdiff_t>(10 + length), all.end());
    return array;
}

} // namespace facegen
