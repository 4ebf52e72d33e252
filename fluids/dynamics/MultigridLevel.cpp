#include "fluids/dynamics/MultigridLevel.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "fluids/dynamics/PressureRows.h"
#include "globals/Multiversion.h"

namespace orlix {

namespace {

constexpr std::int64_t kLine = 16;  // floats of a cache line
constexpr float kLargest = 1e18f;   // a weight beyond it would leave single precision's range
constexpr float kFaceScale = 0.5f;  // a block is twice as far from the next as its cells are

template <class W>
ORLIX_INLINE float Narrow(W weight) {
  return weight < W(kLargest) ? static_cast<float>(weight) : kLargest;
}

template <class W>
ORLIX_INLINE void NarrowRow(const W* weights, int begin, int end, float* out) {
  for (int i = begin; i < end; ++i) out[i] = Narrow(weights[i]);
}

template <class W>
ORLIX_INLINE void FinestLayer(const PressureSystem& system, const GridView<const W> (&faces)[3], int k,
                              const MultigridLevel& level) {
  const VecInt3D n = system.dims;
  for (int j = 1; j < n.y - 1; ++j) {
    const FaceRow<W> row(faces, j, k);
    const std::int64_t at = level.At(j, k);
    float *x = level.x + at, *y = level.y + at, *z = level.z + at, *inverse = level.inverse + at;
    NarrowRow(row.x, 1, n.x, x);
    NarrowRow(row.yLow, 1, n.x - 1, y);
    NarrowRow(row.zLow, 1, n.x - 1, z);
    if (j == n.y - 2) NarrowRow(row.yHigh, 1, n.x - 1, y + level.row);
    if (k == n.z - 2) NarrowRow(row.zHigh, 1, n.x - 1, z + level.slab);
    for (int i = 1; i < n.x - 1; ++i) {
      const float diagonal = ((x[i] + x[i + 1]) + (y[i] + Narrow(row.yHigh[i]))) + (z[i] + Narrow(row.zHigh[i]));
      inverse[i] = diagonal > 0 ? 1 / diagonal : 0.0f;
    }
    if (!system.equation) continue;
    const std::uint8_t* equation = system.equation + system.slab() * k + system.row() * j;
    for (int i = 1; i < n.x - 1; ++i) inverse[i] = equation[i] ? inverse[i] : 0.0f;
  }
}

ORLIX_MULTIVERSION void FinestLayerOf(const PressureSystem& system, int k, const MultigridLevel& level) {
  if (system.weight[0].data)
    FinestLayer(system, system.weight, k, level);
  else
    FinestLayer(system, system.share, k, level);
}

ORLIX_INLINE float Has(float inverse) { return inverse > 0 ? 1.0f : 0.0f; }

// Sums of the faces of a block row's cells, by the cells' index along x.
struct BlockRowSums {
  std::vector<float> fixed, x, y, z;
  explicit BlockRowSums(std::size_t size) : fixed(size), x(size), y(size), z(size) {}
  void Clear() {
    for (std::vector<float>* sums : {&fixed, &x, &y, &z}) std::fill(sums->begin(), sums->end(), 0.0f);
  }
};

ORLIX_MULTIVERSION void AddCellRow(const MultigridLevel& fine, int j, int k, bool lowY, bool lowZ, float* fixed,
                                   float* sumX, float* sumY, float* sumZ) {
  const std::int64_t at = fine.At(j, k), row = fine.row, slab = fine.slab;
  const float *x = fine.x + at, *y = fine.y + at, *z = fine.z + at, *inverse = fine.inverse + at;
  const int width = fine.width;
  for (int i = 1; i <= width; ++i) {
    const float own = Has(inverse[i]);
    const float xl = own * x[i], xh = own * x[i + 1], yl = own * y[i], yh = own * y[i + row], zl = own * z[i],
                zh = own * z[i + slab];
    const float hasXl = Has(inverse[i - 1]), hasYl = Has(inverse[i - row]), hasZl = Has(inverse[i - slab]);
    fixed[i] += (xl * (1 - hasXl) + xh * (1 - Has(inverse[i + 1]))) +
                (yl * (1 - hasYl) + yh * (1 - Has(inverse[i + row]))) +
                (zl * (1 - hasZl) + zh * (1 - Has(inverse[i + slab])));
    sumX[i] += xl * hasXl;
    if (lowY) sumY[i] += yl * hasYl;
    if (lowZ) sumZ[i] += zl * hasZl;
  }
  if (!fine.fixed) return;
  for (int i = 1; i <= width; ++i) fixed[i] += Has(inverse[i]) * fine.fixed[at + i];
}

ORLIX_MULTIVERSION void InvertDiagonalLayer(const MultigridLevel& level, int k) {
  for (int j = 1; j <= level.cells.y; ++j) {
    const std::int64_t at = level.At(j, k);
    const float *x = level.x + at, *y = level.y + at, *z = level.z + at;
    for (int i = 1; i <= level.width; ++i) {
      const float diagonal =
          (((x[i] + x[i + 1]) + (y[i] + y[i + level.row])) + (z[i] + z[i + level.slab])) + level.fixed[at + i];
      level.inverse[at + i] = diagonal > 0 ? 1 / diagonal : 0.0f;
    }
  }
}

}  // namespace

void MultigridLevel::Allocate(const VecInt3D& count, bool finest, ScratchPool& scratch, WorkerPool& pool) {
  cells = count;
  width = static_cast<int>((count.x + kLine - 1) / kLine * kLine);
  // Odd multiples of a line: neighbours in y and z fall into different sets of the caches.
  row = (((width + kLine + 1) / kLine) | 1) * kLine;
  slab = row * (count.y + 2) + kLine;
  const std::int64_t total = slab * (count.z + 2) + kLine;
  const std::int64_t first = kLine - 1;  // index 1 of a row begins a line
  if (total > kMaxGridCells) throw std::bad_alloc();
  for (float** array : {&x, &y, &z, &inverse, &solution, &right, &fixed}) {
    if (finest && array == &fixed) continue;
    leases_.push_back(scratch.Take<float>({static_cast<std::int32_t>(total), 1, 1}));
    *array = leases_.back()->data + first;
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
}

void BuildCoarserLevel(const MultigridLevel& fine, int fineIndex, MultigridLevel& coarse, WorkerPool& pool) {
  // A pressure of 0 stands one fine cell beyond a flush wall on every level; the centre of a block moves away from it.
  const double toWall = std::ldexp(0.5, fineIndex);
  const float fixedScale = static_cast<float>((toWall + 0.5) / (2 * toWall + 0.5));
  ParallelRange(pool, 1, coarse.cells.z + 1, [&](int from, int to, int) {
    BlockRowSums sums(std::size_t(fine.row));
    for (int k = from; k < to; ++k) {
      for (int j = 1; j <= coarse.cells.y; ++j) {
        sums.Clear();
        for (int kk = 2 * k - 1; kk <= std::min(2 * k, fine.cells.z); ++kk) {
          for (int jj = 2 * j - 1; jj <= std::min(2 * j, fine.cells.y); ++jj) {
            AddCellRow(fine, jj, kk, jj == 2 * j - 1, kk == 2 * k - 1, sums.fixed.data(), sums.x.data(), sums.y.data(),
                       sums.z.data());
          }
        }
        const std::int64_t at = coarse.At(j, k);
        for (int i = 1; i <= coarse.cells.x; ++i) {
          coarse.x[at + i] = kFaceScale * sums.x[2 * i - 1];
          coarse.y[at + i] = kFaceScale * (sums.y[2 * i - 1] + sums.y[2 * i]);
          coarse.z[at + i] = kFaceScale * (sums.z[2 * i - 1] + sums.z[2 * i]);
          coarse.fixed[at + i] = fixedScale * (sums.fixed[2 * i - 1] + sums.fixed[2 * i]);
        }
      }
    }
  });
  ParallelRange(pool, 1, coarse.cells.z + 1, [&](int from, int to, int) {
    for (int k = from; k < to; ++k) InvertDiagonalLayer(coarse, k);
  });
}

}  // namespace orlix
