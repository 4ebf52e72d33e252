#pragma once
// What Grid::FindActiveBox does, for who goes through a grid's layers anyway.

#include <memory>

#include "fluids/grids/EGrid.h"
#include "host/threads/WorkerPool.h"

namespace orlix {

class ActiveBoxScan {
 public:
  // The parameters of Grid::FindActiveBox.
  ActiveBoxScan(Grid<double>& grid, double empty, double max, bool clearBorder);
  // Tidies layers [k0, k1). A worker calls it for its own ones.
  void Tidy(int k0, int k1, int worker);
  // After all layers: the grid has its box.
  void Record();

 private:
  struct alignas(64) Box {  // workers write theirs at each row
    VecInt3D min, max;
  };
  Grid<double>& grid_;
  double empty_, max_;
  bool clearBorder_;
  Box boxes_[WorkerPool::kMaxWorkers];
};

// ResizeKeepingContent and FindActiveBox(empty, max, false) in one pass over the new grid.
bool ResizeAndFindActiveBox(std::unique_ptr<ScalarGrid>& grid, double fillValue, const VecInt3D& arrayDims,
                            const GridSpace& target, double empty, double max, WorkerPool& pool);

}  // namespace orlix
