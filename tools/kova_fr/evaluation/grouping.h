// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "evaluation/eval_input.h"

namespace kova_cli {

// Groups of people, of pictures or of pairs, by what stands in a column of a table.

// Where a column stands among the headings from `first` on; none of that name is a Failure.
size_t ColumnOf(const std::string& column, const std::vector<std::string>& headings, size_t first);

// Numbers the values in the order of their letters; an empty one is no group. What is no name of a
// group, and more groups than anybody compares, is a Failure.
Grouping NumberGroups(const std::string& column, const std::vector<std::string>& values);

// Which picture belongs to which group, by a table with commas and a line of headings. Its first column
// is `person`, the name of a person, or `picture`, a place below the folder. The Failure names the table.
Grouping ReadGroups(const std::string& tablePath, const std::string& column,
                    const std::string& folder, const EvalInput& input);

// The pairs inside a group. Pictures that have none of them are left out.
kova_statistics::Comparisons ComparisonsOfGroup(
    const EvalInput& input, const std::vector<std::optional<kova_statistics::Feature>>& features,
    uint32_t group);

} // namespace kova_cli
