// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "files/staged_file.h"
#include "gallery/gallery_file.h"

namespace kova_cli {

// A gallery that takes the place of another, or a new one, readable by its owner alone, entry by
// entry: a block of them is held at a time. Nothing is at its place before Finish().
class GalleryWriter {
  public:
    GalleryWriter(const std::string& path, const Sha256& models);

    void Add(const float* feature, std::string_view name);
    uint64_t Finish(); // returns the number of entries

  private:
    void WriteBlock();

    StagedFile file_;
    GalleryHead head_;
    std::vector<Feature> features_; // of the block to be written next
    std::vector<std::string> names_;
};

} // namespace kova_cli
