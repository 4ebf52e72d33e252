#include "fluids/particle_operators/InstantOperator.h"

namespace orlix {

bool ConstrainedInstantOperator::ResolveLinks() {
  if (!iInstantOperator::ResolveLinks()) return false;
  const BaseList2D* own = handler.GetLink(DurationLinkId());
  duration_ = scene->RetrieveAs<Duration>(own ? own : handler.GetLink(kDurationId), NODE_HELPER);
  constraints_ = RetrieveConstraints(*scene, handler);
  return true;
}

void ConstrainedInstantOperator::ReleaseLinks() {
  duration_ = nullptr;
  constraints_.clear();
  iInstantOperator::ReleaseLinks();
}

void ConstrainedInstantOperator::Begin(const iBase&) {
  weight_ = DurationWeight(duration_, simulationInfo->time);
  for (Constraint* constraint : constraints_) constraint->Prepare(this);
}

void ConstrainedInstantOperator::End() {
  for (Constraint* constraint : constraints_) constraint->Finish();
}

double ConstrainedInstantOperator::WeightAt(const ParticleContact& contact, const InstantContext& context,
                                            std::int32_t thread) const {
  double weight = weight_;
  if (weight != 0 && !constraints_.empty()) {
    EvaluateChain(constraints_, contact.position, weight, this, thread, OrlixParticle(context.list, contact.index));
  }
  return weight;
}

std::vector<iInstantOperator*> RetrieveInstantOperators(const OrlixScene& scene, const C4D_InterfaceHandler& handler,
                                                        std::int32_t listId) {
  constexpr std::int32_t kAnySubType = 2000;
  const InExcludeData* list = handler.GetInExclude(listId);
  if (list && list->entries.empty()) list = nullptr;
  std::vector<iBase*> found;
  scene.RetrieveAll(list, found, NODE_HELPER, RetrieveBit(RETRIEVE_INSTANT), kAnySubType, RETRIEVE_ANY, true);
  std::vector<iInstantOperator*> operators;
  for (iBase* node : found) {
    if (auto* instant = dynamic_cast<iInstantOperator*>(node)) operators.push_back(instant);
  }
  return operators;
}

}  // namespace orlix
