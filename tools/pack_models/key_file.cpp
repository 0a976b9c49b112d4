// SPDX-License-Identifier: MIT
#include "tools/pack_models/key_file.h"

#include <algorithm>
#include <cstddef>
#include <set>
#include <span>
#include <sstream>
#include <string_view>
#include <vector>

#include "tools/pack_models/input_file.h"
#include "tools/pack_models/pack_error.h"

namespace orvo::pack {
namespace {

constexpr size_t kMaxFileSize = 64 * 1024;

struct Entry {
    std::string_view name;
    std::span<uint8_t> bytes;
    bool ofFind = false;
};

std::vector<Entry> EntriesOf(KeyFile* keys, ModelKeys* find) {
    return {{"white_box_key", keys->whiteBoxKey},    {"seed", keys->seed},
            {"align_key", keys->align.key},          {"align_wrap_iv", keys->align.wrapIv},
            {"align_array_iv", keys->align.arrayIv}, {"fr_key", keys->fr.key},
            {"fr_wrap_iv", keys->fr.wrapIv},         {"fr_array_iv", keys->fr.arrayIv},
            {"find_key", find->key, true},           {"find_wrap_iv", find->wrapIv, true},
            {"find_array_iv", find->arrayIv, true}};
}

std::string_view Trim(std::string_view text) {
    constexpr std::string_view kBlank = " \t\r";
    const size_t first = text.find_first_not_of(kBlank);
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(kBlank) - first + 1);
}

int HexDigit(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return -1;
}

void ReadHex(std::string_view text, const Entry& entry, const std::string& where) {
    for (const char c : text) {
        if (HexDigit(c) < 0) {
            throw PackError(where + "the value of " + std::string(entry.name) +
                            " is not hexadecimal");
        }
    }
    if (text.size() != 2 * entry.bytes.size()) {
        throw PackError(where + "the value of " + std::string(entry.name) + " has " +
                        std::to_string(text.size()) + " hexadecimal digits, must have " +
                        std::to_string(2 * entry.bytes.size()));
    }
    for (size_t i = 0; i < entry.bytes.size(); ++i) {
        entry.bytes[i] =
            static_cast<uint8_t>(HexDigit(text[2 * i]) << 4 | HexDigit(text[2 * i + 1]));
    }
}

const Entry& FindEntry(const std::vector<Entry>& entries, std::string_view name,
                       const std::string& where) {
    for (const Entry& entry : entries) {
        if (entry.name == name) {
            return entry;
        }
    }
    // The name is not repeated: a garbled line may have key bytes in its place.
    throw PackError(where + "unknown name before '='");
}

} // namespace

KeyFile ReadKeyFile(const std::string& path) {
    const std::vector<uint8_t> bytes = ReadFile(path, kMaxFileSize);
    std::istringstream lines(std::string(bytes.begin(), bytes.end()));
    KeyFile keys = {};
    ModelKeys find = {};
    const std::vector<Entry> entries = EntriesOf(&keys, &find);
    std::set<std::string_view> seen;
    std::string text;
    for (int number = 1; std::getline(lines, text); ++number) {
        const std::string where = path + ": line " + std::to_string(number) + ": ";
        const std::string_view line = Trim(std::string_view(text).substr(0, text.find('#')));
        if (line.empty()) {
            continue;
        }
        const size_t equals = line.find('=');
        if (equals == std::string_view::npos) {
            throw PackError(where + "not of the form 'name = hex'");
        }
        const Entry& entry = FindEntry(entries, Trim(line.substr(0, equals)), where);
        if (!seen.insert(entry.name).second) {
            throw PackError(where + std::string(entry.name) + " is given a second time");
        }
        ReadHex(Trim(line.substr(equals + 1)), entry, where);
    }
    const bool hasFind = std::any_of(entries.begin(), entries.end(), [&](const Entry& entry) {
        return entry.ofFind && seen.contains(entry.name);
    });
    for (const Entry& entry : entries) {
        if (!seen.contains(entry.name) && (hasFind || !entry.ofFind)) {
            throw PackError(path + ": " + std::string(entry.name) + " is missing");
        }
    }
    if (hasFind) {
        keys.find = find;
    }
    return keys;
}

} // namespace orvo::pack
