#include "fluids/particle_operators/InstantOperator_Repulsion.h"

namespace orlix {

const TypeInfo& InstantOperator_Repulsion::Type() {
  static constexpr Parameter kParameters[] = {
      FloatParameter(
          kBounceId, "bounce", 0.5, "",
          "Share of the motion into the surface that is taken away; 2 turns it round. Particles with ballistic "
          "forces (diffuse and passive ones) get it as a force in the next step, too: 0.5 takes it, 1 turns it")
          .Fallback(0.2),
      LinkParameter(kActInId, "act_in", kLinkDuration, "When the operator acts"),
      BoolParameter(kPositionalId, "positional", false,
                    "Acts on the position instead of the velocity: for Verlet motion"),
      FloatParameter(kFrictionId, "friction", 0, "", "Share of the motion along the surface that is taken away"),
  };
  static const TypeInfo kType = {
      .id = 1300110,
      .resource = "zq_iop_repulsion",
      .className = "C4D_InstantOperator_Repulsion",
      .label = "PIOP::Repulsion",
      .text = "Throws particles back from what they hit, and slows them along it.",
      .kinds = kLinkHelper | kLinkInstantOperator,
      .parameters = kParameters,
      .common = CommonNodeParameters(),
  };
  return kType;
}

bool InstantOperator_Repulsion::ReadParameters() {
  priority = 0;
  if (!ConstrainedInstantOperator::ReadParameters()) return false;
  bounce_ = handler.GetDouble(kBounceId);
  positional_ = handler.GetBool(kPositionalId);
  friction_ = handler.GetFloat(kFrictionId);
  return true;
}

void InstantOperator_Repulsion::Advise() {
  if (bounce_ == 0 && friction_ == 0) Warn("no-strength", "it changes no contact; set \"bounce\" or \"friction\"");
}

void InstantOperator_Repulsion::Apply(std::int32_t event, std::span<ParticleContact> contacts,
                                      const InstantContext& context, std::int32_t thread) {
  if (event != kContact || !Acts()) return;
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
