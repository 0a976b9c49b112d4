// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace kova_cli {

// File names as they stand in tables and messages. Lengths count characters of UTF-8.

// The paths without the folders that all of them share, and without extensions if they still differ
// then.
std::vector<std::string> ShortNames(const std::vector<std::string>& paths);

size_t LabelLength(const std::string& label);

// Keeps the end, in which names of a series differ, behind a ~ where something is left out.
std::string ShortenLabel(const std::string& label, size_t limit);

std::string PadLeft(const std::string& label, size_t length);
std::string PadRight(const std::string& label, size_t length);

// A text in lines of at most so many columns, broken at spaces: `first` stands before the first
// line, `others` before the rest.
std::string Wrapped(const std::string& text, const std::string& first = "",
                    const std::string& others = "", size_t columns = 80);

// The text with a ? in place of each control character and of each byte that is no UTF-8, so that it
// stays one line and says nothing to the terminal.
std::string OneLine(const std::string& text);

} // namespace kova_cli
