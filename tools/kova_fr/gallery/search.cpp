// SPDX-License-Identifier: MIT
#include "gallery/search.h"

#include <cmath>
#include <limits>
#include <set>
#include <unordered_map>

#include "search/distances.h"

namespace kova_cli {
namespace {

struct IsBetter {
    bool operator()(const Match& a, const Match& b) const {
        return a.distance != b.distance ? a.distance > b.distance : a.entry < b.entry;
    }
};

// The most alike names so far. A name that was pushed out comes back only by an entry that is better
// than what pushed it out, so that its earlier ones need not be remembered.
class BestNames {
  public:
    explicit BestNames(size_t most) : most_(most) {}

    // Entries come in their order, so of two that are equally alike the first is there already.
    void Offer(float distance, size_t entry, std::string_view name) {
        if (distance > bound_ && std::isfinite(distance)) {
            Take(distance, entry, name);
        }
    }

    std::vector<Match> Ranked() const { return {ranked_.begin(), ranked_.end()}; }

  private:
    using Ranks = std::set<Match, IsBetter>;

    void Take(float distance, size_t entry, std::string_view name) {
        if (const auto found = byName_.find(name); found == byName_.end()) {
            const auto rank = ranked_.insert({entry, distance, std::string(name)}).first;
            byName_.emplace(rank->name, rank);
        } else if (distance > found->second->distance) {
            auto node = ranked_.extract(found->second);
            node.value().distance = distance;
            node.value().entry = entry;
            found->second = ranked_.insert(std::move(node)).position;
        }
        if (ranked_.size() > most_) {
            const auto worst = std::prev(ranked_.end());
            byName_.erase(worst->name);
            ranked_.erase(worst);
        }
        if (ranked_.size() == most_) {
            bound_ = ranked_.rbegin()->distance;
        }
    }

    size_t most_;
    float bound_ = -std::numeric_limits<float>::infinity(); // what is not better is of no interest
    Ranks ranked_;
    std::unordered_map<std::string_view, Ranks::iterator> byName_; // views of the ranks' own names
};

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
                best[face].Offer(distances[i], block.firstEntry + i, block.names[i]);
            }
        }
    });
    std::vector<std::vector<Match>> matches;
    for (const BestNames& names : best) {
        matches.push_back(names.Ranked());
    }
    return matches;
}

} // namespace kova_cli
