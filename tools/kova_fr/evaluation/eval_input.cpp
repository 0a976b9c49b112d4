// SPDX-License-Identifier: MIT
#include "evaluation/eval_input.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <map>
#include <numeric>
#include <set>
#include <sstream>

#include "evaluation/grouping.h"
#include "files/csv.h"
#include "files/failure.h"
#include "terminal/label.h"

namespace kova_cli {
namespace {

namespace fs = std::filesystem;
using kova_statistics::Pair;

constexpr uint64_t kLongestList = uint64_t{256} << 20;

bool IsHidden(const fs::path& path) { return path.filename().string().starts_with('.'); }

// What is in a folder, by name.
std::vector<fs::path> Entries(const fs::path& folder, bool (*isWanted)(const fs::path&)) {
    std::error_code error;
    std::vector<fs::path> entries;
    for (fs::directory_iterator at(folder, error), end; !error && at != end; at.increment(error)) {
        if (!IsHidden(at->path()) && isWanted(at->path())) {
            entries.push_back(at->path());
        }
    }
    if (error) {
        throw Failure(folder.string() + ": cannot be read: " + error.message() +
                      "; name a folder with one sub-folder a person");
    }
    std::sort(entries.begin(), entries.end());
    return entries;
}

// Where the system cannot say, a whole person would be passed over.
bool IsFolder(const fs::path& path) {
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    if (status.type() == fs::file_type::none) {
        throw Failure(path.string() + ": cannot be read: " + error.message() +
                      "; name a folder with one sub-folder a person");
    }
    return fs::is_directory(status);
}

// Notes and lists may lie among the pictures.
bool HasPictureName(const fs::path& path) {
    std::string ending = path.extension().string();
    std::transform(ending.begin(), ending.end(), ending.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    static constexpr const char* kEndings[] = {".png",  ".jpg",  ".jpeg", ".pgm", ".ppm",
                                               ".pnm",  ".bmp",  ".webp", ".gif", ".tif",
                                               ".tiff", ".heic", ".heif", ".avif"};
    return !IsFolder(path) &&
           std::find(std::begin(kEndings), std::end(kEndings), ending) != std::end(kEndings);
}

std::string NameBeforeNumber(const fs::path& path) {
    const std::string stem = path.stem().string();
    const size_t mark = stem.find_last_of("-_");
    return mark == std::string::npos || mark == 0 ? stem : stem.substr(0, mark);
}

// Groups of pictures that show one person, as far as they are known to.
class Groups {
  public:
    explicit Groups(size_t pictures) : parent_(pictures) {
        std::iota(parent_.begin(), parent_.end(), 0u);
    }
    uint32_t Of(uint32_t picture) {
        while (parent_[picture] != picture) {
            parent_[picture] = parent_[parent_[picture]];
            picture = parent_[picture];
        }
        return picture;
    }
    void Join(uint32_t a, uint32_t b) { parent_[Of(a)] = Of(b); }

  private:
    std::vector<uint32_t> parent_;
};

[[noreturn]] void FailLine(size_t line, const std::string& what) {
    throw Failure("line " + std::to_string(line) + " " + what);
}

// Commas win over tabs, and these over spaces, which names may have then.
std::vector<std::string> Fields(const std::string& text, size_t line) {
    for (const char separator : {',', '\t'}) {
        if (text.find(separator) != std::string::npos) {
            try {
                return CsvFields(text, separator);
            } catch (const Failure& failure) {
                FailLine(line, failure.what());
            }
        }
    }
    std::istringstream words(text);
    std::vector<std::string> fields;
    for (std::string word; words >> word;) {
        fields.push_back(word);
    }
    return fields;
}

class PairList {
  public:
    PairList(const fs::path& folder, const std::string& groupColumn)
        : folder_(folder), groupColumn_(groupColumn) {}

    void AddLine(const std::string& text, size_t line) {
        if (text.starts_with('#')) {
            return;
        }
        const std::vector<std::string> fields = Fields(text, line);
        if (fields.empty() || TakeHeadings(fields)) {
            return;
        }
        if (headings_ > 0 && fields.size() != headings_) {
            FailLine(line, "has " + std::to_string(fields.size()) + " fields in place of " +
                               std::to_string(headings_));
        }
        if (fields.size() < 3 || (headings_ == 0 && fields.size() > 3) || fields[0].empty() ||
            fields[1].empty() || (fields[2] != "0" && fields[2] != "1")) {
            FailLine(line, "is no pair; write: picture picture 1 (one person) or 0 (two people)");
        }
        if (OneLine(fields[groupAt_]) != fields[groupAt_]) {
            FailLine(line, "has control characters");
        }
        if (AddPair(Number(fields[0]), Number(fields[1]), fields[2] == "1", line)) {
            groups_.push_back(fields[groupAt_]);
        }
    }

    EvalInput Finish() {
        if (input_.pairs->empty()) {
            throw Failure("has no pairs; write: picture picture 1 (one person) or 0 (two people)");
        }
        Groups groups(input_.pictures.size());
        for (size_t i = 0; i < isSame_.size(); ++i) {
            if (isSame_[i]) {
                groups.Join((*input_.pairs)[i].first, (*input_.pairs)[i].second);
            }
        }
        for (size_t i = 0; i < isSame_.size(); ++i) {
            const Pair& pair = (*input_.pairs)[i];
            if (!isSame_[i] && groups.Of(pair.first) == groups.Of(pair.second)) {
                FailLine(line_[i], "says two people where other lines say one");
            }
        }
        NumberPeople(groups);
        if (!groupColumn_.empty()) {
            input_.grouping = NumberGroups(groupColumn_, groups_);
        }
        return std::move(input_);
    }

  private:
    // What stands first may be headings.
    bool TakeHeadings(const std::vector<std::string>& fields) {
        const bool isFirst = !hasBegun_;
        hasBegun_ = true;
        if (isFirst && fields.size() >= 3 && fields[2] == "same") {
            headings_ = fields.size();
            groupAt_ = groupColumn_.empty() ? 0 : ColumnOf(groupColumn_, fields, 3);
            return true;
        }
        if (isFirst && !groupColumn_.empty()) {
            throw Failure("has no line of headings; begin it with first,second,same," +
                          groupColumn_);
        }
        return false;
    }

    uint32_t Number(const std::string& name) {
        const auto next = static_cast<uint32_t>(input_.pictures.size());
        const std::string path = (folder_ / name).string();
        const auto [place, isNew] = numbers_.emplace(path, next);
        if (isNew) {
            input_.pictures.push_back(path);
        }
        return place->second;
    }

    // False where an earlier line has it.
    bool AddPair(uint32_t first, uint32_t second, bool isSame, size_t line) {
        if (first == second) {
            FailLine(line, "compares a picture with itself");
        }
        const auto [place, isNew] = known_.emplace(std::minmax(first, second), isSame);
        if (!isNew && place->second != isSame) {
            FailLine(line, "says otherwise than an earlier line about the same pictures");
        }
        if (!isNew) {
            ++input_.repeatedPairs;
            return false;
        }
        input_.pairs->push_back({first, second});
        isSame_.push_back(isSame);
        line_.push_back(line);
        return true;
    }

    void NumberPeople(Groups& groups) {
        std::map<uint32_t, uint32_t> people;
        for (uint32_t picture = 0; picture < input_.pictures.size(); ++picture) {
            const auto next = static_cast<uint32_t>(people.size());
            input_.person.push_back(people.emplace(groups.Of(picture), next).first->second);
        }
        input_.people = static_cast<uint32_t>(people.size());
    }

    fs::path folder_;
    std::string groupColumn_;
    bool hasBegun_ = false;
    size_t headings_ = 0; // none: three columns
    size_t groupAt_ = 0;  // of the groups' column; without, names of pictures do no harm
    std::vector<std::string> groups_; // of each pair
    EvalInput input_{{}, {}, 0, {}, std::vector<Pair>(), 0, {}};
    std::vector<bool> isSame_; // of each pair
    std::vector<size_t> line_;
    std::map<std::string, uint32_t> numbers_;
    std::map<std::pair<uint32_t, uint32_t>, bool> known_;
};

// Not both pictures and sub-folders of them.
bool HasPicturesItself(const std::string& folder) {
    if (Entries(folder, HasPictureName).empty()) {
        return false;
    }
    for (const fs::path& person : Entries(folder, IsFolder)) {
        if (!Entries(person, HasPictureName).empty()) {
            throw Failure(folder +
                          ": has pictures and sub-folders with pictures; give either one " +
                          "sub-folder for each person, or one picture for each");
        }
    }
    return true;
}

} // namespace

EvalInput FindPeople(const std::string& folder, bool byName) {
    EvalInput input;
    std::map<std::string, uint32_t> numbers;
    const auto add = [&](const std::string& name, const fs::path& picture) {
        const auto next = static_cast<uint32_t>(numbers.size());
        const auto [place, isNew] = numbers.emplace(name, next);
        if (isNew) {
            input.names.push_back(name);
        }
        input.person.push_back(place->second);
        input.pictures.push_back(picture.string());
    };
    if (byName) {
        for (const fs::path& picture : Entries(folder, HasPictureName)) {
            add(NameBeforeNumber(picture), picture);
        }
    } else {
        for (const fs::path& person : Entries(folder, IsFolder)) {
            for (const fs::path& picture : Entries(person, HasPictureName)) {
                add(person.filename().string(), picture);
            }
        }
    }
    if (input.pictures.empty()) {
        throw Failure(folder + (byName ? ": has no pictures"
                                       : ": has no sub-folders with pictures; make one for each "
                                         "person, or see --by-name"));
    }
    input.people = static_cast<uint32_t>(numbers.size());
    return input;
}

EvalInput FindPeopleOrStrangers(const std::string& folder) {
    if (!HasPicturesItself(folder)) {
        return FindPeople(folder, false);
    }
    EvalInput input;
    for (const fs::path& picture : Entries(folder, HasPictureName)) {
        input.pictures.push_back(picture.string());
        input.person.push_back(input.people++);
    }
    return input;
}

EvalInput FindNamedPeople(const std::string& folder) {
    return FindPeople(folder, HasPicturesItself(folder));
}

EvalInput ReadPairs(const std::string& path, const std::string& groupColumn) {
    return Naming(path, [&] {
        const InputFile file(path, kLongestList);
        PairList list(fs::path(path).parent_path(), groupColumn);
        ReadLines(file, [&](const std::string& text, size_t line) { list.AddLine(text, line); });
        return list.Finish();
    });
}

kova_statistics::Comparisons MakeComparisons(
    const EvalInput& input, const std::vector<std::optional<kova_statistics::Feature>>& features) {
    kova_statistics::Comparisons comparisons;
    std::vector<uint32_t> place(features.size());
    std::map<uint32_t, uint32_t> people;
    for (size_t picture = 0; picture < features.size(); ++picture) {
        if (features[picture]) {
            place[picture] = static_cast<uint32_t>(comparisons.features.size());
            comparisons.features.push_back(*features[picture]);
            const auto next = static_cast<uint32_t>(people.size());
            comparisons.person.push_back(people.emplace(input.person[picture], next).first->second);
        }
    }
    comparisons.people = static_cast<uint32_t>(people.size());
    if (input.pairs) {
        comparisons.pairs.emplace();
        for (const Pair& pair : *input.pairs) {
            if (features[pair.first] && features[pair.second]) {
                comparisons.pairs->push_back({place[pair.first], place[pair.second]});
            }
        }
    }
    return comparisons;
}

} // namespace kova_cli
