#include "fluids/grids/GridProcessorRunner.h"

namespace orlix {

GridProcessorRunner::GridProcessorRunner(WorkerPool& pool, const VecInt3D& dims, int axis, bool useCustomRange,
                                         const VecInt3D& customMin, const VecInt3D& customMax)
    : pool_(pool),
      dims_(dims),
      customMin_(Max(customMin, VecInt3D(1, 1, 1))),
      customMax_(Min(customMax, dims - VecInt3D(1, 1, 1))),
      useCustomRange_(useCustomRange),
      count_(pool.count()) {
  SetAxis(axis);
}

void GridProcessorRunner::SetAxis(int axis) {
  if (axis == splitAxis_) return;
  splitAxis_ = axis;
  interiorMin_ = useCustomRange_ ? customMin_ : VecInt3D(1, 1, 1);
  interiorMax_ = useCustomRange_ ? customMax_ : dims_ - VecInt3D(1, 1, 1);
  const std::int64_t extent = interiorMax_[axis] - interiorMin_[axis];
  const bool empty = extent <= 0;
  for (int w = 0; w < count_; ++w) {
    rangeMin_[w] = interiorMin_;
    rangeMax_[w] = interiorMax_;
    if (empty || (count_ > extent && w >= extent)) {
      rangeMin_[w] = rangeMax_[w] = {};
    } else if (count_ > extent) {
      rangeMin_[w][axis] = interiorMin_[axis] + w;
      rangeMax_[w][axis] = interiorMin_[axis] + w + 1;
    } else {
      if (w > 0) rangeMin_[w][axis] = rangeMax_[w - 1][axis];
      if (w < count_ - 1) rangeMax_[w][axis] = static_cast<std::int32_t>(extent * (w + 1) / count_ + 1);
    }
  }
}

void GridProcessorRunner::RunPass(int axis, ParallelGridProcessor& processor) {
  SetAxis(axis);
  processor.Prepare();
  Run(processor);
  RunBorder(processor);
}

void GridProcessorRunner::RunPass(int axis, SerialGridProcessor& processor) {
  SetAxis(axis);
  processor.Prepare();
  processor.Process(interiorMin_, interiorMax_);
  RunBorder(processor);
}

void GridProcessorRunner::Run(ParallelGridProcessor& processor) {
  pool_.Run(count_, [&](int worker) {
    const VecInt3D &a = rangeMin_[worker], &b = rangeMax_[worker];
    if (a.x < b.x && a.y < b.y && a.z < b.z) processor.Process(a, b);
  });
}

void GridProcessorRunner::RunBorder(GridProcessor& processor) {
  const VecInt3D a = Min(interiorMin_, dims_), b = Max(interiorMax_, a), n = dims_;
  const auto border = [&](const VecInt3D& min, const VecInt3D& max) {
    if (min.x < max.x && min.y < max.y && min.z < max.z) processor.ProcessBorder(min, max);
  };
  border({0, 0, 0}, {n.x, n.y, a.z});
  border({0, 0, b.z}, {n.x, n.y, n.z});
  border({0, 0, a.z}, {n.x, a.y, b.z});
  border({0, b.y, a.z}, {n.x, n.y, b.z});
  border({0, a.y, a.z}, {a.x, b.y, b.z});
  border({b.x, a.y, a.z}, {n.x, b.y, b.z});
}

}  // namespace orlix
