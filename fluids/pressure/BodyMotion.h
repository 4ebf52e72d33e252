#pragma once
// What a moving solid adds to the right side of the pressure system: the rate at which it fills a cell.

#include <functional>

#include "fluids/grids/GridSpace.h"
#include "fluids/level_sets/LevelSetView.h"
#include "fluids/pressure/PressureAssembly.h"

namespace orlix {

// A body's level set and its motion in a step over the step's duration.
struct MovingBody {
  LevelSetView levelSet;
  Vec3D boxMin, boxMax;   // of the level set, simulation space
  Vec3D centre;           // that it turns about, simulation space
  Vec3D linear, angular;  // m/s, rad/s
};

// Adds -(linear . d) - angular . (r x d) to the cells [1, n - 2) in the body's box whose centre is inside the body or
// less than a cell outside it; d is the change of the solid share across the cell, over its size, and r leads from the
// body's centre to the cell's. stop is asked once a layer.
void AddBodyMotion(const DivergenceInput& input, const GridSpace& space, const MovingBody& body, double* rhs,
                   WorkerPool& pool, const std::function<bool()>& stop = nullptr);

}  // namespace orlix
