#pragma once
// Distances from seeds across a grid, and level sets from them.
//
// The sweeps that these stand for let a node take c = min(a, b) + h of its own value a and a neighbour's b, or where c
// exceeds max(a, b) the root (sqrt(2 h^2 - (a - b)^2) + a + b) / 2. The root is never below a, so what is left is
// min(a, b + h) over the 26 neighbours: the least of seed + h x the chessboard distance, in whatever order nodes are
// visited (Rosenfeld and Pfaltz 1968). Here rows go first, then layers, then the layers' neighbours, on all workers.

#include "fluids/grids/EGrid.h"
#include "fluids/grids/ScratchPool.h"
#include "host/threads/WorkerPool.h"

namespace orlix {

// Every node takes the least of its own value and its neighbours' plus one cell edge, until nothing changes. Seeds are
// negative values in [-h, 0), which none of these can undercut; far values take what reaches them.
void SpreadDistances(WorkerPool& pool, const GridView<double>& values, double h);

// The distances of phi + shift anew, on both sides of its zero, which stays where it is; result may be phi. The ends of
// an edge that crosses it are kept, scaled as if the edge were one cell long where |a| + |b| is above 0.9 h; what
// nothing reaches becomes the largest double of its sign. 0 counts as positive.
void ReinitialiseLevelSet(WorkerPool& pool, ScratchPool& scratch, const GridView<const double>& phi, double shift,
                          double h, const GridView<double>& result);

// Distances from a region of marked cells (mask 1, else 0): its outermost layer of cells holds minus half a cell, what
// lies outside grows by a cell edge a step, and so does with signInterior the inside, downwards. Nodes that nothing
// reaches hold farValue. The border layer's cells are seeds when they are marked, and never count as inside.
void LevelSetFromMask(WorkerPool& pool, const GridView<const std::uint8_t>& mask, ScalarGrid& target, double farValue,
                      bool signInterior);

// The level set of the region where source reaches threshold. The border layer belongs to no region and is only reached
// by distances. source and target have the same dims. False when memory doesn't suffice.
bool DensityToLevelset(WorkerPool& pool, const ScalarGrid& source, ScalarGrid& target, double threshold,
                       double farValue, bool signInterior);

}  // namespace orlix
