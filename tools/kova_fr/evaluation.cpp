// SPDX-License-Identifier: MIT
#include "evaluation.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>

namespace kova_cli {
namespace {

constexpr double kZ = 1.959964; // of a 95 % interval
constexpr uint32_t kFolds = 10;
constexpr uint32_t kRounds = 10;
constexpr uint64_t kFoldSeed = 1;

float DistanceOf(const Trial& trial, uint32_t a, uint32_t b) {
    return OrvoFrGetDistance(trial.features[a].data(), sizeof(Feature), trial.features[b].data(),
                             sizeof(Feature));
}

// use(a, b, isSame, distance) for all pairs.
template <typename Use>
void ForEachPair(const Trial& trial, const Use& use) {
    if (!trial.pairs.empty()) {
        for (const Pair& pair : trial.pairs) {
            use(pair.a, pair.b, pair.isSame, DistanceOf(trial, pair.a, pair.b));
        }
        return;
    }
    const auto count = static_cast<uint32_t>(trial.features.size());
    for (uint32_t a = 0; a < count; ++a) {
        for (uint32_t b = a + 1; b < count; ++b) {
            use(a, b, trial.person[a] == trial.person[b], DistanceOf(trial, a, b));
        }
    }
}

size_t CountFrom(const std::vector<float>& ascending, float threshold) {
    return static_cast<size_t>(ascending.end() -
                               std::lower_bound(ascending.begin(), ascending.end(), threshold));
}

double Share(size_t part, size_t whole) {
    return whole == 0 ? 0 : static_cast<double>(part) / static_cast<double>(whole);
}

Interval Wilson(double value, double trials) {
    const double z2 = kZ * kZ / trials;
    const double middle = (value + z2 / 2) / (1 + z2);
    const double half = kZ * std::sqrt(value * (1 - value) / trials + z2 / (4 * trials)) / (1 + z2);
    return {std::max(0.0, middle - half), std::min(1.0, middle + half)};
}

// Errors among the pairs of one kind, in all and by person; a pair of two people counts for both.
struct Tally {
    uint64_t pairs = 0, errors = 0;
    std::vector<uint64_t> pairsOf, errorsOf;

    explicit Tally(uint32_t people) : pairsOf(people), errorsOf(people) {}

    void Add(uint32_t first, uint32_t second, bool isError) {
        ++pairs;
        errors += isError ? 1 : 0;
        AddTo(first, isError);
        if (second != first) {
            AddTo(second, isError);
        }
    }

    void AddTo(uint32_t person, bool isError) {
        if (person < pairsOf.size()) {
            ++pairsOf[person];
            errorsOf[person] += isError ? 1 : 0;
        }
    }

    // The variance of the rate, by leaving out one person at a time.
    double Variance() const {
        std::vector<double> rates;
        for (size_t p = 0; p < pairsOf.size(); ++p) {
            if (pairs > pairsOf[p] && pairsOf[p] > 0) {
                rates.push_back(static_cast<double>(errors - errorsOf[p]) /
                                static_cast<double>(pairs - pairsOf[p]));
            }
        }
        const auto count = static_cast<double>(rates.size());
        double mean = 0, sum = 0;
        for (const double rate : rates) {
            mean += rate / count;
        }
        for (const double rate : rates) {
            sum += (rate - mean) * (rate - mean);
        }
        return rates.size() < 2 ? 0 : sum * (count - 1) / count;
    }

    // `clusters`: how many independent trials there are at least.
    Rate Result(double clusters) const {
        if (pairs == 0) {
            return {};
        }
        const double value = static_cast<double>(errors) / static_cast<double>(pairs);
        double trials = pairsOf.empty() ? static_cast<double>(pairs) : clusters;
        const double variance = Variance();
        if (errors > 0 && errors < pairs && variance > 0) {
            trials = value * (1 - value) / variance;
        }
        return {value, Wilson(value, std::clamp(trials, 1.0, static_cast<double>(pairs)))};
    }
};

// Thresholds at which the rates change: every distance that occurs, from the largest.
template <typename Use>
void ForEachThreshold(const Scores& scores, const Use& use) {
    auto same = scores.same.rbegin();
    auto different = scores.different.rbegin();
    while (same != scores.same.rend() || different != scores.different.rend()) {
        float threshold = -std::numeric_limits<float>::infinity();
        threshold = same != scores.same.rend() ? *same : threshold;
        threshold =
            different != scores.different.rend() ? std::max(threshold, *different) : threshold;
        while (same != scores.same.rend() && *same >= threshold) {
            ++same;
        }
        while (different != scores.different.rend() && *different >= threshold) {
            ++different;
        }
        use(threshold,
            Share(static_cast<size_t>(different - scores.different.rbegin()),
                  scores.different.size()),
            1 - Share(static_cast<size_t>(same - scores.same.rbegin()), scores.same.size()));
    }
}

// The threshold with the largest mean of both rates of right answers: midway between the distance
// that is the last to be accepted there and the next lower one.
float BestThreshold(const Scores& scores) {
    float best = 0;
    double least = 2;
    bool isBestBefore = false;
    ForEachThreshold(scores, [&](float threshold, double falseAccept, double falseReject) {
        if (isBestBefore) {
            best += (threshold - best) / 2;
        }
        isBestBefore = falseAccept + falseReject < least;
        if (isBestBefore) {
            least = falseAccept + falseReject;
            best = threshold;
        }
    });
    return best;
}

void Sort(Scores& scores) {
    std::sort(scores.same.begin(), scores.same.end());
    std::sort(scores.different.begin(), scores.different.end());
}

// The fold of each person, or of each pair of a list; the same on every machine.
std::vector<uint32_t> Folds(size_t count, uint32_t folds) {
    std::vector<uint32_t> fold(count);
    for (size_t i = 0; i < count; ++i) {
        fold[i] = static_cast<uint32_t>(i % folds);
    }
    std::mt19937_64 random(kFoldSeed);
    for (size_t i = count; i > 1; --i) {
        std::swap(fold[i - 1], fold[random() % i]);
    }
    return fold;
}

std::vector<Scores> ScoresOfFolds(const Trial& trial, uint32_t folds) {
    const bool isList = !trial.pairs.empty();
    const std::vector<uint32_t> fold = Folds(isList ? trial.pairs.size() : trial.people, folds);
    std::vector<Scores> parts(folds);
    size_t number = 0;
    ForEachPair(trial, [&](uint32_t a, uint32_t b, bool isSame, float distance) {
        const uint32_t first = isList ? fold[number] : fold[trial.person[a]];
        const uint32_t second = isList ? fold[number] : fold[trial.person[b]];
        ++number;
        if (first == second) {
            (isSame ? parts[first].same : parts[first].different).push_back(distance);
        }
    });
    for (Scores& part : parts) {
        Sort(part);
    }
    return parts;
}

Scores AllBut(const std::vector<Scores>& parts, size_t left) {
    Scores scores;
    for (size_t i = 0; i < parts.size(); ++i) {
        if (i != left) {
            scores.same.insert(scores.same.end(), parts[i].same.begin(), parts[i].same.end());
            scores.different.insert(scores.different.end(), parts[i].different.begin(),
                                    parts[i].different.end());
        }
    }
    Sort(scores);
    return scores;
}

std::vector<std::vector<uint32_t>> PicturesOfPeople(const Trial& trial) {
    std::vector<std::vector<uint32_t>> pictures(trial.people);
    for (uint32_t i = 0; i < trial.person.size(); ++i) {
        pictures[trial.person[i]].push_back(i);
    }
    return pictures;
}

} // namespace

Scores Compare(const Trial& trial) {
    Scores scores;
    ForEachPair(trial, [&scores](uint32_t, uint32_t, bool isSame, float distance) {
        (isSame ? scores.same : scores.different).push_back(distance);
    });
    Sort(scores);
    return scores;
}

double FalseAcceptRate(const Scores& scores, float threshold) {
    return Share(CountFrom(scores.different, threshold), scores.different.size());
}

double FalseRejectRate(const Scores& scores, float threshold) {
    return scores.same.empty() ? 0
                               : 1 - Share(CountFrom(scores.same, threshold), scores.same.size());
}

float ThresholdAt(const Scores& scores, double rate) {
    const std::vector<float>& ascending = scores.different;
    const auto allowed = static_cast<size_t>(rate * static_cast<double>(ascending.size()));
    if (ascending.empty() || allowed >= ascending.size()) {
        return -1;
    }
    const float refused = ascending[ascending.size() - 1 - allowed];
    const auto above = std::upper_bound(ascending.begin(), ascending.end(), refused);
    const float next = std::nextafter(refused, std::numeric_limits<float>::infinity());
    return above == ascending.end() ? next : std::max(next, refused + (*above - refused) / 2);
}

bool Supports(const Scores& scores, double rate) {
    return rate * static_cast<double>(scores.different.size()) >= 3;
}

std::vector<Operation> OperationsAt(const Trial& trial, const std::vector<float>& thresholds) {
    const uint32_t people = trial.pairs.empty() ? trial.people : 0;
    std::vector<Tally> accepts(thresholds.size(), Tally(people));
    std::vector<Tally> rejects = accepts;
    ForEachPair(trial, [&](uint32_t a, uint32_t b, bool isSame, float distance) {
        const uint32_t first = people == 0 ? 0 : trial.person[a];
        const uint32_t second = people == 0 ? 0 : trial.person[b];
        for (size_t i = 0; i < thresholds.size(); ++i) {
            const bool isAccepted = distance >= thresholds[i];
            (isSame ? rejects[i] : accepts[i]).Add(first, second, isAccepted != isSame);
        }
    });
    std::vector<Operation> operations;
    for (size_t i = 0; i < thresholds.size(); ++i) {
        const double pairsOfPeople = 0.5 * people * (people - 1.0);
        operations.push_back(
            {thresholds[i], accepts[i].Result(pairsOfPeople), rejects[i].Result(people)});
    }
    return operations;
}

double EqualErrorRate(const Scores& scores) {
    double lastAccept = 0, lastGap = -1, result = -1;
    ForEachThreshold(scores, [&](float, double falseAccept, double falseReject) {
        const double gap = falseAccept - falseReject;
        if (result < 0 && gap >= 0) {
            const double share = gap > lastGap ? -lastGap / (gap - lastGap) : 0;
            result = lastAccept + share * (falseAccept - lastAccept);
        }
        lastAccept = falseAccept;
        lastGap = gap;
    });
    return std::max(result, 0.0);
}

double AreaUnderCurve(const Scores& scores) {
    double area = 0, lastAccept = 0, lastReject = 1;
    ForEachThreshold(scores, [&](float, double falseAccept, double falseReject) {
        area += (falseAccept - lastAccept) * (1 - 0.5 * (falseReject + lastReject));
        lastAccept = falseAccept;
        lastReject = falseReject;
    });
    return area;
}

std::optional<double> VerificationAccuracy(const Trial& trial) {
    const size_t units = trial.pairs.empty() ? trial.people / 2 : trial.pairs.size() / 2;
    const auto folds = static_cast<uint32_t>(std::min<size_t>(kFolds, units));
    if (folds < 2) {
        return std::nullopt;
    }
    const std::vector<Scores> parts = ScoresOfFolds(trial, folds);
    double sum = 0;
    for (size_t i = 0; i < parts.size(); ++i) {
        if (parts[i].same.empty() || parts[i].different.empty()) {
            return std::nullopt;
        }
        const float threshold = BestThreshold(AllBut(parts, i));
        sum +=
            1 - 0.5 * (FalseAcceptRate(parts[i], threshold) + FalseRejectRate(parts[i], threshold));
    }
    return sum / folds;
}

std::optional<double> RankOne(const Trial& trial) {
    const std::vector<std::vector<uint32_t>> pictures = PicturesOfPeople(trial);
    std::vector<uint32_t> right(trial.features.size()), asked(trial.features.size());
    size_t most = 0;
    for (const auto& own : pictures) {
        most = std::max(most, own.size());
    }
    for (size_t round = 0; most >= 2 && round < std::min<size_t>(kRounds, most); ++round) {
        std::vector<uint32_t> enrolled;
        for (const auto& own : pictures) {
            enrolled.push_back(own[round % own.size()]);
        }
        for (uint32_t i = 0; i < trial.features.size(); ++i) {
            if (enrolled[trial.person[i]] == i) {
                continue;
            }
            uint32_t nearest = enrolled.front();
            float best = -2;
            for (const uint32_t candidate : enrolled) {
                const float distance = DistanceOf(trial, i, candidate);
                if (distance > best) {
                    best = distance;
                    nearest = candidate;
                }
            }
            ++asked[i];
            right[i] += trial.person[nearest] == trial.person[i] ? 1 : 0;
        }
    }
    double sum = 0;
    size_t count = 0;
    for (size_t i = 0; i < asked.size(); ++i) {
        if (asked[i] > 0) {
            sum += static_cast<double>(right[i]) / asked[i];
            ++count;
        }
    }
    return count == 0 ? std::nullopt : std::optional(sum / static_cast<double>(count));
}

std::vector<CurvePoint> Curve(const Scores& scores, size_t most) {
    std::vector<CurvePoint> all = {{0, 1}};
    // Points that lie closer than this to the last one cannot be told from it.
    const double step = 2.0 / static_cast<double>(most);
    ForEachThreshold(scores, [&](float, double falseAccept, double falseReject) {
        const CurvePoint& last = all.back();
        const bool isFar = last.falseReject - falseReject >= step ||
                           falseAccept >= last.falseAccept * (1 + 4 * step) + 1e-9;
        if (isFar) {
            all.push_back({falseAccept, falseReject});
        }
    });
    all.push_back({1, 0});
    return all;
}

} // namespace kova_cli
