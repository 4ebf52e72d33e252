#pragma once
// Moves the particles of one kind: through the velocity of solvers, or in free flight, up to what they meet.
//
// With several solvers a particle moves, and ages, once for each.

#include "fluids/dynamics/FluidSolver.h"
#include "fluids/particle_operators/ParticleMotion.h"
#include "fluids/particle_operators/ParticleOperator.h"

namespace orlix {

class ParticleAdvection final : public ParticleOperator {
 public:
  enum class SolverMode { Only, AllBut };

  ParticleAdvection(BaseList2D* object, OrlixScene& owner)
      : ParticleOperator(object, owner, kStageAdvection, kOwnPriority) {}
  static constexpr int kGroupId = 1000, kInstantOperatorsId = 1002, kSolversId = 1004, kSolverModeId = 1007,
                       kMotionSourceId = 1008, kIntegratorId = 1009, kBallisticIntegratorId = 1010,
                       kCollisionsId = 1011, kKillInsideId = 1012, kExtraIterationsId = 1013, kKindId = 1014,
                       kCollisionRadiusId = 1015;
  static const TypeInfo& Type();
  std::int32_t GetNodeSubType() const override { return 98; }
  bool ReadParameters() override;
  bool ResolveLinks() override;
  void ReleaseLinks() override;
  void Advise() override;
  void Conclude() override { WarnWithoutKind(kGroupId, kind_); }
  void Prepare(iBase* caller = nullptr) override;
  void Process(ProcessData& data) override;
  void Finish() override;

 protected:
  std::vector<ParticleGroup*> WrittenGroups() const override;

 private:
  static constexpr std::int32_t kOwnPriority = 10;

  void RetrieveSolvers();
  void CollectObstacleViews();
  MotionField FieldOf(const FluidSolver& solver) const;
  void Pass(const MotionField& field);
  // Both always act, in the same way, on the same particles.
  bool MovesTheSame(const ParticleAdvection& other) const;
  bool ByField() const {
    return motion_.source == MotionSource::Solvers || motion_.source == MotionSource::SolversBallisticInside;
  }

  MotionSettings motion_;
  std::int32_t extraIterations_ = 0, kind_ = PK_Passive;
  bool killInside_ = true;

  // Between ResolveLinks and ReleaseLinks.
  ParticleGroup* group_ = nullptr;
  std::vector<FluidSolver*> solvers_;
  std::vector<iInstantOperator*> operators_;

  std::vector<ObstacleView> obstacles_;  // between Prepare and Finish
};

}  // namespace orlix
