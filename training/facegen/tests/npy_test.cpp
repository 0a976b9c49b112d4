// SPDX-License-Identifier: MIT
#include "output/npy.h"

#include <gtest/gtest.h>

#include <cstring>
#include <stdexcept>

#include "head/asset_files.h"

namespace facegen {
namespace {

TEST(Npy, HasAHeaderThatNumPyReadsAndThenTheBytes) {
    const auto file = std::filesystem::temp_directory_path() / "facegen_npy_test.npy";
    const float values[6] = {1, 2, 3, 4, 5, 6};
    WriteNpy(file, "<f4", {2, 3}, values, sizeof values);
    const std::string bytes = ReadText(file);
    EXPECT_EQ(bytes.substr(0, 8), std::string("\x93NUMPY\x01\x00", 8));
    const std::size_t header =
        static_cast<unsigned char>(bytes[8]) + 256U * static_cast<unsigned char>(bytes[9]);
    EXPECT_EQ((10 + header) % 64, 0U);
    EXPECT_EQ(bytes[9 + header], '\n');
    EXPECT_NE(bytes.find("'descr': '<f4', 'fortran_order': False, 'shape': (2,3,)"),
              std::string::npos);
    ASSERT_EQ(bytes.size(), 10 + header + sizeof values);
    EXPECT_EQ(std::memcmp(bytes.data() + 10 + header, values, sizeof values), 0);
    EXPECT_FALSE(std::filesystem::exists(file.string() + ".part"));
    std::filesystem::remove(file);
}

TEST(Npy, ReadsWhatItWrote) {
    const auto file = std::filesystem::temp_directory_path() / "facegen_npy_read_test.npy";
    const float values[6] = {1, 2, 3, 4, 5, 6};
    WriteNpy(file, "<f4", {2, 3}, values, sizeof values);
    const NpyFile array = ReadNpy(file);
    EXPECT_EQ(array.type, "<f4");
    EXPECT_EQ(array.shape, (std::vector<std::size_t>{2, 3}));
    ASSERT_EQ(array.bytes.size(), sizeof values);
    EXPECT_EQ(array.Data<float>()[5], 6.0f);
    std::filesystem::resize_file(file, std::filesystem::file_size(file) - 1);
    EXPECT_THROW(ReadNpy(file), std::runtime_error);
    std::filesystem::resize_file(file, 4);
    EXPECT_THROW(ReadNpy(file), std::runtime_error);
    std::filesystem::remove(file);
}

} // namespace
} // namespace facegen
