#include "fluids/pressure/PressureAssembly.h"

#include <algorithm>

#include "fluids/pressure/PressureRows.h"
#include "globals/Multiversion.h"

namespace orlix {

namespace {

// A face between two cells without mass would have an infinite weight.
constexpr double kLeastDensity = 1e-6;  // kg/m^3

ORLIX_INLINE bool HasOpenFace(const FaceRow<float>& a, int i) {
  return (a.x[i] > 0) | (a.x[i + 1] > 0) | (a.yLow[i] > 0) | (a.yHigh[i] > 0) | (a.zLow[i] > 0) | (a.zHigh[i] > 0);
}

// b of a row in cells with an equation, elsewhere 0.
ORLIX_INLINE void DivergenceRow(const DivergenceInput& input, const GridView<const double> (&velocity)[3], int j, int k,
                                double* __restrict b) {
  const int nx = input.cellShare.dims.x;
  const FaceRow<float> a(input.share, j, k);
  const FaceRow<double> u(velocity, j, k);
  const double h = input.cellSize;
  const float* cell = &input.cellShare(0, j, k);
  if (input.source.data) {
    const double* source = &input.source(0, j, k);
    for (int i = 1; i < nx - 1; ++i) b[i] = cell[i] * source[i];
  } else {
    std::fill(b, b + nx, 0.0);
  }
  for (int i = 1; i < nx - 1; ++i) {
    const double flux = a.yHigh[i] * u.yHigh[i] - a.yLow[i] * u.yLow[i] + a.x[i + 1] * u.x[i + 1] - a.x[i] * u.x[i] +
                        a.zHigh[i] * u.zHigh[i] - a.zLow[i] * u.zLow[i];
    const double value = b[i] - flux / h;
    const bool open = HasOpenFace(a, i);
    b[i] = open ? value : 0.0;
  }
}

ORLIX_MULTIVERSION double DivergenceLayer(const DivergenceInput& input, int k, bool accumulate, double* rhs,
                                          double* __restrict buffer) {
  const VecInt3D n = input.cellShare.dims;
  const GridView<const double> velocity[3] = {input.velocity[0], input.velocity[1], input.velocity[2]};
  EightMaxima largest;
  for (int j = 1; j < n.y - 1; ++j) {
    DivergenceRow(input, velocity, j, k, buffer);
    if (rhs) {
      double* __restrict row = rhs + (std::int64_t(k) * n.y + j) * n.x;
      if (accumulate) {
        for (int i = 1; i < n.x - 1; ++i) buffer[i] += row[i];
      }
      for (int i = 1; i < n.x - 1; ++i) row[i] = buffer[i];
    }
    largest.Add(buffer + 1, n.x - 2);
  }
  return largest.Largest();
}

// One over the mean density at a face, or with a density of 0 in both cells a large number.
ORLIX_INLINE double FaceShareOfDensity(double k, double below, double above) {
  const double mean = (below + above) * 0.5;
  return k / (mean > kLeastDensity ? mean : kLeastDensity);
}

ORLIX_MULTIVERSION void DensityWeightRow(const float* share, const double* below, const double* above, double k,
                                         int begin, int end, double* __restrict weights) {
  for (int i = begin; i < end; ++i) weights[i] = share[i] * FaceShareOfDensity(k, below[i], above[i]);
}

// Faces [begin, end) of a row; below and above are the pressures of the faces' two cells.
ORLIX_MULTIVERSION void GradientRow(const float* share, const double* below, const double* above, double k, int begin,
                                    int end, double* __restrict u) {
  for (int i = begin; i < end; ++i) {
    const double value = (u[i] + below[i] * k) - above[i] * k;
    u[i] = share[i] > 0 ? value : 0.0;
  }
}
ORLIX_MULTIVERSION void GradientRowByDensity(const float* share, const double* below, const double* above,
                                             const double* densityBelow, const double* densityAbove, double k,
                                             int begin, int end, double* __restrict u) {
  for (int i = begin; i < end; ++i) {
    const double scale = FaceShareOfDensity(k, densityBelow[i], densityAbove[i]);
    const double value = (u[i] + below[i] * scale) - above[i] * scale;
    u[i] = share[i] > 0 ? value : 0.0;
  }
}

// Calls f(axis, j, k, begin, end, index of the cell above the face (0, j, k), steps to the one below) for the rows of
// faces that a projection changes: along their own axis those between two cells, across it all but the last layer.
template <class F>
void ForFaceRows(const VecInt3D& n, WorkerPool& pool, F&& f) {
  const std::int64_t stride[3] = {1, n.x, std::int64_t(n.x) * n.y};
  ParallelRange(pool, 0, n.z, [&](int from, int to, int) {
    for (int k = from; k < to; ++k) {
      for (int axis = 0; axis < 3; ++axis) {
        if (axis == 2 ? k < 1 : k > n.z - 2) continue;
        for (int j = axis == 1 ? 1 : 0; j < n.y - (axis == 1 ? 0 : 1); ++j) {
          const int begin = axis == 0 ? 1 : 0, end = n.x - (axis == 0 ? 0 : 1);
          f(axis, j, k, begin, end, stride[2] * k + stride[1] * j, stride[axis]);
        }
      }
    }
  });
}

}  // namespace

double AssembleDivergence(const DivergenceInput& input, bool accumulate, double* rhs, WorkerPool& pool) {
  const VecInt3D n = input.cellShare.dims;
  if (rhs && !accumulate) ZeroBorder(n, rhs);
  std::vector<double> layers(std::size_t(std::max(n.z, 0)));
  ParallelRange(pool, 1, n.z - 1, [&](int from, int to, int) {
    std::vector<double> buffer(std::size_t(n.x));
    for (int k = from; k < to; ++k) {
      layers[std::size_t(k)] = DivergenceLayer(input, k, accumulate, rhs, buffer.data());
    }
  });
  return LargestOfLayers(layers);
}

void FillDensityWeights(const GridView<const float> (&share)[3], const GridView<const double>& density, double k,
                        GridView<double> (&weights)[3], WorkerPool& pool) {
  for (int axis = 0; axis < 3; ++axis)
    std::fill(weights[axis].data, weights[axis].data + CellCount(weights[axis].dims), 0.0);
  ForFaceRows(density.dims, pool,
              [&](int axis, int j, int layer, int begin, int end, std::int64_t above, std::int64_t step) {
                DensityWeightRow(&share[axis](0, j, layer), density.data + above - step, density.data + above, k, begin,
                                 end, &weights[axis](0, j, layer));
              });
}

void ApplyPressureGradient(const GridView<const float> (&share)[3], const double* pressure, double k,
                           const GridView<const double>& density, GridView<double> (&velocity)[3], WorkerPool& pool) {
  const VecInt3D n = velocity[0].dims - VecInt3D(1, 0, 0);
  ForFaceRows(n, pool, [&](int axis, int j, int layer, int begin, int end, std::int64_t above, std::int64_t step) {
    const float* shares = &share[axis](0, j, layer);
    double* u = &velocity[axis](0, j, layer);
    const double* p = pressure + above;
    if (density.data) {
      GradientRowByDensity(shares, p - step, p, density.data + above - step, density.data + above, k, begin, end, u);
    } else {
      GradientRow(shares, p - step, p, k, begin, end, u);
    }
  });
}

}  // namespace orlix
