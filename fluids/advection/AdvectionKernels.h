#pragma once
// Moves a grid through a velocity: plain semi-Lagrangian (Stam 1999) and MacCormack (Selle, Fedkiw, Kim, Liu and
// Rossignac 2008). Free functions over views; nothing virtual per cell, rows of x in vectors, slabs of z over workers,
// the same bits at any number of them.
//
//   scheme           traces a cell   kept a cell   order in space and time
//   semi-Lagrangian  1               -             1
//   MacCormack       2               12 bytes      2, limited to the range of the eight source cells
//
// All visit the interior [1, n - 1) of the array. A cell whose sample lies inside a solid receives nothing.

#include <algorithm>
#include <cstdint>
#include <span>
#include <vector>

#include "fluids/advection/AdvectionField.h"
#include "host/threads/WorkerPool.h"

namespace orlix {

// How the advected quantity is sampled at the traced point. Any other number is trilinear.
enum class AdvectionSampling : int { Trilinear = 0, QuadraticBSpline = 1, MonotoneCubic = 2 };

// Cells [first, last) of a row along x.
struct RowSpan {
  std::int32_t first, last;
  bool IsEmpty() const { return first >= last; }
  // Becomes the hull of both.
  void Include(const RowSpan& other) {
    if (other.IsEmpty()) return;
    *this = IsEmpty() ? other : RowSpan{std::min(first, other.first), std::max(last, other.last)};
  }
};
// One a row of a grid: (j, k) stands at [k * ny + j].
using RowSpans = std::vector<RowSpan>;

struct AdvectionSource {
  GridView<const double> values;
  Vec3D offset;                           // of the samples in their cells
  const CellMask* insideSolid = nullptr;  // of the samples; null or empty: none
  AdvectionSampling sampling = AdvectionSampling::Trilinear;
  // All values outside are 0: cells that only those can reach aren't traced. Without rows, any may be something.
  RowSpans content;
};

// From the first to the last value of each row that isn't 0.
RowSpans FindContent(const GridView<const double>& grid, WorkerPool& pool);

// What MacCormack needs beside source and result: arrays of the source's dims. Their content doesn't matter.
struct MacCormackScratch {
  GridView<double> forward;
  GridView<std::int32_t> traced;  // of the first of several quantities that share a trace; the others need none
};

// MacCormack's error term. Along a flow that shears, what is carried becomes as thin as a cell. Semi-Lagrangian steps
// would even that out; the error term, which knows nothing of waves shorter than two cells, gives all of it back, so
// that fringes a cell wide lie along the flow. Smoothed by 1 2 1 along each axis it leaves these out and keeps what is
// larger.
struct MacCormackCorrection {
  float strength = 1;  // weight: 1 is the scheme, 0 the plain one
  bool smoothed = false;
};

// A quantity on its way. Those whose sources have one offset, size, mask and sampling are traced once; of those that
// differ, such as a velocity's components, the rows of a lattice are gone through together.
struct Advected {
  AdvectionSource source;
  GridView<double> result;  // not the source's memory
  MacCormackCorrection correction = {};
  MacCormackScratch scratch = {};
  bool SharesTraceWith(const Advected& other) const;
};

// Results keep what they held in cells inside solids and on the border. Needs no correction and no scratch.
void AdvectSemiLagrangian(const AdvectionField& field, std::span<const Advected> quantities, WorkerPool& pool);

// field.dt is the time step. A cell inside a solid ends as half the strength times its source; the border keeps what it
// held.
void AdvectMacCormack(const AdvectionField& field, std::span<const Advected> quantities, WorkerPool& pool);

}  // namespace orlix
