#pragma once
// How much liquid a level set holds.

#include "fluids/grids/EGrid.h"
#include "host/threads/WorkerPool.h"

namespace orlix {

// m^3: each cell by the share of it that its value leaves on the inner side, linear over width (a cell's edge, where
// phi is a distance) about the surface, times its open share; without shares all are open. Sums go by layers, in their
// order.
double LiquidVolume(const GridView<const double>& phi, double width, double cellVolume,
                    const GridView<const float>& open, WorkerPool& pool);

}  // namespace orlix
