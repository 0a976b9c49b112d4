// SPDX-License-Identifier: MIT
#include "gallery/search.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <set>
#include <unordered_map>

#include "search/distances.h"

namespace kova_cli {
namespace {

struct IsBetter {
    bool operator()(const Match& a, const Match& b) const {
        return a.score != b.score ? a.score > b.score : a.entry < b.entry;
    }
};

// The most alike names so far. A name that was pushed out comes back only by an entry that is better
// than what pushed it out, so that its earlier ones need not be remembered.
class BestNames {
  public:
    explicit BestNames(size_t most) : most_(most) {}

    // Entries come in their order, so of two that are equally alike the first is there already.
    void Offer(float score, float distance, size_t entry, std::string_view name) {
        if (score > bound_ && std::isfinite(score)) {
            Take(score, distance, entry, name);
        }
    }

    std::vector<Match> Ranked() const { return {ranked_.begin(), ranked_.end()}; }

  private:
    using Ranks = std::set<Match, IsBetter>;

    void Take(float score, float distance, size_t entry, std::string_view name) {
        if (const auto found = byName_.find(name); found == byName_.end()) {
            const auto rank = ranked_.insert({entry, distance, score, std::string(name)}).first;
            byName_.emplace(rank->name, rank);
        } else if (score > found->second->score) {
            auto node = ranked_.extract(found->second);
            node.value().distance = distance;
            node.value().score = score;
            node.value().entry = entry;
            found->second = ranked_.insert(std::move(node)).position;
        }
        if (ranked_.size() > most_) {
            const auto worst = std::prev(ranked_.end());
            byName_.erase(worst->name);
            ranked_.erase(worst);
        }
        if (ranked_.size() == most_) {
            bound_ = ranked_.rbegin()->score;
        }
    }

    size_t most_;
    float bound_ = -std::numeric_limits<float>::infinity(); // what is not better is of no interest
    Ranks ranked_;
    std::unordered_map<std::string_view, Ranks::iterator> byName_; // views of the ranks' own names
};

std::vector<std::vector<Match>> Ranked(const std::vector<BestNames>& best) {
    std::vector<std::vector<Match>> matches;
    matches.reserve(best.size());
    for (const BestNames& names : best) {
        matches.push_back(names.Ranked());
    }
    return matches;
}

} // namespace

std::vector<std::vector<Match>> Search(const GalleryFile& gallery,
                                       const std::vector<Feature>& features, size_t count) {
    std::vector<BestNames> best(features.size(), BestNames(count));
    std::vector<float> distances;
    gallery.Read([&](const GalleryBlock& block) {
        const orvo::Features others = orvo::LookThrough(block.features, block.names.size());
        distances.resize(others.count);
        for (size_t face = 0; face < features.size(); ++face) {
            orvo::Distances(features[face].data(), others, distances.data());
            for (size_t i = 0; i < others.count; ++i) {
                best[face].Offer(distances[i], distances[i], block.firstEntry + i, block.names[i]);
            }
        }
    });
    return Ranked(best);
}

std::vector<std::vector<Match>> Search(const GalleryFile& gallery,
                                       const std::vector<Feature>& features, size_t count,
                                       const Calibration& calibration) {
    const FaceCalibrator calibrated(calibration);
    std::vector<CalibratedFace> faces;
    for (const Feature& feature : features) {
        faces.push_back(calibrated(feature));
    }
    std::vector<BestNames> best(features.size(), BestNames(count));
    gallery.Read([&](const GalleryBlock& block) {
        for (size_t i = 0; i < block.names.size(); ++i) {
            Feature feature;
            std::copy_n(block.features + i * feature.size(), feature.size(), feature.begin());
            const CalibratedFace other = calibrated(feature);
            for (size_t face = 0; face < faces.size(); ++face) {
                const float distance = OrvoFrGetDistance(features[face].data(), sizeof(Feature),
                                                         feature.data(), sizeof(Feature));
                best[face].Offer(NormalisedScore(faces[face], other), distance,
                                 block.firstEntry + i, block.names[i]);
            }
        }
    });
    return Ranked(best);
}

} // namespace kova_cli
