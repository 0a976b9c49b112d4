// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <span>
#include <string>
#include <string_view>

#include "faces/digest.h"
#include "faces/face.h"
#include "files/input_file.h"
#include "gallery/checksum.h"

namespace kova_cli {

// Entries of a gallery that are read together. They are gone when the next ones are read.
struct GalleryBlock {
    size_t firstEntry;
    const float* features; // one behind another
    std::span<const std::string_view> names;
};

using TakeBlock = std::function<void(const GalleryBlock&)>;

// What a gallery says of itself in front of its entries.
struct GalleryHead {
    uint32_t version;
    uint64_t count; // entries
    Sha256 models;  // that made them
    // Of version 2 alone:
    uint64_t end;       // of the last block
    Checksum begin;     // from which that of the first block begins
    Checksum lastBlock; // begin if there is none
};

// A gallery as it lies in its file. It is never held whole: a block of some hundred entries is read,
// checked and handed over, so that what was checked is what is used, whoever writes to the file
// meanwhile. What others add after it was opened is not seen. Every Failure names the file.
class GalleryFile {
  public:
    // Looks at what stands in front of the entries.
    explicit GalleryFile(const std::string& path);
    // Refuses features of other models: they mean nothing to these.
    GalleryFile(const std::string& path, const Sha256& models);

    uint64_t count() const { return head_.count; }
    const Sha256& models() const { return head_.models; }
    const GalleryHead& head() const { return head_; }

    // Hands over all entries from the first to the last. A Failure may come after some of them:
    // nothing that came from a damaged gallery counts.
    void Read(const TakeBlock& take) const;

  private:
    std::string path_;
    InputFile file_;
    GalleryHead head_;
};

} // namespace kova_cli
