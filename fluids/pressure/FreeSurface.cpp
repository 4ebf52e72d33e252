#include "fluids/pressure/FreeSurface.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "globals/Multiversion.h"

namespace orlix {

namespace {

constexpr float kLeastTheta = 0.01f;
constexpr double kFloatRange = 3e38;

inline float Narrow(double phi) {
  const double most = phi < kFloatRange ? phi : kFloatRange;
  return static_cast<float>(most > -kFloatRange ? most : -kFloatRange);
}

// One over theta of a face between two cells; 0 in air.
inline float InverseTheta(float below, float above) {
  const float liquid = below < 0 ? below : above, air = below < 0 ? above : below;
  const float theta = liquid / (liquid - air);
  const float inverse = 1 / (theta < kLeastTheta ? kLeastTheta : theta);
  return liquid < 0 ? (air < 0 ? 1.0f : inverse) : 0.0f;
}

// What a row of faces lies between: pointers to the cells above the faces, and the step down to those below.
struct SurfaceRow {
  const float* share;
  const double *phi, *density;  // density may be null
  std::int64_t step;
  int begin, end;
};

// Rows with a density and without are loops of their own: masked loads through a null pointer, which a compiler makes
// of one loop for both, read nothing but take a hundred cycles each.
template <bool kByDensity>
ORLIX_INLINE double InverseDensity(const SurfaceRow& row, int i) {
  if constexpr (kByDensity) return 1 / (0.5 * (row.density[i] + row.density[i - row.step]));
  return 1;
}

template <bool kByDensity>
ORLIX_INLINE void RowOfWeights(const SurfaceRow& r, double k, double* __restrict weight) {
  const SurfaceRow row = r;
  for (int i = row.begin; i < row.end; ++i) {
    const float inverse = InverseTheta(Narrow(row.phi[i - row.step]), Narrow(row.phi[i]));
    weight[i] = double(row.share[i]) * k * double(inverse) * InverseDensity<kByDensity>(row, i);
  }
}
ORLIX_MULTIVERSION void SurfaceWeightRow(const SurfaceRow& row, double k, double* __restrict weight) {
  row.density ? RowOfWeights<true>(row, k, weight) : RowOfWeights<false>(row, k, weight);
}

template <bool kByDensity>
ORLIX_INLINE void RowOfGradients(const SurfaceRow& r, const double* p, double k, double* __restrict u) {
  const SurfaceRow row = r;
  for (int i = row.begin; i < row.end; ++i) {
    const float inverse = InverseTheta(Narrow(row.phi[i - row.step]), Narrow(row.phi[i]));
    const double moved = u[i] - (p[i] - p[i - row.step]) * (k * InverseDensity<kByDensity>(row, i)) * double(inverse);
    const double open = inverse > 0 ? moved : u[i];
    u[i] = row.share[i] > 0 ? open : row.share[i] == 0 ? 0 : u[i];
  }
}
ORLIX_MULTIVERSION void SurfaceGradientRow(const SurfaceRow& row, const double* p, double k, double* __restrict u) {
  row.density ? RowOfGradients<true>(row, p, k, u) : RowOfGradients<false>(row, p, k, u);
}

// work(axis, j, layer, row) for the faces 1 to n - 1 of each axis between cells; rows across the other axes leave the
// outermost cells out.
template <class F>
void ForSurfaceRows(const FreeSurface& s, WorkerPool& pool, F&& work) {
  const VecInt3D n = s.phi.dims;
  ParallelRange(pool, 1, n.z, [&](int k0, int k1, int) {
    for (int layer = k0; layer < k1; ++layer) {
      for (int axis = 0; axis < 3; ++axis) {
        if (axis != 2 && layer == n.z - 1) continue;
        const std::int64_t step = axis == 0 ? 1 : axis == 1 ? n.x : s.phi.slab;
        for (int j = 1; j < (axis == 1 ? n.y : n.y - 1); ++j) {
          SurfaceRow row{&s.share[axis](0, j, layer), &s.phi(0, j, layer), nullptr, step, 1, axis == 0 ? n.x : n.x - 1};
          if (s.density.data) row.density = &s.density(0, j, layer);
          work(axis, j, layer, row);
        }
      }
    }
  });
}

}  // namespace

std::int64_t FillSurfaceWeights(const FreeSurface& surface, double k, GridView<double> (&weights)[3],
                                std::uint8_t* equation, WorkerPool& pool) {
  for (auto& weight : weights) FillDoubles(weight.data, CellCount(weight.dims), 0, &pool);
  ForSurfaceRows(surface, pool, [&](int axis, int j, int layer, const SurfaceRow& row) {
    SurfaceWeightRow(row, k, &weights[axis](0, j, layer));
  });
  const VecInt3D n = surface.phi.dims;
  std::vector<std::int64_t> counts(std::size_t(n.z), 0);
  ParallelRange(pool, 0, n.z, [&](int k0, int k1, int) {
    for (int layer = k0; layer < k1; ++layer) {
      std::uint8_t* slab = equation + surface.phi.slab * layer;
      std::fill_n(slab, surface.phi.slab, std::uint8_t{0});
      if (layer == 0 || layer == n.z - 1) continue;
      for (int j = 1; j < n.y - 1; ++j) {
        const double* phi = &surface.phi(0, j, layer);
        std::uint8_t* row = slab + std::int64_t(n.x) * j;
        for (int i = 1; i < n.x - 1; ++i) {
          if (!(Narrow(phi[i]) < 0)) continue;
          const double diagonal = weights[0](i, j, layer) + weights[0](i + 1, j, layer) + weights[1](i, j, layer) +
                                  weights[1](i, j + 1, layer) + weights[2](i, j, layer) + weights[2](i, j, layer + 1);
          row[i] = diagonal > 0;
          counts[std::size_t(layer)] += row[i];
        }
      }
    }
  });
  std::int64_t count = 0;
  for (const std::int64_t c : counts) count += c;
  return count;
}

double KeepEquations(const std::uint8_t* equation, const VecInt3D& cells, double* rhs, WorkerPool& pool) {
  const std::int64_t slab = std::int64_t(cells.x) * cells.y;
  std::vector<double> layers(std::size_t(cells.z), 0.0);
  ParallelRange(pool, 0, cells.z, [&](int k0, int k1, int) {
    for (int k = k0; k < k1; ++k) {
      double largest = 0;
      for (std::int64_t c = slab * k; c < slab * (k + 1); ++c) {
        rhs[c] = equation[c] ? rhs[c] : 0;
        largest = std::fmax(largest, std::fabs(rhs[c]));
      }
      layers[std::size_t(k)] = largest;
    }
  });
  return *std::max_element(layers.begin(), layers.end());
}

void ApplySurfaceGradient(const FreeSurface& surface, const double* pressure, double k, GridView<double> (&velocity)[3],
                          WorkerPool& pool) {
  const VecInt3D n = surface.phi.dims;
  ForSurfaceRows(surface, pool, [&](int axis, int j, int layer, const SurfaceRow& row) {
    SurfaceGradientRow(row, pressure + (surface.phi.slab * layer + std::int64_t(n.x) * j), k,
                       &velocity[axis](0, j, layer));
  });
}

}  // namespace orlix
