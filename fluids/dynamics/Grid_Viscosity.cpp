#include "fluids/dynamics/Grid_Viscosity.h"

#include <algorithm>
#include <cstdio>

#include "fluids/channels/ScalarChannels.h"
#include "fluids/dynamics/FluidSolver.h"
#include "fluids/volumes/VolumeBase.h"

namespace orlix {

namespace {

constexpr double kUnit = 0.1;  // of the setting, in m^2/s
constexpr double kAccuracyUnit = 0.001, kLeastTolerance = 1e-16;

VecInt3D EdgeDims(const VecInt3D& cells, int along) {
  VecInt3D dims = cells + VecInt3D(1, 1, 1);
  --dims[along];
  return dims;
}

}  // namespace

bool Grid_Viscosity::ReadParameters() {
  viscosity = handler.GetDouble(kViscosityId) * kUnit;
  limits.iterations = handler.GetInt(kViscosityIterationsId);
  limits.tolerance = handler.GetDouble(kViscosityAccuracyId) * kAccuracyUnit + kLeastTolerance;
  return handler.HasObject();
}

bool Grid_Viscosity::ResolveLinks() {
  channel = scene->RetrieveAs<ChannelBase_Scalar>(handler.GetLink(kViscosityChannelId), NODE_CHANNEL, RETRIEVE_SCALAR);
  states.solver = solver;
  bodies_ = CollectObstacles(*scene);
  return solver != nullptr;
}

void Grid_Viscosity::ReleaseLinks() {
  channel = nullptr;
  bodies_.clear();
  iObject::ReleaseLinks();
}

void Grid_Viscosity::ClearState(bool deactivate) {
  states.ClearState(deactivate);
  iObject::ClearState(deactivate);
}

void Grid_Viscosity::Solve() {
  const bool wanted = solver && (viscosity != 0 || channel);
  if (wanted) states.Prepare(this);
  SetFlag(NodeActive, wanted && states.IsActive() && GatherSystem());
  if (IsActive()) {
    states.Classify();
    const auto& grids = solver->velocity.grids;
    GatherSolidVelocity();
    ReportOutcome(
        SolveViscosity(system_, {*grids[0], *grids[1], *grids[2]}, solids_, limits, scene->scratch(), scene->pool()));
    StoreFixedFaces();
  }
  states.ClearState(false);
  ones_.GiveBack();
  for (auto& grid : solidVelocity_) grid.GiveBack();
  for (auto& view : solids_) view = {};
  system_ = {};
}

bool Grid_Viscosity::GatherSystem() {
  const ScalarGrid& first = *solver->velocity.grids[0];
  const double h = first.space.cellSize;
  const VecInt3D cells = first.space.dims;
  system_.cells = cells;
  system_.constant = viscosity;
  system_.scale = simulationInfo->substepDuration / (h * h);
  const ScalarGrid* byCell = channel ? channel->GetGrid(0) : nullptr;
  if (byCell && byCell->dims == cells) system_.viscosity = *byCell;
  const bool surface = solver->GetSurfaceGrid() != nullptr;
  const float* ones = nullptr;
  if (!surface) {
    ones_ = scene->scratch().Take<float>(cells + VecInt3D(1, 1, 1));
    std::fill_n(ones_->data, ones_->count, 1.0f);
    ones = ones_->data;
  }
  const auto share = [&](int axis, int kind, const VecInt3D& dims) {
    return surface ? solver->viscousFractions.View(axis, kind) : GridView<const float>(ones, dims);
  };
  system_.centre = share(0, 0, cells);
  bool whole = system_.centre.dims == cells;
  for (int axis = 0; axis < 3; ++axis) {
    system_.states[axis] = *states.States(axis);
    const VecInt3D dims = system_.states[axis].dims;
    system_.edge[axis] = share(axis, 2, EdgeDims(cells, 2 - axis));
    system_.around[axis] = share(axis, 3, dims);
    whole = whole && system_.edge[axis].dims == EdgeDims(cells, 2 - axis) && system_.around[axis].dims == dims;
  }
  return whole;
}

bool Grid_Viscosity::GatherSolidVelocity() {
  const bool moving = std::any_of(bodies_.begin(), bodies_.end(), [](const VolumeBase* body) {
    return body->IsEnabled() && !body->IsStaticBody() && body->HasLevelSet();
  });
  if (!moving) return false;
  for (int axis = 0; axis < 3; ++axis) {
    solidVelocity_[axis] = scene->scratch().Take<double>(system_.states[axis].dims);
    solidVelocity_[axis]->Fill(0, &scene->pool());
    solids_[axis] = *solidVelocity_[axis];
  }
  const GridSpace& space = solver->velocity.grids[0]->space;
  const VecInt3D n = system_.cells;
  ParallelRange(scene->pool(), 2, n.z - 1, [&](int k0, int k1, int) {
    for (int k = k0; k < k1; ++k) {
      for (int j = 2; j < n.y - 1; ++j) {
        for (int i = 2; i < n.x - 1; ++i) {
          bool fixed[3];
          for (int axis = 0; axis < 3; ++axis) fixed[axis] = system_.states[axis](i, j, k) == FaceFixed;
          if (!fixed[0] && !fixed[1] && !fixed[2]) continue;
          const Vec3D centre = space.simMin + (Vec3D(i, j, k) + Vec3D(0.5)) * double(space.cellSize);
          Vec3D velocity;
          for (const VolumeBase* body : bodies_) {
            if (body->IsStaticBody() || !body->IsEnabled() || !body->HasLevelSet()) continue;
            if (body->SampleWorld(centre) < space.cellSize) velocity = body->VelocityAt(centre);
          }
          for (int axis = 0; axis < 3; ++axis) {
            if (fixed[axis]) (*solidVelocity_[axis])(i, j, k) = velocity[axis];
          }
        }
      }
    }
  });
  return true;
}

void Grid_Viscosity::StoreFixedFaces() {
  for (int axis = 0; axis < 3; ++axis) {
    ScalarGrid& velocity = *solver->velocity.grids[axis];
    const GridView<const std::uint8_t> states_ = system_.states[axis];
    const GridView<const double> solid = solids_[axis];
    VecInt3D end = states_.dims - VecInt3D(1, 1, 1);
    ++end[axis];
    ParallelRange(scene->pool(), 1, end.z, [&](int k0, int k1, int) {
      for (int k = k0; k < k1; ++k) {
        for (int j = 1; j < end.y; ++j) {
          const std::uint8_t* row = &states_(0, j, k);
          for (int i = 1; i < end.x; ++i) {
            if (row[i] == FaceFixed) velocity(i, j, k) = solid.data ? solid(i, j, k) : 0;
          }
        }
      }
    });
  }
}

void Grid_Viscosity::ReportOutcome(const PressureOutcome& outcome) {
  SolverReport report;
  report.node = DisplayName() + " viscosity";
  report.iterations = outcome.iterations;
  report.residual = outcome.residual;
  report.converged = outcome.converged;
  scene->Report(std::move(report));
  if (outcome.converged) return;
  char text[200];
  std::snprintf(text, sizeof text,
                "the viscous solve ended after %d iterations above its tolerance: raise viscosity_iterations (%d) or "
                "viscosity_accuracy",
                outcome.iterations, limits.iterations);
  Warn("viscosity-not-converged", text);
}

double Grid_Viscosity::ScratchBytes(const VecInt3D& dims) {
  // For each axis four vectors, the inverse diagonal, shares around faces and edges, a state; shares of cells.
  constexpr double kFace = 4 * sizeof(double) + 3 * sizeof(float) + 1;
  return (3 * kFace + sizeof(float)) * double(CellCount(dims));
}

}  // namespace orlix
