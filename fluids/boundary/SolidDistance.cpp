#include "fluids/boundary/SolidDistance.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <vector>

#include "fluids/boundary/SolidView.h"
#include "fluids/grids/Interpolation.h"
#include "globals/Multiversion.h"
#include "host/threads/WorkerPool.h"

namespace orlix {

namespace {

// The smaller distance to the two walls of an axis, by node.
std::vector<double> AxisDistances(int axis, int n, double cellSize, std::uint8_t closed) {
  const int low = (closed & ClosedLow(axis)) != 0 ? 1 : -1;
  const int high = (closed & ClosedHigh(axis)) != 0 ? n - 2 : n;
  std::vector<double> distances(static_cast<std::size_t>(n));
  for (int i = 0; i < n; ++i) distances[static_cast<std::size_t>(i)] = std::min(i - low, high - i) * cellSize;
  return distances;
}

ORLIX_MULTIVERSION void LowerTo(double* row, const double* other, int count) {
  for (int i = 0; i < count; ++i) row[i] = other[i] < row[i] ? other[i] : row[i];
}

ORLIX_MULTIVERSION void FillLowered(double* row, const double* along, double across, int count) {
  for (int i = 0; i < count; ++i) row[i] = along[i] < across ? along[i] : across;
}

// How many whole cells of nodes' lattice its origin is below that of levelSet; false when that is no whole number.
bool WholeCellOffset(const ScalarGrid& nodes, const ScalarGrid& levelSet, VecInt3D& offset) {
  if (nodes.space.cellSize != levelSet.space.cellSize) return false;
  for (int axis = 0; axis < 3; ++axis) {
    const double cells =
        (levelSet.space.simMin[axis] - nodes.space.simMin[axis]) / static_cast<double>(nodes.space.cellSize);
    const double whole = std::nearbyint(cells);
    if (!(std::abs(cells - whole) < 1e-3) || std::abs(whole) > std::numeric_limits<int>::max() / 2) return false;
    offset[axis] = static_cast<int>(whole);
  }
  return true;
}

void LowerByNodes(ScalarGrid& nodes, const ScalarGrid& levelSet, const VecInt3D& offset, WorkerPool& pool) {
  // The box is open at its upper faces: the last node of each axis isn't in it.
  VecInt3D from, to;
  for (int axis = 0; axis < 3; ++axis) {
    from[axis] = std::max(0, offset[axis]);
    to[axis] = std::min(nodes.dims[axis], offset[axis] + levelSet.dims[axis] - 1);
    if (from[axis] >= to[axis]) return;
  }
  const auto lower = [&](int k0, int k1, int) {
    for (int k = k0; k < k1; ++k) {
      for (int j = from.y; j < to.y; ++j) {
        LowerTo(&nodes(from.x, j, k), &levelSet(from.x - offset.x, j - offset.y, k - offset.z), to.x - from.x);
      }
    }
  };
  constexpr std::int64_t kSmall = 1 << 16;  // nodes: below it the workers' coming together takes longer
  if (CellCount(to - from) < kSmall) return lower(from.z, to.z, 0);
  ParallelRange(pool, from.z, to.z, lower);
}

void LowerBySamples(ScalarGrid& nodes, const ScalarGrid& levelSet, WorkerPool& pool) {
  const GridView<const double> samples(levelSet);
  const GridSpace& space = levelSet.space;
  ParallelRange(pool, 0, nodes.dims.z, [&](int k0, int k1, int) {
    for (int k = k0; k < k1; ++k) {
      for (int j = 0; j < nodes.dims.y; ++j) {
        for (int i = 0; i < nodes.dims.x; ++i) {
          const Vec3D at = space.VoxelOfSim(nodes.space.SimOfVoxel(Vec3D(i, j, k)));
          const bool inside =
              at.x >= 0 && at.y >= 0 && at.z >= 0 && at.x < space.dims.x && at.y < space.dims.y && at.z < space.dims.z;
          if (inside) nodes(i, j, k) = std::min(nodes(i, j, k), SampleTrilinear(samples, at.x, at.y, at.z));
        }
      }
    }
  });
}

}  // namespace

void FillWallDistance(const GridView<double>& nodes, double cellSize, std::uint8_t closedFaces, WorkerPool& pool) {
  std::array<std::vector<double>, 3> along;
  for (int axis = 0; axis < 3; ++axis) {
    along[static_cast<std::size_t>(axis)] = AxisDistances(axis, nodes.dims[axis], cellSize, closedFaces);
  }
  ParallelRange(pool, 0, nodes.dims.z, [&](int k0, int k1, int) {
    for (int k = k0; k < k1; ++k) {
      for (int j = 0; j < nodes.dims.y; ++j) {
        const double across = std::min(along[1][static_cast<std::size_t>(j)], along[2][static_cast<std::size_t>(k)]);
        FillLowered(&nodes(0, j, k), along[0].data(), across, nodes.dims.x);
      }
    }
  });
}

void LowerByLevelSet(ScalarGrid& nodes, const ScalarGrid& levelSet, WorkerPool& pool) {
  if (std::min({levelSet.dims.x, levelSet.dims.y, levelSet.dims.z}) < 2) return;
  VecInt3D offset;
  if (WholeCellOffset(nodes, levelSet, offset)) return LowerByNodes(nodes, levelSet, offset, pool);
  LowerBySamples(nodes, levelSet, pool);
}

void FindSolidBox(ScalarGrid& nodes, WorkerPool& pool) {
  struct Box {
    VecInt3D min, max;
  };
  std::vector<Box> boxes(WorkerPool::kMaxWorkers, Box{nodes.dims, {}});
  ParallelRange(pool, 0, nodes.dims.z, [&](int k0, int k1, int worker) {
    Box box{nodes.dims, {}};
    for (int k = k0; k < k1; ++k) {
      for (int j = 0; j < nodes.dims.y; ++j) {
        const double* row = &nodes(0, j, k);
        int first = 0, last = nodes.dims.x - 1;
        while (first < nodes.dims.x && row[first] > 0) ++first;
        if (first == nodes.dims.x) continue;
        while (row[last] > 0) --last;
        box.min = Min(box.min, VecInt3D(first, j, k));
        box.max = Max(box.max, VecInt3D(last, j, k));
      }
    }
    boxes[static_cast<std::size_t>(worker)] = box;
  });
  nodes.ResetActiveBox();
  for (const Box& box : boxes) {
    nodes.activeMin = Min(nodes.activeMin, box.min);
    nodes.activeMax = Max(nodes.activeMax, box.max);
  }
  if (nodes.activeMin == nodes.activeMax) nodes.activeMax += VecInt3D(1, 1, 1);
}

}  // namespace orlix
