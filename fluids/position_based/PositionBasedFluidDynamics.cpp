#include "fluids/position_based/PositionBasedFluidDynamics.h"

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <cmath>

#include "fluids/helpers/PropertyIds.h"
#include "fluids/particle_operators/ParticleAdvection.h"
#include "fluids/scene/EarlierNodes.h"
#include "fluids/volumes/VolumeBase.h"

namespace orlix {

namespace {

constexpr std::int32_t kPriority = 20;
constexpr double kVorticityStrength = 25;
constexpr double kDensityUnit = 100;  // particles a m^3, of the row
constexpr double kSpeedAtRest = 0.001;
// Of the density that particles start with, beyond which the liquid visibly swells or shrinks.
constexpr double kTooDense = 1.3, kTooThin = 0.7;
constexpr double kFewNeighbours = 8;

}  // namespace

const TypeInfo& PositionBasedFluidDynamics::Type() {
  static constexpr Parameter kParameters[] = {
      GroupListParameter(kGroupsId, "groups",
                         "The particles, of all groups one liquid; an empty list takes the liquid of all groups"),
      FloatParameter(kRadiusCellsId, "radius_cells", 0.5, "cells",
                     "Radius of the kernel; twice the particles' spacing, 1 with eight particles a cell, does well")
          .Fallback(1.5)
          .Between(0.05, 16),
      FloatParameter(kRestDensityId, "rest_density", 1000, "100/m^3",
                     "Particles in a volume of liquid at rest, as the kernel sums them; a warning proposes what "
                     "particles start with")
          .Above(0),
      FloatParameter(kViscosityId, "viscosity", 0.00018, "",
                     "How much a sub-step takes of the difference to the neighbours' velocity: all at 0.001. A "
                     "particle's own viscosity goes before")
          .Fallback(0)
          .Between(0, 0.001),
      BoolParameter(kCollideId, "collide", true, "Obstacles hold the particles"),
      FloatParameter(kCollisionRadiusId, "collision_radius", 0.1, "cells",
                     "Distance from an obstacle that particles keep")
          .Fallback(0.001)
          .Min(0),
      FloatParameter(kRelaxationId, "relaxation", 0.05, "",
                     "Softens corrections; keeps particles with few neighbours calm")
          .Fallback(0.01)
          .Above(0),
      IntParameter(kSolverIterationsId, "solver_iterations", 3, "", "Corrections of a sub-step: the more, the stiffer")
          .Between(1, 100),
      FloatParameter(kDeltaQId, "delta_q", 0.1, "radii",
                     "Distance, along each axis, within which the term against clusters is strong")
          .Fallback(0.01)
          .Between(0, 0.5),
      FloatParameter(kTensileStrengthId, "tensile_strength", 0.1, "", "The term against clusters; 0 leaves it out")
          .Fallback(0)
          .Between(0, 10),
      IntParameter(kTensileExponentId, "tensile_exponent", 4, "", "How fast it falls with the distance")
          .Fallback(6)
          .Between(-16, 16),
      ListParameter(kInstantOperatorsId, "instant_operators", kLinkInstantOperator,
                    "What happens at a contact; an empty list takes all instant operators of the scene"),
      IntParameter(kRebuildTreeId, "rebuild_tree", 16, "",
                   "Kept with the object; neighbours are found in each sub-step")
          .Fallback(20)
          .Unread(),
      FloatParameter(kVorticityStrengthId, "vorticity_strength", kVorticityStrength, "",
                     "Gives back the swirls that corrections take, to particles that have an external force")
          .Fallback(0),
  };
  static const TypeInfo kType = {
      .id = 1300137,
      .resource = "zq_fluid_pb",
      .className = "C4D_Fluid_PBF_Object",
      .label = "Position-based Fluid",
      .text =
          "Makes particles a liquid without a grid, for splashes, small vessels and quick looks. Their particle "
          "advection has \"motion_source\" \"ballistic\" and \"ballistic_integrator\" \"velocity_verlet\".",
      .kinds = kLinkSolver,
      .parameters = kParameters,
      .common = CommonNodeParameters(),
  };
  return kType;
}

bool PositionBasedFluidDynamics::ReadParameters() {
  priority = kPriority;
  stageMask = StageBit(kStageChannelsOperators);
  if (!iSolver::ReadParameters()) return false;
  settings_.cellSize = static_cast<double>(GetSimulationSpace().cellSize);
  settings_.radius = handler.GetDouble(kRadiusCellsId);
  restDensityRow_ = handler.GetDouble(kRestDensityId);
  settings_.restDensity = restDensityRow_ * kDensityUnit;
  settings_.viscosity = handler.GetDouble(kViscosityId);
  collide_ = handler.GetBool(kCollideId);
  collisionRadius_ = handler.GetDouble(kCollisionRadiusId) * settings_.cellSize;
  settings_.relaxation = handler.GetDouble(kRelaxationId);
  settings_.iterations = handler.GetInt(kSolverIterationsId);
  settings_.delta = handler.GetDouble(kDeltaQId);
  settings_.tensileStrength = handler.GetDouble(kTensileStrengthId);
  settings_.tensileExponent = handler.GetInt(kTensileExponentId);
  settings_.vorticityStrength = handler.GetDouble(kVorticityStrengthId);
  return true;
}

bool PositionBasedFluidDynamics::ResolveLinks() {
  if (!iSolver::ResolveLinks()) return false;
  entries_ = RetrieveGroups(*scene, handler, kGroupsId, 1u << PK_Liquid);
  operators_ = RetrieveInstantOperators(*scene, handler, kInstantOperatorsId);
  constraints_ = RetrieveConstraints(*scene, handler);
  return true;
}

void PositionBasedFluidDynamics::ReleaseLinks() {
  entries_.clear(), operators_.clear(), constraints_.clear();
  SetFlag(NodeActive, false);
  iSolver::ReleaseLinks();
}

void PositionBasedFluidDynamics::Advise() {
  if (entries_.empty()) Warn("no-group", "it corrects nothing; link particle groups under \"groups\"");
  ForEachEarlier(*this, [&](const PositionBasedFluidDynamics& other) {
    for (const GroupEntry& entry : entries_) {
      const auto same = [&](const GroupEntry& its) { return its.group == entry.group && its.kind == entry.kind; };
      if (std::none_of(other.entries_.begin(), other.entries_.end(), same)) continue;
      Warn("shared-group", fmt::format("\"{}\" corrects the particles of \"{}\", too; list each one's own groups under "
                                       "\"groups\"",
                                       other.DisplayName(), entry.group->DisplayName()));
    }
  });
  scene->ForEachNode(NODE_VOLUME, NODE_VOLUME, [&](const iBase& node) {
    const auto* body = node.IsEnabled() ? dynamic_cast<const VolumeBase*>(&node) : nullptr;
    if (!body || !body->IsDynamicBody()) return;
    Warn("pushes-no-body",
         fmt::format("its particles don't push bodies: \"{}\" falls through them; take a liquid for it to float on, or "
                     "keyframe the body",
                     body->DisplayName()));
  });
  const double strength = handler.GetDouble(kVorticityStrengthId);
  if (strength != kVorticityStrength && strength != 0 &&
      handler.GetDocument()->ObjectsOfType(FindProperty(PP::ExternalForce)->nodeType).empty()) {
    Warn("no-force",
         "\"vorticity_strength\" acts on particles that have an external force, and there are none; add a "
         "property_force to their emitter's \"properties\"");
  }
  // An empty list takes groups that may have no liquid.
  const InExcludeData* list = handler.GetInExclude(kGroupsId);
  const bool listed = list && !list->entries.empty();
  std::vector<std::string> unmoved;
  for (const GroupEntry& entry : entries_) {
    bool moved = false;
    scene->ForEachNode(NODE_OPERATOR, NODE_OPERATOR, [&](const iBase& node) {
      const auto* advection = dynamic_cast<const ParticleAdvection*>(&node);
      if (!advection || !node.IsEnabled()) return;
      const C4D_InterfaceHandler& own = advection->handler;
      moved |= own.GetLink(ParticleAdvection::kGroupId) == entry.group->handler.hostObject() &&
               own.GetChoice(ParticleAdvection::kKindId) == entry.kind &&
               own.GetChoice<BallisticIntegrator>(ParticleAdvection::kBallisticIntegratorId) ==
                   BallisticIntegrator::VelocityVerlet &&
               own.GetChoice<MotionSource>(ParticleAdvection::kMotionSourceId) != MotionSource::None;
    });
    if (!moved) {
      unmoved.push_back(
          fmt::format("{} particles of \"{}\"", kParticleKindChoices[entry.kind].key, entry.group->DisplayName()));
    }
  }
  if (unmoved.empty() || (!listed && unmoved.size() < entries_.size())) return;
  Warn("no-verlet", "nothing moves the " + unmoved.front() +
                        " as it needs; add a particle_advection of this kind with \"motion_source\" \"ballistic\" "
                        "and \"ballistic_integrator\" \"velocity_verlet\"");
}

void PositionBasedFluidDynamics::Conclude() {
  WarnWithoutKind(*this, RetrieveGroups(*scene, handler, kGroupsId, 1u << PK_Liquid));
}

void PositionBasedFluidDynamics::CheckDirty() {
  iSolver::CheckDirty();
  if (IsEnabled() && scene->HasFlag(TimeMoved)) MarkDirty(false);
}

void PositionBasedFluidDynamics::ResetSimulation() {
  step_.Clear();
  error_ = {};
  maxSquaredSpeed_ = kSpeedAtRest;
}

void PositionBasedFluidDynamics::CollectPopulations() {
  active_.clear();
  for (const GroupEntry& entry : entries_) {
    if (entry.group->Count(entry.kind) > 0 && !entry.group->KindIsKept(entry.kind)) active_.push_back(entry);
  }
}

// At time 0 nothing has moved yet, and what would be corrected would count as a velocity.
void PositionBasedFluidDynamics::Prepare(iBase*) {
  SetFlag(NodeActive, false);
  CollectPopulations();
  if (active_.empty() || simulationInfo->time == 0 || !(simulationInfo->substepDuration > 0)) return;
  settings_.dt = simulationInfo->substepDuration;
  obstacles_.clear();
  if (collide_) {
    for (const VolumeBase* volume : CollectObstacles(*scene)) {
      if (volume->HasLevelSet()) obstacles_.emplace_back(*volume->LevelSet(), collisionRadius_);
    }
  }
  for (Constraint* constraint : constraints_) constraint->Prepare(this);
  std::erase_if(operators_, [](const iInstantOperator* each) { return !each->IsEnabled(); });
  for (iInstantOperator* each : operators_) each->Begin(*this);
  SetFlag(NodeActive, true);
}

void PositionBasedFluidDynamics::Process(ProcessData&) {
  if (!IsActive()) return;
  std::vector<const ParticleList*> lists;
  for (const GroupEntry& entry : active_) lists.push_back(entry.group->list(entry.kind));
  // Single precision counts from here.
  const ParticleBounds& bounds = active_[0].group->factory(active_[0].kind).bounds;
  const Vec3D origin = bounds.min.x <= bounds.max.x ? (bounds.min + bounds.max) * 0.5 : Vec3D();
  step_.Load(settings_, lists, origin, scene->pool());
  if (!toldOfDensity_) TellOfDensity();
  for (std::int32_t n = 0; n < settings_.iterations && !scene->TestBreak(); ++n) Iterate();
  UpdateVelocities();
}

// What the user can't see from the settings: whether the rest density suits the particles' spacing.
void PositionBasedFluidDynamics::TellOfDensity() {
  toldOfDensity_ = true;
  step_.Measure(scene->pool());
  const NeighbourTable& table = step_.table();
  double mean = 0;
  for (std::int32_t place = 0; place < table.count(); ++place) mean += table.NeighbourCount(place);
  mean /= table.count();
  if (mean < kFewNeighbours) {
    return Warn("few-neighbours",
                fmt::format("a particle has {:.1f} neighbours on average, too few for a density; raise "
                            "\"radius_cells\", {:.3g} now, or lower the spacing of the particles",
                            mean, settings_.radius));
  }
  // Of those inside the liquid.
  double density = 0;
  std::int64_t inside = 0;
  for (std::int32_t place = 0; place < table.count(); ++place) {
    if (table.NeighbourCount(place) < mean) continue;
    density += static_cast<double>(step_.densities()[static_cast<std::size_t>(place)]);
    ++inside;
  }
  density /= static_cast<double>(std::max<std::int64_t>(inside, 1));
  if (density < kTooThin || density > kTooDense) {
    Warn("rest-density",
         fmt::format("its particles start at {:.3g} times the rest density, so the liquid {}; set \"rest_density\" to "
                     "{:.4g}",
                     density, density > 1 ? "bursts apart" : "draws together", density * restDensityRow_));
  }
}

void PositionBasedFluidDynamics::CloseByConstraints() {
  if (constraints_.empty()) return;
  const std::span<std::uint8_t> closed = step_.Closed();
  for (std::size_t p = 0; p < active_.size(); ++p) {
    ParticleList& list = *active_[p].group->list(active_[p].kind);
    const std::int32_t base = step_.populations()[p].base;
    ParallelRows(scene->pool(), list, [&](const ParticleRows& rows, int worker) {
      double amounts[kChunkRows];
      std::uint8_t open[kChunkRows];
      const std::int32_t count = rows.end - rows.begin, first = rows.first + rows.begin;
      std::fill_n(amounts, count, 1.0), std::fill_n(open, count, std::uint8_t{1});
      EvaluateChain(constraints_,
                    ParticleRun{&list, first, count, worker, rows.positions() + rows.begin, amounts, open}, this);
      for (std::int32_t n = 0; n < count; ++n) {
        closed[static_cast<std::size_t>(step_.PlaceOf(base + first + n))] = amounts[n] == 0;
      }
    });
  }
}

void PositionBasedFluidDynamics::Iterate() {
  WorkerPool& pool = scene->pool();
  CloseByConstraints();
  step_.Multiply(pool);
  step_.Correct(pool);
  std::atomic<bool> outOfMemory{false};
  for (std::size_t p = 0; p < active_.size(); ++p) {
    ParallelRows(pool, *active_[p].group->list(active_[p].kind), [&](const ParticleRows& rows, int worker) {
      try {
        MoveRows(p, rows, worker);
      } catch (const std::bad_alloc&) {
        outOfMemory.store(true, std::memory_order_relaxed);
      }
    });
  }
  if (outOfMemory.load()) throw std::bad_alloc();
}

bool PositionBasedFluidDynamics::Meets(const Vec3D& p, ParticleContact& contact) const {
  for (const ObstacleView& obstacle : obstacles_) {
    if (!obstacle.reachesBeyond && !obstacle.distance.InBox(p)) continue;
    const Vec3D index = obstacle.distance.IndexOfWorld(p);
    const double depth = obstacle.distance.Sample(index) - collisionRadius_;
    if (!(depth < 0)) continue;
    contact.hit = true;
    contact.depth = depth;
    contact.normal = obstacle.distance.Normal(index);
    contact.position = p - depth * contact.normal;
    return true;
  }
  return false;
}

void PositionBasedFluidDynamics::MoveRows(std::size_t population, const ParticleRows& rows, std::int32_t thread) {
  const std::int32_t base = step_.populations()[population].base + rows.first;
  const GroupEntry& entry = active_[population];
  const InstantContext context{entry.group, entry.group->list(entry.kind), this};
  const auto old = rows.Property<Vec3D>(PP::OldPosition);
  Vec3D* positions = rows.EditPositions();
  std::vector<ParticleContact> contacts;
  for (std::int32_t r = rows.begin; r < rows.end; ++r) {
    const std::int32_t place = step_.PlaceOf(base + r);
    if (step_.IsClosed(place)) continue;
    const Vec3D p = positions[r] + step_.CorrectionAt(place);
    ParticleContact contact;
    if (!Meets(p, contact)) {
      positions[r] = p;
    } else if (operators_.empty()) {
      positions[r] = contact.position;
    } else {
      contact.index = rows.first + r;
      contact.dt = settings_.dt;
      contact.previousPosition = old.Get(r, positions[r]);
      contact.newPosition = p;
      contacts.push_back(contact);
    }
  }
  if (!contacts.empty()) {
    for (iInstantOperator* each : operators_) each->Apply(iInstantOperator::kContact, contacts, context, thread);
    for (const ParticleContact& contact : contacts) positions[contact.index - rows.first] = contact.position;
  }
  for (std::int32_t r = rows.begin; r < rows.end; ++r) step_.Move(step_.PlaceOf(base + r), positions[r]);
}

void PositionBasedFluidDynamics::UpdateVelocities() {
  WorkerPool& pool = scene->pool();
  CloseByConstraints();
  step_.Measure(pool);
  error_ = step_.Error(pool);
  // Of its motion from where the sub-step began.
  const auto moved = [&](const ParticleRows& rows, const PropertyView<Vec3D>& begun, const PropertyView<Vec3D>& old,
                         std::int32_t r) {
    const Vec3D& x = rows.positions()[r];
    return (x - begun.Get(r, old.Get(r, x))) / settings_.dt;
  };
  for (std::size_t p = 0; p < active_.size(); ++p) {
    const std::int32_t base = step_.populations()[p].base;
    ParallelRows(pool, *active_[p].group->list(active_[p].kind), [&](const ParticleRows& rows, int) {
      const auto begun = rows.Property<Vec3D>(PP::CorrectedPosition), old = rows.Property<Vec3D>(PP::OldPosition);
      const auto viscosities = rows.Property<double>(PP::Viscosity);
      for (std::int32_t r = rows.begin; r < rows.end; ++r) {
        const std::int32_t place = step_.PlaceOf(base + rows.first + r);
        const Vec3D v = step_.IsClosed(place) ? rows.velocities()[r] : moved(rows, begun, old, r);
        step_.SetVelocity(place, v, viscosities.Get(r, settings_.viscosity));
      }
    });
  }
  step_.Smooth(pool);
  std::vector<double> fastest(1, kSpeedAtRest);
  for (std::size_t p = 0; p < active_.size(); ++p) {
    const ParticleList& list = *active_[p].group->list(active_[p].kind);
    const std::int32_t base = step_.populations()[p].base;
    std::vector<double> chunks(static_cast<std::size_t>(list.chunkCount()), 0.0);
    ParallelChunks(pool, list, [&](int chunk, const ParticleRows& rows) {
      const auto forces = rows.Property<Vec3D>(PP::ExternalForce);
      const auto begun = rows.Property<Vec3D>(PP::CorrectedPosition), old = rows.Property<Vec3D>(PP::OldPosition);
      Vec3D* velocities = rows.EditVelocities();
      double most = 0;
      for (std::int32_t r = rows.begin; r < rows.end; ++r) {
        const std::int32_t place = step_.PlaceOf(base + rows.first + r);
        if (!step_.IsClosed(place)) {
          velocities[r] = moved(rows, begun, old, r) + step_.VelocityChangeAt(place);
          if (forces.Has(r)) forces.Set(r, forces.values()[r] + step_.ConfinementAt(place));
        }
        most = std::max(most, LengthSquared(velocities[r]));
      }
      chunks[static_cast<std::size_t>(chunk)] = most;
    });
    fastest.insert(fastest.end(), chunks.begin(), chunks.end());
  }
  maxSquaredSpeed_ = *std::max_element(fastest.begin(), fastest.end());
}

void PositionBasedFluidDynamics::Finish() {
  if (IsActive()) {
    for (Constraint* constraint : constraints_) constraint->Finish();
    for (const GroupEntry& entry : active_) entry.group->SetKindDirty(entry.kind);
    for (iInstantOperator* each : operators_) each->End();
  }
  obstacles_.clear();
  active_.clear();
  SetFlag(NodeActive, false);
}

void PositionBasedFluidDynamics::VisitState(StateVisitor& visitor) {
  visitor.Visit("maxSquaredSpeed", maxSquaredSpeed_);
  if (visitor.Reading()) toldOfDensity_ = true;  // when the particles started
}

void PositionBasedFluidDynamics::VisitOutputs(StateVisitor& visitor) {
  for (const GroupEntry& entry : entries_) entry.group->VisitOutputs(visitor);
}

void PositionBasedFluidDynamics::AddToReport(SubstepReport& report) {
  report.densities.push_back({.node = DisplayName(),
                              .particles = step_.count(),
                              .restDensity = restDensityRow_,
                              .mean = error_.mean,
                              .largest = error_.largest,
                              .compressed = error_.compressed});
}

}  // namespace orlix
