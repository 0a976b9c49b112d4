// SPDX-License-Identifier: MIT
#pragma once

#include <stdexcept>
#include <string>

namespace kova_cli {

// Something that the user can be told in one line: what is wrong, then what to do about it. Ends
// the program with status 1. Wrong usage is CLI::ParseError instead, and ends it with status 2.
class Failure : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// All was done and said, and nobody was recognised: ends the program with status 3.
class NobodyRecognised {};

// Names the file in the Failures of a step that does not know its name.
template <typename Step>
auto Naming(const std::string& path, const Step& step) {
    try {
        return step();
    } catch (const Failure& failure) {
        throw Failure(path + ": " + failure.what());
    }
}

} // namespace kova_cli
