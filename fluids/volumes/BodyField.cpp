#include "fluids/volumes/BodyField.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>

#include "fluids/meshes/TriMeshSTL.h"
#include "host/threads/WorkerPool.h"

namespace orlix {

namespace {

constexpr double kPadding = 2;              // of the scene's cells
constexpr double kMostFineNodes = 1 << 20;  // at half a cell

}  // namespace

bool BodyField::Build(std::span<const Vec3D> points, const std::vector<VecInt3D>& triangles, double cell,
                      const VoxeliserSettings& settings, WorkerPool& pool) {
  grid_.reset();
  Vec3D low(std::numeric_limits<double>::max()), high(std::numeric_limits<double>::lowest());
  for (const Vec3D& p : points) low = Min(low, p), high = Max(high, p);
  if (!IsFinite(low) || !IsFinite(high) || points.empty()) return false;
  low -= Vec3D(kPadding * cell), high += Vec3D(kPadding * cell);
  const auto nodes = [&](double h) {
    const Vec3D n = (high - low) / h + Vec3D(1);
    return n.x * n.y * n.z;
  };
  if (!(nodes(cell) < double(kMaxGridCells))) return false;
  const auto h = static_cast<float>(nodes(cell / 2) <= kMostFineNodes ? cell / 2 : cell);
  const Vec3D count = (high - low) / double(h);
  const VecInt3D cells(int(std::ceil(count.x)), int(std::ceil(count.y)), int(std::ceil(count.z)));
  grid_ = std::make_unique<ScalarGrid>(cells + VecInt3D(1, 1, 1), Vec3D(cells) * double(h), h, kGridNodalLevelset, low);
  TriMeshSTL mesh;
  mesh.Resize(std::int32_t(triangles.size()), std::int32_t(points.size()));
  std::copy(points.begin(), points.end(), mesh.Points().begin());
  mesh.Triangles() = triangles;
  voxeliser_.settings = settings;
  if (!voxeliser_.Run(mesh, *grid_, pool)) grid_.reset();
  view_ = grid_ ? LevelSetView(*grid_) : LevelSetView();
  return grid_ != nullptr;
}

void BodyField::Fill(const LMatrix& pose, ScalarGrid& levelSet, WorkerPool& pool) const {
  const LMatrix toBody = pose.Inverse();
  const Vec3D low = grid_->space.simMin, high = grid_->space.simMax;
  const double h = levelSet.space.cellSize;
  const Vec3D step = toBody.v1 * h;
  const auto fill = [&](int k0, int k1, int) {
    for (int k = k0; k < k1; ++k) {
      for (int j = 0; j < levelSet.dims.y; ++j) {
        const Vec3D start = toBody * (levelSet.space.simMin + Vec3D(0, j, k) * h);
        double* row = &levelSet(0, j, k);
        for (int i = 0; i < levelSet.dims.x; ++i) {
          const Vec3D p = start + step * double(i);
          const Vec3D inside = Max(Min(p, high), low);
          const double distance = view_.Sample(view_.IndexOfWorld(inside));
          // Beyond the field, its border's distance and the way there: no less than the true one.
          row[i] = inside == p ? distance : distance + Length(p - inside);
        }
      }
    }
  };
  if (levelSet.count < kSmall) return fill(0, levelSet.dims.z, 0);
  ParallelRange(pool, 0, levelSet.dims.z, fill);
}

}  // namespace orlix
