#include <gtest/gtest.h>

#include <array>
#include <cstring>

#include "fluids/boundary/ContainerBoundary.h"
#include "fluids/boundary/ExtrapolationLayers.h"
#include "fluids/boundary/FaceVelocity.h"
#include "fluids/boundary/SolidView.h"
#include "fluids/dynamics/FaceForces.h"
#include "fluids/grids/LargestMagnitude.h"
#include "fluids/grids/ScratchPool.h"
#include "host/threads/WorkerPool.h"
#include "tests/support/DynamicsFields.h"
#include "tests/support/Workers.h"

namespace orlix {
namespace {

using test::FillBy;
using test::FillRandom;
using test::ForAll;
using test::MakeGrid;

const VecInt3D kCells(7, 6, 5);

struct Mac {
  explicit Mac(unsigned seed) {
    for (unsigned c = 0; c < 3; ++c) {
      grids[c] = MakeGrid(kCells, 1.0f, c);
      FillRandom(*grids[c], seed + c, -1, 1);
    }
  }
  std::array<GridView<double>, 3> Views() const { return {*grids[0], *grids[1], *grids[2]}; }
  std::array<std::unique_ptr<ScalarGrid>, 3> grids;
};

// Face by face, layer by layer, as the rule reads.
void ContainerVelocityLiterally(const Mac& mac, int mask, double slip) {
  constexpr int kLowBit[] = {1, 8, 16}, kHighBit[] = {2, 4, 32};
  for (int c = 0; c < 3; ++c) {
    ScalarGrid& g = *mac.grids[static_cast<std::size_t>(c)];
    const VecInt3D n = g.dims;
    for (int side = 0; side < 2; ++side) {
      for (int axis = 0; axis < 3; ++axis) {
        const bool closed = (mask & (side == 0 ? kLowBit[axis] : kHighBit[axis])) != 0;
        const int ghost = side == 0 ? 0 : n[axis] - 1, next = side == 0 ? 1 : n[axis] - 2;
        ForAll(n, [&](int i, int j, int k) {
          VecInt3D at(i, j, k);
          if (at[axis] != ghost) return;
          if (c == 0 && axis == 1 && (i < 2 || i > n.x - 3)) return;
          at[axis] = next;
          double& beside = g(at.x, at.y, at.z);
          if (axis == c) {
            if (closed) beside = 0;
            g(i, j, k) = beside;
          } else if (closed) {
            g(i, j, k) = slip * beside;
          }
        });
      }
    }
  }
}

TEST(ContainerVelocityThreads, EqualsTheRuleForEveryMaskAndWorkerCount) {
  int checked = 0;
  for (int mask = 0; mask < 64; ++mask) {
    for (const float slip : {0.0f, 0.5f, 1.0f}) {
      const Mac expected(3), got(3);
      ContainerVelocityLiterally(expected, mask, slip);
      WorkerPool pool(1 + mask % 4);
      ApplyContainerVelocity(got.Views(), static_cast<std::uint8_t>(mask), slip, pool);
      for (std::size_t c = 0; c < 3; ++c) {
        const std::size_t bytes = sizeof(double) * static_cast<std::size_t>(got.grids[c]->count);
        ASSERT_EQ(std::memcmp(expected.grids[c]->data, got.grids[c]->data, bytes), 0) << mask << " component " << c;
        ++checked;
      }
    }
  }
  EXPECT_EQ(checked, 64 * 9);
}

TEST(FaceVelocity, LinearFieldIsExactAtFacesAndCentres) {
  const Vec3D gradient[3] = {{1, 2, 3}, {-2, 1, 0.5}, {0.25, -1, 4}};
  std::array<std::unique_ptr<ScalarGrid>, 3> grids;
  for (std::uint32_t c = 0; c < 3; ++c) {
    grids[c] = MakeGrid(kCells, 1.0f, c);
    FillBy(*grids[c], [&](const Vec3D& p) { return Dot(gradient[c], p); });
  }
  const MacView mac{*grids[0], *grids[1], *grids[2]};
  for (int selector = -1; selector < 7; ++selector) {
    Vec3D p(3.5, 2.5, 2.5);
    if (selector >= 0 && selector < 6) p[selector % 3] += selector < 3 ? -0.5 : 0.5;
    const Vec3D v = InterpolateVelocityAtFace(mac, 3, 2, 2, selector);
    for (int c = 0; c < 3; ++c) EXPECT_NEAR(v[c], Dot(gradient[c], p), 1e-12) << selector;
  }
}

TEST(Speed, LargestMagnitudeOfEitherSign) {
  WorkerPool pool(3);
  auto grid = MakeGrid({13, 5, 4}, 1.0f, kGridVelocityU);
  FillRandom(*grid, 5, -1, 1);
  EXPECT_LT(LargestMagnitude(*grid, pool), 1);
  (*grid)(13, 4, 3) = -2.5;
  EXPECT_EQ(LargestMagnitude(*grid, pool), 2.5);
}

// --- extrapolation ---------------------------------------------------------------------------------------------------

CellMask MaskOf(const VecInt3D& dims, unsigned seed, double share) {
  std::mt19937 random(seed);
  std::uniform_real_distribution<double> value(0, 1);
  CellMask mask;
  mask.Resize(dims);
  ForAll(dims, [&](int i, int j, int k) {
    if (value(random) < share) mask.Row(j, k)[i >> 6] |= std::uint64_t(1) << (i & 63);
  });
  return mask;
}

TEST(ExtrapolationThreads, EachLayerTakesTheMeanOfWhatWasKnownBefore) {
  const VecInt3D cells(20, 11, 9);
  const CellMask unknown = MaskOf(cells + ExtraCells(kGridVelocityV), 3, 0.9);
  test::SameForAnyWorkers([&](int workers) {
    auto grid = MakeGrid(cells, 1.0f, kGridVelocityV);
    FillRandom(*grid, 3, -1, 1);
    WorkerPool pool(workers);
    ScratchPool scratch;
    ExtrapolationLayers plan;
    plan.Build(unknown, 3, {}, 0, scratch, pool);
    EXPECT_GT(plan.sampleCount(), 1000);
    Grid<std::uint8_t> known(grid->dims, kGridScratch);
    known.Fill(0);
    test::ForInner(grid->dims, [&](int i, int j, int k) { known(i, j, k) = !unknown(i, j, k); });
    for (int layer = 1; layer <= 3; ++layer) {
      const ScalarGrid before = *grid;
      const Grid<std::uint8_t> knownBefore = known;
      plan.Fill(layer, *grid, pool);
      test::ForInner(grid->dims, [&](int i, int j, int k) {
        double sum = 0;
        int count = 0;
        for (const VecInt3D& s : {VecInt3D(1, 0, 0), VecInt3D(0, 1, 0), VecInt3D(0, 0, 1)}) {
          for (const VecInt3D& c : {VecInt3D(i, j, k) + s, VecInt3D(i, j, k) - s}) {
            if (knownBefore(c.x, c.y, c.z)) sum += before(c.x, c.y, c.z), ++count;
          }
        }
        const bool grows = !knownBefore(i, j, k) && count > 0;
        EXPECT_NEAR((*grid)(i, j, k), grows ? sum / count : before(i, j, k), 1e-15);
        known(i, j, k) |= grows;
      });
    }
    return test::ValuesOf(*grid);
  });
}

TEST(Extrapolation, LeavesWhatLiesDeepInASolid) {
  const VecInt3D cells(12, 5, 5);
  auto grid = MakeGrid(cells, 0.5f, kGridCustom), nodes = MakeGrid(cells, 0.5f, kGridNodalLevelset);
  FillBy(*nodes, [](const Vec3D& p) { return 2.0 - p.x; });
  grid->Fill(3);
  CellMask unknown;
  unknown.Resize(cells);
  ForAll(cells, [&](int i, int j, int k) {
    if (i >= 4) unknown.Row(j, k)[0] |= std::uint64_t(1) << i, (*grid)(i, j, k) = 0;
  });
  WorkerPool pool(1);
  ScratchPool scratch;
  ExtrapolationLayers plan;
  plan.Build(unknown, 9, *nodes, -2 * 0.5, scratch, pool);
  for (int layer = 1; layer <= 9; ++layer) plan.Fill(layer, *grid, pool);
  // The mean of cell i's corners is 2 - 0.5 (i + 0.5): -1.25 at i = 6.
  EXPECT_EQ((*grid)(5, 2, 2), 3);
  EXPECT_EQ((*grid)(6, 2, 2), 0);
}

TEST(Extrapolation, NoLayerOrNothingUnknownChangesNothing) {
  WorkerPool pool(1);
  ScratchPool scratch;
  ExtrapolationLayers plan;
  const CellMask unknown = MaskOf({6, 6, 6}, 4, 0.5), none = MaskOf({6, 6, 6}, 4, 0);
  plan.Build(unknown, 0, {}, 0, scratch, pool);
  EXPECT_EQ(plan.layerCount(), 0);
  plan.Build(none, 3, {}, 0, scratch, pool);
  EXPECT_EQ(plan.layerCount(), 0);
  plan.Build(MaskOf({2, 6, 6}, 4, 0.5), 3, {}, 0, scratch, pool);
  EXPECT_EQ(plan.layerCount(), 0);
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

}  // namespace
}  // namespace orlix
