// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace orvo_test {

using Bytes = std::vector<uint8_t>;

// A model's arrays as the library must hold them once deciphered, by symbol name. Read from the
// plain model file and packed without the help of the program that packed the library.
// `network`: "align" or "fr". Empty if the file cannot be used.
std::map<std::string, Bytes> PlainArrays(const std::string& network);

} // namespace orvo_test
