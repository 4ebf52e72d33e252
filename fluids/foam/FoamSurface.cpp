#include "fluids/foam/FoamSurface.h"

#include <cmath>

#include "fluids/level_sets/VolumeVoxeliser.h"
#include "fluids/surfacing/MeshKernels.h"
#include "globals/Multiversion.h"

namespace orlix {

namespace {

// A row of inner nodes; p points to its first node.
ORLIX_MULTIVERSION void CurvatureRow(const double* p, std::int64_t nx, std::int64_t slab, int count, double perCell,
                                     double* out) {
  const double perCell2 = perCell * perCell;
  for (int i = 0; i < count; ++i, ++p) {
    const double c = p[0], e = p[1], n = p[nx], u = p[slab];
    const double px = (e - c) * perCell, py = (n - c) * perCell, pz = (u - c) * perCell;
    const double pxx = (e - 2 * c + p[-1]) * perCell2, pyy = (n - 2 * c + p[-nx]) * perCell2,
                 pzz = (u - 2 * c + p[-slab]) * perCell2;
    const double pxy = (p[1 + nx] - n - e + c) * perCell2, pxz = (p[1 + slab] - u - e + c) * perCell2,
                 pyz = (p[nx + slab] - u - n + c) * perCell2;
    const double g = px * px + py * py + pz * pz;
    const double kappa = ((pyy + pzz) * px * px + (pxx + pzz) * py * py + (pxx + pyy) * pz * pz - 2 * px * py * pxy -
                          2 * px * pz * pxz - 2 * py * pz * pyz) /
                         (g * std::sqrt(g));
    // Neither a flat place nor the huge numbers beyond a level set's band give a curvature.
    const double limited = kappa < perCell ? (kappa > -perCell ? kappa : -perCell) : perCell;
    out[i] = kappa == kappa ? limited : 0;
  }
}

}  // namespace

void MeanCurvature(const GridView<const double>& phi, double cellSize, WorkerPool& pool, GridView<double> out) {
  const VecInt3D n = phi.dims;
  ParallelRange(pool, 0, n.z, [&](int from, int to, int) {
    for (int k = from; k < to; ++k) {
      for (int j = 0; j < n.y; ++j) {
        double* row = &out(0, j, k);
        std::fill_n(row, n.x, 0.0);
        if (k == 0 || k == n.z - 1 || j == 0 || j == n.y - 1 || n.x < 3) continue;
        CurvatureRow(&phi(1, j, k), n.x, phi.slab, n.x - 2, 1 / cellSize, row + 1);
      }
    }
  });
}

void FoamSurface::Clear() {
  levelSet_ = nullptr, mesh_ = nullptr;
  own_.reset();
  view_ = {};
  curvature_ = {};
  pointCurvatures_.clear();
}

void FoamSurface::UseLevelSet(const ScalarGrid& levelSet, WorkerPool& pool) {
  levelSet_ = &levelSet;
  FillCurvature(pool);
}

bool FoamSurface::UseMeshLevelSet(const TriMeshSTL& mesh, const GridSpace& lattice, WorkerPool& pool,
                                  const BaseThread* thread) {
  own_ = std::make_unique<ScalarGrid>(lattice.dims + VecInt3D(1, 1, 1), lattice.hostSize, lattice.cellSize,
                                      kGridNodalLevelset, lattice.hostMin);
  VolumeVoxeliser voxeliser;
  voxeliser.settings.workers = pool.count();
  if (!voxeliser.Run(mesh, *own_, pool, thread)) return false;
  UseLevelSet(*own_, pool);
  return true;
}

void FoamSurface::FillCurvature(WorkerPool& pool) {
  view_ = LevelSetView(*levelSet_);
  curvature_.resize(static_cast<std::size_t>(levelSet_->count));
  MeanCurvature(*levelSet_, static_cast<double>(levelSet_->space.cellSize), pool,
                GridView<double>(curvature_.data(), levelSet_->dims));
}

double FoamSurface::Curvature(const Vec3D& p) const {
  const Vec3D at = view_.IndexOfWorld(p);
  return SampleTrilinear(GridView<const double>(curvature_.data(), levelSet_->dims), at.x, at.y, at.z);
}

void FoamSurface::UseMesh(const TriMeshSTL& mesh, std::int32_t smoothings, WorkerPool& pool) {
  mesh_ = &mesh;
  pointCurvatures_.clear();
  if (!HasLevelSet()) return;
  const std::vector<Vec3D>& points = mesh.Points();
  pointCurvatures_.resize(points.size());
  ParallelRange(pool, 0, mesh.PointCount(), [&](int from, int to, int) {
    for (auto p = static_cast<std::size_t>(from); p < static_cast<std::size_t>(to); ++p) {
      pointCurvatures_[p] = Curvature(points[p]);
    }
  });
  if (smoothings <= 0) return;
  MeshAdjacency adjacency;
  adjacency.Build(mesh);
  std::vector<double> triangles(mesh.Triangles().size());
  for (std::int32_t round = 0; round < smoothings; ++round) {
    ParallelRange(pool, 0, mesh.TriangleCount(), [&](int from, int to, int) {
      for (auto t = static_cast<std::size_t>(from); t < static_cast<std::size_t>(to); ++t) {
        const VecInt3D& corner = mesh.Triangles()[t];
        double sum = 0;
        for (int c = 0; c < 3; ++c) sum += pointCurvatures_[static_cast<std::size_t>(corner[c])];
        triangles[t] = sum * 0.3333333333333333;
      }
    });
    ParallelRange(pool, 0, mesh.PointCount(), [&](int from, int to, int) {
      for (int p = from; p < to; ++p) {
        const std::span<const std::int32_t> around = adjacency.TrianglesAt(p);
        double sum = 0;
        for (const std::int32_t t : around) sum += triangles[static_cast<std::size_t>(t)];
        if (!around.empty()) pointCurvatures_[static_cast<std::size_t>(p)] = sum / static_cast<double>(around.size());
      }
    });
  }
}

std::int64_t FoamSurface::Bytes() const {
  return (own_ ? own_->MemorySize() : 0) + static_cast<std::int64_t>(curvature_.size() * sizeof(double)) +
         static_cast<std::int64_t>(pointCurvatures_.size() * sizeof(double));
}

}  // namespace orlix
