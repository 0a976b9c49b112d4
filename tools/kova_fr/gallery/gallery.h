// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "files/failure.h"
#include "gallery/gallery_file.h"

namespace kova_cli {

// Changing galleries. A name is a person's, and a person may have any number of features: the best
// of them counts (search.h). Who only looks for something reads the GalleryFile, which needs no
// lock.

inline constexpr size_t kLongestName = 1000; // bytes

// What is wrong with a name, or nothing: it must be a line of UTF-8 that shows as it is.
std::string WrongWithName(const std::string& name);

// Somebody else has held the lock for longer than one wanted to wait.
class GalleryBusy : public Failure {
  public:
    using Failure::Failure;
};

// Held by those who change a gallery, so that two at a time lose nothing; by threads as well as by
// programs. Waits for its turn. It locks the folder: the file itself may be replaced by another, and
// a file beside it would stay. The Failure names the gallery.
class GalleryLock {
  public:
    explicit GalleryLock(const std::string& path);
    // Waits so long at most, and throws GalleryBusy then.
    GalleryLock(const std::string& path, std::chrono::milliseconds patience);
    ~GalleryLock();
    GalleryLock(const GalleryLock&) = delete;
    GalleryLock& operator=(const GalleryLock&) = delete;

    const std::string& path() const { return path_; }

  private:
    GalleryLock(const std::string& path, std::optional<std::chrono::milliseconds> patience);

    std::string path_;
    int folder_;
};

// Adds the features under their names; a gallery that is not there is made, readable by its owner
// alone. It takes as long as what is added, not as long as the gallery. Killed at any moment, also by
// a loss of power, it has added all or nothing, and nothing else is lost. Returns how many entries
// there are now. Refuses what is no feature, wrong names, galleries of other models and those that
// nobody may write.
uint64_t AddToGallery(const GalleryLock& lock, const Sha256& models,
                      const std::vector<Feature>& features, const std::vector<std::string>& names);

// Removes all features of a name and returns how many there were; the file is written anew, so that
// nothing of them stays in it.
uint64_t RemoveFromGallery(const GalleryLock& lock, const Sha256& models, const std::string& name);

// Refuses beforehand what could not be added to.
void CheckGalleryCanGrow(const std::string& path, const Sha256& models);

} // namespace kova_cli
