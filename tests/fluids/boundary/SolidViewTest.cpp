#include "fluids/boundary/SolidView.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "fluids/boundary/InsideKernel.h"
#include "fluids/boundary/SolidDistance.h"
#include "host/threads/WorkerPool.h"
#include "tests/support/DynamicsFields.h"

namespace orlix {
namespace {

using test::FillBy;
using test::ForAll;
using test::MakeGrid;

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

}  // namespace
}  // namespace orlix
