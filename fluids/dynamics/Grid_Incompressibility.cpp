#include "fluids/dynamics/Grid_Incompressibility.h"

#include <algorithm>
#include <cstdio>

#include "fluids/channels/ScalarChannels.h"
#include "fluids/dynamics/FluidSolver.h"
#include "fluids/pressure/BodyMotion.h"
#include "fluids/pressure/MultigridCycle.h"
#include "fluids/volumes/VolumeBase.h"

namespace orlix {

namespace {

enum Round : std::int32_t { kBodies = 0, kAssemble = 1, kMean = 2, kSolve = 3, kApply = 4, kReport = 5 };

bool SameDims(const VecInt3D& cells, int axis, const VecInt3D& faces) {
  VecInt3D expected = cells;
  expected[axis] += 1;
  return faces == expected;
}

bool Moves(const VolumeBase& volume) {
  return volume.IsEnabled() && volume.LevelSet() && volume.GetSimulationInfo().substepDuration > 0 &&
         !(volume.LinearMotion() == Vec3D() && volume.AngularMotion() == Vec3D());
}

}  // namespace

Grid_Incompressibility::Grid_Incompressibility(BaseList2D* solverObject, OrlixScene& owner)
    : iObject(solverObject, owner),
      cg_(solverObject, owner),
      gauss_(solverObject, owner),
      multigrid_(solverObject, owner) {
  iterationCount = 6;
}

Grid_Incompressibility::~Grid_Incompressibility() = default;

// --- settings and links ----------------------------------------------------------------------------------------------

bool Grid_Incompressibility::ReadParameters() {
  if (!handler.HasObject()) return false;
  removeMeanDivergence = false;
  density = handler.GetDouble(1001);
  solverType = handler.GetChoice(1020);
  return cg_.ReadParameters() && gauss_.ReadParameters() && multigrid_.ReadParameters();
}

bool Grid_Incompressibility::ResolveLinks() {
  if (!solver) return false;
  for (Grid_CGSolver* part : {&cg_, static_cast<Grid_CGSolver*>(&multigrid_)}) part->owner = solver;
  gauss_.owner = solver;
  densityChannel = scene->RetrieveAs<ChannelBase_Scalar>(handler.GetLink(1000), NODE_CHANNEL, RETRIEVE_SCALAR);
  bodies = CollectObstacles(*scene);
  std::erase_if(bodies, [](const VolumeBase* volume) { return volume->IsStaticBody(); });
  // A body that the fluid pushes enters the matrix, which only the conjugate gradients take.
  const auto isDynamic = [](const VolumeBase* volume) { return volume->IsDynamicBody(); };
  if (solverType == kPressureGauss && std::any_of(bodies.begin(), bodies.end(), isDynamic)) solverType = kPressureCG;
  return true;
}

void Grid_Incompressibility::ReleaseLinks() {
  densityChannel = nullptr;
  bodies.clear();
  iObject::ReleaseLinks();
}

void Grid_Incompressibility::ResetSimulation() {
  cg_.ResetSimulation();
  gauss_.ResetSimulation();
  multigrid_.ResetSimulation();
  unconverged_ = 0;
  warnedFrame_ = -1;
}

void Grid_Incompressibility::ClearState(bool deactivate) {
  cg_.ClearState(deactivate);
  gauss_.ClearState(deactivate);
  multigrid_.ClearState(deactivate);
  iObject::ClearState(deactivate);
}

// --- rounds ----------------------------------------------------------------------------------------------------------

bool Grid_Incompressibility::GatherInput() {
  if (!solver) return false;
  for (int axis = 0; axis < 3; ++axis) {
    const ScalarGrid* grid = solver->velocity.GetGrid(axis);
    if (!grid) return false;
    input_.velocity[std::size_t(axis)] = GridView<const double>(*grid);
    input_.share[axis] = solver->fractions.View(axis, 1);
  }
  input_.cellShare = solver->fractions.View(0, 0);
  input_.cellSize = solver->velocity.GetGrid(0)->space.cellSize;
  input_.source = {};
  const VecInt3D cells = input_.Cells();
  if (const ScalarGrid* source = solver->divergenceSource.GetGrid(0); source && source->dims == cells) {
    input_.source = GridView<const double>(*source);
  }
  bool same = input_.cellShare.dims == cells && cells.x > 2 && cells.y > 2 && cells.z > 2;
  for (int axis = 0; axis < 3; ++axis) {
    same = same && SameDims(cells, axis, input_.velocity[std::size_t(axis)].dims) &&
           SameDims(cells, axis, input_.share[axis].dims);
  }
  return same;
}

void Grid_Incompressibility::Prepare(iBase*) {
  if (iteration != kBodies) return;
  SetFlag(NodeActive, GatherInput());
  if (!IsActive()) return;
  sums_ = {};
  meanCorrection_ = 0;
  outcome_ = {};
  const VecInt3D cells = input_.Cells();
  if (solverType != kPressureCG) cg_.Release();
  if (solverType != kPressureMultigrid) multigrid_.ResetSimulation();
  switch (solverType) {
    case kPressureCG:
      cg_.gridSize = cells;
      return cg_.Prepare(this);
    case kPressureMultigrid:
      multigrid_.gridSize = cells;
      return multigrid_.Prepare(this);
    default:
      gauss_.gridSize = cells;
      return gauss_.Prepare(this);
  }
}

void Grid_Incompressibility::Process(ProcessData& data) {
  if (!IsActive()) return;
  switch (iteration) {
    case kBodies:
      bodiesMove_ = std::any_of(bodies.begin(), bodies.end(), [](const VolumeBase* v) { return Moves(*v); });
      if (bodiesMove_) AddBodyDivergence(data);
      return;
    case kAssemble:
      AssembleSystem(data);
      return;
    case kMean:
      if (!removeMeanDivergence) return;
      ComputeMeanDivergence();
      RemoveMeanDivergence(data);
      return;
    case kSolve:
      SolveSystem();
      return;
    case kApply:
      ApplyPressure(data);
      return;
    default:
      divergenceAfter_ = RemainingDivergence(data);
      return;
  }
}

void Grid_Incompressibility::Finish() {
  if (iteration != kReport || !IsActive()) return;
  ReportOutcome(divergenceAfter_);
  cg_.Release();
  gauss_.Release();
  multigrid_.Release();
  for (auto& weights : densityWeights_) weights = {};
  system_ = {};
  input_ = {};
}

void Grid_Incompressibility::AddBodyDivergence(ProcessData& data) {
  const double dt = simulationInfo->substepDuration;
  for (const VolumeBase* volume : bodies) {
    if (!Moves(*volume)) continue;
    const GridSpace& box = volume->LevelSet()->space;
    const MovingBody body{volume->View(),
                          box.simMin,
                          box.simMax,
                          volume->BodyCentre(),
                          volume->LinearMotion() / dt,
                          volume->AngularMotion() / dt};
    AddBodyMotion(input_, solver->velocity.GetGrid(0)->space, body, RightSide(), scene->pool(),
                  [&] { return scene->TestBreak(data.hostThread); });
  }
}

void Grid_Incompressibility::AssembleSystem(ProcessData&) {
  const double dt = simulationInfo->substepDuration;
  const float h = input_.cellSize;
  sums_ = AssembleDivergence(input_, bodiesMove_, RightSide(), scene->pool());
  system_.dims = input_.Cells();
  for (int axis = 0; axis < 3; ++axis) system_.share[axis] = input_.share[axis];
  multigrid_.revision = solver->fractions.revision();
  const GridView<const double> densities = DensityView();
  if (!densities.data) {
    system_.scale = dt / (h * h) / density;
    return;
  }
  GridView<double> weights[3];
  for (int axis = 0; axis < 3; ++axis) {
    densityWeights_[axis] = scene->scratch().Take<double>(system_.share[axis].dims);
    weights[axis] = GridView<double>(*densityWeights_[axis]);
  }
  FillDensityWeights(system_.share, densities, dt / (h * h), weights, scene->pool());
  for (int axis = 0; axis < 3; ++axis) system_.weight[axis] = weights[axis];
  system_.scale = 1;
  multigrid_.revision = 0;
}

void Grid_Incompressibility::ComputeMeanDivergence() {
  meanCorrection_ = sums_.sum != 0 ? -sums_.sum / static_cast<double>(sums_.count) : 0;
}

void Grid_Incompressibility::RemoveMeanDivergence(ProcessData&) {
  if (meanCorrection_ != 0) AddToEquations(input_, meanCorrection_, RightSide(), scene->pool());
}

void Grid_Incompressibility::SolveSystem() {
  switch (solverType) {
    case kPressureCG:
      outcome_ = cg_.Solve(system_);
      return;
    case kPressureMultigrid:
      outcome_ = multigrid_.Solve(system_);
      return;
    default:
      outcome_.iterations = gauss_.Sweep(system_);
      outcome_.converged = true;
      return;
  }
}

void Grid_Incompressibility::ApplyPressure(ProcessData&) {
  const double dt = simulationInfo->substepDuration;
  const double h = input_.cellSize;
  const GridView<const double> densities = DensityView();
  GridView<double> velocity[3];
  for (int axis = 0; axis < 3; ++axis) velocity[axis] = GridView<double>(*solver->velocity.GetGrid(axis));
  const double k = densities.data ? dt / h : dt / density / h;
  ApplyPressureGradient(input_.share, Pressure(), k, densities, velocity, scene->pool());
}

// --- report ----------------------------------------------------------------------------------------------------------

double Grid_Incompressibility::RemainingDivergence(ProcessData& data) {
  if (!bodiesMove_) return AssembleDivergence(input_, false, nullptr, scene->pool()).largest;
  FillDoubles(RightSide(), system_.count(), 0, &scene->pool());
  AddBodyDivergence(data);
  return AssembleDivergence(input_, true, RightSide(), scene->pool()).largest;
}

void Grid_Incompressibility::ReportOutcome(double divergenceAfter) {
  SolverReport report;
  report.node = DisplayName();
  report.iterations = outcome_.iterations;
  report.converged = outcome_.converged;
  report.divergenceBefore = sums_.largest;
  report.divergenceAfter = divergenceAfter;
  report.residual = outcome_.residual;
  if (solverType == kPressureGauss) report.residual = sums_.largest > 0 ? divergenceAfter / sums_.largest : 0;
  scene->Report(report);
  if (outcome_.converged) return;
  ++unconverged_;
  if (warnedFrame_ == simulationInfo->frame) return;
  warnedFrame_ = simulationInfo->frame;
  char text[200];
  std::snprintf(text, sizeof text,
                "the pressure solve ended after %d iterations at a relative residual of %.1e, above its tolerance of "
                "%.0e (%lld such solves so far)",
                outcome_.iterations, outcome_.residual, cg_.toleranceFactor, static_cast<long long>(unconverged_));
  scene->Warn(*this, text);
}

double Grid_Incompressibility::ScratchBytes(const VecInt3D& dims) const {
  // Vectors of the solve, and what forces and advection borrowed before and left on the shelf; measured.
  constexpr double kVectors = 81;
  return kVectors * double(CellCount(dims)) + (solverType == kPressureMultigrid ? MultigridCycle::Bytes(dims) : 0);
}

// --- what rounds share -----------------------------------------------------------------------------------------------

double* Grid_Incompressibility::RightSide() const {
  switch (solverType) {
    case kPressureCG:
      return cg_.rhs->data;
    case kPressureMultigrid:
      return multigrid_.rhs->data;
    default:
      return gauss_.rhs->data;
  }
}

const double* Grid_Incompressibility::Pressure() const {
  switch (solverType) {
    case kPressureCG:
      return cg_.result->data;
    case kPressureMultigrid:
      return multigrid_.result->data;
    default:
      return gauss_.pressure->data;
  }
}

GridView<const double> Grid_Incompressibility::DensityView() const {
  const ScalarGrid* grid = densityChannel ? densityChannel->GetGrid(0) : nullptr;
  return grid && grid->dims == input_.Cells() ? GridView<const double>(*grid) : GridView<const double>();
}

}  // namespace orlix
