#pragma once
// A body and the pressure one after the other: what a body's inverse mass adds to the faces that it covers, and the
// sums of the pressure over its surface.

#include <functional>

#include "fluids/grids/GridSpace.h"
#include "fluids/pressure/BodyCoupling.h"
#include "fluids/pressure/BodyMotion.h"
#include "fluids/pressure/FreeSurface.h"

namespace orlix {

// Adds m' (s / h) (dt / density), over theta at the surface, to the weights of the faces of the liquid cells [2, n - 2)
// beside the body: s is the face's solid share. A face whose two cells both ask for it takes it once. scale: m' dt /
// density.
void AddBodyWeights(const FreeSurface& surface, const GridSpace& space, const MovingBody& body, double cellSize,
                    double scale, GridView<double> (&weights)[3], WorkerPool& pool);

// sum f and sum f x r over the cells in the body's box, [1, n - 1) of a gas and [2, n - 2) of a liquid, whose centre is
// inside it or not more than a cell outside: f is the difference of the pressure across each low face times its solid
// share, and r leads from the body's centre to the cell's. liquid: without data a gas; otherwise differences between
// air and air are 0.
ForceAndTorque SumBodyPressure(const DivergenceInput& input, const GridSpace& space, const MovingBody& body,
                               const double* pressure, const GridView<const double>& liquid, WorkerPool& pool,
                               const std::function<bool()>& stop = nullptr);

}  // namespace orlix
