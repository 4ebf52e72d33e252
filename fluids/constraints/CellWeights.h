#pragma once
// How strongly an operator works at each cell of a grid, from its constraints and falloffs.
//
// All cells are asked before the operator changes one: a constraint that reads the operator's own channel sees the same
// values at any number of workers.

#include <vector>

#include "fluids/constraints/RowWeights.h"

namespace orlix {

// An object of a falloff list.
struct FalloffEntry {
  const BaseObject* object = nullptr;
  const Falloff* falloff = nullptr;
};

class CellWeights {
 public:
  // The amounts of the inner cells for which needed(linear index) holds, from start; 0 for the others. Without
  // constraints and falloffs nothing is asked, and each cell has start.
  template <class Needed>
  void Build(OrlixScene& scene, const iBase* caller, std::span<Constraint* const> chain,
             std::span<const FalloffEntry> falloffs, const ScalarGrid& grid, double start, Needed&& needed) {
    amounts_.Prepare(chain, grid.dims.x, start);
    weights_.GiveBack();
    if (chain.empty() && falloffs.empty()) return;
    weights_ = scene.scratch().Take<double>(grid.dims);
    const VecInt3D n = grid.dims;
    ParallelRange(scene.pool(), 1, n.z - 1, [&](int first, int last, int worker) {
      for (std::int32_t k = first; k < last && !scene.pool().Broken(); ++k) {
        for (std::int32_t j = 1; j < n.y - 1; ++j) {
          BuildRow({1, n.x - 1, j, k, worker, &grid.space}, caller, falloffs, needed);
        }
      }
    });
  }
  // Standing at cell 0 of the row. Of inner cells alone.
  const double* Row(std::int32_t j, std::int32_t k) const {
    return weights_ ? weights_->data + weights_->Index(0, j, k) : amounts_.Starts();
  }
  void Release() { weights_.GiveBack(); }

 private:
  template <class Needed>
  void BuildRow(const CellRow& row, const iBase* caller, std::span<const FalloffEntry> falloffs, Needed& needed) {
    const std::int64_t index = weights_->Index(0, row.j, row.k);
    const double* amounts = amounts_.Where(row, caller, [&](std::int32_t i) { return needed(index + i); });
    double* weights = weights_->data + index;
    if (falloffs.empty()) {
      std::copy(amounts + row.begin, amounts + row.end, weights + row.begin);
      return;
    }
    std::fill(weights + row.begin, weights + row.end, 1.0);
    const Vec3D start = row.Position(row.begin) * row.space->hostPerSim;
    const Vec3D step(row.space->hostPerVoxel.x, 0, 0);
    for (const FalloffEntry& entry : falloffs) {
      entry.falloff->MultiplyRow(*entry.object, start, step,
                                 {weights + row.begin, static_cast<std::size_t>(row.end - row.begin)});
    }
    for (std::int32_t i = row.begin; i < row.end; ++i) weights[i] *= amounts[i];
  }

  RowWeights amounts_;
  ScratchPool::Lease<double> weights_;
};

}  // namespace orlix
