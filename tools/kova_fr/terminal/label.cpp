// SPDX-License-Identifier: MIT
#include "terminal/label.h"

#include <algorithm>
#include <filesystem>
#include <set>

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
    std::string line = text;
    const auto isControl = [](unsigned char c) { return c < 0x20 || c == 0x7F; };
    std::replace_if(line.begin(), line.end(), isControl, '?');
    return line;
}

} // namespace kova_cli
