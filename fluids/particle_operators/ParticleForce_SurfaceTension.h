#pragma once
// Pulls the particles of a liquid together at its surface.

#include "fluids/dynamics/FluidSolver.h"
#include "fluids/particle_operators/ParticleOperator.h"
#include "fluids/particle_operators/SurfaceTension.h"

namespace orlix {

class ParticleForce_SurfaceTension final : public ParticleOperator {
 public:
  enum class Method { Mean, Cohesion };

  ParticleForce_SurfaceTension(BaseList2D* object, OrlixScene& owner)
      : ParticleOperator(object, owner, kStageOperators, 20) {}
  static constexpr int kGroupId = 1000, kSolverId = 1001, kStrengthId = 1002, kRadiusId = 1005,
                       kMinimumDensityId = 1007, kMaximumDensityId = 1008, kMethodId = 1009, kKindId = 1010;
  static const TypeInfo& Type();
  std::int32_t GetNodeSubType() const override { return 104; }
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
  bool byMean_ = false;
  std::int32_t kind_ = PK_Passive;
  TensionSettings settings_;

  ParticleGroup* group_ = nullptr;  // between ResolveLinks and ReleaseLinks
  const FluidSolver* solver_ = nullptr;
  std::vector<double> weights_;  // of all particles, between Prepare and Finish
};

}  // namespace orlix
