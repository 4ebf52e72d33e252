#pragma once
// Reads of a nodal level set: what a volume's queries and kernels take. Distances in metres, negative inside.
//
// Positions come in four spaces, and all are turned into index space first. In names:
//   Grid     index space
//   Local    metres from the grid's corner
//   World    simulation space
//   Lattice  lattice space: simulation space, less the grid's offset in whole cells

#include "fluids/grids/EGrid.h"
#include "fluids/grids/TrilinearGradient.h"

namespace orlix {

class LevelSetView {
 public:
  LevelSetView() = default;
  explicit LevelSetView(const ScalarGrid& grid)
      : grid_(grid),
        origin_(grid.space.simMin),
        end_(grid.space.simMax),
        inverseSpacing_(grid.space.voxelsPerSim),
        offset_(Vec3D(grid.space.voxelMin)) {}

  bool HasData() const { return grid_.data != nullptr; }
  Vec3D IndexOfLocal(const Vec3D& p) const { return p * inverseSpacing_; }
  Vec3D IndexOfWorld(const Vec3D& p) const { return (p - origin_) * inverseSpacing_; }
  Vec3D IndexOfLattice(const Vec3D& p) const { return p * inverseSpacing_ - offset_; }
  const Vec3D& origin() const { return origin_; }

  // Trilinear, with the border's value beyond it. Needs data.
  double Sample(const Vec3D& index) const {
    return interpolation_detail::EightNodes(grid_, Axis(index.x, grid_.dims.x), Axis(index.y, grid_.dims.y),
                                            Axis(index.z, grid_.dims.z));
  }
  // The unit gradient of the trilinear interpolant; zero where that is zero.
  Vec3D Normal(const Vec3D& index) const {
    return Normalized(TrilinearGradient(grid_, Axis(index.x, grid_.dims.x), Axis(index.y, grid_.dims.y),
                                        Axis(index.z, grid_.dims.z)));
  }
  // World position at or above the lower corner and strictly below the upper one.
  bool InBox(const Vec3D& p) const {
    return p.x >= origin_.x && p.y >= origin_.y && p.z >= origin_.z && p.x < end_.x && p.y < end_.y && p.z < end_.z;
  }

 private:
  // Unlike the common clamp, a coordinate between -1 and 0 lies on the first node. NaN does, too.
  static AxisCell Axis(double x, int n) {
    if (!(x > 0)) return {0, 0.0};
    if (x >= n - 1) return {n - 2, 1.0};
    const int i = static_cast<int>(x);
    return {i, x - i};
  }

  GridView<const double> grid_;
  Vec3D origin_, end_, inverseSpacing_, offset_;
};

}  // namespace orlix
