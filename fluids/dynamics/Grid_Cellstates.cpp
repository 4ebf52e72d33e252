#include "fluids/dynamics/Grid_Cellstates.h"

#include <algorithm>
#include <new>

#include "fluids/channels/iChannel.h"
#include "fluids/dynamics/FluidSolver.h"

namespace orlix {

namespace {

constexpr double kFarCells = 3;

// The states of the faces of one axis.
struct FaceClassifier {
  GridView<const double> nodes;
  GridView<const float> open;
  GridView<const double> surface;  // without data in a gas
  Vec3D surfaceOffset;
  int axis;
  double cellSize;

  FaceState operator()(int i, int j, int k) const {
    if (open(i, j, k) == 0) return FaceFixed;
    const std::int64_t step[3] = {1, nodes.dims.x, nodes.slab};
    const std::int64_t b = step[(axis + 1) % 3], c = step[(axis + 2) % 3];
    const double* p = &nodes(i, j, k);
    if (!((p[0] + p[b] + p[c] + p[b + c]) * 0.25 > 0)) return FaceFixed;
    const int at[3] = {i, j, k};
    for (int a = 0; a < 3; ++a) {
      if (at[a] < 1 || at[a] >= open.dims[a] - (a == axis ? 2 : 1)) return FaceFixed;
    }
    if (!surface.data) return FaceSolved;
    const double distance = SampleTrilinear(surface, i + surfaceOffset.x, j + surfaceOffset.y, k + surfaceOffset.z);
    return kFarCells * cellSize > distance ? FaceSolved : FaceFar;
  }
};

}  // namespace

void Grid_Cellstates::ResetSimulation() {
  for (auto& states : states_) {
    if (states) states->Fill(FaceFixed);
  }
}

void Grid_Cellstates::ClearState(bool deactivate) {
  iObject::ClearState(deactivate);
  for (auto& states : states_) states.reset();
}

void Grid_Cellstates::Prepare(iBase*) {
  bool active = solver && solver->boundary.HasSolidGrid() && solver->velocity.grids[0] != nullptr;
  for (int c = 0; c < 3 && active; ++c) {
    const VecInt3D& dims = solver->velocity.grids[c]->dims;
    try {
      states_[c] = std::make_unique<Grid<std::uint8_t>>(dims, static_cast<std::uint32_t>(c));
    } catch (const std::bad_alloc&) {
      scene->FailForMemory(*this, dims);
      active = false;
      break;
    }
    states_[c]->Fill(FaceFixed);
  }
  SetFlag(NodeActive, active);
}

void Grid_Cellstates::Classify() {
  if (!IsActive() || !states_[0]) return;
  const ScalarGrid& distance = *solver->boundary.solidDistance.grid;
  const ScalarGrid* surface = solver->GetSurfaceGrid();
  for (int axis = 0; axis < 3; ++axis) {
    const FaceClassifier classify{distance,
                                  solver->fractions.View(axis, 1),
                                  surface ? GridView<const double>(*surface) : GridView<const double>(),
                                  CellSampleOffset(static_cast<std::uint32_t>(axis)) - Vec3D(0.5),
                                  axis,
                                  static_cast<double>(distance.space.cellSize)};
    Grid<std::uint8_t>& states = *states_[axis];
    if (!classify.open.data || classify.open.dims != states.dims) continue;
    ParallelRange(scene->pool(), 0, states.dims.z, [&](int k0, int k1, int) {
      for (int k = k0; k < k1; ++k) {
        for (int j = 0; j < states.dims.y; ++j) {
          for (int i = 0; i < states.dims.x; ++i) states(i, j, k) = classify(i, j, k);
        }
      }
    });
  }
}

}  // namespace orlix
