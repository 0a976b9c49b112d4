// SPDX-License-Identifier: MIT
#include "serve/fields.h"

#include <algorithm>
#include <cstring>

#include "gallery/formats.h"
#include "serve/refusal.h"

namespace kova_cli {
namespace {

[[noreturn]] void FailTwice(std::string_view key) {
    throw Refusal{400, std::string(key) + " is given twice; give it once"};
}

[[noreturn]] void FailUnknown() {
    throw Refusal{400, "a field is unknown here; see /openapi.json for those there are"};
}

void CheckRoom(const Fields& fields) {
    if (fields.faces.size() >= kMostGivenFaces) {
        throw Refusal{413, "more than " + std::to_string(kMostGivenFaces) +
                               " pictures and features; send several requests"};
    }
}

std::optional<double>* NumberOf(Fields& fields, std::string_view key) {
    if (key == "threshold") {
        return &fields.threshold;
    }
    if (key == "most") {
        return &fields.most;
    }
    if (key == "smallest") {
        return &fields.smallest;
    }
    if (key == "top") {
        return &fields.top;
    }
    return key == "least_quality" ? &fields.leastQuality : nullptr;
}

// What stands behind `key=` in the parameters of a content type, without quotes.
std::string ParameterOf(std::string_view type, std::string_view key) {
    const auto same = [](char a, char b) { return (a | 0x20) == (b | 0x20); };
    const auto found = std::search(type.begin(), type.end(), key.begin(), key.end(), same);
    if (found == type.end()) {
        return "";
    }
    std::string_view value = type.substr(static_cast<size_t>(found - type.begin()) + key.size());
    if (value.starts_with('"')) {
        value.remove_prefix(1);
        return std::string(value.substr(0, value.find('"')));
    }
    return std::string(value.substr(0, value.find_first_of("; \t")));
}

std::string KindOf(std::string_view type) {
    std::string kind(type.substr(0, type.find_first_of("; \t")));
    std::transform(kind.begin(), kind.end(), kind.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c | 0x20) : c; });
    return kind;
}

constexpr std::string_view kJson = "application/json";
constexpr std::string_view kForm = "multipart/form-data";

} // namespace

bool IsKnownForm(const std::string& contentType) {
    const std::string kind = KindOf(contentType);
    return kind == kJson || kind == kForm;
}

void FailUnknownForm() {
    throw Refusal{415,
                  "the body is neither application/json nor multipart/form-data; name its "
                  "type in Content-Type"};
}

Fields ParseFields(const std::string& contentType, std::string_view body) {
    const std::string kind = KindOf(contentType);
    if (kind == kJson) {
        return ParseJsonFields(body);
    }
    if (kind != kForm) {
        FailUnknownForm();
    }
    const std::string boundary = ParameterOf(contentType, "boundary=");
    constexpr size_t kLongestBoundary = 70;
    if (boundary.empty() || boundary.size() > kLongestBoundary) {
        throw Refusal{400,
                      "Content-Type has no boundary of 1 to 70 characters; let your HTTP "
                      "library write it"};
    }
    return ParseMultipartFields(boundary, body);
}

void AddPicture(Fields& fields, std::string bytes) {
    CheckRoom(fields);
    fields.faces.emplace_back(std::move(bytes));
}

void AddFeature(Fields& fields, const std::vector<float>& values) {
    CheckRoom(fields);
    Feature feature;
    if (values.size() != feature.size()) {
        throw Refusal{400, "a feature has 128 numbers, or 512 bytes; send it as extract gave it"};
    }
    if (!IsFeature(values.data())) {
        throw Refusal{400, "a feature is not of unit length; send it as extract gave it"};
    }
    std::copy(values.begin(), values.end(), feature.begin());
    fields.faces.emplace_back(feature);
}

void AddFeatureBytes(Fields& fields, std::string_view bytes) {
    std::vector<float> values;
    if (bytes.size() == sizeof(Feature)) {
        values.resize(std::tuple_size_v<Feature>);
        std::memcpy(values.data(), bytes.data(), bytes.size());
    }
    AddFeature(fields, values);
}

void SetText(Fields& fields, std::string_view key, std::string value) {
    if (key != "name") {
        FailUnknown();
    }
    if (fields.name) {
        FailTwice(key);
    }
    fields.name = std::move(value);
}

void SetFlag(Fields& fields, std::string_view key, bool value) {
    if (key != "crop") {
        FailUnknown();
    }
    if (fields.crop) {
        FailTwice(key);
    }
    fields.crop = value;
}

void SetNumber(Fields& fields, std::string_view key, double value) {
    std::optional<double>* const number = NumberOf(fields, key);
    if (number == nullptr) {
        FailUnknown();
    }
    if (*number) {
        FailTwice(key);
    }
    *number = value;
}

} // namespace kova_cli
