#pragma once
// Pressure problems for tests and benchmarks: a container with closed and open faces, a solid given by its distance, or
// a liquid's surface, and the velocity of a plume with some noise.

#include <algorithm>
#include <cmath>
#include <functional>
#include <memory>
#include <random>
#include <vector>

#include "fluids/grids/Grid.h"
#include "fluids/pressure/PressureSystem.h"
#include "tests/support/Cells.h"

namespace orlix::test {

// The share of a unit square with these corner values, in cyclic order, that lies where the bilinear value isn't
// positive, by samples.
inline double ShareInside(double a, double b, double c, double d) {
  if (a > 0 && b > 0 && c > 0 && d > 0) return 0;
  if (a <= 0 && b <= 0 && c <= 0 && d <= 0) return 1;
  constexpr int kSamples = 8;
  int inside = 0;
  for (int m = 0; m < kSamples * kSamples; ++m) {
    const double u = (m % kSamples + 0.5) / kSamples, v = (m / kSamples + 0.5) / kSamples;
    inside += (1 - u) * ((1 - v) * a + v * d) + u * ((1 - v) * b + v * c) <= 0;
  }
  return double(inside) / (kSamples * kSamples);
}

// Bits as a solver's mask of closed faces: x min, x max, y max, y min, z min, z max.
inline constexpr unsigned kClosed = 63, kOpenTop = 63 - 4, kOpen = 0;

class PressureProblem {
 public:
  using Field = std::function<double(double, double, double)>;  // of the place in the container, 0 to 1

  // solid: distance, negative inside, or null.
  PressureProblem(const VecInt3D& cells, unsigned closed, const Field& solid = nullptr) : dims(cells) {
    for (int axis = 0; axis < 3; ++axis) {
      VecInt3D faces = dims;
      faces[axis] += 1;
      share[axis] = std::make_unique<Grid<float>>(faces, kGridScratch);
      velocity[axis] = std::make_unique<Grid<double>>(faces, axis);
      velocity[axis]->Fill(0);
    }
    FillShares(closed, solid);
    system.dims = dims;
    for (int axis = 0; axis < 3; ++axis) system.share[axis] = GridView<const float>(*share[axis]);
    system.scale = 0.25;
  }

  // Cells where surface isn't negative become air, with a pressure of 0 where the surface crosses a face.
  void SetLiquid(const Field& surface) {
    equation.assign(system.count(), 0);
    const auto phi = [&](int i, int j, int k) {
      return static_cast<float>(surface((i + 0.5) / dims.x, (j + 0.5) / dims.y, (k + 0.5) / dims.z));
    };
    ForCells([&](int i, int j, int k) { equation[Cell(i, j, k)] = phi(i, j, k) < 0; });
    for (int axis = 0; axis < 3; ++axis) {
      weight[axis] = std::make_unique<Grid<double>>(share[axis]->dims, kGridScratch);
      weight[axis]->Fill(0);
      ForCells([&](int i, int j, int k) {
        for (int side = 0; side < 2; ++side) {
          int n[3] = {i, j, k}, f[3] = {i, j, k};
          n[axis] += side ? 1 : -1, f[axis] += side;
          const float here = phi(i, j, k), there = phi(n[0], n[1], n[2]);
          if (here >= 0) continue;
          const float theta = there >= 0 ? std::max(here / (here - there), 0.01f) : 1.0f;
          (*weight[axis])(f[0], f[1], f[2]) = (*share[axis])(f[0], f[1], f[2]) / theta;
        }
      });
      system.weight[axis] = GridView<const double>(*weight[axis]);
    }
    system.equation = equation.data();
  }

  // A warm column with swirls and noise, in units a second.
  void FillVelocity(unsigned seed = 7) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> noise(-0.02, 0.02);
    for (int axis = 0; axis < 3; ++axis) {
      FillCells(*velocity[axis], [&](int i, int j, int k) {
        const double x = (i + 0.5 * (axis != 0)) / dims.x, y = (j + 0.5 * (axis != 1)) / dims.y;
        const double z = (k + 0.5 * (axis != 2)) / dims.z;
        const double r = (x - 0.5) * (x - 0.5) + (z - 0.5) * (z - 0.5);
        const double plume = 3 * std::exp(-60 * r - 8 * (y - 0.4) * (y - 0.4));
        const double swirl = 0.5 * std::sin(7 * x + axis) * std::cos(9 * y + 2 * axis) * std::sin(5 * z + axis);
        return (axis == 1 ? plume : 0) + swirl + noise(random);
      });
    }
  }

  // Minus the divergence of the open shares' flux, in the cells with an equation.
  std::vector<double> RightSide() const {
    std::vector<double> rhs(system.count(), 0.0);
    ForCells([&](int i, int j, int k) {
      if (!HasEquation(i, j, k)) return;
      double flux = 0;
      for (int axis = 0; axis < 3; ++axis) {
        const int f[3] = {i + (axis == 0), j + (axis == 1), k + (axis == 2)};
        flux += (*share[axis])(f[0], f[1], f[2]) * (*velocity[axis])(f[0], f[1], f[2]) -
                (*share[axis])(i, j, k) * (*velocity[axis])(i, j, k);
      }
      rhs[Cell(i, j, k)] = -flux;
    });
    return rhs;
  }

  double Coefficient(int axis, int i, int j, int k) const {
    return (weight[axis] ? (*weight[axis])(i, j, k) : (*share[axis])(i, j, k)) * system.scale;
  }
  bool HasEquation(int i, int j, int k) const {
    if (i < 1 || j < 1 || k < 1 || i >= dims.x - 1 || j >= dims.y - 1 || k >= dims.z - 1) return false;
    if (system.equation) return equation[Cell(i, j, k)] != 0;
    for (int axis = 0; axis < 3; ++axis) {
      if ((*share[axis])(i, j, k) > 0) return true;
      if ((*share[axis])(i + (axis == 0), j + (axis == 1), k + (axis == 2)) > 0) return true;
    }
    return false;
  }
  std::int64_t Cell(int i, int j, int k) const { return (std::int64_t(k) * dims.y + j) * dims.x + i; }
  template <class F>
  void ForCells(F&& f) const {
    ForInner(dims, f);
  }

  VecInt3D dims;
  std::unique_ptr<Grid<float>> share[3];
  std::unique_ptr<Grid<double>> weight[3], velocity[3];
  std::vector<std::uint8_t> equation;
  PressureSystem system;

 private:
  void FillShares(unsigned closed, const Field& solid) {
    const VecInt3D nodes = dims + VecInt3D(1, 1, 1);
    std::vector<double> distance(CellCount(nodes));
    const auto at = [&](int i, int j, int k) -> double& {
      return distance[(std::int64_t(k) * nodes.y + j) * nodes.x + i];
    };
    const auto wall = [&](unsigned bit, double toFace) { return (closed & bit) ? toFace - 1 : toFace + 1; };
    ForAll(nodes, [&](int i, int j, int k) {
      double d = std::min(
          {wall(1, i), wall(2, dims.x - i), wall(4, dims.y - j), wall(8, j), wall(16, k), wall(32, dims.z - k)});
      if (solid) d = std::min(d, solid(double(i) / dims.x, double(j) / dims.y, double(k) / dims.z) * dims.x);
      at(i, j, k) = d;
    });
    for (int axis = 0; axis < 3; ++axis) {
      const VecInt3D s = axis == 0 ? VecInt3D(0, 1, 0) : VecInt3D(1, 0, 0);
      const VecInt3D t = axis == 2 ? VecInt3D(0, 1, 0) : VecInt3D(0, 0, 1);
      FillCells(*share[axis], [&](int i, int j, int k) {
        const auto corner = [&](const VecInt3D& o) {
          return at(std::min(i + o.x, nodes.x - 1), std::min(j + o.y, nodes.y - 1), std::min(k + o.z, nodes.z - 1));
        };
        const double open = 1 - ShareInside(corner({}), corner(s), corner(s + t), corner(t));
        return open > 0 && open < 0.01 ? 0.01 : open;
      });
    }
  }
};

// Solids, in units of the container.
inline double Sphere(double x, double y, double z) {
  return std::sqrt((x - 0.5) * (x - 0.5) + (y - 0.35) * (y - 0.35) + (z - 0.5) * (z - 0.5)) - 0.15;
}
// A knobbly ball: caves, spikes and slits, as a scanned mesh has them.
inline double Knobbly(double x, double y, double z) {
  const double X = x - 0.5, Y = y - 0.4, Z = z - 0.5;
  const double r = std::sqrt(X * X + Y * Y + Z * Z);
  return 0.5 * (r - 0.22 - 0.04 * std::sin(40 * X) * std::sin(37 * Y) * std::sin(41 * Z));
}
// A tilted sheet about three cells of 128 thick, with a hole.
inline double Sheet(double x, double y, double z) {
  const double r = std::sqrt((x - 0.5) * (x - 0.5) + (z - 0.5) * (z - 0.5));
  return std::max(std::abs(y - 0.5 + 0.3 * (x - 0.5)) - 0.013, 0.1 - r);
}
// A breaking dam as the cells of particles show it: steps of half a cell on both sides, drops, and bubbles.
inline double BreakingDam(double x, double y, double z) {
  const double chance = std::sin(913 * x + 3571 * y + 7919 * z) * 43758.5453, drop = chance - std::floor(chance);
  const bool column = x < 0.5 && y < 0.75 - 0.1 * std::sin(7 * x), tongue = x < 0.85 && y < 0.1;
  const bool spray = x < 0.9 && y < 0.9 && drop < 0.04;
  return (column || tongue ? drop > 0.002 : spray) ? -0.5 : 0.5;
}
inline double Waves(double x, double y, double z) { return y - 0.5 - 0.08 * std::sin(9 * x) * std::cos(11 * z); }

}  // namespace orlix::test
