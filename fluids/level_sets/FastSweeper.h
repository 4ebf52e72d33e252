#pragma once
// Distances from seeds across a grid, and level sets from densities.

#include "fluids/grids/EGrid.h"
#include "host/threads/WorkerPool.h"

namespace orlix {

// Nodes with a negative value are fixed seeds; every other node takes the least of its own value and its 26 neighbours'
// plus one cell edge, until nothing changes: seed + h x the chessboard distance. Two raster passes reach that
// (Rosenfeld and Pfaltz 1968), with the same bits as any order of sweeps, since each step adds the same h.
void SweepDistances(ScalarGrid& grid);

// The level set of the region where source reaches threshold: the region's outermost layer of cells gets minus half a
// cell, the distance spreads outwards and, with signInterior, inwards as negative values. Nodes that nothing reaches
// hold farValue. The outermost layer of cells belongs to no region and is only reached by distances: fill target with
// farValue before. source and target have the same dims. False when memory doesn't suffice.
bool DensityToLevelset(WorkerPool& pool, const ScalarGrid& source, ScalarGrid& target, double threshold,
                       double farValue, bool signInterior);

}  // namespace orlix
