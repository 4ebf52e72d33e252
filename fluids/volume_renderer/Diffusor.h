#pragma once
// A separable Gaussian blur of grids, for render copies and light maps. Weights are renormalised at the border: a
// constant stays constant and nothing leaks in from outside.

#include "fluids/grids/EGrid.h"
#include "host/threads/WorkerPool.h"

namespace orlix {

// Blurs source into target (they may be one grid) iterations times with weights exp(-d^2 / sigma^2) over a radius of
// trunc(3 sigma) cells. Values are measured from lower and limited to upper. True at once when iterations or sigma is
// 0; false on a break, with what was reached, and when memory doesn't suffice.
bool Blur(WorkerPool& pool, const BaseThread* hostThread, const ScalarGrid& source, ScalarGrid& target, double sigma,
          int iterations, double lower, double upper);

}  // namespace orlix
