#pragma once
// Scales by procedural noise in space and time.

#include <optional>

#include "fluids/constraints/Constraint.h"
#include "host/noise/Noise.h"

namespace orlix {

class NoiseConstraint final : public Constraint {
 public:
  using Constraint::Constraint;
  static constexpr int kFeatureSizeId = 1001, kRelativeScaleId = 1002, kOctavesId = 1003, kNoiseTypeId = 1004,
                       kContrastId = 1005, kSpeedId = 1006, kBrightnessId = 1007, kSeedId = 1008, kLowClipId = 1010,
                       kHighClipId = 1011, kAbsoluteId = 1012, kDetailId = 1013, kRadiusId = 1014;
  static const TypeInfo& Type();
  std::int32_t GetNodeSubType() const override { return 20; }
  bool ReadParameters() override;

  // Sampling changes nothing in the noise, so that one serves all callers and workers.
  void Prepare(const iBase* caller) override;
  bool Evaluate(const Vec3D& position, double& amount, const iBase* caller, std::int32_t threadIndex) const override;
  void EvaluateRow(const ConstraintRow& row, const iBase* caller) const override;
  std::unique_ptr<Constraint> Clone() const override { return CloneOf(*this); }

 private:
  Vec3D NoisePoint(const Vec3D& position) const {
    return (position * hostPerSim_ + hostMin_) * inverseScale_ + origin_;
  }
  // Scales amount by what a noise value stands for. False where the chain ends.
  bool Apply(double noise, double& amount) const;

  std::optional<Noise> noise_;
  NoiseType type_ = NoiseType::Gradient;
  NoiseArguments arguments_;
  std::uint32_t seed_ = 0;
  double scale_ = 0, contrast_ = 1, speed_ = 0, brightness_ = 0, lowClip_ = 0, highClip_ = 1;
  Vec3D scaleVector_, inverseScale_, origin_, hostPerSim_, hostMin_;
};

}  // namespace orlix
