#include "fluids/dynamics/GridExtrapolation.h"

#include "fluids/dynamics/FluidSolver.h"

namespace orlix {

namespace {

constexpr double kDeepCells = -2;  // in solids beyond it nothing is needed

}  // namespace

void GridExtrapolation::ClearState(bool deactivate) {
  iObject::ClearState(deactivate);
  for (auto& plan : plans_) plan.Clear();
  builtFor_ = {};
}

bool GridExtrapolation::ReadParameters() {
  layers = handler.GetInt(kExtrapolationLayersId);
  liquidMode = false;
  return handler.HasObject();
}

bool GridExtrapolation::HasInput() const {
  return solver && solver->velocity.grids[0] && solver->fractions.GetFloatGrid(0, 1);
}

void GridExtrapolation::Extrapolate() {
  SetFlag(NodeActive, layers != 0 && HasInput());
  if (!IsActive()) return;
  for (std::int32_t component = 0; component < 3; ++component) {
    const auto c = static_cast<std::size_t>(component);
    FindLayers(component);
    for (std::int32_t layer = 1; layer <= layers; ++layer) {
      plans_[c].Fill(layer, *solver->velocity.grids[c], scene->pool());
    }
  }
}

void GridExtrapolation::FindLayers(std::int32_t component) {
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

}  // namespace orlix
