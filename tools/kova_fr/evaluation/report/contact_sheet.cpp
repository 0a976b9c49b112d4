// SPDX-License-Identifier: MIT
#include "evaluation/report/contact_sheet.h"

#include <algorithm>
#include <cstdio>

#include "faces/face.h"
#include "pictures/canvas.h"
#include "terminal/label.h"

namespace kova_cli {
namespace {

constexpr Colour kPaper = {255, 255, 255};
constexpr Colour kInk = {31, 41, 51};
constexpr Colour kNone = {217, 223, 229};
constexpr auto kFace = static_cast<int32_t>(kCropSize);
constexpr int32_t kGap = 8;
constexpr int32_t kLine = 11;                       // of text
constexpr int32_t kTop = 40;                        // of the first pair
constexpr int32_t kPair = kFace + 4 * kLine + kGap; // high
constexpr int32_t kColumn = 2 * kFace + 140;        // wide

// The canvas knows ASCII alone.
std::string Letters(const std::string& name, size_t most) {
    std::string text = OneLine(name);
    std::erase_if(text, [](char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; });
    return ShortenLabel(text, most);
}

void DrawFace(Canvas& canvas, int32_t left, int32_t top, const std::vector<uint8_t>& crop) {
    if (crop.empty()) {
        canvas.Fill(left, top, left + kFace, top + kFace, kNone);
    } else {
        canvas.Place(left, top, crop, kCropSize, kCropSize, 1);
    }
}

void DrawPairs(Canvas& canvas, int32_t left, const char* title, const std::vector<PairScore>& pairs,
               const std::vector<std::string>& names, const std::vector<std::string>& paths,
               const CropOf& cropOf) {
    constexpr size_t kLetters = (kColumn - 2 * kGap) / 6;
    canvas.Write(left, kGap, title, 2, kInk);
    int32_t top = kTop;
    for (const PairScore& pair : pairs) {
        char score[32];
        std::snprintf(score, sizeof score, "%.4f", static_cast<double>(pair.score));
        DrawFace(canvas, left, top, cropOf(paths[pair.first]));
        DrawFace(canvas, left + kFace + 2, top, cropOf(paths[pair.second]));
        canvas.Write(left + 2 * kFace + kGap, top + kFace / 2 - 8, score, 2, kInk);
        canvas.Write(left, top + kFace + 4, Letters(names[pair.first], kLetters), 1, kInk);
        canvas.Write(left, top + kFace + 4 + kLine, Letters(names[pair.second], kLetters), 1, kInk);
        top += kPair;
    }
    if (pairs.empty()) {
        canvas.Write(left, top, "there is no such pair", 1, kInk);
    }
}

} // namespace

std::vector<uint8_t> ContactSheet(const WorstPairs& worst, const std::vector<std::string>& paths,
                                  const CropOf& cropOf) {
    const auto rows =
        static_cast<int32_t>(std::max<size_t>({worst.same.size(), worst.different.size(), 1}));
    Canvas canvas(static_cast<uint32_t>(2 * kColumn + kGap),
                  static_cast<uint32_t>(kTop + rows * kPair), kPaper);
    const std::vector<std::string> names = ShortNames(paths);
    DrawPairs(canvas, kGap, "Two people, most alike", worst.different, names, paths, cropOf);
    DrawPairs(canvas, kGap + kColumn, "One person, least alike", worst.same, names, paths, cropOf);
    return canvas.Png();
}

} // namespace kova_cli
