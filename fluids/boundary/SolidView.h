#pragma once
// Reads of a solver's solid distance: what kernels ask about walls and obstacles. By value, no call per cell is
// virtual.
//
// The field stands on the corners of the cells: n = cells + 1 nodes an axis. Positive in the open, metres. Positions:
//   index   index space, in which the nodes lie at whole numbers
//   local   metres from the grid's low corner
//   world   simulation space
// Without data the distances are 0, the gradients zero, nothing is inside, and collisions report true without a move.

#include <cstdint>

#include "fluids/grids/EGrid.h"
#include "fluids/grids/Interpolation.h"

namespace orlix {

// Bits of the container's faces that are walls. The maximum of y comes before its minimum.
enum ClosedFace : std::uint8_t {
  kClosedXMin = 1,
  kClosedXMax = 2,
  kClosedYMax = 4,
  kClosedYMin = 8,
  kClosedZMin = 16,
  kClosedZMax = 32
};
inline constexpr std::uint8_t kAllFacesClosed = 63;
constexpr std::uint8_t ClosedLow(int axis) { return axis == 0 ? kClosedXMin : axis == 1 ? kClosedYMin : kClosedZMin; }
constexpr std::uint8_t ClosedHigh(int axis) { return axis == 0 ? kClosedXMax : axis == 1 ? kClosedYMax : kClosedZMax; }

struct SolidContact {
  bool hit = false;
  Vec3D position, normal;
  double depth = 0;  // m
};

class SolidView {
 public:
  SolidView() = default;
  SolidView(const ScalarGrid& nodes, std::uint8_t closed)
      : grid_(nodes), origin_(nodes.space.simMin), cellSize_(nodes.space.cellSize), closedFaces_(closed) {}

  bool HasData() const { return grid_.data != nullptr; }
  const GridView<const double>& nodes() const { return grid_; }
  const Vec3D& origin() const { return origin_; }
  float cellSize() const { return cellSize_; }
  std::uint8_t closedFaces() const { return closedFaces_; }

  double DistanceIndex(const Vec3D& p) const { return HasData() ? SampleTrilinear(grid_, p.x, p.y, p.z) : 0; }
  double DistanceLocal(const Vec3D& p) const { return DistanceIndex(IndexOf(p)); }
  // Not normalised, per cell.
  Vec3D GradientIndex(const Vec3D& p) const;
  Vec3D GradientLocal(const Vec3D& p) const { return GradientIndex(IndexOf(p)); }

  // The distance there, in single precision, isn't above 0: a point on a surface counts as inside.
  bool IsInsideSolid(const Vec3D& index) const {
    return HasData() && !(static_cast<float>(DistanceIndex(index)) > 0.0f);
  }

  // Local positions. In the outer cell of an open face; in any outer cell; beyond the grid.
  bool IsInOpenBorder(const Vec3D& p) const;
  bool IsInBorder(const Vec3D& p) const;
  bool IsOutsideDomain(const Vec3D& p) const;
  // Moves a point of the outer cells just inside them. True when it moved.
  bool ClampToDomain(Vec3D& p) const;
  // Clamps to the domain, then moves a point from inside a solid to a depth of margin (m) below its surface. True when
  // it moved.
  bool ResolveCollision(Vec3D& p, double margin) const;
  // Against the closed container faces, taken one cell and margin inside the grid. A later axis overwrites depth.
  void WallContact(const Vec3D& p, SolidContact& contact, float margin) const;
  // Against walls and solids; gives contact.hit.
  bool ResolveContact(const Vec3D& p, SolidContact& contact, double margin) const;
  // The move that takes p out of outer cells and solids. True when correction was set.
  bool PushOutVector(const Vec3D& p, Vec3D& correction) const;
  // Bit n: corner n of the cell lies inside. Corners 0 (i,j,k), 1 (i,j,k+1), 2 (i,j+1,k), 3 (i,j+1,k+1), 4 to 7 the
  // same at i+1. 0 outside the grid.
  std::uint8_t SolidCornerMask(const Vec3D& p) const;

 private:
  Vec3D IndexOf(const Vec3D& p) const { return p / static_cast<double>(cellSize_); }
  // Local coordinates of the last node, and of the one before: products in single precision.
  float HighEnd(int axis) const { return static_cast<float>(grid_.dims[axis] - 1) * cellSize_; }
  float LastInner(int axis) const { return static_cast<float>(grid_.dims[axis] - 2) * cellSize_; }

  GridView<const double> grid_;
  Vec3D origin_;
  float cellSize_ = 1;
  std::uint8_t closedFaces_ = 0;
};

}  // namespace orlix
