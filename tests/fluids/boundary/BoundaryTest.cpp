#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "fluids/boundary/ContainerBoundary.h"
#include "fluids/boundary/ExtrapolationLayers.h"
#include "fluids/boundary/FaceVelocity.h"
#include "fluids/boundary/FractionKernels.h"
#include "fluids/boundary/FractionShapes.h"
#include "fluids/boundary/InsideKernel.h"
#include "fluids/boundary/SolidDistance.h"
#include "fluids/boundary/SolidView.h"
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

TEST(FractionShapes, SaddleSquaresFollowTheirMeanAndZeroIsInsideWhenStrict) {
  // Opposite corners inside: two corner triangles, or all but two.
  EXPECT_FLOAT_EQ(FractionInsideSquare(-1, 3, -1, 3, true), 2 * 0.5f * 0.25f * 0.25f);
  EXPECT_FLOAT_EQ(FractionInsideSquare(3, -1, 3, -1, true), 2 * 0.5f * 0.25f * 0.25f);
  EXPECT_FLOAT_EQ(FractionInsideSquare(-3, 1, -3, 1, true), 1 - 2 * 0.5f * 0.25f * 0.25f);
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

constexpr float kH = 0.25f;
const VecInt3D kCells(8, 7, 6);

struct Walls {
  explicit Walls(std::uint8_t closed) : nodes(MakeGrid(kCells, kH, kGridNodalLevelset)), view(*nodes, closed) {
    FillWallDistance(*nodes, kH, closed, pool);
  }
  WorkerPool pool{2};
  std::unique_ptr<ScalarGrid> nodes;
  SolidView view;
};

// A solid ball in a box whose walls are far away.
struct Ball {
  Ball() : nodes(MakeGrid({16, 16, 16}, kH, kGridNodalLevelset)), view(*nodes, kAllFacesClosed) {
    FillBy(*nodes, [&](const Vec3D& p) { return Length(p - centre) - 1.0; });
  }
  const Vec3D centre{2.0, 2.0, 2.0};
  std::unique_ptr<ScalarGrid> nodes;
  SolidView view;
};

// A solid below an oblique plane through place: the field is its own interpolant.
struct Slope {
  Slope() : nodes(MakeGrid({16, 16, 16}, kH, kGridNodalLevelset)), view(*nodes, 0) {
    FillBy(*nodes, [&](const Vec3D& p) { return Dot(p - place, normal); });
  }
  const Vec3D place{2.0, 2.0, 2.0}, normal{2.0 / 3, 1.0 / 3, 2.0 / 3};
  std::unique_ptr<ScalarGrid> nodes;
  SolidView view;
};

TEST(WallDistance, ClosedFacesStandACellInsideOpenOnesACellOutside) {
  // By the table of bits: x min 1, x max 2, y max 4, y min 8, z min 16, z max 32.
  constexpr int kLowBit[] = {1, 8, 16}, kHighBit[] = {2, 4, 32};
  int checked = 0;
  for (int mask = 0; mask < 64; ++mask) {
    const Walls walls(static_cast<std::uint8_t>(mask));
    checked += ForAll(walls.nodes->dims, [&](int i, int j, int k) {
      const int at[3] = {i, j, k};
      double least = 1e300;
      for (int axis = 0; axis < 3; ++axis) {
        const int low = (mask & kLowBit[axis]) != 0 ? 1 : -1;
        const int high = (mask & kHighBit[axis]) != 0 ? kCells[axis] - 1 : kCells[axis] + 1;
        least = std::min({least, (at[axis] - low) * 0.25, (high - at[axis]) * 0.25});
      }
      ASSERT_EQ((*walls.nodes)(i, j, k), least) << "mask " << mask << " node " << i << " " << j << " " << k;
    });
  }
  EXPECT_EQ(checked, 64 * 9 * 8 * 7);
}

TEST(SolidDistance, ObstacleOnTheLatticeKeepsItsNodesExactly) {
  WorkerPool pool(2);
  auto nodes = MakeGrid({12, 12, 12}, kH, kGridNodalLevelset);
  auto obstacle = MakeGrid({4, 5, 6}, kH, kGridNodalLevelset, Vec3D(3, 2, -1) * double(kH));
  FillBy(*obstacle, [](const Vec3D& p) { return 0.1 * p.x - 0.3 + 0.07 * p.z; });
  FillWallDistance(*nodes, kH, kAllFacesClosed, pool);
  const ScalarGrid walls(*nodes);
  LowerByLevelSet(*nodes, *obstacle, pool);
  int lowered = 0;
  ForAll(nodes->dims, [&](int i, int j, int k) {
    const bool inBox = i >= 3 && i < 7 && j >= 2 && j < 7 && k < 5;  // open at the upper faces
    const double expected = inBox ? std::min(walls(i, j, k), (*obstacle)(i - 3, j - 2, k + 1)) : walls(i, j, k);
    EXPECT_EQ((*nodes)(i, j, k), expected);
    lowered += expected < walls(i, j, k);
  });
  EXPECT_GT(lowered, 20);
}

TEST(SolidDistance, ObstacleOffTheLatticeIsSampled) {
  WorkerPool pool(1);
  auto nodes = MakeGrid({12, 12, 12}, kH, kGridNodalLevelset);
  auto obstacle = MakeGrid({8, 8, 8}, 0.2f, kGridNodalLevelset, Vec3D(0.8));
  FillBy(*obstacle, [](const Vec3D& p) { return p.x + 2 * p.y - p.z - 3; });
  FillWallDistance(*nodes, kH, 0, pool);
  LowerByLevelSet(*nodes, *obstacle, pool);
  // A linear field is its own trilinear interpolant.
  const Vec3D p = Vec3D(5, 6, 7) * double(kH) - Vec3D(0.8);
  EXPECT_NEAR((*nodes)(5, 6, 7), p.x + 2 * p.y - p.z - 3, 1e-6);
}

TEST(SolidDistance, BoxHoldsAllNodesAtOrBelowZero) {
  WorkerPool pool(3);
  Ball ball;
  FindSolidBox(*ball.nodes, pool);
  EXPECT_EQ(ball.nodes->activeMin, VecInt3D(4, 4, 4));
  EXPECT_EQ(ball.nodes->activeMax, VecInt3D(12, 12, 12));
  ball.nodes->Fill(1);
  (*ball.nodes)(3, 4, 5) = 0;
  FindSolidBox(*ball.nodes, pool);
  EXPECT_EQ(ball.nodes->activeMin, VecInt3D(3, 4, 5));
  EXPECT_EQ(ball.nodes->activeMax, VecInt3D(4, 5, 6));
}

TEST(SolidQueries, BordersFollowTheFaces) {
  const Walls walls(kClosedXMin | kClosedYMax);
  const Vec3D middle = Vec3D(kCells) * (0.5 * kH);
  const auto at = [&](int axis, double v) {
    Vec3D p = middle;
    p[axis] = v;
    return p;
  };
  const double low = 0.9 * kH;
  const auto high = [](int axis) { return (kCells[axis] - 0.9) * kH; };
  EXPECT_FALSE(walls.view.IsInOpenBorder(middle));
  EXPECT_FALSE(walls.view.IsInOpenBorder(at(0, low)));  // closed
  EXPECT_TRUE(walls.view.IsInOpenBorder(at(0, high(0))));
  EXPECT_TRUE(walls.view.IsInOpenBorder(at(1, low)));
  EXPECT_FALSE(walls.view.IsInOpenBorder(at(1, high(1))));  // closed
  EXPECT_TRUE(walls.view.IsInOpenBorder(at(2, low)));
  for (int axis = 0; axis < 3; ++axis) {
    EXPECT_TRUE(walls.view.IsInBorder(at(axis, low)));
    EXPECT_TRUE(walls.view.IsInBorder(at(axis, high(axis))));
    EXPECT_FALSE(walls.view.IsOutsideDomain(at(axis, high(axis))));
    EXPECT_TRUE(walls.view.IsOutsideDomain(at(axis, -0.01)));
    EXPECT_TRUE(walls.view.IsOutsideDomain(at(axis, kCells[axis] * double(kH) + 0.01)));
  }
  EXPECT_FALSE(walls.view.IsInBorder(Vec3D(double(kH))));
}

TEST(SolidQueries, DomainIsHeldACellFromTheEdge) {
  const Walls walls(0);
  Vec3D p(double(kH), 1, 1);
  EXPECT_FALSE(walls.view.ClampToDomain(p));
  EXPECT_EQ(p.x, double(kH));
  p.x = std::nextafter(double(kH), 0);
  EXPECT_TRUE(walls.view.ClampToDomain(p));
  EXPECT_EQ(p.x, double(1.001f * kH));
  p = {1, 1, 100};
  EXPECT_TRUE(walls.view.ClampToDomain(p));
  EXPECT_EQ(p.z, double(6 * kH - 1.001f * kH));
}

TEST(SolidQueries, CollisionEndsAtTheMarginInside) {
  const Slope slope;
  Vec3D p = slope.place - slope.normal * 0.3;
  EXPECT_TRUE(slope.view.ResolveCollision(p, 0.001));
  const Vec3D end = slope.place - slope.normal * 0.001;
  for (int axis = 0; axis < 3; ++axis) EXPECT_NEAR(p[axis], end[axis], 1e-9);
  EXPECT_TRUE(slope.view.IsInsideSolid(p / double(kH)));
  Vec3D outside = slope.place + slope.normal * 0.1;
  const Vec3D before = outside;
  EXPECT_FALSE(slope.view.ResolveCollision(outside, 0.001));
  EXPECT_EQ(outside, before);
  const Ball ball;
  Vec3D onSurface = ball.centre + Vec3D(1, 0, 0);  // a node: the distance is exactly 0
  EXPECT_FALSE(ball.view.ResolveCollision(onSurface, 0.001));
  EXPECT_TRUE(ball.view.IsInsideSolid(onSurface / double(kH)));
}

TEST(SolidQueries, ContactWithWallsAndSolids) {
  const Walls walls(kAllFacesClosed);
  SolidContact contact;
  EXPECT_FALSE(walls.view.ResolveContact({1, 0.9, 0.7}, contact, 0.01));
  EXPECT_EQ(contact.normal, Vec3D(0, 1, 0));
  EXPECT_EQ(contact.position, Vec3D(1, 0.9, 0.7));
  contact = {};
  walls.view.WallContact({0.2, 1, 0.7}, contact, 0.05f);
  EXPECT_TRUE(contact.hit);
  EXPECT_EQ(contact.normal, Vec3D(1, 0, 0));
  EXPECT_NEAR(contact.position.x, 0.3, 1e-7);
  EXPECT_NEAR(contact.depth, 0.1, 1e-7);
  contact = {};
  walls.view.WallContact({0.2, 1, 1.3}, contact, 0.05f);
  EXPECT_EQ(contact.normal, Vec3D(1, 0, -1));
  EXPECT_NEAR(contact.depth, 1.3 - (6 * 0.25 - 0.3), 1e-6);  // the later axis

  const Slope slope;
  const Vec3D inside = slope.place - slope.normal * 0.5;
  EXPECT_TRUE(slope.view.ResolveContact(inside, contact, 0));
  Vec3D correction;
  EXPECT_TRUE(slope.view.PushOutVector(inside, correction));
  for (int axis = 0; axis < 3; ++axis) {
    EXPECT_NEAR(contact.normal[axis], slope.normal[axis], 1e-9);
    EXPECT_NEAR(contact.position[axis], slope.place[axis], 1e-9);
    EXPECT_NEAR(correction[axis], slope.normal[axis] * (0.5 - 0.25 * kH), 1e-9);
  }
  EXPECT_FALSE(slope.view.PushOutVector(slope.place + slope.normal * 0.2, correction));
}

TEST(SolidQueries, CornerMaskFollowsTheCornerOrder) {
  const Ball ball;
  int checked = 0;
  for (int corner = 0; corner < 8; ++corner) {
    ball.nodes->Fill(1);
    (*ball.nodes)(5 + (corner >> 2), 6 + (corner >> 1 & 1), 7 + (corner & 1)) = -1;
    EXPECT_EQ(ball.view.SolidCornerMask(Vec3D(5.5, 6.5, 7.5) * double(kH)), 1 << corner);
    ++checked;
  }
  EXPECT_EQ(checked, 8);
  ball.nodes->Fill(-1);
  EXPECT_EQ(ball.view.SolidCornerMask({-0.3, 1, 1}), 0);
  EXPECT_EQ(ball.view.SolidCornerMask({1, 4.0, 1}), 0);
  EXPECT_EQ(ball.view.SolidCornerMask({1, 3.99, 1}), 255);
}

TEST(InsideMask, EqualsTheQueryAtEachSample) {
  WorkerPool pool(3);
  Ball ball;
  FillBy(*ball.nodes, [&](const Vec3D& p) {
    return std::min(Length(p - ball.centre) - 1.0, p.x - 1.5) + 0.05 * std::sin(9 * p.y + 7 * p.z);
  });
  int inside = 0, samples = 0;
  for (const std::uint32_t type : {0u, 1u, 2u, 60u}) {
    const Vec3D offset = CellSampleOffset(type);
    CellMask mask;
    FindInside(*ball.nodes, offset, ball.nodes->space.dims + ExtraCells(type), mask, pool);
    samples += ForAll(mask.dims(), [&](int i, int j, int k) {
      const bool expected = ball.view.IsInsideSolid(Vec3D(i, j, k) + offset);
      EXPECT_EQ(mask(i, j, k), expected);
      inside += expected;
    });
  }
  EXPECT_GT(inside, 1000);
  EXPECT_GT(samples - inside, 1000);
}

TEST(CellMask, VisitsTheSetBitsOfARange) {
  CellMask mask;
  mask.Resize({200, 2, 2});
  for (const int i : {0, 5, 63, 64, 127, 128, 199}) mask.Row(1, 1)[i >> 6] |= std::uint64_t(1) << (i & 63);
  std::vector<int> found;
  CellMask::ForEachSet(mask.Row(1, 1), 5, 199, [&](int i) { found.push_back(i); });
  EXPECT_EQ(found, (std::vector<int>{5, 63, 64, 127, 128}));
  found.clear();
  CellMask::ForEachSet(mask.Row(1, 1), 64, 64, [&](int i) { found.push_back(i); });
  EXPECT_TRUE(found.empty());
}

// Velocities beside walls and in solids.

const VecInt3D kMac(7, 6, 5);

struct Mac {
  explicit Mac(unsigned seed) {
    for (unsigned c = 0; c < 3; ++c) {
      grids[c] = MakeGrid(kMac, 1.0f, c);
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
    grids[c] = MakeGrid(kMac, 1.0f, c);
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

}  // namespace
}  // namespace orlix
