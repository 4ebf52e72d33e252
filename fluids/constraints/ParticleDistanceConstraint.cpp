#include "fluids/constraints/ParticleDistanceConstraint.h"

#include "fluids/constraints/ConstraintAdvice.h"
#include "fluids/particles/KindChoices.h"

namespace orlix {

namespace {

constexpr Parameter kParameters[] = {
    LinkParameter(1000, "group", kLinkParticles, "The particles from which the distance is measured"),
    FloatParameter(1001, "distance", 100.0, "cells", "Where the strength has fallen to 0").Min(0),
    ChoiceParameter(1003, "kind", PK_Liquid, kParticleKindChoices, "Kind of the particles"),
};

}  // namespace

const TypeInfo& ParticleDistanceConstraint::Type() {
  static const TypeInfo kType = {
      .id = 1300090,
      .resource = "zq_constraint_particledistance",
      .className = "C4D_Constraint_ParticleDistance_Object",
      .label = "CS::Particle Distance",
      .text = "Acts near particles and falls off with the distance.",
      .kinds = kLinkHelper | kLinkConstraint,
      .parameters = kParameters,
      .common = ConstraintParameters(),
  };
  return kType;
}

bool ParticleDistanceConstraint::ReadParameters() {
  if (!Constraint::ReadParameters()) return false;
  distance_ = handler.GetDouble(1001) * GetSimulationSpace().cellSize;
  kind_ = KindOrLiquid(handler.GetChoice(1003));
  return true;
}

bool ParticleDistanceConstraint::ResolveLinks() {
  group_ = nullptr;
  if (!Constraint::ResolveLinks()) return false;
  group_ = scene->RetrieveAs<ParticleGroup>(handler.GetLink(1000), NODE_PARTICLES);
  return group_ != nullptr;
}

void ParticleDistanceConstraint::ReleaseLinks() {
  group_ = nullptr;
  Constraint::ReleaseLinks();
}

void ParticleDistanceConstraint::Advise() { AdviseMissingLink(*this, group_, "group"); }

void ParticleDistanceConstraint::Prepare(const iBase*) {
  if (group_) group_->EnsureTree(kind_, false, 0);
}

bool ParticleDistanceConstraint::Evaluate(const Vec3D& position, double& amount, const iBase* caller,
                                          std::int32_t threadIndex) const {
  if (!group_) return true;
  const double nearest = group_->NearestDistance(kind_, position, distance_, threadIndex);
  const double t = nearest < distance_ ? nearest / distance_ : 1.0;
  amount *= Inverted() ? t : 1 - t;
  return amount != 0 && Constraint::Evaluate(position, amount, caller, threadIndex);
}

}  // namespace orlix
