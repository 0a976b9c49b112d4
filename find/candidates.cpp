// SPDX-License-Identifier: MIT
#include "find/candidates.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "find/answer_tables.h"

namespace orvo::find {
namespace {

// The planes of an answer.
enum Plane { kScore, kCentre, kLength = 3, kFirstPoint, kYaw = 14, kCovered };

// A picture's planes divided by a stride of 8 or 16.
struct Grid {
    const int8_t* planes;
    int32_t stride, width, height;

    int32_t at(int32_t plane, size_t cell) const {
        const size_t planeBytes = static_cast<size_t>(width) * static_cast<size_t>(height);
        return planes[static_cast<size_t>(plane) * planeBytes + cell];
    }
};

// A place is answered in 32nds of the stride from the middle of the cell; for a stride of 8 these
// are quarter pixels of the level, for one of 16 half pixels.
struct Cell {
    const Grid& grid;
    int32_t column, row;
    size_t index;

    int32_t x(int32_t plane) const { return Place(column, plane); }
    int32_t y(int32_t plane) const { return Place(row, plane + 1); }
    int32_t side() const {
        const int32_t in256ths = kSide[grid.at(kLength, index) + 128] * grid.stride * 4;
        return (in256ths + 128) >> 8;
    }

  private:
    int32_t Place(int32_t number, int32_t plane) const {
        return ((2 * number + 1) * 16 + grid.at(plane, index)) * (grid.stride / 8);
    }
};

Candidate Describe(const Cell& cell, int32_t level) {
    Candidate candidate;
    Description& face = candidate.face;
    const auto inPicture = [level](int32_t place) { return place * (1 << level); };
    face.x = inPicture(cell.x(kCentre));
    face.y = inPicture(cell.y(kCentre));
    candidate.levelSide = cell.side();
    face.side = inPicture(candidate.levelSide);
    for (int32_t i = 0; i < 2 * kPoints; i += 2) {
        face.points[i] = kPointFineness * inPicture(cell.x(kFirstPoint + i));
        face.points[i + 1] = kPointFineness * inPicture(cell.y(kFirstPoint + i));
    }
    face.yaw = cell.grid.at(kYaw, cell.index);
    face.covered = cell.grid.at(kCovered, cell.index);
    candidate.score = cell.grid.at(kScore, cell.index);
    return candidate;
}

// The padding has no faces.
bool LiesIn(Size real, int32_t x, int32_t y) {
    return x >= 0 && x < 4 * real.width && y >= 0 && y < 4 * real.height;
}

void AddFrom(const Grid& grid, int32_t level, Size real, CandidateList& list) {
    size_t index = 0;
    for (int32_t row = 0; row < grid.height; ++row) {
        for (int32_t column = 0; column < grid.width; ++column, ++index) {
            if (grid.planes[index] < kCandidateScore) {
                continue;
            }
            const Cell cell{grid, column, row, index};
            if (LiesIn(real, cell.x(kCentre), cell.y(kCentre))) {
                list.Add(Describe(cell, level));
            }
        }
    }
}

} // namespace

void CandidateList::Add(const Candidate& candidate) {
    // Behind all that are as good.
    const int16_t* const behind =
        std::upper_bound(order_, order_ + count_, candidate.score,
                         [this](int32_t score, int16_t i) { return score > all_[i].score; });
    const auto place = static_cast<int32_t>(behind - order_);
    if (place == kMostCandidates) {
        return;
    }
    // The worst one's room is taken when there is no other.
    const bool isFull = count_ == kMostCandidates;
    const int16_t room = isFull ? order_[count_ - 1] : static_cast<int16_t>(count_);
    count_ += isFull ? 0 : 1;
    std::memmove(order_ + place + 1, order_ + place,
                 static_cast<size_t>(count_ - 1 - place) * sizeof order_[0]);
    order_[place] = room;
    all_[room] = candidate;
}

void AddCandidates(const Answers& answers, int32_t level, Size real, CandidateList& list) {
    const Size padded = Padded(real);
    AddFrom({answers.stride8, 8, padded.width / 8, padded.height / 8}, level, real, list);
    AddFrom({answers.stride16, 16, padded.width / 16, padded.height / 16}, level, real, list);
}

} // namespace orvo::find
