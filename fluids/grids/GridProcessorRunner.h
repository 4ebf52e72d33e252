#pragma once
// Passes over a grid. A processor is a small object on its caller's stack that holds views of the pass's grids; the
// runner divides the interior, all but the outermost layer, among the workers, and gives the six border boxes to the
// calling thread.

#include "globals/Vec.h"
#include "host/threads/WorkerPool.h"

namespace orlix {

class GridProcessor {
 public:
  virtual ~GridProcessor() = default;
  // On the calling thread, before the pass.
  virtual void Prepare() {}
  // The cells of a box; rangeMax is exclusive.
  virtual void Process(const VecInt3D& rangeMin, const VecInt3D& rangeMax) = 0;
  // The cells of a box on the grid's border.
  virtual void ProcessBorder(const VecInt3D&, const VecInt3D&) {}
};

// Process may run at the same time on disjoint boxes.
class ParallelGridProcessor : public GridProcessor {};
// Process runs once, on the calling thread, with the whole interior.
class SerialGridProcessor : public GridProcessor {};

class GridProcessorRunner {
 public:
  GridProcessorRunner(WorkerPool& pool, const VecInt3D& dims, int axis, bool useCustomRange = false,
                      const VecInt3D& customMin = {}, const VecInt3D& customMax = {});

  // Divides the interior along this axis; nothing happens when it is the present one.
  void SetAxis(int axis);
  // Prepare, the parallel or serial interior, then the border.
  void RunPass(int axis, ParallelGridProcessor& processor);
  void RunPass(int axis, SerialGridProcessor& processor);
  void Run(ParallelGridProcessor& processor);
  void RunBorder(GridProcessor& processor);

  const VecInt3D& interiorMin() const { return interiorMin_; }
  const VecInt3D& interiorMax() const { return interiorMax_; }
  const VecInt3D& rangeMin(int worker) const { return rangeMin_[worker]; }
  const VecInt3D& rangeMax(int worker) const { return rangeMax_[worker]; }
  int count() const { return count_; }

 private:
  WorkerPool& pool_;
  VecInt3D dims_, customMin_, customMax_, interiorMin_, interiorMax_;
  bool useCustomRange_;
  int splitAxis_ = -1;
  int count_;
  VecInt3D rangeMin_[WorkerPool::kMaxWorkers], rangeMax_[WorkerPool::kMaxWorkers];
};

}  // namespace orlix
