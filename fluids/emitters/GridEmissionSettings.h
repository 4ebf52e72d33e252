#pragma once
// How much an emitter puts into a channel, when, and in which way.

#include "fluids/emitters/EmissionHandler.h"
#include "fluids/emitters/EmissionRate.h"
#include "fluids/helpers/Duration.h"
#include "fluids/scene/iEmissionSettings.h"

namespace orlix {

class GridEmissionSettings final : public iEmissionSettings {
 public:
  enum class Falloff : std::int32_t { None = 0, Depth = 1, DepthCurve = 2 };

  using iEmissionSettings::iEmissionSettings;
  static constexpr int kModeId = 1000, kPerStepId = 1001, kRateId = 1002, kLimitId = 1003, kActiveInId = 1004,
                       kFalloffCurveId = 1005, kFalloffId = 1006, kSpreadId = 1012, kValueId = 1013,
                       kVectorValueId = 1014, kShowVectorId = 1015;
  static const TypeInfo& Type();
  std::int32_t GetNodeSubType() const override { return 10; }
  bool ReadParameters() override;
  bool ResolveLinks() override;
  void Advise() override;
  void ReleaseLinks() override;

  // The amount of a place: the sub-step's dt (s), or 1 when amounts are given per sub-step.
  double BaseAmount(double dt) const { return perStep ? 1.0 : dt; }
  // Per unit of that amount; the rate's, where one is linked.
  double Value() const { return amountRate_ ? amountRate_->scalarRate : value; }
  Vec3D VectorValue() const { return amountRate_ ? amountRate_->vectorRate : vectorValue; }
  // What a channel's writer needs.
  GridEmission Emission() const;
  // The factor of the amount at a depth in the volume, 0 at its surface to 1 at its deepest place.
  double FalloffFactor(double depth, double weight) const;

  EmissionMode mode = EmissionMode::Add;
  Falloff falloff = Falloff::None;
  bool perStep = false;
  bool spread = false;
  double value = 1;
  Vec3D vectorValue{1, 1, 1};
  const SplineData* curve = nullptr;  // not owned

  // Between ResolveLinks and ReleaseLinks.
  const EmissionRate* limit = nullptr;
  const Duration* duration = nullptr;

 protected:
  std::int32_t RateLinkId() const override;

 private:
  const EmissionRate* amountRate_ = nullptr;  // rate
};

}  // namespace orlix
