// SPDX-License-Identifier: MIT
//
// The tables that others write: lists of pairs and groups that `kova-fr eval` reads, and features and names
// that `kova-fr gallery --import` reads. What is taken fits together: pairs name pictures that are there,
// everybody has a picture, each entry is a feature with a name.
#include <set>
#include <string_view>

#include "evaluation/eval_input.h"
#include "evaluation/grouping.h"
#include "files/failure.h"
#include "gallery/formats.h"
#include "gallery/gallery.h"
#include "gallery/importing.h"
#include "memory_file.h"
#include "require.h"

namespace {

void Check(const kova_cli::EvalInput& input) {
    using orvo_fuzz::Require;
    Require(input.pairs && !input.pairs->empty(), "a list has pairs");
    Require(input.person.size() == input.pictures.size(), "each picture shows somebody");
    std::set<std::pair<uint32_t, uint32_t>> known;
    for (const auto& pair : *input.pairs) {
        Require(pair.first < input.pictures.size() && pair.second < input.pictures.size(),
                "a pair's pictures are there");
        Require(pair.first != pair.second, "a picture is not compared with itself");
        Require(known.insert(std::minmax(pair.first, pair.second)).second, "a pair is there once");
    }
    std::set<uint32_t> people(input.person.begin(), input.person.end());
    Require(people.size() == input.people && *people.rbegin() + 1 == input.people,
            "people are numbered without gaps");
}

// Every third picture could not be read.
void Compare(const kova_cli::EvalInput& input) {
    std::vector<std::optional<kova_statistics::Feature>> features(input.pictures.size());
    for (size_t i = 0; i < features.size(); ++i) {
        if (i % 3 != 2) {
            features[i].emplace();
        }
    }
    const auto comparisons = kova_cli::MakeComparisons(input, features);
    orvo_fuzz::Require(comparisons.person.size() == comparisons.features.size(),
                       "each feature is somebody's");
    for (const auto& pair : *comparisons.pairs) {
        orvo_fuzz::Require(
            pair.first < comparisons.features.size() && pair.second < comparisons.features.size(),
            "a comparison's features are there");
    }
}

void CheckGroups(const kova_cli::Grouping& grouping, size_t count) {
    using orvo_fuzz::Require;
    Require(grouping.of.size() == count, "each has a group or none");
    for (const uint32_t group : grouping.of) {
        Require(group == kova_cli::kNoGroup || group < grouping.names.size(), "groups are named");
    }
}

void ReadPairs(const std::string& path, const std::string& column) {
    const kova_cli::EvalInput input = kova_cli::ReadPairs(path, column);
    Check(input);
    Compare(input);
    if (!column.empty()) {
        CheckGroups(input.grouping, input.pairs->size());
    }
}

void ReadGroups(const std::string& path) {
    kova_cli::EvalInput input;
    input.pictures = {"people/ada/1.png", "people/ben/1.png"};
    input.person = {0, 1};
    input.people = 2;
    input.names = {"ada", "ben"};
    CheckGroups(kova_cli::ReadGroups(path, "g", "people", input), input.pictures.size());
}

void CheckEntries(const kova_cli::ImportedEntries& entries) {
    using orvo_fuzz::Require;
    Require(entries.names.size() == entries.features.size(), "each entry has a name");
    for (const std::string& name : entries.names) {
        Require(kova_cli::WrongWithName(name).empty(), "names are what enroll takes");
    }
    for (const kova_cli::Feature& feature : entries.features) {
        Require(kova_cli::IsFeature(feature.data()), "each entry is a feature");
    }
}

void Write(const orvo_fuzz::MemoryFile& file, const std::string& bytes) {
    file.Write({reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()});
}

// An array with one feature, as NumPy writes it.
std::string OneRow() {
    std::string text = "{'descr': '<f4', 'fortran_order': False, 'shape': (1, 128), }";
    text.append(117 - text.size(), ' ').append(1, '\n');
    kova_cli::Feature feature = {1};
    return std::string("\x93NUMPY\x01\x00\x76\x00", 10) + text +
           std::string(reinterpret_cast<const char*>(feature.data()), sizeof feature);
}

// Whatever refuses says so in one line.
template <typename Step>
void Try(const Step& step) {
    try {
        step();
    } catch (const kova_cli::Failure& failure) {
        orvo_fuzz::Require(std::string_view(failure.what()).find('\n') == std::string_view::npos,
                           "a message is one line");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const orvo_fuzz::MemoryFile file;
    static const orvo_fuzz::MemoryFile names;
    static const orvo_fuzz::MemoryFile array;
    file.Write({data, size});
    Write(names, "name\na\n");
    Write(array, OneRow());
    const std::string path = file.path();
    Try([&] { ReadPairs(path, ""); });
    Try([&] { ReadPairs(path, "g"); });
    Try([&] { ReadGroups(path); });
    Try([&] { CheckEntries(kova_cli::ImportCsv(path)); });
    Try([&] { CheckEntries(kova_cli::ImportNpy(path, names.path())); });
    Try([&] { CheckEntries(kova_cli::ImportNpy(array.path(), path)); });
    return 0;
}
