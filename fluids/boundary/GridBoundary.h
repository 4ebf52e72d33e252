#pragma once
// What a solver knows of its walls: one signed distance field of the container's faces and all obstacles, and the
// questions on it. A closed face is a surface one cell inside the grid, an open one lies a cell outside.
//
// The field is kept while container, faces and obstacles stay as they are.

#include <array>
#include <utility>
#include <vector>

#include "fluids/boundary/CellMask.h"
#include "fluids/boundary/Grid_VolumeFractions.h"
#include "fluids/boundary/SolidBricks.h"
#include "fluids/boundary/SolidView.h"
#include "fluids/channels/ScalarChannels.h"

namespace orlix {

class VolumeBase;

class GridBoundary final : public iObject, public iFractionOwner {
 public:
  enum class Face { Open, Closed };

  GridBoundary(BaseList2D* solverObject, OrlixScene& owner);
  // Rows of the solver.
  static constexpr int kFaceXMinId = 1011, kFaceXMaxId = 1012, kFaceYMinId = 1013, kFaceYMaxId = 1014,
                       kFaceZMinId = 1015, kFaceZMaxId = 1016;

  void ResetSimulation() override;
  void ClearState(bool deactivate) override;
  void ExtendBounds(Vec3D& min, Vec3D& max) override { solidDistance.ExtendBounds(min, max); }
  bool ApplyBounds(const Vec3D& min, const Vec3D& max) override;
  bool ReadParameters() override;
  bool ResolveLinks() override;
  void ReleaseLinks() override;
  // Brings the field up to date. On the thread that drives the scene; divides its own work.
  void Build();
  // The field was built from the container, the faces and the level sets as they are now.
  bool IsCurrent() const { return builtFrom_.valid && builtFrom_ == PresentSources(); }

  // --- for kernels
  SolidView View() const { return solidDistance.grid ? SolidView(*solidDistance.grid, closedFaces) : SolidView(); }
  bool HasSolidGrid() const { return solidDistance.grid != nullptr; }
  // The samples of a velocity component or of a grid of cell centres, on the solver's lattice, inside a solid. Made at
  // the first call after the field changed, on the thread that drives the scene, and kept. Empty without a field.
  const CellMask& InsideSolid(std::uint32_t gridType);
  // Where the field may be negative beside the container's faces; made and kept in the same way.
  const SolidBricks& ObstacleBricks();
  // Changes whenever the field does.
  std::uint64_t revision() const { return revision_; }

  // --- queries of a point; workers may ask while the field isn't being rebuilt
  // p is an index position of the field, or with remap one of grid, carried over through both lattices.
  bool IsInsideSolid(const Vec3D& p, const ScalarGrid* grid, bool remap) const;
  bool IsInOpenBorder(const Vec3D& p) const { return View().IsInOpenBorder(p); }
  bool IsInBorder(const Vec3D& p) const { return View().IsInBorder(p); }
  bool IsOutsideDomain(const Vec3D& p) const { return View().IsOutsideDomain(p); }
  bool ClampToDomain(Vec3D& p) const { return View().ClampToDomain(p); }
  bool ResolveCollision(Vec3D& p, bool isLocal, double margin) const;
  // p is local. Nothing is changed without a field.
  void WallContact(const Vec3D& p, SolidContact& contact, double margin) const;
  bool ResolveContact(const Vec3D& p, bool isWorld, SolidContact& contact, double margin) const;
  bool PushOutVector(const Vec3D& p, bool isLocal, Vec3D& correction) const;
  std::uint8_t SolidCornerMask(const Vec3D& p) const { return View().SolidCornerMask(p); }
  // The first non-zero surface normal that an obstacle gives at a world position; zero when there is none.
  bool ObstacleNormal(Vec3D& out, const Vec3D& p) const;

  const ScalarGrid* SignedDistance() const override { return solidDistance.grid.get(); }
  bool IsOwnerActive() const override { return IsActive(); }
  std::uint64_t DistanceRevision() const override { return revision_; }
  std::int64_t DerivedBytes() const override;

  std::uint8_t closedFaces = kAllFacesClosed;  // ClosedFace bits
  ChannelBase_Scalar solidDistance;
  std::vector<VolumeBase*> obstacles;  // between ResolveLinks and ReleaseLinks

 private:
  // What the field is made of.
  struct Sources {
    bool valid = false;
    Vec3D origin;
    VecInt3D cells;
    std::uint8_t closedFaces = 0;
    std::vector<std::pair<std::uint64_t, std::uint64_t>> levelSets;  // their volumes' creation numbers, versions
    bool operator==(const Sources&) const = default;
  };
  Sources PresentSources() const;
  void MarkStale();
  Vec3D Local(const Vec3D& world) const { return HasSolidGrid() ? world - View().origin() : world; }

  Sources builtFrom_;
  std::uint64_t revision_ = 1;
  std::array<CellMask, 4> inside_;  // U, V, W, centres
  SolidBricks bricks_;
  std::uint64_t bricksRevision_ = 0;
};

}  // namespace orlix
