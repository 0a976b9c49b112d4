// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "evaluation.h"

namespace kova_cli {

// The pictures of an evaluation, before they are looked at.
struct PictureList {
    std::vector<std::string> paths;
    std::vector<std::string> people; // names; empty for a list of pairs
    std::vector<uint32_t> person;    // of each picture
    std::vector<Pair> pairs;         // of a list, by numbers of pictures
};

// One sub-folder a person; names that begin with a dot are passed over, and so are files whose name
// does not end like a picture's.
PictureList ListPeople(const std::string& folder);

// One pair a line: two pictures, then 1 or 0 for the same person or not, apart by white space, or
// by commas or tabs where names hold spaces. Names are relative to the list; empty lines and lines
// that begin with # are passed over.
PictureList ReadPairs(const std::string& path);

} // namespace kova_cli
