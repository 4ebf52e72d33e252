#pragma once
// The regions of a pressure system that nothing connects to a fixed pressure: in each the pressure is free up to a
// constant, and the system has a solution only when the right side's sum over it is 0. A container closed on all sides
// is one; a pocket between an obstacle and a wall is another.

#include <vector>

#include "fluids/pressure/PressureSystem.h"
#include "host/threads/WorkerPool.h"

namespace orlix {

class ClosedRegions {
 public:
  ClosedRegions(const PressureSystem& system, WorkerPool& pool);

  int count() const { return regions_; }
  // Takes each region's mean off its cells.
  void RemoveMeans(double* rhs, WorkerPool& pool) const;

 private:
  // Cells along x that open faces connect.
  struct Run {
    std::int64_t start;
    std::int32_t length;
    std::int32_t region;
  };

  std::vector<Run> runs_;  // of closed regions only, in the order of the cells
  int regions_ = 0;
};

}  // namespace orlix
