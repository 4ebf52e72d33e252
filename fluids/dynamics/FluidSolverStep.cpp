// What the gas solver does in the stages of a sub-step.

#include <algorithm>

#include "fluids/boundary/ContainerBoundary.h"
#include "fluids/dynamics/FluidSolver.h"
#include "fluids/dynamics/Grid_Incompressibility.h"
#include "fluids/dynamics/Grid_Viscosity.h"
#include "fluids/dynamics/VelocityGridEmitter.h"

namespace orlix {

void FluidSolver::Prepare(iBase*) {
  if (scene->stage != kStageEmitters || !IsActive()) return;
  boundary.Prepare(this);
  fractions.Prepare(this);
  SetFlag(NodeActive, fractions.IsActive());
  if (!fractions.IsActive() || (boundary.IsCurrent() && fractions.IsCurrent())) return;
  for (int axis = 0; axis < 3; ++axis) fractions.ZeroWallFaces(axis, closedFaces);
}

void FluidSolver::Process(ProcessData&) {
  if (!IsActive() || !IsDirty()) return;
  HasFlag(NodeFromCache) ? ProcessPlayedStage() : ProcessStage();
}

void FluidSolver::ProcessStage() {
  switch (scene->stage) {
    case kStageEmitters:
      return BuildBoundary();
    case kStageForces:
      return EmitVelocity();
    case kStagePressure:
      SolveViscosity();
      return Project();
    default:
      return;
  }
}

void FluidSolver::Finish() {
  if (scene->stage == kStageFlip) SetFlag(NodeActive, false);
}

void FluidSolver::BuildBoundary() {
  const bool wasCurrent = boundary.IsCurrent();
  boundary.Build();
  fractions.Compute();
  const ScalarGrid* nodes = boundary.SignedDistance();
  if (wasCurrent || boundary.obstacles.empty() || !nodes) return;
  if (std::any_of(nodes->data, nodes->data + nodes->count, [](double distance) { return distance > 0; })) return;
  Warn(
      "all-solid",
      "obstacles fill all of the box in which it computes, so nothing flows; move them, or take the obstacle's tag off "
      "what is no solid");
}

void FluidSolver::EmitVelocity() { velocityEmitter->Emit(); }

void FluidSolver::SolveViscosity() {
  if (!IsViscous()) return;
  ApplyContainerBoundary(0.0f);
  viscousFractions.Prepare(this);
  viscousFractions.Compute();
  viscosity->Solve();
}

void FluidSolver::Project() {
  // An inviscid fluid slides along the walls into the pressure solve and sticks to them after it; a viscous one the
  // other way round.
  const bool viscous = IsViscous();
  ApplyContainerBoundary(viscous ? 0.0f : 1.0f);
  constraint.Apply();
  projection->Project();
  ExtrapolateVelocity();
  ApplyContainerBoundary(viscous ? 1.0f : 0.0f);
  constraint.Apply();
  divergenceSource.ResetSimulation();
}

void FluidSolver::ExtrapolateVelocity() { extrapolation.Extrapolate(); }

void FluidSolver::ApplyContainerBoundary(float slip) {
  if (!velocity.grids[0] || !velocity.grids[1] || !velocity.grids[2]) return;
  ApplyContainerVelocity({*velocity.grids[0], *velocity.grids[1], *velocity.grids[2]}, closedFaces, slip,
                         scene->pool());
}

}  // namespace orlix
