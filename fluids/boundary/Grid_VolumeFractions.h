#pragma once
// The share of faces, cells and edges that lies inside a signed distance field, or with `complement` in the open: the
// coefficients on which pressure matrix and boundary conditions rest (Batty, Bertails and Bridson 2007).
//
//   kind  axis     stands at          grid type  content
//   0     0        cell centre        60         around the centre
//   1     0, 1, 2  face               axis       of the face
//   2     0, 1, 2  edge               103 + axis around the edge
//   3     0, 1, 2  face               axis       around the face's sample

#include <array>
#include <memory>

#include "fluids/boundary/CellMask.h"
#include "fluids/scene/iObject.h"

namespace orlix {

// Whose signed distance is read.
class iFractionOwner {
 public:
  virtual ~iFractionOwner() = default;
  // On the nodes of the lattice; null when there is none.
  virtual const ScalarGrid* SignedDistance() const = 0;
  virtual bool IsOwnerActive() const = 0;
  // Changes whenever the distances do; above 0.
  virtual std::uint64_t DistanceRevision() const = 0;
};

class Grid_VolumeFractions final : public iObject {
 public:
  static constexpr int kKinds = 4;

  Grid_VolumeFractions(BaseList2D* solverObject, OrlixScene& ownerScene) : iObject(solverObject, ownerScene) {}

  void ResetSimulation() override;
  void ClearState(bool deactivate) override;
  bool ReadParameters() override;
  // Makes the requested grids on the owner's lattice. New grids are filled with 0. Active when that worked.
  void Prepare(iBase* caller = nullptr) override;
  // Computes all requested kinds, unless they are current. On the thread that drives the scene; divides its own work.
  void Compute();
  std::int64_t DerivedBytes() const override;
  // The grids were computed from the owner's present distances.
  bool IsCurrent() const { return owner && computedFor_ == owner->DistanceRevision(); }

  // Null when there are no grids.
  const FloatGrid* GetFloatGrid(int axis, int kind) const { return grids_[kind][axis].get(); }
  // What it held before it was computed last; null when that isn't kept, or there was nothing.
  const FloatGrid* GetFloatGridPrevious(int axis, int kind) const { return previous_[kind][axis].get(); }
  GridView<const float> View(int axis, int kind) const {
    const FloatGrid* grid = GetFloatGrid(axis, kind);
    return grid ? GridView<const float>(*grid) : GridView<const float>();
  }
  // Closes the wall layers of the face grid of an axis (kind 1) for the faces in the mask.
  void ZeroWallFaces(int axis, std::uint8_t mask);

  // The faces of an axis whose fraction (kind 1) is exactly 0. Made at the first call after a change, on the thread
  // that drives the scene, and kept.
  const CellMask& ClosedFaces(int axis);
  // Changes whenever a value may have changed: what is derived from the fractions is kept while it stays.
  std::uint64_t revision() const { return revision_; }

  iFractionOwner* owner = nullptr;  // not owned
  std::int32_t method = 0;
  std::uint32_t kinds = 0;  // bit n requests kind n
  std::int32_t oversampling = 2;
  bool complement = false;
  bool keepPrevious = false;

 private:
  bool PrepareGrid(int axis, int kind, const GridSpace& space);
  void MarkChanged(std::uint64_t computedFor);

  using Grids = std::array<std::array<std::unique_ptr<FloatGrid>, 3>, kKinds>;
  void KeepPrevious(int axis, int kind);

  Grids grids_, previous_;
  std::uint64_t revision_ = 0, computedFor_ = 0;
  std::array<CellMask, 3> closed_;
};

}  // namespace orlix
