// SPDX-License-Identifier: MIT
#include "reference/reference_find_faces.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <numeric>

#include "find/settings.h"

namespace orvo_reference {

// Numbers that were measured are no definition: they are the library's own.
using namespace orvo::find;

namespace {

void Ignore(int, const void*, size_t) {}

struct Rectangle {
    double left, top, right, bottom;

    double area() const { return std::max(right - left, 0.0) * std::max(bottom - top, 0.0); }
};

Rectangle BoxOf(const PlainFace& face) {
    const auto half = static_cast<double>(face.side) / 2;
    const auto x = static_cast<double>(face.x);
    const auto y = static_cast<double>(face.y);
    return {x - half, y - half, x + half, y + half};
}

Rectangle Shared(const Rectangle& a, const Rectangle& b) {
    return {std::max(a.left, b.left), std::max(a.top, b.top), std::min(a.right, b.right),
            std::min(a.bottom, b.bottom)};
}

// Areas are sums of products of halves below 2^50, so that doubles hold them exactly.
bool IsSameFace(const PlainFace& a, const PlainFace& b) {
    const double shared = Shared(BoxOf(a), BoxOf(b)).area();
    return 5 * shared >= kSharedFifthsOfUnion * (BoxOf(a).area() + BoxOf(b).area() - shared);
}

bool LiesInside(const PlainFace& a, const PlainFace& b) {
    const double shared = Shared(BoxOf(a), BoxOf(b)).area();
    return 10 * shared >= kSharedTenthsOfSmaller * std::min(BoxOf(a).area(), BoxOf(b).area());
}

int64_t FloorDivide(int64_t dividend, int64_t divisor) {
    int64_t quotient = dividend / divisor;
    while (quotient * divisor > dividend) {
        --quotient;
    }
    return quotient;
}

std::vector<int64_t*> NumbersOf(PlainFace* face) {
    std::vector<int64_t*> numbers = {&face->x, &face->y, &face->side, &face->yaw, &face->covered};
    for (int64_t& value : face->points) {
        numbers.push_back(&value);
    }
    return numbers;
}

PlainFace MeanOf(std::vector<PlainFace> faces) {
    PlainFace mean = faces.front();
    for (size_t n = 0; n < NumbersOf(&mean).size(); ++n) {
        int64_t sum = 0;
        int64_t weights = 0;
        for (PlainFace& face : faces) {
            const int64_t weight =
                std::max(int64_t{face.probability} * face.probability / 1024, int64_t{1}) *
                face.levelSide * face.levelSide;
            sum += weight * *NumbersOf(&face)[n];
            weights += weight;
        }
        *NumbersOf(&mean)[n] = FloorDivide(2 * sum + weights, 2 * weights);
    }
    return mean;
}

int Factor(double measure, const Ramp& ramp) {
    return static_cast<int>(
        std::clamp(std::trunc(256 * (measure - ramp.none) / (ramp.full - ramp.none)), 0.0, 256.0));
}

} // namespace

Grey Halved(const Grey& picture) {
    Grey half{picture.width / 2, picture.height / 2, {}};
    for (int y = 0; y < half.height; ++y) {
        for (int x = 0; x < half.width; ++x) {
            half.pixels.push_back(static_cast<uint8_t>(
                (picture.at(2 * x, 2 * y) + picture.at(2 * x + 1, 2 * y) +
                 picture.at(2 * x, 2 * y + 1) + picture.at(2 * x + 1, 2 * y + 1) + 2) /
                4));
        }
    }
    return half;
}

Grey HalvedTimes(const Grey& picture, int times) {
    Grey level = picture;
    for (int i = 0; i < times; ++i) {
        level = Halved(level);
    }
    return level;
}

std::vector<int> FindLevels(int width, int height, int smallest) {
    int first = 0;
    for (int k = 1; k < 20; ++k) {
        if (int64_t{kLeastFace} * (int64_t{1} << k) <= smallest &&
            (std::min(width, height) >> k) >= 24) {
            first = k;
        }
    }
    std::vector<int> levels;
    for (int level = first; std::min(width >> level, height >> level) >= 8; level += 2) {
        levels.push_back(level);
        if (std::max(width >> level, height >> level) <= kLastLevelSide) {
            break;
        }
    }
    return levels;
}

int PlainProbability(int score) {
    return static_cast<int>(std::floor(1024 / (1 + std::exp(-score / 16.0)) + 0.5));
}

int PlainSide(int size) {
    return static_cast<int>(std::floor(1024 * std::exp2(size / 64.0) + 0.5));
}

std::vector<PlainFace> PlainCandidates(const FindAnswers& answers, int level, int width,
                                       int height) {
    std::vector<PlainFace> candidates;
    const int paddedWidth = (width + 15) / 16 * 16;
    const int paddedHeight = (height + 15) / 16 * 16;
    for (const int stride : {8, 16}) {
        const std::vector<int8_t>& planes = stride == 8 ? answers.stride8 : answers.stride16;
        const int columns = paddedWidth / stride;
        const int rows = paddedHeight / stride;
        for (int j = 0; j < rows; ++j) {
            for (int i = 0; i < columns; ++i) {
                const auto o = [&](int plane) -> int64_t {
                    return planes[static_cast<size_t>((plane * rows + j) * columns + i)];
                };
                const int64_t q = stride / 8;
                const auto x = [&](int plane) { return ((2 * i + 1) * 16 + o(plane)) * q; };
                const auto y = [&](int plane) { return ((2 * j + 1) * 16 + o(plane)) * q; };
                if (o(0) < kCandidateScore || x(1) < 0 || y(2) < 0 || x(1) >= 4 * width ||
                    y(2) >= 4 * height) {
                    continue;
                }
                const int64_t unit = int64_t{1} << level;
                PlainFace face{};
                face.x = x(1) * unit;
                face.y = y(2) * unit;
                face.levelSide = (PlainSide(static_cast<int>(o(3))) * stride * 4 + 128) / 256;
                face.side = face.levelSide * unit;
                for (int n = 0; n < 5; ++n) {
                    face.points[2 * n] = 4 * x(4 + 2 * n) * unit;
                    face.points[2 * n + 1] = 4 * y(5 + 2 * n) * unit;
                }
                face.yaw = o(14);
                face.covered = o(15);
                face.score = static_cast<int>(o(0));
                face.probability = PlainProbability(face.score);
                face.support = 1;
                candidates.push_back(face);
            }
        }
    }
    return candidates;
}

std::vector<PlainFace> PlainFaces(std::vector<PlainFace> candidates) {
    // One after the other behind those that are as good.
    for (size_t i = 1; i < candidates.size(); ++i) {
        for (size_t j = i; j > 0 && candidates[j - 1].score < candidates[j].score; --j) {
            std::swap(candidates[j - 1], candidates[j]);
        }
    }
    if (candidates.size() > kMostCandidates) {
        candidates.resize(kMostCandidates);
    }
    std::vector<PlainFace> faces;
    while (!candidates.empty() && candidates.front().probability >= kLookedAtProbability) {
        const PlainFace head = candidates.front();
        std::vector<PlainFace> same;
        std::vector<PlainFace> others;
        int support = 0;
        for (const PlainFace& candidate : candidates) {
            const bool isSame = IsSameFace(head, candidate);
            if (isSame) {
                same.push_back(candidate);
            }
            if (isSame || LiesInside(head, candidate)) {
                ++support;
            } else {
                others.push_back(candidate);
            }
        }
        faces.push_back(MeanOf(same));
        faces.back().score = head.score;
        faces.back().probability = head.probability;
        faces.back().support = support;
        candidates = others;
    }
    return faces;
}

std::vector<PlainFace> PlainFromAround(const Model& model, const Grey& picture, int smallest) {
    std::vector<PlainFace> candidates;
    for (const int level : FindLevels(picture.width, picture.height, smallest)) {
        const Grey plane = HalvedTimes(picture, level);
        const FindAnswers answers = RunFind(model, PaddedGrey(plane), Ignore);
        const std::vector<PlainFace> more =
            PlainCandidates(answers, level, plane.width, plane.height);
        candidates.insert(candidates.end(), more.begin(), more.end());
    }
    return PlainLookedAt(model, picture, PlainFaces(candidates));
}

std::vector<PlainFace> PlainFind(const Model& model, const Grey& picture, int smallest) {
    std::vector<PlainFace> faces = PlainFromAround(model, picture, smallest);
    for (PlainFace& face : faces) {
        face = PlainLookedAtClosely(model, picture, face);
    }
    return faces;
}

namespace {

// The whole part of a square root, by trying.
int64_t WholeRoot(int64_t square) {
    auto root = static_cast<int64_t>(std::sqrt(static_cast<double>(square)));
    while (root * root > square) {
        --root;
    }
    while ((root + 1) * (root + 1) <= square) {
        ++root;
    }
    return root;
}

int64_t Rounded(int64_t dividend, int64_t divisor) {
    return FloorDivide(2 * dividend + divisor, 2 * divisor);
}

constexpr int kWideStep = 6;
constexpr int kCloseStep = 4;

// The box of the mean face that lies on the points as well as it can. In sides of its box, the middle of
// that face's points lies 35 / 512 below the box's, and their mean square distance from it is 0.0608.
PlainView PlainBoxOfPoints(const PlainFace& face, PlainView view) {
    int64_t sums[2] = {0, 0};
    int64_t squares = 0;
    for (int i = 0; i < 10; ++i) {
        sums[i % 2] += face.points[i];
        squares += 25 * face.points[i] * face.points[i];
    }
    squares -= 5 * (sums[0] * sums[0] + sums[1] * sums[1]);
    // Of the root, quarters are whole, and points are sixteenths.
    view.side = WholeRoot(FloorDivide(10 * squares, 16 * 76));
    const int64_t unit = int64_t{5} * 4 * (1 << 23);
    view.x = Rounded(sums[0] * (1 << 23) + 4 * 175 * view.side * view.sine, unit);
    view.y = Rounded(sums[1] * (1 << 23) - 4 * 175 * view.side * view.cosine, unit);
    return view;
}

} // namespace

PlainView PlainViewOf(const PlainFace& face, int step) {
    const int64_t* p = face.points;
    // Twice the way from pupil to pupil, and a quarter turn back from the way down to the mouth.
    const int64_t downX = p[6] + p[8] - p[0] - p[2];
    const int64_t downY = p[7] + p[9] - p[1] - p[3];
    const int64_t x = 2 * (p[2] - p[0]) + downY;
    const int64_t y = 2 * (p[3] - p[1]) - downX;
    const int64_t length = WholeRoot(x * x + y * y);
    if (length < 2 * 16) { // a pixel
        return {face.x, face.y, face.side, 16384, 0, step};
    }
    const PlainView wide = {
        face.x, face.y, face.side, Rounded(16384 * x, length), Rounded(16384 * y, length), step};
    return step == kCloseStep ? PlainBoxOfPoints(face, wide) : wide;
}

bool PlainCanBeSeen(const Grey& picture, int64_t x, int64_t y, int64_t side) {
    return x >= 0 && y >= 0 && x < 4 * picture.width && y < 4 * picture.height && side >= 4 &&
           side <= 16 * std::min(picture.width, picture.height);
}

bool PlainCanBeSeen(const Grey& picture, const PlainFace& face) {
    return PlainCanBeSeen(picture, face.x, face.y, face.side);
}

Grey PlainLook(const Grey& picture, const PlainView& view) {
    int level = 0;
    while (view.side * view.step > int64_t{1536} << level) {
        ++level;
    }
    const Grey plane = HalvedTimes(picture, level);
    const int64_t unit = int64_t{1} << level;
    const auto pixel = [&](int64_t x, int64_t y) {
        return plane.at(static_cast<int>(std::clamp<int64_t>(x, 0, plane.width - 1)),
                        static_cast<int>(std::clamp<int64_t>(y, 0, plane.height - 1)));
    };
    // 2^16ths of the level's pixels: a step of the look, and where the middle is.
    const int64_t along = FloorDivide(view.step * view.cosine * view.side, 256 * unit);
    const int64_t aside = FloorDivide(view.step * view.sine * view.side, 256 * unit);
    const int64_t middleX = FloorDivide(16384 * view.x, unit) - 32768;
    const int64_t middleY = FloorDivide(16384 * view.y, unit) - 32768;
    std::vector<int64_t> fine;
    for (int64_t i = 0; i < 64; ++i) {
        for (int64_t j = 0; j < 64; ++j) {
            const int64_t u = 2 * j - 63;
            const int64_t v = 2 * i - 63;
            const int64_t x = middleX + FloorDivide(u * along - v * aside, 2);
            const int64_t y = middleY + FloorDivide(u * aside + v * along, 2);
            const int64_t column = FloorDivide(x, 65536);
            const int64_t row = FloorDivide(y, 65536);
            const int64_t fx = FloorDivide(x - 65536 * column, 256);
            const int64_t fy = FloorDivide(y - 65536 * row, 256);
            const int64_t sum =
                (256 - fy) * ((256 - fx) * pixel(column, row) + fx * pixel(column + 1, row)) +
                fy * ((256 - fx) * pixel(column, row + 1) + fx * pixel(column + 1, row + 1));
            fine.push_back((sum + 2048) / 4096);
        }
    }
    const auto forTheMiddle = [&](auto use) {
        for (size_t i = 12; i < 52; ++i) {
            for (size_t j = 12; j < 52; ++j) {
                use(fine[64 * i + j]);
            }
        }
    };
    int64_t sum = 0;
    forTheMiddle([&](int64_t value) { sum += value; });
    const int64_t mean = (sum + 800) / 1600;
    int64_t distance = 0;
    forTheMiddle([&](int64_t value) { distance += std::abs(value - mean); });
    const int64_t gain =
        std::min<int64_t>(36 * 16 * 256 / std::max<int64_t>(distance / 1600, 1), 6 * 256);
    Grey look{64, 64, {}};
    for (size_t i = 0; i < 64; ++i) {
        for (size_t j = 0; j < 64; ++j) {
            const int64_t value = fine[64 * i + (view.isMirrored ? 63 - j : j)];
            const int64_t tone = 128 + FloorDivide((value - mean) * gain + 2048, 4096);
            look.pixels.push_back(static_cast<uint8_t>(std::clamp<int64_t>(tone, 0, 255)));
        }
    }
    return look;
}

PlainFace PlainDescribed(const PlainFace& face, const PlainView& view,
                         const LookAnswersPlain& answers) {
    const auto o = [&](size_t i) -> int64_t { return answers.rest[i]; };
    PlainFace described = face;
    // From sixteenths of the look's pixels to so many parts of the picture's.
    const int64_t sign = view.isMirrored ? -1 : 1;
    const auto place = [&](int64_t toTheRight, int64_t down, int64_t parts, int64_t* x,
                           int64_t* y) {
        const int64_t right = sign * toTheRight;
        const int64_t unit = int64_t{1} << 28;
        const int64_t scale = parts * view.step * view.side;
        *x = parts / 4 * view.x + Rounded(scale * (right * view.cosine - down * view.sine), unit);
        *y = parts / 4 * view.y + Rounded(scale * (right * view.sine + down * view.cosine), unit);
    };
    place(4 * o(1), 4 * o(2), 4, &described.x, &described.y);
    described.side = (PlainSide(static_cast<int>(o(3))) * view.side + 512) / 1024;
    for (size_t point = 0; point < 5; ++point) {
        int64_t weights = 0;
        int64_t x = 0;
        int64_t y = 0;
        for (size_t cell = 0; cell < 64; ++cell) {
            const auto plane = [&](size_t i) -> int64_t { return answers.heat[64 * i + cell]; };
            const int64_t weight = PlainHeat(static_cast<int>(plane(point)));
            const auto column = static_cast<int64_t>(cell % 8);
            const auto row = static_cast<int64_t>(cell / 8);
            weights += weight;
            x += weight * (64 * column - 224 + plane(5 + point));
            y += weight * (64 * row - 224 + plane(10 + point));
        }
        weights = std::max<int64_t>(weights, 1);
        // The left one of two is the mirror image's right one.
        constexpr size_t kPartners[] = {1, 0, 2, 4, 3};
        int64_t* const to = described.points + 2 * (view.isMirrored ? kPartners[point] : point);
        place(Rounded(x, weights) + 2 * o(4 + 2 * point),
              Rounded(y, weights) + 2 * o(5 + 2 * point), 16, to, to + 1);
    }
    described.yaw = sign * o(14);
    described.covered = o(15);
    return described;
}

int PlainHeat(int logit) {
    return static_cast<int>(std::floor(std::ldexp(std::exp((logit - 127) / 16.0), 20) + 0.5));
}

std::vector<PlainFace> PlainWithoutRepeats(std::vector<PlainFace> faces) {
    std::stable_sort(faces.begin(), faces.end(),
                     [](const PlainFace& a, const PlainFace& b) { return a.score > b.score; });
    faces.resize(std::min<size_t>(faces.size(), kMostFaces));
    std::vector<PlainFace> kept;
    for (const PlainFace& face : faces) {
        if (std::none_of(kept.begin(), kept.end(), [&](const PlainFace& better) {
                return IsSameFace(better, face) || LiesInside(better, face);
            })) {
            kept.push_back(face);
        }
    }
    return kept;
}

std::vector<PlainFace> PlainLookedAt(const Model& model, const Grey& picture,
                                     const std::vector<PlainFace>& faces) {
    std::vector<PlainFace> looked;
    for (PlainFace face : faces) {
        const int first = face.score;
        const bool isSure = first >= kSureWhenFound;
        std::vector<int> scores;
        bool isFace = true;
        bool hasSettled = isSure;
        if (isSure) {
            face.score = PlainScore(first, {127});
        }
        for (int look = 0; look < kLooks && isFace && !hasSettled; ++look) {
            isFace =
                PlainCanBeSeen(picture, face) && (look == 0 || face.score >= kLookedAtAgainScore);
            if (isFace) {
                const PlainView view = PlainViewOf(face, kWideStep);
                const LookAnswersPlain answers =
                    RunLook(LookKind::kWide, model, PlainLook(picture, view), Ignore);
                face = PlainDescribed(face, view, answers);
                scores.push_back(answers.rest[0]);
                face.score = PlainScore(first, scores);
                hasSettled = PlainHasSettled(view, face);
            }
        }
        face.probability = PlainProbability(face.score);
        if (isFace && face.probability >= kReportedProbability && PlainCanBeSeen(picture, face)) {
            looked.push_back(face);
        }
    }
    return PlainWithoutRepeats(looked);
}

std::optional<PlainFace> PlainSeenClosely(const Model& model, const Grey& picture,
                                          const PlainFace& face, bool isMirrored) {
    PlainView view = PlainViewOf(face, kCloseStep);
    view.isMirrored = isMirrored;
    if (!PlainCanBeSeen(picture, view.x, view.y, view.side)) {
        return std::nullopt;
    }
    const LookAnswersPlain answers =
        RunLook(LookKind::kClose, model, PlainLook(picture, view), Ignore);
    const PlainFace described = PlainDescribed(face, view, answers);
    return PlainCanBeSeen(picture, described) ? std::optional(described) : std::nullopt;
}

PlainFace PlainWeighedMeanOf(PlainFace a, PlainFace b) {
    for (size_t n = 0; n < NumbersOf(&a).size(); ++n) {
        int64_t& number = *NumbersOf(&a)[n];
        number = Rounded(number + 3 * *NumbersOf(&b)[n], 4);
    }
    return a;
}

PlainFace PlainLookedAtClosely(const Model& model, const Grey& picture, const PlainFace& face) {
    const auto first = PlainSeenClosely(model, picture, face, false);
    if (!first) {
        return face;
    }
    const auto second = PlainSeenClosely(model, picture, *first, true);
    return second ? PlainWeighedMeanOf(*first, *second) : *first;
}

bool PlainHasSettled(const PlainView& view, const PlainFace& face) {
    const double most = static_cast<double>(view.side) / kMovedPart;
    return std::abs(face.x - view.x) < most && std::abs(face.y - view.y) < most &&
           std::abs(face.side - view.side) < most;
}

int PlainScore(int first, const std::vector<int>& looks) {
    const auto count = static_cast<int>(looks.size());
    const int sum = std::accumulate(looks.begin(), looks.end(), 0);
    const auto mean = static_cast<int>(FloorDivide(count * first + sum, int64_t{2} * count));
    return std::clamp(mean - kScoreLess, -128, 127);
}

PlainBox PlainRecord(const PlainFace& face) {
    const Rectangle box = BoxOf(face);
    PlainBox record{box.left / 4, box.top / 4, static_cast<double>(face.side) / 4, {}};
    for (int i = 0; i < 10; ++i) {
        record.points[i] = static_cast<double>(face.points[i]) / 16;
    }
    return record;
}

namespace {

// The direction of the upright face's rows, of any length.
struct Direction {
    double x, y;
};

Direction DirectionOf(const PlainBox& box) {
    const double* p = box.points;
    const double downX = (p[6] + p[8]) / 2 - (p[0] + p[2]) / 2;
    const double downY = (p[7] + p[9]) / 2 - (p[1] + p[3]) / 2;
    const Direction direction = {p[2] - p[0] + downY, p[3] - p[1] - downX};
    return std::hypot(direction.x, direction.y) < 1 ? Direction{1, 0} : direction;
}

} // namespace

double PlainRoll(const PlainBox& box) {
    const Direction direction = DirectionOf(box);
    return std::atan2(direction.y, direction.x) * 180 / std::numbers::pi;
}

std::vector<double> PlainUpright(const Grey& picture, const PlainBox& box) {
    int level = 0;
    while (box.side / 96 / (1 << level) > 1.5) {
        ++level;
    }
    const Grey plane = HalvedTimes(picture, level);
    const auto pixel = [&](int x, int y) {
        return plane.at(std::clamp(x, 0, plane.width - 1), std::clamp(y, 0, plane.height - 1));
    };
    const Direction direction = DirectionOf(box);
    const double length = std::hypot(direction.x, direction.y);
    const double c = direction.x / length;
    const double s = direction.y / length;
    const double unit = 1.0 / (1 << level);
    std::vector<double> crop;
    for (int row = 0; row < 96; ++row) {
        for (int column = 0; column < 96; ++column) {
            const double u = (column + 0.5 - 48) * box.side / 96;
            const double v = (row + 0.5 - 48) * box.side / 96;
            const double x = (box.left + box.side / 2 + c * u - s * v) * unit - 0.5;
            const double y = (box.top + box.side / 2 + s * u + c * v) * unit - 0.5;
            const int x0 = static_cast<int>(std::floor(x));
            const int y0 = static_cast<int>(std::floor(y));
            const double fx = x - x0;
            const double fy = y - y0;
            crop.push_back((1 - fy) * ((1 - fx) * pixel(x0, y0) + fx * pixel(x0 + 1, y0)) +
                           fy * ((1 - fx) * pixel(x0, y0 + 1) + fx * pixel(x0 + 1, y0 + 1)));
        }
    }
    return crop;
}

PlainMeasures PlainMeasure(const PlainFace& face, int width, int height, const uint8_t* crop) {
    PlainMeasures m{};
    m.side = static_cast<int>(face.side);

    double sum = 0;
    double squares = 0;
    double bends = 0;
    std::vector<int> middle;
    int white = 0;
    for (int y = 0; y < 96; ++y) {
        for (int x = 0; x < 96; ++x) {
            const auto at = [&](int dx, int dy) { return int{crop[(y + dy) * 96 + x + dx]}; };
            sum += at(0, 0);
            squares += at(0, 0) * at(0, 0);
            if (x > 0 && x < 95) {
                bends += std::abs(at(-1, 0) - 2 * at(0, 0) + at(1, 0));
            }
            if (y > 0 && y < 95) {
                bends += std::abs(at(0, -1) - 2 * at(0, 0) + at(0, 1));
            }
            if (x >= 16 && x < 80 && y >= 16 && y < 80) {
                middle.push_back(at(0, 0));
                white += at(0, 0) >= kWhite ? 1 : 0;
            }
        }
    }
    const double n = 96 * 96;
    const double variance = (n * squares - sum * sum) / (n * n);
    const double deviation = std::floor(16 * std::sqrt(variance)) / 16;
    m.sharpness =
        static_cast<int>(std::floor(16 * 256 * (bends / (2 * 94 * 96)) / (16 + deviation)));
    std::sort(middle.begin(), middle.end());
    m.brightness = middle[(9 * middle.size() + 9) / 10 - 1];
    m.white = static_cast<int>(1000 * static_cast<size_t>(white) / middle.size());

    m.yaw = static_cast<int>(std::abs(face.yaw) * 3);
    m.covered = static_cast<int>((face.covered + 128) * 100 / 255);

    const PlainBox box = PlainRecord(face);
    const double* p = box.points;
    const double eyesX = (p[0] + p[2]) / 2;
    const double eyesY = (p[1] + p[3]) / 2;
    const double downX = (p[6] + p[8]) / 2 - eyesX;
    const double downY = (p[7] + p[9]) / 2 - eyesY;
    const double along = downX * (p[4] - eyesX) + downY * (p[5] - eyesY);
    const double whole = downX * downX + downY * downY;
    const double place = whole > 0 ? std::trunc(100 * along / whole) : 1e9;
    m.noseOff = static_cast<int>(std::min(std::abs(place - kNosePlace), 1.0 * kNosePlace) * 100 /
                                 kNosePlace);
    m.noseOff = whole > 0 ? m.noseOff : kTiltedRamp.none;

    // Of the lengths whole 256ths of pixels count.
    const double* q = box.points;
    const double eyes = std::floor(256 * std::hypot(q[2] - q[0], q[3] - q[1]));
    const double mouth = std::floor(256 * std::hypot(q[8] - q[6], q[9] - q[7]));
    const double degrees = 0.75 * std::abs(static_cast<double>(face.yaw));
    const double counts = std::clamp(45 - degrees, 0.0, 15.0); // fifteenths
    if (eyes > 0) {
        const double share = std::floor(100 * mouth / eyes);
        m.mouthOff = static_cast<int>(std::min(std::abs(share - kMouthPlace), 100.0) * counts / 15);
    }

    const Rectangle inside = Shared(BoxOf(face), {0, 0, 4.0 * width, 4.0 * height});
    m.cutOff = static_cast<int>(
        std::trunc(100 * (BoxOf(face).area() - inside.area()) / BoxOf(face).area()));
    return m;
}

int ScoreWith(int probability) {
    int score = -128;
    while (PlainProbability(score) < probability) {
        ++score;
    }
    return score;
}

PlainQuality PlainJudge(const PlainMeasures& m, int probability) {
    const int factors[] = {
        Factor(m.side, kSmallRamp),         Factor(m.sharpness, kBlurredRamp),
        Factor(m.brightness, kDarkRamp),    Factor(m.white, kOverexposedRamp),
        Factor(m.yaw, kTurnedRamp),         Factor(m.noseOff, kTiltedRamp),
        Factor(m.covered, kCoveredRamp),    Factor(m.cutOff, kCutOffRamp),
        Factor(m.mouthOff, kGrimacingRamp),
    };
    const int least = ScoreWith(kReportedProbability);
    const double more =
        (256.0 - kLeastScoreFactor) * (ScoreWith(probability) - least) / (kSureScore - least);
    const int score = std::clamp(kLeastScoreFactor + static_cast<int>(std::trunc(more)), 0, 256);
    int64_t left = int64_t{100} * 65536 * score / 256;
    PlainQuality quality{0, 0};
    for (unsigned i = 0; i < std::size(factors); ++i) {
        left = left * factors[i] / 256;
        quality.reasons |= factors[i] < 128 ? 1u << i : 0u;
    }
    quality.value = static_cast<int>((left + 32768) / 65536);
    return quality;
}

} // namespace orvo_reference
