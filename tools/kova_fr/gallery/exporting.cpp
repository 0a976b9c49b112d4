// SPDX-License-Identifier: MIT
#include "gallery/exporting.h"

#include <charconv>
#include <filesystem>

#include "files/csv.h"
#include "files/failure.h"
#include "files/staged_file.h"
#include "gallery/formats.h"

namespace kova_cli {
namespace {

Bytes BytesOf(std::string_view text) {
    return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

StagedFile NewFile(const std::string& path, bool mayReplace) {
    std::error_code error;
    const std::filesystem::file_status status = std::filesystem::status(path, error);
    if (std::filesystem::exists(status) && !std::filesystem::is_regular_file(status)) {
        throw Failure(path + ": is no file; choose another name");
    }
    return {path, mayReplace, true};
}

std::string CsvHeadings() {
    std::string line = "name";
    for (size_t i = 0; i < kFeatureLength; ++i) {
        line += ",f" + std::to_string(i);
    }
    return line + "\n";
}

void AppendNumbers(std::string& line, const float* feature) {
    for (size_t i = 0; i < kFeatureLength; ++i) {
        char digits[32];
        const std::to_chars_result end = std::to_chars(digits, digits + sizeof digits, feature[i]);
        line.append(1, ',').append(digits, end.ptr);
    }
}

// The header is a multiple of 64 bytes long, so that the numbers lie well in memory.
std::string NpyHeader(uint64_t rows) {
    constexpr size_t kPrefix = 10;
    std::string text = "{'descr': '<f4', 'fortran_order': False, 'shape': (" +
                       std::to_string(rows) + ", " + std::to_string(kFeatureLength) + "), }";
    text.append(63 - (kPrefix + text.size()) % 64, ' ').append(1, '\n');
    return std::string("\x93NUMPY\x01\x00", 8) + static_cast<char>(text.size() & 0xFF) +
           static_cast<char>(text.size() >> 8) + text;
}

} // namespace

uint64_t ExportCsv(const GalleryFile& gallery, const std::string& path) {
    StagedFile file = NewFile(path, true);
    file.Write(BytesOf(CsvHeadings()));
    gallery.Read([&file](const GalleryBlock& block) {
        std::string lines;
        for (size_t i = 0; i < block.names.size(); ++i) {
            lines += CsvField(block.names[i]);
            AppendNumbers(lines, block.features + i * kFeatureLength);
            lines += "\n";
        }
        file.Write(BytesOf(lines));
    });
    file.Finish();
    file.MoveToPlace();
    return gallery.count();
}

uint64_t ExportNpy(const GalleryFile& gallery, const std::string& path,
                   const std::string& namesPath) {
    StagedFile array = NewFile(path, true);
    StagedFile names = NewFile(namesPath, false);
    array.Write(BytesOf(NpyHeader(gallery.count())));
    names.Write(BytesOf("name\n"));
    gallery.Read([&](const GalleryBlock& block) {
        array.Write({reinterpret_cast<const uint8_t*>(block.features),
                     block.names.size() * sizeof(Feature)});
        std::string lines;
        for (const std::string_view name : block.names) {
            lines += CsvField(name) + "\n";
        }
        names.Write(BytesOf(lines));
    });
    array.Finish();
    names.Finish();
    names.MoveToPlace();
    array.MoveToPlace();
    return gallery.count();
}

std::string NamesPath(const std::string& npyPath) {
    return std::filesystem::path(npyPath).replace_extension(".names.csv").string();
}

} // namespace kova_cli
