#pragma once
// Closed meshes of any number of triangles, in a box of edge 1 about the origin.

#include <cmath>
#include <functional>
#include <numbers>

#include "fluids/meshes/TriMeshSTL.h"

namespace orlix::bench {

// The radius in each direction; some 4 rings^2 triangles, those at the poles without area.
inline TriMeshSTL StarMesh(int rings, const std::function<double(const Vec3D&)>& radius) {
  const int segments = 2 * rings;
  TriMeshSTL mesh;
  mesh.Resize(2 * segments * rings, segments * (rings + 1));
  for (int r = 0; r <= rings; ++r) {
    for (int s = 0; s < segments; ++s) {
      const double polar = std::numbers::pi * r / rings, turn = 2 * std::numbers::pi * s / segments;
      const Vec3D d(std::sin(polar) * std::cos(turn), std::sin(polar) * std::sin(turn), std::cos(polar));
      mesh.Points()[static_cast<std::size_t>(r * segments + s)] = d * radius(d);
    }
  }
  std::size_t next = 0;
  for (int r = 0; r < rings; ++r) {
    for (int s = 0; s < segments; ++s) {
      const int a = r * segments + s, b = r * segments + (s + 1) % segments;
      mesh.Triangles()[next++] = {a, b, b + segments};
      mesh.Triangles()[next++] = {a, b + segments, a + segments};
    }
  }
  return mesh;
}

// 500,000 triangles, and of 0.45 radius.
inline TriMeshSTL Ball() {
  return StarMesh(354, [](const Vec3D&) { return 0.45; });
}
// As many, with bumps and dents of all sizes down to a few cells of 256.
inline TriMeshSTL RoughBall() {
  return StarMesh(354, [](const Vec3D& d) {
    return 0.36 + 0.05 * std::sin(9 * d.x + 1) * std::sin(8 * d.y + 2) * std::sin(7 * d.z) +
           0.02 * std::sin(25 * d.x) * std::sin(31 * d.y + 1) * std::sin(28 * d.z + 0.5) +
           0.002 * std::sin(190 * d.x) * std::sin(230 * d.y) * std::sin(210 * d.z);
  });
}

}  // namespace orlix::bench
