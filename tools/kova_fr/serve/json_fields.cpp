// SPDX-License-Identifier: MIT
#include <cmath>
#include <limits>
#include <nlohmann/json.hpp>

#include "serve/base64.h"
#include "serve/fields.h"
#include "serve/refusal.h"

namespace kova_cli {
namespace {

[[noreturn]] void FailShape(const std::string& key) {
    throw Refusal{400, (key.empty() ? "the body" : "the field") +
                           std::string(" has a form that is not known; see /openapi.json")};
}

std::string Decoded(const std::string& text) {
    std::optional<std::string> bytes = DecodeBase64(text);
    if (!bytes) {
        throw Refusal{400, "a picture or feature is no Base64; encode the file's bytes"};
    }
    return std::move(*bytes);
}

// One object of known keys. What is not expected ends the reading at once, so that nothing is kept
// of it.
class FieldsReader : public nlohmann::json_sax<nlohmann::json> {
  public:
    bool null() override { FailShape(key_); }
    bool boolean(bool value) override {
        if (place_ != Place::kField) {
            FailShape(key_);
        }
        SetFlag(fields_, key_, value);
        return true;
    }
    bool binary(binary_t&) override { FailShape(key_); }
    bool number_integer(number_integer_t value) override {
        return Number(static_cast<double>(value));
    }
    bool number_unsigned(number_unsigned_t value) override {
        return Number(static_cast<double>(value));
    }
    bool number_float(number_float_t value, const string_t&) override { return Number(value); }

    bool string(string_t& value) override {
        if (place_ == Place::kNumbers || place_ == Place::kOutside) {
            FailShape(key_);
        }
        if (IsPicture()) {
            AddPicture(fields_, Decoded(value));
        } else if (IsFeature()) {
            AddFeatureBytes(fields_, Decoded(value));
        } else {
            SetText(fields_, key_, value);
        }
        return true;
    }

    bool start_object(size_t) override {
        if (place_ != Place::kOutside || isDone_) {
            FailShape(key_);
        }
        place_ = Place::kField;
        return true;
    }
    bool key(string_t& value) override {
        key_ = value;
        return true;
    }
    bool end_object() override {
        place_ = Place::kOutside;
        isDone_ = true;
        return true;
    }

    bool start_array(size_t) override {
        if (place_ == Place::kField && (key_ == "pictures" || key_ == "features")) {
            place_ = Place::kList;
        } else if ((place_ == Place::kField && key_ == "feature") ||
                   (place_ == Place::kList && key_ == "features")) {
            place_ = Place::kNumbers;
            numbers_.clear();
        } else {
            FailShape(key_);
        }
        return true;
    }
    bool end_array() override {
        if (place_ == Place::kNumbers) {
            AddFeature(fields_, numbers_);
            place_ = key_ == "features" ? Place::kList : Place::kField;
        } else {
            place_ = Place::kField;
        }
        return true;
    }

    bool parse_error(size_t at, const std::string&, const nlohmann::detail::exception&) override {
        throw Refusal{400, "the body is no JSON from byte " + std::to_string(at) +
                               " on; send one JSON object"};
    }

    Fields Take() { return std::move(fields_); }

  private:
    enum class Place { kOutside, kField, kList, kNumbers };

    bool IsPicture() const {
        return place_ == Place::kField ? key_ == "picture" : key_ == "pictures";
    }
    bool IsFeature() const {
        return place_ == Place::kField ? key_ == "feature" : key_ == "features";
    }

    bool Number(double value) {
        if (place_ == Place::kField) {
            SetNumber(fields_, key_, value);
        } else if (place_ == Place::kNumbers && numbers_.size() < std::tuple_size_v<Feature>) {
            // Beyond a float's range it is no element of a feature; the length tells.
            numbers_.push_back(std::abs(value) <= 2 ? static_cast<float>(value)
                                                    : std::numeric_limits<float>::infinity());
        } else {
            FailShape(key_);
        }
        return true;
    }

    Fields fields_;
    Place place_ = Place::kOutside;
    bool isDone_ = false;
    std::string key_;
    std::vector<float> numbers_;
};

} // namespace

Fields ParseJsonFields(std::string_view body) {
    FieldsReader reader;
    if (!nlohmann::json::sax_parse(body.begin(), body.end(), &reader)) {
        FailShape("");
    }
    return reader.Take();
}

} // namespace kova_cli
