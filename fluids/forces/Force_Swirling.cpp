#include "fluids/forces/Force_Swirling.h"

#include "fluids/channels/VelocityGridChannel.h"

namespace orlix {

namespace {

constexpr double kStrengthScale = 0.2;

}  // namespace

const TypeInfo& Force_Swirling::Type() {
  static constexpr Parameter kParameters[] = {
      FloatParameter(kStrengthId, "strength", 0.8, "", "How strongly swirls are kept").Min(0),
      LinkParameter(kForceDurationId, "force_duration", kLinkDuration, "When the force acts"),
      BoolParameter(kRemoveMeanId, "remove_mean", true, "Takes the container's mean swirl off first"),
      BoolParameter(kAlongFlowId, "along_flow", false, "Acts by how far the flow runs along the swirl's axis"),
  };
  static const TypeInfo kType = {
      .id = 1300016,
      .resource = "zq_force_swirling",
      .className = "C4D_Force_Swirling_Object",
      .label = "GF::Swirling",
      .text = "Vorticity confinement: keeps the swirls that a coarse grid would lose.",
      .kinds = kLinkForce,
      .parameters = kParameters,
      .common = CommonNodeParameters(),
  };
  return kType;
}

bool Force_Swirling::ReadParameters() {
  priority = 0;
  if (!ConstrainedForce::ReadParameters()) return false;
  strength_ = handler.GetDouble(kStrengthId) * kStrengthScale;
  removeMean_ = handler.GetBool(kRemoveMeanId);
  terms_.alongFlow = handler.GetBool(kAlongFlowId);
  return true;
}

void Force_Swirling::ReleaseLinks() {
  magnitude_.GiveBack();
  ConstrainedForce::ReleaseLinks();
}

void Force_Swirling::Prepare(iBase*) {
  if (!BeginPrepare() || !boundary_ || !(strength_ > 0)) return;
  const auto& grids = velocity_->grids;
  view_ = {*grids[0], *grids[1], *grids[2]};
  const GridSpace& space = Lattice();
  const double cellSize = space.cellSize, dt = simulationInfo->substepDuration;
  terms_.inverseCellSize = 1 / cellSize;
  terms_.epsilon = 1e-19 / (cellSize * dt);
  WorkerPool& pool = scene->pool();
  terms_.mean = removeMean_ ? MeanCurl(view_, terms_.inverseCellSize, pool) : Vec3D();
  magnitude_ = scene->scratch().Take<double>(space.dims);
  CurlMagnitude(view_, terms_.inverseCellSize, terms_.mean, *magnitude_, pool);
  EndPrepare(cellSize * strength_ * dt * strengthFactor_);
}

void Force_Swirling::ProcessRow(const ForceRow& row) {
  if (!IsActive()) return;
  // The outermost layer has no neighbours to take a gradient from.
  const VecInt3D n = magnitude_->dims;
  if (row.j < 1 || row.k < 1 || row.j > n.y - 2 || row.k > n.z - 2) return;
  AddConfinement(view_, *magnitude_, terms_,
                 {std::max(row.begin, 1),
                  std::min(row.end, n.x - 1),
                  row.j,
                  row.k,
                  Amounts(row),
                  {row.forceX, row.forceY, row.forceZ}});
}

void Force_Swirling::Finish() {
  magnitude_.GiveBack();
  ConstrainedForce::Finish();
}

}  // namespace orlix
