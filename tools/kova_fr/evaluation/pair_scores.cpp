// SPDX-License-Identifier: MIT
#include "evaluation/pair_scores.h"

#include <algorithm>
#include <charconv>

#include "files/csv.h"
#include "files/staged_file.h"

namespace kova_cli {
namespace {

using kova_statistics::Comparisons;

float ScoreOf(const Comparisons& comparisons, uint32_t first, uint32_t second) {
    if (comparisons.score) {
        return comparisons.score(first, second);
    }
    constexpr size_t kBytes = sizeof(kova_statistics::Feature);
    return OrvoFrGetDistance(comparisons.features[first].data(), kBytes,
                             comparisons.features[second].data(), kBytes);
}

// Keeps the first `most` in order; of equal ones those that came first.
template <typename IsWorse>
void Keep(std::vector<PairScore>& worst, size_t most, const PairScore& pair,
          const IsWorse& isWorse) {
    const auto place = std::upper_bound(worst.begin(), worst.end(), pair, isWorse);
    if (static_cast<size_t>(place - worst.begin()) < most) {
        worst.insert(place, pair);
        worst.resize(std::min(worst.size(), most));
    }
}

} // namespace

void ForEachPair(const Comparisons& comparisons,
                 const std::function<void(const PairScore&)>& take) {
    const auto takePair = [&](uint32_t first, uint32_t second) {
        take({first, second, comparisons.person[first] == comparisons.person[second],
              ScoreOf(comparisons, first, second)});
    };
    if (comparisons.pairs) {
        for (const kova_statistics::Pair& pair : *comparisons.pairs) {
            takePair(pair.first, pair.second);
        }
        return;
    }
    for (uint32_t first = 0; first < comparisons.features.size(); ++first) {
        for (uint32_t second = first + 1; second < comparisons.features.size(); ++second) {
            takePair(first, second);
        }
    }
}

WorstPairs FindWorstPairs(const Comparisons& comparisons, size_t ofEach) {
    WorstPairs worst;
    ForEachPair(comparisons, [&](const PairScore& pair) {
        if (pair.isSame) {
            Keep(worst.same, ofEach, pair,
                 [](const PairScore& a, const PairScore& b) { return a.score < b.score; });
        } else {
            Keep(worst.different, ofEach, pair,
                 [](const PairScore& a, const PairScore& b) { return a.score > b.score; });
        }
    });
    return worst;
}

void WritePairScores(const Comparisons& comparisons, const std::vector<std::string>& names,
                     const std::string& path) {
    constexpr size_t kPiece = size_t{1} << 20;
    StagedFile file(path, true, true);
    std::string lines = "first,second,same,score\n";
    const auto write = [&] {
        file.Write({reinterpret_cast<const uint8_t*>(lines.data()), lines.size()});
        lines.clear();
    };
    ForEachPair(comparisons, [&](const PairScore& pair) {
        char digits[32];
        const std::to_chars_result end = std::to_chars(digits, digits + sizeof digits, pair.score);
        lines += CsvField(names[pair.first]) + "," + CsvField(names[pair.second]) +
                 (pair.isSame ? ",1," : ",0,");
        lines.append(digits, end.ptr).append(1, '\n');
        if (lines.size() >= kPiece) {
            write();
        }
    });
    write();
    file.Finish();
    file.MoveToPlace();
}

} // namespace kova_cli
