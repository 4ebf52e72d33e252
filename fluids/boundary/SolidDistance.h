#pragma once
// Fills the nodes of a solver's signed distance.

#include <cstdint>

#include "fluids/grids/EGrid.h"

namespace orlix {

class LevelSetView;
class WorkerPool;

// The distance to the container's walls: a closed face (ClosedFace bits) stands one cell inside the grid, an open one a
// cell outside. From the nodes' indices, so that a node on a wall holds exactly 0.
void FillWallDistance(const GridView<double>& nodes, double cellSize, std::uint8_t closedFaces, WorkerPool& pool);

// Lowers the nodes in the box of an obstacle's level set to its distances. On a lattice that differs by whole cells the
// obstacle's nodes are taken as they are, otherwise they are sampled.
void LowerByLevelSet(ScalarGrid& nodes, const ScalarGrid& levelSet, WorkerPool& pool);

// Records the box of the nodes at or below 0 as the grid's active box; opened by a cell on the high side when it is a
// single node.
void FindSolidBox(ScalarGrid& nodes, WorkerPool& pool);

}  // namespace orlix
