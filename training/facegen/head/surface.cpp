// SPDX-License-Identifier: MIT
#include "head/surface.h"

namespace facegen {

std::uint32_t SurfaceBuilder::VertexOf(Corner corner) {
    for (const Vertex& vertex : verticesOf_[corner.point]) {
        if (vertex.texture == corner.texture) {
            return vertex.index;
        }
    }
    const auto index = static_cast<std::uint32_t>(surface_.point.size());
    const bool textured = !obj_.texture.empty();
    surface_.point.push_back(corner.point);
    surface_.u.push_back(textured ? obj_.texture[corner.texture][0] : 0.0f);
    surface_.v.push_back(textured ? obj_.texture[corner.texture][1] : 0.0f);
    verticesOf_[corner.point].push_back({corner.texture, index});
    return index;
}

void SurfaceBuilder::Add(const ObjFace& face) {
    std::uint32_t vertex[4] = {};
    for (int i = 0; i < face.corners; ++i) {
        vertex[i] = VertexOf(face.corner[i]);
    }
    surface_.triangles.push_back({vertex[0], vertex[1], vertex[2]});
    if (face.corners == 4) {
        surface_.triangles.push_back({vertex[0], vertex[2], vertex[3]});
    }
}

void AddNormals(const Surface& surface, const std::vector<Vec3>& points,
                std::vector<Vec3>& normals) {
    for (const Triangle& triangle : surface.triangles) {
        const std::uint32_t a = surface.point[triangle[0]];
        const std::uint32_t b = surface.point[triangle[1]];
        const std::uint32_t c = surface.point[triangle[2]];
        const Vec3 normal = Cross(points[b] - points[a], points[c] - points[a]);
        normals[a] += normal;
        normals[b] += normal;
        normals[c] += normal;
    }
}

void Normalise(std::vector<Vec3>& normals) {
    for (Vec3& normal : normals) {
        normal = Normalised(normal);
    }
}

} // namespace facegen
