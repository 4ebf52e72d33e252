#include "fluids/forces/Force_Vortex.h"

namespace orlix {

namespace {

constexpr double kTangentScale = 0.010005072145190424;

}  // namespace

const TypeInfo& Force_Vortex::Type() {
  static constexpr Parameter kParameters[] = {
      FloatParameter(kStrengthId, "strength", 1.0, "cells/s^2",
                     "Acceleration at a hundred host units from the axis, nearly")
          .Fallback(80.0),
      LinkParameter(kForceDurationId, "force_duration", kLinkDuration, "When the force acts"),
  };
  static const TypeInfo kType = {
      .id = 1300115,
      .resource = "zq_force_vortex",
      .className = "C4D_Force_Vortex_Object",
      .label = "DF::Vortex",
      .text = "Turns the gas about the object's z axis.",
      .kinds = kLinkForce,
      .parameters = kParameters,
      .common = CommonNodeParameters(),
  };
  return kType;
}

bool Force_Vortex::ReadParameters() {
  priority = 0;
  if (!ConstrainedForce::ReadParameters()) return false;
  strength_ = handler.GetDouble(kStrengthId) * GetSimulationSpace().cellSize;
  matrix_ = handler.GetMatrix();
  inverse_ = matrix_.Inverse();
  return true;
}

void Force_Vortex::Prepare(iBase*) {
  if (BeginPrepare()) EndPrepare(simulationInfo->substepDuration * strengthFactor_);
}

void Force_Vortex::ProcessRow(const ForceRow& row) {
  if (!IsActive()) return;
  const double* amounts = Amounts(row);
  const Vec3D hostPerSim = row.space->hostPerSim;
  for (std::int32_t i = row.begin; i < row.end; ++i) {
    const Vec3D push = Push(row.Position(i) * hostPerSim) * (strength_ * kTangentScale * amounts[i]);
    row.forceX[i] += push.x;
    row.forceY[i] += push.y;
    row.forceZ[i] += push.z;
  }
}

void Force_Vortex::PrepareParticles(iBase*) {
  if (BeginParticles()) EndParticles();
}

void Force_Vortex::ProcessParticles(const ForceParticles& run) {
  if (!IsActive()) return;
  const double* amounts = Amounts(run, simulationInfo->substepDuration * strengthFactor_);
  const Vec3D hostPerSim = GetSimulationSpace().hostPerSim;
  for (std::int32_t n = 0; n < run.count; ++n) {
    run.forces[n] += Push(run.positions[n] * hostPerSim) * (strength_ * kTangentScale * amounts[n]);
  }
}

}  // namespace orlix
