// SPDX-License-Identifier: MIT
#include "find/look.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "find/answer_tables.h"
#include "find/layers.h"
#include "find/levels.h"
#include "find/patches.h"
#include "find/surroundings.h"

namespace orvo::find {
namespace {

constexpr int32_t kOne = 1 << 14; // of cosine and sine

// The pixels of a look are at most one and a half of a level's pixels apart, in 256ths of quarters.
constexpr int32_t kMostLevelStep = 6 * 256;
constexpr int32_t kMostReach = 70; // 31.5 * 1.5 * sqrt(2), and a little

// Places in a level are 2^16ths of its pixels.
constexpr int32_t kPlaceBits = 16;

// Grey levels are sampled in sixteenths. Those of the middle are brought to the same mean, 128, and
// to the same mean distance from it; but noise is not blown up without end.
constexpr int32_t kFine = 16;
constexpr int32_t kMiddleFrom = 12, kMiddleTo = 52; // rows and columns
constexpr int32_t kMiddlePixels = (kMiddleTo - kMiddleFrom) * (kMiddleTo - kMiddleFrom);
constexpr int32_t kSpread = 36;
constexpr int32_t kGainBits = 8;
constexpr int32_t kMostGain = 6 << kGainBits;

// The largest whole number whose square is no larger.
int64_t RootOf(int64_t square) {
    int64_t root = 0;
    for (int64_t bit = int64_t{1} << 30; bit > 0; bit >>= 1) {
        if ((root + bit) * (root + bit) <= square) {
            root += bit;
        }
    }
    return root;
}

int32_t RoundedDown(int64_t dividend, int64_t divisor) {
    const int64_t down = dividend % divisor < 0 ? 1 : 0;
    return static_cast<int32_t>(dividend / divisor - down);
}

// To the next whole number, a half up.
int32_t RoundedQuotient(int64_t dividend, int64_t divisor) {
    return RoundedDown(2 * dividend + divisor, 2 * divisor);
}

// The points of the mean face, in sides of its box: their middle lies 35 512ths below the box's, and the
// squares of their distances from it are 76 250ths of the side's square together.
constexpr int32_t kPointsBelow = 35;
constexpr int32_t kPointsBelowUnit = 512;
constexpr int32_t kPointsSquares = 76;
constexpr int32_t kPointsSquaresUnit = 250;

// Of that face whose points lie nearest to these, if its rows point as the view's.
void TakeBoxOf(const int32_t* points, View* view) {
    int64_t x = 0; // of all points together
    int64_t y = 0;
    for (int32_t i = 0; i < kPoints; ++i) {
        x += points[2 * i];
        y += points[2 * i + 1];
    }
    int64_t squares = 0; // of their distances, five times as long
    for (int32_t i = 0; i < kPoints; ++i) {
        const int64_t right = kPoints * int64_t{points[2 * i]} - x;
        const int64_t down = kPoints * int64_t{points[2 * i + 1]} - y;
        squares += right * right + down * down;
    }
    constexpr int32_t kShare = kPointsSquaresUnit / (kPoints * kPoints);
    constexpr int32_t kSquaresUnit = kPointFineness * kPointFineness * kPointsSquares;
    view->side = static_cast<int32_t>(RootOf(kShare * squares / kSquaresUnit));
    constexpr int64_t kUnit = int64_t{kPointsBelowUnit} * kOne;
    constexpr int64_t kAll = kPoints * kPointFineness * kUnit;
    const int64_t below = int64_t{kPoints} * kPointFineness * kPointsBelow * view->side;
    view->x = RoundedQuotient(kUnit * x + below * view->sine, kAll);
    view->y = RoundedQuotient(kUnit * y - below * view->cosine, kAll);
}

bool CanBeSeenAt(const OrvoFindPicture& picture, int32_t x, int32_t y, int32_t side) {
    const Size size = {picture.width, picture.height};
    return x >= 0 && y >= 0 && x < 4 * size.width && y < 4 * size.height && side >= 4 &&
           side <= 4 * 4 * size.smaller();
}

constexpr int32_t kLookEnd = kLookSide - 1; // half pixels from the middle to the outermost pixels'

// A look's pixels in a level: where its middle is, and the step from a pixel to the next on the right;
// that to the one below is at a right angle. In 2^16ths of the level's pixels, of which there are at most
// 2^13, and counted from the middle of the first: 32 bits hold all.
struct Grid {
    int32_t x, y;
    int32_t along, aside;

    Grid(const View& view, int32_t level)
        : x(Middle(view.x, level)),
          y(Middle(view.y, level)),
          along(Step(view, view.cosine, level)),
          aside(Step(view, view.sine, level)) {}

    // `right` and `down`: in half pixels from the middle.
    int32_t XOf(int32_t right, int32_t down) const {
        return x + ((right * along - down * aside) >> 1);
    }
    int32_t YOf(int32_t right, int32_t down) const {
        return y + ((right * aside + down * along) >> 1);
    }

    // The pixels that lie around those of the look. Its corners are as far to the side as up or down.
    Square Around() const {
        const int32_t corner = kLookEnd * (std::abs(along) + std::abs(aside)) >> (kPlaceBits + 1);
        const int32_t reach = corner + 2;
        return {(x >> kPlaceBits) - reach, (y >> kPlaceBits) - reach, 2 * reach + 1};
    }

  private:
    static int32_t Middle(int32_t quarters, int32_t level) {
        const int64_t place = (int64_t{quarters} << (kPlaceBits - 2)) >> level;
        return static_cast<int32_t>(place) - (1 << (kPlaceBits - 1));
    }
    static int32_t Step(const View& view, int32_t direction, int32_t level) {
        return static_cast<int32_t>(int64_t{direction} * view.side * view.kind.step >> (8 + level));
    }
};

// Of two grey levels, in 256ths. `weight` is the second one's.
uint16_t Mixed(uint8_t first, uint8_t second, uint16_t weight) {
    return static_cast<uint16_t>(256 * first + (second - first) * weight);
}

// A row of a look in sixteenths, bilinear, from its first place in the surroundings on, where none is
// negative: in steps that compilers turn into vectors. Of the way to the next pixel 16 bits are enough.
void SampleRow(const uint8_t* pixels, uint32_t pitch, const Grid& grid, uint32_t x, uint32_t y,
               uint16_t* row) {
    static_assert(kPlaceBits == 16);
    const auto along = static_cast<uint32_t>(grid.along);
    const auto aside = static_cast<uint32_t>(grid.aside);
    auto partX = static_cast<uint16_t>(x);
    auto partY = static_cast<uint16_t>(y);
    uint8_t upper[2 * kLookSide], lower[2 * kLookSide]; // two neighbours for each place
    for (int32_t i = 0; i < kLookSide; ++i, x += along, y += aside) {
        const uint8_t* const at = pixels + (y >> kPlaceBits) * pitch + (x >> kPlaceBits);
        std::memcpy(upper + 2 * i, at, 2);
        std::memcpy(lower + 2 * i, at + pitch, 2);
    }
    for (int32_t i = 0; i < kLookSide; ++i) {
        const auto right = static_cast<uint16_t>(partX >> 8);
        const auto below = static_cast<uint16_t>(partY >> 8);
        const auto opposite = static_cast<uint16_t>(256 - below);
        const uint32_t first = Mixed(upper[2 * i], upper[2 * i + 1], right);
        const uint32_t second = Mixed(lower[2 * i], lower[2 * i + 1], right);
        row[i] = static_cast<uint16_t>((first * opposite + second * below + 2048) >> 12);
        partX = static_cast<uint16_t>(partX + along);
        partY = static_cast<uint16_t>(partY + aside);
    }
}

void Sample(const OrvoFindPicture& picture, const View& view, uint8_t* pixels, uint8_t* room,
            uint16_t* look) {
    int32_t level = 0;
    while (int64_t{view.side} * view.kind.step > int64_t{kMostLevelStep} << level) {
        ++level;
    }
    const Grid grid(view, level);
    const Square square = grid.Around();
    MakeSurroundings(picture, level, square, room, pixels, static_cast<size_t>(square.size));
    const int32_t left = square.left << kPlaceBits;
    const int32_t top = square.top << kPlaceBits;
    for (int32_t down = -kLookEnd; down <= kLookEnd; down += 2, look += kLookSide) {
        SampleRow(pixels, static_cast<uint32_t>(square.size), grid,
                  static_cast<uint32_t>(grid.XOf(-kLookEnd, down) - left),
                  static_cast<uint32_t>(grid.YOf(-kLookEnd, down) - top), look);
    }
}

void Mirror(uint16_t* look) {
    for (int32_t y = 0; y < kLookSide; ++y, look += kLookSide) {
        std::reverse(look, look + kLookSide);
    }
}

// Calls use(value) for the pixels in the middle of a look.
template <typename Use>
void ForTheMiddle(const uint16_t* look, Use use) {
    for (int32_t i = kMiddleFrom; i < kMiddleTo; ++i) {
        for (int32_t j = kMiddleFrom; j < kMiddleTo; ++j) {
            use(int32_t{look[i * kLookSide + j]});
        }
    }
}

struct Tone {
    int32_t mean, gain;

    // In 32 bits: 4080 * kMostGain is less than 2^23.
    explicit Tone(const uint16_t* look) {
        int32_t sum = 0;
        ForTheMiddle(look, [&](int32_t value) { sum += value; });
        mean = (sum + kMiddlePixels / 2) / kMiddlePixels;
        int32_t distance = 0;
        ForTheMiddle(look, [&](int32_t value) { distance += std::abs(value - mean); });
        const int32_t spread = std::max(distance / kMiddlePixels, 1);
        gain = std::min(((kSpread * kFine) << kGainBits) / spread, kMostGain);
    }
    uint8_t Of(int32_t fine) const {
        constexpr int32_t kBits = kGainBits + 4;
        const int32_t level = 128 + (((fine - mean) * gain + (1 << (kBits - 1))) >> kBits);
        return static_cast<uint8_t>(std::clamp(level, 0, 255));
    }
    void Row(const uint16_t* look, uint8_t* row) const {
        for (int32_t x = 0; x < kLookSide; ++x) {
            row[x] = Of(look[x]);
        }
    }
};

static_assert(kSecondNetwork.front().inputs == kWide.patch * kWide.patch);
static_assert(kThirdNetwork.front().inputs == kClose.patch * kClose.patch);

constexpr int32_t kPlaneSide = kLookSide / kPatch;

void Deal(const uint16_t* look, const Tone& tone, uint8_t* patches) {
    uint8_t row[kLookSide];
    for (int32_t y = 0; y < kLookSide; ++y, look += kLookSide) {
        tone.Row(look, row);
        DealRow(row, y, {kPlaneSide, kPlaneSide}, patches);
    }
}

// Deals a row out to patches that overlap: plane 8 * r + c gets the pixels (4 * x + c - 2) of the rows
// (4 * y + r - 2). `row` begins, and rows are counted from, kPatchMargin pixels before the look.
void DealRowWidely(const uint8_t* row, int32_t y, uint8_t* patches) {
    uint8_t columns[kPatch][kPlaneSide + 1]; // those of a patch's second half are the next patch's
    for (int32_t x = 0; x <= kPlaneSide; ++x) {
        columns[0][x] = row[kPatch * x];
        columns[1][x] = row[kPatch * x + 1];
        columns[2][x] = row[kPatch * x + 2];
        columns[3][x] = row[kPatch * x + 3];
    }
    for (int32_t r = y % kPatch; r < kWidePatch; r += kPatch) {
        const int32_t down = (y - r) / kPatch;
        if (down >= 0 && down < kPlaneSide) {
            uint8_t* plane = patches + ptrdiff_t{kWidePatch * r * kPlaneSide + down} * kPlaneSide;
            for (int32_t c = 0; c < kWidePatch; ++c, plane += kPlaneSide * kPlaneSide) {
                std::memcpy(plane, columns[c % kPatch] + c / kPatch, kPlaneSide);
            }
        }
    }
}

// Beyond the look is grey.
void DealWidely(const uint16_t* look, const Tone& tone, uint8_t* patches) {
    uint8_t row[kPatchMargin + kLookSide + kPatchMargin];
    std::memset(row, kGrey, sizeof row);
    for (int32_t y = 0; y < kPatchMargin; ++y) {
        DealRowWidely(row, y, patches);
        DealRowWidely(row, kPatchMargin + kLookSide + y, patches);
    }
    for (int32_t y = 0; y < kLookSide; ++y, look += kLookSide) {
        tone.Row(look, row + kPatchMargin);
        DealRowWidely(row, kPatchMargin + y, patches);
    }
}

// From the middle of a look.
struct Offset {
    int32_t right, down;
};

// Where one of the points is, in eighths of the look's pixels: the mean of what all cells say of it, each
// counting as much as the point is likely to be there. The planes are the points' logits in
// sixteenths, how far to the right of each cell's middle they are, and how far down.
Offset PointOf(const int8_t* heat, int32_t point) {
    constexpr int32_t kCells = kHeatSide * kHeatSide;
    const int8_t* const logits = heat + point * kCells;
    const int8_t* const right = logits + kPoints * kCells;
    const int8_t* const down = right + kPoints * kCells;
    const auto middleOf = [](int32_t number) {
        return 8 * (2 * number + 1 - kHeatSide) * kHeatStride / 2;
    };
    int64_t weights = 0;
    int64_t x = 0;
    int64_t y = 0;
    for (int32_t cell = 0; cell < kCells; ++cell) {
        const int64_t weight = kHeat[logits[cell] + 128];
        weights += weight;
        x += weight * (middleOf(cell % kHeatSide) + right[cell]);
        y += weight * (middleOf(cell / kHeatSide) + down[cell]);
    }
    weights = std::max<int64_t>(weights, 1);
    return {RoundedQuotient(x, weights), RoundedQuotient(y, weights)};
}

// Which point it is in a mirror image.
constexpr int32_t kOtherSide[kPoints] = {1, 0, 2, 4, 3};

// From sixteenths of the look's pixels to quarters of the picture's, or to `fineness` parts of a quarter.
void InPicture(const View& view, int64_t right, int64_t down, int32_t fineness, int32_t* x,
               int32_t* y) {
    right = view.kind.isMirrored ? -right : right;
    const int64_t step = int64_t{view.side} * view.kind.step * fineness;
    const auto scaled = [step](int64_t offset) {
        return static_cast<int32_t>((offset * step + (1 << 25)) >> 26);
    };
    *x = fineness * view.x + scaled(right * view.cosine - down * view.sine);
    *y = fineness * view.y + scaled(right * view.sine + down * view.cosine);
}

} // namespace

View ViewOf(const Description& face, LookKind kind) {
    const int32_t* const p = face.points;
    // Two vectors vote: from pupil to pupil, and from the pupils down to the mouth. Of a face in
    // profile the first is short.
    const int64_t x = 2 * (int64_t{p[2]} - p[0]) + p[7] + p[9] - p[1] - p[3];
    const int64_t y = 2 * (int64_t{p[3]} - p[1]) - p[6] - p[8] + p[0] + p[2];
    const int64_t length = RootOf(x * x + y * y);
    if (length < 8 * kPointFineness) { // a pixel, doubled
        return {face.x, face.y, face.side, kOne, 0, kind};
    }
    View view = {face.x,
                 face.y,
                 face.side,
                 RoundedQuotient(x * kOne, length),
                 RoundedQuotient(y * kOne, length),
                 kind};
    if (kind.isByPoints) {
        TakeBoxOf(p, &view);
    }
    return view;
}

bool CanBeSeen(const OrvoFindPicture& picture, const Description& face) {
    return CanBeSeenAt(picture, face.x, face.y, face.side);
}

bool CanBeSeen(const OrvoFindPicture& picture, const View& view) {
    return CanBeSeenAt(picture, view.x, view.y, view.side);
}

uint32_t LookPixelBytes() {
    constexpr uint32_t kMost = 2 * kMostReach + 1;
    return kMost * kMost + kLookSide * kLookSide * sizeof(uint16_t);
}

void MakeLook(const OrvoFindPicture& picture, const View& view, uint8_t* pixels, uint8_t* room,
              uint8_t* patches) {
    auto* const look = reinterpret_cast<uint16_t*>(pixels);
    uint8_t* const around = pixels + kLookSide * kLookSide * sizeof(uint16_t);
    Sample(picture, view, around, room, look);
    if (view.kind.isMirrored) {
        Mirror(look);
    }
    const Tone tone(look);
    if (view.kind.patch == kPatch) {
        Deal(look, tone, patches);
    } else {
        DealWidely(look, tone, patches);
    }
}

Description Described(const View& view, const LookAnswers& answers) {
    const int8_t* const o = answers.rest;
    const bool isMirrored = view.kind.isMirrored;
    Description face;
    // The rest's places are quarter pixels of the look.
    InPicture(view, 4 * o[1], 4 * o[2], 1, &face.x, &face.y);
    face.side = static_cast<int32_t>((int64_t{kSide[o[3] + 128]} * view.side + 512) >> 10);
    for (int32_t i = 0; i < kPoints; ++i) {
        // The rest has the points, too: the mean of both is nearer than either.
        const Offset point = PointOf(answers.heat, i);
        const int32_t right = point.right + 2 * o[4 + 2 * i];
        const int32_t down = point.down + 2 * o[5 + 2 * i];
        int32_t* const place = face.points + ptrdiff_t{2} * (isMirrored ? kOtherSide[i] : i);
        InPicture(view, right, down, kPointFineness, place, place + 1);
    }
    face.yaw = isMirrored ? -o[14] : o[14];
    face.covered = o[15];
    return face;
}

Description WeighedMeanOf(const Description& a, const Description& b) {
    const auto mean = [](int32_t first, int32_t second) {
        return RoundedQuotient(int64_t{first} + 3 * int64_t{second}, 4);
    };
    Description face = {mean(a.x, b.x),       mean(a.y, b.y),
                        mean(a.side, b.side), {},
                        mean(a.yaw, b.yaw),   mean(a.covered, b.covered)};
    std::transform(std::begin(a.points), std::end(a.points), b.points, face.points, mean);
    return face;
}

bool HasSettled(const View& view, const Description& face) {
    const int32_t moved = std::max(
        {std::abs(face.x - view.x), std::abs(face.y - view.y), std::abs(face.side - view.side)});
    return int64_t{kMovedPart} * moved < view.side;
}

int32_t LookedAtScore(int32_t first, int32_t looks, int32_t sum) {
    const int32_t mean = RoundedDown(looks * first + sum, 2 * looks);
    return std::clamp(mean - kScoreLess, -128, 127);
}

int32_t ProbabilityOf(int32_t score) { return kProbability[score + 128]; }

bool CanBeReported(int32_t first, int32_t looks, int32_t sum) {
    const int32_t best = LookedAtScore(first, kLooks, sum + (kLooks - looks) * INT8_MAX);
    return ProbabilityOf(best) >= kReportedProbability;
}

} // namespace orvo::find
