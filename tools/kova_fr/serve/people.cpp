// SPDX-License-Identifier: MIT
#include "serve/people.h"

#include <filesystem>

#include "gallery/gallery.h"

namespace kova_cli {

bool People::IsThere() const {
    std::error_code error;
    return std::filesystem::exists(path_, error) || error;
}

People::Looked People::LookUp(const std::vector<Feature>& features, size_t top) const {
    if (!IsThere()) {
        return {0, std::vector<std::vector<Match>>(features.size())};
    }
    const GalleryFile gallery(path_, models_);
    return {gallery.count(), Search(gallery, features, top)};
}

uint64_t People::Add(const std::string& name, const std::vector<Feature>& features) const {
    const GalleryLock lock(path_, patience_);
    return AddToGallery(lock, models_, features, std::vector(features.size(), name));
}

uint64_t People::Remove(const std::string& name) const {
    const GalleryLock lock(path_, patience_);
    return IsThere() ? RemoveFromGallery(lock, models_, name) : 0;
}

std::map<std::string, size_t> People::Names() const {
    std::map<std::string, size_t> names;
    if (IsThere()) {
        GalleryFile(path_, models_).Read([&names](const GalleryBlock& block) {
            for (const std::string_view name : block.names) {
                ++names[std::string(name)];
            }
        });
    }
    return names;
}

uint64_t People::Features() const { return IsThere() ? GalleryFile(path_, models_).count() : 0; }

} // namespace kova_cli
