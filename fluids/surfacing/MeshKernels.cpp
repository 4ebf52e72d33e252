#include "fluids/surfacing/MeshKernels.h"

#include <algorithm>
#include <cmath>
#include <functional>

#include "host/threads/ForLayers.h"

namespace orlix {

namespace {

constexpr double kLeastArea = 1e-18;  // of the cross products at a point, m^2

// Calls f(first point, one after the last) on all workers.
template <class F>
void ForPoints(WorkerPool& pool, int count, F&& f) {
  constexpr int kShare = 2048;
  ForLayers(pool, 0, (count + kShare - 1) / kShare,
            [&](int share) { f(share * kShare, std::min(count, (share + 1) * kShare)); });
}

// Of the angle between two sides; a side without a length gives a right angle.
double Cotangent(const Vec3D& a, const Vec3D& b) {
  const double lengths = Length(a) * Length(b);
  if (!(lengths > 0)) return 0;
  constexpr double kMost = 0.99999999;
  const double cosine = std::clamp(Dot(a, b) / lengths, -kMost, kMost);
  return cosine / std::sqrt(1 - cosine * cosine);
}

}  // namespace

void MeshAdjacency::Build(const TriMeshSTL& mesh) {
  const auto points = static_cast<std::size_t>(mesh.PointCount());
  begin_.assign(points + 1, 0);
  for (const VecInt3D& t : mesh.Triangles()) {
    for (int n = 0; n < 3; ++n) ++begin_[static_cast<std::size_t>(t[n]) + 1];
  }
  for (std::size_t p = 0; p < points; ++p) begin_[p + 1] += begin_[p];
  triangles_.resize(begin_[points]);
  std::vector<std::size_t> next(begin_.begin(), begin_.end() - 1);
  for (std::int32_t t = 0; t < mesh.TriangleCount(); ++t) {
    const VecInt3D& corners = mesh.Triangles()[static_cast<std::size_t>(t)];
    for (int n = 0; n < 3; ++n) triangles_[next[static_cast<std::size_t>(corners[n])]++] = t;
  }
}

void MeshAdjacency::NeighboursOf(const TriMeshSTL& mesh, std::int32_t point, std::vector<std::int32_t>& found) const {
  found.clear();
  for (const std::int32_t t : TrianglesAt(point)) {
    const VecInt3D& corners = mesh.Triangles()[static_cast<std::size_t>(t)];
    for (int n = 0; n < 3; ++n) {
      const std::int32_t other = corners[n];
      if (other != point && std::find(found.begin(), found.end(), other) == found.end()) found.push_back(other);
    }
  }
}

void MeanCurvatures(const TriMeshSTL& mesh, const MeshAdjacency& adjacency, WorkerPool& pool,
                    std::vector<double>& curvatures, std::vector<double>& areas) {
  const auto count = static_cast<std::size_t>(mesh.PointCount());
  curvatures.resize(count), areas.resize(count);
  ForPoints(pool, mesh.PointCount(), [&](int first, int end) {
    for (int p = first; p < end; ++p) {
      Vec3D sum;
      double cross = 0;
      for (const std::int32_t t : adjacency.TrianglesAt(p)) {
        const VecInt3D& corners = mesh.Triangles()[static_cast<std::size_t>(t)];
        const int at = corners.x == p ? 0 : corners.y == p ? 1 : 2;
        const auto point = [&](int n) { return mesh.Points()[static_cast<std::size_t>(corners[(at + n) % 3])]; };
        const Vec3D x = point(0), b = point(1), c = point(2);
        sum += (x - b) * Cotangent(x - c, b - c) + (x - c) * Cotangent(x - b, c - b);
        cross += Length(Cross(b - x, c - x));
      }
      areas[static_cast<std::size_t>(p)] = std::max(cross, kLeastArea) / 3;
      curvatures[static_cast<std::size_t>(p)] = Length(sum) / areas[static_cast<std::size_t>(p)];
    }
  });
}

std::vector<double> SmoothByArea(const TriMeshSTL& mesh, const MeshAdjacency& adjacency, WorkerPool& pool,
                                 const std::vector<double>& values, const std::vector<double>& areas) {
  std::vector<double> smooth(values.size());
  ForPoints(pool, mesh.PointCount(), [&](int first, int end) {
    std::vector<std::int32_t> neighbours;
    for (int p = first; p < end; ++p) {
      const auto at = static_cast<std::size_t>(p);
      double sum = areas[at] * values[at], weight = areas[at];
      adjacency.NeighboursOf(mesh, p, neighbours);
      for (const std::int32_t n : neighbours) {
        sum += areas[static_cast<std::size_t>(n)] * values[static_cast<std::size_t>(n)];
        weight += areas[static_cast<std::size_t>(n)];
      }
      smooth[at] = weight > 0 ? sum / weight : values[at];
    }
  });
  return smooth;
}

void SmoothPoints(const MeshAdjacency& adjacency, WorkerPool& pool, std::span<const double> shares,
                  std::vector<Vec3D>* attribute, TriMeshSTL& mesh) {
  const std::vector<Vec3D> before = mesh.Points(), attributeBefore = attribute ? *attribute : std::vector<Vec3D>();
  ForPoints(pool, mesh.PointCount(), [&](int first, int end) {
    std::vector<std::int32_t> neighbours;
    for (int p = first; p < end; ++p) {
      const auto at = static_cast<std::size_t>(p);
      adjacency.NeighboursOf(mesh, p, neighbours);
      if (shares[at] == 0 || neighbours.empty()) continue;
      const auto move = [&](const std::vector<Vec3D>& old, std::vector<Vec3D>& values) {
        Vec3D sum;
        for (const std::int32_t n : neighbours) sum += old[static_cast<std::size_t>(n)];
        values[at] = old[at] + (sum / static_cast<double>(neighbours.size()) - old[at]) * shares[at];
      };
      move(before, mesh.Points());
      if (attribute) move(attributeBefore, *attribute);
    }
  });
}

void PointNormals(const TriMeshSTL& mesh, const MeshAdjacency& adjacency, WorkerPool& pool,
                  std::vector<Vec3D>& normals) {
  normals.resize(static_cast<std::size_t>(mesh.PointCount()));
  ForPoints(pool, mesh.PointCount(), [&](int first, int end) {
    for (int p = first; p < end; ++p) {
      Vec3D sum;
      for (const std::int32_t t : adjacency.TrianglesAt(p)) {
        const VecInt3D& c = mesh.Triangles()[static_cast<std::size_t>(t)];
        const auto point = [&](int n) { return mesh.Points()[static_cast<std::size_t>(n)]; };
        sum += Cross(point(c.y) - point(c.x), point(c.z) - point(c.x));
      }
      normals[static_cast<std::size_t>(p)] = Normalized(sum);
    }
  });
}

}  // namespace orlix
