#include <gtest/gtest.h>

#include <array>
#include <cstring>

#include "fluids/boundary/ContainerBoundary.h"
#include "fluids/boundary/ExtrapolationLayers.h"
#include "fluids/boundary/FaceVelocity.h"
#include "fluids/boundary/SolidView.h"
#include "fluids/dynamics/FaceForces.h"
#include "fluids/dynamics/Grid_Cellstates.h"
#include "fluids/grids/LargestMagnitude.h"
#include "fluids/grids/ScratchPool.h"
#include "host/threads/WorkerPool.h"
#include "tests/support/DynamicsFields.h"
#include "tests/support/GasScene.h"
#include "tests/support/Workers.h"

namespace orlix {
namespace {

using test::FillBy;
using test::FillRandom;
using test::ForAll;
using test::MakeGrid;

const VecInt3D kCells(7, 6, 5);

TEST(Speed, LargestMagnitudeOfEitherSign) {
  WorkerPool pool(3);
  auto grid = MakeGrid({13, 5, 4}, 1.0f, kGridVelocityU);
  FillRandom(*grid, 5, -1, 1);
  EXPECT_LT(LargestMagnitude(*grid, pool), 1);
  (*grid)(13, 4, 3) = -2.5;
  EXPECT_EQ(LargestMagnitude(*grid, pool), 2.5);
}

// --- face forces ----------------------------------------------------------------------------------------------------

// From forces in cells to faces, against plain loops.

struct Faces {
  explicit Faces(const VecInt3D& cells) {
    for (unsigned c = 0; c < 3; ++c) {
      VecInt3D dims = cells;
      ++dims[static_cast<int>(c)];
      force.push_back(std::make_unique<Grid<double>>(cells, kGridScratch));
      velocity.push_back(std::make_unique<Grid<double>>(dims, kGridScratch));
      share.push_back(std::make_unique<Grid<float>>(dims, kGridScratch));
      test::FillRandom(*force[c], 3u + c, -1, 1);
      test::FillRandom(*velocity[c], 6u + c, -1, 1);
      test::FillRandom(*share[c], 9u + c, -1, 1);
      for (std::int64_t i = 0; i < share[c]->count; ++i) (*share[c])[i] = std::max(0.0f, (*share[c])[i]);
    }
  }
  CellForces Forces() { return {*force[0], *force[1], *force[2]}; }
  FaceComponents Velocity() { return {*velocity[0], *velocity[1], *velocity[2]}; }
  FaceFractions Shares() { return {*share[0], *share[1], *share[2]}; }
  bool Open(int i, int j, int k) const {
    return (*share[0])(i, j, k) > 0 || (*share[1])(i, j, k) > 0 || (*share[2])(i, j, k) > 0;
  }

  std::vector<std::unique_ptr<Grid<double>>> force, velocity;
  std::vector<std::unique_ptr<Grid<float>>> share;
};

TEST(FaceForces, AFaceTakesItsShareOfTheMeanOfItsCells) {
  const VecInt3D n(9, 7, 8);
  for (const int workers : {1, 3}) {
    Faces faces(n);
    const Faces before(n);
    WorkerPool pool(workers);
    AddForcesToFaces(faces.Forces(), faces.Shares(), faces.Velocity(), pool);
    for (int axis = 0; axis < 3; ++axis) {
      const Grid<double>&f = *faces.force[axis], &v = *faces.velocity[axis], &old = *before.velocity[axis];
      test::ForAll(v.dims, [&](int i, int j, int k) {
        double expected = old(i, j, k);
        if (i > 0 && j > 0 && k > 0 && i < n.x && j < n.y && k < n.z) {
          const double low = f(i - (axis == 0), j - (axis == 1), k - (axis == 2));
          expected += static_cast<double>((*faces.share[axis])(i, j, k)) * 0.5 * (low + f(i, j, k));
        }
        ASSERT_EQ(v(i, j, k), expected);
      });
    }
  }
}

TEST(FaceForces, CellsThatAreClosedAllAroundTakeNeitherForceNorGravity) {
  const VecInt3D n(10, 5, 5);
  Faces faces(n);
  const Faces before(n);
  ClearClosedCells(faces.Shares(), faces.Forces(), 2, 3);
  AddGravity(faces.Shares(), faces.Velocity(), {0.5, -9, 2}, 2, 3);
  int closed = 0;
  for (int i = 0; i < n.x; ++i) {
    const bool acts = i > 0 && i < n.x - 1 && faces.Open(i, 2, 3);
    closed += !acts && i > 0 && i < n.x - 1;
    for (int axis = 0; axis < 3; ++axis) {
      EXPECT_EQ((*faces.force[axis])(i, 2, 3), acts ? (*before.force[axis])(i, 2, 3) : 0);
      EXPECT_EQ((*faces.velocity[axis])(i, 2, 3),
                (*before.velocity[axis])(i, 2, 3) + (acts ? Vec3D(0.5, -9, 2)[axis] : 0));
    }
  }
  EXPECT_GT(closed, 0);
  EXPECT_EQ((*faces.force[0])(3, 3, 3), (*before.force[0])(3, 3, 3));
}

// What a liquid's solver asks of the pieces that it shares with the gas: a solver with a surface.

using test::FillBy;
using test::ForAll;
using test::GasScene;
using test::MakeGrid;

const VecInt3D kPond(18, 18, 18);

class Pond final : public FluidSolver {
 public:
  using FluidSolver::FluidSolver;
  const ScalarGrid* GetSurfaceGrid() const override { return surface.get(); }
  std::unique_ptr<ScalarGrid> surface;  // at cell centres
};

// A box with a ball in it; the boundary and its fractions are built.
struct PondScene : GasScene {
  explicit PondScene(bool openAbove = false) : GasScene(kPond, 2) {
    fluid->Set(GridBoundary::kFaceYMaxId, std::int64_t(!openAbove));
    AddObstacle("Ball", "sphere", Centre(), 0.2);
    StepThrough(0, 1);
    pond = std::make_unique<Pond>(fluid, scene());
    pond->ReadParameters();
    pond->ResolveLinks();
    pond->CheckDirty();
    pond->MarkDirty(false);
    Vec3D min(0.1), max(0.2);
    pond->ExtendBounds(min, max);
    pond->ApplyBounds(min, max);
    scene().stage = kStageEmitters;
    pond->Prepare();
    ProcessData data;
    pond->Process(data);
  }
  void FillTo(double height) {
    pond->surface = MakeGrid(kPond, static_cast<float>(cellSize), kGridLevelset);
    FillBy(*pond->surface, [&](const Vec3D& p) { return p.y - height; });
  }
  std::unique_ptr<Pond> pond;
};

TEST(FaceStates, BorderAndSolidsAreFixedTheRestIsSolvedInAGas) {
  PondScene s;
  Grid_Cellstates states(s.fluid, s.scene());
  states.solver = s.pond.get();
  states.Prepare();
  ASSERT_TRUE(states.IsActive());
  EXPECT_EQ((*states.States(0))(9, 5, 9), FaceFixed);  // before it ran
  states.Classify();
  const ScalarGrid& distance = *s.pond->boundary.solidDistance.grid;
  int solved = 0, fixed = 0;
  for (int axis = 0; axis < 3; ++axis) {
    const Grid<std::uint8_t>& state = *states.States(axis);
    const VecInt3D n = state.dims;
    EXPECT_EQ(n, s.pond->velocity.grids[axis]->dims);
    ForAll(n, [&](int i, int j, int k) {
      const int at[3] = {i, j, k};
      bool border = false;
      for (int a = 0; a < 3; ++a) border |= at[a] < 1 || at[a] >= n[a] - (a == axis ? 2 : 1);
      // The mean of the face's corners is the distance at its centre.
      const Vec3D p = Vec3D(i, j, k) + CellSampleOffset(static_cast<std::uint32_t>(axis));
      const double d = SampleTrilinear(GridView<const double>(distance), p.x, p.y, p.z);
      const bool closed = s.pond->fractions.ClosedFaces(axis)(i, j, k);
      EXPECT_EQ(state(i, j, k), border || closed || d <= 0 ? FaceFixed : FaceSolved) << i << " " << j << " " << k;
      ++(border || closed || d <= 0 ? fixed : solved);
    });
  }
  EXPECT_GT(solved, 5000);
  EXPECT_GT(fixed, 3000);
  states.ClearState(false);
  EXPECT_EQ(states.States(0), nullptr);
}

TEST(FaceStates, FacesToTheCellsBeyondAnOpenSideAreFixed) {
  PondScene s(true);
  Grid_Cellstates states(s.fluid, s.scene());
  states.solver = s.pond.get();
  states.Prepare();
  states.Classify();
  const int last = s.pond->velocity.grids[1]->dims.y - 2;
  EXPECT_FALSE(s.pond->fractions.ClosedFaces(1)(3, last, 3));
  EXPECT_EQ((*states.States(1))(3, last, 3), FaceFixed);
  EXPECT_EQ((*states.States(1))(3, last - 1, 3), FaceSolved);
}

TEST(FaceStates, FacesThreeCellsFromTheSurfaceAreFar) {
  PondScene s;
  s.FillTo(8.25 * s.cellSize);
  Grid_Cellstates states(s.fluid, s.scene());
  states.solver = s.pond.get();
  states.Prepare();
  states.Classify();
  // The y face j stands at j cells: 2.75 and 3.75 above the surface.
  EXPECT_EQ((*states.States(1))(3, 11, 3), FaceSolved);
  EXPECT_EQ((*states.States(1))(3, 12, 3), FaceFar);
  EXPECT_EQ((*states.States(1))(3, 5, 3), FaceSolved);
  EXPECT_EQ((*states.States(0))(3, 10, 3), FaceSolved);  // at 10.5
  EXPECT_EQ((*states.States(0))(3, 11, 3), FaceFar);
}

TEST(LiquidExtrapolation, GrowsFromFacesAtOrBelowTheSurface) {
  PondScene s;
  Pond& pond = *s.pond;
  s.FillTo(6.25 * s.cellSize);  // cells 0 to 5 are wet
  for (int c = 0; c < 3; ++c) pond.velocity.grids[c]->Fill(-9);
  const auto paintKnown = [&](int c, int top) {
    ForAll(pond.velocity.grids[c]->dims, [&](int i, int j, int k) {
      if (j <= top) (*pond.velocity.grids[c])(i, j, k) = 4;
    });
  };
  paintKnown(0, 5), paintKnown(1, 6), paintKnown(2, 5);  // a y face is wet when the cell below it is
  pond.extrapolation.layers = 2;
  pond.extrapolation.liquidMode = true;
  pond.extrapolation.Extrapolate();
  ASSERT_TRUE(pond.extrapolation.IsActive());
  for (int axis = 0; axis < 3; ++axis) {
    const int top = axis == 1 ? 6 : 5;
    EXPECT_EQ((*pond.velocity.grids[axis])(3, top + 1, 3), 4);
    EXPECT_EQ((*pond.velocity.grids[axis])(3, top + 2, 3), 4);
    EXPECT_EQ((*pond.velocity.grids[axis])(3, top + 3, 3), -9);
  }
}

}  // namespace
}  // namespace orlix
