// SPDX-License-Identifier: MIT
#include "evaluation/statistics/figures.h"

#include <algorithm>
#include <cmath>

namespace kova_statistics {
namespace {

constexpr double kWantedRates[] = {1e-1, 1e-2, 1e-3, 1e-4};
constexpr int kTableFrom = 0; // thresholds in ten-thousandths
constexpr int kTableTo = 9500;
constexpr int kTableStep = 500;
constexpr int kCurvePointsPerDecade = 25;
constexpr double kEnoughErrors = 30;

std::vector<size_t> TableThresholds() {
    std::vector<size_t> ranks;
    for (int steps = kTableFrom; steps <= kTableTo; steps += kTableStep) {
        ranks.push_back(RankOfSteps(steps));
    }
    return ranks;
}

std::vector<double> CurveRates(const Acceptance& acceptance) {
    std::vector<double> rates;
    if (!acceptance.HasBoth()) {
        return rates;
    }
    const double least = 1 / static_cast<double>(acceptance.DifferentPairs());
    for (int i = 0; i == 0 || rates.back() > least; ++i) {
        rates.push_back(std::pow(10, -static_cast<double>(i) / kCurvePointsPerDecade));
    }
    rates.back() = least;
    return rates;
}

// People who were compared with themselves, and couples of people who were compared.
struct Trials {
    uint64_t people = 0;
    uint64_t couples = 0;
};

Trials CountTrials(const std::vector<ScoredPair>& drawn) {
    std::vector<std::pair<uint32_t, uint32_t>> couples;
    couples.reserve(drawn.size());
    for (const ScoredPair& pair : drawn) {
        couples.emplace_back(std::minmax(pair.firstPerson, pair.secondPerson));
    }
    std::sort(couples.begin(), couples.end());
    couples.erase(std::unique(couples.begin(), couples.end()), couples.end());
    Trials trials;
    for (const auto& [first, second] : couples) {
        ++(first == second ? trials.people : trials.couples);
    }
    return trials;
}

Rate MakeRate(uint64_t count, uint64_t total, uint64_t trials,
              const std::optional<Interval>& redrawn) {
    if (count == 0 || count == total) {
        return {count, total, WilsonInterval(count == 0 ? 0 : trials, trials)};
    }
    const Interval independent = WilsonInterval(count, total);
    return {count, total, redrawn ? Span(*redrawn, independent) : independent};
}

ErrorsAt Errors(const Acceptance& acceptance, size_t rank, const Trials& trials,
                const std::optional<Interval>& falseAccepts,
                const std::optional<Interval>& falseRejects) {
    ErrorsAt errors;
    errors.rank = rank;
    if (acceptance.DifferentPairs() > 0) {
        errors.falseAccepts = MakeRate(acceptance.AcceptedDifferent(rank),
                                       acceptance.DifferentPairs(), trials.couples, falseAccepts);
    }
    if (acceptance.SamePairs() > 0) {
        errors.falseRejects = MakeRate(acceptance.SamePairs() - acceptance.AcceptedSame(rank),
                                       acceptance.SamePairs(), trials.people, falseRejects);
    }
    return errors;
}

// One person can only be drawn again.
uint32_t Rounds(uint32_t people, uint32_t rounds) { return people >= 2 ? rounds : 0; }

// At all thresholds that people were redrawn for.
std::vector<ErrorsAt> AllErrors(const Scores& scores, const Acceptance& acceptance,
                                const Bootstrap& bootstrap, const Spread& spread) {
    const Trials trials = CountTrials(scores.drawn);
    std::vector<ErrorsAt> errors;
    for (size_t i = 0; i < bootstrap.thresholds.size(); ++i) {
        errors.push_back(Errors(acceptance, bootstrap.thresholds[i], trials, spread.falseAccepts[i],
                                spread.falseRejects[i]));
    }
    return errors;
}

std::optional<Figure> MakeFigure(const std::optional<double>& value,
                                 const std::optional<Interval>& interval) {
    return value ? std::optional(Figure{*value, interval}) : std::nullopt;
}

std::vector<Recommendation> Wanted(const Acceptance& acceptance) {
    std::vector<Recommendation> wanted;
    for (const double rate : kWantedRates) {
        Recommendation one;
        one.wanted = rate;
        one.fewestPairs = FewestPairsFor(rate);
        if (acceptance.DifferentPairs() >= one.fewestPairs) {
            one.errors = ErrorsAt{};
            one.errors->rank = *LoosestThreshold(acceptance, rate);
            one.isRough = static_cast<double>(acceptance.DifferentPairs()) < kEnoughErrors / rate;
        }
        wanted.push_back(one);
    }
    return wanted;
}

} // namespace

Figures ComputeFigures(const Scores& scores, uint32_t people, uint32_t rounds, uint64_t seed,
                       const std::function<void(size_t, size_t)>& progress) {
    const Acceptance acceptance(scores.all);
    Figures figures;
    figures.samePairs = acceptance.SamePairs();
    figures.differentPairs = acceptance.DifferentPairs();
    figures.recommendations = Wanted(acceptance);

    Bootstrap bootstrap;
    bootstrap.rounds = Rounds(people, rounds);
    bootstrap.seed = seed;
    bootstrap.rates = CurveRates(acceptance);
    bootstrap.thresholds = TableThresholds();
    const size_t tableSize = bootstrap.thresholds.size();
    for (const Recommendation& one : figures.recommendations) {
        bootstrap.thresholds.push_back(one.errors ? one.errors->rank : 0);
    }
    const Spread spread = BootstrapPeople(scores, people, bootstrap, progress);
    const std::vector<ErrorsAt> errors = AllErrors(scores, acceptance, bootstrap, spread);
    for (size_t i = 0; i < errors.size(); ++i) {
        if (i < tableSize) {
            figures.table.push_back(errors[i]);
        } else if (Recommendation& one = figures.recommendations[i - tableSize]; one.errors) {
            one.errors = errors[i];
        }
    }
    for (size_t i = 0; i < bootstrap.rates.size(); ++i) {
        const size_t rank = *LoosestThreshold(acceptance, bootstrap.rates[i]);
        figures.curve.push_back(
            {bootstrap.rates[i], 1 - acceptance.FalseRejects(rank), spread.trueAccepts[i]});
    }
    figures.equalErrorRate = MakeFigure(EqualErrorRate(acceptance), spread.equalErrorRate);
    figures.area = MakeFigure(AreaUnderCurve(acceptance), spread.area);
    figures.accuracy = VerificationAccuracy(scores.folds);
    // One person alone cannot be mistaken for another.
    if (people >= 2) {
        figures.rank1 = MakeFigure(Rank1(scores.found), spread.rank1);
    }
    return figures;
}

std::vector<ErrorsAt> ErrorsAtRanks(const Scores& scores, uint32_t people,
                                    const std::vector<size_t>& ranks, uint32_t rounds,
                                    uint64_t seed) {
    const Bootstrap bootstrap{Rounds(people, rounds), seed, ranks, {}};
    return AllErrors(scores, Acceptance(scores.all), bootstrap,
                     BootstrapPeople(scores, people, bootstrap, [](size_t, size_t) {}));
}

} // namespace kova_statistics
