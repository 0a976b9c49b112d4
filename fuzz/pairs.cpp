// SPDX-License-Identifier: MIT
//
// The lists of pairs that `kova-fr eval` reads. What is taken fits together: pairs name pictures that are
// there, and everybody has a picture.
#include "evaluation/eval_input.h"

#include <set>
#include <string_view>

#include "files/failure.h"
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

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const orvo_fuzz::MemoryFile file;
    file.Write({data, size});
    try {
        const kova_cli::EvalInput input = kova_cli::ReadPairs(file.path());
        Check(input);
        Compare(input);
    } catch (const kova_cli::Failure& failure) {
        orvo_fuzz::Require(std::string_view(failure.what()).find('\n') == std::string_view::npos,
                           "a message is one line");
    }
    return 0;
}
