#include "fluids/advection/Contributions.h"

namespace orlix {

ContributionStencil ComputeWeights(const Vec3D& coordinates, std::uint8_t mask, double total) {
  ContributionStencil stencil;
  stencil.i = static_cast<std::int32_t>(coordinates.x);
  stencil.j = static_cast<std::int32_t>(coordinates.y);
  stencil.k = static_cast<std::int32_t>(coordinates.z);
  const double fx = coordinates.x - stencil.i, fy = coordinates.y - stencil.j, fz = coordinates.z - stencil.k;
  double sum = 0;
  for (int corner = 0; corner < 8; ++corner) {
    const double x = corner & 4 ? fx : 1 - fx, y = corner & 2 ? fy : 1 - fy, z = corner & 1 ? fz : 1 - fz;
    stencil.weights[corner] = mask >> corner & 1 ? 0 : total * x * y * z;
    sum += stencil.weights[corner];
  }
  if (sum > 0) {
    for (double& weight : stencil.weights) weight *= total / sum;
  }
  return stencil;
}

ContributionGrid::ContributionGrid(const VecInt3D& dims)
    : records_(dims, kGridScratch), layers_(static_cast<std::size_t>(dims.z)) {
  for (Layer& layer : layers_) layer.lowest = dims.z;
  const std::int64_t nx = dims.x, slab = records_.slab;
  corners_ = {0, slab, nx, nx + slab, 1, 1 + slab, 1 + nx, 1 + nx + slab};
}

void ContributionGrid::Set(int i, int j, int k, const ContributionStencil& stencil) {
  ContributionCoefficients& record = records_(i, j, k);
  static_cast<ContributionStencil&>(record) = stencil;
  record.forward = -1;
  Reach(layers_[static_cast<std::size_t>(k)], stencil.k);
}

void ContributionGrid::SetForward(ContributionCoefficients& record, int k, const ContributionStencil& stencil) {
  Layer& layer = layers_[static_cast<std::size_t>(k)];
  record.forward = static_cast<std::int32_t>(layer.forward.size());
  layer.forward.push_back(stencil);
  Reach(layer, stencil.k);
}

}  // namespace orlix
