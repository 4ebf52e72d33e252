#pragma once
// A volume with a level set: geometry as a signed distance that emitters, boundaries, forces and constraints query.
// Negative inside, distances in metres.
//
// All queries may run on any worker while the level set isn't being rebuilt, and answer "0, not inside, no push" when
// there is none.

#include <cmath>
#include <memory>
#include <optional>

#include "fluids/bodies/RigidBody_Variational.h"
#include "fluids/bodies/RigidMotion.h"
#include "fluids/level_sets/LevelSetView.h"
#include "fluids/level_sets/VolumeVoxeliser.h"
#include "fluids/level_sets/iLevelSet.h"
#include "fluids/scene/iCachedGrids.h"
#include "fluids/volumes/iVolume.h"

namespace orlix {

// What Collide finds.
struct VolumeHit {
  bool inside = false;
  Vec3D position;
  Vec3D normal;
  double distance = 0;
};

class VolumeBase : public iVolume, public iCachedGrids, public iLevelSet {
 public:
  enum class Display { Off, Box, Points };
  enum class VirtualGeometry { Never, Always, Running };

  VolumeBase(BaseList2D* hostObject, OrlixScene& owner);
  static constexpr int kExtendsContainerId = 1001, kObjectId = 1003, kShellId = 1006, kFlipSignId = 1007,
                       kPaddingId = 1008, kThreadsId = 1010, kHiddenFromLevelSetsId = 1018;
  static std::span<const Parameter> Parameters();

  void ResetSimulation() override;
  std::int32_t GetNodeSubType() const override { return 71; }
  // An obstacle, unless it is hidden from level-set queries, offers RETRIEVE_LEVELSET.
  void GetRetrieveTypes(std::uint32_t& mask) const override;
  bool ReadParameters() override;
  // Set, and this is the first sub-step of a frame or the geometry changed in this step.
  bool IsDirty() const override;
  // Pads and snaps the bounds that the subclass found.
  void ComputeBounds() override;
  bool PrepareGrid() override;
  std::int64_t DerivedBytes() const override { return levelSet_ ? levelSet_->MemorySize() : 0; }
  void AppendVolumes(std::vector<VolumeBase*>& out) override { out.push_back(this); }

  // A cache records the level set and gives it back; its depth isn't recorded, but found anew from the distances.
  int CachedGridCount() const override { return 1; }
  ScalarGrid* CachedGrid(int) override { return levelSet_.get(); }
  void TakeCacheHeader(const GridCacheHeader& header) override;
  void CacheLoaded() override;

  // --- the level set
  bool HasLevelSet() const { return levelSet_ != nullptr; }
  const ScalarGrid* LevelSet() const override { return levelSet_.get(); }
  ScalarGrid* LevelSet() override { return levelSet_.get(); }
  const LevelSetView& View() const { return view_; }
  std::uint64_t LevelSetVersion() const override { return levelSetVersion_; }
  void LevelSetChanged() override { ++levelSetVersion_; }
  // The largest interior distance, m; none when no node is inside.
  std::optional<double> MaximumDepth() const;

  double SampleGrid(const Vec3D& p) const { return view_.HasData() ? view_.Sample(p) : 0; }
  double SampleLocal(const Vec3D& p) const { return view_.HasData() ? view_.Sample(view_.IndexOfLocal(p)) : 0; }
  double SampleWorld(const Vec3D& p) const { return view_.HasData() ? view_.Sample(view_.IndexOfWorld(p)) : 0; }
  bool InBox(const Vec3D& p) const { return view_.HasData() && view_.InBox(p); }
  bool InsideWorld(const Vec3D& p, double iso = 0) const { return HasLevelSet() && IsNegative(SampleWorld(p), iso); }
  // The distance as a share of the largest interior one: 1 at the deepest node; 0 without an inside.
  double DepthWorld(const Vec3D& p) const { return DepthOf(SampleWorld(p)); }
  Vec3D NormalGrid(const Vec3D& p) const { return view_.HasData() ? view_.Normal(p) : Vec3D(); }
  Vec3D NormalLocal(const Vec3D& p) const { return view_.HasData() ? view_.Normal(view_.IndexOfLocal(p)) : Vec3D(); }

  // Moves a point from inside to the surface, to where the distance is -offset cells. world: p in simulation space, not
  // relative to the grid. True when the point was inside.
  bool PushOut(Vec3D& p, bool world, double offset) const;
  // The same for a point in lattice space, which stays; gives the place and the unit normal.
  bool PushOutNormal(const Vec3D& p, Vec3D& place, Vec3D& normal, double offset) const;
  // In lattice space. True when the point is inside.
  bool Collide(const Vec3D& p, VolumeHit& hit, double iso) const;

  // --- the body
  bool IsObstacle() const { return hasRigidBody_; }
  bool IsDynamicBody() const { return HasBody(BodyType::Dynamic); }
  bool IsDrivenBody() const { return HasBody(BodyType::Driven); }
  bool IsStaticBody() const { return HasBody(BodyType::Static); }
  // Null on a volume that is no obstacle.
  RigidBody_Variational* Body() const { return hasRigidBody_ ? rigidBody_.get() : nullptr; }
  // Makes the body, where there is none yet and the volume has a mesh.
  virtual bool EnsureBody() { return false; }
  // What the rigid world takes of the body in this sub-step.
  virtual RigidEntry BodyEntry() { return rigidBody_->Entry({}, 1); }
  // The pressure's impulse and angular impulse of this sub-step (N s, N m s) on a dynamic body, whose motion from then
  // on is what the fluid sees.
  void TakeImpulse(const Vec3D& impulse, const Vec3D& angularImpulse);
  // Place and axes of the body, simulation space; without a body of its own it turns about the place.
  virtual LMatrix BodyMatrix() const { return {centre, {1, 0, 0}, {0, 1, 0}, {0, 0, 1}}; }
  // What it turns about.
  Vec3D BodyCentre() const {
    return IsDynamicBody() && rigidBody_->HasBody() ? rigidBody_->state.pose.off : BodyMatrix().off;
  }
  // The motion in this sub-step: displacement (m) and rotation vector (rad) with the body's factors. Over the
  // sub-step's duration they are velocities.
  Vec3D LinearMotion() const;
  Vec3D AngularMotion() const;
  // The displacement of the solid at p in this sub-step, m.
  Vec3D MotionAt(const Vec3D& p) const { return LinearMotion() + Cross(AngularMotion(), p - BodyCentre()); }
  // m/s; 0 in a sub-step without a duration.
  Vec3D VelocityAt(const Vec3D& p) const;

 protected:
  // Gives the level set this lattice; its content stays when it has it already. Throws std::bad_alloc.
  void SetLattice(const VecInt3D& cells, const Vec3D& hostSize, float cell, const Vec3D& hostOrigin);
  void FreeLevelSet();
  // What the Obstacle tag makes of the volume.
  void ReadObstacleTag();
  // From bounds that lie on the scene's lattice: all else that describes the box.
  void TakeBounds();

  VolumeVoxeliser voxeliser_;
  ObjectMotion objectMotion_;
  std::unique_ptr<RigidBody_Variational> rigidBody_;
  bool hasRigidBody_ = false;
  bool hiddenFromLevelSets_ = false;
  bool flipSign_ = false;
  Vec3D padding_{2.0};             // cells
  std::optional<double> deepest_;  // the largest interior distance of a level set that isn't voxelised

 private:
  // Of the solid's largest interior distance, how thick the wall is that the level set holds; 1 without a hollow.
  virtual double ShellShare() const { return 1; }
  static bool IsNegative(double distance, double iso) { return static_cast<float>(distance - iso) < 0; }
  double DepthOf(double distance) const {
    const auto deepest = MaximumDepth();
    return deepest ? std::abs(distance) / *deepest : 0;
  }
  double MotionShare() const;
  bool HasBody(BodyType type) const { return hasRigidBody_ && rigidBody_->bodyType() == type; }

  std::unique_ptr<ScalarGrid> levelSet_;
  LevelSetView view_;
  std::uint64_t levelSetVersion_ = 0;
};

// Every enabled obstacle of the scene that may be asked for its level set, in tree order.
std::vector<VolumeBase*> CollectObstacles(const OrlixScene& scene);

}  // namespace orlix
