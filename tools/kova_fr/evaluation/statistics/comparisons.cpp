// SPDX-License-Identifier: MIT
#include "evaluation/statistics/comparisons.h"

#include <algorithm>
#include <numeric>

#include "evaluation/statistics/random.h"
#include "evaluation/statistics/search_rounds.h"
#include "search/distances.h"

namespace kova_statistics {
namespace {

// How often the progress is told; a row of pairs may be done in a microsecond.
constexpr size_t kRowsBetweenReports = 64;

// A random fold for each person, all folds of the same number of people but for one.
std::vector<uint32_t> FoldOfPeople(uint32_t people, uint32_t folds, uint64_t seed) {
    std::vector<uint32_t> order(people);
    std::iota(order.begin(), order.end(), 0u);
    Random random(seed);
    for (uint32_t i = people; i > 1; --i) {
        std::swap(order[i - 1], order[DrawBelow(random, i)]);
    }
    std::vector<uint32_t> fold(people);
    for (uint32_t i = 0; i < people; ++i) {
        fold[order[i]] = i % folds;
    }
    return fold;
}

uint64_t Couples(uint64_t count) { return count < 2 ? 0 : count * (count - 1) / 2; }

struct PairCounts {
    uint64_t same = 0;
    uint64_t different = 0;
};

PairCounts CountPairs(const Comparisons& comparisons) {
    PairCounts counts;
    if (comparisons.pairs) {
        for (const Pair& pair : *comparisons.pairs) {
            ++(comparisons.person[pair.first] == comparisons.person[pair.second]
                   ? counts.same
                   : counts.different);
        }
        return counts;
    }
    std::vector<uint64_t> pictures(comparisons.people);
    for (const uint32_t person : comparisons.person) {
        ++pictures[person];
    }
    for (const uint64_t own : pictures) {
        counts.same += Couples(own);
    }
    counts.different = Couples(comparisons.person.size()) - counts.same;
    return counts;
}

// Draws about `most` of `count` pairs evenly, or all if they are not more.
class Sampler {
  public:
    Sampler(uint64_t most, uint64_t count)
        : below_(count <= most ? kAll
                               : static_cast<uint64_t>(static_cast<double>(most) /
                                                       static_cast<double>(count) * 0x1p64)) {}
    bool Takes(Random& random) const { return below_ == kAll || random() < below_; }

  private:
    static constexpr uint64_t kAll = ~uint64_t{0};
    uint64_t below_;
};

class Scorer {
  public:
    Scorer(const Comparisons& comparisons, const ScoringLimits& limits, Scores& scores,
           const PairCounts& counts)
        : comparisons_(comparisons),
          scores_(scores),
          mostCopies_(limits.mostCopies),
          random_(limits.seed),
          same_(limits.mostDrawn, counts.same),
          different_(limits.mostDrawn, counts.different) {
        // Each fold needs different people.
        const uint32_t folds = std::min(limits.folds, comparisons.people / 2);
        if (folds >= 2) {
            fold_ = FoldOfPeople(comparisons.people, folds, limits.seed);
            scores_.folds.resize(folds);
        }
        if (!comparisons.pairs) {
            search_.emplace(comparisons, limits.searchRounds);
        }
    }

    void Add(uint32_t first, uint32_t second, float score) {
        const size_t rank = RankOf(score);
        const uint32_t firstPerson = comparisons_.person[first];
        const uint32_t secondPerson = comparisons_.person[second];
        const bool isSame = firstPerson == secondPerson;
        scores_.all.Add(isSame, rank);
        if (!fold_.empty() && fold_[firstPerson] == fold_[secondPerson]) {
            scores_.folds[fold_[firstPerson]].Add(isSame, rank);
        }
        if ((isSame ? same_ : different_).Takes(random_)) {
            scores_.drawn.push_back({firstPerson, secondPerson, static_cast<uint32_t>(rank)});
        }
        if (search_) {
            search_->Add(first, second, score);
        }
        if (rank >= kNearlyOne && comparisons_.features[first] == comparisons_.features[second]) {
            ++(isSame ? scores_.copiesOfOne : scores_.copiesOfTwo);
            if (scores_.firstCopies.size() < mostCopies_) {
                scores_.firstCopies.push_back({first, second});
            }
        }
    }

    void Finish() {
        if (search_) {
            scores_.found = search_->Result();
        }
    }

  private:
    static constexpr size_t kNearlyOne = RankOfSteps(9990);

    const Comparisons& comparisons_;
    Scores& scores_;
    size_t mostCopies_;
    Random random_;
    Sampler same_;
    Sampler different_;
    std::vector<uint32_t> fold_;
    std::optional<SearchRounds> search_;
};

void ScoreListed(const Comparisons& comparisons, Scorer& scorer) {
    for (const Pair& pair : *comparisons.pairs) {
        const Feature& a = comparisons.features[pair.first];
        const Feature& b = comparisons.features[pair.second];
        scorer.Add(pair.first, pair.second,
                   comparisons.score ? comparisons.score(pair.first, pair.second)
                                     : OrvoFrGetDistance(a.data(), sizeof a, b.data(), sizeof b));
    }
}

// Each picture with all before it.
void ScoreAll(const Comparisons& comparisons, Scorer& scorer,
              const std::function<void(size_t, size_t)>& progress) {
    const auto pictures = static_cast<uint32_t>(comparisons.features.size());
    const auto* values = reinterpret_cast<const float*>(comparisons.features.data());
    orvo::Features before = orvo::LookThrough(values, pictures);
    std::vector<float> scores(pictures);
    for (uint32_t second = 0; second < pictures; ++second) {
        before.count = second;
        if (!comparisons.score) {
            orvo::Distances(comparisons.features[second].data(), before, scores.data());
        }
        for (uint32_t first = 0; first < second; ++first) {
            scorer.Add(first, second,
                       comparisons.score ? comparisons.score(first, second) : scores[first]);
        }
        if (second % kRowsBetweenReports == 0) {
            progress(second, pictures);
        }
    }
}

} // namespace

Scores ScorePairs(const Comparisons& comparisons, const ScoringLimits& limits,
                  const std::function<void(size_t, size_t)>& progress) {
    Scores scores;
    Scorer scorer(comparisons, limits, scores, CountPairs(comparisons));
    if (comparisons.pairs) {
        ScoreListed(comparisons, scorer);
    } else {
        ScoreAll(comparisons, scorer, progress);
    }
    scorer.Finish();
    return scores;
}

} // namespace kova_statistics
