#include "fluids/forces/Force_Vortex.h"

namespace orlix {

namespace {

constexpr double kTangentScale = 0.010005072145190424;

constexpr Parameter kParameters[] = {
    FloatParameter(1000, "strength", 1.0, "cells/s^2", "Acceleration at a hundred host units from the axis, nearly")
        .Fallback(80.0),
    LinkParameter(1001, "force_duration", kLinkDuration, "When the force acts"),
};

}  // namespace

const TypeInfo& Force_Vortex::Type() {
  static const TypeInfo kType = ForceType(1300115, "zq_force_vortex", "C4D_Force_Vortex_Object", "DF::Vortex",
                                          "Turns the gas about the object's z axis.", kParameters);
  return kType;
}

bool Force_Vortex::ReadParameters() {
  priority = 0;
  if (!ConstrainedForce::ReadParameters()) return false;
  strength_ = handler.GetDouble(1000) * GetSimulationSpace().cellSize;
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
    const Vec3D q = inverse_ * (row.Position(i) * hostPerSim);
    const Vec3D push = matrix_.Rotate({-q.y, q.x, 0}) * (strength_ * kTangentScale * amounts[i]);
    row.forceX[i] += push.x;
    row.forceY[i] += push.y;
    row.forceZ[i] += push.z;
  }
}

}  // namespace orlix
