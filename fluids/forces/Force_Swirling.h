#pragma once
// Vorticity confinement: gives back the swirls that the grid's own diffusion takes away.

#include "fluids/forces/ConstrainedForce.h"
#include "fluids/forces/VorticityKernels.h"

namespace orlix {

class Force_Swirling final : public ConstrainedForce {
 public:
  using ConstrainedForce::ConstrainedForce;
  static constexpr int kStrengthId = 1000, kForceDurationId = 1001, kRemoveMeanId = 1003, kAlongFlowId = 1004;
  static const TypeInfo& Type();
  std::int32_t GetNodeSubType() const override { return 33; }
  bool ReadParameters() override;
  void ReleaseLinks() override;
  void Prepare(iBase* caller = nullptr) override;
  void ProcessRow(const ForceRow& row) override;
  void Finish() override;

 protected:
  Duration* FindDuration() const override { return DurationOf(kForceDurationId); }

 private:
  double strength_ = 0;
  bool removeMean_ = true;
  MacComponents view_;
  Confinement terms_;
  ScratchPool::Lease<double> magnitude_;  // from Prepare to Finish
};

}  // namespace orlix
