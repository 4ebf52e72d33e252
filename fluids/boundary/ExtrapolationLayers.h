#pragma once
// Which samples of a grid lie how many steps from known ones, and the values that they take: layer by layer, each
// sample the mean of those of its six neighbours that were known before its layer.

#include <cstdint>
#include <vector>

#include "fluids/boundary/CellMask.h"
#include "fluids/grids/Grid.h"

namespace orlix {

class ScratchPool;
class WorkerPool;

class ExtrapolationLayers {
 public:
  // Samples of the border are neither known nor filled. unknown: the samples that are to be filled. deepBelow: with the
  // nodes of a signed distance, a sample stays as it is where the mean of its cell's eight corners is below that.
  void Build(const CellMask& unknown, int layers, const GridView<const double>& nodes, double deepBelow,
             ScratchPool& scratch, WorkerPool& pool);
  void Clear();

  int layerCount() const { return static_cast<int>(starts_.size()) - 1; }
  // Fills layer 1, 2, ... of the values; each needs the one before.
  void Fill(int layer, const GridView<double>& values, WorkerPool& pool) const;
  std::int64_t sampleCount() const { return static_cast<std::int64_t>(samples_.size()); }
  std::int64_t Bytes() const { return sampleCount() * 5; }

 private:
  std::vector<std::int32_t> samples_;     // linear indices, by layer
  std::vector<std::uint8_t> neighbours_;  // bits of those that are known: +x, +y, +z, -x, -y, -z
  std::vector<std::int64_t> starts_{0};   // of the layers in samples_
};

}  // namespace orlix
