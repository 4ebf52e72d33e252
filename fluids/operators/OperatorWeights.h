#pragma once
// How strongly a channel operator works at the cells of a row: what its emitter's weights and its own constraints
// leave.

#include "fluids/constraints/CellWeights.h"
#include "fluids/emitters/ChannelOperator.h"

namespace orlix {

class OperatorWeights {
 public:
  // On the stage's thread, before the operator changes a cell of the grid. Asks clones of the operator's constraints,
  // so that their Prepare doesn't meet that of other callers.
  void Prepare(OrlixScene& scene, const ChannelOperator& op, const ScalarGrid& grid);
  // Standing at cell 0. Of inner cells alone.
  const double* Of(const ChannelRow& row);
  void Finish();

 private:
  std::vector<std::unique_ptr<Constraint>> clones_;
  std::vector<Constraint*> chain_;
  CellWeights weights_;          // of the constraints, from 1
  std::vector<double> amounts_;  // a row for each worker
};

}  // namespace orlix
