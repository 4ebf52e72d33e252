#include "fluids/forces/ConstrainedForce.h"

#include "fluids/channels/VelocityGridChannel.h"

namespace orlix {

namespace {

constexpr std::int32_t kGridEmissionSettings = 10;  // sub type
constexpr std::int32_t kSettingsDurationId = 1004;

}  // namespace

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
  return scene->RetrieveAs<Duration>(own ? own : handler.GetLink(kDurationId), NODE_HELPER);
}

Duration* ConstrainedForce::DurationOfSettings(std::int32_t settingsId, std::int32_t linkId) const {
  // The settings may resolve their own links after this node does, so their link is followed here.
  const iBase* settings = scene->Retrieve(handler.GetLink(settingsId), NODE_SETTINGS, RETRIEVE_ANY, RETRIEVE_ANY);
  const BaseList2D* theirs = settings && settings->GetNodeSubType() == kGridEmissionSettings
                                 ? settings->handler.GetLink(kSettingsDurationId)
                                 : nullptr;
  return theirs ? scene->RetrieveAs<Duration>(theirs, NODE_HELPER) : DurationOf(linkId);
}

const GridSpace& ConstrainedForce::Lattice() const { return velocity_->grids[0]->space; }

bool ConstrainedForce::TakeDuration() {
  strengthFactor_ = 1;
  const bool acts = !duration_ || !duration_->IsEnabled() || duration_->IsActive(simulationInfo->time, strengthFactor_);
  if (!acts) strengthFactor_ = 0;
  SetFlag(NodeActive, false);
  return acts;
}

bool ConstrainedForce::BeginPrepare() {
  const bool hasVelocity = velocity_ && velocity_->grids[0] && velocity_->grids[1] && velocity_->grids[2];
  return TakeDuration() && hasVelocity;
}

bool ConstrainedForce::BeginParticles() { return TakeDuration(); }

void ConstrainedForce::EndParticles() {
  for (Constraint* constraint : constraints_) constraint->Prepare(this);
  constexpr std::size_t kAll = std::size_t(ForceParticles::kMost) * WorkerPool::kMaxWorkers;
  amounts_.resize(kAll);
  open_.resize(constraints_.empty() ? 0 : kAll);
  SetFlag(NodeActive, true);
}

const double* ConstrainedForce::Amounts(const ForceParticles& run, double start) {
  const std::size_t offset = std::size_t(ForceParticles::kMost) * static_cast<std::size_t>(run.threadIndex);
  double* amounts = amounts_.data() + offset;
  for (std::int32_t n = 0; n < run.count; ++n) amounts[n] = run.weights[n] * start;
  if (constraints_.empty()) return amounts;
  if (!run.list) {
    // Places without particles.
    for (std::int32_t n = 0; n < run.count; ++n) {
      if (amounts[n] != 0) EvaluateChain(constraints_, run.positions[n], amounts[n], this, run.threadIndex);
    }
    return amounts;
  }
  std::uint8_t* open = open_.data() + offset;
  for (std::int32_t n = 0; n < run.count; ++n) open[n] = amounts[n] != 0;
  EvaluateChain(constraints_, {run.list, run.first, run.count, run.threadIndex, run.positions, amounts, open}, this);
  return amounts;
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

}  // namespace orlix
