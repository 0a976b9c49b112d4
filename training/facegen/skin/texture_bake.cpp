// SPDX-License-Identifier: MIT
#include "skin/texture_bake.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "head/head_regions.h"
#include "skin/atlas.h"

namespace facegen {
namespace {

constexpr int tile_width = atlas::skin.width, tile_height = atlas::skin.height;

float linear(float code) { return std::pow(code / 255.0F, 2.2F); }

struct Flat {
    float x, y;
};

// Calls visit(x, y, weights of a, b, c) for each texel centre inside a triangle.
template <typename Visit>
void for_each_texel(Flat a, Flat b, Flat c, float grow, Visit visit) {
    const float area = (b.x - a.x) * (c.y - a.y) - (b.y - a.y) * (c.x - a.x);
    if (std::fabs(area) < 1e-9F) {
        return;
    }
    const int left = std::max(0, static_cast<int>(std::min({a.x, b.x, c.x}) - 1));
    const int right = std::min(tile_width - 1, static_cast<int>(std::max({a.x, b.x, c.x}) + 1));
    const int top = std::max(0, static_cast<int>(std::min({a.y, b.y, c.y}) - 1));
    const int bottom = std::min(tile_height - 1, static_cast<int>(std::max({a.y, b.y, c.y}) + 1));
    for (int y = top; y <= bottom; ++y) {
        for (int x = left; x <= right; ++x) {
            const float px = static_cast<float>(x), py = static_cast<float>(y);
            const float wa = ((b.x - px) * (c.y - py) - (b.y - py) * (c.x - px)) / area;
            const float wb = ((c.x - px) * (a.y - py) - (c.y - py) * (a.x - px)) / area;
            const float wc = 1.0F - wa - wb;
            if (std::min({wa, wb, wc}) >= -grow) {
                visit(x, y, wa, wb, wc);
            }
        }
    }
}

std::size_t texel(int x, int y) { return static_cast<std::size_t>(y) * tile_width + x; }

} // namespace

Picture reduced_channel(const Picture& picture, int channel, int size) {
    const int step_x = picture.width / size, step_y = picture.height / size;
    if (step_x < 1 || step_y < 1) {
        throw std::runtime_error("a texture is smaller than its tile");
    }
    Picture out(size, size, 1);
    for (int y = 0; y < size; ++y) {
        for (int x = 0; x < size; ++x) {
            int sum = 0;
            for (int j = 0; j < step_y; ++j) {
                for (int i = 0; i < step_x; ++i) {
                    sum += picture.at(x * step_x + i, y * step_y + j)[channel];
                }
            }
            *out.at(x, y) = static_cast<std::uint8_t>(sum / (step_x * step_y));
        }
    }
    return out;
}

HairTexture hair_texture(const Picture& rgba) {
    constexpr int size = atlas::hair.width;
    const int step = rgba.width / size;
    HairTexture out{Picture(size, size, 1), Picture(size, size, 1)};
    std::vector<float> tone(static_cast<std::size_t>(size) * size, -1.0F);
    double total = 0, weight = 0;
    for (int y = 0; y < size; ++y) {
        for (int x = 0; x < size; ++x) {
            float light = 0, alpha = 0;
            for (int j = 0; j < step; ++j) {
                for (int i = 0; i < step; ++i) {
                    const std::uint8_t* p = rgba.at(x * step + i, y * step + j);
                    const float a = p[3] / 255.0F;
                    light += a * (0.3F * p[0] + 0.59F * p[1] + 0.11F * p[2]);
                    alpha += a;
                }
            }
            const float share = alpha / static_cast<float>(step * step);
            *out.alpha.at(x, y) = static_cast<std::uint8_t>(255.0F * share);
            if (share > 0.02F) {
                tone[static_cast<std::size_t>(y) * size + x] = light / alpha;
                total += light;
                weight += alpha;
            }
        }
    }
    const float mean = static_cast<float>(total / weight);
    for (int y = 0; y < size; ++y) {
        float last = mean;
        for (int x = 0; x < size; ++x) {
            const float value = tone[static_cast<std::size_t>(y) * size + x];
            last = value < 0 ? last : value;
            *out.tone.at(x, y) =
                static_cast<std::uint8_t>(std::clamp(128.0F * last / mean, 0.0F, 255.0F));
        }
    }
    return out;
}

void bake_texel_base(HeadModel& model) {
    const Surface& skin = model.skin;
    const std::size_t texels = static_cast<std::size_t>(tile_width) * tile_height;
    model.texel_base.assign(texels, Vec3{0, -10, -10});
    model.texel_used.assign(texels, false);
    // A second, grown pass covers the texels next to a seam, which bilinear look-ups also read.
    for (const float grow : {0.0F, 0.4F}) {
        for (std::size_t t = 0; t < model.close_triangles; ++t) {
            const Triangle& triangle = skin.triangles[t];
            Flat at[3];
            Vec3 base[3];
            for (std::size_t i = 0; i < 3; ++i) {
                at[i] = {skin.u[triangle[i]], skin.v[triangle[i]]};
                base[i] = model.base[skin.point[triangle[i]]];
            }
            for_each_texel(at[0], at[1], at[2], grow, [&](int x, int y, float a, float b, float c) {
                const std::size_t i = texel(x, y);
                if (!model.texel_used[i]) {
                    model.texel_used[i] = true;
                    model.texel_base[i] = base[0] * a + base[1] * b + base[2] * c;
                }
            });
        }
    }
}

std::vector<std::int16_t> skin_detail(const Picture& rgb, const HeadModel& model) {
    const float scale = static_cast<float>(rgb.width) / atlas::skin_sheet;
    std::vector<float> light(model.texel_base.size());
    double total = 0;
    int counted = 0;
    for (int y = 0; y < tile_height; ++y) {
        for (int x = 0; x < tile_width; ++x) {
            const float fx = (static_cast<float>(x + atlas::skin_left) + 0.5F) * scale - 0.5F;
            const float fy = (static_cast<float>(y + atlas::skin_top) + 0.5F) * scale - 0.5F;
            const int ix = static_cast<int>(fx), iy = static_cast<int>(fy);
            const int jx = std::min(ix + 1, rgb.width - 1), jy = std::min(iy + 1, rgb.height - 1);
            const float tx = fx - static_cast<float>(ix), ty = fy - static_cast<float>(iy);
            const auto grey = [&](int px, int py) {
                const std::uint8_t* p = rgb.at(px, py);
                return 0.35F * p[0] + 0.55F * p[1] + 0.1F * p[2];
            };
            const float code =
                mix(mix(grey(ix, iy), grey(jx, iy), tx), mix(grey(ix, jy), grey(jx, jy), tx), ty);
            const std::size_t i = texel(x, y);
            light[i] = linear(std::max(code, 4.0F));
            const Vec3 base = model.texel_base[i];
            if (model.texel_used[i] && base.z > 1.0F && std::fabs(base.x) < 0.5F && base.y > 6.3F &&
                base.y < 7.6F && lips(base) == 0) {
                total += light[i];
                ++counted;
            }
        }
    }
    const float mean = static_cast<float>(total / counted);
    std::vector<std::int16_t> detail(light.size());
    for (std::size_t i = 0; i < light.size(); ++i) {
        float value = std::log2(light[i] / mean);
        if (model.texel_used[i]) {
            // The scalp's painted hair fades in well below the hairline.
            const float painted =
                smooth_step(-0.33F, -0.08F, above_hairline(model.texel_base[i], {}));
            value *= 1.0F - 0.93F * painted;
        }
        detail[i] = static_cast<std::int16_t>(std::clamp(value, -6.0F, 3.0F) * 2048.0F);
    }
    return detail;
}

std::vector<std::uint8_t> brow_coverage(const Fitted& brow, const Picture& rgba,
                                        const HeadModel& model) {
    // Each brow point lies on three points of the skin: the same weights place it in the texture.
    std::vector<Flat> of_point(model.base.size());
    for (std::size_t i = model.skin.point.size(); i-- > 0;) {
        of_point[model.skin.point[i]] = {model.skin.u[i], model.skin.v[i]};
    }
    const auto place = [&](std::uint32_t point) {
        Flat at{0, 0};
        const Fitting::Point& p = brow.fitting.points[point];
        for (std::size_t i = 0; i < 3; ++i) {
            at.x += p.weight[i] * of_point[p.base[i]].x;
            at.y += p.weight[i] * of_point[p.base[i]].y;
        }
        return at;
    };
    std::vector<std::uint8_t> coverage(model.texel_base.size());
    for (const Triangle& t : brow.surface.triangles) {
        Flat at[3];
        for (std::size_t i = 0; i < 3; ++i) {
            at[i] = place(brow.surface.point[t[i]]);
        }
        const float scale = static_cast<float>(rgba.width) / 512.0F;
        for_each_texel(at[0], at[1], at[2], 0.0F, [&](int x, int y, float a, float b, float c) {
            const auto sample = [&](const std::vector<float>& of) {
                return (a * of[t[0]] + b * of[t[1]] + c * of[t[2]]) * scale;
            };
            const float u = sample(brow.surface.u), v = sample(brow.surface.v);
            // Several texels of the brow fall on one of the skin.
            int sum = 0;
            for (int j = -2; j <= 2; ++j) {
                for (int i = -2; i <= 2; ++i) {
                    const int px = std::clamp(static_cast<int>(u) + i, 0, rgba.width - 1);
                    const int py = std::clamp(static_cast<int>(v) + j, 0, rgba.height - 1);
                    sum += rgba.at(px, py)[3];
                }
            }
            std::uint8_t& best = coverage[texel(x, y)];
            best = std::max(best, static_cast<std::uint8_t>(sum / 25));
        });
    }
    return coverage;
}

} // namespace facegen
