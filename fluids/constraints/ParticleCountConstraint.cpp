#include "fluids/constraints/ParticleCountConstraint.h"

#include "fluids/constraints/ConstraintAdvice.h"
#include "fluids/particles/KindChoices.h"

namespace orlix {

namespace {

constexpr std::int32_t kMostCounted = 100000;

constexpr Parameter kParameters[] = {
    LinkParameter(1000, "group", kLinkParticles, "The particles that are counted"),
    FloatParameter(1001, "radius", 1.0, "cells", "Within which they are counted").Min(0),
    ChoiceParameter(1003, "kind", PK_Liquid, kParticleKindChoices, "Kind of the particles"),
    IntParameter(1004, "max_count", 5, "", "Particles that give the whole strength").Between(0, kMostCounted),
    IntParameter(1005, "min_count", 0, "", "Up to so many particles give no strength").Between(0, kMostCounted),
    BoolParameter(1006, "ramp", true, "The strength rises from min_count to max_count; off: whole above min_count"),
    BoolParameter(1007, "keep_above_max", true, "More than max_count count as max_count; off: as min_count"),
};

}  // namespace

const TypeInfo& ParticleCountConstraint::Type() {
  static const TypeInfo kType = {
      .id = 1300091,
      .resource = "zq_constraint_particlecount",
      .className = "C4D_Constraint_ParticleCount_Object",
      .label = "CS::Particle Count",
      .text = "Acts where there are many particles.",
      .kinds = kLinkHelper | kLinkConstraint,
      .parameters = kParameters,
      .common = ConstraintParameters(),
  };
  return kType;
}

bool ParticleCountConstraint::ReadParameters() {
  if (!Constraint::ReadParameters()) return false;
  radius_ = handler.GetDouble(1001) * GetSimulationSpace().cellSize;
  kind_ = KindOrLiquid(handler.GetChoice(1003));
  maxCount_ = std::clamp(handler.GetInt(1004), 0, kMostCounted);
  minCount_ = std::clamp(handler.GetInt(1005), 0, kMostCounted);
  ramp_ = handler.GetBool(1006);
  keepAboveMax_ = handler.GetBool(1007);
  return true;
}

bool ParticleCountConstraint::ResolveLinks() {
  group_ = nullptr;
  if (!Constraint::ResolveLinks()) return false;
  group_ = scene->RetrieveAs<ParticleGroup>(handler.GetLink(1000), NODE_PARTICLES);
  return group_ != nullptr;
}

void ParticleCountConstraint::ReleaseLinks() {
  group_ = nullptr;
  Constraint::ReleaseLinks();
}

void ParticleCountConstraint::Advise() { AdviseMissingLink(*this, group_, "group"); }

void ParticleCountConstraint::Prepare(const iBase*) {
  // A query must be able to give one more than the most that is told apart.
  if (group_) group_->EnsureTree(kind_, false, std::max(ParticleKdTree::kDefaultNeighbours, maxCount_ + 1));
}

double ParticleCountConstraint::FactorOf(std::int32_t count) const {
  if (count > maxCount_) count = keepAboveMax_ ? maxCount_ : minCount_;
  if (count <= minCount_) return 0;
  return ramp_ ? double(count - minCount_) / (maxCount_ - minCount_) : 1;
}

bool ParticleCountConstraint::Evaluate(const Vec3D& position, double& amount, const iBase* caller,
                                       std::int32_t threadIndex) const {
  if (!group_) return true;
  const double f = FactorOf(group_->NearestCount(kind_, position, radius_, threadIndex));
  amount *= Inverted() ? 1 - f : f;
  return amount != 0 && Constraint::Evaluate(position, amount, caller, threadIndex);
}

}  // namespace orlix
