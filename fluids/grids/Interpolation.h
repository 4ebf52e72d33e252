#pragma once
// The five interpolation kernels. Coordinates are array coordinates: cell (i, j, k)'s sample stands at (i, j, k).
//
//   mode  kernel                nodes  order  beyond the array          notes
//   0     trilinear                 8      2  the last node             from -1 to 0 as from 0 to 1
//   1     cosine                    8      1  the last node             smooth, flat at nodes
//   2     cubic                    64      4  the last node but one     Lagrange through four nodes
//   3     monotone cubic           64      2  the last node             never leaves the range of its two middle
//   samples
//                                                                       (Fritsch and Carlson 1980)
//   4     quadratic B-spline       27      2  mean of the last two      blurs; the caller adds 0.5 to each coordinate
//
// "Last" is nearest to the point, at either end. No kernel extrapolates.

#include <algorithm>
#include <cmath>
#include <numbers>

#include "fluids/grids/Grid.h"

namespace orlix {

enum class Interpolation : int { Trilinear = 0, Cosine = 1, Cubic = 2, MonotoneCubic = 3, QuadraticBSpline = 4 };

// Any number but 1 to 4 selects trilinear.
constexpr Interpolation InterpolationOf(int mode) {
  return mode >= 1 && mode <= 4 ? static_cast<Interpolation>(mode) : Interpolation::Trilinear;
}

// A lower node and the fraction towards the upper one.
struct AxisCell {
  int i;
  double f;
};

// A coordinate between -1 and 0 truncates to 0 and stays in the first cell with the fraction x + 1. Coordinates beyond
// an i32 (and NaN) are limited first, so that the conversion is defined.
inline AxisCell LinearAxis(double x, int n) {
  const double limited = x < 2147483000.0 ? (x > -2147483000.0 ? x : -2147483000.0) : 2147483000.0;
  const int i = static_cast<int>(limited);
  if (i < 0) return {0, 0.0};
  if (i > n - 2) return {n - 2, 1.0};
  return {i, limited - std::floor(limited)};
}

// As LinearAxis, with i limited to [1, n - 2].
inline AxisCell InnerAxis(double x, int n) {
  const double limited = x < 2147483000.0 ? (x > -2147483000.0 ? x : -2147483000.0) : 2147483000.0;
  const int i = static_cast<int>(limited);
  if (i < 1) return {1, 0.0};
  if (i > n - 2) return {n - 2, 1.0};
  return {i, limited - std::floor(limited)};
}

namespace interpolation_detail {

template <class T>
T EightNodes(const GridView<const T>& g, const AxisCell& x, const AxisCell& y, const AxisCell& z) {
  const T* p = g.data + g.Index(x.i, y.i, z.i);
  const std::int64_t nx = g.dims.x, slab = g.slab;
  const double fx = x.f, fy = y.f, fz = z.f, gx = 1 - fx, gy = 1 - fy, gz = 1 - fz;
  const T low = (p[0] * gx + p[1] * fx) * gy + (p[nx] * gx + p[nx + 1] * fx) * fy;
  const T high = (p[slab] * gx + p[slab + 1] * fx) * gy + (p[slab + nx] * gx + p[slab + nx + 1] * fx) * fy;
  return low * gz + high * fz;
}

}  // namespace interpolation_detail

template <class T>
T SampleTrilinear(const GridView<const T>& g, double x, double y, double z) {
  return interpolation_detail::EightNodes(g, LinearAxis(x, g.dims.x), LinearAxis(y, g.dims.y), LinearAxis(z, g.dims.z));
}

template <class T>
T SampleCosine(const GridView<const T>& g, double x, double y, double z) {
  AxisCell ax = LinearAxis(x, g.dims.x), ay = LinearAxis(y, g.dims.y), az = LinearAxis(z, g.dims.z);
  const auto ease = [](double f) { return (1 - std::cos(std::numbers::pi * f)) / 2; };
  ax.f = ease(ax.f), ay.f = ease(ay.f), az.f = ease(az.f);
  return interpolation_detail::EightNodes(g, ax, ay, az);
}

// Node indices i - 1, i, i + 1, i + 2 and their Lagrange weights. At i = n - 3 the fourth node repeats the third, at
// i = n - 2 the third and the fourth repeat the second.
struct CubicAxis {
  int node[4];
  double weight[4];
  CubicAxis(double x, int n) {
    const AxisCell c = InnerAxis(x, n);
    const double t = c.f, t2 = t * t, t3 = t2 * t;
    node[0] = c.i - 1;
    node[1] = c.i;
    node[2] = c.i >= n - 2 ? c.i : c.i + 1;
    node[3] = c.i >= n - 2 ? c.i : c.i == n - 3 ? c.i + 1 : c.i + 2;
    weight[0] = t2 / 2 - t / 3 - t3 / 6;
    weight[1] = (t3 - t) / 2 + 1 - t2;
    weight[2] = (t2 - t3) / 2 + t;
    weight[3] = (t3 - t) / 6;
  }
};

template <class T>
T SampleCubic(const GridView<const T>& g, double x, double y, double z) {
  const CubicAxis ax(x, g.dims.x), ay(y, g.dims.y), az(z, g.dims.z);
  T sum{};
  for (int c = 0; c < 4; ++c) {
    T layer{};
    for (int b = 0; b < 4; ++b) {
      const T* row = g.data + g.Index(0, ay.node[b], az.node[c]);
      const T line = row[ax.node[0]] * ax.weight[0] + row[ax.node[1]] * ax.weight[1] + row[ax.node[2]] * ax.weight[2] +
                     row[ax.node[3]] * ax.weight[3];
      layer = layer + line * ay.weight[b];
    }
    sum = sum + layer * az.weight[c];
  }
  return sum;
}

// The index quadruples of mode 3 and the fraction in each axis: b - 1, b, b + 1, b + 2 with b = floor(x), each limited
// to the array. With b beyond the last index all but the first are n - 1, and the first is n - 2.
struct MonotoneStencil {
  int node[3][4];
  double f[3];
  MonotoneStencil(const Vec3D& x, const VecInt3D& n) {
    for (int axis = 0; axis < 3; ++axis) {
      const double limited =
          x[axis] < 2147483000.0 ? (x[axis] > -2147483000.0 ? x[axis] : -2147483000.0) : 2147483000.0;
      const int b = static_cast<int>(std::floor(limited));
      f[axis] = limited - std::floor(limited);
      for (int m = 0; m < 4; ++m) node[axis][m] = std::clamp(b - 1 + m, 0, n[axis] - 1);
      if (b > n[axis] - 1) node[axis][0] = std::max(n[axis] - 2, 0);
    }
  }
};

// Cubic Hermite through f0 and f1 with slopes that vanish at extrema, limited to [f0, f1].
inline double MonotoneCubic(double fm, double f0, double f1, double f2, double t) {
  const double d = f1 - f0;
  double m0 = 0, m1 = 0;
  if (d != 0) {
    m0 = (f1 - fm) / 2;
    m1 = (f2 - f0) / 2;
    if (!(m0 * d > 0)) m0 = 0;
    if (!(m1 * d > 0)) m1 = 0;
  }
  const double t2 = t * t;
  const double p = (m0 + m1 - 2 * d) * t2 * t + (3 * d - 2 * m0 - m1) * t2 + m0 * t + f0;
  const double low = f0 < f1 ? f0 : f1, high = f0 < f1 ? f1 : f0;
  return p < low ? low : high < p ? high : p;
}

inline double SampleMonotoneCubic(const GridView<const double>& g, const MonotoneStencil& s) {
  double layer[4];
  for (int c = 0; c < 4; ++c) {
    double line[4];
    for (int b = 0; b < 4; ++b) {
      const double* row = g.data + g.Index(0, s.node[1][b], s.node[2][c]);
      line[b] = MonotoneCubic(row[s.node[0][0]], row[s.node[0][1]], row[s.node[0][2]], row[s.node[0][3]], s.f[0]);
    }
    layer[c] = MonotoneCubic(line[0], line[1], line[2], line[3], s.f[1]);
  }
  return MonotoneCubic(layer[0], layer[1], layer[2], layer[3], s.f[2]);
}

// Coordinates with 0.5 added already.
template <class T>
T SampleQuadraticBSpline(const GridView<const T>& g, double x, double y, double z) {
  const AxisCell c[3] = {InnerAxis(x, g.dims.x), InnerAxis(y, g.dims.y), InnerAxis(z, g.dims.z)};
  double w[3][3];
  for (int axis = 0; axis < 3; ++axis) {
    const double f = c[axis].f;
    w[axis][0] = (f - 1) * (f - 1) / 2;
    w[axis][1] = 0.75 - (f - 0.5) * (f - 0.5);
    w[axis][2] = f * f / 2;
  }
  T sum{};
  for (int k = 0; k < 3; ++k) {
    T layer{};
    for (int j = 0; j < 3; ++j) {
      const T* row = g.data + g.Index(c[0].i - 1, c[1].i - 1 + j, c[2].i - 1 + k);
      layer = layer + (row[0] * w[0][0] + row[1] * w[0][1] + row[2] * w[0][2]) * w[1][j];
    }
    sum = sum + layer * w[2][k];
  }
  return sum;
}

// The value at array coordinates by a mode. useStencil false makes mode 3 the trilinear one, as for a caller
// without a stencil. Adds the B-spline's 0.5. Grids need 2 nodes an axis (modes 0, 1) or 3 (2, 3, 4); smaller ones
// are sampled by their nearest node.
inline double SampleGrid(const GridView<const double>& g, double x, double y, double z, Interpolation mode,
                         bool useStencil = true) {
  const int least = std::min({g.dims.x, g.dims.y, g.dims.z});
  if (least < 2) {
    const auto nearest = [](double v, int n) { return v > 0 ? (v < n - 1 ? static_cast<int>(v + 0.5) : n - 1) : 0; };
    return g(nearest(x, g.dims.x), nearest(y, g.dims.y), nearest(z, g.dims.z));
  }
  switch (least < 3 && mode != Interpolation::Cosine ? Interpolation::Trilinear : mode) {
    case Interpolation::Cosine:
      return SampleCosine(g, x, y, z);
    case Interpolation::Cubic:
      return SampleCubic(g, x, y, z);
    case Interpolation::MonotoneCubic:
      if (useStencil) return SampleMonotoneCubic(g, MonotoneStencil({x, y, z}, g.dims));
      break;
    case Interpolation::QuadraticBSpline:
      return SampleQuadraticBSpline(g, x + 0.5, y + 0.5, z + 0.5);
    case Interpolation::Trilinear:
      break;
  }
  return SampleTrilinear(g, x, y, z);
}

}  // namespace orlix
