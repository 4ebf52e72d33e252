#include "fluids/particle_exchange/ParticleToGridEmitter.h"

#include <fmt/format.h>

#include <limits>

#include "fluids/particles/PropertyList.h"
#include "host/objects/HasTrack.h"

namespace orlix {

namespace {

constexpr std::int32_t kPriority = 20, kAnySubType = 2000, kValueSubType = 91;
constexpr double kNotAsked = std::numeric_limits<double>::quiet_NaN();

}  // namespace

const TypeInfo& ParticleToGridEmitter::Type() {
  static constexpr Choice kFalloffModes[] = {
      {FalloffMode::None, "none", "All particles in the radius weigh the same"},
      {FalloffMode::Curve, "curve", "By the curve, over the distance in radii"},
  };
  static constexpr Choice kConstraintModes[] = {
      {ConstraintMode::Cell, "cell",
       "Once for each cell; those that know particles, for each particle at each cell, too"},
      {ConstraintMode::Particle, "particle", "For each particle at each cell"},
  };
  static constexpr SplineKnot kFalloff[] = {{0, 1}, {1, 0}};
  static constexpr Parameter kParameters[] = {
      LinkParameter(kGroupId, "group", kLinkParticles, "Particle group; required"),
      ChoiceParameter(kKindId, "kind", PK_Passive, kParticleKindChoices, "Kind of the particles"),
      ListParameter(kPairsId, "pairs", kLinkSettings,
                    "Pairs of a channel and a value (Channel/Value), or the property that gives it; required"),
      ChoiceParameter(kFalloffModeId, "falloff_mode", FalloffMode::None, kFalloffModes,
                      "How particles weigh by their distance"),
      SplineParameter(kFalloffId, "falloff", kFalloff, "Weight over the distance, in radii")
          .ShownWhen(kFalloffModeId, Relation::Is, FalloffMode::Curve),
      FloatParameter(kMassScaleId, "mass_scale", 1.0, "", "Factor of a particle's mass, by which it weighs")
          .Fallback(0.0),
      FloatParameter(kRadiusScaleId, "radius_scale", 1.0, "",
                     "Factor of a particle's radius over the radius here, by which it weighs")
          .Fallback(0.0),
      BoolParameter(kPerSecondId, "per_second", false, "Values are for a second; otherwise for a sub-step"),
      ChoiceParameter(kConstraintModeId, "constraint_mode", ConstraintMode::Cell, kConstraintModes,
                      "When constraints are asked"),
      FloatParameter(kRadiusId, "radius", 1.4, "cells", "How far a cell looks for particles").Between(0, 16),
  };
  static const TypeInfo kType = {
      .id = 1300008,
      .resource = "zq_properties_particles",
      .className = "C4D_ParticleToGridEmitter_Object",
      .label = "POP::ParticleData To Grid",
      .text = "Fills channels from particles: a mean of a property over those near each cell.",
      .kinds = kLinkEmitter,
      .parameters = kParameters,
      .common = CommonNodeParameters(),
  };
  return kType;
}

ParticleToGridEmitter::ParticleToGridEmitter(BaseList2D* object, OrlixScene& owner) : iObject(object, owner) {
  stageMask = StageBit(kStageOperators);
  priority = kPriority;
}

void ParticleToGridEmitter::ExtendBounds(Vec3D& min, Vec3D& max) {
  if (group_) group_->ExtendBounds(min, max);
}

bool ParticleToGridEmitter::ReadParameters() {
  stageMask = StageBit(kStageOperators);
  priority = kPriority;
  if (!iObject::ReadParameters()) return false;
  kind_ = std::clamp(handler.GetInt(kKindId), 0, kParticleKinds - 1);
  falloff_ = handler.GetChoice<FalloffMode>(kFalloffModeId) == FalloffMode::Curve ? handler.GetSplineData(kFalloffId)
                                                                                  : nullptr;
  massScale_ = handler.GetDouble(kMassScaleId);
  radiusScale_ = handler.GetDouble(kRadiusScaleId);
  perSecond_ = handler.GetBool(kPerSecondId);
  cellsToo_ = handler.GetChoice<ConstraintMode>(kConstraintModeId) == ConstraintMode::Cell;
  radius_ = handler.GetDouble(kRadiusId) * GetSimulationSpace().cellSize;
  return true;
}

bool ParticleToGridEmitter::ResolveLinks() {
  const bool resolved = iObject::ResolveLinks();
  group_ = scene->RetrieveAs<ParticleGroup>(handler.GetLink(kGroupId), NODE_PARTICLES);
  pairs_.clear();
  if (const InExcludeData* list = handler.GetInExclude(kPairsId)) {
    std::vector<iBase*> found;
    scene->RetrieveAll(list, found, NODE_SETTINGS, RETRIEVE_ANY, kValueSubType, RETRIEVE_ANY, true);
    for (iBase* node : found) {
      if (auto* pair = dynamic_cast<ChannelValue*>(node)) pairs_.push_back(pair);
    }
  }
  constraints_ = RetrieveConstraints(*scene, handler);
  pairConstraints_.clear();
  for (Constraint* constraint : constraints_) {
    if (!cellsToo_ || constraint->HasRetrieveType(RETRIEVE_PARTICLE)) pairConstraints_.push_back(constraint);
  }
  return resolved;
}

void ParticleToGridEmitter::Advise() {
  if (!group_) Warn("no-group", "no particle group is linked: nothing happens; link one under group");
  if (!(radius_ > 0) && !HasTrack(*handler.hostObject(), kRadiusId))
    Warn("no-radius", "no cell finds a particle, so nothing happens; set \"radius\"");
  if (pairs_.empty()) Warn("no-pair", "no channel gets anything; add a channel/value pair to pairs");
}

void ParticleToGridEmitter::ReleaseLinks() {
  group_ = nullptr;
  pairs_.clear(), constraints_.clear(), pairConstraints_.clear();
  SetFlag(NodeActive, false);
  iObject::ReleaseLinks();
}

void ParticleToGridEmitter::CheckDirty() {
  iObject::CheckDirty();
  if (!IsEnabled() || !scene->HasFlag(TimeMoved)) return;
  MarkDirty(false);
  for (ChannelValue* pair : pairs_) {
    if (pair->scalarTarget) pair->scalarTarget->MarkDirty(false);
    if (pair->vectorTarget) pair->vectorTarget->MarkDirty(false);
  }
}

bool ParticleToGridEmitter::ComesBefore(const iBase& other) const {
  for (const ChannelValue* pair : pairs_) {
    if (&other == pair || &other == pair->scalarTarget || &other == pair->vectorTarget) return false;
  }
  return iObject::ComesBefore(other);
}

void ParticleToGridEmitter::Prepare(iBase*) {
  SetFlag(NodeActive, false);
  if (!group_ || pairs_.empty()) return;
  if (group_->Count(kind_) == 0 || !(radius_ > 0)) return;
  amount_ = perSecond_ ? simulationInfo->substepDuration : 1;
  for (Constraint* constraint : constraints_) constraint->Prepare(this);
  SetFlag(NodeActive, true);
}

void ParticleToGridEmitter::FindTargets() {
  targets_.clear(), layers_.clear(), emissions_.clear();
  for (const ChannelValue* pair : pairs_) AddTarget(*pair);
  for (const auto& target : targets_) {
    for (std::int32_t k = 0; k < target->gather.lattice.dims.z; ++k) layers_.push_back({target.get(), k});
  }
  emissions_.resize(layers_.size());
  scratch_.resize(WorkerPool::kMaxWorkers);
}

void ParticleToGridEmitter::AddTarget(const ChannelValue& pair) {
  // What a cache plays back isn't filled.
  const auto gridOf = [](const auto* channel) -> const ScalarGrid* {
    return channel && !channel->HasFlag(NodeFromCache) ? channel->GetGrid(0) : nullptr;
  };
  const ScalarGrid* grid = pair.scalarTarget ? gridOf(pair.scalarTarget) : gridOf(pair.vectorTarget);
  if (!grid || !grid->data) return;
  auto target = std::make_unique<Target>();
  target->pair = &pair;
  GatherInput& gather = target->gather;
  gather.radius = radius_;
  gather.lattice = grid->space;
  gather.offset = CellSampleOffset(grid->gridType);
  gather.falloff = falloff_;
  // Channels of one container have one lattice.
  const bool first = targets_.empty();
  if (!first && !grid->space.Equals(targets_.front()->gather.lattice)) {
    Warn("other-cells", fmt::format("the channel of \"{}\" has other cells than the first: it gets nothing; use a node "
                                    "of its own for it",
                                    pair.DisplayName()));
    return;
  }
  if (first) {
    const auto margin = static_cast<std::int32_t>(std::ceil(radius_ / grid->space.simPerVoxel.x));
    lines_.Build(*group_->list(kind_), grid->space, margin, scene->pool());
    TakeWeights();
  }
  TakeValues(*target);
  gather.lines = &lines_;
  gather.weights = weights_.data();
  gather.values = target->values.data();
  targets_.push_back(std::move(target));
}

// f(first, end) for shares of the entries of the lines, on all workers.
template <class F>
void ForEntries(WorkerPool& pool, const ParticleLines& lines, F&& f) {
  constexpr std::size_t kShare = 4096;
  const auto shares = static_cast<int>((lines.entries().size() + kShare - 1) / kShare);
  ParallelRange(pool, 0, shares, [&](int from, int to, int) {
    f(static_cast<std::size_t>(from) * kShare, std::min(static_cast<std::size_t>(to) * kShare, lines.entries().size()));
  });
}

void ParticleToGridEmitter::TakeWeights() {
  const ParticleFactory& factory = group_->factory(kind_);
  weights_.resize(lines_.entries().size());
  ForEntries(scene->pool(), lines_, [&](std::size_t from, std::size_t to) {
    for (std::size_t n = from; n < to; ++n) {
      const OrlixParticle particle = factory.At(lines_.entries()[n].index);
      weights_[n] = particle.GetRealOr(PP::Mass, 1) * massScale_ *
                    (particle.GetRealOr(PP::Radius, radius_) / radius_ * radiusScale_);
    }
  });
}

// A property of another type than the channel: a vector's length, a real in all components, a state as 0 or 1.
void ParticleToGridEmitter::TakeValues(Target& target) {
  const ChannelValue& pair = *target.pair;
  const ParticleFactory& factory = group_->factory(kind_);
  const bool scalar = pair.scalarTarget != nullptr;
  const Vec3D constant = scalar ? Vec3D(pair.scalarValue, 0, 0) : pair.vectorValue;
  const auto inChannel = [&](double value) { return scalar ? Vec3D(value, 0, 0) : Vec3D(value); };
  const auto valueOf = [&](const OrlixParticle& particle) {
    double real = 0;
    bool state = false;
    Vec3D vector;
    if (pair.scalarProperty && particle.GetReal(KeyOf(*pair.scalarProperty), real)) return inChannel(real);
    if (pair.stateProperty && particle.GetState(KeyOf(*pair.stateProperty), state)) return inChannel(state ? 1 : 0);
    if (pair.vectorProperty && particle.GetVector(KeyOf(*pair.vectorProperty), vector)) {
      return scalar ? Vec3D(Length(vector), 0, 0) : vector;
    }
    return constant;
  };
  target.values.resize(lines_.entries().size());
  ForEntries(scene->pool(), lines_, [&](std::size_t from, std::size_t to) {
    for (std::size_t n = from; n < to; ++n) target.values[n] = valueOf(factory.At(lines_.entries()[n].index));
  });
}

void ParticleToGridEmitter::Process(ProcessData&) {
  if (!IsActive()) return;
  FindTargets();
  std::atomic<std::size_t> next{0};
  std::atomic<bool> outOfMemory{false};
  scene->pool().Run(std::min(scene->pool().count(), static_cast<int>(layers_.size())), [&](int worker) {
    for (std::size_t at; (at = next.fetch_add(1, std::memory_order_relaxed)) < layers_.size();) {
      if (scene->TestBreak()) return;
      try {
        GatherLayer(layers_[at], emissions_[at], worker);
      } catch (const std::bad_alloc&) {
        outOfMemory.store(true, std::memory_order_relaxed);
      }
    }
  });
  if (outOfMemory.load()) throw std::bad_alloc();
  for (std::size_t at = 0; at < layers_.size(); ++at) Emit(*layers_[at].target, emissions_[at]);
}

void ParticleToGridEmitter::GatherLayer(const Layer& layer, CountedVector<Emission>& out, std::int32_t worker) {
  Scratch& scratch = scratch_[static_cast<std::size_t>(worker)];
  const Target& target = *layer.target;
  const VecInt3D dims = target.gather.lattice.dims;
  for (std::int32_t j = 0; j < dims.y; ++j) {
    GatherRow& row = scratch.row;
    if (constraints_.empty()) {
      GatherParticles(
          target.gather, j, layer.k, row, [&](std::int32_t) { return amount_; },
          [](const ParticleLines::Entry&, double weight) { return weight; });
    } else {
      scratch.cellWeights.assign(static_cast<std::size_t>(dims.x), kNotAsked);
      GatherParticles(
          target.gather, j, layer.k, row,
          [&](std::int32_t i) {
            return CellWeight(target, {i, j, layer.k}, scratch.cellWeights[static_cast<std::size_t>(i)], worker);
          },
          [&](const ParticleLines::Entry& entry, double weight) { return PairWeight(entry, weight, worker); });
    }
    for (std::int32_t i = 0; row.any && i < dims.x; ++i) {
      const std::int32_t count = row.counts[static_cast<std::size_t>(i)];
      if (count > 0) out.push_back({{i, j, layer.k}, row.sums[static_cast<std::size_t>(i)] / count});
    }
  }
}

// What the constraints leave at a cell; asked once.
double ParticleToGridEmitter::CellWeight(const Target& target, const VecInt3D& cell, double& known,
                                         std::int32_t worker) const {
  if (!cellsToo_) return amount_;
  if (std::isnan(known)) {
    double amount = amount_;
    const Vec3D place = target.gather.lattice.SimOfVoxel(Vec3D(cell) + target.gather.offset);
    EvaluateChain(constraints_, place, amount, this, worker);
    known = amount;
  }
  return known;
}

double ParticleToGridEmitter::PairWeight(const ParticleLines::Entry& entry, double weight, std::int32_t worker) const {
  if (pairConstraints_.empty()) return weight;
  const OrlixParticle particle = group_->At(kind_, entry.index);
  for (const Constraint* constraint : pairConstraints_) {
    if (!constraint->IsEnabled()) continue;
    // Here a false result drops the particle, whatever is left.
    if (!constraint->EvaluateParticle(entry.position, weight, this, worker, &particle) || weight == 0) return 0;
  }
  return weight;
}

void ParticleToGridEmitter::Emit(const Target& target, std::span<const Emission> emissions) const {
  const GridSpace& lattice = target.gather.lattice;
  if (const ChannelBase_Scalar* channel = target.pair->scalarTarget) {
    const GridEmissionWriter writer = CreateEmissionHandler(*channel)->Writer({});
    const ScalarGrid& grid = *channel->GetGrid(0);
    for (const Emission& each : emissions) {
      writer.EmitAt(each.mean.x, grid.Index(each.cell.x, each.cell.y, each.cell.z));
    }
    return;
  }
  const auto writers = CreateEmissionHandler(*target.pair->vectorTarget)->Writers({});
  const LayerRange all{std::numeric_limits<std::int32_t>::min(), std::numeric_limits<std::int32_t>::max()};
  for (const Emission& each : emissions) {
    const Vec3D place = lattice.SimOfVoxel(Vec3D(each.cell) + target.gather.offset);
    for (int c = 0; c < 3; ++c) writers[static_cast<std::size_t>(c)].Emit(each.mean[c], place, all);
  }
}

void ParticleToGridEmitter::Finish() {
  for (Constraint* constraint : constraints_) constraint->Finish();
  SetFlag(NodeActive, false);
  targets_.clear(), layers_.clear(), emissions_.clear();
  lines_.Clear();
  weights_ = {};
}

void ParticleToGridEmitter::VisitOutputs(StateVisitor& visitor) {
  for (const ChannelValue* pair : pairs_) {
    if (pair->scalarTarget) visitor.VisitGrid("grid", pair->scalarTarget->grid);
    if (!pair->vectorTarget) continue;
    for (auto& grid : pair->vectorTarget->grids) visitor.VisitGrid("grid", grid);
  }
}

}  // namespace orlix
