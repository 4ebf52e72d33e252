#pragma once
// A level of the multigrid preconditioner: the pressure system in single precision, on the cells themselves or on
// blocks of 2^l cells an axis.
//
// Coarsening is by aggregation: a block takes the sum of the faces between it and its neighbour, halved, since the
// distance between centres doubles. Residuals add up in a block, corrections are the same for all its cells. With the
// halving, the cheapest of transfers converges as fast as a linear one on whole cells, and it keeps to the geometry of
// cut cells, where a linear one mixes the two sides of a wall (Braess 1995; Shao, Huang and Michels 2022).
//
// Faces towards cells with a fixed pressure of 0 go to a block's `fixed`, which counts in its diagonal only.

#include <vector>

#include "fluids/dynamics/PressureSystem.h"
#include "fluids/grids/ScratchPool.h"
#include "host/threads/WorkerPool.h"

namespace orlix {

struct MultigridLevel {
  VecInt3D cells;  // cells (or blocks) with indices from 1; a layer of zeros around them
  int width = 0;   // cells of a row that kernels visit: cells.x and zeros, a multiple of 16
  std::int64_t row = 0, slab = 0;
  // Pointers stand at index (0, 0, 0).
  float *x = nullptr, *y = nullptr, *z = nullptr;  // coefficients of the low faces
  float* inverse = nullptr;                        // one over the diagonal, 0 without an equation
  float* fixed = nullptr;                          // null on the finest level, where ghost cells stand for it
  float *solution = nullptr, *right = nullptr;

  std::int64_t At(int j, int k) const { return slab * k + row * j; }

  // Leases the arrays, all zero.
  void Allocate(const VecInt3D& count, bool finest, ScratchPool& scratch, WorkerPool& pool);

 private:
  std::vector<ScratchPool::Lease<float>> leases_;
};

// The finest level of a system.
void BuildFinestLevel(const PressureSystem& system, MultigridLevel& level, WorkerPool& pool);
// The level of blocks of a level; index counts from the finest, 0.
void BuildCoarserLevel(const MultigridLevel& fine, int fineIndex, MultigridLevel& coarse, WorkerPool& pool);

inline VecInt3D CoarserCells(const VecInt3D& cells) {
  return {(cells.x + 1) / 2, (cells.y + 1) / 2, (cells.z + 1) / 2};
}

}  // namespace orlix
