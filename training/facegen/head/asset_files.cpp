// SPDX-License-Identifier: MIT
#include "head/asset_files.h"

#include <zlib.h>

#include <algorithm>
#include <charconv>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace facegen {
namespace {

[[noreturn]] void Fail(const std::string& name, int line, const std::string& what) {
    throw std::runtime_error(name + ":" + std::to_string(line) + ": " + what);
}

// Calls visit(words, line number) for each line that is neither empty nor a comment.
template <typename Visit>
void ForEachLine(std::string_view text, Visit visit) {
    std::vector<std::string_view> words;
    int number = 0;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        std::string_view line = text.substr(0, end);
        text.remove_prefix(std::min(end + 1, text.size()));
        ++number;
        words.clear();
        while (!line.empty()) {
            const std::size_t start = line.find_first_not_of(" \t\r");
            if (start == std::string_view::npos) {
                break;
            }
            line.remove_prefix(start);
            const std::size_t length = std::min(line.find_first_of(" \t\r"), line.size());
            words.push_back(line.substr(0, length));
            line.remove_prefix(length);
        }
        if (!words.empty() && words[0].front() != '#') {
            visit(words, number);
        }
    }
}

template <typename Number>
bool ReadNumber(std::string_view word, Number& number) {
    if (!word.empty() && word.front() == '+') {
        word.remove_prefix(1);
    }
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), number);
    return error == std::errc() && end == word.data() + word.size();
}

template <typename Number>
Number NumberOf(std::string_view word, const std::string& name, int line) {
    Number number{};
    if (!ReadNumber(word, number)) {
        Fail(name, line, "\"" + std::string(word) + "\" is not a number");
    }
    return number;
}

Corner CornerOf(std::string_view word, const std::string& name, int line) {
    const std::size_t slash = word.find('/');
    Corner corner;
    corner.point = NumberOf<std::uint32_t>(word.substr(0, slash), name, line);
    if (slash != std::string_view::npos) {
        std::string_view rest = word.substr(slash + 1);
        rest = rest.substr(0, rest.find('/'));
        corner.texture = rest.empty() ? 0 : NumberOf<std::uint32_t>(rest, name, line);
    }
    if (corner.point == 0) {
        Fail(name, line, "points count from 1");
    }
    --corner.point;
    corner.texture -= corner.texture > 0 ? 1 : 0;
    return corner;
}

} // namespace

ObjFile ParseObj(std::string_view text, const std::string& name) {
    ObjFile obj;
    int group = 0;
    obj.groups.emplace_back();
    ForEachLine(text, [&](const std::vector<std::string_view>& words, int line) {
        const auto value = [&](std::size_t i) { return NumberOf<float>(words[i], name, line); };
        if (words[0] == "v" && words.size() >= 4) {
            obj.points.push_back({value(1), value(2), value(3)});
        } else if (words[0] == "vt" && words.size() >= 3) {
            obj.texture.push_back({value(1), value(2)});
        } else if (words[0] == "g" && words.size() >= 2) {
            const auto known = std::find(obj.groups.begin(), obj.groups.end(), words[1]);
            group = static_cast<int>(known - obj.groups.begin());
            if (known == obj.groups.end()) {
                obj.groups.emplace_back(words[1]);
            }
        } else if (words[0] == "f") {
            if (words.size() != 4 && words.size() != 5) {
                Fail(name, line, "a face has three or four corners");
            }
            ObjFace face;
            face.corners = static_cast<int>(words.size()) - 1;
            face.group = group;
            for (int i = 0; i < face.corners; ++i) {
                face.corner[i] = CornerOf(words[i + 1], name, line);
                if (face.corner[i].point >= obj.points.size()) {
                    Fail(name, line, "a face names a point that does not exist");
                }
                if (face.corner[i].texture >= std::max<std::size_t>(obj.texture.size(), 1)) {
                    Fail(name, line, "a face names a texture coordinate that does not exist");
                }
            }
            obj.faces.push_back(face);
        }
    });
    return obj;
}

Fitting ParseFitting(std::string_view text, const std::string& name) {
    Fitting fitting;
    bool inPoints = false;
    ForEachLine(text, [&](const std::vector<std::string_view>& words, int line) {
        const auto index = [&](std::size_t i) {
            return NumberOf<std::uint32_t>(words[i], name, line);
        };
        const auto value = [&](std::size_t i) { return NumberOf<float>(words[i], name, line); };
        std::uint32_t first = 0;
        if (words[0] == "verts") {
            inPoints = true;
        } else if (words.size() == 4 && words[0].size() == 7 && words[0].substr(1) == "_scale" &&
                   words[0][0] >= 'x' && words[0][0] <= 'z') {
            fitting.scale[static_cast<std::size_t>(words[0][0] - 'x')] = {index(1), index(2),
                                                                          value(3)};
        } else if (inPoints && ReadNumber(words[0], first)) {
            // Keyword lines may stand between the points, so that only numbers are taken for them.
            if (words.size() == 1) {
                fitting.points.push_back({{first, first, first}, {1, 0, 0}, {}});
            } else if (words.size() == 9) {
                fitting.points.push_back({{first, index(1), index(2)},
                                          {value(3), value(4), value(5)},
                                          {value(6), value(7), value(8)}});
            } else {
                Fail(name, line, "a fitted point is one index or nine numbers");
            }
        }
    });
    return fitting;
}

Target ParseTarget(std::string_view text, const std::string& name) {
    Target target;
    ForEachLine(text, [&](const std::vector<std::string_view>& words, int line) {
        if (words.size() != 4) {
            Fail(name, line, "a target line has four numbers");
        }
        target.point.push_back(NumberOf<std::uint32_t>(words[0], name, line));
        target.shift.push_back({NumberOf<float>(words[1], name, line),
                                NumberOf<float>(words[2], name, line),
                                NumberOf<float>(words[3], name, line)});
    });
    return target;
}

std::string ReadText(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    if (!in) {
        throw std::runtime_error(file.string() + ": cannot be opened");
    }
    return {std::istreambuf_iterator<char>(in), {}};
}

std::string ReadGzippedText(const std::filesystem::path& file) {
    gzFile in = gzopen(file.c_str(), "rb");
    if (in == nullptr) {
        throw std::runtime_error(file.string() + ": cannot be opened");
    }
    std::string text;
    char block[1 << 16];
    int got = 0;
    while ((got = gzread(in, block, sizeof block)) > 0) {
        text.append(block, static_cast<std::size_t>(got));
    }
    gzclose(in);
    if (got < 0) {
        throw std::runtime_error(file.string() + ": is damaged");
    }
    return text;
}

} // namespace facegen
