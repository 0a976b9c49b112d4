// SPDX-License-Identifier: MIT
#include "light/environment.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <iterator>
#include <numbers>
#include <stdexcept>
#include <string>

namespace facegen {
namespace {

constexpr float kPi = std::numbers::pi_v<float>;
constexpr float kLampThreshold = 12; // times the mean radiance: what is brighter is a lamp
constexpr float kLampReach = 0.94f;  // cosine of how far a lamp's light is gathered
constexpr int kCoarse = 8;           // pixels along a side to one of the coarse map

struct Bytes {
    std::string_view left;
    const std::string& name;

    int Next() {
        if (left.empty()) {
            throw std::runtime_error(name + ": ends too early");
        }
        const auto byte = static_cast<unsigned char>(left.front());
        left.remove_prefix(1);
        return byte;
    }
    std::string_view Line() {
        const std::size_t end = left.find('\n');
        if (end == std::string_view::npos) {
            throw std::runtime_error(name + ": not a Radiance picture");
        }
        const std::string_view line = left.substr(0, end);
        left.remove_prefix(end + 1);
        return line;
    }
};

// One channel of a line: runs of equal bytes (their count over 128) and stretches of others.
void ReadChannel(Bytes& bytes, std::vector<int>& channel) {
    std::size_t x = 0;
    while (x < channel.size()) {
        const int count = bytes.Next();
        const bool run = count > 128;
        const auto length = static_cast<std::size_t>(run ? count - 128 : count);
        if (length == 0 || x + length > channel.size()) {
            throw std::runtime_error(bytes.name + ": a line of another length");
        }
        const int value = run ? bytes.Next() : 0;
        for (std::size_t i = 0; i < length; ++i) {
            channel[x++] = run ? value : bytes.Next();
        }
    }
}

Vec3 DirectionOf(float azimuth, float elevation) {
    return {std::sin(azimuth) * std::cos(elevation), std::sin(elevation),
            std::cos(azimuth) * std::cos(elevation)};
}

float ElevationOf(int y, int height) {
    return kPi * (0.5f - (static_cast<float>(y) + 0.5f) / static_cast<float>(height));
}

float AzimuthOf(int x, int width) {
    return 2 * kPi * ((static_cast<float>(x) + 0.5f) / static_cast<float>(width) - 0.5f);
}

// The share of the sphere that a pixel of this row covers.
float ShareOf(int y, int width, int height) {
    return std::cos(ElevationOf(y, height)) * kPi / 2 / static_cast<float>(width * height);
}

void Balance(Environment& e) {
    double sum = 0;
    for (int y = 0; y < e.height; ++y) {
        for (int x = 0; x < e.width; ++x) {
            sum += ShareOf(y, e.width, e.height) *
                   e.radiance[static_cast<std::size_t>(y * e.width + x)];
        }
    }
    const float gain = 1.0f / std::max(static_cast<float>(sum), 1e-9f);
    for (float& value : e.radiance) {
        value *= gain;
    }
}

// Takes what is brighter than the threshold near the brightest pixel out of `rest`.
Environment::Source TakeLamp(const Environment& e, std::vector<float>& rest) {
    const auto top = std::max_element(rest.begin(), rest.end());
    Environment::Source lamp;
    if (*top <= kLampThreshold) {
        return lamp;
    }
    const auto at = static_cast<int>(top - rest.begin());
    lamp.azimuth = AzimuthOf(at % e.width, e.width);
    lamp.elevation = ElevationOf(at / e.width, e.height);
    const Vec3 towards = DirectionOf(lamp.azimuth, lamp.elevation);
    for (int y = 0; y < e.height; ++y) {
        for (int x = 0; x < e.width; ++x) {
            float& value = rest[static_cast<std::size_t>(y * e.width + x)];
            const Vec3 d = DirectionOf(AzimuthOf(x, e.width), ElevationOf(y, e.height));
            if (value > kLampThreshold && Dot(d, towards) > kLampReach) {
                // A full sphere of radiance 1 gives 1 to each surface: a lamp gives four times its
                // share of the sphere.
                lamp.strength += 4 * ShareOf(y, e.width, e.height) * (value - kLampThreshold);
                value = kLampThreshold;
            }
        }
    }
    return lamp;
}

void Coarsen(Environment& e, const std::vector<float>& rest) {
    e.coarseWidth = std::max(1, e.width / kCoarse);
    e.coarseHeight = std::max(1, e.height / kCoarse);
    e.coarse.assign(static_cast<std::size_t>(e.coarseWidth * e.coarseHeight), 0.0f);
    std::vector<float> weight(e.coarse.size(), 0.0f);
    for (int y = 0; y < e.height; ++y) {
        for (int x = 0; x < e.width; ++x) {
            const int cx = std::min(x * e.coarseWidth / e.width, e.coarseWidth - 1);
            const int cy = std::min(y * e.coarseHeight / e.height, e.coarseHeight - 1);
            const auto to = static_cast<std::size_t>(cy * e.coarseWidth + cx);
            const float share = ShareOf(y, e.width, e.height);
            e.coarse[to] += share * rest[static_cast<std::size_t>(y * e.width + x)];
            weight[to] += share;
        }
    }
    for (std::size_t i = 0; i < weight.size(); ++i) {
        e.coarse[i] /= std::max(weight[i], 1e-12f);
    }
}

} // namespace

Environment ParseEnvironment(std::string_view text, const std::string& name) {
    Bytes bytes{text, name};
    if (!bytes.Line().starts_with("#?")) {
        throw std::runtime_error(name + ": not a Radiance picture");
    }
    while (!bytes.Line().empty()) {
    }
    Environment e;
    const std::string size(bytes.Line());
    if (std::sscanf(size.c_str(), "-Y %d +X %d", &e.height, &e.width) != 2 || e.width < 8 ||
        e.width > 16384 || e.height < 8 || e.height > 8192) {
        throw std::runtime_error(name + ": a size or an order of lines that is not read here");
    }
    std::vector<int> channels[4];
    for (auto& channel : channels) {
        channel.resize(static_cast<std::size_t>(e.width));
    }
    e.radiance.reserve(static_cast<std::size_t>(e.width) * static_cast<std::size_t>(e.height));
    for (int y = 0; y < e.height; ++y) {
        const bool runs = bytes.Next() == 2 && bytes.Next() == 2;
        if (!runs || bytes.Next() * 256 + bytes.Next() != e.width) {
            throw std::runtime_error(name + ": its lines are not run-length coded");
        }
        for (auto& channel : channels) {
            ReadChannel(bytes, channel);
        }
        for (std::size_t x = 0; x < channels[0].size(); ++x) {
            const float grey = 0.2126f * static_cast<float>(channels[0][x]) +
                               0.7152f * static_cast<float>(channels[1][x]) +
                               0.0722f * static_cast<float>(channels[2][x]);
            e.radiance.push_back(channels[3][x] == 0 ? 0.0f
                                                     : std::ldexp(grey, channels[3][x] - 136));
        }
    }
    Balance(e);
    std::vector<float> rest = e.radiance;
    for (Environment::Source& lamp : e.lamps) {
        lamp = TakeLamp(e, rest);
    }
    Coarsen(e, rest);
    return e;
}

std::vector<Environment> LoadEnvironments(const std::filesystem::path& folder) {
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        if (entry.path().extension() == ".hdr") {
            files.push_back(entry.path());
        }
    }
    std::sort(files.begin(), files.end());
    std::vector<Environment> all;
    for (const auto& file : files) {
        std::ifstream in(file, std::ios::binary);
        const std::string bytes((std::istreambuf_iterator<char>(in)), {});
        all.push_back(ParseEnvironment(bytes, file.string()));
    }
    if (all.empty()) {
        throw std::runtime_error(folder.string() + ": no panoramas (*.hdr)");
    }
    return all;
}

void LightBy(Light& light, const Environment& e, float turn) {
    // Radiance in spherical harmonics up to the second order, each weakened as a matt surface does.
    std::array<float, 9> sum{};
    for (int y = 0; y < e.coarseHeight; ++y) {
        const float elevation = ElevationOf(y, e.coarseHeight);
        const float share = ShareOf(y, e.coarseWidth, e.coarseHeight);
        for (int x = 0; x < e.coarseWidth; ++x) {
            const Vec3 d = DirectionOf(AzimuthOf(x, e.coarseWidth) + turn, elevation);
            const float value = share * e.coarse[static_cast<std::size_t>(y * e.coarseWidth + x)];
            sum[0] += value;
            sum[1] += value * d.x;
            sum[2] += value * d.y;
            sum[3] += value * d.z;
            sum[4] += value * d.x * d.y;
            sum[5] += value * d.y * d.z;
            sum[6] += value * d.x * d.z;
            sum[7] += value * (3 * d.z * d.z - 1);
            sum[8] += value * (d.x * d.x - d.y * d.y);
        }
    }
    // (2 l + 1) of each order, its weakening (1, 2/3, 1/4), and the functions' own factors.
    light.field = {sum[0],         2.0f * sum[1],    2.0f * sum[2],
                   2.0f * sum[3],  3.75f * sum[4],   3.75f * sum[5],
                   3.75f * sum[6], 0.3125f * sum[7], 0.9375f * sum[8]};
    light.hasField = true;
    light.ambient = 1;
    for (std::size_t i = 0; i < 2; ++i) {
        const Environment::Source& from = e.lamps[i];
        light.lamps[i] = {DirectionOf(from.azimuth + turn, from.elevation), from.strength, 0.02f};
    }
    const Lamp& first = light.lamps[0];
    light.kind = first.strength < 0.4f               ? LightKind::kSoft
                 : std::fabs(first.towards.x) > 0.6f ? LightKind::kSide
                                                     : LightKind::kHard;
}

void Look(const Environment& e, float turn, float pitch, float across, std::vector<float>& tones,
          int width, int height) {
    tones.resize(static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
    const float unit = 2 * across / static_cast<float>(width);
    const float cp = std::cos(pitch), sp = std::sin(pitch);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const float dx = (static_cast<float>(x) + 0.5f - static_cast<float>(width) / 2) * unit;
            const float up = (static_cast<float>(height) / 2 - static_cast<float>(y) - 0.5f) * unit;
            const Vec3 d = Normalised({dx, up * cp + sp, up * sp - cp});
            float azimuth = std::atan2(d.x, d.z) - turn;
            azimuth -= 2 * kPi * std::floor((azimuth + kPi) / (2 * kPi));
            const float elevation = std::asin(std::clamp(d.y, -1.0f, 1.0f));
            const float u = (azimuth / (2 * kPi) + 0.5f) * static_cast<float>(e.width) - 0.5f;
            const float v =
                std::clamp((0.5f - elevation / kPi) * static_cast<float>(e.height) - 0.5f, 0.0f,
                           static_cast<float>(e.height) - 1.001f);
            const float fu = std::floor(u), fv = std::floor(v);
            const int x0 = (static_cast<int>(fu) + e.width) % e.width, x1 = (x0 + 1) % e.width;
            const int y0 = static_cast<int>(fv), y1 = std::min(y0 + 1, e.height - 1);
            const auto at = [&](int px, int py) {
                return e.radiance[static_cast<std::size_t>(py * e.width + px)];
            };
            const float tx = u - fu, ty = v - fv;
            tones[static_cast<std::size_t>(y * width + x)] =
                Mix(Mix(at(x0, y0), at(x1, y0), tx), Mix(at(x0, y1), at(x1, y1), tx), ty);
        }
    }
}

} // namespace facegen
