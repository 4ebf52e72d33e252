#include "fluids/boundary/ContainerBoundary.h"

#include <algorithm>

#include "fluids/boundary/SolidView.h"
#include "host/threads/WorkerPool.h"

namespace orlix {

namespace {

struct Component {
  GridView<double> grid;
  int axis;  // of its faces
  std::uint8_t closedFaces;
  double slip;

  // Treats the samples at stride from ghost: n samples, step apart.
  void Line(double* ghost, std::int64_t stride, int n, std::int64_t step, int across, bool closed) const {
    if (across != axis) {
      if (!closed) return;
      for (int m = 0; m < n; ++m) ghost[m * step] = slip * ghost[m * step + stride];
      return;
    }
    for (int m = 0; m < n; ++m) {
      double& wall = ghost[m * step + stride];
      if (closed) wall = 0;
      ghost[m * step] = wall;
    }
  }

  // The faces across x and y of one z layer; side 0 low, 1 high.
  void Layer(int k, int side) const {
    const VecInt3D n = grid.dims;
    const bool closedX = IsClosed(0, side), closedY = IsClosed(1, side);
    Line(&grid(side == 0 ? 0 : n.x - 1, 0, k), side == 0 ? 1 : -1, n.y, n.x, 0, closedX);
    // The corners of the x component's rows beside a y face stay as the x faces left them.
    const int first = axis == 0 ? 2 : 0, last = axis == 0 ? n.x - 2 : n.x;
    if (first >= last) return;
    const std::int64_t toWall = side == 0 ? n.x : -std::int64_t(n.x);
    Line(&grid(first, side == 0 ? 0 : n.y - 1, k), toWall, last - first, 1, 1, closedY);
  }

  void Ends(int side, WorkerPool& pool) const {
    const VecInt3D n = grid.dims;
    const int k = side == 0 ? 0 : n.z - 1;
    const bool closed = IsClosed(2, side);
    ParallelRange(pool, 0, n.y, [&](int j0, int j1, int) {
      for (int j = j0; j < j1; ++j) Line(&grid(0, j, k), side == 0 ? grid.slab : -grid.slab, n.x, 1, 2, closed);
    });
  }

  bool IsClosed(int across, int side) const {
    return (closedFaces & (side == 0 ? ClosedLow(across) : ClosedHigh(across))) != 0;
  }
};

}  // namespace

void ApplyContainerVelocity(const std::array<GridView<double>, 3>& velocity, std::uint8_t closedFaces, float slip,
                            WorkerPool& pool) {
  for (int axis = 0; axis < 3; ++axis) {
    const Component component{velocity[static_cast<std::size_t>(axis)], axis, closedFaces, slip};
    const VecInt3D n = component.grid.dims;
    if (std::min({n.x, n.y, n.z}) < 2) continue;
    for (int side = 0; side < 2; ++side) {
      ParallelRange(pool, 0, n.z, [&](int k0, int k1, int) {
        for (int k = k0; k < k1; ++k) component.Layer(k, side);
      });
      component.Ends(side, pool);
    }
  }
}

}  // namespace orlix
