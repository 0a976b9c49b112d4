// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <span>
#include <string>
#include <string_view>

#include "faces/digest.h"
#include "faces/face.h"
#include "files/input_file.h"

namespace kova_cli {

// Entries of a gallery that are read together. They are gone when the next ones are read.
struct GalleryBlock {
    size_t firstEntry;
    const float* features; // one behind another
    std::span<const std::string_view> names;
};

using TakeBlock = std::function<void(const GalleryBlock&)>;

// A gallery as it lies in its file. It is never held whole: a block of some hundred entries is read,
// checked and handed over, so that what was checked is what is used, whoever writes to the file
// meanwhile. Every Failure names the file.
class GalleryFile {
  public:
    // Looks at what stands in front of the entries. `models` are those of this program.
    GalleryFile(const std::string& path, const Sha256& models);

    uint64_t count() const { return count_; } // entries

    // Hands over all entries from the first to the last. A Failure may come after some of them:
    // nothing that came from a damaged gallery counts.
    void Read(const TakeBlock& take) const;

  private:
    std::string path_;
    InputFile file_;
    uint32_t version_;
    uint64_t count_;
};

} // namespace kova_cli
