// SPDX-License-Identifier: MIT
#include "render/background.h"

#include <algorithm>
#include <cmath>

#include "skin/noise_fields.h"
#include "vec3.h"

namespace facegen {
namespace {

struct Canvas {
    std::vector<float>& tones;
    int width, height;

    float& At(int x, int y) {
        return tones[static_cast<std::size_t>(y) * static_cast<std::size_t>(width) +
                     static_cast<std::size_t>(x)];
    }
    template <typename Paint>
    void Each(Paint paint) {
        for (int y = 0; y < height; ++y) {
            for (int x = 0; x < width; ++x) {
                paint(At(x, y), static_cast<float>(x), static_cast<float>(y));
            }
        }
    }
};

void Gradient(Canvas& canvas, Random& random) {
    const float angle = random.Uniform(0.0f, 6.28f);
    const float from = random.Uniform(), to = random.Uniform();
    const float size = static_cast<float>(std::max(canvas.width, canvas.height));
    const float cx = std::cos(angle) / size, cy = std::sin(angle) / size;
    const float bulge = random.Uniform(-1.0f, 1.0f);
    canvas.Each([&](float& tone, float x, float y) {
        const float t = (x - size / 2) * cx + (y - size / 2) * cy + 0.5f;
        tone = Mix(from, to, t + bulge * t * (1.0f - t));
    });
}

// One octave of noise on a grid that the picture interpolates.
void AddNoise(Canvas& canvas, float feature, float amount, Random& random) {
    const int columns = static_cast<int>(static_cast<float>(canvas.width) / feature) + 2;
    const int rows = static_cast<int>(static_cast<float>(canvas.height) / feature) + 2;
    std::vector<float> grid(static_cast<std::size_t>(columns) * static_cast<std::size_t>(rows));
    for (float& value : grid) {
        value = amount * random.Uniform(-1.0f, 1.0f);
    }
    const float inverse = 1.0f / feature;
    for (int y = 0; y < canvas.height; ++y) {
        const float gy = static_cast<float>(y) * inverse;
        const int row = static_cast<int>(gy);
        const float ty = gy - static_cast<float>(row);
        const float* upper = grid.data() + static_cast<std::ptrdiff_t>(row) * columns;
        const float* lower = upper + columns;
        for (int x = 0; x < canvas.width; ++x) {
            const float gx = static_cast<float>(x) * inverse;
            const int column = static_cast<int>(gx);
            const float tx = gx - static_cast<float>(column);
            canvas.At(x, y) += Mix(Mix(upper[column], upper[column + 1], tx),
                                   Mix(lower[column], lower[column + 1], tx), ty);
        }
    }
}

void Rectangle(Canvas& canvas, float left, float top, float right, float bottom, float tone,
               float slope) {
    const int y0 = std::clamp(static_cast<int>(top), 0, canvas.height);
    const int y1 = std::clamp(static_cast<int>(bottom), 0, canvas.height);
    const int x0 = std::clamp(static_cast<int>(left), 0, canvas.width);
    const int x1 = std::clamp(static_cast<int>(right), 0, canvas.width);
    for (int y = y0; y < y1; ++y) {
        for (int x = x0; x < x1; ++x) {
            canvas.At(x, y) = tone + slope * (static_cast<float>(y) - top) / (bottom - top + 1.0f);
        }
    }
}

void Disc(Canvas& canvas, float cx, float cy, float rx, float ry, float tone) {
    const int y0 = std::clamp(static_cast<int>(cy - ry), 0, canvas.height);
    const int y1 = std::clamp(static_cast<int>(cy + ry) + 1, 0, canvas.height);
    for (int y = y0; y < y1; ++y) {
        const float dy = (static_cast<float>(y) - cy) / ry;
        const float half = rx * std::sqrt(std::max(1.0f - dy * dy, 0.0f));
        const int x0 = std::clamp(static_cast<int>(cx - half), 0, canvas.width);
        const int x1 = std::clamp(static_cast<int>(cx + half), 0, canvas.width);
        for (int x = x0; x < x1; ++x) {
            canvas.At(x, y) = tone;
        }
    }
}

void Clutter(Canvas& canvas, Random& random) {
    const float w = static_cast<float>(canvas.width), h = static_cast<float>(canvas.height);
    const int shapes = 3 + random.Below(16);
    for (int i = 0; i < shapes; ++i) {
        const float x = random.Uniform(0.0f, w), y = random.Uniform(0.0f, h);
        const float a = w * random.Uniform(0.03f, 0.35f), b = h * random.Uniform(0.03f, 0.35f);
        if (random.Chance(0.55f)) {
            Rectangle(canvas, x - a, y - b, x + a, y + b, random.Uniform(),
                      random.Uniform(-0.3f, 0.3f));
        } else {
            Disc(canvas, x, y, a, b, random.Uniform());
        }
    }
}

// A wall, a floor, and things against the wall: windows, doors, shelves, lamps.
void Room(Canvas& canvas, Random& random) {
    const float w = static_cast<float>(canvas.width), h = static_cast<float>(canvas.height);
    const float wall = random.Uniform(0.15f, 0.9f);
    Rectangle(canvas, 0, 0, w, h, wall, random.Uniform(-0.15f, 0.15f));
    const float corner = random.Uniform(0.0f, w);
    Rectangle(canvas, corner, 0, w, h, wall * random.Uniform(0.75f, 1.1f),
              random.Uniform(-0.15f, 0.15f));
    const int things = 1 + random.Below(5);
    for (int i = 0; i < things; ++i) {
        const float x = random.Uniform(0.0f, w), a = w * random.Uniform(0.05f, 0.2f);
        const float y = random.Uniform(0.0f, h * 0.7f), b = h * random.Uniform(0.1f, 0.35f);
        const float tone = random.Uniform();
        Rectangle(canvas, x - a - 2, y - b - 2, x + a + 2, y + b + 2, random.Uniform(), 0);
        Rectangle(canvas, x - a, y - b, x + a, y + b, tone, random.Uniform(-0.2f, 0.2f));
        const int shelves = random.Below(6);
        for (int k = 0; k < shelves; ++k) {
            const float level = y - b + 2 * b * static_cast<float>(k) / 6.0f;
            Rectangle(canvas, x - a, level, x + a, level + h * 0.012f, random.Uniform(), 0);
        }
    }
    Rectangle(canvas, 0, h * random.Uniform(0.75f, 1.0f), w, h, random.Uniform(0.05f, 0.7f), 0.1f);
}

void Stripes(Canvas& canvas, Random& random) {
    const float angle = random.Uniform(0.0f, 3.14f);
    const float pitch = random.Uniform(4.0f, 50.0f);
    const float cx = std::cos(angle) / pitch, cy = std::sin(angle) / pitch;
    const float a = random.Uniform(), b = random.Uniform();
    const bool checked = random.Chance(0.4f);
    canvas.Each([&](float& tone, float x, float y) {
        const float s = x * cx + y * cy, t = y * cx - x * cy;
        const bool odd = (s - std::floor(s) < 0.5f) != (checked && t - std::floor(t) < 0.5f);
        tone = odd ? a : b;
    });
}

// A running mean over 2 r + 1 pixels, along rows and then columns.
void BoxBlur(Canvas& canvas, int r) {
    std::vector<float> line(static_cast<std::size_t>(std::max(canvas.width, canvas.height)));
    const auto run = [&](int count, std::ptrdiff_t step, float* from) {
        for (int i = 0; i < count; ++i) {
            line[static_cast<std::size_t>(i)] = from[i * step];
        }
        float sum = 0;
        for (int i = -r; i <= r; ++i) {
            sum += line[static_cast<std::size_t>(std::clamp(i, 0, count - 1))];
        }
        const float share = 1.0f / static_cast<float>(2 * r + 1);
        for (int i = 0; i < count; ++i) {
            from[i * step] = sum * share;
            sum += line[static_cast<std::size_t>(std::min(i + r + 1, count - 1))] -
                   line[static_cast<std::size_t>(std::max(i - r, 0))];
        }
    };
    for (int y = 0; y < canvas.height; ++y) {
        run(canvas.width, 1, &canvas.At(0, y));
    }
    for (int x = 0; x < canvas.width; ++x) {
        run(canvas.height, canvas.width, &canvas.At(x, 0));
    }
}

// A rounded bar from a to b, shaded like a cylinder.
void Limb(Canvas& canvas, float ax, float ay, float bx, float by, float radius, float tone,
          float lightX, float lightY) {
    const float reach = radius + 1.5f;
    const int x0 = std::clamp(static_cast<int>(std::min(ax, bx) - reach), 0, canvas.width);
    const int x1 = std::clamp(static_cast<int>(std::max(ax, bx) + reach) + 1, 0, canvas.width);
    const int y0 = std::clamp(static_cast<int>(std::min(ay, by) - reach), 0, canvas.height);
    const int y1 = std::clamp(static_cast<int>(std::max(ay, by) + reach) + 1, 0, canvas.height);
    const float dx = bx - ax, dy = by - ay;
    const float inverse = 1.0f / std::max(dx * dx + dy * dy, 1e-6f);
    for (int y = y0; y < y1; ++y) {
        for (int x = x0; x < x1; ++x) {
            const float px = static_cast<float>(x) - ax, py = static_cast<float>(y) - ay;
            const float t = Clamp01((px * dx + py * dy) * inverse);
            const float ox = px - t * dx, oy = py - t * dy;
            const float away = std::sqrt(ox * ox + oy * oy);
            const float share = SmoothStep(radius + 0.7f, radius - 0.7f, away);
            if (share > 0) {
                const float up = std::sqrt(std::max(0.0f, 1.0f - away * away / (radius * radius)));
                const float shade =
                    0.55f + 0.45f * up + 0.25f * (ox * lightX + oy * lightY) / radius;
                float& to = canvas.At(x, y);
                to = Mix(to, Clamp01(tone * shade), share);
            }
        }
    }
}

void Hand(Canvas& canvas, float x, float y, float unit, float tone, Random& random) {
    const float angle = random.Uniform(0.0f, 6.28f);
    const float ux = std::cos(angle), uy = std::sin(angle);
    const float light = random.Uniform(0.0f, 6.28f);
    const float lx = std::cos(light), ly = std::sin(light);
    const float finger = unit * random.Uniform(0.045f, 0.06f);
    const float spread = random.Uniform(2.0f, 2.5f) * finger;
    const float mx = x, my = y;
    // The arm comes from where the fingers point away from.
    Limb(canvas, mx - ux * unit * 1.6f, my - uy * unit * 1.6f, mx - ux * unit * 0.3f,
         my - uy * unit * 0.3f, unit * 0.16f, tone * 0.95f, lx, ly);
    for (int i = 0; i < 3; ++i) {
        const float k = static_cast<float>(i) - 1.0f;
        Limb(canvas, mx - ux * unit * 0.28f - uy * k * spread,
             my - uy * unit * 0.28f + ux * k * spread, mx - uy * k * spread, my + ux * k * spread,
             spread * 0.95f, tone, lx, ly);
    }
    for (int i = 0; i < 4; ++i) {
        const float k = static_cast<float>(i) - 1.5f;
        const float reach = unit * (0.42f - 0.035f * k * k) * random.Uniform(0.85f, 1.05f);
        const float fan = k * random.Uniform(0.0f, 0.09f);
        const float fx = ux - uy * fan, fy = uy + ux * fan;
        const float sx = mx - uy * k * spread * 1.05f, sy = my + ux * k * spread * 1.05f;
        Limb(canvas, sx, sy, sx + fx * reach, sy + fy * reach, finger, tone, lx, ly);
    }
    const float side = random.Sign();
    Limb(canvas, mx - ux * unit * 0.2f - uy * side * spread * 1.6f,
         my - uy * unit * 0.2f + ux * side * spread * 1.6f,
         mx + ux * unit * 0.05f - uy * side * unit * 0.32f,
         my + uy * unit * 0.05f + ux * side * unit * 0.32f, finger * 1.15f, tone, lx, ly);
}

} // namespace

void DrawBackground(std::vector<float>& tones, int width, int height, Random& random) {
    tones.resize(static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
    Canvas canvas{tones, width, height};
    const float kind = random.Uniform();
    if (kind < 0.3f) {
        Gradient(canvas, random);
    } else if (kind < 0.55f) {
        Gradient(canvas, random);
        Clutter(canvas, random);
    } else if (kind < 0.88f) {
        Room(canvas, random);
        if (random.Chance(0.4f)) {
            Clutter(canvas, random);
        }
    } else if (kind < 0.94f) {
        Stripes(canvas, random);
    } else {
        std::fill(tones.begin(), tones.end(), random.Uniform());
    }
    if (random.Chance(0.45f)) {
        const int octaves = 1 + random.Below(3);
        for (int i = 0; i < octaves; ++i) {
            AddNoise(canvas, static_cast<float>(width) / random.Uniform(3.0f, 40.0f),
                     random.Uniform(0.0f, 0.14f), random);
        }
    }
    if (random.Chance(0.7f)) {
        const int r = 1 + random.Below(std::max(width / 24, 2));
        BoxBlur(canvas, r);
        BoxBlur(canvas, std::max(r / 2, 1));
    }
    if (random.Chance(0.15f)) {
        AddNoise(canvas, random.Uniform(1.5f, 4.0f), random.Uniform(0.0f, 0.12f), random);
    }
    const float gain = random.Uniform(0.5f, 1.1f), offset = random.Uniform(-0.05f, 0.1f);
    for (float& tone : tones) {
        tone = Clamp01(tone * gain + offset);
    }
}

void DrawOccluder(std::vector<float>& tones, int width, int height, float x, float y, float unit,
                  float skinTone, Random& random) {
    Canvas canvas{tones, width, height};
    const float kind = random.Uniform();
    const float light = random.Uniform(0.0f, 6.28f);
    if (kind < 0.5f) { // a hand at the lower half, the cheek or the forehead
        Hand(canvas, x + unit * random.Uniform(-0.45f, 0.45f),
             y + unit * random.Uniform(-0.4f, 0.6f), unit, skinTone, random);
    } else if (kind < 0.75f) { // something held up: a phone, a cup, a sheet
        const float angle = random.Uniform(0.0f, 3.14f), reach = unit * random.Uniform(0.1f, 0.5f);
        const float cx = x + unit * random.Uniform(-0.6f, 0.6f),
                    cy = y + unit * random.Uniform(-0.3f, 0.65f);
        Limb(canvas, cx - reach * std::cos(angle), cy - reach * std::sin(angle),
             cx + reach * std::cos(angle), cy + reach * std::sin(angle),
             unit * random.Uniform(0.06f, 0.22f), random.Uniform(0.02f, 0.9f), std::cos(light),
             std::sin(light));
    } else if (kind < 0.9f) { // a scarf or collar over the chin
        const float level = y + unit * random.Uniform(0.38f, 0.6f);
        Limb(canvas, x - unit, level + unit * random.Uniform(-0.1f, 0.2f), x + unit,
             level + unit * random.Uniform(-0.1f, 0.2f), unit * random.Uniform(0.12f, 0.2f),
             random.Uniform(0.05f, 0.85f), 0.0f, -0.6f);
    } else { // an edge of the picture's own: a pillar, a door, another head's shoulder
        const float side = random.Sign();
        Limb(canvas, x + side * unit * random.Uniform(0.55f, 0.75f), -unit,
             x + side * unit * random.Uniform(0.55f, 0.75f), static_cast<float>(height) + unit,
             unit * random.Uniform(0.15f, 0.35f), random.Uniform(0.02f, 0.8f), std::cos(light),
             std::sin(light));
    }
}

} // namespace facegen
