#pragma once
// Rows of a pressure system along x: what its kernels loop over, and the sums that they form.

#include <cstring>
#include <vector>

#include "fluids/pressure/PressureSystem.h"
#include "globals/Multiversion.h"
#include "host/threads/WorkerPool.h"

// Before a loop whose passes don't depend on one another, where the compiler can't see it. Sanitized builds don't
// vectorise, and clang says so as a warning.
#if defined(ORLIX_SANITIZED)
#define ORLIX_INDEPENDENT
#elif defined(__clang__)
#define ORLIX_INDEPENDENT _Pragma("clang loop vectorize(assume_safety)")
#elif defined(__GNUC__)
#define ORLIX_INDEPENDENT _Pragma("GCC ivdep")
#else
#define ORLIX_INDEPENDENT
#endif

namespace orlix {

// The faces of the cells (., j, k): cell i has the faces x[i], x[i + 1], yLow[i], yHigh[i], zLow[i], zHigh[i].
template <class W>
struct FaceRow {
  const W *x, *yLow, *yHigh, *zLow, *zHigh;

  FaceRow(const GridView<const W> (&faces)[3], int j, int k)
      : x(&faces[0](0, j, k)),
        yLow(&faces[1](0, j, k)),
        yHigh(&faces[1](0, j + 1, k)),
        zLow(&faces[2](0, j, k)),
        zHigh(&faces[2](0, j, k + 1)) {}
};

// Calls f with the faces' weights in the type in which the system holds them.
template <class F>
decltype(auto) WithWeights(const PressureSystem& system, F&& f) {
  return system.weight[0].data ? f(system.weight) : f(system.share);
}

// Eight partial sums: the order of a sum is the same with vectors of any width.
struct EightSums {
  double lane[8] = {};

  ORLIX_INLINE void Add(const double* a, const double* b, int count) {
    int i = 0;
    for (; i + 8 <= count; i += 8) {
      for (int l = 0; l < 8; ++l) lane[l] += a[i + l] * b[i + l];
    }
    for (int l = 0; i < count; ++i, ++l) lane[l] += a[i] * b[i];
  }
  ORLIX_INLINE void AddValues(const double* a, int count) {
    int i = 0;
    for (; i + 8 <= count; i += 8) {
      for (int l = 0; l < 8; ++l) lane[l] += a[i + l];
    }
    for (int l = 0; i < count; ++i, ++l) lane[l] += a[i];
  }
  double Total() const {
    return ((lane[0] + lane[4]) + (lane[2] + lane[6])) + ((lane[1] + lane[5]) + (lane[3] + lane[7]));
  }
};

// Eight partial maxima of magnitudes. A value that is no number is passed over.
struct EightMaxima {
  double lane[8] = {};

  ORLIX_INLINE void Add(const double* a, int count) {
    int i = 0;
    for (; i + 8 <= count; i += 8) {
      for (int l = 0; l < 8; ++l) {
        const double v = a[i + l] < 0 ? -a[i + l] : a[i + l];
        lane[l] = v > lane[l] ? v : lane[l];
      }
    }
    for (int l = 0; i < count; ++i, ++l) {
      const double v = a[i] < 0 ? -a[i] : a[i];
      lane[l] = v > lane[l] ? v : lane[l];
    }
  }
  double Largest() const {
    double largest = 0;
    for (const double v : lane) largest = v > largest ? v : largest;
    return largest;
  }
};

// Sets the outermost layer of cells to 0.
inline void ZeroBorder(const VecInt3D& dims, double* data) {
  const std::int64_t row = dims.x, slab = row * dims.y;
  const auto zero = [](double* at, std::int64_t count) { std::memset(at, 0, std::size_t(count) * sizeof(double)); };
  zero(data, slab);
  zero(data + slab * (dims.z - 1), slab);
  for (int k = 1; k < dims.z - 1; ++k) {
    double* layer = data + slab * k;
    zero(layer, row);
    zero(layer + row * (dims.y - 1), row);
    for (int j = 1; j < dims.y - 1; ++j) layer[row * j] = layer[row * j + row - 1] = 0;
  }
}

// Sums of z layers, added in their order: the same bits at any number of workers.
inline double SumOfLayers(const std::vector<double>& layers) {
  double sum = 0;
  for (const double v : layers) sum += v;
  return sum;
}
inline double LargestOfLayers(const std::vector<double>& layers) {
  double largest = 0;
  for (const double v : layers) largest = v > largest ? v : largest;
  return largest;
}

}  // namespace orlix
