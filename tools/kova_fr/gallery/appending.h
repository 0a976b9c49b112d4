// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "gallery/gallery_file.h"

namespace kova_cli {

// Adds blocks to a file of version 2 where it lies. False where the file is better written anew: it
// has a second name, which stands for a copy, or it would have far more blocks than its entries
// need. The Failure names the file.
bool AppendInPlace(const std::string& path, const GalleryHead& head,
                   std::span<const Feature> features, std::span<const std::string> names);

} // namespace kova_cli
