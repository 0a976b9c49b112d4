// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "faces/digest.h"
#include "faces/face.h"

namespace kova_cli {

// Features by name; a name may have any number of them. On disk, all numbers lowest byte first:
//
//   8 bytes   "KFRGALRY"
//   4 + 4     version (1), floats a feature (128)
//   8         number of entries
//   32        SHA-256 of the models that made the features
//   ...       the features, 128 floats each
//   ...       for each entry the length of its name in 2 bytes, and the name
//   32        SHA-256 of everything before
//
// Features of other models mean nothing to this one, and half a file is worse than none: both are
// refused.
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

struct Match {
    size_t entry = 0;
    float distance = 0;
};

// The best entry of each of the `count` most alike names, from the most alike; of equal ones the
// earlier first.
//
// Exact: every feature is compared, with the very function that `compare` prints from, so that both
// show the same number. A million features took 0.1 s on one busy core of a server, ranking
// included; reading and checking such a file takes longer, 0.7 s. Comparing the features' 8-bit
// values would read a quarter of that, but these are not part of a feature, and the candidates
// would have to be ranked anew to show the same number.
std::vector<Match> Search(const Gallery& gallery, const Feature& feature, size_t count);

} // namespace kova_cli
