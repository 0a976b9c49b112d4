// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "common/diagnostics.h"
#include "orvo/orvo_search.h"
#include "search/distances.h"

namespace {

constexpr char kUnit[] = "../search/search_api";
constexpr size_t kLength = ORVO_SEARCH_FEATURE_LENGTH;
constexpr size_t kAtOnce = 256; // entries whose distances are kept on the stack

int32_t RefuseNull(const char* function) {
    ORVO_ERR(kUnit, "%s failed, a required address is null!\n\n", function);
    return ORVO_SEARCH_NULL_ADDRESS;
}

bool IsBetter(const OrvoSearchMatch& a, const OrvoSearchMatch& b) {
    return a.distance > b.distance || (a.distance == b.distance && a.index < b.index);
}

// The best matches, best first.
class List {
  public:
    List(OrvoSearchMatch* matches, uint32_t room, uint32_t* found)
        : matches_(matches), room_(room), found_(*found) {}

    void Offer(const OrvoSearchMatch& match) {
        const bool isFull = found_ == room_;
        if (room_ == 0 || match.distance != match.distance ||
            (isFull && !IsBetter(match, matches_[found_ - 1]))) {
            return;
        }
        OrvoSearchMatch* const place =
            std::upper_bound(matches_, matches_ + found_, match, IsBetter);
        found_ += isFull ? 0 : 1;
        std::move_backward(place, matches_ + found_ - 1, matches_ + found_);
        *place = match;
    }

    uint32_t found() const { return found_; }

  private:
    OrvoSearchMatch* matches_;
    uint32_t room_;
    uint32_t found_;
};

int32_t CheckList(const char* function, const OrvoSearchMatch* matches, uint32_t room,
                  const uint32_t* found) {
    if (found == nullptr || (matches == nullptr && room > 0)) {
        return RefuseNull(function);
    }
    if (*found > room) {
        ORVO_ERR(kUnit, "%s failed. The list holds %u matches and has room for %u.\n\n", function,
                 static_cast<unsigned>(*found), static_cast<unsigned>(room));
        return ORVO_SEARCH_WRONG_SIZE;
    }
    return ORVO_SEARCH_OK;
}

} // namespace

int32_t OrvoSearchDistances(const float* feature, const float* entries, uint32_t count,
                            float* distances) {
    if (feature == nullptr || (count > 0 && (entries == nullptr || distances == nullptr))) {
        return RefuseNull("OrvoSearchDistances");
    }
    for (size_t done = 0; done < count; done += kAtOnce) {
        const size_t here = std::min(kAtOnce, count - done);
        orvo::Distances(feature, orvo::LookThrough(entries + done * kLength, here),
                        distances + done);
    }
    return ORVO_SEARCH_OK;
}

int32_t OrvoSearchBest(const float* feature, const float* entries, uint32_t count, uint32_t first,
                       OrvoSearchMatch* matches, uint32_t room, uint32_t* found) {
    if (feature == nullptr || (count > 0 && entries == nullptr)) {
        return RefuseNull("OrvoSearchBest");
    }
    const int32_t status = CheckList("OrvoSearchBest", matches, room, found);
    if (status != ORVO_SEARCH_OK) {
        return status;
    }
    if (count > 0 && first > UINT32_MAX - (count - 1)) {
        ORVO_ERR(kUnit, "OrvoSearchBest failed. %u entries from index %u on.\n\n",
                 static_cast<unsigned>(count), static_cast<unsigned>(first));
        return ORVO_SEARCH_WRONG_SIZE;
    }
    List list(matches, room, found);
    for (size_t done = 0; done < count; done += kAtOnce) {
        const size_t here = std::min(kAtOnce, count - done);
        float distances[kAtOnce];
        orvo::Distances(feature, orvo::LookThrough(entries + done * kLength, here), distances);
        for (size_t i = 0; i < here; ++i) {
            list.Offer({first + static_cast<uint32_t>(done + i), distances[i]});
        }
    }
    *found = list.found();
    return ORVO_SEARCH_OK;
}

int32_t OrvoSearchMerge(OrvoSearchMatch* matches, uint32_t room, uint32_t* found,
                        const OrvoSearchMatch* others, uint32_t count) {
    const int32_t status = CheckList("OrvoSearchMerge", matches, room, found);
    if (status != ORVO_SEARCH_OK) {
        return status;
    }
    if (others == nullptr && count > 0) {
        return RefuseNull("OrvoSearchMerge");
    }
    List list(matches, room, found);
    for (uint32_t i = 0; i < count; ++i) {
        list.Offer(others[i]);
    }
    *found = list.found();
    return ORVO_SEARCH_OK;
}
