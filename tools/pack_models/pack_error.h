// SPDX-License-Identifier: MIT
#pragma once

#include <stdexcept>
#include <string>

namespace orvo::pack {

// An input or output that cannot be used; the text is the one line that the user sees.
class PackError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

} // namespace orvo::pack
