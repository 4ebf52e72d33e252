#pragma once
// What a mesh is as a surface.

#include <map>
#include <set>
#include <utility>

#include "fluids/meshes/TriMeshSTL.h"

namespace orlix::test {

struct MeshCheck {
  int openEdges = 0;     // with another number of triangles than one in each direction
  int unusedPoints = 0;  // by no triangle
  int equalPoints = 0;   // at the place of another one
  int euler = 0;         // points - edges + triangles
  double area = 0, volume = 0, leastArea = 1e300;
};

inline MeshCheck Check(const TriMeshSTL& mesh) {
  MeshCheck check;
  std::map<std::pair<int, int>, int> edges;
  std::set<int> used;
  std::set<std::array<double, 3>> places;
  for (const Vec3D& p : mesh.Points()) check.equalPoints += !places.insert({p.x, p.y, p.z}).second;
  for (const VecInt3D& t : mesh.Triangles()) {
    for (int n = 0; n < 3; ++n) ++edges[{t[n], t[(n + 1) % 3]}], used.insert(t[n]);
    const auto point = [&](int n) { return mesh.Points()[static_cast<std::size_t>(n)]; };
    const Vec3D normal = Cross(point(t.y) - point(t.x), point(t.z) - point(t.x));
    check.area += 0.5 * Length(normal);
    check.leastArea = std::min(check.leastArea, 0.5 * Length(normal));
    check.volume += Dot(point(t.x), normal) / 6;
  }
  for (const auto& [edge, count] : edges) {
    const auto back = edges.find({edge.second, edge.first});
    check.openEdges += count != 1 || back == edges.end() || back->second != 1;
  }
  check.unusedPoints = mesh.PointCount() - static_cast<int>(used.size());
  check.euler = mesh.PointCount() - static_cast<int>(edges.size() / 2) + mesh.TriangleCount();
  return check;
}

}  // namespace orlix::test
