// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "gallery/gallery_file.h"

namespace kova_cli {

// Features by name, to be changed; a name may have any number of them. Who only looks for something
// reads the GalleryFile.
struct Gallery {
    Sha256 models = {};
    std::vector<Feature> features;
    std::vector<std::string> names; // of the feature with the same rank

    void Add(const std::string& name, const Feature& feature);
    size_t Remove(const std::string& name); // returns how many features went
};

inline constexpr size_t kLongestName = 1000; // bytes

// The Failure names the file. `models` are those of this program.
Gallery LoadGallery(const std::string& path, const Sha256& models);
std::vector<uint8_t> PackGallery(const Gallery& gallery);

// Held by those who change a gallery, so that two at a time lose nothing. It locks the folder: the
// file itself is replaced by another, and a file beside it would stay.
class GalleryLock {
  public:
    explicit GalleryLock(const std::string& path);
    ~GalleryLock();
    GalleryLock(const GalleryLock&) = delete;
    GalleryLock& operator=(const GalleryLock&) = delete;

  private:
    int folder_;
};

} // namespace kova_cli
