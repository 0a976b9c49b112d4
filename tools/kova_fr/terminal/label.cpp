// SPDX-License-Identifier: MIT
#include "terminal/label.h"

#include <algorithm>
#include <filesystem>
#include <set>
#include <string_view>

namespace kova_cli {
namespace {

bool IsCharacterStart(char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }

// How many leading bytes, up to the last slash among them, all paths share.
size_t SharedFolderLength(const std::vector<std::string>& paths) {
    size_t shared = paths.front().size();
    for (const std::string& path : paths) {
        const auto [difference, other] =
            std::mismatch(path.begin(), path.end(), paths.front().begin(), paths.front().end());
        shared = std::min(shared, static_cast<size_t>(difference - path.begin()));
    }
    const size_t slash = paths.front().rfind('/', shared);
    return slash == std::string::npos || slash >= shared ? 0 : slash + 1;
}

size_t CountDistinct(const std::vector<std::string>& names) {
    return std::set<std::string>(names.begin(), names.end()).size();
}

std::string Padding(const std::string& label, size_t length) {
    return std::string(length - std::min(length, LabelLength(label)), ' ');
}

struct Character {
    uint32_t code;
    size_t bytes;
};

// A byte that begins no character of UTF-8 in its shortest form counts as one that harms.
constexpr uint32_t kNoCharacter = 0;

Character FirstCharacter(std::string_view text) {
    constexpr uint32_t kLeast[] = {0, 0, 0x80, 0x800, 0x10000};
    const auto byte = [text](size_t i) { return static_cast<uint8_t>(text[i]); };
    const uint8_t first = byte(0);
    const size_t bytes = first < 0x80             ? 1
                         : (first & 0xE0) == 0xC0 ? 2
                         : (first & 0xF0) == 0xE0 ? 3
                         : (first & 0xF8) == 0xF0 ? 4
                                                  : 0;
    if (bytes == 0 || bytes > text.size()) {
        return {kNoCharacter, 1};
    }
    uint32_t code = bytes == 1 ? first : first & (0x7Fu >> bytes);
    for (size_t i = 1; i < bytes; ++i) {
        if (IsCharacterStart(text[i])) {
            return {kNoCharacter, 1};
        }
        code = code << 6 | (byte(i) & 0x3Fu);
    }
    const bool isSurrogate = code >= 0xD800 && code < 0xE000;
    const bool isShortest = code >= kLeast[bytes] && code <= 0x10FFFF && !isSurrogate;
    return isShortest ? Character{code, bytes} : Character{kNoCharacter, 1};
}

// Neither moves the cursor, nor begins a sequence that a terminal obeys, nor turns the direction of
// what follows it.
bool IsHarmless(uint32_t code) {
    const auto isIn = [code](uint32_t first, uint32_t last) {
        return code >= first && code <= last;
    };
    return !isIn(0, 0x1F) && !isIn(0x7F, 0x9F) && !isIn(0x2028, 0x202E) && !isIn(0x2066, 0x2069);
}

} // namespace

std::vector<std::string> ShortNames(const std::vector<std::string>& paths) {
    const size_t shared = SharedFolderLength(paths);
    std::vector<std::string> names(paths.size());
    std::vector<std::string> bare(paths.size());
    for (size_t i = 0; i < paths.size(); ++i) {
        names[i] = OneLine(paths[i].substr(shared));
        bare[i] = std::filesystem::path(names[i]).replace_extension().string();
    }
    return CountDistinct(bare) == CountDistinct(names) ? bare : names;
}

size_t LabelLength(const std::string& label) {
    return static_cast<size_t>(std::count_if(label.begin(), label.end(), IsCharacterStart));
}

std::string ShortenLabel(const std::string& label, size_t limit) {
    size_t surplus = LabelLength(label);
    if (surplus <= limit) {
        return label;
    }
    surplus -= limit - 1;
    size_t at = 0;
    while (at < label.size() && (surplus > 0 || !IsCharacterStart(label[at]))) {
        surplus -= IsCharacterStart(label[at]) ? 1 : 0;
        ++at;
    }
    return "~" + label.substr(at);
}

std::string PadLeft(const std::string& label, size_t length) {
    return Padding(label, length) + label;
}

std::string PadRight(const std::string& label, size_t length) {
    return label + Padding(label, length);
}

std::string Wrapped(const std::string& text, const std::string& first, const std::string& others,
                    size_t columns) {
    std::string lines;
    std::string line = first;
    bool isEmpty = true;
    for (size_t at = 0; at < text.size();) {
        const size_t end = std::min(text.find(' ', at), text.size());
        const std::string word = text.substr(at, end - at);
        if (!isEmpty && LabelLength(line) + 1 + LabelLength(word) > columns) {
            lines += line + "\n";
            line = others;
            isEmpty = true;
        }
        line += (isEmpty ? "" : " ") + word;
        isEmpty = false;
        at = end + 1;
    }
    return lines + line + "\n";
}

std::string OneLine(const std::string& text) {
    std::string line;
    for (size_t at = 0; at < text.size();) {
        const Character character = FirstCharacter(std::string_view(text).substr(at));
        line += IsHarmless(character.code) ? text.substr(at, character.bytes) : "?";
        at += character.bytes;
    }
    return line;
}

} // namespace kova_cli
