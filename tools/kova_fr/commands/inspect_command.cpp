// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>

#include "commands/commands.h"
#include "commands/face_options.h"
#include "commands/found_faces.h"
#include "faces/digest.h"
#include "pictures/canvas.h"
#include "pictures/reduce.h"
#include "terminal/json_line.h"
#include "terminal/label.h"

namespace kova_cli {
namespace {

struct InspectOptions {
    FaceOptions faces;
    std::string outputPath; // empty: only the text is wanted
};

constexpr const char* kNotes =
    R"(Says what becomes of a picture. Of a whole photograph: the largest face that is good
enough, with its landmarks, its quality and what is wrong with it. Of a crop (--crop,
--box): the face box that the alignment network chooses in the 256 x 256 frame, which
may cross the left border. Of both the 96 x 96 crop that the recognition network
sees, and the 128 values of the feature.

Examples:
  kova-fr inspect photo.jpg
  kova-fr inspect --output inspected.png photo.jpg
  kova-fr inspect --crop face.png
  kova-fr inspect --json --box 120,80,200,200 photo.jpg)";

// What is known of the picture and of its face.
struct Seen {
    Face face;
    // Of a whole photograph:
    GreyPicture picture;
    std::vector<OrvoFindFace> all; // the faces in it
    // Of a crop:
    std::optional<Inspection> crop;
};

Seen Look(const Recogniser& recogniser, const FaceOptions& options) {
    if (IsCrop(options)) {
        Inspection crop = InspectCrop(recogniser, options);
        Face face = crop.face;
        return {std::move(face), {}, {}, std::move(crop)};
    }
    Finder finder;
    PictureRead read = ReadPicture(recogniser, finder, options, 0);
    Seen seen{read.faces[LargestGood(read.faces)], std::move(read.picture), {}, {}};
    for (const Face& face : read.faces) {
        seen.all.push_back(*face.found);
    }
    return seen;
}

std::string FeatureDigest(const Feature& feature) {
    Sha256Stream stream;
    stream.Add(feature.data(), sizeof feature);
    return Hex(stream.Finish());
}

// The size of a box, and its corner, which may lie outside.
struct Place {
    int32_t x, y, width, height;
};

Place Of(const Box& box) {
    return {static_cast<int32_t>(box.x), static_cast<int32_t>(box.y),
            static_cast<int32_t>(box.width), static_cast<int32_t>(box.height)};
}

Place InFrame(const Inspection& seen) {
    const orvo::FaceBox& box = seen.faceBox;
    return {box.left, box.top, box.right - box.left, box.bottom - box.top};
}

// From pixels of the frame to those of the picture.
Place InPicture(const Inspection& seen) {
    const auto scaled = [](int32_t value, int32_t size) {
        return static_cast<int32_t>(
            std::lround(static_cast<double>(value) * size / static_cast<double>(kFrameSize)));
    };
    const Place frame = Of(seen.face.box);
    const Place box = InFrame(seen);
    return {frame.x + scaled(box.x, frame.width), frame.y + scaled(box.y, frame.height),
            scaled(box.width, frame.width), scaled(box.height, frame.height)};
}

std::string Size(int64_t width, int64_t height) {
    return std::to_string(width) + " x " + std::to_string(height);
}

std::string Words(const Place& place) {
    return Size(place.width, place.height) + " at " + std::to_string(place.x) + "," +
           std::to_string(place.y);
}

std::string FeatureText(const Feature& feature) {
    const auto [least, most] = std::minmax_element(feature.begin(), feature.end());
    char values[64];
    std::snprintf(values, sizeof values, "%.4f to %.4f", static_cast<double>(*least),
                  static_cast<double>(*most));
    return std::string("feature    128 values from ") + values + "\n           sha256 " +
           FeatureDigest(feature) + "\n";
}

std::string CropText(const Inspection& seen) {
    return "frame      " + Words(Of(seen.face.box)) + ", scaled to " +
           Size(kFrameSize, kFrameSize) + "\nface box   " + Words(InFrame(seen)) +
           " of the frame, " + Words(InPicture(seen)) + " of the picture\n";
}

std::string PointText(const OrvoFindPoint& point) {
    char text[40];
    std::snprintf(text, sizeof text, "%.1f,%.1f", static_cast<double>(point.x),
                  static_cast<double>(point.y));
    return text;
}

std::string FoundText(const Seen& seen) {
    const OrvoFindFace& face = *seen.face.found;
    const std::string which = seen.all.size() == 1
                                  ? "the only one"
                                  : "the largest good one of " + std::to_string(seen.all.size());
    char angles[80];
    std::snprintf(angles, sizeof angles, "score %.3f, yaw %+.0f, roll %+.0f degrees",
                  static_cast<double>(face.score), static_cast<double>(face.yaw),
                  static_cast<double>(face.roll));
    const auto whole = [](float value) { return static_cast<int32_t>(std::lround(value)); };
    return "face       " +
           Words({whole(face.left), whole(face.top), whole(face.side), whole(face.side)}) + ", " +
           which + "\n           " + angles + "\nlandmarks  pupils " + PointText(face.points[0]) +
           " and " + PointText(face.points[1]) + ", tip of the nose " + PointText(face.points[2]) +
           "\n           corners of the mouth " + PointText(face.points[3]) + " and " +
           PointText(face.points[4]) + "\nquality    " + std::to_string(face.quality) +
           " of 100, reasons: " + ReasonsText(face.reasons) + "\n";
}

std::string Text(const Seen& seen) {
    return "picture    " + OneLine(seen.face.path) + ", " +
           Size(seen.face.pictureWidth, seen.face.pictureHeight) + "\n" +
           (seen.crop ? CropText(*seen.crop) : FoundText(seen)) + FeatureText(seen.face.feature);
}

nlohmann::ordered_json PlaceJson(const Place& place) {
    return {{"x", place.x}, {"y", place.y}, {"width", place.width}, {"height", place.height}};
}

std::string Json(const Seen& seen) {
    nlohmann::ordered_json json = PictureJson(seen.face);
    if (seen.crop) {
        json["face_box_in_frame"] = PlaceJson(InFrame(*seen.crop));
        json["face_box_in_picture"] = PlaceJson(InPicture(*seen.crop));
    } else {
        json["faces"] = seen.all.size();
    }
    json["feature"] = seen.face.feature;
    json["feature_sha256"] = FeatureDigest(seen.face.feature);
    return JsonLine(json);
}

constexpr Colour kPaper = {250, 250, 248};
constexpr Colour kInk = {34, 34, 38};
constexpr Colour kFaint = {206, 206, 210};
constexpr Colour kBoxColour = {255, 176, 0};
constexpr Colour kPositive = {31, 119, 180};
constexpr Colour kNegative = {214, 96, 39};

constexpr int32_t kMargin = 24;
constexpr int32_t kFrameScale = 2;
constexpr int32_t kCropScale = 4;
constexpr int32_t kTextScale = 2;
constexpr int32_t kLine = 22; // from one line of text to the next
constexpr int32_t kFrameSide = kFrameScale * static_cast<int32_t>(kFrameSize);
constexpr int32_t kCropSide = kCropScale * static_cast<int32_t>(kCropSize);
constexpr int32_t kPicturesTop = kMargin + 2 * kLine;
constexpr int32_t kBarsTop = kPicturesTop + kFrameSide + kMargin + kLine;
constexpr int32_t kBarsHeight = 200;
constexpr int32_t kBarPitch = 7;
constexpr int32_t kWidth = kMargin + kFrameSide + kMargin + kCropSide + kMargin;
constexpr int32_t kHeight = kBarsTop + kBarsHeight + kLine + kMargin;

void DrawFrame(const Inspection& seen, Canvas& canvas) {
    canvas.Place(kMargin, kPicturesTop, seen.frame, kFrameSize, kFrameSize, kFrameScale);
    const orvo::FaceBox& box = seen.faceBox;
    canvas.Outline(kMargin + kFrameScale * box.left, kPicturesTop + kFrameScale * box.top,
                   kMargin + kFrameScale * box.right, kPicturesTop + kFrameScale * box.bottom, 3,
                   kBoxColour);
    canvas.Write(kMargin, kMargin + kLine, "frame and face box " + Words(InFrame(seen)), kTextScale,
                 kInk);
}

// The photograph as large as there is room, with all its faces, and what is known of the one.
void DrawPhotograph(const Seen& seen, Canvas& canvas) {
    const double scale =
        static_cast<double>(kFrameSide) / std::max(seen.picture.width, seen.picture.height);
    const auto scaled = [scale](uint32_t length) {
        return std::max(static_cast<uint32_t>(std::lround(scale * length)), 1u);
    };
    const GreyPicture shown =
        Resized(seen.picture, scaled(seen.picture.width), scaled(seen.picture.height));
    canvas.Place(kMargin, kPicturesTop, shown.pixels, shown.width, shown.height, 1);
    for (const OrvoFindFace& face : seen.all) {
        DrawMarks(face, kMargin, kPicturesTop, scale, 1, canvas);
    }
    const OrvoFindFace& face = *seen.face.found;
    DrawMarks(face, kMargin, kPicturesTop, scale, 2, canvas);
    // What lies beyond the photograph's place.
    canvas.Fill(0, 0, kWidth, kPicturesTop, kPaper);
    canvas.Fill(0, kPicturesTop, kMargin, kHeight, kPaper);
    canvas.Fill(kMargin + kFrameSide, kPicturesTop, kWidth, kHeight, kPaper);
    canvas.Fill(0, kPicturesTop + kFrameSide, kWidth, kHeight, kPaper);
    canvas.Write(kMargin, kMargin + kLine,
                 "photograph " + Size(seen.picture.width, seen.picture.height) + ", " +
                     std::to_string(seen.all.size()) + (seen.all.size() == 1 ? " face" : " faces"),
                 kTextScale, kInk);
    char angles[64];
    std::snprintf(angles, sizeof angles, "score %.2f  yaw %+.0f  roll %+.0f",
                  static_cast<double>(face.score), static_cast<double>(face.yaw),
                  static_cast<double>(face.roll));
    const int32_t left = kMargin + kFrameSide + kMargin;
    int32_t top = kPicturesTop + kCropSide + kMargin / 2;
    for (const std::string& line : {"quality " + std::to_string(face.quality) + " of 100",
                                    "reasons: " + ReasonsText(face.reasons), std::string(angles)}) {
        const auto fits = static_cast<size_t>(kCropSide / TextWidth("x", kTextScale));
        canvas.Write(left, top, line.substr(0, fits), kTextScale, kInk);
        top += kLine;
    }
}

void DrawCrop(const Seen& seen, Canvas& canvas) {
    const int32_t left = kMargin + kFrameSide + kMargin;
    canvas.Write(left, kMargin + kLine,
                 (seen.crop ? "crop " : "crop, upright, ") + Size(kCropSize, kCropSize), kTextScale,
                 kInk);
    canvas.Place(left, kPicturesTop, seen.face.crop, kCropSize, kCropSize, kCropScale);
}

// Bars from the zero line; the axis ends at the next tenth above the largest magnitude.
void DrawFeature(const Feature& feature, Canvas& canvas) {
    float largest = 0;
    for (const float value : feature) {
        largest = std::max(largest, std::abs(value));
    }
    const float end = std::max(0.1f, std::ceil(largest * 10) / 10);
    const int32_t left = kWidth - kMargin - kBarPitch * static_cast<int32_t>(feature.size());
    constexpr int32_t kLongest = kBarsHeight / 2;
    const int32_t zero = kBarsTop + kLongest;
    const auto height = [end](float value) {
        return static_cast<int32_t>(std::lround(value / end * kLongest));
    };
    for (const float mark : {-end, 0.0f, end}) {
        const int32_t y = zero - height(mark);
        canvas.Fill(left, y, kWidth - kMargin, y + 1, kFaint);
        char text[16];
        std::snprintf(text, sizeof text, "%+.1f", static_cast<double>(mark));
        const std::string label = mark == 0 ? "0" : text;
        canvas.Write(left - TextWidth(label, 1) - 4, y - 3, label, 1, kInk);
    }
    for (size_t i = 0; i < feature.size(); ++i) {
        const int32_t x = left + kBarPitch * static_cast<int32_t>(i);
        const int32_t y = zero - height(feature[i]);
        canvas.Fill(x, std::min(y, zero), x + kBarPitch - 2, std::max(y, zero + 1),
                    feature[i] < 0 ? kNegative : kPositive);
        if (i % 16 == 0) {
            canvas.Write(x, kBarsTop + kBarsHeight + 8, std::to_string(i), 1, kInk);
        }
    }
    canvas.Write(kMargin, kBarsTop - kLine - 4, "feature: 128 values of unit length", kTextScale,
                 kInk);
}

std::vector<uint8_t> Picture(const Seen& seen) {
    Canvas canvas(kWidth, kHeight, kPaper);
    if (seen.crop) {
        DrawFrame(*seen.crop, canvas);
    } else {
        DrawPhotograph(seen, canvas);
    }
    const std::string name = ShortNames({seen.face.path}).front();
    const size_t fits = static_cast<size_t>((kWidth - 2 * kMargin) / TextWidth("x", kTextScale));
    canvas.Write(kMargin, kMargin - 4, ShortenLabel(name, fits), kTextScale, kInk);
    DrawCrop(seen, canvas);
    DrawFeature(seen.face.feature, canvas);
    return canvas.Png();
}

void RunInspect(const InspectOptions& options) {
    std::vector<OutputFile> files = CropFiles(options.faces);
    if (!options.outputPath.empty()) {
        if (options.outputPath == options.faces.cropPath) {
            throw CLI::ValidationError("--output", "names the same file as --save-crop");
        }
        files.push_back({options.outputPath, true, {}});
    }
    CheckOutputs(files, options.faces.pictures);
    const Recogniser recogniser;
    const Seen seen = Look(recogniser, options.faces);
    if (!options.outputPath.empty()) {
        files.back().bytes = Picture(seen);
    }
    if (!options.faces.cropPath.empty()) {
        files.front().bytes = EncodePng(seen.face.crop, kCropSize, kCropSize, 1);
    }
    WriteFiles(files);
    WriteStandardOutput(options.faces.json ? Json(seen) : Text(seen));
}

} // namespace

void AddInspectCommand(CLI::App& program) {
    CLI::App& command =
        *program.add_subcommand("inspect", "Show what the library makes of a picture");
    const auto options = std::make_shared<InspectOptions>();
    options->faces.withCrops = true;
    AddFaceOptions(command, options->faces, 1, 1);
    command
        .add_option("--output", options->outputPath,
                    "Write a picture of it: the photograph with the faces, or the frame with the "
                    "face box, the crop, and the values as bars")
        ->type_name("FILE.png");
    command.footer(kNotes);
    command.callback([options] { RunInspect(*options); });
}

} // namespace kova_cli
