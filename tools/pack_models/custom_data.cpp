// SPDX-License-Identifier: MIT
#include "tools/pack_models/custom_data.h"

#include <algorithm>

#include "tools/pack_models/byte_map.h"

namespace orvo::pack {
namespace {

// The low bytes of a linear congruential generator.
class MaskStream {
  public:
    explicit MaskStream(uint16_t seed) : state_(seed) {}

    uint8_t Next() {
        state_ = state_ * 1103515245u + 12345u;
        return static_cast<uint8_t>(state_);
    }

  private:
    uint32_t state_;
};

} // namespace

std::vector<uint8_t> MaskCustomData(std::span<const uint8_t> data, uint16_t seed) {
    MaskStream stream(seed);
    std::vector<uint8_t> visible = {static_cast<uint8_t>(seed), static_cast<uint8_t>(seed >> 8)};
    visible.push_back(static_cast<uint8_t>(data.size() ^ stream.Next()));
    visible.push_back(static_cast<uint8_t>(data.size() >> 8 ^ stream.Next()));
    for (const uint8_t byte : data) {
        visible.push_back(static_cast<uint8_t>(byte ^ stream.Next()));
    }
    return visible;
}

int CountRelations(std::span<const uint8_t> visible) {
    int most = 0;
    for (size_t column = 0; column < visible.size(); column += kBytesPerColumn) {
        const size_t end = std::min<size_t>(visible.size(), column + kBytesPerColumn);
        int relations = 0;
        for (size_t at = column; at < end; at += 4) {
            const size_t count = std::min<size_t>(4, end - at);
            relations += static_cast<int>(count) - 1 - DifferenceRank(visible.subspan(at, count));
        }
        most = std::max(most, relations);
    }
    return most;
}

} // namespace orvo::pack
