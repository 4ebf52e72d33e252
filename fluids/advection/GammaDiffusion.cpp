// The last step of conservative advection.

#include <algorithm>

#include "fluids/advection/ConservativeAdvection.h"
#include "globals/Multiversion.h"

namespace orlix {

namespace {

// Half of the difference of two neighbours goes from the larger to the smaller, and values with it. The amounts are
// read from the sweep's input; output and values change in place, so that a later pair sees what an earlier one moved.
inline void MovePair(double a, double b, double& outA, double& outB, double& valueA, double& valueB) {
  const bool forward = !(b > a);
  const double larger = forward ? a : b;
  if (!(larger > 0)) return;
  const double d = (forward ? a - b : b - a) * 0.5;
  const double m = (forward ? valueA : valueB) * d / larger;
  const double signedD = forward ? d : -d, signedM = forward ? m : -m;
  outA -= signedD, outB += signedD;
  valueA -= signedM, valueB += signedM;
}

// The pairs (c, c + stride) for count neighbouring cells c: independent of each other when stride isn't 1.
ORLIX_MULTIVERSION void MoveRow(const double* in, double* out, double* values, std::int64_t stride, int count) {
  for (int i = 0; i < count; ++i) {
    MovePair(in[i], in[i + stride], out[i], out[i + stride], values[i], values[i + stride]);
  }
}

// One sweep along an axis. Workers take layers across it: z for the sweeps along x and y, y for the one along z.
void Sweep(int axis, const GridView<const double>& in, const GridView<double>& out, const GridView<double>& values,
           WorkerPool& pool) {
  const VecInt3D n = in.dims;
  const std::int64_t stride = axis == 0 ? 1 : axis == 1 ? n.x : in.slab;
  const auto row = [&](int j, int k) {
    const std::int64_t at = in.Index(1, j, k);
    MoveRow(in.data + at, out.data + at, values.data + at, stride, n.x - 2);
  };
  if (axis == 2) {
    ParallelRange(pool, 0, n.y, [&](int begin, int end, int) {
      for (int k = 0; k < n.z; ++k) {
        std::copy_n(in.data + in.Index(0, begin, k), std::int64_t(end - begin) * n.x, out.data + in.Index(0, begin, k));
      }
      for (int k = 1; k < n.z - 1; ++k) {
        for (int j = std::max(begin, 1); j < std::min(end, n.y - 1); ++j) row(j, k);
      }
    });
    return;
  }
  ParallelRange(pool, 0, n.z, [&](int begin, int end, int) {
    std::copy_n(in.data + in.slab * begin, in.slab * (end - begin), out.data + in.slab * begin);
    for (int k = std::max(begin, 1); k < std::min(end, n.z - 1); ++k) {
      for (int j = 1; j < n.y - 1; ++j) row(j, k);
    }
  });
}

}  // namespace

void DiffuseGamma(int iterations, GridView<double> values, GridView<double> gamma, ScratchPool& scratch,
                  WorkerPool& pool) {
  const auto first = scratch.Take<double>(gamma.dims), second = scratch.Take<double>(gamma.dims);
  // The grids trade places, so that no iteration copies its result back.
  GridView<double> in = gamma, a = *first;
  const GridView<double> b = *second;
  for (int iteration = 0; iteration < iterations; ++iteration) {
    Sweep(0, in, a, values, pool);
    Sweep(1, a, b, values, pool);
    Sweep(2, b, a, values, pool);
    std::swap(in, a);
  }
  if (in.data == gamma.data) return;
  ParallelRange(pool, 0, gamma.dims.z, [&](int begin, int end, int) {
    std::copy_n(in.data + in.slab * begin, in.slab * (end - begin), gamma.data + in.slab * begin);
  });
}

}  // namespace orlix
