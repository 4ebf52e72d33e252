#include "fluids/operators/OperatorWeights.h"

namespace orlix {

void OperatorWeights::Prepare(OrlixScene& scene, const ChannelOperator& op, const ScalarGrid& grid) {
  clones_.clear(), chain_.clear();
  for (const Constraint* constraint : RetrieveConstraints(scene, op.handler)) {
    clones_.push_back(constraint->Clone());
    chain_.push_back(clones_.back().get());
    chain_.back()->Prepare(&op);
  }
  weights_.Build(scene, &op, chain_, {}, grid, 1.0, [](std::int64_t) { return true; });
  amounts_.resize(static_cast<std::size_t>(grid.dims.x) * WorkerPool::kMaxWorkers);
}

const double* OperatorWeights::Of(const ChannelRow& row) {
  if (chain_.empty()) return row.weights;
  const std::size_t cells = amounts_.size() / WorkerPool::kMaxWorkers;
  double* amounts = amounts_.data() + cells * static_cast<std::size_t>(row.threadIndex);
  const double* own = weights_.Row(row.j, row.k);
  for (std::int32_t i = row.begin; i < row.end; ++i) amounts[i] = row.weights[i] * own[i];
  return amounts;
}

void OperatorWeights::Finish() {
  for (Constraint* clone : chain_) clone->Finish();
  chain_.clear(), clones_.clear();
  weights_.Release();
}

}  // namespace orlix
