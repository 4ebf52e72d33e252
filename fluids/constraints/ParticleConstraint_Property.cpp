#include "fluids/constraints/ParticleConstraint_Property.h"

#include "fluids/constraints/ConstraintAdvice.h"
#include "fluids/helpers/Property.h"
#include "fluids/particles/OrlixParticle.h"

namespace orlix {

namespace {

constexpr Parameter kParameters[] = {
    LinkParameter(1000, "property", kLinkProperty, "A property node; its number says which property of a particle"),
    FloatParameter(1002, "low", 0, "", "Value, or length of a vector, up to which the strength is 0"),
    FloatParameter(1003, "high", 1.0, "", "Value, or length of a vector, from which on it is whole"),
    VectorParameter(1004, "vector", {1, 1, 1}, "", "Kept; nothing reads it").Hidden(),
    BoolParameter(1005, "state", true, "The value that a state must have"),
};

}  // namespace

const TypeInfo& ParticleConstraint_Property::Type() {
  static const TypeInfo kType = {
      .id = 1300093,
      .resource = "zq_constraint_particle_property",
      .className = "C4D_Constraint_Particle_Property_Object",
      .label = "PCS::Property",
      .text = "Acts on particles by the value of a property.",
      .kinds = kLinkHelper | kLinkConstraint,
      .parameters = kParameters,
      .common = ConstraintParameters(),
  };
  return kType;
}

bool ParticleConstraint_Property::ReadParameters() {
  if (!Constraint::ReadParameters()) return false;
  low_ = handler.GetDouble(1002);
  high_ = handler.GetDouble(1003);
  state_ = handler.GetBool(1005);
  return true;
}

bool ParticleConstraint_Property::ResolveLinks() {
  linked_ = false;
  if (!Constraint::ResolveLinks()) return false;
  const auto* property = scene->RetrieveAs<iProperty>(handler.GetLink(1000), NODE_PARTICLES, RETRIEVE_PROPERTY);
  if (!property) return false;
  linked_ = true;
  type_ = property->HasRetrieveType(RETRIEVE_SCALAR)   ? PropertyType::Real
          : property->HasRetrieveType(RETRIEVE_VECTOR) ? PropertyType::Vector
                                                       : PropertyType::State;
  key_ = {property->propertyId, OwnerOf(*property)};
  return true;
}

void ParticleConstraint_Property::ReleaseLinks() {
  linked_ = false;
  Constraint::ReleaseLinks();
}

void ParticleConstraint_Property::Advise() {
  AdviseMissingLink(*this, linked_ ? this : nullptr, "property");
  AdviseListsOfCells(*this);
}

double ParticleConstraint_Property::Ramp(double value) const {
  if (!(high_ > low_)) return 1;
  return std::clamp((value - low_) / (high_ - low_), 0.0, 1.0);
}

bool ParticleConstraint_Property::EvaluateParticle(const Vec3D& position, double& amount, const iBase* caller,
                                                   std::int32_t threadIndex, const OrlixParticle* particle) const {
  if (!linked_ || !particle || !*particle) return true;
  if (type_ == PropertyType::State) {
    if ((particle->GetStateOr(key_, false) == state_) != Inverted()) return true;
    amount = 0;
  } else {
    const double ramp = Ramp(type_ == PropertyType::Real ? particle->GetRealOr(key_, 1.0)
                                                         : Length(particle->GetVectorOr(key_, Vec3D(1))));
    amount *= Inverted() ? 1 - ramp : ramp;
  }
  return Constraint::Evaluate(position, amount, caller, threadIndex);
}

}  // namespace orlix
