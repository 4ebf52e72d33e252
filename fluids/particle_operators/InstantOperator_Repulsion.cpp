#include "fluids/particle_operators/InstantOperator_Repulsion.h"

namespace orlix {

namespace {

constexpr Parameter kParameters[] = {
    FloatParameter(1000, "bounce", 0.5, "", "Share of the motion into the surface that is taken away; 2 turns it round")
        .Fallback(0.2),
    LinkParameter(1001, "act_in", kLinkDuration, "When the operator acts"),
    BoolParameter(1003, "positional", false, "Acts on the position instead of the velocity: for Verlet motion"),
    FloatParameter(1004, "friction", 0, "", "Share of the motion along the surface that is taken away"),
};

}  // namespace

const TypeInfo& InstantOperator_Repulsion::Type() {
  static const TypeInfo kType =
      InstantOperatorType(1300110, "zq_iop_repulsion", "C4D_InstantOperator_Repulsion", "PIOP::Repulsion",
                          "Throws particles back from what they hit, and slows them along it.", kParameters);
  return kType;
}

bool InstantOperator_Repulsion::ReadParameters() {
  priority = 0;
  if (!ConstrainedInstantOperator::ReadParameters()) return false;
  bounce_ = handler.GetDouble(1000);
  positional_ = handler.GetBool(1003);
  friction_ = handler.GetFloat(1004);
  return true;
}

void InstantOperator_Repulsion::Advise() {
  if (bounce_ == 0 && friction_ == 0) Warn("no-strength", "it changes no contact; set \"bounce\" or \"friction\"");
}

void InstantOperator_Repulsion::Apply(std::int32_t event, std::span<ParticleContact> contacts,
                                      const InstantContext& context, std::int32_t thread) {
  if (event != kContact) return;
  for (ParticleContact& contact : contacts) {
    const double weight = WeightAt(contact, context, thread);
    if (weight == 0) continue;
    const OrlixParticle particle(context.list, contact.index);
    const Vec3D u = positional_ ? contact.newPosition - contact.previousPosition : particle.GetVelocity();
    const Vec3D normal = contact.normal * Dot(u, contact.normal), along = u - normal;
    const Vec3D delta = -normal * (weight * bounce_) - along * static_cast<double>(friction_);
    if (positional_) {
      contact.position += delta;
    } else {
      particle.SetVelocity(particle.GetVelocity() + delta);
    }
    particle.AddVector(PP::ExternalForce, delta / contact.dt);
  }
}

}  // namespace orlix
