#include "fluids/forces/ConstrainedForce.h"

#include "fluids/channels/VelocityGridChannel.h"

namespace orlix {

bool ConstrainedForce::ResolveLinks() {
  if (!Force::ResolveLinks()) return false;
  constraints_ = RetrieveConstraints(*scene, handler);
  duration_ = FindDuration();
  return true;
}

void ConstrainedForce::ReleaseLinks() {
  constraints_.clear();
  duration_ = nullptr;
  Force::ReleaseLinks();
}

Duration* ConstrainedForce::DurationOf(std::int32_t linkId) const {
  const BaseList2D* own = handler.GetLink(linkId);
  return scene->RetrieveAs<Duration>(own ? own : handler.GetLink(kDurationLinkId), NODE_HELPER);
}

const GridSpace& ConstrainedForce::Lattice() const { return velocity_->grids[0]->space; }

bool ConstrainedForce::BeginPrepare() {
  strengthFactor_ = 1;
  const bool acts = !duration_ || !duration_->IsEnabled() || duration_->IsActive(simulationInfo->time, strengthFactor_);
  if (!acts) strengthFactor_ = 0;
  const bool hasVelocity = velocity_ && velocity_->grids[0] && velocity_->grids[1] && velocity_->grids[2];
  SetFlag(NodeActive, false);
  return acts && hasVelocity;
}

void ConstrainedForce::EndPrepare(double start) {
  for (Constraint* constraint : constraints_) constraint->Prepare(this);
  weights_.Prepare(constraints_, Lattice().dims.x, start);
  SetFlag(NodeActive, true);
}

void ConstrainedForce::Finish() {
  for (Constraint* constraint : constraints_) constraint->Finish();
  SetFlag(NodeActive, false);
}

TypeInfo ForceType(int id, const char* resource, const char* className, const char* label, const char* text,
                   std::span<const Parameter> rows) {
  TypeInfo type;
  type.id = id, type.resource = resource, type.className = className, type.label = label, type.text = text;
  type.kinds = kLinkForce;
  type.parameters = rows;
  type.common = CommonNodeParameters();
  return type;
}

}  // namespace orlix
