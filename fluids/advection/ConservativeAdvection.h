#pragma once
// Semi-Lagrangian advection that keeps the sum (Lentine, Gretarsson and Fedkiw 2011): each cell records from which
// cells it takes and how much; what the cells give is brought to 1, and a cell that gives too little pushes the rest
// forward along the flow. gamma, what each cell takes, is evened out at the end.
//
// Border cells keep their values. A cell inside a solid keeps its own, too.

#include "fluids/advection/AdvectionKernels.h"
#include "fluids/grids/ScratchPool.h"

namespace orlix {

struct ConservativeGrids {
  GridView<const double> inGamma;
  GridView<double> outGamma;
  // Of the source's eight cells that a cell takes from; null when not needed.
  GridView<double> minima, maxima;
};

// source.sampling plays no part: the weights are trilinear. Throws std::bad_alloc when memory doesn't suffice.
void AdvectConservative(const AdvectionField& field, const AdvectionSource& source, const ConservativeGrids& grids,
                        GridView<double> result, ScratchPool& scratch, WorkerPool& pool);

// The MacCormack form: there, back, and half of what that lost added, within the range of the cells that it came from.
// gamma takes the same.
void AdvectConservativeMacCormack(const AdvectionField& field, const AdvectionSource& source,
                                  GridView<const double> previousGamma, GridView<double> gamma, GridView<double> result,
                                  ScratchPool& scratch, WorkerPool& pool);

// Evens out gamma between neighbours, along x, y and z in turn, and moves the values with it; both sums stay.
void DiffuseGamma(int iterations, GridView<double> values, GridView<double> gamma, ScratchPool& scratch,
                  WorkerPool& pool);

}  // namespace orlix
