#include "fluids/meshes/MeshHoles.h"

#include <algorithm>
#include <array>
#include <numeric>
#include <tuple>

namespace orlix {

namespace {

// f(how many are equal) for each of the values, which it sorts.
template <class T, class F>
void ForEachRun(std::vector<T>& values, F&& f) {
  std::sort(values.begin(), values.end());
  for (auto from = values.begin(); from != values.end();) {
    const auto to = std::upper_bound(from, values.end(), *from);
    f(to - from);
    from = to;
  }
}

// The first point at each point's place.
std::vector<std::int32_t> Joined(const std::vector<Vec3D>& points) {
  std::vector<std::int32_t> order(points.size()), first(points.size());
  std::iota(order.begin(), order.end(), 0);
  const auto placeOf = [&](std::int32_t i) {
    const Vec3D& p = points[static_cast<std::size_t>(i)];
    return std::tuple(p.x, p.y, p.z, i);
  };
  std::sort(order.begin(), order.end(), [&](std::int32_t a, std::int32_t b) { return placeOf(a) < placeOf(b); });
  for (std::size_t n = 0; n < order.size(); ++n) {
    const auto own = static_cast<std::size_t>(order[n]);
    const bool same = n > 0 && points[own] == points[static_cast<std::size_t>(order[n - 1])];
    first[own] = same ? first[static_cast<std::size_t>(order[n - 1])] : order[n];
  }
  return first;
}

}  // namespace

MeshHoles FindHoles(const TriMeshSTL& mesh) {
  const std::vector<std::int32_t> joined = Joined(mesh.Points());
  std::vector<std::uint64_t> edges;  // both points' numbers
  edges.reserve(3 * mesh.Triangles().size());
  std::vector<std::array<std::int32_t, 3>> faces;
  for (const VecInt3D& triangle : mesh.Triangles()) {
    std::array<std::int32_t, 3> face;
    for (int c = 0; c < 3; ++c) face[std::size_t(c)] = joined[static_cast<std::size_t>(triangle[c])];
    std::sort(face.begin(), face.end());
    if (face[0] == face[1] || face[1] == face[2]) continue;  // without area
    faces.push_back(face);
    const auto edge = [&](std::size_t a, std::size_t b) {
      return static_cast<std::uint64_t>(face[a]) << 32 | static_cast<std::uint32_t>(face[b]);
    };
    edges.insert(edges.end(), {edge(0, 1), edge(1, 2), edge(0, 2)});
  }
  MeshHoles holes;
  ForEachRun(edges, [&](std::int64_t times) { holes.openEdges += times % 2; });
  ForEachRun(faces, [&](std::int64_t times) { holes.doubled += times % 2 == 0 ? times : 0; });
  return holes;
}

}  // namespace orlix
