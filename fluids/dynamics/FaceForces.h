#pragma once
// From forces in cells to the velocity on faces: rows of cells, as VelocityGridEmitter walks them.

#include <array>

#include "fluids/grids/Grid.h"
#include "host/threads/WorkerPool.h"

namespace orlix {

using CellForces = std::array<GridView<double>, 3>;          // m/s, of cells
using FaceComponents = std::array<GridView<double>, 3>;      // m/s, of faces
using FaceFractions = std::array<GridView<const float>, 3>;  // open share of the faces of an axis

// Sets the row of cells [1, n - 1) to 0 where all three low faces are closed, and at its two ends.
void ClearClosedCells(const FaceFractions& fractions, const CellForces& forces, int j, int k);
// Adds gravity (m/s in this sub-step) to the three low faces of the row's cells that have an open one.
void AddGravity(const FaceFractions& fractions, const FaceComponents& velocity, const Vec3D& gravity, int j, int k);
// Adds to the low faces of the cells [1, n) the open share of the mean force of the two cells beside.
void AddForcesToFaces(const CellForces& forces, const FaceFractions& fractions, const FaceComponents& velocity,
                      WorkerPool& pool);

}  // namespace orlix
