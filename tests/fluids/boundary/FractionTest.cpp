#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <random>

#include "fluids/boundary/FractionKernels.h"
#include "fluids/boundary/FractionShapes.h"
#include "fluids/boundary/SolidDistance.h"
#include "fluids/boundary/SolidView.h"
#include "host/threads/WorkerPool.h"
#include "tests/support/DynamicsFields.h"
#include "tests/support/Workers.h"

namespace orlix {
namespace {

using test::FillBy;
using test::ForAll;
using test::MakeGrid;

TEST(FractionShapes, SegmentIsTheRatioOfItsEnds) {
  EXPECT_EQ(FractionInsideSegment(-1, -2), 1);
  EXPECT_EQ(FractionInsideSegment(1, 3), 0);
  EXPECT_EQ(FractionInsideSegment(-1, 3), 0.25f);
  EXPECT_EQ(FractionInsideSegment(3, -1), 0.25f);
  EXPECT_EQ(FractionInsideSegment(0, 0), 1);  // on the surface is inside
  EXPECT_LT(FractionInsideSegment(0, 1), 1e-9f);
}

// The share of points of a fine lattice below the plane a + bx + cy + dz, less half of those on it.
double CountedBelow(const std::array<double, 4>& plane, int dimensions) {
  constexpr int kN = 60;
  int inside = 0;
  const int all = ForAll({kN, kN, dimensions == 3 ? kN : 1}, [&](int x, int y, int z) {
    inside += plane[0] + (plane[1] * (x + 0.5) + plane[2] * (y + 0.5) + plane[3] * (z + 0.5)) / kN < 0;
  });
  return double(inside) / all;
}

TEST(FractionShapes, HalfPlaneHasItsAreaAndHalfSpaceItsVolume) {
  std::mt19937 random(7);
  std::uniform_real_distribution<double> value(-1, 1);
  int cut = 0;
  for (int n = 0; n < 300; ++n) {
    const std::array<double, 4> p = {value(random), value(random), value(random), 0};
    const auto at = [&](double x, double y) { return static_cast<float>(p[0] + p[1] * x + p[2] * y); };
    const float share = FractionInsideSquare(at(0, 0), at(1, 0), at(1, 1), at(0, 1), true);
    EXPECT_NEAR(share, CountedBelow(p, 2), 0.02);
    // The corners may start anywhere and run either way.
    EXPECT_NEAR(share, FractionInsideSquare(at(1, 1), at(0, 1), at(0, 0), at(1, 0), true), 1e-6);
    EXPECT_NEAR(share, FractionInsideSquare(at(0, 1), at(1, 1), at(1, 0), at(0, 0), true), 1e-6);
    // What isn't inside is inside the opposite.
    EXPECT_NEAR(1 - share, FractionInsideSquare(-at(0, 0), -at(1, 0), -at(1, 1), -at(0, 1), true), 1e-6);
    cut += share > 0.01f && share < 0.99f;
  }
  EXPECT_GT(cut, 100);
  cut = 0;
  for (int n = 0; n < 60; ++n) {
    const std::array<double, 4> p = {value(random), value(random), value(random), value(random)};
    double corners[8];
    for (int c = 0; c < 8; ++c) corners[c] = p[0] + p[1] * (c >> 2) + p[2] * (c >> 1 & 1) + p[3] * (c & 1);
    const double share = FractionInsideCube(corners);
    EXPECT_NEAR(share, CountedBelow(p, 3), 0.01);
    cut += share > 0.01 && share < 0.99;
  }
  EXPECT_GT(cut, 15);
}

TEST(FractionShapes, SaddleSquaresFollowTheirMean) {
  // Opposite corners inside: two corner triangles, or all but two.
  EXPECT_FLOAT_EQ(FractionInsideSquare(-1, 3, -1, 3, true), 2 * 0.5f * 0.25f * 0.25f);
  EXPECT_FLOAT_EQ(FractionInsideSquare(3, -1, 3, -1, true), 2 * 0.5f * 0.25f * 0.25f);
  EXPECT_FLOAT_EQ(FractionInsideSquare(-3, 1, -3, 1, true), 1 - 2 * 0.5f * 0.25f * 0.25f);
}

TEST(FractionShapes, ZeroIsInsideOnlyWhenStrict) {
  EXPECT_EQ(FractionInsideSquare(0, 0, 0, 0, true), 1);
  EXPECT_EQ(FractionInsideSquare(0, 0, 0, 0, false), 0);
}

TEST(FaceFractions, SmallOpeningsStayOpenAndClosedOnesClosed) {
  WorkerPool pool(1);
  auto nodes = MakeGrid({3, 3, 3}, 1.0f, kGridNodalLevelset);
  nodes->Fill(-1);
  FloatGrid out(VecInt3D(4, 3, 3), Vec3D(3.0), 1.0f, kGridVelocityU, Vec3D());
  // One corner of face (1, 1, 1) outside, so that the open triangle is 0.5 s s.
  const double s = 0.1;
  (*nodes)(1, 1, 1) = s / (1 - s);
  FillFaceFractions(*nodes, 0, FractionRule{true}, out, pool);
  EXPECT_EQ(out(1, 1, 1), 0.01f);
  EXPECT_EQ(out(1, 2, 1), 0);
  EXPECT_EQ(out(2, 1, 1), 0);
  (*nodes)(1, 1, 1) = 1;
  FillFaceFractions(*nodes, 0, FractionRule{true}, out, pool);
  EXPECT_NEAR(out(1, 1, 1), 0.5 * 0.25, 1e-6);
  FillFaceFractions(*nodes, 0, FractionRule{false}, out, pool);
  EXPECT_NEAR(out(1, 1, 1), 1 - 0.5 * 0.25, 1e-6);
}

TEST(FaceFractions, WallsCloseTheirPlaneAndOpenFacesNothing) {
  WorkerPool pool(2);
  const VecInt3D cells(6, 6, 6);
  auto nodes = MakeGrid(cells, 0.1f, kGridNodalLevelset);
  for (const std::uint8_t mask : {std::uint8_t(0), kAllFacesClosed, std::uint8_t(kClosedYMin)}) {
    FillWallDistance(*nodes, 0.1f, mask, pool);
    for (int axis = 0; axis < 3; ++axis) {
      const auto type = static_cast<std::uint32_t>(axis);
      FloatGrid out(cells + ExtraCells(type), Vec3D(0.6), 0.1f, type, Vec3D());
      FillFaceFractions(*nodes, axis, FractionRule{true}, out, pool);
      FloatGrid wallLayers(cells + ExtraCells(type), Vec3D(0.6), 0.1f, type, Vec3D());
      wallLayers.Fill(1);
      ZeroWallLayers(wallLayers, axis, mask);
      int closed = 0;
      ForAll(out.dims, [&](int i, int j, int k) {
        const int at[3] = {i, j, k};
        bool wall = false;
        int besideWalls = 0;  // of the axes across
        for (int a = 0; a < 3; ++a) {
          const bool low = (mask & ClosedLow(a)) != 0, high = (mask & ClosedHigh(a)) != 0;
          const int n = out.dims[a];
          wall |= (low && at[a] < (a == axis ? 2 : 1)) || (high && at[a] >= n - (a == axis ? 2 : 1));
          besideWalls += a != axis && ((low && at[a] == 1) || (high && at[a] == n - 2));
        }
        // In an edge of the container three corners of the face lie on walls.
        const float expected = wall ? 0.0f : besideWalls == 2 ? 0.5f : 1.0f;
        EXPECT_EQ(out(i, j, k), expected) << int(mask) << " axis " << axis << " " << i << j << k;
        EXPECT_EQ(wallLayers(i, j, k), wall ? 0.0f : 1.0f);
        closed += wall;
      });
      EXPECT_EQ(closed > 0, mask != 0);
      CellMask zeros;
      FindZeros(out, zeros, pool);
      ForAll(out.dims, [&](int i, int j, int k) { EXPECT_EQ(zeros(i, j, k), out(i, j, k) == 0); });
    }
  }
}

TEST(CubeFractions, CellsOfABallAddUpToItsVolume) {
  WorkerPool pool(2);
  const VecInt3D cells(24, 24, 24);
  auto nodes = MakeGrid(cells, 1.0f, kGridNodalLevelset);
  FillBy(*nodes, [](const Vec3D& p) { return Length(p - Vec3D(12.3, 11.9, 12.1)) - 8; });
  const double volume = 4.0 / 3 * 3.14159265358979 * 512;
  FloatGrid out(cells, Vec3D(24.0), 1.0f, kGridCustom, Vec3D());
  const auto sum = [&] { return test::SumOf(out); };
  FillCubeFractions(*nodes, Vec3D(0.5), FractionRule{false}, out, pool);
  EXPECT_NEAR(sum() / volume, 1, 0.01);
  const double inside = sum();
  FillCubeFractions(*nodes, Vec3D(0.5), FractionRule{true}, out, pool);
  EXPECT_NEAR(sum() + inside, 24.0 * 24 * 24, 1e-2);
  // Around face samples the cubes tile space as well.
  FloatGrid faces(cells + ExtraCells(0), Vec3D(24.0), 1.0f, kGridVelocityU, Vec3D());
  FillCubeFractions(*nodes, CellSampleOffset(0), FractionRule{false}, faces, pool);
  EXPECT_NEAR(test::SumOf(faces) / volume, 1, 0.015);
  FillCountedFractions(*nodes, Vec3D(0.5), 4, Vec3D(0.125 - 0.5), FractionRule{false}, out, pool);
  EXPECT_NEAR(sum() / volume, 1, 0.015);
}

TEST(FractionThreads, AnyNumberOfWorkersGivesTheSameBits) {
  const VecInt3D cells(19, 13, 11);
  auto nodes = MakeGrid(cells, 0.1f, kGridNodalLevelset);
  FillBy(*nodes, [](const Vec3D& p) { return std::sin(7 * p.x) + std::cos(9 * p.y) * std::sin(8 * p.z); });
  test::SameForAnyWorkers([&](int workers) {
    FloatGrid open(cells + ExtraCells(1), Vec3D(1.0), 0.1f, kGridVelocityV, Vec3D());
    WorkerPool pool(workers);
    FillFaceFractions(*nodes, 1, FractionRule{true}, open, pool);
    return test::ValuesOf(open);
  });
}

}  // namespace
}  // namespace orlix
