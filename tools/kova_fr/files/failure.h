// SPDX-License-Identifier: MIT
#pragma once

#include <stdexcept>

namespace kova_cli {

// Something that the user can be told in one line: what is wrong, then what to do about it. Ends
// the program with status 1. Wrong usage is CLI::ParseError instead, and ends it with status 2.
class Failure : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// All was done and said, and nobody was recognised: ends the program with status 3.
class NobodyRecognised {};

} // namespace kova_cli
