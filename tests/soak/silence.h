// SPDX-License-Identifier: MIT
#pragma once

namespace orvo_soak {

// What the library writes to standard error is dropped for the life of this.
class Silence {
  public:
    Silence();
    ~Silence();
    Silence(const Silence&) = delete;
    Silence& operator=(const Silence&) = delete;

  private:
    int kept_;
};

} // namespace orvo_soak
