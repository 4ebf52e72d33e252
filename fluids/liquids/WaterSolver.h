#pragma once
// The liquid: velocities on the staggered grid of the gas solver, carried by particles of kind liquid (FLIP, Zhu and
// Bridson 2005). ParticleAdvection nodes move the particles, forces act on the grid; without a force a liquid floats.
//
// A sub-step, by stages: 5 the boundary; 6 nodes move the particles; 7 sorting and the level set; 8 particles to faces;
// 9 forces; 10 viscosity and the projection with a free surface; 11 faces to particles; 16 the top speed.

#include "fluids/dynamics/FluidSolver.h"
#include "fluids/level_sets/ParticleToLevelset.h"
#include "fluids/liquids/FlipTransfer.h"
#include "fluids/liquids/LiquidVolume.h"
#include "fluids/liquids/VolumeKeeping.h"

namespace orlix {

class WaterSolver final : public FluidSolver {
 public:
  static constexpr int kGroupsId = 1201, kModeId = 1203, kFlipRatioId = 1204, kGatherId = 1209, kLevelSetModeId = 1210,
                       kGatherRadiusId = 1211, kLevelSetIsoId = 1212, kLevelSetMinimumId = 1214, kFollowCacheId = 1216,
                       kGatherKernelId = 1217, kKeepVolumeId = 1218, kFullCellId = 1219, kDrainId = 1220;

  WaterSolver(BaseList2D* hostObject, OrlixScene& owner);
  // "Liquid Dynamics", and the same with another interface for thick liquids.
  static const TypeInfo& Type();
  static const TypeInfo& ViscousType();

  std::int32_t GetNodeSubType() const override { return 38; }
  bool HoldsParticles(const iBase* group) const override;
  bool ReadParameters() override;
  bool ResolveLinks() override;
  void ReleaseLinks() override;
  void Advise() override;
  void Conclude() override;
  void ResetSimulation() override;
  void ClearState(bool deactivate) override;
  bool ApplyBounds(const Vec3D& min, const Vec3D& max) override;
  void AfterStep() override;
  void VisitOutputs(StateVisitor& visitor) override;
  std::int64_t DerivedBytes() const override;
  MemoryNeed MemoryFor(const VecInt3D& cells) const override;
  void AddToReport(SubstepReport& report) override;

  void SolveViscosity() override;
  void Project() override;
  const ScalarGrid* GetSurfaceGrid() const override { return levelset.grid.get(); }
  const ScalarGrid* GetSurfaceGridPrevious() const override { return levelset.grid.get(); }
  std::uint64_t DistanceRevision() const override { return surfaceRevision_; }

  std::vector<ParticleGroup*> groups;  // between ResolveLinks and ReleaseLinks
  ParticleSort sort;
  ChannelBase_Scalar levelset;  // m, negative inside; what is out of reach is huge
  ParticleToLevelset particleLevelset;
  bool gather = false;      // faces gather with a kernel instead of a splat
  double flipRatio = 0.96;  // 0 takes the grid's velocity, 1 only its change
  Gathering gathering;
  VolumeKeeping keeping;
  bool drain = false;        // particles beyond open faces of the container die
  bool followCache = false;  // particles move along with velocities that are played back

 protected:
  void ProcessStage() override;
  void ProcessPlayedStage() override;
  // Particles move, and meet walls.
  bool NeedsBoundaryInPlayback() const override { return true; }
  bool WantsDivergenceSource() const override { return keeping.rate > 0 || FluidSolver::WantsDivergenceSource(); }

 private:
  void TellOfParticles(std::int64_t inWalls);
  void TellOfOthers();
  void AdviseGravity() const;
  void TellOfMovedWalls();
  bool IsFilled(const ParticleGroup& group) const;
  void TellOfSurface(const LiquidReport& liquid);
  bool HasGrids() const;
  FlipLattice Lattice() const;
  void SortParticles(std::int32_t capacity);
  void DrainOpenFaces();
  void RebuildSurface();
  void ParticlesToGrid();
  void GridToParticles(double ratio);
  void AddVolumeCorrection();
  void MoveEmptyFaces();
  void ProjectOnce(bool again);

  std::uint64_t surfaceRevision_ = 0;
  // For what is told.
  bool hadGroups_ = false, hadParticles_ = false;
  Vec3D roomMin_, roomMax_;  // within the walls of the sub-step before
  bool hadRoom_ = false;
  std::int64_t sortedOf_ = 0;  // particles when they were sorted
  int stepsOutside_ = 0, stepsBeside_ = 0, stepsWithoutSurface_ = 0;
  std::int64_t left_ = 0;                 // drained in this sub-step
  ScratchPool::Lease<double> before_[3];  // the velocity that particles gave the faces, from stage 8 to 11
};

}  // namespace orlix
