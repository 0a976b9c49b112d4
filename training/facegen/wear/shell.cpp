// SPDX-License-Identifier: MIT
#include "wear/shell.h"

namespace facegen {

Piece GrowShell(const HeadModel& model, const std::vector<Vec3>& points, float fieldFloor,
                const std::function<ShellPoint(std::uint32_t)>& at) {
    constexpr std::uint32_t none = 0xffffffffU;
    std::vector<ShellPoint> shell(points.size());
    std::vector<char> asked(points.size());
    std::vector<std::uint32_t> newPoint(points.size(), none);
    std::vector<std::uint32_t> newVertex(model.skin.point.size(), none);
    Piece piece;
    for (std::size_t t = 0; t < model.closeTriangles; ++t) {
        const Triangle& triangle = model.skin.triangles[t];
        float highest = -kFarAway;
        bool inner = false;
        for (const std::uint32_t vertex : triangle) {
            const std::uint32_t point = model.skin.point[vertex];
            inner = inner || model.inner[point];
            if (asked[point] == 0) {
                asked[point] = 1;
                shell[point] = at(point);
            }
            highest = std::max(highest, shell[point].field);
        }
        if (inner || highest < fieldFloor) {
            continue;
        }
        Triangle kept{};
        for (std::size_t i = 0; i < 3; ++i) {
            const std::uint32_t vertex = triangle[i];
            const std::uint32_t point = model.skin.point[vertex];
            if (newPoint[point] == none) {
                newPoint[point] = static_cast<std::uint32_t>(piece.points.size());
                piece.points.push_back(points[point] + shell[point].offset);
                piece.follows.push_back(point);
                piece.field.push_back(shell[point].field);
                piece.occlusion.push_back(Mix(0.55f, 1.0f, model.occlusion[point]));
            }
            if (newVertex[vertex] == none) {
                newVertex[vertex] = static_cast<std::uint32_t>(piece.surface.point.size());
                piece.surface.point.push_back(newPoint[point]);
                piece.surface.u.push_back(model.skin.u[vertex]);
                piece.surface.v.push_back(model.skin.v[vertex]);
            }
            kept[i] = newVertex[vertex];
        }
        piece.surface.triangles.push_back(kept);
    }
    return piece;
}

void SmoothShell(Piece& shell, int rounds) {
    std::vector<Vec3> sum(shell.points.size());
    std::vector<float> count(shell.points.size());
    for (int round = 0; round < rounds; ++round) {
        std::fill(sum.begin(), sum.end(), Vec3{});
        std::fill(count.begin(), count.end(), 0.0f);
        for (const Triangle& triangle : shell.surface.triangles) {
            for (std::size_t i = 0; i < 3; ++i) {
                const std::uint32_t point = shell.surface.point[triangle[i]];
                sum[point] += shell.points[shell.surface.point[triangle[(i + 1) % 3]]];
                sum[point] += shell.points[shell.surface.point[triangle[(i + 2) % 3]]];
                count[point] += 2.0f;
            }
        }
        for (std::size_t i = 0; i < sum.size(); ++i) {
            if (count[i] > 0) {
                shell.points[i] = Mix(shell.points[i], sum[i] * (1.0f / count[i]), 0.6f);
            }
        }
    }
}

} // namespace facegen
