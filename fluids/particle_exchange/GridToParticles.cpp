#include "fluids/particle_exchange/GridToParticles.h"

#include <algorithm>

#include "fluids/particles/KindChoices.h"
#include "fluids/particles/PropertyList.h"

namespace orlix {

const TypeInfo& GridToParticles::Type() {
  static constexpr Choice kInterpolations[] = {
      {Interpolation::Trilinear, "trilinear", "Linear between eight samples"},
      {Interpolation::Cosine, "cosine", "Smooth between eight samples"},
      {Interpolation::Cubic, "cubic", "Third order, through 64 samples"},
      {Interpolation::MonotoneCubic, "monotone_cubic", "Third order, never beyond the samples"},
      {Interpolation::QuadraticBSpline, "quadratic_bspline", "Smooth: blurs"},
  };
  static constexpr Parameter kParameters[] = {
      GroupListParameter(kGroupsId, "groups", "Particle groups, each with the kind that gets values; required"),
      LinkParameter(kSourceId, "source", kLinkChannel | kLinkVolume | kLinkSolver,
                    "What is sampled: a channel, a volume's distance in metres, or a solver's velocity in m/s"),
      LinkParameter(kActsInId, "acts_in", kLinkDuration, "When it acts; without one, always"),
      LinkParameter(kPropertyId, "property", kLinkProperty, "The property that gets the value; required"),
      ChoiceParameter(kInterpolationId, "interpolation", Interpolation::Trilinear, kInterpolations,
                      "How channels are sampled"),
  };
  static const TypeInfo kType = {
      .id = 1300138,
      .resource = "zq_particle_gridtoparticles",
      .className = "C4D_Operator_GridToParticles_Object",
      .label = "POP::Grid To ParticleData",
      .text = "Samples a channel, a velocity or a distance at particles and stores it in a property that they have.",
      .kinds = kLinkOperator,
      .parameters = kParameters,
      .common = CommonNodeParameters(),
  };
  return kType;
}

bool GridToParticles::ReadParameters() {
  if (!ParticleOperator::ReadParameters()) return false;
  interpolation_ = InterpolationOf(handler.GetChoice(kInterpolationId));
  return true;
}

bool GridToParticles::ResolveLinks() {
  const bool resolved = ParticleOperator::ResolveLinks();
  groups_ = RetrieveGroups(*scene, handler, kGroupsId, 0);
  ports_.Set(kDurationPort, LinkedDuration(kActsInId));
  property_ = scene->RetrieveAs<iProperty>(handler.GetLink(kPropertyId), NODE_PARTICLES, RETRIEVE_PROPERTY);
  ports_.Set(kPropertyPort, property_);
  if (property_) target_ = TypeOf(*property_);
  FindSource();
  return resolved;
}

// The first that the link finds decides.
void GridToParticles::FindSource() {
  const BaseList2D* link = handler.GetLink(kSourceId);
  scalarChannel_ = scene->RetrieveAs<ChannelBase_Scalar>(link, NODE_CHANNEL, RETRIEVE_SCALAR);
  vectorChannel_ = scene->RetrieveAs<ChannelBase_Vector>(link, NODE_CHANNEL, RETRIEVE_VECTOR);
  volume_ = scene->RetrieveAs<iVolume>(link, NODE_VOLUME, RETRIEVE_VOLUME);
  if (scalarChannel_) vectorChannel_ = nullptr;
  if (scalarChannel_ || vectorChannel_) volume_ = nullptr;
  auto* solver = scene->RetrieveAs<iSolver>(link, NODE_SOLVER);
  if (!scalarChannel_ && !vectorChannel_ && !volume_ && solver) {
    vectorChannel_ = dynamic_cast<ChannelBase_Vector*>(solver->Velocity());
  }
  ports_.Set(kSourcePort, scalarChannel_   ? static_cast<iBase*>(scalarChannel_)
                          : vectorChannel_ ? static_cast<iBase*>(vectorChannel_)
                                           : volume_);
}

void GridToParticles::Advise() {
  if (groups_.empty()) Warn("no-group", "no particle group is listed: nothing happens; add one to groups");
  if (!property_) Warn("no-property", "no property is linked: nothing happens; link one under property");
  if (!ports_.Get(kSourcePort)) {
    Warn("no-source", "nothing is sampled; link a channel, a volume or a solver under source");
  }
}

void GridToParticles::ReleaseLinks() {
  ports_.Clear();
  groups_.clear();
  scalarChannel_ = nullptr, vectorChannel_ = nullptr, volume_ = nullptr, property_ = nullptr;
  ParticleOperator::ReleaseLinks();
}

void GridToParticles::Prepare(iBase*) {
  SetFlag(NodeActive, false);
  weight_ = DurationWeight(dynamic_cast<const Duration*>(ports_.Get(kDurationPort)), simulationInfo->time);
  if (weight_ == 0 || groups_.empty() || !property_ || !ports_.Get(kSourcePort)) return;
  if (!PrepareSampler()) return;
  PrepareConstraints();
  SetFlag(NodeActive, true);
}

// False while the source has nothing to sample.
bool GridToParticles::PrepareSampler() {
  if (scalarChannel_) {
    const ScalarGrid* grid = scalarChannel_->GetReadGrid(0);
    if (!grid) return false;
    sampler_.SetScalar(*grid, interpolation_);
    return true;
  }
  if (vectorChannel_) {
    std::array<const ScalarGrid*, 3> grids;
    for (std::int32_t c = 0; c < 3; ++c) grids[static_cast<std::size_t>(c)] = vectorChannel_->GetReadGrid(c);
    if (!grids[0] || !grids[1] || !grids[2]) return false;
    sampler_.SetVector(grids, interpolation_);
    return true;
  }
  std::vector<VolumeBase*> members;
  volume_->AppendVolumes(members);
  std::erase_if(members, [](const VolumeBase* member) { return !member->HasLevelSet(); });
  if (members.empty()) return false;
  sampler_.SetVolumes({members.begin(), members.end()});
  return true;
}

void GridToParticles::Process(ProcessData&) {
  if (!IsActive()) return;
  for (const GroupEntry& entry : groups_) {
    ParticleList* list = entry.group->list(entry.kind);
    if (!list) continue;
    ForRows(*list, [&](const ParticleRows& rows, int worker) { ProcessRows(*list, rows, worker); });
  }
}

void GridToParticles::ProcessRows(ParticleList& list, const ParticleRows& rows, std::int32_t worker) const {
  SampledPoints points;
  double amounts[SampledPoints::kMost];
  for (std::int32_t row = rows.begin; row < rows.end; row += SampledPoints::kMost) {
    const std::int32_t count = std::min(rows.end - row, SampledPoints::kMost);
    sampler_.Sample(rows.positions() + row, count, points);
    if (!constraints_.empty()) {
      // What is left out of its constraints counts as outside.
      Weigh(list, rows.first + row, count, worker, weight_, amounts);
      for (std::int32_t n = 0; n < count; ++n) points.inside[n] &= amounts[n] != 0;
    }
    Store(rows, row, points);
  }
}

void GridToParticles::Store(const ParticleRows& rows, std::int32_t row, const SampledPoints& points) const {
  const bool vectors = sampler_.GivesVectors();
  const PropertyKey key = KeyOf(*property_);
  const auto forInside = [&](auto&& put) {
    for (std::int32_t n = 0; n < points.count; ++n) {
      if (points.inside[n]) put(row + n, n);
    }
  };
  // Written once: workers share their cache line.
  const auto note = [](std::atomic<bool>& flag) {
    if (!flag.load(std::memory_order_relaxed)) flag.store(true, std::memory_order_relaxed);
  };
  note(looked_);
  const auto has = [&](const auto& view) {
    if (view) note(found_);
    return bool(view);
  };
  const auto vectorOf = [&](std::int32_t n) { return vectors ? points.vector[n] : Vec3D(points.real[n]); };
  if (target_ == PropertyType::Vector) {
    if (key.id == PP::Velocity || key.id == PP::Position) {
      Vec3D* values = key.id == PP::Velocity ? rows.EditVelocities() : rows.EditPositions();
      found_.store(true, std::memory_order_relaxed);
      PrefetchForWriting(values + row + points.count, points.count);
      return forInside([&](std::int32_t r, std::int32_t n) { values[r] = vectorOf(n); });
    }
    const auto view = rows.Property<Vec3D>(key);
    if (has(view)) forInside([&](std::int32_t r, std::int32_t n) { view.Set(r, vectorOf(n)); });
  } else if (target_ == PropertyType::Real) {
    const auto view = rows.Property<double>(key);
    if (!has(view)) return;
    forInside(
        [&](std::int32_t r, std::int32_t n) { view.Set(r, vectors ? Length(points.vector[n]) : points.real[n]); });
  } else {
    const auto view = rows.Property<std::uint8_t>(key);
    if (!has(view)) return;
    forInside([&](std::int32_t r, std::int32_t n) {
      view.Set(r, vectors ? points.vector[n] != Vec3D() : points.real[n] != 0);
    });
  }
}

void GridToParticles::Finish() {
  if (IsActive() && MovesParticles()) {
    for (const GroupEntry& entry : groups_) entry.group->SetKindDirty(entry.kind);
  }
  ParticleOperator::Finish();
}

// Only positions and velocities are tested for values that are no numbers.
void GridToParticles::VisitOutputs(StateVisitor& visitor) {
  if (property_ && (property_->propertyId == PP::Velocity || MovesParticles())) ParticleOperator::VisitOutputs(visitor);
}

std::vector<ParticleGroup*> GridToParticles::WrittenGroups() const {
  std::vector<ParticleGroup*> groups;
  for (const GroupEntry& entry : groups_) {
    if (std::find(groups.begin(), groups.end(), entry.group) == groups.end()) groups.push_back(entry.group);
  }
  return groups;
}

}  // namespace orlix
