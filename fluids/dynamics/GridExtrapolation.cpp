#include "fluids/dynamics/GridExtrapolation.h"

#include "fluids/channels/ScalarChannels.h"
#include "fluids/channels/VectorChannels.h"
#include "fluids/dynamics/FluidSolver.h"

namespace orlix {

namespace {

constexpr std::int32_t kLayers = 1018;
constexpr double kDeepCells = -2;  // in solids beyond it nothing is needed

// The samples at or below the background.
CellMask NotAbove(const ScalarGrid& grid, double background, WorkerPool& pool) {
  CellMask mask;
  mask.Resize(grid.dims);
  ParallelRange(pool, 0, grid.dims.z, [&](int k0, int k1, int) {
    for (int k = k0; k < k1; ++k) {
      for (int j = 0; j < grid.dims.y; ++j) {
        const double* row = &grid(0, j, k);
        std::uint64_t* bits = mask.Row(j, k);
        for (int i = 0; i < grid.dims.x; ++i) bits[i >> 6] |= std::uint64_t(!(row[i] > background)) << (i & 63);
      }
    }
  });
  return mask;
}

}  // namespace

bool GridExtrapolation::NextIteration() {
  if (iteration == 1 && ++layerCounter <= layers) return true;
  ++iteration;
  if (iteration == 1) {
    if (layers != 0)
      layerCounter = 1;
    else
      iteration = 2;
  }
  if (iteration < 2) return true;
  iteration = -1;
  return false;
}

void GridExtrapolation::ClearState(bool deactivate) {
  iObject::ClearState(deactivate);
  for (auto& plan : plans_) plan.Clear();
  builtFor_ = {};
}

bool GridExtrapolation::ReadParameters() {
  layers = handler.GetInt(kLayers);
  liquidMode = false;
  return handler.HasObject();
}

bool GridExtrapolation::HasTarget() const {
  if (axis == kChannelTargets) {
    return (scalarTarget && scalarTarget->grid) || (vectorTarget && vectorTarget->grids[0]);
  }
  return solver && solver->velocity.grids[0] && solver->fractions.GetFloatGrid(0, 1);
}

void GridExtrapolation::Prepare(iBase*) {
  if (iteration == 0) SetFlag(NodeActive, layers != 0 && HasTarget());
}

void GridExtrapolation::Process(ProcessData&) {
  if (!IsActive() || !HasTarget()) return;
  WorkerPool& pool = scene->pool();
  if (axis == kChannelTargets) {
    if (iteration == 0) return FindAboveBackground();
    if (scalarTarget && scalarTarget->grid) return plans_[0].Fill(layerCounter, *scalarTarget->grid, pool);
    for (std::size_t c = 0; c < 3; ++c) plans_[c].Fill(layerCounter, *vectorTarget->grids[c], pool);
    return;
  }
  const auto component = static_cast<std::size_t>(axis);
  if (iteration == 0) return FindFaces(axis);
  plans_[component].Fill(layerCounter, *solver->velocity.grids[component], pool);
}

void GridExtrapolation::FindFaces(std::int32_t component) {
  const auto c = static_cast<std::size_t>(component);
  const bool liquid = liquidMode && solver->GetSurfaceGrid();
  const std::uint64_t revision = solver->fractions.revision();
  if (!liquid && builtFor_[c] == revision && builtLayers_[c] == layers) return;
  builtFor_[c] = liquid ? 0 : revision;
  builtLayers_[c] = layers;
  if (liquid) {
    plans_[c].Build(OutsideLiquid(component), layers, {}, 0, scene->scratch(), scene->pool());
    return;
  }
  GridView<const double> nodes;
  double deepBelow = 0;
  if (const ScalarGrid* distance = solver->boundary.solidDistance.grid.get()) {
    nodes = *distance;
    deepBelow = kDeepCells * static_cast<double>(distance->space.cellSize);
  }
  plans_[c].Build(solver->fractions.ClosedFaces(component), layers, nodes, deepBelow, scene->scratch(), scene->pool());
}

CellMask GridExtrapolation::OutsideLiquid(std::int32_t component) const {
  const GridView<const double> surface(*solver->GetSurfaceGrid());
  const GridView<const float> open = solver->fractions.View(component, 1);
  const std::int64_t step[3] = {1, surface.dims.x, surface.slab};
  CellMask mask;
  mask.Resize(open.dims);
  const VecInt3D end = Min(open.dims, surface.dims);
  ParallelRange(scene->pool(), 1, end.z, [&](int k0, int k1, int) {
    for (int k = k0; k < k1; ++k) {
      for (int j = 1; j < end.y; ++j) {
        std::uint64_t* bits = mask.Row(j, k);
        for (int i = 1; i < end.x; ++i) {
          const double* phi = &surface(i, j, k);
          const bool wet = static_cast<float>(phi[0]) < 0 || static_cast<float>(phi[-step[component]]) < 0;
          bits[i >> 6] |= std::uint64_t(!(open(i, j, k) > 0 && wet)) << (i & 63);
        }
      }
    }
  });
  return mask;
}

void GridExtrapolation::FindAboveBackground() {
  builtFor_ = {};
  const auto build = [&](std::size_t c, const ScalarGrid& grid, double background) {
    plans_[c].Build(NotAbove(grid, background, scene->pool()), layers, {}, 0, scene->scratch(), scene->pool());
  };
  if (scalarTarget && scalarTarget->grid) return build(0, *scalarTarget->grid, scalarTarget->backgroundValue);
  for (int c = 0; c < 3; ++c) {
    build(static_cast<std::size_t>(c), *vectorTarget->grids[c], vectorTarget->backgroundValue[c]);
  }
}

}  // namespace orlix
