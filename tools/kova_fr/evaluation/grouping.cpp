// SPDX-License-Identifier: MIT
#include "evaluation/grouping.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <set>

#include "files/csv.h"
#include "files/failure.h"
#include "terminal/label.h"

namespace kova_cli {
namespace {

namespace fs = std::filesystem;

constexpr uint64_t kLongestTable = uint64_t{256} << 20;
constexpr size_t kMostGroups = 64;

[[noreturn]] void FailLine(size_t line, const std::string& what) {
    throw Failure("line " + std::to_string(line) + " " + what);
}

// What a table says of people or of pictures.
struct Table {
    bool isOfPictures = false;
    std::map<std::string, std::string> groups;
};

class TableReader {
  public:
    explicit TableReader(const std::string& column) : column_(column) {}

    void AddLine(const std::string& text, size_t line) {
        std::vector<std::string> fields;
        try {
            fields = CsvFields(text);
        } catch (const Failure& failure) {
            FailLine(line, failure.what());
        }
        if (fields_ == 0) {
            ReadHeadings(fields);
            return;
        }
        if (text.empty()) {
            return;
        }
        if (fields.size() != fields_) {
            FailLine(line, "has " + std::to_string(fields.size()) +
                               (fields.size() == 1 ? " field" : " fields") + " in place of " +
                               std::to_string(fields_));
        }
        if (OneLine(fields[at_]) != fields[at_]) {
            FailLine(line, "has control characters");
        }
        const auto [place, isNew] = table_.groups.emplace(fields[0], fields[at_]);
        if (!isNew && place->second != fields[at_]) {
            FailLine(line, "says otherwise of " + OneLine(fields[0]) + " than an earlier line");
        }
    }

    Table Finish() {
        if (fields_ == 0) {
            FailWithoutHeadings();
        }
        return std::move(table_);
    }

  private:
    [[noreturn]] static void FailWithoutHeadings() {
        throw Failure("has no line of headings; begin it with person or picture");
    }

    void ReadHeadings(const std::vector<std::string>& headings) {
        table_.isOfPictures = headings[0] == "picture";
        if (!table_.isOfPictures && headings[0] != "person") {
            FailWithoutHeadings();
        }
        at_ = ColumnOf(column_, headings, 1);
        fields_ = headings.size();
    }

    std::string column_;
    size_t fields_ = 0; // in a line; 0: the headings have not been read
    size_t at_ = 0;
    Table table_;
};

std::string KeyOf(const Table& table, const std::string& folder, const EvalInput& input,
                  size_t picture) {
    return table.isOfPictures
               ? fs::path(input.pictures[picture]).lexically_relative(folder).generic_string()
               : input.names[input.person[picture]];
}

} // namespace

size_t ColumnOf(const std::string& column, const std::vector<std::string>& headings, size_t first) {
    std::string others;
    for (size_t i = first; i < headings.size(); ++i) {
        if (headings[i] == column) {
            return i;
        }
        others += (others.empty() ? "" : ", ") + OneLine(headings[i]);
    }
    throw Failure("has no column " + column + "; it has" +
                  (others.empty() ? " no others" : ": " + others));
}

Grouping NumberGroups(const std::string& column, const std::vector<std::string>& values) {
    std::set<std::string> names(values.begin(), values.end());
    names.erase("");
    if (names.empty()) {
        throw Failure("says nothing in the column " + column);
    }
    if (names.size() > kMostGroups) {
        throw Failure("the column " + column + " has more than " + std::to_string(kMostGroups) +
                      " groups; name one with fewer different values");
    }
    Grouping grouping{column, {names.begin(), names.end()}, {}};
    for (const std::string& value : values) {
        const auto place = std::lower_bound(grouping.names.begin(), grouping.names.end(), value);
        grouping.of.push_back(
            value.empty() ? kNoGroup : static_cast<uint32_t>(place - grouping.names.begin()));
    }
    return grouping;
}

Grouping ReadGroups(const std::string& tablePath, const std::string& column,
                    const std::string& folder, const EvalInput& input) {
    return Naming(tablePath, [&] {
        const InputFile file(tablePath, kLongestTable);
        TableReader reader(column);
        ReadLines(file, [&](const std::string& text, size_t line) { reader.AddLine(text, line); });
        const Table table = reader.Finish();
        std::vector<std::string> values;
        bool isAnyNamed = false;
        for (size_t picture = 0; picture < input.pictures.size(); ++picture) {
            const auto found = table.groups.find(KeyOf(table, folder, input, picture));
            isAnyNamed = isAnyNamed || found != table.groups.end();
            values.push_back(found != table.groups.end() ? found->second : "");
        }
        if (!isAnyNamed) {
            throw Failure(table.isOfPictures
                              ? "names none of the pictures; write their places below the folder"
                              : "names nobody of the people; write the names of their sub-folders");
        }
        return NumberGroups(column, values);
    });
}

kova_statistics::Comparisons ComparisonsOfGroup(
    const EvalInput& input, const std::vector<std::optional<kova_statistics::Feature>>& features,
    uint32_t group) {
    const std::vector<uint32_t>& groups = input.grouping.of;
    std::vector<std::optional<kova_statistics::Feature>> inside(features.size());
    EvalInput part;
    part.person = input.person;
    if (input.pairs) {
        part.pairs.emplace();
    }
    for (size_t i = 0; i < groups.size(); ++i) {
        if (groups[i] != group) {
            continue;
        }
        if (!input.pairs) {
            inside[i] = features[i];
            continue;
        }
        const kova_statistics::Pair& pair = (*input.pairs)[i];
        if (features[pair.first] && features[pair.second]) {
            part.pairs->push_back(pair);
            inside[pair.first] = features[pair.first];
            inside[pair.second] = features[pair.second];
        }
    }
    return MakeComparisons(part, inside);
}

} // namespace kova_cli
