// SPDX-License-Identifier: MIT
#include "gallery_files.h"

#include <openssl/sha.h>

#include <algorithm>
#include <cmath>
#include <cstring>

#include "support/random.h"

namespace kova_fr_test {
namespace {

constexpr Sums kFirst = {~0u, ~0u, ~0u, ~0u};
constexpr size_t kChecked = 80;   // bytes before the header's checksum
constexpr size_t kOldDigest = 32; // bytes at the end of version 1

std::string Number(uint64_t value, size_t bytes) {
    std::string text;
    for (size_t i = 0; i < bytes; ++i) {
        text += static_cast<char>(value >> (8 * i));
    }
    return text;
}

std::string Stored(const Sums& sums) {
    std::string text;
    for (const uint32_t sum : sums) {
        text += Number(sum, 4);
    }
    return text;
}

std::string Stored(const Feature& feature) {
    return {reinterpret_cast<const char*>(feature.data()), sizeof feature};
}

std::string FeaturesAndNames(const Entries& entries, size_t first, size_t count,
                             size_t& nameBytes) {
    std::string features;
    std::string names;
    for (size_t i = first; i < first + count; ++i) {
        features += Stored(entries.features[i]);
        names += Number(entries.names[i].size(), 2) + entries.names[i];
    }
    nameBytes = names.size();
    return features + names;
}

} // namespace

Sums PlainChecksum(const Sums& before, const std::string& bytes) {
    std::string filled = bytes;
    filled.resize((bytes.size() + 31) / 32 * 32);
    Sums sums = before;
    for (size_t i = 0; i < filled.size(); ++i) {
        uint32_t& sum = sums[i / 8 % 4];
        sum ^= static_cast<uint8_t>(filled[i]);
        for (int bit = 0; bit < 8; ++bit) {
            sum = (sum & 1) != 0 ? sum >> 1 ^ 0x82f63b78u : sum >> 1;
        }
    }
    return sums;
}

Entries RandomEntries(size_t count, uint64_t seed) {
    orvo_test::Random random(seed);
    Entries entries;
    for (size_t i = 0; i < count; ++i) {
        Feature feature;
        double squares = 0;
        for (float& value : feature) {
            value = static_cast<float>(random.Between(-1000, 1000));
            squares += static_cast<double>(value) * static_cast<double>(value);
        }
        for (float& value : feature) {
            value = static_cast<float>(value / std::sqrt(squares));
        }
        entries.features.push_back(feature);
        entries.names.push_back("name " + std::to_string(i));
    }
    return entries;
}

std::vector<FileBlock> BlocksOf(const Entries& entries, size_t blockEntries) {
    std::vector<FileBlock> blocks;
    for (size_t first = 0; first < entries.names.size(); first += blockEntries) {
        const size_t count = std::min(blockEntries, entries.names.size() - first);
        size_t nameBytes = 0;
        std::string content = FeaturesAndNames(entries, first, count, nameBytes);
        blocks.push_back({first, static_cast<uint32_t>(count), static_cast<uint32_t>(nameBytes),
                          std::move(content)});
    }
    return blocks;
}

std::string Version2File(const std::string& models, const std::vector<FileBlock>& blocks,
                         uint64_t count) {
    const std::string begin = "KFRGALRY" + Number(2, 4) + Number(128, 4) + models;
    Sums last = PlainChecksum(kFirst, begin);
    std::string all;
    for (const FileBlock& block : blocks) {
        const std::string bytes = Number(block.firstEntry, 8) + Number(block.count, 4) +
                                  Number(block.nameBytes, 4) + block.content;
        last = PlainChecksum(last, bytes);
        all += bytes + Stored(last);
    }
    std::string file = begin + Number(count, 8) + Number(kChecked + sizeof last + all.size(), 8) +
                       Stored(last) + Stored(kFirst) + all;
    SealVersion2(file);
    return file;
}

void SealVersion2(std::string& file) {
    file.replace(kChecked, sizeof(Sums), Stored(PlainChecksum(kFirst, file.substr(0, kChecked))));
}

std::string Version1File(const std::string& models, const Entries& entries) {
    size_t nameBytes = 0;
    std::string file = "KFRGALRY" + Number(1, 4) + Number(128, 4) +
                       Number(entries.names.size(), 8) + models +
                       FeaturesAndNames(entries, 0, entries.names.size(), nameBytes) +
                       std::string(kOldDigest, '\0');
    SealVersion1(file);
    return file;
}

void SealVersion1(std::string& file) {
    auto* bytes = reinterpret_cast<uint8_t*>(file.data());
    SHA256(bytes, file.size() - kOldDigest, bytes + file.size() - kOldDigest);
}

} // namespace kova_fr_test
