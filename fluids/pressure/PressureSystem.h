#pragma once
// The Poisson system of a pressure projection on the cells of a marker-and-cell lattice with cut cells (Batty, Bertails
// and Bridson 2007). No matrix is stored: the coefficient of the face between two cells is its weight times scale,
//
//   (A p)(c) = sum over the six faces f of c of  weight(f) scale (p(c) - p(neighbour across f)),
//
// with p 0 in every cell without an equation. The outermost layer of cells has none, so that a face with a positive
// weight towards it, or towards air, fixes the pressure there at 0; a weight of 0 is a wall.

#include <cstdint>

#include "fluids/grids/Grid.h"

namespace orlix {

class BodyCoupling;

struct PressureSystem {
  VecInt3D dims;  // cells, the outermost layer included
  // Open share of each axis's faces, 0 to 1; one more face than cells along the axis.
  GridView<const float> share[3];
  // Where set, the weights, instead of the shares: share / density, or share / theta at a free surface.
  GridView<const double> weight[3];
  double scale = 1;  // dt / (h h density)
  // Where set, 1 for each cell that has an equation; otherwise each inner cell with a positive weight has one.
  const std::uint8_t* equation = nullptr;
  // Where set, bodies that move with the fluid add to each product; not known to Gauss-Seidel sweeps, nor to what
  // conditions the others. dt in s.
  const BodyCoupling* bodies = nullptr;
  double dt = 0;

  std::int64_t row() const { return dims.x; }
  std::int64_t slab() const { return std::int64_t(dims.x) * dims.y; }
  std::int64_t count() const { return CellCount(dims); }
  bool HasInterior() const { return dims.x > 2 && dims.y > 2 && dims.z > 2; }
};

// What a solve came to.
struct PressureOutcome {
  std::int32_t iterations = 0;
  double residual = 0;          // the largest, over the largest of the right side
  double absoluteResidual = 0;  // the largest
  bool converged = false;
  bool tested = true;  // false: the solver looks at no residual, and converged means nothing
};

}  // namespace orlix
