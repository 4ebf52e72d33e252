#include "fluids/pressure/MultigridLevel.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "fluids/pressure/PairedRows.h"
#include "globals/Multiversion.h"

namespace orlix {

namespace {

constexpr std::int64_t kLine = 16;  // floats of a cache line
constexpr int kVector = 8;          // and of a vector
constexpr float kLargest = 1e18f;   // a weight beyond it would leave single precision's range
constexpr float kFaceScale = 0.5f;  // a block is twice as far from the next as its cells are

template <class W>
ORLIX_INLINE void NarrowRow(const W* weights, int begin, int end, float* __restrict out) {
  for (int i = begin; i < end; ++i) out[i] = weights[i] < W(kLargest) ? static_cast<float>(weights[i]) : kLargest;
}

// Rows of weights in single precision, before they are divided into pairs.
struct FinestRow {
  std::vector<float> x, y, z, yHigh, zHigh, inverse;
  explicit FinestRow(int nx) {
    for (std::vector<float>* row : {&x, &y, &z, &yHigh, &zHigh, &inverse}) row->assign(std::size_t(nx) + 2, 0.0f);
  }
};

ORLIX_INLINE void SplitTo(const MultigridLevel& level, int j, int k, float* MultigridLevel::Colour::*array,
                          const std::vector<float>& row) {
  const std::int64_t at = level.At(j, k);
  const int odd = MultigridLevel::OddColour(j, k);
  SplitPairs(row.data(), 1.0f, level.pairs, level.colour[odd].*array + at, level.colour[1 - odd].*array + at);
}

template <class W>
ORLIX_INLINE void FinestLayer(const PressureSystem& system, const GridView<const W> (&faces)[3], int k,
                              const MultigridLevel& level) {
  const VecInt3D n = system.dims;
  FinestRow r(n.x);
  for (int j = 1; j < n.y - 1; ++j) {
    const FaceRow<W> row(faces, j, k);
    NarrowRow(row.x, 1, n.x, r.x.data());
    NarrowRow(row.yLow, 1, n.x - 1, r.y.data());
    NarrowRow(row.zLow, 1, n.x - 1, r.z.data());
    NarrowRow(row.yHigh, 1, n.x - 1, r.yHigh.data());
    NarrowRow(row.zHigh, 1, n.x - 1, r.zHigh.data());
    for (int i = 1; i < n.x - 1; ++i) {
      const float diagonal = ((r.x[i] + r.x[i + 1]) + (r.y[i] + r.yHigh[i])) + (r.z[i] + r.zHigh[i]);
      r.inverse[i] = diagonal > 0 ? 1 / diagonal : 0.0f;
    }
    if (system.equation) {
      const std::uint8_t* equation = system.equation + system.slab() * k + system.row() * j;
      for (int i = 1; i < n.x - 1; ++i) r.inverse[i] = equation[i] ? r.inverse[i] : 0.0f;
    }
    SplitTo(level, j, k, &MultigridLevel::Colour::x, r.x);
    SplitTo(level, j, k, &MultigridLevel::Colour::y, r.y);
    SplitTo(level, j, k, &MultigridLevel::Colour::z, r.z);
    SplitTo(level, j, k, &MultigridLevel::Colour::inverse, r.inverse);
    // The last cells' high faces are the low ones of ghost cells. In x, an odd ghost begins a pair of its own.
    if (n.x % 2 != 0) continue;
    level.colour[MultigridLevel::OddColour(j, k)].x[level.At(j, k) + level.pairs + 1] = r.x[std::size_t(n.x) - 1];
  }
}

template <class W>
ORLIX_INLINE void FinestHighFaces(const PressureSystem& system, const GridView<const W> (&faces)[3],
                                  const MultigridLevel& level) {
  const VecInt3D n = system.dims;
  std::vector<float> row(std::size_t(n.x) + 2, 0.0f);
  for (int k = 1; k < n.z - 1; ++k) {
    NarrowRow(&faces[1](0, n.y - 1, k), 1, n.x - 1, row.data());
    SplitTo(level, n.y - 1, k, &MultigridLevel::Colour::y, row);
  }
  for (int j = 1; j < n.y - 1; ++j) {
    NarrowRow(&faces[2](0, j, n.z - 1), 1, n.x - 1, row.data());
    SplitTo(level, j, n.z - 1, &MultigridLevel::Colour::z, row);
  }
}

ORLIX_MULTIVERSION void FinestLayerOf(const PressureSystem& system, int k, const MultigridLevel& level) {
  if (system.weight[0].data)
    FinestLayer(system, system.weight, k, level);
  else
    FinestLayer(system, system.share, k, level);
}

ORLIX_INLINE float Has(float inverse) { return inverse > 0 ? 1.0f : 0.0f; }

// Sums of the faces of a block row's cells, by pair.
struct BlockRowSums {
  std::vector<float> fixed, x, y, z;
  explicit BlockRowSums(std::size_t size) : fixed(size), x(size), y(size), z(size) {}
  void Clear() {
    for (std::vector<float>* sums : {&fixed, &x, &y, &z}) std::fill(sums->begin(), sums->end(), 0.0f);
  }
};

// Adds the cells of a colour of row j, k. lowX: they are the odd ones, whose low faces are their block's; lowY and
// lowZ: so are the row's low faces.
ORLIX_MULTIVERSION void AddCellRow(const MultigridLevel& level, int j, int k, int colour, bool lowY, bool lowZ,
                                   float* __restrict fixed, float* __restrict sumX, float* __restrict sumY,
                                   float* __restrict sumZ) {
  const std::int64_t at = level.At(j, k), row = level.row, slab = level.slab;
  const MultigridLevel::Colour &own = level.colour[colour], &other = level.colour[1 - colour];
  const bool lowX = MultigridLevel::OddColour(j, k) == colour;
  const std::int64_t before = lowX ? at - 1 : at;
  const float *inverse = own.inverse + at, *x = own.x + at, *y = own.y + at, *z = own.z + at;
  const float *xNext = other.x + before + 1, *yNext = other.y + at + row, *zNext = other.z + at + slab;
  const float *inverseXl = other.inverse + before, *inverseXh = inverseXl + 1;
  const float *inverseYl = other.inverse + at - row, *inverseYh = other.inverse + at + row;
  const float *inverseZl = other.inverse + at - slab, *inverseZh = other.inverse + at + slab;
  const float takesX = lowX ? 1.0f : 0.0f, takesY = lowY ? 1.0f : 0.0f, takesZ = lowZ ? 1.0f : 0.0f;
  const int width = level.width;
  ORLIX_INDEPENDENT
  for (int p = 1; p <= width; ++p) {
    const float has = Has(inverse[p]);
    const float hasXl = Has(inverseXl[p]), hasYl = Has(inverseYl[p]), hasZl = Has(inverseZl[p]);
    const float xl = has * x[p], yl = has * y[p], zl = has * z[p];
    fixed[p] += (xl * (1 - hasXl) + has * xNext[p] * (1 - Has(inverseXh[p]))) +
                (yl * (1 - hasYl) + has * yNext[p] * (1 - Has(inverseYh[p]))) +
                (zl * (1 - hasZl) + has * zNext[p] * (1 - Has(inverseZh[p])));
    sumX[p] += xl * hasXl * takesX;
    sumY[p] += yl * hasYl * takesY;
    sumZ[p] += zl * hasZl * takesZ;
  }
  if (!own.fixed) return;
  for (int p = 1; p <= width; ++p) fixed[p] += Has(own.inverse[at + p]) * own.fixed[at + p];
}

ORLIX_MULTIVERSION void InvertDiagonalLayer(const MultigridLevel& level, int k) {
  const std::int64_t row = level.row, slab = level.slab;
  const int width = level.width;
  for (int j = 1; j <= level.cells.y; ++j) {
    for (int c = 0; c < 2; ++c) {
      const std::int64_t at = level.At(j, k);
      const MultigridLevel::Colour &own = level.colour[c], &other = level.colour[1 - c];
      const float* xHigh = other.x + (MultigridLevel::OddColour(j, k) == c ? at : at + 1);
      float* __restrict inverse = own.inverse + at;
      for (int p = 1; p <= width; ++p) {
        const float diagonal = (((own.x[at + p] + xHigh[p]) + (own.y[at + p] + other.y[at + row + p])) +
                                (own.z[at + p] + other.z[at + slab + p])) +
                               own.fixed[at + p];
        inverse[p] = diagonal > 0 ? 1 / diagonal : 0.0f;
      }
    }
  }
}

void BuildBlockRow(const MultigridLevel& fine, const MultigridLevel& coarse, int j, int k, float fixedScale,
                   BlockRowSums& sums) {
  sums.Clear();
  for (int kk = 2 * k - 1; kk <= std::min(2 * k, fine.cells.z); ++kk) {
    for (int jj = 2 * j - 1; jj <= std::min(2 * j, fine.cells.y); ++jj) {
      for (int c = 0; c < 2; ++c) {
        AddCellRow(fine, jj, kk, c, jj == 2 * j - 1, kk == 2 * k - 1, sums.fixed.data(), sums.x.data(), sums.y.data(),
                   sums.z.data());
      }
    }
  }
  const std::int64_t at = coarse.At(j, k);
  const int oddColour = MultigridLevel::OddColour(j, k);
  const MultigridLevel::Colour &odd = coarse.colour[oddColour], &even = coarse.colour[1 - oddColour];
  SplitPairs(sums.x.data(), kFaceScale, coarse.pairs, odd.x + at, even.x + at);
  SplitPairs(sums.y.data(), kFaceScale, coarse.pairs, odd.y + at, even.y + at);
  SplitPairs(sums.z.data(), kFaceScale, coarse.pairs, odd.z + at, even.z + at);
  SplitPairs(sums.fixed.data(), fixedScale, coarse.pairs, odd.fixed + at, even.fixed + at);
}

}  // namespace

std::int64_t MultigridLevel::LayOut(const VecInt3D& count) {
  cells = count;
  pairs = (count.x + 1) / 2;
  width = (pairs + kVector - 1) / kVector * kVector;
  // Odd multiples of a line: neighbours in y and z fall into different sets of the caches. One row's ghost pair at the
  // end and the next one's at the start share a line.
  row = (((pairs + kLine - 1) / kLine + 1) | 1) * kLine;
  slab = row * (count.y + 2) + kLine;
  return slab * (count.z + 2) + 2 * kLine;
}

double MultigridLevel::Bytes(const VecInt3D& count, bool finest) {
  MultigridLevel level;
  return double(level.LayOut(count)) * sizeof(float) * (finest ? kArrays - 2 : kArrays);
}

void MultigridLevel::Allocate(const VecInt3D& count, bool finest, ScratchPool& scratch, WorkerPool& pool) {
  const std::int64_t total = LayOut(count);
  const std::int64_t first = kLine - 1;  // pair 1 of a row begins a line
  if (total > kMaxGridCells) throw std::bad_alloc();
  for (Colour& c : colour) {
    for (float** array : {&c.x, &c.y, &c.z, &c.inverse, &c.solution, &c.right, &c.fixed}) {
      if (finest && array == &c.fixed) continue;
      leases_.push_back(scratch.Take<float>({static_cast<std::int32_t>(total), 1, 1}));
      *array = leases_.back()->data + first;
    }
  }
  ParallelRange(pool, 0, count.z + 2, [&](int from, int to, int) {
    for (auto& lease : leases_) {
      const std::int64_t begin = slab * from, end = to == count.z + 2 ? total : slab * to;
      std::memset(lease->data + begin, 0, std::size_t(end - begin) * sizeof(float));
    }
  });
}

void BuildFinestLevel(const PressureSystem& system, MultigridLevel& level, WorkerPool& pool) {
  ParallelRange(pool, 1, system.dims.z - 1, [&](int from, int to, int) {
    for (int k = from; k < to; ++k) FinestLayerOf(system, k, level);
  });
  WithWeights(system, [&](const auto& faces) { FinestHighFaces(system, faces, level); });
}

void BuildCoarserLevel(const MultigridLevel& fine, int fineIndex, MultigridLevel& coarse, WorkerPool& pool) {
  // A pressure of 0 stands one fine cell beyond a flush wall on every level; the centre of a block moves away from it.
  const double toWall = std::ldexp(0.5, fineIndex);
  const float fixedScale = static_cast<float>((toWall + 0.5) / (2 * toWall + 0.5));
  ParallelRange(pool, 1, coarse.cells.z + 1, [&](int from, int to, int) {
    BlockRowSums sums(std::size_t(fine.width) + 2);
    for (int k = from; k < to; ++k) {
      for (int j = 1; j <= coarse.cells.y; ++j) BuildBlockRow(fine, coarse, j, k, fixedScale, sums);
    }
  });
  ParallelRange(pool, 1, coarse.cells.z + 1, [&](int from, int to, int) {
    for (int k = from; k < to; ++k) InvertDiagonalLayer(coarse, k);
  });
}

}  // namespace orlix
