// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "gallery/search.h"

namespace kova_cli {

// One gallery file as the service uses it, shared with the command line: each call reads what is in
// the file now and changes it under the same lock. Any thread may call anything. What is wrong with
// the file is a Failure.
class People {
  public:
    People(std::string path, const Sha256& models, std::chrono::milliseconds patience)
        : path_(std::move(path)), models_(models), patience_(patience) {}

    struct Looked {
        uint64_t features = 0; // in the gallery
        std::vector<std::vector<Match>> matches;
    };
    Looked LookUp(const std::vector<Feature>& features, size_t top) const;

    // Returns how many features the gallery has then. It is on the disk when this returns.
    uint64_t Add(const std::string& name, const std::vector<Feature>& features) const;
    // Returns how many features went.
    uint64_t Remove(const std::string& name) const;

    std::map<std::string, size_t> Names() const; // and how many features of each
    uint64_t Features() const;

  private:
    bool IsThere() const;

    std::string path_;
    Sha256 models_;
    std::chrono::milliseconds patience_;
};

} // namespace kova_cli
