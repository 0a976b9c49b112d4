// SPDX-License-Identifier: MIT
#include "evaluation/statistics/bootstrap.h"

#include "evaluation/statistics/random.h"

namespace kova_statistics {
namespace {

using Weights = std::vector<uint32_t>; // how often each person was drawn

Weights Draw(Random& random, uint32_t people) {
    Weights weights(people);
    for (uint32_t i = 0; i < people; ++i) {
        ++weights[DrawBelow(random, people)];
    }
    return weights;
}

Histogram Count(const std::vector<ScoredPair>& pairs, const Weights& weights) {
    Histogram histogram;
    for (const ScoredPair& pair : pairs) {
        const bool isSame = pair.firstPerson == pair.secondPerson;
        const uint64_t first = weights[pair.firstPerson];
        histogram.Add(isSame, pair.rank, isSame ? first : first * weights[pair.secondPerson]);
    }
    return histogram;
}

std::optional<double> WeightedRank1(const std::vector<Found>& found, const Weights& weights) {
    double asked = 0;
    double right = 0;
    for (size_t person = 0; person < found.size(); ++person) {
        asked += found[person].asked * weights[person];
        right += found[person].right * weights[person];
    }
    return asked > 0 ? std::optional(right / asked) : std::nullopt;
}

// The results of one quantity over the rounds.
class Series {
  public:
    void Add(const std::optional<double>& value) {
        if (value) {
            values_.push_back(*value);
        }
    }
    std::optional<Interval> Result() const {
        return values_.empty() ? std::nullopt : std::optional(QuantileInterval(values_));
    }

  private:
    std::vector<double> values_;
};

struct AllSeries {
    Series equalErrorRate;
    Series area;
    Series rank1;
    std::vector<Series> falseAccepts;
    std::vector<Series> falseRejects;
    std::vector<Series> trueAccepts;

    explicit AllSeries(const Bootstrap& bootstrap)
        : falseAccepts(bootstrap.thresholds.size()),
          falseRejects(bootstrap.thresholds.size()),
          trueAccepts(bootstrap.rates.size()) {}

    void Add(const Acceptance& acceptance, const Bootstrap& bootstrap) {
        equalErrorRate.Add(EqualErrorRate(acceptance));
        area.Add(AreaUnderCurve(acceptance));
        for (size_t i = 0; i < bootstrap.thresholds.size(); ++i) {
            if (acceptance.DifferentPairs() > 0) {
                falseAccepts[i].Add(acceptance.FalseAccepts(bootstrap.thresholds[i]));
            }
            if (acceptance.SamePairs() > 0) {
                falseRejects[i].Add(acceptance.FalseRejects(bootstrap.thresholds[i]));
            }
        }
        for (size_t i = 0; acceptance.HasBoth() && i < bootstrap.rates.size(); ++i) {
            const size_t rank = *LoosestThreshold(acceptance, bootstrap.rates[i]);
            trueAccepts[i].Add(1 - acceptance.FalseRejects(rank));
        }
    }
};

std::vector<std::optional<Interval>> Results(const std::vector<Series>& series) {
    std::vector<std::optional<Interval>> results;
    results.reserve(series.size());
    for (const Series& one : series) {
        results.push_back(one.Result());
    }
    return results;
}

} // namespace

std::optional<double> Rank1(const std::vector<Found>& found) {
    return WeightedRank1(found, Weights(found.size(), 1));
}

Spread BootstrapPeople(const Scores& scores, uint32_t people, const Bootstrap& bootstrap,
                       const std::function<void(size_t, size_t)>& progress) {
    AllSeries series(bootstrap);
    Random random(bootstrap.seed);
    for (uint32_t round = 0; round < bootstrap.rounds; ++round) {
        progress(round, bootstrap.rounds);
        const Weights weights = Draw(random, people);
        series.Add(Acceptance(Count(scores.drawn, weights)), bootstrap);
        series.rank1.Add(WeightedRank1(scores.found, weights));
    }
    return {series.equalErrorRate.Result(), series.area.Result(),
            series.rank1.Result(),          Results(series.falseAccepts),
            Results(series.falseRejects),   Results(series.trueAccepts)};
}

} // namespace kova_statistics
