#pragma once

#include "fluids/grids/Grid.h"

namespace orlix {

class WorkerPool;

// The largest magnitude of all values; 0 of an empty grid. NaN counts as nothing.
double LargestMagnitude(const GridView<const double>& values, WorkerPool& pool);

}  // namespace orlix
