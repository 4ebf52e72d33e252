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
//
// The colours of a checkerboard are kept apart, so that a sweep over one of them runs in whole vectors. The cells
// 2 p - 1 and 2 p of a row are pair p; one has colour 0, the other colour 1, and a pair is what a coarser level's cell
// takes of the row. A cell's neighbours all have the other colour: in y and z they stand at the same place of its
// arrays, in x beside it.

#include <vector>

#include "fluids/grids/ScratchPool.h"
#include "fluids/pressure/PressureSystem.h"
#include "host/threads/WorkerPool.h"

namespace orlix {

struct MultigridLevel {
  // Of the cells of one colour, by pair; pointers stand at pair 0 of row (0, 0).
  struct Colour {
    float *x = nullptr, *y = nullptr, *z = nullptr;  // coefficients of the low faces
    float* inverse = nullptr;                        // one over the diagonal, 0 without an equation
    float* fixed = nullptr;                          // null on the finest level, where ghost cells stand for it
    float *solution = nullptr, *right = nullptr;
  };

  VecInt3D cells;  // cells (or blocks) with indices from 1; zeros around them
  int pairs = 0;   // of a row
  int width = 0;   // pairs that kernels visit, the last of them zeros: whole vectors
  std::int64_t row = 0, slab = 0;
  Colour colour[2];

  std::int64_t At(int j, int k) const { return slab * k + row * j; }
  // The colour of the odd cells of a row; colour 0 has an even sum of indices.
  static int OddColour(int j, int k) { return (j + k + 1) & 1; }

  // Of both colours; the finest level has no fixed ones.
  static constexpr int kArrays = 14;
  static double Bytes(const VecInt3D& count, bool finest);
  // Leases the arrays, all zero.
  void Allocate(const VecInt3D& count, bool finest, ScratchPool& scratch, WorkerPool& pool);

 private:
  // Sets the sizes; gives the elements of one array.
  std::int64_t LayOut(const VecInt3D& count);

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
