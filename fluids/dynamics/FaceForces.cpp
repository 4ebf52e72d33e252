#include "fluids/dynamics/FaceForces.h"

#include "globals/Multiversion.h"

namespace orlix {

namespace {

ORLIX_MULTIVERSION void AddRow(const double* before, const double* force, const float* open, double* velocity,
                               int count) {
  for (int i = 1; i < count; ++i) velocity[i] += static_cast<double>(open[i]) * 0.5 * (before[i] + force[i]);
}

const float* RowOf(const GridView<const float>& grid, int j, int k) { return grid.data + grid.Index(0, j, k); }
double* RowOf(const GridView<double>& grid, int j, int k) { return grid.data + grid.Index(0, j, k); }

}  // namespace

void ClearClosedCells(const FaceFractions& fractions, const CellForces& forces, int j, int k) {
  const float *x = RowOf(fractions[0], j, k), *y = RowOf(fractions[1], j, k), *z = RowOf(fractions[2], j, k);
  const int last = forces[0].dims.x - 1;
  for (const GridView<double>& force : forces) {
    double* row = RowOf(force, j, k);
    row[0] = row[last] = 0;
    for (int i = 1; i < last; ++i) row[i] = x[i] > 0 || y[i] > 0 || z[i] > 0 ? row[i] : 0;
  }
}

void AddGravity(const FaceFractions& fractions, const FaceComponents& velocity, const Vec3D& gravity, int j, int k) {
  const float *x = RowOf(fractions[0], j, k), *y = RowOf(fractions[1], j, k), *z = RowOf(fractions[2], j, k);
  for (int axis = 0; axis < 3; ++axis) {
    double* row = RowOf(velocity[axis], j, k);
    for (int i = 1; i < velocity[1].dims.x - 1; ++i) {
      if (x[i] > 0 || y[i] > 0 || z[i] > 0) row[i] += gravity[axis];
    }
  }
}

void AddForcesToFaces(const CellForces& forces, const FaceFractions& fractions, const FaceComponents& velocity,
                      WorkerPool& pool) {
  const VecInt3D n = forces[0].dims;
  ParallelRange(pool, 1, n.z, [&](int begin, int end, int) {
    for (int k = begin; k < end; ++k) {
      for (int j = 1; j < n.y; ++j) {
        for (int axis = 0; axis < 3; ++axis) {
          const double* row = RowOf(forces[axis], j, k);
          const std::int64_t stride = axis == 0 ? 1 : axis == 1 ? n.x : forces[axis].slab;
          AddRow(row - stride, row, RowOf(fractions[axis], j, k), RowOf(velocity[axis], j, k), n.x);
        }
      }
    }
  });
}

}  // namespace orlix
