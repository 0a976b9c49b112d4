// SPDX-License-Identifier: MIT
#include "skin/texture_bake.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "head/head_regions.h"
#include "skin/atlas.h"

namespace facegen {
namespace {

constexpr int kTileWidth = atlas::kSkin.width, kTileHeight = atlas::kSkin.height;

float Linear(float code) { return std::pow(code / 255.0f, 2.2f); }

struct Flat {
    float x, y;
};

// Calls visit(x, y, weights of a, b, c) for each texel centre inside a triangle.
template <typename Visit>
void ForEachTexel(Flat a, Flat b, Flat c, float grow, Visit visit) {
    const float area = (b.x - a.x) * (c.y - a.y) - (b.y - a.y) * (c.x - a.x);
    if (std::fabs(area) < 1e-9f) {
        return;
    }
    const int left = std::max(0, static_cast<int>(std::min({a.x, b.x, c.x}) - 1));
    const int right = std::min(kTileWidth - 1, static_cast<int>(std::max({a.x, b.x, c.x}) + 1));
    const int top = std::max(0, static_cast<int>(std::min({a.y, b.y, c.y}) - 1));
    const int bottom = std::min(kTileHeight - 1, static_cast<int>(std::max({a.y, b.y, c.y}) + 1));
    for (int y = top; y <= bottom; ++y) {
        for (int x = left; x <= right; ++x) {
            const float px = static_cast<float>(x), py = static_cast<float>(y);
            const float wa = ((b.x - px) * (c.y - py) - (b.y - py) * (c.x - px)) / area;
            const float wb = ((c.x - px) * (a.y - py) - (c.y - py) * (a.x - px)) / area;
            const float wc = 1.0f - wa - wb;
            if (std::min({wa, wb, wc}) >= -grow) {
                visit(x, y, wa, wb, wc);
            }
        }
    }
}

std::size_t Texel(int x, int y) { return static_cast<std::size_t>(y) * kTileWidth + x; }

} // namespace

Picture ReducedChannel(const Picture& picture, int channel, int size) {
    const int stepX = picture.width / size, stepY = picture.height / size;
    if (stepX < 1 || stepY < 1) {
        throw std::runtime_error("a texture is smaller than its tile");
    }
    Picture out(size, size, 1);
    for (int y = 0; y < size; ++y) {
        for (int x = 0; x < size; ++x) {
            int sum = 0;
            for (int j = 0; j < stepY; ++j) {
                for (int i = 0; i < stepX; ++i) {
                    sum += picture.At(x * stepX + i, y * stepY + j)[channel];
                }
            }
            *out.At(x, y) = static_cast<std::uint8_t>(sum / (stepX * stepY));
        }
    }
    return out;
}

HairTexture BakeHairTexture(const Picture& rgba) {
    constexpr int size = atlas::kHair.width;
    const int step = rgba.width / size;
    HairTexture out{Picture(size, size, 1), Picture(size, size, 1)};
    std::vector<float> tone(static_cast<std::size_t>(size) * size, -1.0f);
    double total = 0, weight = 0;
    for (int y = 0; y < size; ++y) {
        for (int x = 0; x < size; ++x) {
            float light = 0, alpha = 0;
            for (int j = 0; j < step; ++j) {
                for (int i = 0; i < step; ++i) {
                    const std::uint8_t* p = rgba.At(x * step + i, y * step + j);
                    const float a = p[3] / 255.0f;
                    light += a * (0.3f * p[0] + 0.59f * p[1] + 0.11f * p[2]);
                    alpha += a;
                }
            }
            const float share = alpha / static_cast<float>(step * step);
            *out.alpha.At(x, y) = static_cast<std::uint8_t>(255.0f * share);
            if (share > 0.02f) {
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
            *out.tone.At(x, y) =
                static_cast<std::uint8_t>(std::clamp(128.0f * last / mean, 0.0f, 255.0f));
        }
    }
    return out;
}

void BakeTexelBase(HeadModel& model) {
    const Surface& skin = model.skin;
    const std::size_t texels = static_cast<std::size_t>(kTileWidth) * kTileHeight;
    model.texelBase.assign(texels, Vec3{0, -10, -10});
    model.texelUsed.assign(texels, false);
    // A second, grown pass covers the texels next to a seam, which bilinear look-ups also read.
    for (const float grow : {0.0f, 0.4f}) {
        for (std::size_t t = 0; t < model.closeTriangles; ++t) {
            const Triangle& triangle = skin.triangles[t];
            Flat at[3];
            Vec3 base[3];
            for (std::size_t i = 0; i < 3; ++i) {
                at[i] = {skin.u[triangle[i]], skin.v[triangle[i]]};
                base[i] = model.base[skin.point[triangle[i]]];
            }
            ForEachTexel(at[0], at[1], at[2], grow, [&](int x, int y, float a, float b, float c) {
                const std::size_t i = Texel(x, y);
                if (!model.texelUsed[i]) {
                    model.texelUsed[i] = true;
                    model.texelBase[i] = base[0] * a + base[1] * b + base[2] * c;
                }
            });
        }
    }
}

std::vector<std::int16_t> SkinDetail(const Picture& rgb, const HeadModel& model) {
    const float scale = static_cast<float>(rgb.width) / atlas::kSkinSheet;
    std::vector<float> light(model.texelBase.size());
    double total = 0;
    int counted = 0;
    for (int y = 0; y < kTileHeight; ++y) {
        for (int x = 0; x < kTileWidth; ++x) {
            const float fx = (static_cast<float>(x + atlas::kSkinLeft) + 0.5f) * scale - 0.5f;
            const float fy = (static_cast<float>(y + atlas::kSkinTop) + 0.5f) * scale - 0.5f;
            const int ix = static_cast<int>(fx), iy = static_cast<int>(fy);
            const int jx = std::min(ix + 1, rgb.width - 1), jy = std::min(iy + 1, rgb.height - 1);
            const float tx = fx - static_cast<float>(ix), ty = fy - static_cast<float>(iy);
            const auto grey = [&](int px, int py) {
                const std::uint8_t* p = rgb.At(px, py);
                return 0.35f * p[0] + 0.55f * p[1] + 0.1f * p[2];
            };
            const float code =
                Mix(Mix(grey(ix, iy), grey(jx, iy), tx), Mix(grey(ix, jy), grey(jx, jy), tx), ty);
            const std::size_t i = Texel(x, y);
            light[i] = Linear(std::max(code, 4.0f));
            const Vec3 base = model.texelBase[i];
            if (model.texelUsed[i] && base.z > 1.0f && std::fabs(base.x) < 0.5f && base.y > 6.3f &&
                base.y < 7.6f && Lips(base) == 0) {
                total += light[i];
                ++counted;
            }
        }
    }
    const float mean = static_cast<float>(total / counted);
    std::vector<std::int16_t> detail(light.size());
    for (std::size_t i = 0; i < light.size(); ++i) {
        float value = std::log2(light[i] / mean);
        if (model.texelUsed[i]) {
            // The scalp's painted hair fades in well below the hairline.
            const float painted = SmoothStep(-0.33f, -0.08f, AboveHairline(model.texelBase[i], {}));
            value *= 1.0f - 0.93f * painted;
        }
        detail[i] = static_cast<std::int16_t>(std::clamp(value, -6.0f, 3.0f) * 2048.0f);
    }
    return detail;
}

std::vector<std::uint8_t> BrowCoverage(const Fitted& brow, const Picture& rgba,
                                       const HeadModel& model) {
    // Each brow point lies on three points of the skin: the same weights place it in the texture.
    std::vector<Flat> ofPoint(model.base.size());
    for (std::size_t i = model.skin.point.size(); i-- > 0;) {
        ofPoint[model.skin.point[i]] = {model.skin.u[i], model.skin.v[i]};
    }
    const auto place = [&](std::uint32_t point) {
        Flat at{0, 0};
        const Fitting::Point& p = brow.fitting.points[point];
        for (std::size_t i = 0; i < 3; ++i) {
            at.x += p.weight[i] * ofPoint[p.base[i]].x;
            at.y += p.weight[i] * ofPoint[p.base[i]].y;
        }
        return at;
    };
    std::vector<std::uint8_t> coverage(model.texelBase.size());
    for (const Triangle& t : brow.surface.triangles) {
        Flat at[3];
        for (std::size_t i = 0; i < 3; ++i) {
            at[i] = place(brow.surface.point[t[i]]);
        }
        const float scale = static_cast<float>(rgba.width) / 512.0f;
        ForEachTexel(at[0], at[1], at[2], 0.0f, [&](int x, int y, float a, float b, float c) {
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
                    sum += rgba.At(px, py)[3];
                }
            }
            std::uint8_t& best = coverage[Texel(x, y)];
            best = std::max(best, static_cast<std::uint8_t>(sum / 25));
        });
    }
    return coverage;
}

} // namespace facegen
