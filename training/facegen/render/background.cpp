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

    float& at(int x, int y) {
        return tones[static_cast<std::size_t>(y) * static_cast<std::size_t>(width) +
                     static_cast<std::size_t>(x)];
    }
    template <typename Paint>
    void each(Paint paint) {
        for (int y = 0; y < height; ++y) {
            for (int x = 0; x < width; ++x) {
                paint(at(x, y), static_cast<float>(x), static_cast<float>(y));
            }
        }
    }
};

void gradient(Canvas& canvas, Random& random) {
    const float angle = random.uniform(0.0F, 6.28F);
    const float from = random.uniform(), to = random.uniform();
    const float size = static_cast<float>(std::max(canvas.width, canvas.height));
    const float cx = std::cos(angle) / size, cy = std::sin(angle) / size;
    const float bulge = random.uniform(-1.0F, 1.0F);
    canvas.each([&](float& tone, float x, float y) {
        const float t = (x - size / 2) * cx + (y - size / 2) * cy + 0.5F;
        tone = mix(from, to, t + bulge * t * (1.0F - t));
    });
}

// One octave of noise on a grid that the picture interpolates.
void add_noise(Canvas& canvas, float feature, float amount, Random& random) {
    const int columns = static_cast<int>(static_cast<float>(canvas.width) / feature) + 2;
    const int rows = static_cast<int>(static_cast<float>(canvas.height) / feature) + 2;
    std::vector<float> grid(static_cast<std::size_t>(columns) * static_cast<std::size_t>(rows));
    for (float& value : grid) {
        value = amount * random.uniform(-1.0F, 1.0F);
    }
    const float inverse = 1.0F / feature;
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
            canvas.at(x, y) += mix(mix(upper[column], upper[column + 1], tx),
                                   mix(lower[column], lower[column + 1], tx), ty);
        }
    }
}

void rectangle(Canvas& canvas, float left, float top, float right, float bottom, float tone,
               float slope) {
    const int y0 = std::clamp(static_cast<int>(top), 0, canvas.height);
    const int y1 = std::clamp(static_cast<int>(bottom), 0, canvas.height);
    const int x0 = std::clamp(static_cast<int>(left), 0, canvas.width);
    const int x1 = std::clamp(static_cast<int>(right), 0, canvas.width);
    for (int y = y0; y < y1; ++y) {
        for (int x = x0; x < x1; ++x) {
            canvas.at(x, y) = tone + slope * (static_cast<float>(y) - top) / (bottom - top + 1.0F);
        }
    }
}

void disc(Canvas& canvas, float cx, float cy, float rx, float ry, float tone) {
    const int y0 = std::clamp(static_cast<int>(cy - ry), 0, canvas.height);
    const int y1 = std::clamp(static_cast<int>(cy + ry) + 1, 0, canvas.height);
    for (int y = y0; y < y1; ++y) {
        const float dy = (static_cast<float>(y) - cy) / ry;
        const float half = rx * std::sqrt(std::max(1.0F - dy * dy, 0.0F));
        const int x0 = std::clamp(static_cast<int>(cx - half), 0, canvas.width);
        const int x1 = std::clamp(static_cast<int>(cx + half), 0, canvas.width);
        for (int x = x0; x < x1; ++x) {
            canvas.at(x, y) = tone;
        }
    }
}

void clutter(Canvas& canvas, Random& random) {
    const float w = static_cast<float>(canvas.width), h = static_cast<float>(canvas.height);
    const int shapes = 3 + random.below(16);
    for (int i = 0; i < shapes; ++i) {
        const float x = random.uniform(0.0F, w), y = random.uniform(0.0F, h);
        const float a = w * random.uniform(0.03F, 0.35F), b = h * random.uniform(0.03F, 0.35F);
        if (random.chance(0.55F)) {
            rectangle(canvas, x - a, y - b, x + a, y + b, random.uniform(),
                      random.uniform(-0.3F, 0.3F));
        } else {
            disc(canvas, x, y, a, b, random.uniform());
        }
    }
}

// A wall, a floor, and things against the wall: windows, doors, shelves, lamps.
void room(Canvas& canvas, Random& random) {
    const float w = static_cast<float>(canvas.width), h = static_cast<float>(canvas.height);
    const float wall = random.uniform(0.15F, 0.9F);
    rectangle(canvas, 0, 0, w, h, wall, random.uniform(-0.15F, 0.15F));
    const float corner = random.uniform(0.0F, w);
    rectangle(canvas, corner, 0, w, h, wall * random.uniform(0.75F, 1.1F),
              random.uniform(-0.15F, 0.15F));
    const int things = 1 + random.below(5);
    for (int i = 0; i < things; ++i) {
        const float x = random.uniform(0.0F, w), a = w * random.uniform(0.05F, 0.2F);
        const float y = random.uniform(0.0F, h * 0.7F), b = h * random.uniform(0.1F, 0.35F);
        const float tone = random.uniform();
        rectangle(canvas, x - a - 2, y - b - 2, x + a + 2, y + b + 2, random.uniform(), 0);
        rectangle(canvas, x - a, y - b, x + a, y + b, tone, random.uniform(-0.2F, 0.2F));
        const int shelves = random.below(6);
        for (int k = 0; k < shelves; ++k) {
            const float level = y - b + 2 * b * static_cast<float>(k) / 6.0F;
            rectangle(canvas, x - a, level, x + a, level + h * 0.012F, random.uniform(), 0);
        }
    }
    rectangle(canvas, 0, h * random.uniform(0.75F, 1.0F), w, h, random.uniform(0.05F, 0.7F), 0.1F);
}

void stripes(Canvas& canvas, Random& random) {
    const float angle = random.uniform(0.0F, 3.14F);
    const float pitch = random.uniform(4.0F, 50.0F);
    const float cx = std::cos(angle) / pitch, cy = std::sin(angle) / pitch;
    const float a = random.uniform(), b = random.uniform();
    const bool checked = random.chance(0.4F);
    canvas.each([&](float& tone, float x, float y) {
        const float s = x * cx + y * cy, t = y * cx - x * cy;
        const bool odd = (s - std::floor(s) < 0.5F) != (checked && t - std::floor(t) < 0.5F);
        tone = odd ? a : b;
    });
}

// A running mean over 2 r + 1 pixels, along rows and then columns.
void box_blur(Canvas& canvas, int r) {
    std::vector<float> line(static_cast<std::size_t>(std::max(canvas.width, canvas.height)));
    const auto run = [&](int count, std::ptrdiff_t step, float* from) {
        for (int i = 0; i < count; ++i) {
            line[static_cast<std::size_t>(i)] = from[i * step];
        }
        float sum = 0;
        for (int i = -r; i <= r; ++i) {
            sum += line[static_cast<std::size_t>(std::clamp(i, 0, count - 1))];
        }
        const float share = 1.0F / static_cast<float>(2 * r + 1);
        for (int i = 0; i < count; ++i) {
            from[i * step] = sum * share;
            sum += line[static_cast<std::size_t>(std::min(i + r + 1, count - 1))] -
                   line[static_cast<std::size_t>(std::max(i - r, 0))];
        }
    };
    for (int y = 0; y < canvas.height; ++y) {
        run(canvas.width, 1, &canvas.at(0, y));
    }
    for (int x = 0; x < canvas.width; ++x) {
        run(canvas.height, canvas.width, &canvas.at(x, 0));
    }
}

// A rounded bar from a to b, shaded like a cylinder.
void limb(Canvas& canvas, float ax, float ay, float bx, float by, float radius, float tone,
          float light_x, float light_y) {
    const float reach = radius + 1.5F;
    const int x0 = std::clamp(static_cast<int>(std::min(ax, bx) - reach), 0, canvas.width);
    const int x1 = std::clamp(static_cast<int>(std::max(ax, bx) + reach) + 1, 0, canvas.width);
    const int y0 = std::clamp(static_cast<int>(std::min(ay, by) - reach), 0, canvas.height);
    const int y1 = std::clamp(static_cast<int>(std::max(ay, by) + reach) + 1, 0, canvas.height);
    const float dx = bx - ax, dy = by - ay;
    const float inverse = 1.0F / std::max(dx * dx + dy * dy, 1e-6F);
    for (int y = y0; y < y1; ++y) {
        for (int x = x0; x < x1; ++x) {
            const float px = static_cast<float>(x) - ax, py = static_cast<float>(y) - ay;
            const float t = clamp01((px * dx + py * dy) * inverse);
            const float ox = px - t * dx, oy = py - t * dy;
            const float away = std::sqrt(ox * ox + oy * oy);
            const float share = smooth_step(radius + 0.7F, radius - 0.7F, away);
            if (share > 0) {
                const float up = std::sqrt(std::max(0.0F, 1.0F - away * away / (radius * radius)));
                const float shade =
                    0.55F + 0.45F * up + 0.25F * (ox * light_x + oy * light_y) / radius;
                float& to = canvas.at(x, y);
                to = mix(to, clamp01(tone * shade), share);
            }
        }
    }
}

void hand(Canvas& canvas, float x, float y, float unit, float tone, Random& random) {
    const float angle = random.uniform(0.0F, 6.28F);
    const float ux = std::cos(angle), uy = std::sin(angle);
    const float light = random.uniform(0.0F, 6.28F);
    const float lx = std::cos(light), ly = std::sin(light);
    const float finger = unit * random.uniform(0.045F, 0.06F);
    const float spread = random.uniform(2.0F, 2.5F) * finger;
    const float mx = x, my = y;
    // The arm comes from where the fingers point away from.
    limb(canvas, mx - ux * unit * 1.6F, my - uy * unit * 1.6F, mx - ux * unit * 0.3F,
         my - uy * unit * 0.3F, unit * 0.16F, tone * 0.95F, lx, ly);
    for (int i = 0; i < 3; ++i) {
        const float k = static_cast<float>(i) - 1.0F;
        limb(canvas, mx - ux * unit * 0.28F - uy * k * spread,
             my - uy * unit * 0.28F + ux * k * spread, mx - uy * k * spread, my + ux * k * spread,
             spread * 0.95F, tone, lx, ly);
    }
    for (int i = 0; i < 4; ++i) {
        const float k = static_cast<float>(i) - 1.5F;
        const float reach = unit * (0.42F - 0.035F * k * k) * random.uniform(0.85F, 1.05F);
        const float fan = k * random.uniform(0.0F, 0.09F);
        const float fx = ux - uy * fan, fy = uy + ux * fan;
        const float sx = mx - uy * k * spread * 1.05F, sy = my + ux * k * spread * 1.05F;
        limb(canvas, sx, sy, sx + fx * reach, sy + fy * reach, finger, tone, lx, ly);
    }
    const float side = random.sign();
    limb(canvas, mx - ux * unit * 0.2F - uy * side * spread * 1.6F,
         my - uy * unit * 0.2F + ux * side * spread * 1.6F,
         mx + ux * unit * 0.05F - uy * side * unit * 0.32F,
         my + uy * unit * 0.05F + ux * side * unit * 0.32F, finger * 1.15F, tone, lx, ly);
}

} // namespace

void draw_background(std::vector<float>& tones, int width, int height, Random& random) {
    tones.resize(static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
    Canvas canvas{tones, width, height};
    const float kind = random.uniform();
    if (kind < 0.3F) {
        gradient(canvas, random);
    } else if (kind < 0.55F) {
        gradient(canvas, random);
        clutter(canvas, random);
    } else if (kind < 0.88F) {
        room(canvas, random);
        if (random.chance(0.4F)) {
            clutter(canvas, random);
        }
    } else if (kind < 0.94F) {
        stripes(canvas, random);
    } else {
        std::fill(tones.begin(), tones.end(), random.uniform());
    }
    if (random.chance(0.45F)) {
        const int octaves = 1 + random.below(3);
        for (int i = 0; i < octaves; ++i) {
            add_noise(canvas, static_cast<float>(width) / random.uniform(3.0F, 40.0F),
                      random.uniform(0.0F, 0.14F), random);
        }
    }
    if (random.chance(0.7F)) {
        const int r = 1 + random.below(std::max(width / 24, 2));
        box_blur(canvas, r);
        box_blur(canvas, std::max(r / 2, 1));
    }
    if (random.chance(0.15F)) {
        add_noise(canvas, random.uniform(1.5F, 4.0F), random.uniform(0.0F, 0.12F), random);
    }
    const float gain = random.uniform(0.5F, 1.1F), offset = random.uniform(-0.05F, 0.1F);
    for (float& tone : tones) {
        tone = clamp01(tone * gain + offset);
    }
}

void draw_occluder(std::vector<float>& tones, int width, int height, float x, float y, float unit,
                   float skin_tone, Random& random) {
    Canvas canvas{tones, width, height};
    const float kind = random.uniform();
    const float light = random.uniform(0.0F, 6.28F);
    if (kind < 0.5F) { // a hand at the lower half, the cheek or the forehead
        hand(canvas, x + unit * random.uniform(-0.45F, 0.45F),
             y + unit * random.uniform(-0.4F, 0.6F), unit, skin_tone, random);
    } else if (kind < 0.75F) { // something held up: a phone, a cup, a sheet
        const float angle = random.uniform(0.0F, 3.14F), reach = unit * random.uniform(0.1F, 0.5F);
        const float cx = x + unit * random.uniform(-0.6F, 0.6F),
                    cy = y + unit * random.uniform(-0.3F, 0.65F);
        limb(canvas, cx - reach * std::cos(angle), cy - reach * std::sin(angle),
             cx + reach * std::cos(angle), cy + reach * std::sin(angle),
             unit * random.uniform(0.06F, 0.22F), random.uniform(0.02F, 0.9F), std::cos(light),
             std::sin(light));
    } else if (kind < 0.9F) { // a scarf or collar over the chin
        const float level = y + unit * random.uniform(0.38F, 0.6F);
        limb(canvas, x - unit, level + unit * random.uniform(-0.1F, 0.2F), x + unit,
             level + unit * random.uniform(-0.1F, 0.2F), unit * random.uniform(0.12F, 0.2F),
             random.uniform(0.05F, 0.85F), 0.0F, -0.6F);
    } else { // an edge of the picture's own: a pillar, a door, another head's shoulder
        const float side = random.sign();
        limb(canvas, x + side * unit * random.uniform(0.55F, 0.75F), -unit,
             x + side * unit * random.uniform(0.55F, 0.75F), static_cast<float>(height) + unit,
             unit * random.uniform(0.15F, 0.35F), random.uniform(0.02F, 0.8F), std::cos(light),
             std::sin(light));
    }
}

} // namespace facegen
