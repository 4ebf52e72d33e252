#include "fluids/level_sets/FastSweeper.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>
#include <new>
#include <type_traits>
#include <vector>

#include "fluids/grids/RowPipeline.h"
#include "fluids/level_sets/BitLists.h"
#include "fluids/level_sets/TriangleLanes.h"
#include "globals/Multiversion.h"

namespace orlix {

namespace {

constexpr int kRowsAtOnce = 8;     // rows whose chains of dependent steps run beside one another
constexpr int kLayersAtOnce = 16;  // layers that workers pass without waiting for all others
constexpr double kFar = std::numeric_limits<double>::max();

// v[i] = min(v[i], v[i - 1] + h) along rows that are stride apart; with step -1 the other way.
template <int kRows>
void TakeAlongRows(double* rows, std::int64_t stride, int n, int step, double h) {
  double last[kRows];
  for (double& value : last) value = kFar;
  for (int i = step > 0 ? 0 : n - 1; i >= 0 && i < n; i += step) {
    for (int r = 0; r < kRows; ++r) {
      double& v = rows[r * stride + i];
      last[r] = last[r] + h < v ? last[r] + h : v;
      v = last[r];
    }
  }
}

// v[i] = min(v[i], the least of the rows and of their neighbours in x, + h).
ORLIX_MULTIVERSION void TakeFromRows(double* __restrict v, const double* below, const double* beside,
                                     const double* above, int n, double h) {
  const auto least = [&](int i) {
    const double first = below[i] < beside[i] ? below[i] : beside[i];
    return above[i] < first ? above[i] : first;
  };
  const auto take = [&](int i, double value) { v[i] = value + h < v[i] ? value + h : v[i]; };
  for (int i = 1; i < n - 1; ++i) {
    const double low = least(i - 1), middle = least(i), high = least(i + 1);
    const double ends = low < high ? low : high;
    take(i, ends < middle ? ends : middle);
  }
  take(0, n > 1 && least(1) < least(0) ? least(1) : least(0));
  if (n > 1) take(n - 1, least(n - 2) < least(n - 1) ? least(n - 2) : least(n - 1));
}

ORLIX_INLINE void Transpose(Lanes (&r)[kLanes]) {
  const Lanes a = __builtin_shufflevector(r[0], r[1], 0, 4, 2, 6), b = __builtin_shufflevector(r[0], r[1], 1, 5, 3, 7);
  const Lanes c = __builtin_shufflevector(r[2], r[3], 0, 4, 2, 6), d = __builtin_shufflevector(r[2], r[3], 1, 5, 3, 7);
  r[0] = __builtin_shufflevector(a, c, 0, 1, 4, 5), r[1] = __builtin_shufflevector(b, d, 0, 1, 4, 5);
  r[2] = __builtin_shufflevector(a, c, 2, 3, 6, 7), r[3] = __builtin_shufflevector(b, d, 2, 3, 6, 7);
}

// TakeAlongOwnSide for kRowsAtOnce rows of at least kLanes nodes: a lane for each row.
ORLIX_MULTIVERSION void TakeAlongRowLanes(double* rows, std::int64_t stride, int n, int step, double h) {
  using Words = std::int64_t __attribute__((vector_size(sizeof(Lanes))));
  constexpr int kGroups = kRowsAtOnce / kLanes;
  const Words sign = Words{} + std::numeric_limits<std::int64_t>::min();
  const Lanes far = Lanes{} + kFar;
  Lanes last[kGroups] = {};
  Words lastSign[kGroups] = {};
  const int blocks = (n + kLanes - 1) / kLanes;
  for (int block = 0; block < blocks; ++block) {
    // The last block is moved back into the row: its first node was visited already, as if it were the row's first.
    const int begin = step > 0 ? std::min(block * kLanes, n - kLanes) : std::max(n - kLanes - block * kLanes, 0);
    const bool first = block == 0 || (block == blocks - 1 && n % kLanes != 0);
    // All rows are read before any is written: rows that lie pages apart would wait for each other's writes.
    Lanes node[kGroups][kLanes];
    for (int r = 0; r < kRowsAtOnce; ++r) std::memcpy(node[0] + r, rows + r * stride + begin, sizeof(Lanes));
    for (Lanes(&group)[kLanes] : node) Transpose(group);
    for (int c = 0; c < kLanes; ++c) {
      for (int g = 0; g < kGroups; ++g) {
        Lanes& v = node[g][step > 0 ? c : kLanes - 1 - c];
        const Words bits = __builtin_bit_cast(Words, v), side = bits & sign;
        const Lanes size = __builtin_bit_cast(Lanes, bits & ~sign);
        Lanes nearest = last[g] + h;
        nearest = side == lastSign[g] ? nearest : far;
        if (c == 0 && first) nearest = far;
        last[g] = nearest < size ? nearest : size;
        lastSign[g] = side;
        v = __builtin_bit_cast(Lanes, __builtin_bit_cast(Words, last[g]) | side);
      }
    }
    for (Lanes(&group)[kLanes] : node) Transpose(group);
    for (int r = 0; r < kRowsAtOnce; ++r) std::memcpy(rows + r * stride + begin, node[0] + r, sizeof(Lanes));
  }
}
// The same of values of both signs, whose magnitudes are taken from nodes of the same sign; 0 counts as positive.
template <int kRows>
void TakeAlongOwnSide(double* rows, std::int64_t stride, int n, int step, double h) {
  if constexpr (kRows == kRowsAtOnce) {
    if (n >= kLanes) return TakeAlongRowLanes(rows, stride, n, step, h);
  }
  for (int r = 0; r < kRows; ++r) {
    double* row = rows + r * stride;
    double last = row[step > 0 ? 0 : n - 1];
    for (int i = step > 0 ? 1 : n - 2; i >= 0 && i < n; i += step) {
      const double nearest = std::signbit(last) == std::signbit(row[i]) ? std::abs(last) + h : kFar;
      last = row[i] = std::copysign(std::min(std::abs(row[i]), nearest), row[i]);
    }
  }
}
// Calls work(first row, how many, which is kRowsAtOnce or 1) for the rows of a layer.
template <class F>
void ForRowGroups(int rows, F&& work) {
  int j = 0;
  for (; j + kRowsAtOnce <= rows; j += kRowsAtOnce) work(j, std::integral_constant<int, kRowsAtOnce>());
  for (; j < rows; ++j) work(j, std::integral_constant<int, 1>());
}
// Which signs occur among the nodes of a block of a row and the two beside it.
enum : std::uint8_t { kPositive = 1, kNegative = 2 };
constexpr int kBlock = 16;

struct SidedRow {
  const double* values;
  const std::uint8_t* signs;  // of each block
};

// Calls take(i, room) for [begin, end): there is room for as many nodes as there are lanes, and for one for the rest.
template <class F>
ORLIX_INLINE void ForLanes(int begin, int end, F&& take) {
  int i = begin;
  for (Lanes nodes{}; i + kLanes <= end; i += kLanes) take(i, nodes);
  for (double node = 0; i < end; ++i) take(i, node);
}

// Nodes [begin, end) of a row, where no signs but these occur.
template <int kSigns, int kRows>
ORLIX_INLINE void TakeInSpan(double* to, const double* own, const SidedRow* from, int begin, int end, int n, double h,
                             double* __restrict nearest) {
  double *positive = nearest + 1, *negative = nearest + n + 3;
  positive[begin - 1] = positive[end] = kFar, negative[begin - 1] = negative[end] = -kFar;
  for (int i = std::max(begin - 1, 0); i < std::min(end + 1, n); ++i) {
    double low = kFar, high = -kFar;
    for (int r = 0; r < kRows; ++r) {
      const double v = from[r].values[i], p = kSigns == kPositive || v >= 0 ? v : kFar,
                   q = kSigns == kNegative || !(v >= 0) ? v : -kFar;
      low = low < p ? low : p, high = high > q ? high : q;
    }
    if (kSigns & kPositive) positive[i] = low;
    if (kSigns & kNegative) negative[i] = high;
  }
  ForLanes(
      begin, end, [&](int i, auto v) __attribute__((always_inline)) {
        std::remove_reference_t<decltype(v)> before, here, after, least, most;
        const auto read = [&](const double* row) __attribute__((always_inline)) {
          std::memcpy(&before, row + i - 1, sizeof v), std::memcpy(&here, row + i, sizeof v);
          std::memcpy(&after, row + i + 1, sizeof v);
        };
        std::memcpy(&v, own + i, sizeof v);
        if (kSigns & kPositive) {
          read(positive);
          before = before < after ? before : after;
          before = (before < here ? before : here) + h;
          least = before < v ? before : v;
        }
        if (kSigns & kNegative) {
          read(negative);
          before = before > after ? before : after;
          before = (before > here ? before : here) - h;
          most = before > v ? before : v;
        }
        if (kSigns == kPositive) most = least;
        if (kSigns == kNegative) least = most;
        v = v >= 0 ? least : most;
        std::memcpy(to + i, &v, sizeof v);
      });
}

// Each node of a row takes the nearest value of its own sign of the rows, one of its layer or three of the next, and of
// their neighbours in x, plus h.
template <int kRows>
ORLIX_INLINE void TakeFromRowsOfBothSides(double* to, const SidedRow& own, const SidedRow* from, int n, double h,
                                          double* __restrict nearest) {
  const auto signsOf = [&](int block) __attribute__((always_inline)) {
    int signs = own.signs[block];
    for (int r = 0; r < kRows; ++r) signs |= from[r].signs[block];
    return signs;
  };
  const int blocks = (n + kBlock - 1) / kBlock;
  for (int block = 0; block < blocks;) {
    const int signs = signsOf(block), begin = block * kBlock;
    while (++block < blocks && signsOf(block) == signs) continue;
    const int end = std::min(block * kBlock, n);
    if (signs == kPositive) {
      TakeInSpan<kPositive, kRows>(to, own.values, from, begin, end, n, h, nearest);
    } else if (signs == kNegative) {
      TakeInSpan<kNegative, kRows>(to, own.values, from, begin, end, n, h, nearest);
    } else {
      TakeInSpan<kPositive | kNegative, kRows>(to, own.values, from, begin, end, n, h, nearest);
    }
  }
}
ORLIX_MULTIVERSION void TakeFromRowBeside(double* to, const SidedRow& own, const SidedRow& from, int n, double h,
                                          double* nearest) {
  TakeFromRowsOfBothSides<1>(to, own, &from, n, h, nearest);
}
ORLIX_MULTIVERSION void TakeFromLayer(double* to, const SidedRow& own, const SidedRow (&from)[3], int n, double h,
                                      double* nearest) {
  TakeFromRowsOfBothSides<3>(to, own, from, n, h, nearest);
}

void SpreadInLayer(const GridView<double>& values, int k, double h) {
  const VecInt3D n = values.dims;
  ForRowGroups(n.y, [&](int j, auto count) {
    for (const int step : {1, -1}) TakeAlongRows<count()>(&values(0, j, k), n.x, n.x, step, h);
  });
  const auto takeFrom = [&](int to, int from) {
    const double* row = &values(0, from, k);
    TakeFromRows(&values(0, to, k), row, row, row, n.x, h);
  };
  for (int j = 1; j < n.y; ++j) takeFrom(j, j - 1);
  for (int j = n.y - 2; j >= 0; --j) takeFrom(j, j + 1);
}

// Calls take(j, k, worker) for the rows of each layer but the first one in the direction of step, when the rows that
// touch it in the layer before are finished. A worker has a band of rows, which moves down by one from layer to layer:
// what it needs is then its own, or of the bands below, which it waits for.
template <class F>
void ThroughLayers(WorkerPool& pool, const VecInt3D& n, int step, F&& take) {
  const int pieces = std::clamp(n.y / (2 * kLayersAtOnce), 1, pool.count());
  for (int first = 1; first < n.z; first += kLayersAtOnce) {
    const int layers = std::min(kLayersAtOnce, n.z - first);
    PipelineProgress progress[WorkerPool::kMaxWorkers];
    pool.Run(pieces, [&](int worker) {
      for (int layer = 0; layer < layers; ++layer) {
        if (worker > 0) AwaitProgress(progress[worker - 1].done, layer);
        const int moved = kLayersAtOnce / 2 - layer;
        const int begin = worker == 0 ? 0 : n.y * worker / pieces + moved;
        const int end = worker == pieces - 1 ? n.y : n.y * (worker + 1) / pieces + moved;
        const int k = step > 0 ? first + layer : n.z - 1 - first - layer;
        for (int j = begin; j < end; ++j) take(j, k, worker);
        progress[worker].done.store(layer + 1, std::memory_order_release);
      }
    });
  }
}

// Calls work(row's first index, count) for the rows of the cells that aren't in the border layer.
template <class F>
void ForInnerRows(WorkerPool& pool, const ScalarGrid& grid, F&& work) {
  const VecInt3D n = grid.dims;
  ParallelRange(pool, 1, n.z - 1, [&](int begin, int end, int) {
    for (int k = begin; k < end; ++k) {
      for (int j = 1; j < n.y - 1; ++j) work(grid.Index(1, j, k), n.x - 2);
    }
  });
}

// What a node next to the zero of phi + shift keeps; 0 or more, kFar elsewhere. Without branches, which could go either
// way at each of its edges.
double KeptDistance(const GridView<const double>& phi, double shift, int i, int j, int k, double h) {
  const double a = phi(i, j, k) + shift;
  const std::int64_t c = phi.Index(i, j, k), strides[3] = {1, phi.dims.x, phi.slab};
  const int at[3] = {i, j, k};
  double kept = kFar;
  for (int axis = 0; axis < 3; ++axis) {
    for (const int side : {-1, 1}) {
      const bool beyond = at[axis] + side < 0 || at[axis] + side >= phi.dims[axis];
      const double b = phi[beyond ? c : c + side * strides[axis]] + shift;
      const double apart = std::abs(a) + std::abs(b), scaled = std::abs(a) * (h / apart);
      const double near = kept == kFar ? std::abs(a) : kept, least = scaled < kept ? scaled : kept;
      const double crossing = apart > 0.9 * h ? least : near;
      kept = (a >= 0) != (b >= 0) ? crossing : kept;
    }
  }
  return kept;
}

// A bit for each node of a row that is 0 or more; those beyond its end are as its last one.
ORLIX_MULTIVERSION void MarkPositive(const double* row, double shift, int n, std::uint64_t* bits) {
  for (int begin = 0; begin <= n; begin += 64) {
    std::uint8_t positive[64];
    const int count = std::min(n - begin, 64);
    for (int i = 0; i < count; ++i) positive[i] = row[begin + i] + shift >= 0;
    std::fill(positive + count, positive + 64, row[n - 1] + shift >= 0);
    bits[begin / 64] = PackBytes(positive);
  }
}

// The sides of the zero of phi + shift on which nodes are, of the layers that were marked.
class Sides {
 public:
  Sides(const GridView<const double>& phi, double shift)
      : phi_(phi),
        dims_(phi.dims),
        shift_(shift),
        words_(phi.dims.x / 64 + 1),
        blocks_((phi.dims.x + kBlock - 1) / kBlock),
        bits_(RowAt(0, phi.dims.z) * std::size_t(words_)),
        signs_(RowAt(0, phi.dims.z) * std::size_t(blocks_)) {}

  void MarkLayer(int k) {
    for (int j = 0; j < dims_.y; ++j) {
      std::uint64_t* bits = bits_.data() + RowAt(j, k) * std::size_t(words_);
      MarkPositive(&phi_(0, j, k), shift_, dims_.x, bits);
      MarkBlocks(bits, signs_.data() + RowAt(j, k) * std::size_t(blocks_));
    }
  }
  const std::uint64_t* Bits(int j, int k) const { return bits_.data() + RowAt(j, k) * std::size_t(words_); }
  const std::uint8_t* Signs(int j, int k) const { return signs_.data() + RowAt(j, k) * std::size_t(blocks_); }
  SidedRow Row(const GridView<const double>& values, int j, int k) const { return {&values(0, j, k), Signs(j, k)}; }

  // Calls f(i) for the nodes of a row that have a neighbour on the other side.
  template <class F>
  void ForCrossings(int j, int k, F&& f) const {
    const std::uint64_t* rows[] = {Bits(std::max(j - 1, 0), k), Bits(std::min(j + 1, dims_.y - 1), k),
                                   Bits(j, std::max(k - 1, 0)), Bits(j, std::min(k + 1, dims_.z - 1))};
    const std::uint64_t* own = Bits(j, k);
    for (int w = 0; w < words_; ++w) {
      const std::uint64_t side = own[w], before = w > 0 ? own[w - 1] >> 63 : side & 1,
                          after = w + 1 < words_ ? own[w + 1] << 63 : side & std::uint64_t(1) << 63;
      std::uint64_t crossing = (side ^ (side << 1 | before)) | (side ^ (side >> 1 | after));
      for (const std::uint64_t* row : rows) crossing |= side ^ row[w];
      for (; crossing != 0; crossing &= crossing - 1) {
        const int i = 64 * w + std::countr_zero(crossing);
        if (i < dims_.x) f(i);
      }
    }
  }

 private:
  std::size_t RowAt(int j, int k) const { return std::size_t(k) * std::size_t(dims_.y) + std::size_t(j); }
  void MarkBlocks(const std::uint64_t* bits, std::uint8_t* signs) const {
    const auto bit = [bits](int i) { return bits[i / 64] >> (i % 64) & 1; };
    for (int block = 0; block < blocks_; ++block) {
      const int begin = block * kBlock, end = begin + kBlock;
      const std::uint64_t nodes = bits[begin / 64] >> (begin % 64) & 0xffff;
      const std::uint64_t around = bit(std::max(begin - 1, 0)) + bit(std::min(end, dims_.x - 1));
      signs[block] = static_cast<std::uint8_t>((nodes + around != 0 ? kPositive : 0) |
                                               (nodes != 0xffff || around != 2 ? kNegative : 0));
    }
  }

  GridView<const double> phi_;
  VecInt3D dims_;
  double shift_;
  int words_, blocks_;
  std::vector<std::uint64_t> bits_;
  std::vector<std::uint8_t> signs_;
};

// The largest double of each node's sign.
ORLIX_MULTIVERSION void FillFar(double* row, int n, const std::uint64_t* positive, const std::uint8_t* signs) {
  for (int begin = 0; begin < n; begin += kBlock) {
    const int end = std::min(begin + kBlock, n), which = signs[begin / kBlock];
    if (which == kPositive || which == kNegative) {
      std::fill(row + begin, row + end, which == kPositive ? kFar : -kFar);
    } else {
      for (int i = begin; i < end; ++i) row[i] = (positive[i / 64] >> (i % 64) & 1) != 0 ? kFar : -kFar;
    }
  }
}

}  // namespace

void SpreadDistances(WorkerPool& pool, const GridView<double>& values, double h) {
  const VecInt3D n = values.dims;
  if (CellCount(n) < 1) return;
  ParallelRange(pool, 0, n.z, [&](int begin, int end, int) {
    for (int k = begin; k < end; ++k) SpreadInLayer(values, k, h);
  });
  for (const int step : {1, -1}) {
    ThroughLayers(pool, n, step, [&](int j, int k, int) {
      TakeFromRows(&values(0, j, k), &values(0, std::max(0, j - 1), k - step), &values(0, j, k - step),
                   &values(0, std::min(n.y - 1, j + 1), k - step), n.x, h);
    });
  }
}

// Both sides spread at once, each from nodes of its own: what is kept is at most h, so that the way from a node to a
// seed across the other side is no shorter than that to the seed where it crosses.
void ReinitialiseLevelSet(WorkerPool& pool, ScratchPool& scratch, const GridView<const double>& phi, double shift,
                          double h, const GridView<double>& result) {
  ScratchPool::Lease<double> spread;
  if (result.data == phi.data) spread = scratch.Take<double>(phi.dims);
  const GridView<double> values = spread ? GridView<double>(*spread) : result;
  const VecInt3D n = phi.dims;
  Sides sides(phi, shift);
  // Room for the nearest of each side in a row, and what lies beyond its ends.
  std::vector<std::vector<double>> room(WorkerPool::kMaxWorkers);
  for (int worker = 0; worker < pool.count(); ++worker) room[std::size_t(worker)].resize(2 * std::size_t(n.x + 2));
  // Layers that another worker looks at are marked first, all others just before phi is read once more.
  ParallelRange(pool, 0, n.z, [&](int begin, int end, int) {
    sides.MarkLayer(begin);
    if (end - 1 > begin) sides.MarkLayer(end - 1);
  });
  ParallelRange(pool, 0, n.z, [&](int begin, int end, int worker) {
    double* const nearest = room[std::size_t(worker)].data();
    for (int k = begin; k < end; ++k) {
      if (k + 1 < end - 1) sides.MarkLayer(k + 1);
      ForRowGroups(n.y, [&](int first, auto count) {
        bool found = false;
        for (int j = first; j < first + count(); ++j) {
          FillFar(&values(0, j, k), n.x, sides.Bits(j, k), sides.Signs(j, k));
          sides.ForCrossings(j, k, [&](int i) {
            double& value = values(i, j, k);
            value = std::copysign(KeptDistance(phi, shift, i, j, k, h), value);
            found = true;
          });
        }
        if (!found) return;
        for (const int step : {1, -1}) TakeAlongOwnSide<count()>(&values(0, first, k), n.x, n.x, step, h);
      });
      const auto takeFrom = [&](int to, int from) {
        TakeFromRowBeside(&values(0, to, k), sides.Row(values, to, k), sides.Row(values, from, k), n.x, h, nearest);
      };
      for (int j = 1; j < n.y; ++j) takeFrom(j, j - 1);
      for (int j = n.y - 2; j >= 0; --j) takeFrom(j, j + 1);
    }
  });
  const auto take = [&](const GridView<double>& to, int step) {
    ThroughLayers(pool, n, step, [&](int j, int k, int worker) {
      const int before = k - step;
      TakeFromLayer(&to(0, j, k), sides.Row(values, j, k),
                    {sides.Row(to, std::max(0, j - 1), before), sides.Row(to, j, before),
                     sides.Row(to, std::min(n.y - 1, j + 1), before)},
                    n.x, h, room[std::size_t(worker)].data());
    });
  };
  take(values, 1);
  if (spread) std::copy_n(&values(0, 0, n.z - 1), values.slab, &result(0, 0, n.z - 1));
  take(result, -1);
}

void LevelSetFromMask(WorkerPool& pool, const GridView<const std::uint8_t>& mask, ScalarGrid& target, double farValue,
                      bool signInterior) {
  const double h = target.space.cellSize;
  const std::int64_t row = target.dims.x, slab = target.slab;
  const std::uint8_t* m = mask.data;
  ParallelRange(pool, 0, target.dims.z, [&](int begin, int end, int) {
    for (std::int64_t c = begin * slab; c < end * slab; ++c) target[c] = m[c] ? -0.5 * h : farValue;
  });
  ForInnerRows(pool, target, [&](std::int64_t first, int count) {
    for (std::int64_t c = first; c < first + count; ++c) {
      const bool buried = (m[c] & m[c - 1] & m[c + 1] & m[c - row] & m[c + row] & m[c - slab] & m[c + slab]) != 0;
      target[c] = buried ? farValue : target[c];
    }
  });
  SpreadDistances(pool, target, h);
  if (!signInterior) return;
  ForInnerRows(pool, target, [&](std::int64_t first, int count) {
    for (std::int64_t c = first; c < first + count; ++c) {
      const bool flip = m[c] != 0 && !(static_cast<float>(target[c]) < 0);
      target[c] = flip ? -target[c] : target[c];
    }
  });
}

bool DensityToLevelset(WorkerPool& pool, const ScalarGrid& source, ScalarGrid& target, double threshold,
                       double farValue, bool signInterior) {
  if (source.dims != target.dims || source.count < 1) return false;
  std::unique_ptr<Grid<std::uint8_t>> mask;
  try {
    mask = std::make_unique<Grid<std::uint8_t>>(source.dims, kGridLevelset);
  } catch (const std::bad_alloc&) {
    return false;
  }
  mask->Fill(0);
  ForInnerRows(pool, source, [&](std::int64_t first, int count) {
    for (std::int64_t c = first; c < first + count; ++c) (*mask)[c] = !(source[c] < threshold);
  });
  LevelSetFromMask(pool, *mask, target, farValue, signInterior);
  return true;
}

}  // namespace orlix
