#include "fluids/particle_operators/ParticleForce_SurfaceTension.h"

namespace orlix {

namespace {

constexpr int kMeanRounds = 3;  // the mean acts in each of a step's rounds

}  // namespace

const TypeInfo& ParticleForce_SurfaceTension::Type() {
  static constexpr Choice kMethods[] = {
      {Method::Mean, "mean", "Towards the middle of the neighbours, where the density is that of a surface"},
      {Method::Cohesion, "cohesion", "By cohesion and curvature"},
  };
  static constexpr Parameter kParameters[] = {
      LinkParameter(kGroupId, "group", kLinkParticles, "The particles; required"),
      LinkParameter(kSolverId, "solver", kLinkSolver, "Whose cells the mean goes by; without one the scene's"),
      FloatParameter(kStrengthId, "strength", 0.073, "N/m", "How strongly the surface pulls").Fallback(0),
      FloatParameter(kRadiusId, "radius", 2.5, "cells", "How far particles feel each other").Fallback(1.0).Above(0),
      FloatParameter(kMinimumDensityId, "minimum_density", 0.05, "", "Particles of lower density are left alone")
          .Fallback(0)
          .ShownWhen(kMethodId, Relation::Is, Method::Mean),
      FloatParameter(kMaximumDensityId, "maximum_density", 0.7, "",
                     "Particles of higher density are left alone: the inside")
          .ShownWhen(kMethodId, Relation::Is, Method::Mean),
      ChoiceParameter(kMethodId, "method", Method::Cohesion, kMethods, "How the tension is found")
          .Fallback(Method::Mean),
      ChoiceParameter(kKindId, "kind", PK_Passive, kParticleKindChoices, "The kind of particles in the group"),
  };
  static const TypeInfo kType = {
      .id = 1300078,
      .resource = "zq_pforce_tension",
      .className = "C4D_ParticleForce_SurfaceTension_Object",
      .label = "POP::Surface Tension",
      .text = "Pulls particles together: drops round off, sheets tear into threads.",
      .kinds = kLinkOperator,
      .parameters = kParameters,
      .common = CommonNodeParameters(),
  };
  return kType;
}

bool ParticleForce_SurfaceTension::ReadParameters() {
  if (!ParticleOperator::ReadParameters()) return false;
  byMean_ = handler.GetChoice<Method>(kMethodId) == Method::Mean;
  settings_.strength = handler.GetDouble(kStrengthId) * (byMean_ ? 100.0 : 0.01);
  settings_.radius = handler.GetDouble(kRadiusId) * GetSimulationSpace().cellSize;
  settings_.minimumDensity = handler.GetDouble(kMinimumDensityId);
  settings_.maximumDensity = handler.GetDouble(kMaximumDensityId);
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
  if (!group_ || group_->KindIsKept(kind_) || settings_.strength == 0 || !(settings_.radius > 0)) return;
  if (!group_->EnsureTree(kind_, false, 0)) return;
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
      AddMeanTension(scene->pool(), settings_, list, tree, weights_);
    }
    return;
  }
  FindTensionNormals(scene->pool(), settings_, list, tree);
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
