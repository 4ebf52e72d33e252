#include "fluids/particle_operators/ParticleAdvection.h"

#include <fmt/format.h>

#include <algorithm>

#include "fluids/scene/EarlierNodes.h"
#include "fluids/volumes/VolumeBase.h"

namespace orlix {

namespace {

constexpr std::int32_t kAnySubType = 2000;

}  // namespace

const TypeInfo& ParticleAdvection::Type() {
  static constexpr Choice kSolverModes[] = {
      {SolverMode::Only, "only", "The solvers of the list; all when it is empty"},
      {SolverMode::AllBut, "all_but", "All solvers but those of the list"},
  };
  static constexpr Choice kSources[] = {
      {MotionSource::None, "none", "Nothing moves"},
      {MotionSource::Solvers, "solvers", "The velocity of the solvers carries"},
      {MotionSource::Ballistic, "ballistic", "Free flight; no container, obstacles only"},
      {MotionSource::SolversBallisticInside, "solvers_ballistic_inside",
       "The solvers' velocity; free flight for particles inside a solid"},
  };
  static constexpr Choice kIntegrators[] = {
      {Integrator::Euler, "euler", "One stage"},
      {Integrator::Heun, "heun", "Two stages, second order"},
      {Integrator::Ralston, "ralston", "Three stages, third order"},
      {Integrator::RungeKutta4, "runge_kutta", "Four stages, fourth order"},
  };
  static constexpr Choice kBallistic[] = {
      {BallisticIntegrator::Euler, "euler", "Semi-implicit Euler; forces are divided by the particle's mass"},
      {BallisticIntegrator::Verlet, "verlet", "By positions: the velocity is what a step moves"},
      {BallisticIntegrator::VelocityVerlet, "velocity_verlet", "Forces count as accelerations"},
  };
  static constexpr Choice kCollisions[] = {
      {CollisionMode::None, "none", "Particles pass through everything"},
      {CollisionMode::ObstaclesFirst, "obstacles",
       "Obstacles where the scene has any, else the solver's walls and obstacles"},
      {CollisionMode::Boundary, "boundary", "The solver's walls and obstacles; in free flight the obstacles"},
  };
  static constexpr Parameter kParameters[] = {
      LinkParameter(kGroupId, "group", kLinkParticles, "The particles that move; required"),
      ListParameter(kInstantOperatorsId, "instant_operators", kLinkInstantOperator,
                    "What happens at a contact; an empty list takes all instant operators of the scene"),
      ListParameter(kSolversId, "solvers", kLinkSolver, "Whose velocity carries; an empty list takes all of the scene"),
      ChoiceParameter(kSolverModeId, "solver_mode", SolverMode::Only, kSolverModes, "How the list of solvers is meant"),
      ChoiceParameter(kMotionSourceId, "motion_source", MotionSource::Solvers, kSources, "What moves the particles"),
      ChoiceParameter(kIntegratorId, "integrator", Integrator::Heun, kIntegrators,
                      "How a particle is traced through a velocity")
          .Fallback(Integrator::Euler),
      ChoiceParameter(kBallisticIntegratorId, "ballistic_integrator", BallisticIntegrator::Euler, kBallistic,
                      "How a particle flies by itself"),
      ChoiceParameter(kCollisionsId, "collisions", CollisionMode::Boundary, kCollisions, "What particles collide with")
          .Fallback(CollisionMode::None),
      BoolParameter(kKillInsideId, "kill_inside", true,
                    "Particles that end a frame inside a solid die; a liquid loses volume by it"),
      IntParameter(kExtraIterationsId, "extra_iterations", 1, "", "Steps of a sub-step beyond the first")
          .Fallback(0)
          .Between(0, 254),
      ChoiceParameter(kKindId, "kind", PK_Liquid, kParticleKindChoices, "The kind of particles in the group")
          .Fallback(PK_Passive),
      FloatParameter(kCollisionRadiusId, "collision_radius", 0.001, "cells",
                     "Distance from a surface that counts as a contact; from an obstacle in metres")
          .Fallback(0)
          .Min(0),
  };
  static const TypeInfo kType = {
      .id = 1300126,
      .resource = "zq_particle_advection",
      .className = "C4D_Operator_ParticleAdvection_Object",
      .label = "POP::Advection",
      .text = "Moves particles through the velocity of a solver, or in free flight, and lets them collide and age.",
      .kinds = kLinkOperator,
      .parameters = kParameters,
      .common = CommonNodeParameters(),
  };
  return kType;
}

bool ParticleAdvection::ReadParameters() {
  if (!ParticleOperator::ReadParameters()) return false;
  motion_.source = handler.GetChoice<MotionSource>(kMotionSourceId);
  motion_.integrator = handler.GetChoice<Integrator>(kIntegratorId);
  motion_.ballistic = handler.GetChoice<BallisticIntegrator>(kBallisticIntegratorId);
  motion_.collisions = handler.GetChoice<CollisionMode>(kCollisionsId);
  killInside_ = handler.GetBool(kKillInsideId);
  extraIterations_ = handler.GetInt(kExtraIterationsId);
  kind_ = handler.GetChoice(kKindId);
  motion_.collisionRadius = handler.GetFloat(kCollisionRadiusId);
  return true;
}

bool ParticleAdvection::ResolveLinks() {
  if (!ParticleOperator::ResolveLinks()) return false;
  group_ = LinkedGroup(kGroupId);
  operators_ = RetrieveInstantOperators(*scene, handler, kInstantOperatorsId);
  RetrieveSolvers();
  return true;
}

void ParticleAdvection::RetrieveSolvers() {
  const InExcludeData* list = handler.GetInExclude(kSolversId);
  if (list && list->entries.empty()) list = nullptr;
  std::vector<iBase*> found;
  scene->RetrieveAll(list, found, NODE_SOLVER, RETRIEVE_ANY, kAnySubType, RETRIEVE_ANY,
                     handler.GetChoice<SolverMode>(kSolverModeId) == SolverMode::Only);
  solvers_.clear();
  for (iBase* node : found) {
    if (auto* solver = dynamic_cast<FluidSolver*>(node)) solvers_.push_back(solver);
  }
}

void ParticleAdvection::ReleaseLinks() {
  group_ = nullptr;
  solvers_.clear(), operators_.clear();
  ParticleOperator::ReleaseLinks();
}

void ParticleAdvection::Advise() {
  if (!group_) Warn("no-group", "it moves nothing; link a particle group under \"group\"");
  if (ByField() && solvers_.empty()) {
    Warn("no-solver",
         "no velocity carries its particles, so they stand still; add a dynamics object or set \"motion_source\" to "
         "\"ballistic\"");
  }
  const InExcludeData* list = handler.GetInExclude(kSolversId);
  const bool takesAll = !list || list->entries.empty();
  if (ByField() && takesAll && solvers_.size() > 1) {
    const auto own = std::ranges::find_if(
        solvers_, [&](const FluidSolver* each) { return kind_ == PK_Liquid && each->HoldsParticles(group_); });
    Warn("several-solvers",
         fmt::format("all {} dynamics objects of the scene carry its particles, one after another, and they go as much "
                     "farther and age as much faster; list {} under \"solvers\"",
                     solvers_.size(), own == solvers_.end() ? "one" : "\"" + (*own)->DisplayName() + "\""));
  }
  ForEachEarlier(*this, [&](const ParticleAdvection& other) {
    if (!MovesTheSame(other)) return;
    Warn("moved-twice",
         "\"" + other.DisplayName() +
             "\" moves the same particles, so they go twice as far; take one out, or give them different "
             "constraints or durations");
  });
}

bool ParticleAdvection::MovesTheSame(const ParticleAdvection& other) const {
  const auto always = [](const ParticleAdvection& each) {
    const InExcludeData* constraints = each.handler.GetInExclude(kConstraintsId);
    return each.IsEnabled() && !each.handler.GetLink(kDurationId) && (!constraints || constraints->entries.empty());
  };
  return group_ && other.group_ == group_ && other.kind_ == kind_ && other.motion_.source == motion_.source &&
         motion_.source != MotionSource::None && always(*this) && always(other);
}

void ParticleAdvection::Prepare(iBase*) {
  SetFlag(NodeActive, false);
  if (simulationInfo->time == 0 || !group_ || group_->Count(kind_) == 0 || group_->KindIsKept(kind_)) return;
  const int iterations = extraIterations_ + 1;
  motion_.iterations = iterations;
  motion_.collideFrom = iterations == 1 ? 0 : extraIterations_ - 1;
  motion_.dt = static_cast<double>(static_cast<float>(simulationInfo->substepDuration / iterations));
  motion_.gravity = scene->GetGravity();
  motion_.firstSubstep = simulationInfo->substep == 1;
  motion_.lastSubstep = simulationInfo->lastSubstep;
  motion_.killInside = motion_.lastSubstep && killInside_;
  motion_.keepsStart = kind_ != PK_Liquid;  // whose velocity solvers give
  CollectObstacleViews();
  std::erase_if(operators_, [](const iInstantOperator* each) { return !each->IsEnabled(); });
  for (iInstantOperator* each : operators_) each->Begin(*this);
  PrepareConstraints();
  SetFlag(NodeActive, true);
}

void ParticleAdvection::CollectObstacleViews() {
  obstacles_.clear();
  const bool usesObstacles = motion_.collisions == CollisionMode::ObstaclesFirst ||
                             (motion_.collisions == CollisionMode::Boundary && !ByField());
  if (!usesObstacles) return;
  for (const VolumeBase* volume : CollectObstacles(*scene)) {
    if (volume->HasLevelSet()) obstacles_.emplace_back(*volume->LevelSet(), motion_.collisionRadius);
  }
}

MotionField ParticleAdvection::FieldOf(const FluidSolver& solver) const {
  const auto& grids = solver.velocity.grids;
  MotionField field;
  field.solid = solver.boundary.View();
  field.obstacles = obstacles_;
  if (!grids[0] || !grids[1] || !grids[2]) return field;
  field.velocity = {*grids[0], *grids[1], *grids[2]};
  if (!field.velocity.HasData()) field.velocity = {};
  field.origin = grids[0]->space.simMin;
  field.cellSize = grids[0]->space.cellSize;
  return field;
}

void ParticleAdvection::Process(ProcessData&) {
  if (!IsActive()) return;
  if (motion_.source == MotionSource::Ballistic) {
    MotionField field;
    field.cellSize = GetSimulationSpace().cellSize;
    field.obstacles = obstacles_;
    Pass(field);
  } else if (ByField()) {
    for (const FluidSolver* solver : solvers_) {
      if (!solver->IsActive()) continue;
      Pass(FieldOf(*solver));
      motion_.keepsStart = false;  // the sub-step began before the first pass
    }
  }
}

void ParticleAdvection::Pass(const MotionField& field) {
  ParticleList* list = group_->list(kind_);
  const InstantContext context{group_, list, this};
  ForRows(*list, [&](const ParticleRows& rows, int worker) {
    if (constraints_.empty()) return MoveParticles(motion_, field, operators_, context, rows, worker);
    double amounts[kChunkRows];
    const std::int32_t first = rows.first + rows.begin, count = rows.end - rows.begin;
    Weigh(*list, first, count, worker, 1, amounts);
    // What constraints leave out stays where it is, and doesn't age.
    for (std::int32_t n = 0, end; n < count; n = end) {
      for (end = n; end < count && amounts[end] != 0;) ++end;
      list->ForEachChunk(first + n, first + end, [&](const ParticleRows& open) {
        MoveParticles(motion_, field, operators_, context, open, worker);
      });
      while (end < count && amounts[end] == 0) ++end;
    }
  });
}

void ParticleAdvection::Finish() {
  if (IsActive()) {
    if (group_->Count(kind_) > 0) group_->SetKindDirty(kind_);
    for (iInstantOperator* each : operators_) each->End();
  }
  obstacles_.clear();
  ParticleOperator::Finish();
}

std::vector<ParticleGroup*> ParticleAdvection::WrittenGroups() const {
  return group_ ? std::vector<ParticleGroup*>{group_} : std::vector<ParticleGroup*>{};
}

}  // namespace orlix
