// What the gas solver does in the stages of a sub-step.

#include "fluids/boundary/ContainerBoundary.h"
#include "fluids/dynamics/FluidSolver.h"
#include "fluids/dynamics/Grid_Incompressibility.h"
#include "fluids/dynamics/VelocityGridEmitter.h"

namespace orlix {

void FluidSolver::StartWorkers() {
  if (IsActive()) workersRun_ = true;
}

void FluidSolver::StopWorkers() {
  workersRun_ = false;
  SetFlag(NodeActive, false);
}

void FluidSolver::RunOnce(iObject& node) {
  ProcessData data;
  data.hostThread = scene->hostThread;
  node.Process(data);
}

void FluidSolver::RunIterations(iObject& node) {
  while (node.NextIteration()) RunOnce(node);
}

void FluidSolver::RunPerIteration(iObject& node) {
  while (node.NextIteration()) {
    node.Prepare(this);
    RunOnce(node);
    node.Finish();
  }
}

void FluidSolver::RunWhole(iObject& node) {
  node.Prepare(this);
  RunIterations(node);
  node.Finish();
}

void FluidSolver::Prepare(iBase*) {
  if (scene->stage == kStageForces) return velocityEmitter->Prepare(this);
  if (scene->stage != kStageEmitters || !IsActive()) return;
  StartWorkers();
  boundary.Prepare(this);
  fractions.Prepare(this);
  SetFlag(NodeActive, fractions.IsActive());
  if (!fractions.IsActive() || (boundary.IsCurrent() && fractions.IsCurrent())) return;
  for (int axis = 0; axis < 3; ++axis) fractions.ZeroWallFaces(axis, closedFaces);
}

void FluidSolver::Process(ProcessData&) {
  if (!IsActive() || !IsDirty() || HasFlag(NodeFromCache) || !workersRun_) return;
  switch (scene->stage) {
    case kStageEmitters:
      return BuildBoundary();
    case kStageForces:
      return EmitVelocity();
    case kStagePressure:
      constraint.Prepare(this);
      return Project(false);
    default:
      return;
  }
}

void FluidSolver::Finish() {
  if (scene->stage == kStageForces) velocityEmitter->Finish();
  if (scene->stage == kStageFlip) StopWorkers();
}

void FluidSolver::BuildBoundary() {
  if (!boundary.HasSolidGrid()) return;
  if (!boundary.IsCurrent()) {
    boundary.ResetSimulation();
    RunOnce(boundary);
  }
  RunOnce(fractions);
}

void FluidSolver::EmitVelocity() { RunIterations(*velocityEmitter); }

void FluidSolver::Project(bool) {
  if (!workersRun_) return;
  // An inviscid fluid slides along the walls into the pressure solve and sticks to them after it; a viscous one the
  // other way round.
  const bool viscous = IsViscous();
  ApplyContainerBoundary(viscous ? 0.0f : 1.0f);
  if (viscous) {
    RunWhole(constraint);
  } else {
    RunIterations(constraint);
    constraint.Finish();  // its scratch grids serve the projection
  }
  RunPerIteration(*projection);
  Extrapolate();
  ApplyContainerBoundary(viscous ? 1.0f : 0.0f);
  RunWhole(constraint);
  divergenceSource.ResetSimulation();
}

void FluidSolver::Extrapolate() {
  extrapolation.NextIteration();
  extrapolation.Prepare(this);
  extrapolation.iteration = -1;
  if (!extrapolation.IsActive()) return;
  for (std::int32_t axis = 0; axis < 3; ++axis) {
    extrapolation.SetAxis(axis);
    RunIterations(extrapolation);
  }
  extrapolation.Finish();
}

void FluidSolver::ApplyContainerBoundary(float slip) {
  if (!velocity.grids[0] || !velocity.grids[1] || !velocity.grids[2]) return;
  ApplyContainerVelocity({*velocity.grids[0], *velocity.grids[1], *velocity.grids[2]}, closedFaces, slip,
                         scene->pool());
}

}  // namespace orlix
