// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "files/input_file.h"

namespace kova_cli {

// Tables with commas (RFC 4180) whose fields have no line breaks.

// A field, in quotes where it must be.
std::string CsvField(std::string_view text);

// The fields of a line, quoted or not. The Failure says what is wrong with the line.
std::vector<std::string> CsvFields(std::string_view line, char separator = ',');

// Hands over all lines of a file, numbered from 1, without their ends and without the mark of UTF-8
// that some programs begin a file with. It holds one line at a time. No Failure names the file.
void ReadLines(const InputFile& file,
               const std::function<void(const std::string& line, size_t number)>& take);

} // namespace kova_cli
