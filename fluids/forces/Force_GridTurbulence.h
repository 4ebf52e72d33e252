#pragma once
// Small swirls from vorticity particles: each pushes the cells about it, and the flow stretches it.

#include "fluids/forces/ConstrainedForce.h"
#include "fluids/forces/VortexParticles.h"
#include "fluids/particles/ParticleGroup.h"

namespace orlix {

class Force_GridTurbulence final : public ConstrainedForce {
 public:
  using ConstrainedForce::ConstrainedForce;
  static constexpr int kGroupId = 1000, kStrengthId = 1002, kRadiusId = 1004, kMinVorticityId = 1005,
                       kMaxVorticityId = 1006, kKernelModeId = 1007, kKernelRadiusFactorId = 1008,
                       kFalloffCurveId = 1009, kKernelId = 1011, kForceDurationId = 1013, kAlongFlowId = 1015;
  static const TypeInfo& Type();
  std::int32_t GetNodeSubType() const override { return 32; }
  bool ReadParameters() override;
  bool ResolveLinks() override;
  void ReleaseLinks() override;
  void Advise() override;
  void Conclude() override;
  void Prepare(iBase* caller = nullptr) override;
  void ProcessRow(const ForceRow& row) override;
  void Finish() override;

 protected:
  Duration* FindDuration() const override { return DurationOf(kForceDurationId); }

 private:
  void StretchAll(const StretchField& field);
  void TakeSources(const StretchField& field);

  ParticleGroup* group_ = nullptr;
  const Kernel* kernelNode_ = nullptr;
  KernelBase kernel_;  // the force's own
  double strength_ = 0, radius_ = 0;
  double leastVorticity_ = 0, mostVorticity_ = 0;  // 1/s
  double kernelRadiusFactor_ = 1;
  bool alongFlow_ = false;

  // From Prepare to Finish.
  ParticleLines lines_;
  CountedVector<SwirlSource> sources_;  // of each entry of the lines
  SwirlInput input_;
  // Since the run began.
  bool acted_ = false, hadSources_ = false;
};

}  // namespace orlix
