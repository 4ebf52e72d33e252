#include "fluids/boundary/ExtrapolationLayers.h"

#include <algorithm>

#include "fluids/grids/ScratchPool.h"
#include "host/threads/WorkerPool.h"

namespace orlix {

namespace {

double CornerMean(const GridView<const double>& nodes, int i, int j, int k) {
  const double* p = &nodes(i, j, k);
  const std::int64_t dy = nodes.dims.x, dz = nodes.slab;
  return (p[0] + p[1] + p[dy] + p[dy + 1] + p[dz] + p[dz + 1] + p[dz + dy] + p[dz + dy + 1]) * 0.125;
}

struct Steps {
  std::int64_t to[6];
  explicit Steps(const VecInt3D& dims) : to{1, dims.x, std::int64_t(dims.x) * dims.y, -1, -dims.x, 0} {
    to[5] = -to[2];
  }
};

std::uint8_t KnownNeighbours(const std::uint8_t* known, const Steps& steps) {
  std::uint8_t bits = 0;
  for (int n = 0; n < 6; ++n) bits = static_cast<std::uint8_t>(bits | (known[steps.to[n]] != 0) << n);
  return bits;
}

// 1 where a sample is known; the border isn't.
void MarkKnown(const CellMask& unknown, Grid<std::uint8_t>& known, WorkerPool& pool) {
  const VecInt3D n = known.dims;
  ParallelRange(pool, 0, n.z, [&](int k0, int k1, int) {
    for (int k = k0; k < k1; ++k) {
      for (int j = 0; j < n.y; ++j) {
        std::uint8_t* row = &known(0, j, k);
        const bool inside = k > 0 && k < n.z - 1 && j > 0 && j < n.y - 1;
        std::fill(row, row + n.x, std::uint8_t(inside ? 1 : 0));
        if (!inside) continue;
        row[0] = row[n.x - 1] = 0;
        CellMask::ForEachSet(unknown.Row(j, k), 1, n.x - 1, [&](int i) { row[i] = 0; });
      }
    }
  });
}

struct LayerPart {
  std::vector<std::int32_t> samples;
  std::vector<std::uint8_t> neighbours;
};

}  // namespace

void ExtrapolationLayers::Clear() {
  samples_.clear(), neighbours_.clear();
  starts_.assign(1, 0);
}

void ExtrapolationLayers::Build(const CellMask& unknown, int layers, const GridView<const double>& nodes,
                                double deepBelow, ScratchPool& scratch, WorkerPool& pool) {
  Clear();
  const VecInt3D n = unknown.dims();
  if (unknown.IsEmpty() || std::min({n.x, n.y, n.z}) < 3) return;
  auto known = scratch.Take<std::uint8_t>(n);
  MarkKnown(unknown, *known, pool);
  const Steps steps(n);
  std::vector<LayerPart> parts(static_cast<std::size_t>(n.z));
  for (int layer = 1; layer <= layers; ++layer) {
    ParallelRange(pool, 1, n.z - 1, [&](int k0, int k1, int) {
      for (int k = k0; k < k1; ++k) {
        LayerPart& part = parts[static_cast<std::size_t>(k)];
        part.samples.clear(), part.neighbours.clear();
        for (int j = 1; j < n.y - 1; ++j) {
          const std::int64_t row = known->Index(0, j, k);
          CellMask::ForEachSet(unknown.Row(j, k), 1, n.x - 1, [&](int i) {
            const std::uint8_t* at = known->data + row + i;
            const std::uint8_t bits = *at != 0 ? std::uint8_t(0) : KnownNeighbours(at, steps);
            if (bits == 0 || (nodes.data && CornerMean(nodes, i, j, k) < deepBelow)) return;
            part.samples.push_back(static_cast<std::int32_t>(row + i));
            part.neighbours.push_back(bits);
          });
        }
      }
    });
    for (const LayerPart& part : parts) {
      samples_.insert(samples_.end(), part.samples.begin(), part.samples.end());
      neighbours_.insert(neighbours_.end(), part.neighbours.begin(), part.neighbours.end());
      for (const std::int32_t sample : part.samples) (*known)[sample] = 1;
    }
    if (static_cast<std::int64_t>(samples_.size()) == starts_.back()) break;
    starts_.push_back(static_cast<std::int64_t>(samples_.size()));
  }
  samples_.shrink_to_fit(), neighbours_.shrink_to_fit();
}

void ExtrapolationLayers::Fill(int layer, const GridView<double>& values, WorkerPool& pool) const {
  if (layer < 1 || layer > layerCount()) return;
  const Steps steps(values.dims);
  const std::int64_t begin = starts_[static_cast<std::size_t>(layer - 1)];
  const int count = static_cast<int>(starts_[static_cast<std::size_t>(layer)] - begin);
  ParallelRange(pool, 0, count, [&](int from, int to, int) {
    for (std::int64_t m = begin + from; m < begin + to; ++m) {
      double* at = values.data + samples_[static_cast<std::size_t>(m)];
      const unsigned bits = neighbours_[static_cast<std::size_t>(m)];
      double sum = 0;
      for (int n = 0; n < 6; ++n) {
        if ((bits >> n & 1) != 0) sum += at[steps.to[n]];
      }
      *at = sum == 0 ? 0 : sum / __builtin_popcount(bits);
    }
  });
}

}  // namespace orlix
