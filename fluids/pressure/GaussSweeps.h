#pragma once
// Gauss-Seidel sweeps over a pressure system in the order of the cells, x fastest, with the bits of a serial run at any
// number of workers:
//
//   p(c) = (w(-x) p(-x) + w(+x) p(+x) + w(-y) p(-y) + w(+y) p(+y) + w(-z) p(-z) + w(+z) p(+z) + rhs(c)) / sum of w
//
// A cell needs the sweep's new values below it in each axis and the last sweep's above it. So eight bands of rows run
// at once in the lanes of a vector, each one layer later than the band below it, and the next sweep one layer later
// than the last (time skewing, Wonnacott 2000); workers take groups of sweeps, each later than the one before.

#include <functional>

#include "fluids/grids/ScratchPool.h"
#include "fluids/pressure/PressureSystem.h"
#include "host/threads/WorkerPool.h"

namespace orlix {

class GaussSweeps {
 public:
  static constexpr int kLanes = 8;

  // Copies what the sweeps need; the pressure starts at 0. Throws std::bad_alloc when memory doesn't suffice.
  GaussSweeps(const PressureSystem& system, const double* rhs, WorkerPool& pool, ScratchPool& scratch);

  // Gives the sweeps that ran: fewer only when stop() gave true before a group of them.
  std::int32_t Run(std::int32_t sweeps, const std::function<bool()>& stop = nullptr);
  // Writes the pressure of the inner cells.
  void Store(double* pressure) const;

  // Cell (i, j, k) stands in lane (j - 1) / band at row (j - 1) % band of the front k + lane; its lanes side by side.
  // Row 0 isn't kept.
  struct Layout {
    VecInt3D dims;
    int band = 0;
    std::int64_t row = 0, front = 0;  // strides

    std::int64_t Row(int r, int f) const { return front * f + row * r; }
    std::int64_t At(int i, int j, int k) const {
      const int lane = (j - 1) / band;
      return Row((j - 1) % band, k + lane) + std::int64_t(i) * kLanes + lane;
    }
  };

 private:
  template <class W>
  void GatherWeights(const GridView<const W> (&faces)[3], ScratchPool::Lease<W> (&lanes)[3]);
  void SweepFront(int front);

  const PressureSystem& system_;
  WorkerPool& pool_;
  ScratchPool& scratch_;
  Layout layout_;
  ScratchPool::Lease<double> pressure_, rhs_, weights_[3];
  ScratchPool::Lease<float> shares_[3], equations_;
};

}  // namespace orlix
