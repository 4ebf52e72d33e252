#include "fluids/level_sets/VolumeVoxeliser.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

#include "fluids/level_sets/VoxeliserBand.h"
#include "fluids/level_sets/VoxeliserSweeps.h"
#include "host/threads/WorkerPool.h"

namespace orlix {

namespace {

std::vector<TriangleTerms> GatherTriangles(const iTriMesh& mesh) {
  std::vector<TriangleTerms> triangles;
  triangles.reserve(mesh.Triangles().size());
  const std::vector<Vec3D>& points = mesh.Points();
  for (const VecInt3D& corners : mesh.Triangles()) {
    const Vec3D& a = points[static_cast<std::size_t>(corners.x)];
    const Vec3D& b = points[static_cast<std::size_t>(corners.y)];
    const Vec3D& c = points[static_cast<std::size_t>(corners.z)];
    if (IsFinite(a) && IsFinite(b) && IsFinite(c)) triangles.push_back(MakeTriangleTerms(a, b, c));
  }
  return triangles;
}

// Distances get their sign. Gives the largest of an inside node, below 0 when there is none.
double SignLayers(GridView<double> values, GridView<const std::uint8_t> crossings, bool flip, int kFirst, int kEnd) {
  double deepest = -1;
  for (std::int64_t row = std::int64_t(kFirst) * values.dims.y; row < std::int64_t(kEnd) * values.dims.y; ++row) {
    double* value = values.data + row * values.dims.x;
    const std::uint8_t* crossing = crossings.data + row * values.dims.x;
    unsigned total = 0;
    for (int i = 0; i < values.dims.x; ++i) {
      total += crossing[i];
      const bool inside = (total & 1) != 0;
      if (inside && value[i] > deepest) deepest = value[i];
      if (inside != flip) value[i] = -value[i];
    }
  }
  return deepest;
}

// Leaves a wall of depth x shell: what lies deeper becomes outside, and the distances fold at the wall's middle.
void HollowLayers(GridView<double> values, double depth, double shell, int kFirst, int kEnd) {
  const double wall = depth * shell, deep = -wall, middle = -(shell * 0.5 * depth);
  for (std::int64_t i = values.Index(0, 0, kFirst); i < values.Index(0, 0, kEnd); ++i) {
    if (values[i] <= deep) {
      values[i] = -(values[i] + wall);
    } else if (values[i] <= middle) {
      values[i] = 2 * middle - values[i];
    }
  }
}

}  // namespace

bool VolumeVoxeliser::Run(const iTriMesh& mesh, ScalarGrid& levelSet, WorkerPool& pool, const BaseThread* hostThread) {
  maximumDepth_.reset();
  if (mesh.PointCount() == 0 || levelSet.count == 0 || mesh.TriangleCount() > kMaxTriangles) return false;
  const NodeLattice lattice(levelSet.dims, levelSet.space);
  const GridView<double> values(levelSet);
  VoxeliserScratch scratch(levelSet.dims);
  scratch.triangles = GatherTriangles(mesh);
  FillExactBand(lattice, settings.exactBand, scratch, values, pool, settings.workers);
  if (!SweepClosestTriangles(lattice, settings.exactBand, scratch, values, pool, settings.workers, hostThread)) {
    return false;
  }
  std::array<double, WorkerPool::kMaxWorkers> deepest;
  deepest.fill(-1);
  ParallelRange(pool, 0, levelSet.dims.z, [&](int from, int to, int worker) {
    deepest[static_cast<std::size_t>(worker)] = SignLayers(values, scratch.crossings, settings.flip, from, to);
  });
  const double depth = *std::max_element(deepest.begin(), deepest.end());
  if (depth < 0) return true;  // nothing is inside
  maximumDepth_ = depth;
  if (settings.shell >= 1.0) return true;
  ParallelRange(pool, 0, levelSet.dims.z,
                [&](int from, int to, int) { HollowLayers(values, depth, settings.shell, from, to); });
  return true;
}

}  // namespace orlix
