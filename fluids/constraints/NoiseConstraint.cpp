#include "fluids/constraints/NoiseConstraint.h"

#include <algorithm>

namespace orlix {

namespace {

constexpr std::uint32_t kSeedOffset = 920111;
constexpr int kBlock = 128;  // cells that are sampled at once

constexpr auto kNoiseChoices = NoiseTypeChoices<Choice>();

double Limited(double v) { return v > 0 ? (v < 1 ? v : 1) : 0; }

}  // namespace

const TypeInfo& NoiseConstraint::Type() {
  static constexpr Parameter kParameters[] = {
      FloatParameter(kFeatureSizeId, "feature_size", 1.0, "host units", "Size of the features").Above(0),
      VectorParameter(kRelativeScaleId, "relative_scale", {1, 1, 1}, "", "Factors of the size along the axes"),
      IntParameter(kOctavesId, "octaves", 3, "", "Layers of finer and finer detail").Between(1, Noise::kMaxOctaves),
      ChoiceParameter(kNoiseTypeId, "noise_type", NoiseType::Gradient, kNoiseChoices, "Kind of noise"),
      FloatParameter(kContrastId, "contrast", 1.0, "", "Spreads the values from their middle"),
      FloatParameter(kSpeedId, "speed", 0, "1/s", "How fast the pattern changes; 0 keeps it"),
      FloatParameter(kBrightnessId, "brightness", 0, "", "Added to the values").Fallback(1.0),
      IntParameter(kSeedId, "seed", 0, "", "Another seed, another pattern"),
      IntParameter(1009, "variant", 0, "", "Kept, without effect").Hidden(),
      FloatParameter(kLowClipId, "low_clip", 0, "", "Values up to here count as 0"),
      FloatParameter(kHighClipId, "high_clip", 1.0, "", "Values from here on count as 1"),
      BoolParameter(kAbsoluteId, "absolute", false, "Folds the noise about its middle: creases").Fallback(1.0),
      FloatParameter(kDetailId, "detail", 1.0, "", "How much of the finer layers is kept").Between(0, 1),
      FloatParameter(kRadiusId, "radius", 1.0, "", "Width of a sample: a wider one loses detail faster").Min(0),
  };
  static const TypeInfo kType = {
      .id = 1300020,
      .resource = "zq_constraint_noise",
      .className = "C4D_Constraint_Noise_Object",
      .label = "CS::Noise",
      .text = "Acts by procedural noise: irregular in space and, with a speed, in time.",
      .kinds = kLinkHelper | kLinkConstraint,
      .parameters = kParameters,
      .common = ConstraintParameters(),
  };
  return kType;
}

bool NoiseConstraint::ReadParameters() {
  if (!Constraint::ReadParameters()) return false;
  scale_ = handler.GetDouble(kFeatureSizeId);
  scaleVector_ = handler.GetVector(kRelativeScaleId) * scale_;
  arguments_.octaves = handler.GetInt(kOctavesId);
  type_ = NoiseTypeOf(handler.GetChoice(kNoiseTypeId));
  contrast_ = handler.GetDouble(kContrastId);
  speed_ = handler.GetDouble(kSpeedId);
  brightness_ = handler.GetDouble(kBrightnessId);
  seed_ = static_cast<std::uint32_t>(handler.GetInt(kSeedId)) + kSeedOffset;
  lowClip_ = handler.GetDouble(kLowClipId);
  highClip_ = handler.GetDouble(kHighClipId);
  arguments_.absolute = handler.GetBool(kAbsoluteId);
  arguments_.detailAttenuation = handler.GetDouble(kDetailId);
  arguments_.sampleRadius = handler.GetDouble(kRadiusId);
  return true;
}

void NoiseConstraint::Prepare(const iBase*) {
  noise_.emplace(seed_);
  if (type_ == NoiseType::Fbm || type_ == NoiseType::RidgedMultifractal || type_ == NoiseType::Warped ||
      type_ == NoiseType::Cellular) {
    noise_->SetUpFractal(Noise::kMaxOctaves, 0.77, 1.0);
  }
  arguments_.time = simulationInfo->time * speed_;
  inverseScale_ = Vec3D(1, 1, 1) / scaleVector_;
  origin_ = handler.GetMatrix().off;
  hostPerSim_ = GetSimulationSpace().hostPerSim;
  hostMin_ = GetSimulationSpace().hostMin;
}

bool NoiseConstraint::Apply(double n, double& amount) const {
  if (n > 0) {
    if (highClip_ == lowClip_)
      n = 1;
    else
      n = n <= lowClip_ ? 0 : n >= highClip_ ? 1 : (n - lowClip_) / (highClip_ - lowClip_);
    n = (Limited(n + brightness_) - 0.5) * contrast_ + 0.5;
  }
  if (!(n > 0)) {
    amount = 0;
    return false;
  }
  n = Limited(n);
  amount *= (Inverted() ? 1 - n : n) * intensity;
  return true;
}

bool NoiseConstraint::Evaluate(const Vec3D& position, double& amount, const iBase*, std::int32_t) const {
  if (!noise_ || !(scale_ > 0)) return true;
  return Apply(noise_->Sample(type_, NoisePoint(position), arguments_), amount);
}

void NoiseConstraint::EvaluateRow(const ConstraintRow& row, const iBase*) const {
  if (!noise_ || !(scale_ > 0)) return;
  const Vec3D step{row.space->simPerVoxel.x * hostPerSim_.x * inverseScale_.x, 0, 0};
  double noise[kBlock];
  for (std::int32_t from = row.begin; from < row.end; from += kBlock) {
    const std::int32_t to = std::min(from + kBlock, row.end);
    if (std::all_of(row.open + from, row.open + to, [](std::uint8_t open) { return open == 0; })) continue;
    noise_->SampleRow(type_, NoisePoint(row.Position(from)), step, arguments_,
                      {noise, static_cast<std::size_t>(to - from)});
    for (std::int32_t i = from; i < to; ++i) {
      if (row.open[i]) row.open[i] = Apply(noise[i - from], row.amounts[i]);
    }
  }
}

}  // namespace orlix
