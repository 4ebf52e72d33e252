#pragma once
// The records of conservative advection: from which eight cells each cell takes, and to which it pushes what is left.

#include <algorithm>
#include <array>
#include <vector>

#include "fluids/advection/AdvectionField.h"
#include "fluids/grids/Grid.h"

namespace orlix {

// Corner order, shared with SolidView::SolidCornerMask: 0 (i,j,k), 1 (i,j,k+1), 2 (i,j+1,k), 3 (i,j+1,k+1), 4 to 7 the
// same at i + 1.
struct ContributionStencil {
  std::int32_t i, j, k;  // the low corner
  double weights[8];
};

struct ContributionCoefficients : ContributionStencil {
  std::int32_t forward;  // index among the forward records of the cell's layer; -1: none
};

// Trilinear weights of coordinates (at or above 0) that sum to total, without the corners of the mask; all 0 when none
// is left.
ContributionStencil ComputeWeights(const Vec3D& coordinates, std::uint8_t mask, double total);

// A record for each cell. Records aren't filled when it is made.
class ContributionGrid {
 public:
  explicit ContributionGrid(const VecInt3D& dims);

  const VecInt3D& dims() const { return records_.dims; }
  std::int64_t Index(int i, int j, int k) const { return records_.Index(i, j, k); }
  std::int64_t Index(const ContributionStencil& stencil) const { return Index(stencil.i, stencil.j, stencil.k); }
  const std::array<std::int64_t, 8>& corners() const { return corners_; }

  ContributionCoefficients& operator()(int i, int j, int k) { return records_(i, j, k); }
  const ContributionCoefficients& operator()(int i, int j, int k) const { return records_(i, j, k); }
  // Sets a record of layer k that has no forward one.
  void Set(int i, int j, int k, const ContributionStencil& stencil);
  // Room for count forward records in layer k; on one thread, since it may throw std::bad_alloc.
  void ReserveForward(int k, std::size_t count) { layers_[static_cast<std::size_t>(k)].forward.reserve(count); }
  // Gives the record of a cell in layer k a forward one, after those of the layer's earlier cells.
  void SetForward(ContributionCoefficients& record, int k, const ContributionStencil& stencil);
  // Null when the record, of layer k, has no forward one.
  ContributionStencil* ForwardOf(const ContributionCoefficients& record, int k) {
    return record.forward < 0 ? nullptr
                              : &layers_[static_cast<std::size_t>(k)].forward[static_cast<std::size_t>(record.forward)];
  }

  // Calls f(layer) for the layers with a record that reaches a layer of [begin, end), ascending.
  template <class F>
  void ForEachReaching(int begin, int end, F&& f) const {
    for (int k = 0; k < dims().z; ++k) {
      const Layer& layer = layers_[static_cast<std::size_t>(k)];
      if (layer.lowest < end && layer.highest >= begin) f(k);
    }
  }

 private:
  struct Layer {
    std::vector<ContributionStencil> forward;  // in the order of their cells
    int lowest, highest = -1;                  // layers that the records of this one reach
  };
  void Reach(Layer& layer, int low) {
    layer.lowest = std::min(layer.lowest, low), layer.highest = std::max(layer.highest, low + 1);
  }

  Grid<ContributionCoefficients> records_;
  std::vector<Layer> layers_;
  std::array<std::int64_t, 8> corners_;  // index distances
};

}  // namespace orlix
