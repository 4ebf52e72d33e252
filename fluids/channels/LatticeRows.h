#pragma once
// A grid's values at the cells of another lattice, a row at a time: its own memory where the lattices are the same,
// samples otherwise.

#include <algorithm>
#include <vector>

#include "fluids/channels/iChannel.h"
#include "fluids/grids/CellRow.h"

namespace orlix {

class LatticeRows {
 public:
  // Null, or a grid without storage, gives no rows. Staggered grids are sampled at cell centres.
  void Bind(const ScalarGrid* grid, const GridSpace& lattice);
  void Release() { grid_ = nullptr; }
  explicit operator bool() const { return grid_ != nullptr; }

  // The values at the centres of the row's cells, standing at its cell 0.
  const double* Of(const CellRow& row) {
    if (direct_) return grid_->data + grid_->Index(0, row.j, row.k);
    double* values = sampled_.data() + static_cast<std::size_t>(cells_) * static_cast<std::size_t>(row.threadIndex);
    Sample(row.begin, row.end, row.j, row.k, values);
    return values;
  }

 private:
  void Sample(std::int32_t begin, std::int32_t end, std::int32_t j, std::int32_t k, double* values) const;

  const ScalarGrid* grid_ = nullptr;
  bool direct_ = false;
  std::int32_t cells_ = 0;
  Vec3D scale_, origin_;         // from the lattice's cell centres to the grid's array
  std::vector<double> sampled_;  // a row for each worker, when the lattices differ
};

}  // namespace orlix
