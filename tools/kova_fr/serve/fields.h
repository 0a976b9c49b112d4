// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "faces/face.h"

namespace kova_cli {

// The bytes of a picture's file, or a feature.
using GivenFace = std::variant<std::string, Feature>;

// What a request says, whichever way it says it.
struct Fields {
    std::vector<GivenFace> faces; // in the order given
    std::optional<std::string> name;
    std::optional<double> threshold;
    std::optional<double> most;         // faces of a picture
    std::optional<double> smallest;     // side of the smallest face, in pixels
    std::optional<double> top;          // names
    std::optional<double> leastQuality; // of a face, 0 to 100
    std::optional<bool> crop;           // each picture is one face
};

inline constexpr size_t kMostGivenFaces = 64;

// Whether a body of this type can be read, and the Refusal of one that cannot.
bool IsKnownForm(const std::string& contentType);
[[noreturn]] void FailUnknownForm();

// Of a body of type application/json or multipart/form-data. What is unknown, or is there twice, is
// a Refusal that names it, and so is a feature that is none.
Fields ParseFields(const std::string& contentType, std::string_view body);

// The two ways. JSON is never held as a tree: a body of brackets would make one many times its size.
Fields ParseJsonFields(std::string_view body);
Fields ParseMultipartFields(std::string_view boundary, std::string_view body);

// What both do with a field.
void AddPicture(Fields& fields, std::string bytes);
void AddFeature(Fields& fields, const std::vector<float>& values);
void AddFeatureBytes(Fields& fields, std::string_view bytes); // 128 floats, lowest byte first
void SetText(Fields& fields, std::string_view key, std::string value);
void SetFlag(Fields& fields, std::string_view key, bool value);
void SetNumber(Fields& fields, std::string_view key, double value);

} // namespace kova_cli
