#pragma once
// Keeps particles apart by weak springs, so that a liquid neither clumps nor thins out.

#include "fluids/dynamics/FluidSolver.h"
#include "fluids/particle_operators/ParticleCorrection.h"
#include "fluids/particle_operators/ParticleOperator.h"

namespace orlix {

class ParticleForce_Corrector final : public ParticleOperator {
 public:
  ParticleForce_Corrector(BaseList2D* object, OrlixScene& owner)
      : ParticleOperator(object, owner, kStageOperators, 0) {}
  static constexpr int kGroupId = 1000, kSolverId = 1001, kStrengthId = 1002, kKindId = 1005, kActInId = 1006,
                       kRadiusId = 1008, kPassesId = 1009, kFallbackMeanId = 1010, kSoftBoundaryId = 1011;
  static const TypeInfo& Type();
  std::int32_t GetNodeSubType() const override { return 94; }
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
  // Asks the constraints, and leaves on each particle what they gave.
  void Tag(ParticleList& list);

  CorrectionSettings settings_;
  std::int32_t kind_ = PK_Liquid, passes_ = 1;

  // Between ResolveLinks and ReleaseLinks.
  ParticleGroup* group_ = nullptr;
  const FluidSolver* solver_ = nullptr;
  const Duration* duration_ = nullptr;

  // Between Prepare and Finish.
  std::vector<VolumeBase*> volumes_;
  std::vector<double> weights_;
  std::vector<Vec3D> positions_, velocities_;
};

}  // namespace orlix
