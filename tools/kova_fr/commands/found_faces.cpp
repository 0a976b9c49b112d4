// SPDX-License-Identifier: MIT
#include "commands/found_faces.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "faces/finder.h"
#include "terminal/label.h"

namespace kova_cli {
namespace {

int32_t Rounded(float value) { return static_cast<int32_t>(std::lround(value)); }

// A float as JSON should show it: the shortest decimal number that reads back to the same float.
double Short(float value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.7g", static_cast<double>(value));
    return std::strtod(text, nullptr);
}

// The worst faces red, the best green.
Colour ColourOf(int32_t quality) {
    constexpr Colour kBad = {220, 50, 40};
    constexpr Colour kFair = {255, 176, 0};
    constexpr Colour kGood = {40, 170, 70};
    return quality < 30 ? kBad : quality < 60 ? kFair : kGood;
}

// A filled box stands for each character that cannot be drawn; of its bytes all but the first go.
std::string Drawable(const std::string& text) {
    std::string drawable = OneLine(text);
    std::erase_if(drawable, [](char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; });
    return drawable;
}

// One size for all labels: as large as fits below most of the faces, within what suits the picture.
int32_t TextScale(const std::vector<LabelledFace>& faces, const GreyPicture& picture) {
    constexpr double kOfFace = 1.2;
    double sides = 0;
    int32_t widths = 1;
    for (const LabelledFace& one : faces) {
        sides += static_cast<double>(one.face.side);
        widths += TextWidth(Drawable(one.label), 1);
    }
    const auto most = static_cast<int32_t>(std::max(picture.width, picture.height) / 250);
    return std::clamp(static_cast<int32_t>(kOfFace * sides) / widths, 1, std::max(most, 1));
}

// Text on a dark ground, below a place or, where the picture ends there, inside it; moved to the left
// as far as the picture ends.
void DrawLabel(const OrvoFindFace& face, const std::string& text, int32_t scale,
               const GreyPicture& picture, Canvas& canvas) {
    constexpr int32_t kTextHeight = 12;
    const int32_t height = scale * kTextHeight;
    const int32_t width = TextWidth(text, scale) + 4;
    const auto pictureWidth = static_cast<int32_t>(picture.width);
    const auto pictureHeight = static_cast<int32_t>(picture.height);
    const int32_t top = std::min(Rounded(face.top + face.side) + scale + 2, pictureHeight - height);
    const int32_t left = std::clamp(Rounded(face.left), 0, std::max(pictureWidth - width, 0));
    canvas.Fill(left, top, left + width, top + height, {20, 20, 24});
    canvas.Write(left + 2, top + 2, text, scale, ColourOf(face.quality));
}

} // namespace

std::string FaceLine(const OrvoFindFace& face) {
    char text[160];
    std::snprintf(text, sizeof text,
                  "%4d x %-4d at %5d,%-5d score %.3f  yaw %+3d  roll %+4d  quality %3d  ",
                  Rounded(face.side), Rounded(face.side), Rounded(face.left), Rounded(face.top),
                  static_cast<double>(face.score), Rounded(face.yaw), Rounded(face.roll),
                  static_cast<int>(face.quality));
    return text + ReasonsText(face.reasons);
}

nlohmann::ordered_json FaceJson(const OrvoFindFace& face) {
    constexpr const char* kPoints[] = {"left_pupil", "right_pupil", "nose_tip", "left_mouth_corner",
                                       "right_mouth_corner"};
    nlohmann::ordered_json json;
    json["box"] = {{"x", face.left}, {"y", face.top}, {"width", face.side}, {"height", face.side}};
    json["score"] = face.score; // whole 1024ths
    for (size_t i = 0; i < std::size(kPoints); ++i) {
        json["landmarks"][kPoints[i]] = {{"x", face.points[i].x}, {"y", face.points[i].y}};
    }
    json["yaw"] = face.yaw;
    json["roll"] = Short(face.roll);
    json["covered"] = Short(face.covered);
    json["quality"] = face.quality;
    json["reasons"] = ReasonWords(face.reasons);
    return json;
}

std::string ReasonsText(uint32_t reasons) {
    std::string text;
    for (const std::string& word : ReasonWords(reasons)) {
        text += (text.empty() ? "" : ", ") + word;
    }
    return text.empty() ? "none" : text;
}

std::string QualityLabel(const OrvoFindFace& face) {
    return std::to_string(face.quality) +
           (face.reasons == 0 ? "" : " " + ReasonsText(face.reasons));
}

void DrawMarks(const OrvoFindFace& face, int32_t left, int32_t top, double scale, int32_t thickness,
               Canvas& canvas) {
    const auto at = [scale](int32_t corner, float length) {
        return corner + static_cast<int32_t>(std::lround(scale * static_cast<double>(length)));
    };
    const Colour colour = ColourOf(face.quality);
    canvas.Outline(at(left, face.left), at(top, face.top), at(left, face.left + face.side),
                   at(top, face.top + face.side), thickness, colour);
    for (const OrvoFindPoint& point : face.points) {
        const int32_t x = at(left, point.x);
        const int32_t y = at(top, point.y);
        canvas.Fill(x - thickness, y - thickness, x + thickness, y + thickness, colour);
    }
}

std::vector<uint8_t> DrawFaces(const GreyPicture& picture, const std::vector<LabelledFace>& faces) {
    Canvas canvas(picture.width, picture.height, {0, 0, 0});
    canvas.Place(0, 0, picture.pixels, picture.width, picture.height, 1);
    const uint32_t larger = std::max(picture.width, picture.height);
    const int32_t thickness = std::max(1, static_cast<int32_t>(larger / 500));
    // The best one last, so that nothing lies over it; labels over all boxes.
    for (size_t i = faces.size(); i-- > 0;) {
        DrawMarks(faces[i].face, 0, 0, 1, thickness, canvas);
    }
    const int32_t textScale = TextScale(faces, picture);
    for (size_t i = faces.size(); i-- > 0;) {
        DrawLabel(faces[i].face, Drawable(faces[i].label), textScale, picture, canvas);
    }
    return canvas.Png();
}

} // namespace kova_cli
