// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <cmath>

namespace facegen {

struct Vec3 {
    float x = 0, y = 0, z = 0;

    Vec3& operator+=(const Vec3& o) {
        x += o.x, y += o.y, z += o.z;
        return *this;
    }
};

inline Vec3 operator+(Vec3 a, Vec3 b) { return {a.x + b.x, a.y + b.y, a.z + b.z}; }
inline Vec3 operator-(Vec3 a, Vec3 b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
inline Vec3 operator*(Vec3 a, float s) { return {a.x * s, a.y * s, a.z * s}; }
inline float Dot(Vec3 a, Vec3 b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
inline Vec3 Cross(Vec3 a, Vec3 b) {
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}
inline float Length(Vec3 a) { return std::sqrt(Dot(a, a)); }
inline Vec3 Normalised(Vec3 a) { return a * (1.0f / std::max(Length(a), 1e-12f)); }
inline Vec3 Mix(Vec3 a, Vec3 b, float t) { return a + (b - a) * t; }

inline float Mix(float a, float b, float t) { return a + (b - a) * t; }
inline float Clamp01(float t) { return std::clamp(t, 0.0f, 1.0f); }
// 0 at or before `from`, 1 at or after `to`, with level ends.
inline float SmoothStep(float from, float to, float at) {
    const float t = Clamp01((at - from) / (to - from));
    return t * t * (3.0f - 2.0f * t);
}

struct Mat3 {
    Vec3 row[3];
    Vec3 operator*(Vec3 v) const { return {Dot(row[0], v), Dot(row[1], v), Dot(row[2], v)}; }
};

// Yaw turns the face to its own left (to the right of the picture), pitch raises the chin, roll
// leans the head to the right of the picture. Radians.
inline Mat3 Rotation(float yaw, float pitch, float roll) {
    const float cy = std::cos(yaw), sy = std::sin(yaw);
    const float cp = std::cos(pitch), sp = std::sin(pitch);
    const float cr = std::cos(roll), sr = std::sin(roll);
    const Mat3 aboutY{{{cy, 0, sy}, {0, 1, 0}, {-sy, 0, cy}}};
    const Mat3 aboutX{{{1, 0, 0}, {0, cp, sp}, {0, -sp, cp}}};
    const Mat3 aboutZ{{{cr, sr, 0}, {-sr, cr, 0}, {0, 0, 1}}};
    const auto times = [](const Mat3& a, const Mat3& b) {
        Mat3 out;
        for (int i = 0; i < 3; ++i) {
            out.row[i] = b.row[0] * a.row[i].x + b.row[1] * a.row[i].y + b.row[2] * a.row[i].z;
        }
        return out;
    };
    return times(aboutZ, times(aboutX, aboutY));
}

} // namespace facegen
