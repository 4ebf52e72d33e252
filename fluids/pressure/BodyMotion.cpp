#include "fluids/pressure/BodyMotion.h"

#include <algorithm>
#include <cmath>

#include "fluids/pressure/PressureRows.h"

namespace orlix {

namespace {

// The change of the solid share, 1 - open share, across a cell along each axis.
Vec3D SolidChange(const FaceRow<float>& open, int i) {
  return {double(open.x[i]) - open.x[i + 1], double(open.yLow[i]) - open.yHigh[i],
          double(open.zLow[i]) - open.zHigh[i]};
}

// The cells [1, n - 2) whose centres may lie in a box.
void CellsInBox(const GridSpace& space, const MovingBody& body, const VecInt3D& n, VecInt3D& low, VecInt3D& high) {
  const Vec3D from = space.VoxelOfSim(body.boxMin), to = space.VoxelOfSim(body.boxMax);
  for (int axis = 0; axis < 3; ++axis) {
    const double end = n[axis] - 2;
    low[axis] = static_cast<std::int32_t>(std::clamp(std::floor(from[axis]), 1.0, std::max(end, 1.0)));
    high[axis] = static_cast<std::int32_t>(std::clamp(std::ceil(to[axis]), 1.0, std::max(end, 1.0)));
  }
}

}  // namespace

void AddBodyMotion(const DivergenceInput& input, const GridSpace& space, const MovingBody& body, double* rhs,
                   WorkerPool& pool, const std::function<bool()>& stop) {
  if (!body.levelSet.HasData()) return;
  const VecInt3D n = input.Cells();
  VecInt3D low, high;
  CellsInBox(space, body, n, low, high);
  const double h = input.cellSize;
  ParallelRange(pool, low.z, high.z, [&](int from, int to, int) {
    for (int k = from; k < to; ++k) {
      if (stop && stop()) return;
      for (int j = low.y; j < high.y; ++j) {
        const FaceRow<float> open(input.share, j, k);
        double* row = rhs + (std::int64_t(k) * n.y + j) * n.x;
        for (int i = low.x; i < high.x; ++i) {
          const Vec3D change = SolidChange(open, i);
          if (change == Vec3D()) continue;
          const Vec3D p = space.SimOfVoxel({i + 0.5, j + 0.5, k + 0.5});
          if (!(body.levelSet.Sample(body.levelSet.IndexOfWorld(p)) < h)) continue;
          const Vec3D d = change / h;
          row[i] += -Dot(body.linear, d) - Dot(body.angular, Cross(p - body.centre, d));
        }
      }
    }
  });
}

}  // namespace orlix
