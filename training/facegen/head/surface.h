// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "head/asset_files.h"
#include "vec3.h"

namespace facegen {

using Triangle = std::array<std::uint32_t, 3>;

// Triangles over vertices; a vertex is a point together with its texture coordinate, so that points
// along a texture seam have several. Points live elsewhere, since they move from person to person.
struct Surface {
    std::vector<std::uint32_t> point;
    std::vector<float> u, v;
    std::vector<Triangle> triangles;
};

// Collects faces of an obj file into a surface, sharing equal vertices.
class SurfaceBuilder {
  public:
    explicit SurfaceBuilder(const ObjFile& obj) : obj_(obj), verticesOf_(obj.points.size()) {}
    void Add(const ObjFace& face);
    Surface Take() { return std::move(surface_); }

  private:
    struct Vertex {
        std::uint32_t texture, index;
    };
    std::uint32_t VertexOf(Corner corner);

    const ObjFile& obj_;
    std::vector<std::vector<Vertex>> verticesOf_; // by point
    Surface surface_;
};

// Adds the area-weighted normals of the triangles to `normals`, by point.
void AddNormals(const Surface& surface, const std::vector<Vec3>& points,
                std::vector<Vec3>& normals);
void Normalise(std::vector<Vec3>& normals);

} // namespace facegen
