#include "fluids/particle_operators/ParticleForce_Corrector.h"

#include <bit>

namespace orlix {

const TypeInfo& ParticleForce_Corrector::Type() {
  static constexpr Parameter kParameters[] = {
      LinkParameter(kGroupId, "group", kLinkParticles, "The particles; required"),
      LinkParameter(kSolverId, "solver", kLinkSolver,
                    "Whose walls keep particles out; without one the scene's volumes"),
      FloatParameter(kStrengthId, "strength", 5.0, "1/s", "How strongly neighbours push each other away")
          .Fallback(50.0),
      ChoiceParameter(kKindId, "kind", PK_Liquid, kParticleKindChoices, "The kind of particles in the group"),
      LinkParameter(kActInId, "act_in", kLinkDuration, "When the operator acts"),
      FloatParameter(kRadiusId, "radius", 0.5, "cells", "Distance up to which particles push").Fallback(1.4).Above(0),
      IntParameter(kPassesId, "passes", 1, "", "How often it is done in a sub-step").Between(1, 100),
      BoolParameter(kFallbackMeanId, "fallback_mean", false,
                    "A particle that moved out of all others' reach takes their mean velocity by mass, or 0"),
      BoolParameter(kSoftBoundaryId, "soft_boundary", false, "Pushes away from solids before particles touch them"),
  };
  static const TypeInfo kType = {
      .id = 1300054,
      .resource = "zq_pforce_correct",
      .className = "C4D_ParticleForce_Corrector_Object",
      .label = "POP::Weak Spring",
      .text = "Keeps particles apart by weak springs: a liquid neither clumps nor thins out.",
      .kinds = kLinkOperator,
      .parameters = kParameters,
      .common = CommonNodeParameters(),
  };
  return kType;
}

bool ParticleForce_Corrector::ReadParameters() {
  if (!ParticleOperator::ReadParameters()) return false;
  settings_.strength = handler.GetDouble(kStrengthId);
  settings_.radius = handler.GetDouble(kRadiusId) * GetSimulationSpace().cellSize;
  settings_.fallbackMean = handler.GetBool(kFallbackMeanId);
  settings_.softBoundary = handler.GetBool(kSoftBoundaryId);
  passes_ = handler.GetInt(kPassesId);
  kind_ = handler.GetChoice(kKindId);
  return true;
}

bool ParticleForce_Corrector::ResolveLinks() {
  if (!ParticleOperator::ResolveLinks()) return false;
  group_ = LinkedGroup(kGroupId);
  solver_ = scene->RetrieveAs<FluidSolver>(handler.GetLink(kSolverId), NODE_SOLVER);
  duration_ = LinkedDuration(kActInId);
  return group_ != nullptr;
}

void ParticleForce_Corrector::ReleaseLinks() {
  group_ = nullptr, solver_ = nullptr, duration_ = nullptr;
  ParticleOperator::ReleaseLinks();
}

void ParticleForce_Corrector::Advise() {
  if (!group_) Warn("no-group", "it moves nothing; link a particle group under \"group\"");
  if (settings_.strength == 0) Warn("no-strength", "it moves nothing; set \"strength\"");
  if (settings_.softBoundary && !solver_) {
    Warn("no-solver", "\"soft_boundary\" goes by the walls of a solver, and there is none; link one under \"solver\"");
  }
}

void ParticleForce_Corrector::Prepare(iBase*) {
  SetFlag(NodeActive, false);
  settings_.amount = DurationWeight(duration_, simulationInfo->time);
  settings_.dt = simulationInfo->substepDuration;
  const bool acts = settings_.amount != 0 && settings_.strength != 0 && settings_.radius > 0 && settings_.dt != 0;
  if (!acts || !group_ || group_->KindIsKept(kind_) || !group_->EnsureTree(kind_, false, 0)) return;
  settings_.solid = solver_ ? solver_->boundary.View() : SolidView();
  settings_.cellSize = GetSimulationSpace().cellSize;
  volumes_ = CollectObstacles(*scene);
  settings_.volumes = volumes_;
  settings_.seed = std::bit_cast<std::uint64_t>(simulationInfo->time) + static_cast<std::uint32_t>(scene->seed);
  PrepareConstraints();
  SetFlag(NodeActive, true);
}

void ParticleForce_Corrector::Tag(ParticleList& list) {
  WeighAll(list, 1, weights_);
  ForRows(list, [&](const ParticleRows& rows, int) {
    std::uint16_t* bits = rows.TagFlags();
    for (std::int32_t row = rows.begin; row < rows.end; ++row) {
      bits[row] = static_cast<std::uint16_t>(bits[row] & ~ParticleFlag::Excluded);
    }
    if (constraints_.empty()) return;
    const auto kept = rows.NeedProperty<double>(PP::ConstraintWeight);
    for (std::int32_t row = rows.begin; row < rows.end; ++row) {
      const double weight = weights_[static_cast<std::size_t>(rows.first + row)];
      if (weight != 0) {
        kept.Put(row, weight);
      } else {
        OrlixParticle(&list, rows.first + row).Remove(PP::ConstraintWeight);
      }
    }
  });
}

void ParticleForce_Corrector::Process(ProcessData&) {
  if (!IsActive()) return;
  ParticleList& list = *group_->list(kind_);
  const ParticleKdTree& tree = *group_->Tree(kind_);
  positions_.resize(static_cast<std::size_t>(list.count()));
  velocities_.resize(positions_.size());
  for (int pass = 0; pass < passes_ && !scene->TestBreak(); ++pass) {
    Tag(list);
    const Corrected corrected{positions_, velocities_, weights_};
    CorrectPositions(scene->pool(), settings_, list, tree, corrected);
    CorrectVelocities(scene->pool(), settings_, list, tree, corrected);
    ForRows(list, [&](const ParticleRows& rows, int) { TakeCorrected(corrected, rows); });
  }
}

void ParticleForce_Corrector::Finish() {
  if (IsActive()) group_->SetKindDirty(kind_);
  volumes_.clear();
  settings_.volumes = {};
  weights_ = {}, positions_ = {}, velocities_ = {};
  ParticleOperator::Finish();
}

std::vector<ParticleGroup*> ParticleForce_Corrector::WrittenGroups() const {
  return group_ ? std::vector<ParticleGroup*>{group_} : std::vector<ParticleGroup*>{};
}

}  // namespace orlix
