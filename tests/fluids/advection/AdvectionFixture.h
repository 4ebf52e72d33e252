#pragma once
// A lattice with a velocity, walls and obstacles, and the passes of advection as plain loops: what the fast kernels are
// compared with, bit for bit.

#include <cmath>
#include <cstring>
#include <functional>
#include <memory>
#include <random>

#include "fluids/advection/AdvectionKernels.h"
#include "tests/support/Cells.h"

namespace orlix::test {

using VectorField = std::function<Vec3D(const Vec3D&)>;
using ScalarField = std::function<double(const Vec3D&)>;

inline std::unique_ptr<ScalarGrid> MakeGrid(const VecInt3D& cells, std::uint32_t type, float h) {
  const VecInt3D dims = cells + ExtraCells(type);
  return std::make_unique<ScalarGrid>(dims, Vec3D(cells) * static_cast<double>(h), h, type, Vec3D());
}

// f at the samples, in index positions.
inline void FillSamples(ScalarGrid& grid, const ScalarField& f) {
  const Vec3D offset = CellSampleOffset(grid.gridType);
  FillCells(grid, [&](int i, int j, int k) { return f(Vec3D(i, j, k) + offset); });
}

inline bool SameBits(double a, double b) { return std::memcmp(&a, &b, sizeof a) == 0; }

struct AdvectionBench {
  // Positions in the fields are index positions; velocities in cells a second.
  AdvectionBench(const VecInt3D& latticeCells, const VectorField& velocity, float cellSize = 0.25f)
      : cells(latticeCells), h(cellSize) {
    for (int c = 0; c < 3; ++c) {
      components[c] = MakeGrid(cells, static_cast<std::uint32_t>(c), h);
      FillSamples(*components[c], [&](const Vec3D& p) { return velocity(p)[c] * static_cast<double>(h); });
    }
    field.velocity = {*components[0], *components[1], *components[2]};
    field.cellSize = h;
    field.dt = 1.0f;
    SetSolid([](const Vec3D&) { return 1e9; });
  }

  // A distance in cells at index positions; the walls of the closed faces are always there.
  void SetSolid(const ScalarField& distance) {
    nodes = MakeGrid(cells, kGridNodalLevelset, h);
    FillSamples(*nodes, [&](const Vec3D& p) {
      double d = distance(p);
      for (int axis = 0; axis < 3; ++axis) d = std::min({d, p[axis] - 1, cells[axis] - 1 - p[axis]});
      return d * static_cast<double>(h);
    });
    field.solid = SolidView(*nodes, kAllFacesClosed);
    bricks.Build(*nodes);
    field.bricks = &bricks;
  }
  void RemoveSolid() { field.solid = SolidView(), field.bricks = nullptr; }

  AdvectionSource Source(const ScalarGrid& grid, AdvectionSampling sampling) {
    AdvectionSource source;
    source.values = grid;
    source.offset = CellSampleOffset(grid.gridType);
    source.sampling = sampling;
    mask.Clear();
    if (field.solid.HasData()) {
      mask.Resize(grid.dims);
      ForAll(grid.dims, [&](int i, int j, int k) {
        if (!field.solid.IsInsideSolid(Vec3D(i, j, k) + source.offset)) return;
        mask.Row(j, k)[i >> 6] |= std::uint64_t(1) << (i & 63);
      });
    }
    source.insideSolid = &mask;
    return source;
  }

  VecInt3D cells;
  float h;
  std::unique_ptr<ScalarGrid> components[3], nodes;
  SolidBricks bricks;
  CellMask mask;
  AdvectionField field;
};

// One quantity at a time.
inline void AdvectSemiLagrangian(const AdvectionField& field, const AdvectionSource& source, GridView<double> result,
                                 WorkerPool& pool) {
  const Advected quantity{source, result};
  orlix::AdvectSemiLagrangian(field, {&quantity, 1}, pool);
}
inline void AdvectMacCormack(const AdvectionField& field, const AdvectionSource& source,
                             MacCormackCorrection correction, GridView<double> result, const MacCormackScratch& scratch,
                             WorkerPool& pool) {
  const Advected quantity{source, result, correction, scratch};
  orlix::AdvectMacCormack(field, {&quantity, 1}, pool);
}

// --- the passes, cell by cell ----------------------------------------------------------------------------------------

inline double SampleAt(const AdvectionSource& source, const Vec3D& p) {
  const Vec3D at = p - source.offset;
  const Interpolation mode = source.sampling == AdvectionSampling::QuadraticBSpline ? Interpolation::QuadraticBSpline
                             : source.sampling == AdvectionSampling::MonotoneCubic  ? Interpolation::MonotoneCubic
                                                                                    : Interpolation::Trilinear;
  return SampleGrid(source.values, at.x, at.y, at.z, mode);
}

inline void PlainSemiLagrangian(const AdvectionField& field, const AdvectionSource& source, GridView<double> result) {
  ForInner(source.values.dims, [&](int i, int j, int k) {
    const Vec3D sample = Vec3D(i, j, k) + source.offset;
    if (field.solid.IsInsideSolid(sample)) return;
    Vec3D p = field.Trace(sample);
    field.Resolve(p);
    result(i, j, k) = SampleAt(source, p);
  });
}

inline void PlainMacCormack(const AdvectionField& field, const AdvectionSource& source, float strength,
                            GridView<double> result) {
  AdvectionField backward = field;
  backward.dt = -field.dt;
  Grid<double> forward(source.values.dims, kGridScratch), reverse(source.values.dims, kGridScratch);
  forward.Fill(0), reverse.Fill(0);
  PlainSemiLagrangian(backward, source, forward);
  AdvectionSource ahead = source;
  ahead.values = forward;
  PlainSemiLagrangian(field, ahead, reverse);
  ForInner(source.values.dims, [&](int i, int j, int k) {
    result(i, j, k) =
        forward(i, j, k) + static_cast<double>(strength) * 0.5 * (source.values(i, j, k) - reverse(i, j, k));
    const Vec3D sample = Vec3D(i, j, k) + source.offset;
    if (field.solid.IsInsideSolid(sample)) return;
    Vec3D p = backward.Trace(sample);
    if (field.Resolve(p)) {
      result(i, j, k) = forward(i, j, k);
      return;
    }
    const VecInt3D c(p - source.offset);
    double low = source.values(c.x, c.y, c.z), high = low;
    for (int corner = 0; corner < 8; ++corner) {
      const double v = source.values(c.x + (corner & 1), c.y + (corner >> 1 & 1), c.z + (corner >> 2));
      low = std::min(low, v), high = std::max(high, v);
    }
    result(i, j, k) = std::min(std::max(result(i, j, k), low), high);
  });
}

// A velocity with all scales of the lattice, in cells a second, and a source of all magnitudes.
inline VectorField RoughVelocity(double speed, unsigned seed) {
  std::mt19937 random(seed);
  std::uniform_real_distribution<double> phase(0, 6.28);
  const Vec3D a(phase(random), phase(random), phase(random)), b(phase(random), phase(random), phase(random));
  return [=](const Vec3D& p) {
    return Vec3D(std::sin(0.9 * p.y + a.x) + std::sin(1.7 * p.z + b.x),
                 std::sin(1.1 * p.z + a.y) + std::sin(2.3 * p.x + b.y),
                 std::sin(0.7 * p.x + a.z) + std::sin(1.9 * p.y + b.z)) *
           (speed * 0.5);
  };
}
inline ScalarField RoughSource(unsigned seed) {
  auto random = std::make_shared<std::mt19937>(seed);
  return [random](const Vec3D&) { return std::uniform_real_distribution<double>(-1, 3)(*random); };
}

}  // namespace orlix::test
