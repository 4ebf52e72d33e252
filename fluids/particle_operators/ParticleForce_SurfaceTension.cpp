#include "fluids/particle_operators/ParticleForce_SurfaceTension.h"

namespace orlix {

namespace {

constexpr int kGroupId = 1000, kSolverId = 1001, kStrengthId = 1002, kRadiusId = 1005, kMinimumId = 1007;
constexpr int kMaximumId = 1008, kMethodId = 1009, kKindId = 1010;
constexpr int kMeanRounds = 3;  // the mean acts in each of a step's rounds

constexpr Choice kMethods[] = {
    {0, "mean", "Towards the middle of the neighbours, where the density is that of a surface"},
    {1, "cohesion", "By cohesion and curvature"},
};

constexpr Parameter kParameters[] = {
    LinkParameter(kGroupId, "group", kLinkParticles, "The particles; required"),
    LinkParameter(kSolverId, "solver", kLinkSolver, "Whose cells the mean goes by; without one the scene's"),
    FloatParameter(kStrengthId, "strength", 0.073, "N/m", "How strongly the surface pulls").Fallback(0),
    FloatParameter(kRadiusId, "radius", 2.5, "cells", "How far particles feel each other").Fallback(1.0).Above(0),
    FloatParameter(kMinimumId, "minimum_density", 0.05, "", "Particles of lower density are left alone")
        .Fallback(0)
        .ShownWhen(kMethodId, Relation::Is, 0),
    FloatParameter(kMaximumId, "maximum_density", 0.7, "", "Particles of higher density are left alone: the inside")
        .ShownWhen(kMethodId, Relation::Is, 0),
    ChoiceParameter(kMethodId, "method", 1, kMethods, "How the tension is found").Fallback(0),
    ChoiceParameter(kKindId, "kind", PK_Passive, kParticleKindChoices, "The kind of particles in the group"),
};

}  // namespace

const TypeInfo& ParticleForce_SurfaceTension::Type() {
  static const TypeInfo kType = ParticleOperatorType(
      1300078, "zq_pforce_tension", "C4D_ParticleForce_SurfaceTension_Object", "POP::Surface Tension",
      "Pulls particles together: drops round off, sheets tear into threads.", kParameters);
  return kType;
}

bool ParticleForce_SurfaceTension::ReadParameters() {
  if (!ParticleOperator::ReadParameters()) return false;
  byMean_ = handler.GetChoice(kMethodId) == 0;
  settings_.strength = handler.GetDouble(kStrengthId) * (byMean_ ? 100.0 : 0.01);
  settings_.radius = handler.GetDouble(kRadiusId) * GetSimulationSpace().cellSize;
  settings_.minimumDensity = handler.GetDouble(kMinimumId);
  settings_.maximumDensity = handler.GetDouble(kMaximumId);
  kind_ = handler.GetChoice(kKindId);
  return true;
}

bool ParticleForce_SurfaceTension::ResolveLinks() {
  if (!ParticleOperator::ResolveLinks()) return false;
  group_ = LinkedGroup(kGroupId);
  solver_ = scene->RetrieveAs<FluidSolver>(handler.GetLink(kSolverId), NODE_SOLVER);
  return group_ != nullptr;
}

void ParticleForce_SurfaceTension::ReleaseLinks() {
  group_ = nullptr, solver_ = nullptr;
  ParticleOperator::ReleaseLinks();
}

void ParticleForce_SurfaceTension::Advise() {
  if (!group_) Warn("no-group", "it draws nothing together; link a particle group under \"group\"");
  if (settings_.strength == 0) Warn("no-strength", "it draws nothing together; set \"strength\"");
}

void ParticleForce_SurfaceTension::Prepare(iBase*) {
  SetFlag(NodeActive, false);
  if (!group_ || settings_.strength == 0 || !(settings_.radius > 0) || !group_->EnsureTree(kind_, false, 0)) return;
  settings_.dt = simulationInfo->substepDuration;
  const bool bySolver = solver_ && solver_->IsActive() && solver_->velocity.grids[0];
  settings_.halfCell = bySolver ? solver_->velocity.grids[0]->space.halfCell : GetSimulationSpace().halfCell;
  PrepareConstraints();
  SetFlag(NodeActive, true);
}

void ParticleForce_SurfaceTension::Process(ProcessData&) {
  if (!IsActive()) return;
  ParticleList& list = *group_->list(kind_);
  const ParticleKdTree& tree = *group_->Tree(kind_);
  WeighAll(list, 1, weights_);
  if (byMean_) {
    for (int round = 0; round < kMeanRounds; ++round) {
      ForRows(list, [&](const ParticleRows& rows, int worker) {
        AddMeanTension(settings_, list, tree, weights_, rows, worker);
      });
    }
    return;
  }
  ForRows(list, [&](const ParticleRows& rows, int worker) { FindTensionNormals(settings_, list, tree, rows, worker); });
  AddCohesion(scene->pool(), settings_, list, tree, weights_);
}

void ParticleForce_SurfaceTension::Finish() {
  weights_ = {};
  ParticleOperator::Finish();
}

std::vector<ParticleGroup*> ParticleForce_SurfaceTension::WrittenGroups() const {
  return group_ ? std::vector<ParticleGroup*>{group_} : std::vector<ParticleGroup*>{};
}

}  // namespace orlix
