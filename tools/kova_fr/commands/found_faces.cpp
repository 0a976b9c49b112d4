// SPDX-License-Identifier: MIT
#include "commands/found_faces.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "faces/finder.h"
#include "pictures/canvas.h"

namespace kova_cli {
namespace {

int32_t Rounded(float value) { return static_cast<int32_t>(std::lround(value)); }

// A float as JSON should show it: the shortest decimal number that reads back to the same float.
double Short(float value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.7g", static_cast<double>(value));
    return std::strtod(text, nullptr);
}

std::string Reasons(uint32_t reasons) {
    std::string text;
    for (const std::string& word : ReasonWords(reasons)) {
        text += (text.empty() ? "" : ", ") + word;
    }
    return text.empty() ? "none" : text;
}

// The worst faces red, the best green.
Colour ColourOf(int32_t quality) {
    constexpr Colour kBad = {220, 50, 40};
    constexpr Colour kFair = {255, 176, 0};
    constexpr Colour kGood = {40, 170, 70};
    return quality < 30 ? kBad : quality < 60 ? kFair : kGood;
}

void DrawFace(const OrvoFindFace& face, int32_t thickness, Canvas& canvas) {
    const Colour colour = ColourOf(face.quality);
    canvas.Outline(Rounded(face.left), Rounded(face.top), Rounded(face.left + face.side),
                   Rounded(face.top + face.side), thickness, colour);
    const int32_t dot = std::max(1, thickness);
    for (const OrvoFindPoint& point : face.points) {
        const int32_t x = Rounded(point.x);
        const int32_t y = Rounded(point.y);
        canvas.Fill(x - dot, y - dot, x + dot, y + dot, colour);
    }
    const std::string text = face.reasons == 0
                                 ? std::to_string(face.quality)
                                 : std::to_string(face.quality) + " " + Reasons(face.reasons);
    constexpr int32_t kTextHeight = 12;
    const int32_t below = Rounded(face.top + face.side) + thickness + 4;
    const int32_t left = std::max(Rounded(face.left), 2);
    canvas.Fill(left - 2, below - 2, left + TextWidth(text, thickness) + 2,
                below + thickness * kTextHeight, {20, 20, 24});
    canvas.Write(left, below, text, thickness, colour);
}

} // namespace

std::string FaceLine(const OrvoFindFace& face) {
    char text[160];
    std::snprintf(text, sizeof text,
                  "%4d x %-4d at %5d,%-5d score %.3f  yaw %+3d  roll %+4d  quality %3d  ",
                  Rounded(face.side), Rounded(face.side), Rounded(face.left), Rounded(face.top),
                  static_cast<double>(face.score), Rounded(face.yaw), Rounded(face.roll),
                  static_cast<int>(face.quality));
    return text + Reasons(face.reasons);
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

std::vector<uint8_t> DrawFaces(const GreyPicture& picture, const std::vector<OrvoFindFace>& faces) {
    Canvas canvas(picture.width, picture.height, {0, 0, 0});
    canvas.Place(0, 0, picture.pixels, picture.width, picture.height, 1);
    const uint32_t larger = std::max(picture.width, picture.height);
    const int32_t thickness = std::max(1, static_cast<int32_t>(larger / 500));
    // The best one last, so that nothing lies over it.
    for (size_t i = faces.size(); i-- > 0;) {
        DrawFace(faces[i], thickness, canvas);
    }
    return canvas.Png();
}

} // namespace kova_cli
