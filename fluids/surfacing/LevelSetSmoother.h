#pragma once
// Smooths the level set of a volume or of a reconstruction in place, before others read it. What stands still is
// smoothed once: a level set that nobody made anew since is left as it is, and is restored first when the settings
// changed, so that smoothing never piles up.

#include "fluids/level_sets/iLevelSet.h"
#include "fluids/scene/OrlixScene.h"
#include "fluids/surfacing/LevelSetSmoothing.h"

namespace orlix {

class LevelSetSmoother final : public iObject {
 public:
  static constexpr int kRenderOnlyId = 1000, kSourceId = 1001, kLaplacianRoundsId = 1002, kBiharmonicRoundsId = 1003,
                       kPeriodId = 1004, kSpeedId = 1005, kCentreId = 1006, kInnerId = 1007, kOuterId = 1008,
                       kOnPlayedId = 1010;

  LevelSetSmoother(BaseList2D* hostObject, OrlixScene& owner);
  static const TypeInfo& Type();
  // Whether an object is a smoother that works on what caches play.
  static bool WorksOnPlayed(const BaseObject& object);

  std::int32_t GetNodeBaseType() const override { return NODE_OPERATOR; }
  std::int32_t GetNodeSubType() const override { return 68; }
  bool RunsSerially() const override { return true; }
  bool EvaluatesOnUpdate() const override { return true; }
  bool ReadParameters() override;
  bool ResolveLinks() override;
  void ReleaseLinks() override;
  void Advise() override;
  void CheckDirty() override;
  void ResetSimulation() override;
  void ClearState(bool deactivate) override;
  void Prepare(iBase* caller = nullptr) override;
  void Process(ProcessData& data) override;
  void Finish() override { SetFlag(NodeActive, false); }
  MemoryNeed MemoryFor(const VecInt3D& cells) const override;
  std::int64_t DerivedBytes() const override { return original_ ? original_->MemorySize() : 0; }

 private:
  bool Keep(const ScalarGrid& grid);

  SmoothingSettings settings_;
  bool renderOnly_ = false, onPlayed_ = false;

  // Between ResolveLinks and ReleaseLinks.
  iBase* sourceNode_ = nullptr;
  iLevelSet* source_ = nullptr;

  std::unique_ptr<ScalarGrid> original_;  // as it was before it was smoothed
  SmoothingSettings smoothedWith_;
  const iLevelSet* smoothed_ = nullptr;  // only compared
  std::uint64_t smoothedVersion_ = 0;
};

}  // namespace orlix
