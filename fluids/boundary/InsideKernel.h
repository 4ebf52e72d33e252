#pragma once
// Which samples of a grid lie inside a signed distance on the nodes of its lattice.

#include "fluids/boundary/CellMask.h"
#include "fluids/grids/Grid.h"

namespace orlix {

class WorkerPool;

// Sets the bits of the samples where the trilinear distance, in single precision, isn't above 0. offset is the sample's
// place in its cell, 0 or 0.5 in each axis.
void FindInside(const GridView<const double>& nodes, const Vec3D& offset, const VecInt3D& dims, CellMask& mask,
                WorkerPool& pool);

}  // namespace orlix
