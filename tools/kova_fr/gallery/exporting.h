// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "gallery/gallery_file.h"

namespace kova_cli {

// Galleries as other programs read them, in files for their owner alone. Returns the number of
// entries. The Failure names the file.

// One table: a line of headings (name, f0 to f127), then a line an entry. Numbers have as many
// digits as give the same floats again; names stand in quotes where they must (RFC 4180).
uint64_t ExportCsv(const GalleryFile& gallery, const std::string& path);

// The features as NumPy stores an array of floats, a row an entry, and the names of the rows as a
// table with the heading "name". A file of that name must not be there.
uint64_t ExportNpy(const GalleryFile& gallery, const std::string& path,
                   const std::string& namesPath);

// Where the names of such an array go: people.npy, people.names.csv.
std::string NamesPath(const std::string& npyPath);

} // namespace kova_cli
