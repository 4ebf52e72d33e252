#pragma once
// Moves values from one grid to another: cell by cell with an offset, or by interpolation between lattices.

#include "fluids/grids/EGrid.h"
#include "fluids/grids/Interpolation.h"
#include "fluids/grids/WorkSplit.h"

namespace orlix {

// What a target cell receives, v being the source value.
enum class ResampleOperation : int {
  Copy = 0,       // v
  Normalise = 1,  // (v - source.valueOffset) / source.valueScale
  Scale = 2,      // v x target.valueScale + target.valueOffset
  Min = 3,        // the smaller of v and what the cell holds
  Max = 4         // the larger
};

template <class T>
class GridResampler {
 public:
  using GridT = EGrid<T, double>;

  // False for a null grid and for a target without z layers. In direct mode cell (i, j, k) takes the source cell
  // (i, j, k) + offset; otherwise the value at the cell's point in host space, less offset in source cells. Without
  // wholeGrid the target's outermost layer is left out.
  bool Init(const GridT* source, GridT* target, bool direct, Interpolation interpolation, ResampleOperation operation,
            const VecInt3D& offset, bool wholeGrid, int workers);
  // Slice w of the target; stops at a z layer, with false, when hostThread reports a break.
  bool RunSlice(int w, const BaseThread* hostThread) const;
  // All slices on the pool; false after a break.
  bool Run(WorkerPool& pool, const BaseThread* hostThread = nullptr) const;

 private:
  const GridT* source_ = nullptr;
  GridT* target_ = nullptr;
  bool direct_ = false;
  Interpolation interpolation_ = Interpolation::Trilinear;
  ResampleOperation operation_ = ResampleOperation::Copy;
  VecInt3D offset_;
  LayerSlabs slabs_;

  double ValueFor(int i, int j, int k) const;
  void Store(T& cell, double v) const;
};

using EGridResampler = GridResampler<double>;
using EGridfResampler = GridResampler<float>;

extern template class GridResampler<double>;
extern template class GridResampler<float>;

}  // namespace orlix
