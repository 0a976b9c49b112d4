// SPDX-License-Identifier: MIT
#include "gallery/importing.h"

#include <algorithm>
#include <charconv>
#include <cstring>

#include "files/csv.h"
#include "files/failure.h"
#include "gallery/formats.h"
#include "gallery/gallery.h"

namespace kova_cli {
namespace {

constexpr uint64_t kLongestImport = uint64_t{1} << 34;
constexpr std::string_view kNpyMagic("\x93NUMPY", 6);

void CheckFeatures(const std::vector<Feature>& features) {
    if (features.empty()) {
        throw Failure("has no features");
    }
    for (size_t entry = 0; entry < features.size(); ++entry) {
        if (!IsFeature(features[entry].data())) {
            FailNoFeature(entry);
        }
    }
}

void CheckName(const std::string& name, size_t line) {
    if (const std::string wrong = WrongWithName(name); !wrong.empty()) {
        throw Failure("line " + std::to_string(line) + ": " + wrong);
    }
}

std::vector<std::string> FieldsOf(const std::string& text, size_t line) {
    try {
        return CsvFields(text);
    } catch (const Failure& failure) {
        throw Failure("line " + std::to_string(line) + " " + failure.what());
    }
}

float NumberOf(const std::string& text, size_t line) {
    float number = 0;
    const char* end = text.data() + text.size();
    const std::from_chars_result result = std::from_chars(text.data(), end, number);
    if (result.ec != std::errc() || result.ptr != end) {
        throw Failure("line " + std::to_string(line) + ": '" + text + "' is no number");
    }
    return number;
}

Feature FeatureOf(const std::vector<std::string>& fields, size_t line) {
    if (fields.size() != kFeatureLength + 1) {
        throw Failure("line " + std::to_string(line) + " has " + std::to_string(fields.size() - 1) +
                      " numbers in place of " + std::to_string(kFeatureLength));
    }
    Feature feature;
    for (size_t i = 0; i < feature.size(); ++i) {
        feature[i] = NumberOf(fields[i + 1], line);
    }
    return feature;
}

std::vector<std::string> ReadNames(const std::string& path) {
    const InputFile file(path, kLongestImport);
    std::vector<std::string> names;
    bool hasHeading = false;
    ReadLines(file, [&](const std::string& text, size_t line) {
        if (line == 1) {
            hasHeading = text == "name";
            return;
        }
        const std::vector<std::string> fields = FieldsOf(text, line);
        CheckName(fields.size() == 1 ? fields[0] : "", line);
        names.push_back(fields[0]);
    });
    if (!hasHeading) {
        throw Failure("has no line of heading: name");
    }
    return names;
}

struct NpyShape {
    uint64_t begin; // of the numbers
    uint64_t rows;
};

// As NumPy writes it, whatever the spaces.
NpyShape ReadNpyHeader(const InputFile& file) {
    constexpr uint64_t kPrefix = 10;
    uint8_t prefix[kPrefix] = {};
    if (file.size() < kPrefix) {
        throw Failure("is no array of NumPy's");
    }
    file.Read(0, prefix, sizeof prefix);
    if (std::memcmp(prefix, kNpyMagic.data(), kNpyMagic.size()) != 0 || prefix[6] != 1) {
        throw Failure("is no array of NumPy's");
    }
    std::string text(prefix[8] + 256u * prefix[9], ' ');
    if (file.size() < kPrefix + text.size()) {
        throw Failure("is cut short");
    }
    file.Read(kPrefix, text.data(), text.size());
    std::erase_if(text, [](char c) { return c == ' ' || c == '\n'; });
    const std::string begin = "{'descr':'<f4','fortran_order':False,'shape':(";
    const std::string end = "," + std::to_string(kFeatureLength) + "),}";
    NpyShape shape = {kPrefix + prefix[8] + 256u * prefix[9], 0};
    const char* last = text.data() + text.size();
    const char* at = text.data() + std::min(begin.size(), text.size());
    const std::from_chars_result rows = std::from_chars(at, last, shape.rows);
    if (!text.starts_with(begin) || rows.ec != std::errc() ||
        std::string_view(rows.ptr, static_cast<size_t>(last - rows.ptr)) != end) {
        throw Failure("needs 32-bit floats in rows of " + std::to_string(kFeatureLength) +
                      ", and no other order");
    }
    return shape;
}

std::vector<Feature> ReadNpy(const std::string& path) {
    const InputFile file(path, kLongestImport);
    const NpyShape shape = ReadNpyHeader(file);
    const uint64_t bytes = file.size() - shape.begin;
    if (bytes / sizeof(Feature) < shape.rows) {
        throw Failure("is cut short");
    }
    if (bytes != shape.rows * sizeof(Feature)) {
        throw Failure("has more bytes than its " + std::to_string(shape.rows) + " rows");
    }
    std::vector<Feature> features(static_cast<size_t>(shape.rows));
    file.Read(shape.begin, features.data(), features.size() * sizeof(Feature));
    CheckFeatures(features);
    return features;
}

} // namespace

ImportedEntries ImportCsv(const std::string& path) {
    return Naming(path, [&path] {
        const InputFile file(path, kLongestImport);
        ImportedEntries entries;
        bool hasHeadings = false;
        ReadLines(file, [&](const std::string& text, size_t line) {
            if (line == 1) {
                hasHeadings = text.starts_with("name,f0,f1,");
                return;
            }
            if (!hasHeadings) {
                return;
            }
            const std::vector<std::string> fields = FieldsOf(text, line);
            CheckName(fields[0], line);
            entries.names.push_back(fields[0]);
            entries.features.push_back(FeatureOf(fields, line));
        });
        if (!hasHeadings) {
            throw Failure("has no line of headings name,f0,f1 and so on");
        }
        CheckFeatures(entries.features);
        return entries;
    });
}

ImportedEntries ImportNpy(const std::string& path, const std::string& namesPath) {
    ImportedEntries entries;
    entries.features = Naming(path, [&path] { return ReadNpy(path); });
    Naming(namesPath, [&] {
        entries.names = ReadNames(namesPath);
        if (entries.names.size() != entries.features.size()) {
            throw Failure("has " + std::to_string(entries.names.size()) + " names for " +
                          std::to_string(entries.features.size()) +
                          (entries.features.size() == 1 ? " feature" : " features"));
        }
    });
    return entries;
}

} // namespace kova_cli
