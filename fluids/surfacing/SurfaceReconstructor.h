#pragma once
// A level set from particles, for a mesh of a liquid that is finer than the solver's cells: PointsToImplicitGrid of a
// group's kind, or of an object's points. Made in stage 20, and kept until it is made again.

#include "fluids/constraints/Constraint.h"
#include "fluids/level_sets/iLevelSet.h"
#include "fluids/liquids/WaterSolver.h"
#include "fluids/particles/AnisotropyPass.h"
#include "fluids/scene/iCachedGrids.h"
#include "fluids/surfacing/PointsToImplicitGrid.h"

namespace orlix {

class SurfaceReconstructor final : public iObject, public iLevelSet, public iCachedGrids {
 public:
  static constexpr std::int32_t kSubType = 84;
  static constexpr int kRenderOnlyId = 1000, kSourceId = 1001, kKindId = 1002, kSolverId = 1003, kSolidOffsetId = 1004,
                       kMethodId = 1005, kMinNeighboursId = 1006, kMaxNeighboursId = 1007, kRadiusScaleId = 1008,
                       kRadiusFactorId = 1009, kDensityThresholdId = 1010, kUseMassRatioId = 1012, kFilterId = 1013,
                       kMaxRatioId = 1014, kStretchModeId = 1015, kVelocityStretchId = 1016, kSubdivisionId = 1017,
                       kDensityCorrectionId = 1021, kLowerDensityId = 1022, kUpperDensityId = 1023, kKernelId = 1024,
                       kUseCentresId = 1026, kStretchId = 1030, kBallReachId = 1031;
  // Where the stretch of the particles' balls comes from.
  enum class Stretch { Stored, Computed };

  SurfaceReconstructor(BaseList2D* hostObject, OrlixScene& owner);
  static const TypeInfo& Type();

  std::int32_t GetNodeBaseType() const override { return NODE_VOLUME; }
  std::int32_t GetNodeSubType() const override { return kSubType; }
  bool RunsSerially() const override { return true; }
  bool EvaluatesOnUpdate() const override { return true; }
  bool ReadParameters() override;
  bool ResolveLinks() override;
  void ReleaseLinks() override;
  void Advise() override;
  void Conclude() override;
  void CheckDirty() override;
  void ResetSimulation() override;
  void ClearState(bool deactivate) override;
  void Prepare(iBase* caller = nullptr) override;
  void Process(ProcessData& data) override;
  void Finish() override;
  void VisitOutputs(StateVisitor&) override {}  // holds the largest distance where no particle is near, not NaN
  std::int64_t DerivedBytes() const override { return levelSet_ ? levelSet_->MemorySize() : 0; }

  const ScalarGrid* LevelSet() const override { return levelSet_.get(); }
  ScalarGrid* LevelSet() override { return levelSet_.get(); }
  std::uint64_t LevelSetVersion() const override { return version_; }
  void LevelSetChanged() override { ++version_; }
  bool ForecastBox(Vec3D& min, Vec3D& max) const override;
  MemoryNeed MemoryFor(const VecInt3D& cells) const override;
  int CachedGridCount() const override { return 1; }
  ScalarGrid* CachedGrid(int) override { return levelSet_.get(); }
  void TakeCacheHeader(const GridCacheHeader& header) override;
  void CacheLoaded() override { LevelSetChanged(); }
  // Trilinear, at coordinates of the grid; 0 without one.
  double SampleGrid(const Vec3D& index) const;

 private:
  static std::span<const Parameter> Parameters();
  bool ReadHostPoints();
  void TagParticles();
  void TagChunk(const ParticleRows& rows);
  void CollectPlaces();
  void CollectRatios();
  void CollectBalls();
  Vec3D Padding() const;  // around the particles, m
  bool MakeGrid();
  bool TakeLattice(const GridSpace& wanted);
  void FreeLevelSet();

  ReconstructionSettings settings_;
  AnisotropySettings anisotropy_;
  Stretch stretch_ = Stretch::Stored;
  std::int32_t kind_ = PK_Liquid;
  double subdivision_ = 1, solidOffset_ = 0, densityThreshold_ = 0;
  bool renderOnly_ = false, filter_ = false, useCentres_ = false;

  // Between ResolveLinks and ReleaseLinks.
  ParticleGroup* group_ = nullptr;
  BaseObject* hostPoints_ = nullptr;
  WaterSolver* solver_ = nullptr;
  Kernel* kernel_ = nullptr;
  std::vector<Constraint*> constraints_;

  // Between Prepare and Finish.
  ParticleList ownPoints_;  // of the host's object
  ParticleList* list_ = nullptr;
  CountedVector<Vec3D> places_;  // not finite for what is left out
  CountedVector<double> ratios_;
  CountedVector<StretchedBall> balls_;

  std::unique_ptr<ScalarGrid> levelSet_;
  std::uint64_t version_ = 0;
  bool everMade_ = false;
};

}  // namespace orlix
