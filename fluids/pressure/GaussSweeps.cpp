#include "fluids/pressure/GaussSweeps.h"

#include <algorithm>
#include <cstring>
#include <memory>

#include "fluids/grids/RowPipeline.h"
#include "fluids/pressure/PressureRows.h"
#include "globals/Multiversion.h"

namespace orlix {

namespace {

constexpr int kLanes = GaussSweeps::kLanes;
constexpr int kGroup = 8;  // sweeps that a worker takes through the layers together

// What a sweep works on, in lanes.
template <class W>
struct Lanes {
  double* pressure;
  const double* rhs;
  const W *x, *y, *z;
  const float* equations;  // null without
  double scale;
};

// A band's first row has its lower neighbours in the band below, one lane lower and one front back; its last row has
// its upper neighbours one lane higher and one front on.
struct RowPlace {
  std::int64_t own, yLow, yHigh, front;
  std::int64_t active[kLanes];  // 0: a row or layer without equations
};

// A row of a front. Loops over lanes, so that each instruction set takes them in vectors of its own. FirstRow: lane 0
// has the container's row 0 below it, where the pressure is 0.
template <bool FirstRow, bool Masked, class W>
ORLIX_INLINE void SweepRow(const Lanes<W>& lanes, const RowPlace& place, int nx) {
  const double scale = lanes.scale;
  for (int i = 1; i < nx - 1; ++i) {
    const std::int64_t at = std::int64_t(i) * kLanes, c = place.own + at;
    const W *x = lanes.x + c, *xNext = x + kLanes, *yLow = lanes.y + c, *yHigh = lanes.y + place.yHigh + at;
    const W *zLow = lanes.z + c, *zHigh = zLow + place.front;
    const double *rhs = lanes.rhs + c, *old = lanes.pressure + c;
    const double *pXLow = old - kLanes, *pXHigh = old + kLanes, *pZLow = old - place.front, *pZHigh = old + place.front;
    const double *pYLow = lanes.pressure + place.yLow + at, *pYHigh = lanes.pressure + place.yHigh + at;
    double* swept = lanes.pressure + c;
    ORLIX_INDEPENDENT
    for (int l = 0; l < kLanes; ++l) {
      const double kept = old[l], yNeighbour = pYLow[l];
      const double below = FirstRow && l == 0 ? 0.0 : yNeighbour;
      const double xl = x[l] * scale, xh = xNext[l] * scale, yl = yLow[l] * scale, yh = yHigh[l] * scale;
      const double zl = zLow[l] * scale, zh = zHigh[l] * scale;
      const double total = ((((xl + xh) + yl) + yh) + zl) + zh;
      const double sum =
          (((((xl * pXLow[l] + xh * pXHigh[l]) + yl * below) + yh * pYHigh[l]) + zl * pZLow[l]) + zh * pZHigh[l]) +
          rhs[l];
      bool changes = (place.active[l] != 0) & (total != 0);
      if (Masked) changes = changes & (lanes.equations[c + l] != 0);
      const double relaxed = sum / total;
      swept[l] = changes ? relaxed : kept;
    }
  }
}

template <class W>
ORLIX_INLINE void SweepRows(const GaussSweeps::Layout& layout, const Lanes<W>& lanes, int front) {
  for (int r = 0; r < layout.band; ++r) {
    RowPlace place;
    place.own = layout.Row(r, front);
    place.front = layout.front;
    place.yLow = r > 0 ? layout.Row(r - 1, front) : layout.Row(layout.band - 1, front - 1) - 1;
    place.yHigh = r + 1 < layout.band ? layout.Row(r + 1, front) : layout.Row(0, front + 1) + 1;
    for (int l = 0; l < kLanes; ++l) {
      const int j = 1 + l * layout.band + r, k = front - l;
      place.active[l] = j < layout.dims.y - 1 && k > 0 && k < layout.dims.z - 1;
    }
    if (lanes.equations)
      r == 0 ? SweepRow<true, true>(lanes, place, layout.dims.x) : SweepRow<false, true>(lanes, place, layout.dims.x);
    else
      r == 0 ? SweepRow<true, false>(lanes, place, layout.dims.x) : SweepRow<false, false>(lanes, place, layout.dims.x);
  }
}

ORLIX_MULTIVERSION void SweepShares(const GaussSweeps::Layout& layout, const Lanes<float>& lanes, int front) {
  SweepRows(layout, lanes, front);
}
ORLIX_MULTIVERSION void SweepWeights(const GaussSweeps::Layout& layout, const Lanes<double>& lanes, int front) {
  SweepRows(layout, lanes, front);
}

// Calls f(index of the row's first cell in the lanes, j, k) for the rows from 1 on of an array of these dims.
template <class F>
void ForRows(const GaussSweeps::Layout& layout, const VecInt3D& dims, WorkerPool& pool, F&& f) {
  ParallelRange(pool, 0, dims.z, [&](int from, int to, int) {
    for (int k = from; k < to; ++k) {
      for (int j = 1; j < dims.y; ++j) f(layout.At(0, j, k), j, k);
    }
  });
}

template <class T>
ScratchPool::Lease<T> TakeZeroed(ScratchPool& scratch, std::int64_t count, WorkerPool& pool) {
  if (count > kMaxGridCells) throw std::bad_alloc();
  auto lease = scratch.Take<T>({static_cast<std::int32_t>(count), 1, 1});
  constexpr int kParts = 64;
  ParallelRange(pool, 0, kParts, [&](int from, int to, int) {
    const std::int64_t begin = count * from / kParts, end = count * to / kParts;
    std::memset(static_cast<void*>(lease->data + begin), 0, std::size_t(end - begin) * sizeof(T));
  });
  return lease;
}

}  // namespace

GaussSweeps::GaussSweeps(const PressureSystem& system, const double* rhs, WorkerPool& pool, ScratchPool& scratch)
    : system_(system), pool_(pool), scratch_(scratch) {
  layout_.dims = system.dims;
  layout_.band = (system.dims.y - 1 + kLanes - 1) / kLanes;  // the faces above the last row have a place
  layout_.row = (std::int64_t(system.dims.x) + 1) * kLanes;
  layout_.front = layout_.row * layout_.band;
  const std::int64_t count = layout_.front * (std::int64_t(system.dims.z) + 1 + kLanes) + kLanes;
  pressure_ = TakeZeroed<double>(scratch, count, pool);
  rhs_ = TakeZeroed<double>(scratch, count, pool);
  ForRows(layout_, system.dims, pool, [&](std::int64_t at, int j, int k) {
    const double* from = rhs + system.slab() * k + system.row() * j;
    for (int i = 0; i < system.dims.x; ++i) rhs_->data[at + std::int64_t(i) * kLanes] = from[i];
  });
  if (system.weight[0].data)
    GatherWeights(system.weight, weights_);
  else
    GatherWeights(system.share, shares_);
  if (!system.equation) return;
  equations_ = TakeZeroed<float>(scratch, count, pool);
  ForRows(layout_, system.dims, pool, [&](std::int64_t at, int j, int k) {
    const std::uint8_t* from = system.equation + system.slab() * k + system.row() * j;
    for (int i = 0; i < system.dims.x; ++i) equations_->data[at + std::int64_t(i) * kLanes] = from[i];
  });
}

template <class W>
void GaussSweeps::GatherWeights(const GridView<const W> (&faces)[3], ScratchPool::Lease<W> (&lanes)[3]) {
  for (int axis = 0; axis < 3; ++axis) {
    lanes[axis] = TakeZeroed<W>(scratch_, pressure_->count, pool_);
    // Beyond these no inner cell has a face.
    const VecInt3D dims = Min(faces[axis].dims, system_.dims);
    ForRows(layout_, dims, pool_, [&](std::int64_t at, int j, int k) {
      const W* from = &faces[axis](0, j, k);
      for (int i = 0; i < dims.x; ++i) lanes[axis]->data[at + std::int64_t(i) * kLanes] = from[i];
    });
  }
}

void GaussSweeps::SweepFront(int front) {
  const float* equations = equations_ ? equations_->data : nullptr;
  if (system_.weight[0].data) {
    const Lanes<double> lanes{pressure_->data,   rhs_->data, weights_[0]->data, weights_[1]->data,
                              weights_[2]->data, equations,  system_.scale};
    SweepWeights(layout_, lanes, front);
  } else {
    const Lanes<float> lanes{pressure_->data,  rhs_->data, shares_[0]->data, shares_[1]->data,
                             shares_[2]->data, equations,  system_.scale};
    SweepShares(layout_, lanes, front);
  }
}

std::int32_t GaussSweeps::Run(std::int32_t sweeps, const std::function<bool()>& stop) {
  if (sweeps < 1 || !system_.HasInterior()) return 0;
  const std::int32_t groups = (sweeps - 1) / kGroup + 1;
  const int lastFront = system_.dims.z - 2 + kLanes - 1;
  const auto done = std::make_unique<PipelineProgress[]>(std::size_t(groups));
  std::atomic<std::int32_t> next{0}, ran{0};
  std::atomic<bool> stopped{false};
  pool_.Run(pool_.count(), [&](int) {
    for (std::int32_t group = next.fetch_add(1); group < groups; group = next.fetch_add(1)) {
      if (stopped.load() || (stop && stop())) {
        stopped.store(true);
        return;
      }
      const std::int32_t count = std::min(kGroup, sweeps - group * kGroup);
      for (int step = 1; step < lastFront + count; ++step) {
        // The first sweep of this group may come to a front when the last sweep of the group before has left the next.
        if (group > 0) AwaitProgress(done[group - 1].done, std::min(step + 1, lastFront));
        for (std::int32_t s = 0; s < count; ++s) {
          if (step - s >= 1 && step - s <= lastFront) SweepFront(step - s);
        }
        done[group].done.store(step - (count - 1), std::memory_order_release);
      }
      ran.fetch_add(count);
    }
  });
  return ran.load();
}

void GaussSweeps::Store(double* pressure) const {
  ForRows(layout_, system_.dims, pool_, [&](std::int64_t at, int j, int k) {
    double* to = pressure + system_.slab() * k + system_.row() * j;
    for (int i = 0; i < system_.dims.x; ++i) to[i] = pressure_->data[at + std::int64_t(i) * kLanes];
  });
}

}  // namespace orlix
