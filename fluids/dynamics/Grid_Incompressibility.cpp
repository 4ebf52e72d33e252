#include "fluids/dynamics/Grid_Incompressibility.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <limits>

#include "fluids/channels/ScalarChannels.h"
#include "fluids/dynamics/FluidSolver.h"
#include "fluids/grids/LargestMagnitude.h"
#include "fluids/pressure/BodyMotion.h"
#include "fluids/pressure/BodyPressure.h"
#include "fluids/pressure/MultigridCycle.h"
#include "fluids/volumes/VolumeBase.h"

namespace orlix {

namespace {

bool SameDims(const VecInt3D& cells, int axis, const VecInt3D& faces) {
  VecInt3D expected = cells;
  expected[axis] += 1;
  return faces == expected;
}

bool IsMoving(const VolumeBase& volume) {
  return volume.IsEnabled() && volume.LevelSet() && volume.GetSimulationInfo().substepDuration > 0 &&
         !(volume.LinearMotion() == Vec3D() && volume.AngularMotion() == Vec3D());
}

// As the fluid feels it. A body that forces move has the velocity that they left it with.
ForceAndTorque BodyVelocity(const VolumeBase& volume) {
  const double dt = volume.GetSimulationInfo().substepDuration;
  if (!volume.IsDynamicBody()) return {volume.LinearMotion() / dt, volume.AngularMotion() / dt};
  const RigidBody_Variational& body = *volume.Body();
  if (body.IsHeld()) return {};
  return {body.state.velocity * body.linearMotionScale, body.state.spin * body.angularMotionScale};
}

}  // namespace

Grid_Incompressibility::Grid_Incompressibility(BaseList2D* solverObject, OrlixScene& owner)
    : iObject(solverObject, owner) {}

Grid_Incompressibility::~Grid_Incompressibility() = default;

// --- settings and links ----------------------------------------------------------------------------------------------

bool Grid_Incompressibility::ReadParameters() {
  if (!handler.HasObject()) return false;
  density = handler.GetDouble(kDensityId);
  couplingMode = handler.GetChoice<BodyCouplingMode>(kBodyCouplingId);
  solverType = handler.GetChoice<PressureSolverType>(kPressureSolverId);
  settings.iterationLimit = handler.GetInt(kPressureIterationsId);
  settings.toleranceFactor = ToleranceFactor(handler.GetDouble(kPressureAccuracyId));
  settings.minDiagonalRatio = handler.GetDouble(kMinDiagonalRatioId);
  settings.modificationParameter = handler.GetDouble(kModificationId);
  return true;
}

bool Grid_Incompressibility::ResolveLinks() {
  if (!solver) return false;
  densityChannel =
      scene->RetrieveAs<ChannelBase_Scalar>(handler.GetLink(kDensityChannelId), NODE_CHANNEL, RETRIEVE_SCALAR);
  bodies = CollectObstacles(*scene);
  std::erase_if(bodies, [](const VolumeBase* volume) { return volume->IsStaticBody(); });
  // A body that the fluid pushes enters the matrix, which only the conjugate gradients take.
  const auto isDynamic = [](const VolumeBase* volume) { return volume->IsDynamicBody(); };
  const auto dynamic = std::find_if(bodies.begin(), bodies.end(), isDynamic);
  if (dynamic == bodies.end()) return true;
  if (solverType == kPressureGauss) solverType = kPressureCG;
  if (scene->IsPlayed(*solver)) {
    Warn("bodies-in-played",
         fmt::format("a cache plays its velocity, so it has no pressure and pushes no body: \"{}\" falls as if there "
                     "were no fluid; take it out of the cache's list, or keyframe its bodies",
                     (*dynamic)->DisplayName()));
  }
  return true;
}

void Grid_Incompressibility::ReleaseLinks() {
  densityChannel = nullptr;
  bodies.clear();
  iObject::ReleaseLinks();
}

void Grid_Incompressibility::ResetSimulation() {
  pressureSolver_.reset();
  regions_.reset();
}

void Grid_Incompressibility::ClearState(bool deactivate) {
  pressureSolver_.reset();
  regions_.reset();
  Release();
  iObject::ClearState(deactivate);
}

// --- a projection ----------------------------------------------------------------------------------------------------

void Grid_Incompressibility::Project(bool again) {
  SetFlag(NodeActive, GatherInput());
  if (!IsActive()) return;
  for (ScratchPool::Lease<double>* vector : {&rhs_, &pressure_}) {
    *vector = scene->scratch().Take<double>(input_.Cells());
    (*vector)->Fill(0, &scene->pool());
  }
  bodiesMove_ = std::any_of(bodies.begin(), bodies.end(), [](const VolumeBase* v) { return IsMoving(*v); });
  if (IsJoint()) BuildCoupling(again);
  AddBodyDivergence();
  AssembleSystem();
  if (!coupled_.empty()) system_.bodies = &coupling_, system_.dt = simulationInfo->substepDuration;
  RemoveMeanDivergence();
  const PressureTools tools{scene->pool(), scene->scratch(), [this] { return scene->TestBreak(); }};
  const PressureOutcome outcome = Solver().Solve(system_, settings, tools, rhs_->data, pressure_->data);
  ApplyPressure();
  if (!again) FindCarriedWeight();
  GatherBodyForces();
  ReportOutcome(outcome);
  Release();
}

void Grid_Incompressibility::Release() {
  for (ScratchPool::Lease<double>* lease : {&rhs_, &pressure_}) lease->GiveBack();
  for (auto& weights : densityWeights_) weights.GiveBack();
  system_ = {};
  input_ = {};
  coupling_ = {};
  coupled_.clear();
}

PressureSolver& Grid_Incompressibility::Solver() {
  if (!pressureSolver_ || madeFor_ != solverType) pressureSolver_ = MakePressureSolver(solverType);
  madeFor_ = solverType;
  return *pressureSolver_;
}

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

bool Grid_Incompressibility::HasDynamicBody() const {
  return std::any_of(bodies.begin(), bodies.end(),
                     [](const VolumeBase* v) { return v->IsEnabled() && v->IsDynamicBody() && v->Body()->HasBody(); });
}

void Grid_Incompressibility::BuildCoupling(bool again) {
  const double dt = simulationInfo->substepDuration;
  std::vector<CoupledBody> taken;
  for (VolumeBase* volume : bodies) {
    if (!volume->IsEnabled() || !volume->LevelSet() || !(dt > 0)) continue;
    const RigidBody_Variational& body = *volume->Body();
    const bool dynamic = volume->IsDynamicBody() && body.HasBody();
    const GridSpace& box = volume->LevelSet()->space;
    CoupledBody coupled{volume->View(), box.simMin, box.simMax, volume->BodyCentre(), BodyVelocity(*volume), {}};
    if (dynamic && !body.IsHeld()) {
      const double linear = std::max(body.linearMotionScale * body.forceScale, 0.0);
      const double angular = std::max(body.angularMotionScale * body.torqueScale, 0.0);
      coupled.inverseMass = body.linearFactor * body.linearFactor * (body.InverseMass() * linear);
      coupled.inverseInertia = {{},
                                body.InverseInertiaTimes({1, 0, 0}) * angular,
                                body.InverseInertiaTimes({0, 1, 0}) * angular,
                                body.InverseInertiaTimes({0, 0, 1}) * angular};
    }
    taken.push_back(coupled);
    coupled_.push_back(volume);
  }
  const ScalarGrid *solid = solver->boundary.SignedDistance(), *surface = solver->GetSurfaceGrid();
  coupling_.Build(std::move(taken), input_, solver->velocity.GetGrid(0)->space,
                  solid ? GridView<const double>(*solid) : GridView<const double>(),
                  surface ? GridView<const double>(*surface) : GridView<const double>(), scene->pool());
  bodiesMove_ = !coupled_.empty();
  for (std::size_t n = 0; n < coupled_.size() && !again; ++n) TakeWeight(n, surface != nullptr);
}

// A body in a fluid gets its weight of this sub-step where the fluid has its own: before the pressure, which answers
// both. The rigid world then moves it as it is. Were its weight part of that step, a body that floats would be seen to
// rise at every solve by half of what gravity makes of a sub-step, and pump the fluid up along its sides.
void Grid_Incompressibility::TakeWeight(std::size_t n, bool inLiquid) {
  VolumeBase& volume = *coupled_[n];
  RigidBody_Variational& body = *volume.Body();
  if (!coupling_.IsWet(n)) body.state.carried = 1;
  if (!volume.IsDynamicBody() || !body.HasBody() || body.IsHeld() || !coupling_.IsWet(n)) return;
  const double dt = simulationInfo->substepDuration;
  ForceAndTorque force;
  if (!(body.state.idleTime < 0)) {
    body.state.idleTime = -1 - body.state.idleTime;
    force.force = scene->gravity / body.InverseMass();
  }
  if (inLiquid) {
    // The liquid's weight over the way between the cells' middles and the body, as far as the pressure carries it: in a
    // liquid that falls there is none.
    const ForceAndTorque offset = coupling_.SurfaceOffset(n, scene->gravity * (density * body.state.carried));
    force.force += offset.force * body.forceScale;
    force.torque = offset.torque * body.torqueScale;
  }
  volume.TakeImpulse(force.force * dt, force.torque * dt);
  coupling_.SetVelocity(n, BodyVelocity(volume));
}

MovingBody Grid_Incompressibility::MovingBodyOf(const VolumeBase& volume) const {
  const double dt = simulationInfo->substepDuration;
  const GridSpace& box = volume.LevelSet()->space;
  return {volume.View(),
          box.simMin,
          box.simMax,
          volume.BodyCentre(),
          volume.LinearMotion() / dt,
          volume.AngularMotion() / dt};
}

std::vector<VolumeBase*> Grid_Incompressibility::DynamicBodies(BodyCouplingMode coupling) const {
  std::vector<VolumeBase*> found;
  if (couplingMode != coupling || !(simulationInfo->substepDuration > 0)) return found;
  for (VolumeBase* volume : bodies) {
    const bool dynamic = volume->IsEnabled() && volume->IsDynamicBody() && volume->Body()->HasBody();
    if (dynamic && volume->LevelSet()) found.push_back(volume);
  }
  return found;
}

// By one density: where a channel has others, the weight counts in full.
void Grid_Incompressibility::FindCarriedWeight() {
  if (!system_.equation || DensityView().data) return;
  for (std::size_t n = 0; n < coupled_.size(); ++n) {
    double& carried = coupled_[n]->Body()->state.carried;
    const auto share = coupling_.ShareOf(scene->gravity * density, n, pressure_->data, system_.equation);
    carried = std::clamp(share.value_or(carried), 0.0, 1.0);
  }
}

// The pressure's differences times dt / (density h): what the bodies' next step takes.
void Grid_Incompressibility::GatherSplitForces() {
  const double scale = simulationInfo->substepDuration / density / input_.cellSize;
  const ScalarGrid* surface = solver->GetSurfaceGrid();
  for (VolumeBase* volume : DynamicBodies(BodyCouplingMode::Split)) {
    const ForceAndTorque sum =
        SumBodyPressure(input_, solver->velocity.GetGrid(0)->space, MovingBodyOf(*volume), pressure_->data,
                        surface ? GridView<const double>(*surface) : GridView<const double>(), scene->pool(),
                        [this] { return scene->TestBreak(); });
    RigidBody_Variational& body = *volume->Body();
    const Vec3D force = sum.force * (-scale * body.forceScale), torque = sum.torque * (scale * body.torqueScale);
    if (!body.FeelsForce(force, torque)) continue;
    body.AddForce(force);
    body.AddTorque(torque);
  }
}

void Grid_Incompressibility::GatherBodyForces() {
  if (coupled_.empty()) return GatherSplitForces();
  const double dt = simulationInfo->substepDuration;
  const std::vector<ForceAndTorque> forces = coupling_.Forces(pressure_->data, scene->pool());
  for (std::size_t n = 0; n < coupled_.size(); ++n) {
    VolumeBase& volume = *coupled_[n];
    if (!volume.IsDynamicBody() || !volume.Body()->HasBody() || !coupling_.IsWet(n)) continue;
    RigidBody_Variational& body = *volume.Body();
    const Vec3D force = forces[n].force * body.forceScale, torque = forces[n].torque * body.torqueScale;
    if (!body.FeelsForce(force, torque)) continue;
    volume.TakeImpulse(force * dt, torque * dt);
    coupling_.SetVelocity(n, BodyVelocity(volume));
  }
}

void Grid_Incompressibility::AddBodyDivergence() {
  if (!bodiesMove_) return;
  if (!coupled_.empty()) return coupling_.AddMotion(rhs_->data);
  for (const VolumeBase* volume : bodies) {
    if (!IsMoving(*volume)) continue;
    AddBodyMotion(input_, solver->velocity.GetGrid(0)->space, MovingBodyOf(*volume), rhs_->data, scene->pool(),
                  [this] { return scene->TestBreak(); });
  }
}

void Grid_Incompressibility::AssembleSystem() {
  const double dt = simulationInfo->substepDuration;
  const float h = input_.cellSize;
  divergenceBefore_ = largestRightSide_ = AssembleDivergence(input_, bodiesMove_, rhs_->data, scene->pool());
  system_.dims = input_.Cells();
  for (int axis = 0; axis < 3; ++axis) system_.share[axis] = input_.share[axis];
  const GridView<const double> densities = DensityView();
  if (!densities.data) {
    system_.scale = dt / (h * h) / density;
    return;
  }
  LookAtDensities(densities);
  GridView<double> weights[3];
  for (int axis = 0; axis < 3; ++axis) {
    densityWeights_[axis] = scene->scratch().Take<double>(system_.share[axis].dims);
    weights[axis] = GridView<double>(*densityWeights_[axis]);
  }
  FillDensityWeights(system_.share, densities, dt / (h * h), weights, scene->pool());
  for (int axis = 0; axis < 3; ++axis) system_.weight[axis] = weights[axis];
  system_.scale = 1;
}

// Once a run. A liquid has an assembly of its own: its channel is filled where the liquid is.
void Grid_Incompressibility::LookAtDensities(const GridView<const double>& densities) {
  if (lookedAtDensities_) return;
  lookedAtDensities_ = true;
  const VecInt3D n = densities.dims;
  for (int k = 1; k < n.z - 1; ++k) {
    for (int j = 1; j < n.y - 1; ++j) {
      const double* row = densities.data + densities.Index(0, j, k);
      if (std::all_of(row + 1, row + n.x - 1, [](double density) { return density > 0; })) continue;
      return Warn("no-density",
                  "its density_channel isn't above 0 in all cells, and where it isn't the gas weighs nothing and is "
                  "thrown about; fill the whole container, as grid_variabledensity does, or raise its background");
    }
  }
}

std::uint64_t Grid_Incompressibility::RegionRevision() const { return solver->fractions.revision(); }

void Grid_Incompressibility::RemoveMeanDivergence() {
  if (!regions_ || regionsFor_ == 0 || regionsFor_ != RegionRevision()) {
    regions_ = std::make_unique<ClosedRegions>(system_, scene->pool());
    regionsFor_ = RegionRevision();
  }
  if (regions_->count() == 0) return;
  regions_->RemoveMeans(rhs_->data, scene->pool());
  largestRightSide_ = LargestMagnitude(*rhs_, scene->pool());
}

void Grid_Incompressibility::ApplyPressure() {
  const double dt = simulationInfo->substepDuration;
  const double h = input_.cellSize;
  const GridView<const double> densities = DensityView();
  GridView<double> velocity[3];
  for (int axis = 0; axis < 3; ++axis) velocity[axis] = GridView<double>(*solver->velocity.GetGrid(axis));
  const double k = densities.data ? dt / h : dt / density / h;
  ApplyPressureGradient(input_.share, pressure_->data, k, densities, velocity, scene->pool());
}

// --- report ----------------------------------------------------------------------------------------------------------

double Grid_Incompressibility::RemainingDivergence() {
  if (bodiesMove_) {
    rhs_->Fill(0, &scene->pool());
    AddBodyDivergence();
  }
  return AssembleDivergence(input_, bodiesMove_, rhs_->data, scene->pool());
}

double Grid_Incompressibility::RoundingOfDivergence() const {
  const VecInt3D n = input_.Cells();
  double speed = 0;
  for (const auto& velocity : input_.velocity) speed = std::max(speed, LargestMagnitude(velocity, scene->pool()));
  // A pressure differs across the container by up to its length times the differences that move the velocity.
  return 16 * std::numeric_limits<double>::epsilon() * std::max({n.x, n.y, n.z}) * speed / input_.cellSize;
}

void Grid_Incompressibility::ReportOutcome(const PressureOutcome& outcome) {
  SolverReport report;
  report.node = DisplayName();
  report.iterations = outcome.iterations;
  report.divergenceBefore = divergenceBefore_;
  double residual = report.divergenceAfter = RemainingDivergence();
  if (regions_ && regions_->count() > 0) {
    regions_->RemoveMeans(rhs_->data, scene->pool());
    residual = LargestMagnitude(*rhs_, scene->pool());
  }
  // Conjugate gradients carry their residual along; where the system has no solution it falls though the true one
  // stays.
  report.residual = largestRightSide_ > 0 ? residual / largestRightSide_ : 0;
  if (outcome.tested) report.converged = outcome.converged;
  // Split bodies give way in the system, but only in the next sub-step in the velocity, so what is left says nothing.
  if (outcome.tested && outcome.converged && report.residual > settings.toleranceFactor &&
      DynamicBodies(BodyCouplingMode::Split).empty()) {
    // The matrix has h h in single precision, the gradient has h: an exact solution leaves the difference.
    const double ofSystem = std::max(4 * settings.toleranceFactor, double(std::numeric_limits<float>::epsilon()));
    report.converged = residual <= std::max(ofSystem * largestRightSide_, RoundingOfDivergence());
  }
  scene->Report(report);
  if (report.converged.value_or(true) || scene->TestBreak()) return;
  char text[200];
  std::snprintf(text, sizeof text,
                "the pressure solve ended after %d iterations at a relative residual of %.1e, above its tolerance of "
                "%.0e; the statistics tell of each sub-step",
                outcome.iterations, report.residual, settings.toleranceFactor);
  Warn("not-converged", text);
}

double Grid_Incompressibility::ScratchBytes(const VecInt3D& dims) const {
  // Bytes a cell of a solve's vectors; forces and advection borrow the same memory before it. Measured.
  const double vectors = solverType == kPressureMultigrid ? 36 : solverType == kPressureCG ? 42 : 60;
  return vectors * double(CellCount(dims)) + (solverType == kPressureMultigrid ? MultigridCycle::Bytes(dims) : 0);
}

GridView<const double> Grid_Incompressibility::DensityView() const {
  const ScalarGrid* grid = densityChannel ? densityChannel->GetGrid(0) : nullptr;
  return grid && grid->dims == input_.Cells() ? GridView<const double>(*grid) : GridView<const double>();
}

}  // namespace orlix
