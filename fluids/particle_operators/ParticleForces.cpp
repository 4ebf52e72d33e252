#include "fluids/particle_operators/ParticleForces.h"

#include <algorithm>

namespace orlix {

namespace {

constexpr std::int32_t kAnySubType = 2000;

}  // namespace

const TypeInfo& ParticleForces::Type() {
  static constexpr Choice kModes[] = {
      {Mode::Add, "add", "The sum is added to the target"},
      {Mode::Set, "set", "The sum becomes the target"},
  };
  static constexpr Parameter kParameters[] = {
      GroupListParameter(kGroupsId, "groups",
                         "Groups, each with the kind that acts; an empty list takes all particles of the scene"),
      ListParameter(kForcesId, "forces", kLinkForce, "Forces that act on particles; without any nothing happens"),
      IntParameter(1002, "interface_mode", 0, "", "Of the interface; nothing reads it").Hidden(),
      LinkParameter(kActInId, "act_in", kLinkDuration, "When the forces act"),
      LinkParameter(kTargetId, "target", kLinkParticles,
                    "Vector property that takes the sum; without one the velocity"),
      ChoiceParameter(kModeId, "mode", Mode::Add, kModes, "How the target takes the sum"),
      BoolParameter(kPerStepId, "per_step", true,
                    "The sum is that of a sub-step; otherwise it is divided by its length"),
  };
  static const TypeInfo kType = {
      .id = 1300127,
      .resource = "zq_particle_forces",
      .className = "C4D_Operator_ParticleForces_Object",
      .label = "POP::Forces",
      .text = "Sums forces on particles and adds the sum to their velocity, or writes it to a property.",
      .kinds = kLinkOperator,
      .parameters = kParameters,
      .common = CommonNodeParameters(),
  };
  return kType;
}

bool ParticleForces::ReadParameters() {
  if (!ParticleOperator::ReadParameters()) return false;
  sets_ = handler.GetChoice<Mode>(kModeId) == Mode::Set;
  perStep_ = handler.GetBool(kPerStepId);
  return true;
}

bool ParticleForces::ResolveLinks() {
  if (!ParticleOperator::ResolveLinks()) return false;
  constexpr std::uint32_t kAllKinds = (1u << kParticleKinds) - 1;
  groups_ = RetrieveGroups(*scene, handler, kGroupsId, kAllKinds);
  forces_.clear();
  if (const InExcludeData* list = handler.GetInExclude(kForcesId)) {
    std::vector<iBase*> found;
    scene->RetrieveAll(list, found, NODE_FORCE, RetrieveBit(RETRIEVE_PARTICLE), kAnySubType, RETRIEVE_PARTICLE, true);
    for (iBase* node : found) {
      if (auto* force = dynamic_cast<Force*>(node)) forces_.push_back(force);
    }
  }
  duration_ = LinkedDuration(kActInId);
  property_ =
      scene->RetrieveAs<iProperty>(handler.GetLink(kTargetId), NODE_PARTICLES, RETRIEVE_PROPERTY, RETRIEVE_VECTOR);
  return true;
}

void ParticleForces::ReleaseLinks() {
  groups_.clear(), forces_.clear();
  duration_ = nullptr, property_ = nullptr;
  ParticleOperator::ReleaseLinks();
}

void ParticleForces::Advise() {
  if (forces_.empty()) {
    Warn("no-forces", "it pushes nothing; list forces that act on particles under \"forces\"");
  }
  if (groups_.empty()) Warn("no-group", "there are no particles to push; add a particle group");
  if (handler.GetLink(kTargetId) && !property_) {
    Warn("no-target", "its target is no vector property, so it pushes the velocity; link a vector property");
  }
}

void ParticleForces::Prepare(iBase*) {
  SetFlag(NodeActive, false);
  weight_ = DurationWeight(duration_, simulationInfo->time);
  // What a cache plays keeps its places and velocities.
  const bool pushes = !property_ || property_->propertyId == PP::Velocity || property_->propertyId == PP::Position;
  std::erase_if(groups_, [&](const GroupEntry& entry) {
    return entry.group->Count(entry.kind) == 0 || (pushes && entry.group->KindIsKept(entry.kind));
  });
  if (weight_ == 0 || groups_.empty() || forces_.empty()) return;
  PrepareConstraints();
  for (Force* force : forces_) {
    if (force->IsEnabled()) force->PrepareParticles(this);
  }
  SetFlag(NodeActive, true);
}

void ParticleForces::Process(ProcessData&) {
  if (!IsActive()) return;
  for (const GroupEntry& entry : groups_) {
    ParticleList& list = *entry.group->list(entry.kind);
    ForRows(list, [&](const ParticleRows& rows, int worker) { Push(list, rows, worker); });
  }
}

void ParticleForces::Push(ParticleList& list, const ParticleRows& rows, std::int32_t worker) const {
  constexpr std::int32_t kRun = 256;
  double weights[kRun];
  Vec3D forces[kRun];
  for (std::int32_t begin = rows.begin; begin < rows.end; begin += kRun) {
    ForceParticles run;
    run.list = &list, run.first = rows.first + begin, run.count = std::min(kRun, rows.end - begin);
    run.threadIndex = worker;
    run.positions = rows.positions() + begin, run.weights = weights, run.forces = forces;
    Weigh(list, run.first, run.count, worker, weight_, weights);
    std::fill_n(forces, run.count, Vec3D());
    for (Force* force : forces_) {
      if (force->IsEnabled()) force->ProcessParticles(run);
    }
    if (!perStep_) {
      for (std::int32_t n = 0; n < run.count; ++n) forces[n] = forces[n] / simulationInfo->substepDuration;
    }
    Write(rows, begin, run.count, weights, forces);
  }
}

void ParticleForces::Write(const ParticleRows& rows, std::int32_t begin, std::int32_t count, const double* weights,
                           const Vec3D* forces) const {
  const auto put = [&](Vec3D* target) {
    for (std::int32_t n = 0; n < count; ++n) {
      if (weights[n] != 0) target[n] = sets_ ? forces[n] : target[n] + forces[n];
    }
  };
  if (!property_ || property_->propertyId == PP::Velocity) return put(rows.EditVelocities() + begin);
  if (property_->propertyId == PP::Position) return put(rows.EditPositions() + begin);
  const auto target = rows.Property<Vec3D>({property_->propertyId, OwnerOf(*property_)});
  // Written once: workers share their cache line.
  if (!looked_.load(std::memory_order_relaxed)) looked_.store(true, std::memory_order_relaxed);
  if (!target) return;
  if (!found_.load(std::memory_order_relaxed)) found_.store(true, std::memory_order_relaxed);
  for (std::int32_t n = 0; n < count; ++n) {
    const std::int32_t row = begin + n;
    if (weights[n] != 0) target.Set(row, sets_ ? forces[n] : target.Get(row, {}) + forces[n]);
  }
}

void ParticleForces::Finish() {
  if (IsActive()) {
    for (Force* force : forces_) {
      if (force->IsEnabled()) force->Finish();
    }
  }
  ParticleOperator::Finish();
}

std::vector<ParticleGroup*> ParticleForces::WrittenGroups() const {
  std::vector<ParticleGroup*> groups;
  for (const GroupEntry& entry : groups_) {
    if (std::find(groups.begin(), groups.end(), entry.group) == groups.end()) groups.push_back(entry.group);
  }
  return groups;
}

}  // namespace orlix
