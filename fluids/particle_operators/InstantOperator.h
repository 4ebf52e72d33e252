#pragma once
// What happens to a particle at the moment in which it meets something.

#include <span>

#include "fluids/boundary/SolidView.h"
#include "fluids/constraints/Constraint.h"
#include "fluids/helpers/Duration.h"
#include "fluids/particles/ParticleGroup.h"

namespace orlix {

// A contact of a particle: place and normal of the surface, and the motion that led there. Simulation space.
struct ParticleContact : SolidContact {
  double dt = 0;                        // s, of the motion's iteration
  Vec3D previousPosition, newPosition;  // of the particle, before contact
  std::int32_t index = 0;               // of the particle in the list
};

// Whose contacts they are.
struct InstantContext {
  ParticleGroup* group = nullptr;
  ParticleList* list = nullptr;  // of the particles' kind
  const iBase* source = nullptr;
};

class iInstantOperator : public iBase {
 public:
  enum Event : std::int32_t { kContact = 0 };

  using iBase::iBase;
  std::int32_t GetNodeBaseType() const override { return NODE_HELPER; }
  void GetRetrieveTypes(std::uint32_t& mask) const override { mask |= RetrieveBit(RETRIEVE_INSTANT); }

  // Around a pass of source, on the stage's thread. What a pass makes is there after End.
  virtual void Begin(const iBase& source) = 0;
  virtual void End() = 0;
  // Acts on particles with a contact, in the order of their indices; may move a contact's position, which the particle
  // then takes. Called by all workers at once on different particles. Events that a class doesn't know do nothing.
  virtual void Apply(std::int32_t event, std::span<ParticleContact> contacts, const InstantContext& context,
                     std::int32_t thread) = 0;
};

// The part that instant operators with a duration and constraints share.
class ConstrainedInstantOperator : public iInstantOperator {
 public:
  using iInstantOperator::iInstantOperator;
  bool ResolveLinks() override;
  void ReleaseLinks() override;
  void Begin(const iBase& source) override;
  void End() override;

 protected:
  virtual std::int32_t DurationLinkId() const = 0;
  // What the duration says of this pass.
  bool Acts() const { return weight_ != 0; }
  // What duration and constraints leave of 1 at a contact; 0: it is left alone.
  double WeightAt(const ParticleContact& contact, const InstantContext& context, std::int32_t thread) const;

 private:
  const Duration* duration_ = nullptr;
  std::vector<Constraint*> constraints_;
  double weight_ = 1;
};

// The operators of an include list, in its order; an empty one gives all of the scene.
std::vector<iInstantOperator*> RetrieveInstantOperators(const OrlixScene& scene, const C4D_InterfaceHandler& handler,
                                                        std::int32_t listId);
}  // namespace orlix
