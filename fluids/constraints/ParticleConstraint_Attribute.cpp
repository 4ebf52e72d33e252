#include "fluids/constraints/ParticleConstraint_Attribute.h"

#include "fluids/constraints/ConstraintAdvice.h"
#include "fluids/particles/OrlixParticle.h"

namespace orlix {

namespace {

constexpr Choice kBits[] = {
    {0, "alive", "Not yet marked as dead"},
    {1, "sorted", "Inside the container of a liquid"},
    {2, "collided", "Has hit something in this frame"},
    {3, "inserted", "Was added to a thin sheet"},
    {4, "excluded", "Was shut out by the constraints of the operator at work"},
    {5, "spawned", "Has spawned others, or was spawned"},
    {6, "passive", "Of the passive kind"},
    {7, "liquid", "Of the liquid kind"},
    {8, "vorticity", "Of the vorticity kind"},
    {9, "diffuse", "Of the diffuse kind"},
    {10, "ballistic", "Moves ballistically"},
    {11, "drag", "Is dragged by the fluid"},
};

constexpr Parameter kParameters[] = {
    ChoiceParameter(1000, "attribute", 2, kBits, "The state that a particle must be in"),
};
constexpr std::int32_t kLastBit = 15;

}  // namespace

const TypeInfo& ParticleConstraint_Attribute::Type() {
  static const TypeInfo kType = {
      .id = 1300092,
      .resource = "zq_constraint_particle_collision",
      .className = "C4D_Constraint_Particle_Attribute_Object",
      .label = "PCS::Attribute",
      .text = "Acts on particles that are in a state, or that aren't.",
      .kinds = kLinkHelper | kLinkConstraint,
      .parameters = kParameters,
      .common = ConstraintParameters(),
  };
  return kType;
}

bool ParticleConstraint_Attribute::ReadParameters() {
  if (!Constraint::ReadParameters()) return false;
  bit_ = std::clamp(handler.GetChoice(1000), 0, kLastBit);
  return true;
}

void ParticleConstraint_Attribute::Advise() { AdviseListsOfCells(*this); }

bool ParticleConstraint_Attribute::EvaluateParticle(const Vec3D& position, double& amount, const iBase* caller,
                                                    std::int32_t threadIndex, const OrlixParticle* particle) const {
  if (!particle || !*particle) return true;
  const bool set = ((particle->GetFlags() >> bit_ & 1) != 0) != Inverted();
  if (!set) amount = 0;
  Constraint::Evaluate(position, amount, caller, threadIndex);
  return set;
}

}  // namespace orlix
