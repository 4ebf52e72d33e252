#pragma once
// A liquid of particles alone: after they flew for a sub-step, their places are corrected until the density about each
// is near the rest density; what they moved in all is their velocity (Macklin and Mueller 2013, "Position based
// fluids"). The groups of one node are one liquid.
//
// It wants particles that a particle advection moves ballistically by velocity Verlet, which remembers where a sub-step
// began. Stage 15; the neighbours are found once a sub-step.

#include "fluids/constraints/Constraint.h"
#include "fluids/particle_operators/ParticleMotion.h"
#include "fluids/particles/GroupList.h"
#include "fluids/position_based/PositionBasedStep.h"

namespace orlix {

class PositionBasedFluidDynamics final : public iSolver {
 public:
  static constexpr std::int32_t kSubType = 40;
  static constexpr int kGroupsId = 1000, kRadiusCellsId = 1001, kRestDensityId = 1002, kViscosityId = 1003,
                       kCollideId = 1004, kCollisionRadiusId = 1005, kRelaxationId = 1006, kSolverIterationsId = 1007,
                       kDeltaQId = 1008, kTensileStrengthId = 1009, kTensileExponentId = 1010,
                       kInstantOperatorsId = 1011, kRebuildTreeId = 1012, kVorticityStrengthId = 1013;

  using iSolver::iSolver;
  static const TypeInfo& Type();
  std::int32_t GetNodeSubType() const override { return kSubType; }
  // It divides its own work.
  bool RunsSerially() const override { return true; }
  bool ReadParameters() override;
  bool ResolveLinks() override;
  void ReleaseLinks() override;
  void Advise() override;
  void Conclude() override;
  void CheckDirty() override;
  void ResetSimulation() override;
  void Prepare(iBase* caller = nullptr) override;
  void Process(ProcessData& data) override;
  void Finish() override;
  void VisitState(StateVisitor& visitor) override;
  void VisitOutputs(StateVisitor& visitor) override;
  std::int64_t DerivedBytes() const override { return step_.Bytes(); }
  void AddToReport(SubstepReport& report) override;

  double SquaredSpeed() const override { return maxSquaredSpeed_; }
  iBase* DivergenceSource() override { return nullptr; }

  const PositionBasedStep& step() const { return step_; }

 private:
  void CollectPopulations();
  void CloseByConstraints();
  void Iterate();
  // What a chunk's rows move to, with contacts.
  void MoveRows(std::size_t population, const ParticleRows& rows, std::int32_t thread);
  bool Meets(const Vec3D& p, ParticleContact& contact) const;
  void UpdateVelocities();
  void TellOfDensity();

  PositionBasedSettings settings_;
  double restDensityRow_ = 1000;
  bool collide_ = true;
  double collisionRadius_ = 0;  // m

  // Between ResolveLinks and ReleaseLinks.
  std::vector<GroupEntry> entries_;
  std::vector<iInstantOperator*> operators_;
  std::vector<Constraint*> constraints_;

  // Between Prepare and Finish: of the entries those that have particles to move.
  std::vector<GroupEntry> active_;
  std::vector<ObstacleView> obstacles_;

  PositionBasedStep step_;  // its memory is kept
  DensityError error_;
  double maxSquaredSpeed_ = 0.001;  // m^2/s^2
  bool toldOfDensity_ = false;
};

}  // namespace orlix
