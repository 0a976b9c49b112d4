// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "evaluation/statistics/comparisons.h"

namespace kova_cli {

inline constexpr uint32_t kNoGroup = ~0u;

// What some pictures or pairs have in common, so that rates are wanted for them alone.
struct Grouping {
    std::string column;             // of the table that says it; empty: nothing was asked for
    std::vector<std::string> names; // of the groups
    std::vector<uint32_t> of;       // each picture or, of a list, each pair
};

// Which pictures are to be compared, and who is on them.
struct EvalInput {
    std::vector<std::string> pictures; // paths
    std::vector<uint32_t> person;      // of each picture
    uint32_t people = 0;
    std::vector<std::string> names;                          // of the people, where they are known
    std::optional<std::vector<kova_statistics::Pair>> pairs; // without: all of them
    size_t repeatedPairs = 0;                                // left out
    Grouping grouping;
};

// One sub-folder a person. `byName`: the pictures lie in the folder itself, and a person is what
// their names have in common before the last '-' or '_'. Hidden files and those that are not named
// as pictures are left out.
EvalInput FindPeople(const std::string& folder, bool byName);

// As FindPeople() where the folder has sub-folders. Where it has the pictures themselves, each is
// taken for one of another person. A folder with both is a Failure.
EvalInput FindPeopleOrStrangers(const std::string& folder);

// As FindPeople(), by sub-folders where there are any, or else by the names of the pictures.
EvalInput FindNamedPeople(const std::string& folder);

// A list of pairs: `picture picture 1` for one person and 0 for two, or the same with commas or
// tabs, where names may be quoted. Names are relative to the list's folder; empty lines and those
// that begin with # are skipped. Nobody's name is in it, so pictures of one pair, or of a chain of
// pairs, that show one person make a person; a pair that contradicts this is a Failure. A first line
// `first second same` is one of headings, and there may be more columns then. Pairs are grouped by the
// one that is named, if one is.
EvalInput ReadPairs(const std::string& path, const std::string& groupColumn);

// What is left of the input where only some pictures have a feature.
kova_statistics::Comparisons MakeComparisons(
    const EvalInput& input, const std::vector<std::optional<kova_statistics::Feature>>& features);

} // namespace kova_cli
