#pragma once
// How much liquid a level set holds.

#include "fluids/grids/EGrid.h"
#include "host/threads/WorkerPool.h"

namespace orlix {

// m^3: each cell by the share of it that its distance leaves on the inner side, linear over half a cell on both sides
// of the surface, times its open share; without shares all are open. Sums go by layers, in their order.
double LiquidVolume(const GridView<const double>& phi, double cellSize, const GridView<const float>& open,
                    WorkerPool& pool);

}  // namespace orlix
