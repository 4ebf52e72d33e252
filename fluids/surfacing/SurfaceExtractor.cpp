#include "fluids/surfacing/SurfaceExtractor.h"

#include <algorithm>
#include <cstring>

#include "fluids/grids/Interpolation.h"
#include "fluids/level_sets/TriangleLanes.h"
#include "fluids/surfacing/LatticeExtraction.h"
#include "fluids/surfacing/MeshWeld.h"
#include "fluids/surfacing/TileExtraction.h"
#include "globals/Multiversion.h"

namespace orlix {

namespace {

constexpr double kNearest = 1e-8;           // m, of cubes
constexpr double kNearestOfOthers = 1e-30;  // m
constexpr double kLeastArea = 1e-6;         // of a triangle, in squared cells

// LinearAxis of four places along an axis of n nodes.
ORLIX_INLINE void LinearAxes(const Lanes& x, int n, std::int32_t (&index)[kLanes], Lanes& fraction) {
  using Ints = std::int32_t __attribute__((vector_size(kLanes * sizeof(std::int32_t))));
  const Lanes zero{}, highest = zero + 2147483000.0, lowest = zero - 2147483000.0;
  const Lanes limited = x < highest ? (x > lowest ? x : lowest) : highest;
  const Ints i = __builtin_convertvector(limited, Ints);
  const Lanes truncated = __builtin_convertvector(i, Lanes), last = zero + (n - 2);
  fraction = limited - (limited < truncated ? truncated - 1 : truncated);
  fraction = truncated < zero ? zero : truncated > last ? zero + 1 : fraction;
  const Ints low = i < 0 ? Ints{} : i, within = low > n - 2 ? Ints{} + (n - 2) : low;
  std::memcpy(index, &within, sizeof within);
}

// The unit gradients at points, from the nodes that there are to a metre from a corner on: the operations of
// TrilinearGradient for four points at a time.
ORLIX_MULTIVERSION void UnitGradients(const GridView<const double>& nodes, const Vec3D& corner, double perMetre,
                                      const Vec3D* points, int count, Vec3D* gradients) {
  const std::int64_t row = nodes.dims.x, slab = nodes.slab;
  for (int p = 0; p < count; p += kLanes) {
    std::int32_t index[3][kLanes];
    Lanes f[3];
    for (int axis = 0; axis < 3; ++axis) {
      Lanes x;
      for (int l = 0; l < kLanes; ++l) x[l] = points[std::min(p + l, count - 1)][axis];
      LinearAxes((x - corner[axis]) * perMetre, nodes.dims[axis], index[axis], f[axis]);
    }
    const double* at[kLanes];
    for (int l = 0; l < kLanes; ++l) at[l] = nodes.data + nodes.Index(index[0][l], index[1][l], index[2][l]);
    const auto load = [&](Lanes & value, std::int64_t offset) __attribute__((always_inline)) {
      value = Lanes{at[0][offset], at[1][offset], at[2][offset], at[3][offset]};
    };
    Lanes p000, p100, p010, p110, p001, p101, p011, p111;
    load(p000, 0), load(p100, 1), load(p010, row), load(p110, row + 1);
    load(p001, slab), load(p101, slab + 1), load(p011, slab + row), load(p111, slab + row + 1);
    const Lanes fx = f[0], fy = f[1], fz = f[2], gx = 1 - fx, gy = 1 - fy, gz = 1 - fz;
    const Lanes x = ((p100 - p000) * gy + (p110 - p010) * fy) * gz + ((p101 - p001) * gy + (p111 - p011) * fy) * fz;
    const Lanes y = ((p010 - p000) * gx + (p110 - p100) * fx) * gz + ((p011 - p001) * gx + (p111 - p101) * fx) * fz;
    const Lanes z = ((p001 - p000) * gx + (p101 - p100) * fx) * gy + ((p011 - p010) * gx + (p111 - p110) * fx) * fy;
    for (int l = 0; l < std::min(kLanes, count - p); ++l) gradients[p + l] = Normalized(Vec3D(x[l], y[l], z[l]));
  }
}

// Of a point (in nodes) where the box's faces close the surface: outwards through those within half a cell. 0 for
// points of the level set, which knows nothing of these faces.
Vec3D ClosingNormal(const GridView<const double>& levelset, double iso, double nodesPerMetre, const Vec3D& point,
                    const Vec3D& low, const Vec3D& high) {
  const Vec3D below = low - point, above = point - high;
  const double beyond = std::max({below.x, below.y, below.z, above.x, above.y, above.z});
  constexpr double kFarthest = -1, kInside = 1e-3;  // cells
  if (beyond < kFarthest) return Vec3D(0.0);
  const double value = (SampleTrilinear(levelset, point.x, point.y, point.z) - iso) * nodesPerMetre;
  if (value > beyond - kInside) return Vec3D(0.0);
  Vec3D outwards(0.0);
  for (int axis = 0; axis < 3; ++axis) outwards[axis] = (above[axis] > -0.5) - (below[axis] > -0.5);
  return outwards;
}

}  // namespace

bool SurfaceExtractor::Build(WorkerPool& pool, TriMeshSTL& mesh) const {
  mesh.textureCoordinates.clear();
  // Normals keep their memory: to clear new pages takes as long as to fill them.
  std::vector<Vec3D> normals;
  if (settings_.normals) normals.swap(mesh.pointAttributes.Column(kPointNormalId));
  mesh.pointAttributes.Clear();
  const VecInt3D n = grid_.dims;
  if (std::min({n.x, n.y, n.z}) < 3) return mesh.Clear(), true;
  SurfaceField field{.grid = grid_,
                     .iso = settings_.iso,
                     .cellSize = grid_.space.cellSize,
                     .low = {1, 1, 1},
                     .high = n - VecInt3D(1, 1, 1)};
  field.closed = settings_.closed;
  const bool cubes = settings_.method == ExtractionMethod::Cubes;
  field.nearest = cubes ? kNearest : kNearestOfOthers;
  const double spacing = Spacing();
  bool allUsed = false;
  const bool fits = settings_.method == ExtractionMethod::Tiles
                        ? ExtractTiles(field, settings_.sampling, grid_.space.simMin, spacing, pool, mesh, allUsed)
                        : ExtractLattice(field, !cubes, grid_.space.simMin, spacing, pool, mesh);
  if (!fits) return mesh.Clear(), false;
  WeldMesh({settings_.tolerance, kLeastArea * spacing * spacing, allUsed}, pool, mesh);
  if (settings_.normals) {
    ReserveForWriting(pool, normals, mesh.PointCount());
    mesh.pointAttributes.Column(kPointNormalId).swap(normals);
  }
  mesh.pointAttributes.Resize(static_cast<std::size_t>(mesh.PointCount()));
  if (settings_.normals) GradientNormals(pool, mesh);
  return true;
}

void SurfaceExtractor::GradientNormals(WorkerPool& pool, TriMeshSTL& mesh) const {
  std::vector<Vec3D>& normals = mesh.pointAttributes.Column(kPointNormalId);
  const GridView<const double> view(grid_);
  const double perPoint = 1 / Spacing();
  // Tiles leave out the first three quarters of a cell.
  const Vec3D low(settings_.method == ExtractionMethod::Tiles ? 1.75 : 1.0), high(grid_.dims - VecInt3D(1, 1, 1));
  constexpr int kShare = 4096;
  const int points = mesh.PointCount();
  ForLayers(pool, 0, (points + kShare - 1) / kShare, [&](int share) {
    const int first = share * kShare;
    UnitGradients(view, grid_.space.simMin, perPoint, mesh.Points().data() + first, std::min(points - first, kShare),
                  normals.data() + first);
    for (int p = first; settings_.closed && p < std::min(points, first + kShare); ++p) {
      const auto at = static_cast<std::size_t>(p);
      const Vec3D point = (mesh.Points()[at] - grid_.space.simMin) * perPoint;
      const Vec3D outwards = ClosingNormal(view, settings_.iso, perPoint, point, low, high);
      if (outwards != Vec3D(0.0)) normals[at] = Normalized(outwards);
    }
  });
}

}  // namespace orlix
