// SPDX-License-Identifier: MIT
#include "gallery/gallery.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "files/failure.h"
#include "files/output_file.h"
#include "gallery/formats.h"

namespace kova_cli {

void Gallery::Add(const std::string& name, const Feature& feature) {
    features.push_back(feature);
    names.push_back(name);
}

size_t Gallery::Remove(const std::string& name) {
    size_t kept = 0;
    for (size_t i = 0; i < names.size(); ++i) {
        if (names[i] != name) {
            features[kept] = features[i];
            std::swap(names[kept], names[i]);
            ++kept;
        }
    }
    const size_t removed = names.size() - kept;
    features.resize(kept);
    names.resize(kept);
    return removed;
}

Gallery LoadGallery(const std::string& path, const Sha256& models) {
    const GalleryFile file(path, models);
    Gallery gallery;
    gallery.models = models;
    file.Read([&gallery](const GalleryBlock& block) {
        const size_t known = gallery.features.size();
        gallery.features.resize(known + block.names.size());
        std::memcpy(gallery.features.data() + known, block.features,
                    block.names.size() * sizeof(Feature));
        gallery.names.insert(gallery.names.end(), block.names.begin(), block.names.end());
    });
    return gallery;
}

std::vector<uint8_t> PackGallery(const Gallery& gallery) {
    return PackVersion2(gallery.models, gallery.features, gallery.names);
}

GalleryLock::GalleryLock(const std::string& path) {
    const std::filesystem::path folder = FolderOf(RealPlace(path));
    folder_ = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    // Where a disk knows no locks, two that enroll at once are on their own.
    if (folder_ < 0 || (flock(folder_, LOCK_EX) != 0 && errno != EOPNOTSUPP && errno != ENOLCK)) {
        const int cause = errno;
        if (folder_ >= 0) {
            close(folder_);
        }
        throw Failure(path + ": its folder cannot be used: " + std::strerror(cause) +
                      "; choose another place");
    }
}

GalleryLock::~GalleryLock() { close(folder_); }

} // namespace kova_cli
