// SPDX-License-Identifier: MIT
#include "picture_list.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <sstream>

#include "failure.h"
#include "input_file.h"

namespace kova_cli {
namespace {

namespace fs = std::filesystem;

constexpr uint64_t kMostListBytes = uint64_t{1} << 30;

std::vector<fs::path> SortedEntries(const fs::path& folder) {
    std::vector<fs::path> entries;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
        if (entry.path().filename().string().front() != '.') {
            entries.push_back(entry.path());
        }
    }
    std::sort(entries.begin(), entries.end());
    return entries;
}

bool HasPictureName(const fs::path& path) {
    std::string ending = path.extension().string();
    std::transform(ending.begin(), ending.end(), ending.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    static constexpr const char* kEndings[] = {".png", ".jpg", ".jpeg", ".pgm", ".ppm", ".pnm"};
    return std::find(std::begin(kEndings), std::end(kEndings), ending) != std::end(kEndings);
}

std::string Trimmed(const std::string& text) {
    const size_t begin = text.find_first_not_of(" \t\r");
    const size_t end = text.find_last_not_of(" \t\r");
    return begin == std::string::npos ? "" : text.substr(begin, end - begin + 1);
}

std::vector<std::string> Fields(const std::string& line) {
    std::vector<std::string> fields;
    std::istringstream stream(line);
    for (const char separator : {',', '\t'}) {
        if (line.find(separator) != std::string::npos) {
            for (std::string field; std::getline(stream, field, separator);) {
                fields.push_back(Trimmed(field));
            }
            return fields;
        }
    }
    for (std::string field; stream >> field;) {
        fields.push_back(field);
    }
    return fields;
}

class PairReader {
  public:
    explicit PairReader(const std::string& path) : folder_(fs::path(path).parent_path()) {}

    // False if the line is no pair.
    bool Add(const std::string& line) {
        const std::vector<std::string> fields = Fields(line);
        if (fields.size() != 3 || (fields[2] != "0" && fields[2] != "1") || fields[0].empty() ||
            fields[1].empty()) {
            return false;
        }
        const uint32_t a = Number(fields[0]);
        const uint32_t b = Number(fields[1]);
        list_.pairs.push_back({a, b, fields[2] == "1"});
        return true;
    }

    PictureList list_;

  private:
    uint32_t Number(const std::string& name) {
        const std::string path = (folder_ / name).string();
        const auto [place, isNew] =
            numbers_.try_emplace(path, static_cast<uint32_t>(list_.paths.size()));
        if (isNew) {
            list_.paths.push_back(path);
        }
        return place->second;
    }

    fs::path folder_;
    std::map<std::string, uint32_t> numbers_;
};

} // namespace

PictureList ListPeople(const std::string& folder) {
    std::error_code error;
    if (!fs::is_directory(folder, error)) {
        throw Failure(folder + ": is no folder; give one with a sub-folder for each person");
    }
    PictureList list;
    for (const fs::path& person : SortedEntries(folder)) {
        if (!fs::is_directory(person)) {
            continue;
        }
        const auto number = static_cast<uint32_t>(list.people.size());
        for (const fs::path& picture : SortedEntries(person)) {
            if (HasPictureName(picture)) {
                list.paths.push_back(picture.string());
                list.person.push_back(number);
            }
        }
        if (!list.person.empty() && list.person.back() == number) {
            list.people.push_back(person.filename().string());
        }
    }
    if (list.people.size() < 2) {
        throw Failure(folder + ": has no two sub-folders with pictures; make one for each person");
    }
    return list;
}

PictureList ReadPairs(const std::string& path) {
    PairReader reader(path);
    try {
        const std::vector<uint8_t> bytes = ReadWholeFile(path, kMostListBytes);
        std::istringstream text(std::string(bytes.begin(), bytes.end()));
        size_t number = 0;
        for (std::string line; std::getline(text, line);) {
            ++number;
            line = Trimmed(line);
            if (!line.empty() && line.front() != '#' && !reader.Add(line)) {
                throw Failure("line " + std::to_string(number) +
                              " is no pair; write two pictures and 1 or 0");
            }
        }
        const auto isSame = [](const Pair& pair) { return pair.isSame; };
        const auto& pairs = reader.list_.pairs;
        if (std::none_of(pairs.begin(), pairs.end(), isSame) ||
            std::all_of(pairs.begin(), pairs.end(), isSame)) {
            throw Failure("needs pairs of the same person and pairs of different people");
        }
    } catch (const Failure& failure) {
        throw Failure(path + ": " + failure.what());
    }
    return std::move(reader.list_);
}

} // namespace kova_cli
