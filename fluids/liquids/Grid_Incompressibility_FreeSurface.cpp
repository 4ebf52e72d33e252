#include "fluids/liquids/Grid_Incompressibility_FreeSurface.h"

#include <fmt/format.h>

#include "fluids/dynamics/FluidSolver.h"
#include "fluids/pressure/BodyPressure.h"
#include "fluids/volumes/VolumeBase.h"

namespace orlix {

bool Grid_Incompressibility_FreeSurface::GatherInput() {
  if (!Grid_Incompressibility::GatherInput()) return false;
  const ScalarGrid* phi = solver->GetSurfaceGrid();
  if (!phi || phi->dims != input_.Cells()) return false;
  surface_.phi = *phi;
  surface_.density = DensityView();
  for (int axis = 0; axis < 3; ++axis) surface_.share[axis] = input_.share[axis];
  return true;
}

// Once a run.
void Grid_Incompressibility_FreeSurface::LookAtLiquidDensities() {
  if (lookedAtDensities_ || !surface_.density.data) return;
  const GridView<const double>& phi = surface_.phi;
  const std::int64_t count = CellCount(phi.dims);
  std::int64_t liquid = 0, light = 0;
  for (std::int64_t n = 0; n < count; ++n) {
    if (!(phi.data[n] < 0)) continue;
    ++liquid;
    light += !(surface_.density.data[n] > 0);
  }
  if (liquid == 0) return;
  lookedAtDensities_ = true;
  if (light == 0) return;
  Warn("no-density",
       fmt::format(
           "its density_channel isn't above 0 in {} of {} cells of the liquid, which weighs nothing there and is "
           "thrown about; fill it with the liquid's density in kg/m^3, or take the link out",
           light, liquid));
}

void Grid_Incompressibility_FreeSurface::AssembleSystem() {
  LookAtLiquidDensities();
  const double dt = simulationInfo->substepDuration;
  const double h = input_.cellSize;
  const VecInt3D cells = input_.Cells();
  GridView<double> weights[3];
  for (int axis = 0; axis < 3; ++axis) {
    weights_[axis] = scene->scratch().Take<double>(input_.share[axis].dims);
    weights[axis] = GridView<double>(*weights_[axis]);
    system_.weight[axis] = weights[axis];
    system_.share[axis] = input_.share[axis];
  }
  equation_ = scene->scratch().Take<std::uint8_t>(cells);
  FillSurfaceWeights(surface_, surface_.density.data ? dt / (h * h) : dt / (h * h) / density, weights, equation_->data,
                     scene->pool());
  for (const VolumeBase* volume : DynamicBodies(BodyCouplingMode::Split)) {
    AddBodyWeights(surface_, solver->velocity.GetGrid(0)->space, MovingBodyOf(*volume), h,
                   volume->Body()->InverseMass() * dt / density, weights, scene->pool());
  }
  AssembleDivergence(input_, bodiesMove_, rhs_->data, scene->pool());
  divergenceBefore_ = largestRightSide_ = KeepEquations(equation_->data, cells, rhs_->data, scene->pool());
  system_.dims = cells;
  system_.equation = equation_->data;
  system_.scale = 1;
}

void Grid_Incompressibility_FreeSurface::ApplyPressure() {
  const double dt = simulationInfo->substepDuration;
  const double h = input_.cellSize;
  GridView<double> velocity[3];
  for (int axis = 0; axis < 3; ++axis) velocity[axis] = GridView<double>(*solver->velocity.GetGrid(axis));
  ApplySurfaceGradient(surface_, pressure_->data, surface_.density.data ? dt / h : dt / density / h, velocity,
                       scene->pool());
}

double Grid_Incompressibility_FreeSurface::RemainingDivergence() {
  rhs_->Fill(0, &scene->pool());
  AddBodyDivergence();
  AssembleDivergence(input_, true, rhs_->data, scene->pool());
  return KeepEquations(equation_->data, input_.Cells(), rhs_->data, scene->pool());
}

void Grid_Incompressibility_FreeSurface::Release() {
  Grid_Incompressibility::Release();
  for (auto& weights : weights_) weights.GiveBack();
  equation_.GiveBack();
  surface_ = {};
}

}  // namespace orlix
