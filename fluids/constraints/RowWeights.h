#pragma once
// What a chain of constraints leaves of an amount, for rows of cells: each worker's buffers, kept between rows.
//
//   weights.Prepare(chain, nx, dt);                       // once a pass, on the stage's thread
//   const double* amounts = weights.Of(row, this);        // on a worker: cell i's amount is amounts[i]

#include <algorithm>
#include <vector>

#include "fluids/constraints/Constraint.h"

namespace orlix {

class RowWeights {
 public:
  // Rows have at most cells cells; amounts start at start.
  void Prepare(std::span<Constraint* const> chain, std::int32_t cells, double start) {
    chain_ = chain;
    cells_ = std::max(cells, 0);
    start_ = start;
    starts_.assign(static_cast<std::size_t>(cells_), start);
    if (chain_.empty()) return;
    const std::size_t all = static_cast<std::size_t>(cells_) * WorkerPool::kMaxWorkers;
    amounts_.resize(all);
    open_.resize(all);
  }
  // What each cell starts from, standing at cell 0.
  const double* Starts() const { return starts_.data(); }

  // The amounts of the cells [row.begin, row.end), standing at cell 0.
  const double* Of(const CellRow& row, const iBase* caller) { return Of(row, caller, starts_.data()); }
  // The same, from a start for each cell, standing at cell 0. A start of 0 isn't asked for.
  const double* Of(const CellRow& row, const iBase* caller, const double* starts) {
    if (chain_.empty()) return starts;
    const ConstraintRow buffers = Buffers(row);
    for (std::int32_t i = row.begin; i < row.end; ++i) {
      buffers.amounts[i] = starts[i];
      buffers.open[i] = starts[i] != 0;
    }
    EvaluateChain(chain_, buffers, caller);
    return buffers.amounts;
  }
  // The same, only for the cells where needed(i) holds; the others get 0.
  template <class Needed>
  const double* Where(const CellRow& row, const iBase* caller, Needed&& needed) {
    if (chain_.empty()) return starts_.data();
    const ConstraintRow buffers = Buffers(row);
    for (std::int32_t i = row.begin; i < row.end; ++i) {
      const bool asked = needed(i);
      buffers.amounts[i] = asked ? start_ : 0;
      buffers.open[i] = asked && start_ != 0;
    }
    EvaluateChain(chain_, buffers, caller);
    return buffers.amounts;
  }

 private:
  ConstraintRow Buffers(const CellRow& row) {
    const std::size_t first = static_cast<std::size_t>(cells_) * static_cast<std::size_t>(row.threadIndex);
    return {row, amounts_.data() + first, open_.data() + first};
  }

  std::span<Constraint* const> chain_;
  std::int32_t cells_ = 0;
  double start_ = 0;
  std::vector<double> starts_, amounts_;
  std::vector<std::uint8_t> open_;
};

}  // namespace orlix
