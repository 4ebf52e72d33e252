#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

#include "fluids/level_sets/CornerBound.h"
#include "fluids/level_sets/FastSweeper.h"
#include "fluids/level_sets/ParticleToLevelset.h"
#include "fluids/level_sets/RowCrossing.h"
#include "fluids/level_sets/TriangleDistance.h"
#include "fluids/level_sets/TriangleLanes.h"
#include "tests/support/Cells.h"
#include "tests/support/TestScene.h"

namespace orlix {
namespace {

class Triangles {
 public:
  Vec3D Point(double size = 1) { return {size * unit_(random_), size * unit_(random_), size * unit_(random_)}; }
  // Every third one has no area: equal corners, or corners on a line.
  TriangleTerms Next() {
    const Vec3D a = Point(), b = Point();
    const int kind = static_cast<int>(random_() % 9);
    const Vec3D c = kind == 0 ? a : kind == 1 ? a * 0.25 + b * 0.75 : kind == 2 ? b : Point();
    return MakeTriangleTerms(a, kind == 2 ? a : b, c);
  }

 private:
  std::mt19937 random_{11};
  std::uniform_real_distribution<double> unit_{-1, 1};
};

// The least distance to a fine lattice of points on the triangle is at most a lattice step too large.
TEST(TriangleDistance, IsTheLeastOfAllPoints) {
  Triangles triangles;
  for (int n = 0; n < 300; ++n) {
    const TriangleTerms t = MakeTriangleTerms(triangles.Point(), triangles.Point(), triangles.Point());
    const Vec3D p = triangles.Point(3);
    double least = 1e9;
    constexpr int kSteps = 60;
    for (int i = 0; i <= kSteps; ++i) {
      for (int j = 0; i + j <= kSteps; ++j) {
        const double a = double(i) / kSteps, b = double(j) / kSteps;
        least = std::min(least, Length(p - (t.x1 * a + t.x2 * b + t.x3 * (1 - a - b))));
      }
    }
    const double distance = std::sqrt(SquaredDistance(p, t));
    EXPECT_LE(distance, least + 1e-12) << n;
    EXPECT_GE(distance, least - 4.0 / kSteps) << n;
  }
}

TEST(TriangleDistance, WithoutAreaItIsThatOfAPointOrFinite) {
  const Vec3D a(1, 2, 3), p(4, 6, 3);
  EXPECT_DOUBLE_EQ(SquaredDistance(p, MakeTriangleTerms(a, a, a)), 25);
  Triangles triangles;
  for (int n = 0; n < 1000; ++n) EXPECT_TRUE(std::isfinite(SquaredDistance(triangles.Point(), triangles.Next())));
}

TEST(TriangleDistance, LanesHaveTheBitsOfOne) {
  Triangles triangles;
  for (int n = 0; n < 2000; ++n) {
    TriangleTerms t[kLanes];
    const TriangleTerms* pointers[kLanes];
    LaneVector<Lanes> p{};
    Vec3D points[kLanes];
    for (int l = 0; l < kLanes; ++l) {
      t[l] = triangles.Next();
      pointers[l] = &t[l];
      points[l] = triangles.Point(2);
      p.x[l] = points[l].x, p.y[l] = points[l].y, p.z[l] = points[l].z;
    }
    LaneTriangle<double> one;
    Broadcast(one, t[0]);
    LaneTriangle<Lanes> each{};
    Gather(each, pointers);
    Lanes toOne, toEach;
    LaneSquaredDistances(toOne, p, one);
    LaneSquaredDistances(toEach, p, each);
    for (int l = 0; l < kLanes; ++l) {
      EXPECT_EQ(toOne[l], SquaredDistance(points[l], t[0]));
      EXPECT_EQ(toEach[l], SquaredDistance(points[l], t[l]));
    }
  }
}

TEST(CornerBound, NeverPassesTheDistance) {
  Triangles triangles;
  for (int n = 0; n < 20000; ++n) {
    const TriangleTerms t = triangles.Next();
    const Vec3D p = triangles.Point(n % 2 ? 1 : 10);
    const double corner = std::min({LengthSquared(p - t.x1), LengthSquared(p - t.x2), LengthSquared(p - t.x3)});
    const double bound = corner - SquaredCoveringRadius(t.x1, t.x2, t.x3);
    EXPECT_LE(bound, SquaredDistance(p, t) + 1e-12) << n;
  }
}

// A row through a shared edge or corner of a closed fan is counted once, however the corners lie on it.
TEST(RowCrossing, CountsARowThroughEdgesAndCornersOnce) {
  int through = 0;
  for (int turn = 0; turn < 4; ++turn) {
    // A square of side 2 about the origin in y and z, fanned about its middle; corners on whole numbers.
    const Vec3D middle(0.5, 0, 0);
    const Vec3D ring[8] = {{0, -1, -1}, {0, 0, -1}, {0, 1, -1}, {0, 1, 0},
                           {0, 1, 1},   {0, 0, 1},  {0, -1, 1}, {0, -1, 0}};
    for (double y = -1.5; y <= 1.5; y += 0.5) {
      for (double z = -1.5; z <= 1.5; z += 0.5) {
        int count = 0;
        for (int i = 0; i < 8; ++i) {
          const Vec3D corners[3] = {middle, ring[i], ring[(i + 1) % 8]};
          count += RowCrossing(y, z, corners[turn % 3], corners[(turn + 1) % 3], corners[(turn + 2) % 3]).has_value();
        }
        const bool inside = std::abs(y) < 1 && std::abs(z)<1, outside = std::abs(y)> 1 || std::abs(z) > 1;
        EXPECT_GE(count, inside ? 1 : 0) << y << " " << z;
        EXPECT_LE(count, outside ? 0 : 1) << y << " " << z;
        through += count;
      }
    }
  }
  EXPECT_GE(through, 4 * 9);
}

TEST(RowCrossing, GivesThePlaceOnThePlane) {
  // The plane x = 1 + 2 y - z.
  const auto at = [](double y, double z) { return Vec3D(1 + 2 * y - z, y, z); };
  const auto x = RowCrossing(0.3, 0.2, at(0, 0), at(1, 0), at(0, 1));
  ASSERT_TRUE(x.has_value());
  EXPECT_NEAR(*x, 1.4, 1e-14);
  EXPECT_FALSE(RowCrossing(0.8, 0.8, at(0, 0), at(1, 0), at(0, 1)).has_value());
}

std::unique_ptr<ScalarGrid> MakeGrid(const VecInt3D& n, double fill) {
  auto grid = std::make_unique<ScalarGrid>(n, Vec3D(n), 0.3f, kGridLevelset, Vec3D());
  grid->Fill(fill);
  return grid;
}

TEST(SpreadDistances, EqualsTheChessboardDistanceBitForBitAtAnyWorkerCount) {
  std::mt19937 random(11);
  for (const VecInt3D n : {VecInt3D(9, 97, 35), VecInt3D(1, 9, 2), VecInt3D(6, 1, 1)}) {
    auto start = MakeGrid(n, 1e6);
    const double h = start->space.cellSize;
    std::vector<VecInt3D> seeds;
    for (int s = 0; s < 6; ++s) {
      seeds.push_back({int(random() % n.x), int(random() % n.y), int(random() % n.z)});
      (*start)(seeds.back().x, seeds.back().y, seeds.back().z) = s % 2 == 0 ? -h / 2 : -0.9 * h;
    }
    for (const int workers : {1, 3}) {
      WorkerPool pool(workers);
      ScalarGrid grid(*start);
      SpreadDistances(pool, grid, h);
      test::ForAll(n, [&](int i, int j, int k) {
        double expected = 1e6;
        for (const VecInt3D& s : seeds) {
          double value = (*start)(s.x, s.y, s.z);  // h is added step by step
          for (int d = std::max({std::abs(s.x - i), std::abs(s.y - j), std::abs(s.z - k)}); d > 0; --d) value += h;
          expected = std::min(expected, value);
        }
        ASSERT_EQ(grid(i, j, k), expected) << i << " " << j << " " << k;
      });
    }
  }
}

TEST(ReinitialiseLevelSet, TheZeroStaysAndBothSidesGrowByACellAStep) {
  WorkerPool pool(2);
  ScratchPool scratch;
  // A plane x = 7.3 cells whose values are three times too steep on one side and flat on the other.
  auto phi = MakeGrid({16, 5, 6}, 0);
  const double h = phi->space.cellSize;
  for (std::int64_t c = 0; c < phi->count; ++c) {
    const double d = (double(c % 16) - 7.3) * h;
    (*phi)[c] = d < 0 ? d / 5 : 3 * d;
  }
  const double a = -0.3 * h / 5, b = 3 * 0.7 * h;  // on both sides of the plane
  ReinitialiseLevelSet(pool, scratch, *phi, 0, phi->space.cellSize, *phi);
  for (std::int64_t c = 0; c < phi->count; ++c) {
    const int x = int(c % 16);
    const double expected = x <= 7 ? a * h / (b - a) - (7 - x) * h : b * h / (b - a) + (x - 8) * h;
    ASSERT_NEAR((*phi)[c], expected, 1e-12) << x;
  }
  // Nearer than 0.9 h in sum, values stay as they are; without a zero nothing is reached.
  auto near = MakeGrid({4, 1, 1}, 0);
  const double small[4] = {-5, -0.2 * h, 0.3 * h, 7};
  std::copy_n(small, 4, near->data);
  ReinitialiseLevelSet(pool, scratch, *near, 0, near->space.cellSize, *near);
  EXPECT_EQ((*near)[1], -0.2 * h);
  EXPECT_EQ((*near)[2], 0.3 * h);
  EXPECT_DOUBLE_EQ((*near)[0], -1.2 * h);
  EXPECT_DOUBLE_EQ((*near)[3], 1.3 * h);
  auto none = MakeGrid({4, 4, 4}, -2);
  ReinitialiseLevelSet(pool, scratch, *none, 0, none->space.cellSize, *none);
  EXPECT_EQ((*none)[5], -std::numeric_limits<double>::max());
}

TEST(ReinitialiseLevelSet, SignsOfANoisySphereStayAndEachSideGrowsFromItsNodesAtTheZero) {
  WorkerPool pool(3);
  ScratchPool scratch;
  auto phi = MakeGrid({23, 22, 20}, 0);
  const double h = phi->space.cellSize;
  const auto distance = [&](int i, int j, int k) { return (Length(Vec3D(i - 11.2, j - 10.7, k - 9.9)) - 6) * h; };
  test::FillCells(*phi,
                  [&](int i, int j, int k) { return distance(i, j, k) * (1 + 0.5 * std::sin(i + 2.0 * j + 3.0 * k)); });
  ReinitialiseLevelSet(pool, scratch, *phi, 0, phi->space.cellSize, *phi);
  std::vector<VecInt3D> atZero;
  const auto isOutside = [&](const VecInt3D& v) { return distance(v.x, v.y, v.z) >= 0; };
  test::ForAll(phi->dims, [&](int i, int j, int k) {
    const VecInt3D at(i, j, k);
    for (const VecInt3D& step : {VecInt3D(1, 0, 0), VecInt3D(0, 1, 0), VecInt3D(0, 0, 1)}) {
      if (isOutside(at) == isOutside(at + step) && isOutside(at) == isOutside(at - step)) continue;
      atZero.push_back(at);
      ASSERT_LE(std::abs((*phi)(i, j, k)), h);
    }
  });
  test::ForAll(phi->dims, [&](int i, int j, int k) {
    ASSERT_EQ((*phi)(i, j, k) >= 0, isOutside({i, j, k}));
    double expected = std::numeric_limits<double>::max();
    for (const VecInt3D& v : atZero) {
      if (isOutside(v) != isOutside({i, j, k})) continue;
      const int steps = std::max({std::abs(v.x - i), std::abs(v.y - j), std::abs(v.z - k)});
      expected = std::min(expected, std::abs((*phi)(v.x, v.y, v.z)) + steps * h);
    }
    ASSERT_NEAR(std::abs((*phi)(i, j, k)), expected, 1e-12);
  });
}

TEST(DensityToLevelset, ABoxHasSignsAndHalfCellsAtItsSurface) {
  for (const int workers : {1, 3}) {
    WorkerPool pool(workers);
    auto density = MakeGrid({16, 16, 16}, 0), phi = MakeGrid({16, 16, 16}, 1e6);
    test::ForBox({4, 4, 4}, {12, 12, 12}, [&](int i, int j, int k) { (*density)(i, j, k) = 0.5; });
    ASSERT_TRUE(DensityToLevelset(pool, *density, *phi, 0.5, 1e6, true));
    const double h = phi->space.cellSize;
    EXPECT_EQ((*phi)(4, 8, 8), -h / 2) << "a value at the threshold counts";
    EXPECT_EQ((*phi)(3, 8, 8), -h / 2 + h);
    EXPECT_DOUBLE_EQ((*phi)(7, 8, 8), -2.5 * h);
    EXPECT_DOUBLE_EQ((*phi)(0, 0, 0), 3.5 * h);
    ASSERT_TRUE(DensityToLevelset(pool, *density, *phi, 0.5, 1e6, false));
    EXPECT_DOUBLE_EQ((*phi)(7, 8, 8), 2.5 * h);
  }
}

TEST(DensityToLevelset, AThinRegionIsAllSeeds) {
  WorkerPool pool(2);
  auto density = MakeGrid({9, 9, 9}, 0), phi = MakeGrid({9, 9, 9}, 1e6);
  for (int j = 2; j < 7; ++j) (*density)(4, j, 4) = 1;
  ASSERT_TRUE(DensityToLevelset(pool, *density, *phi, 0.5, 1e6, true));
  for (int j = 2; j < 7; ++j) EXPECT_EQ((*phi)(4, j, 4), -0.5 * phi->space.cellSize);
  auto other = MakeGrid({8, 9, 9}, 0);
  EXPECT_FALSE(DensityToLevelset(pool, *other, *phi, 0.5, 1e6, true));
}

// Liquid in a box of cells of a quarter metre.
struct Liquid {
  explicit Liquid(int workers = 2)
      : scene(workers),
        target(kCells, Vec3D(kCells) * 0.25, 0.25f, kGridLevelset, Vec3D()),
        nodes(kCells + VecInt3D(1, 1, 1), Vec3D(kCells) * 0.25, 0.25f, kGridNodalLevelset, Vec3D()) {
    const BaseObject& object = scene.Add("particlegroup", "Liquid");
    scene.Step(0);
    group = scene.NodeOf<ParticleGroup>(object);
    nodes.Fill(1);
    target.Fill(123);
  }
  void Add(const VecInt3D& cell, int count, std::uint16_t flags = 0, double density = 0) {
    BaseParticleData data;
    data.position = (Vec3D(cell) + Vec3D(0.5)) * 0.25;
    data.flags = static_cast<std::uint16_t>(data.flags | flags);
    if (density != 0) data.SetReal(PP::Density, density);
    group->list(PK_Liquid)->Append(count, data);
  }
  void Build() {
    ParticleSort sort;
    sort.Configure(PK_Liquid, target.space, 16);
    sort.Sort(std::vector<ParticleGroup*>{group}, false, scene.pool);
    levelSet.Build(scene.pool, scratch, sort, nodes, target);
  }

  static constexpr VecInt3D kCells{12, 10, 9};
  test::TestScene scene;
  ParticleGroup* group = nullptr;
  ScratchPool scratch;
  ScalarGrid target, nodes;
  ParticleToLevelset levelSet;
};

constexpr double kHalf = 0.125;

TEST(ParticleToLevelset, ACellNeedsMoreThanTheMinimumWithoutWhatASheetInserted) {
  Liquid liquid;
  liquid.Add({3, 3, 3}, 5), liquid.Add({8, 3, 3}, 4), liquid.Add({3, 8, 3}, 4);
  liquid.Add({3, 8, 3}, 3, ParticleFlag::Inserted);
  liquid.Build();
  EXPECT_EQ(liquid.target(3, 3, 3), -kHalf);
  EXPECT_EQ(liquid.target(4, 4, 3), kHalf) << "the surface lies between";
  EXPECT_EQ(liquid.target(8, 3, 3), -kHalf + 5 * 0.25);
  EXPECT_EQ(liquid.target(3, 8, 3), -kHalf + 5 * 0.25);
  EXPECT_EQ(liquid.target(0, 0, 0), -kHalf + 3 * 0.25) << "distances reach the border";
  liquid.levelSet.minimumCount = 0;
  liquid.Build();
  EXPECT_EQ(liquid.target(8, 3, 3), -kHalf);
}

TEST(ParticleToLevelset, TheInsideIsNegativeAndWithoutParticlesAllIsFar) {
  Liquid liquid;
  liquid.Build();
  for (std::int64_t c = 0; c < liquid.target.count; ++c) ASSERT_EQ(liquid.target[c], ParticleToLevelset::kFar);
  liquid.levelSet.minimumCount = 0;
  for (int k = 2; k < 7; ++k) {
    for (int j = 2; j < 7; ++j) {
      for (int i = 2; i < 7; ++i) liquid.Add({i, j, k}, 1);
    }
  }
  liquid.Build();
  EXPECT_EQ(liquid.target(2, 4, 4), -kHalf);
  EXPECT_EQ(liquid.target(3, 4, 4), -kHalf) << "one step from a seed, signed";
  EXPECT_EQ(liquid.target(4, 4, 4), -3 * kHalf);
}

TEST(ParticleToLevelset, ByMassACellIsWhatItsParticlesLackOfFull) {
  Liquid liquid;
  liquid.levelSet.mode = ParticleToLevelset::Mass;
  liquid.Add({3, 3, 3}, 4), liquid.Add({5, 3, 3}, 2, 0, 0.75);
  liquid.Build();
  EXPECT_DOUBLE_EQ(liquid.target(0, 0, 0), 1.6);
  EXPECT_DOUBLE_EQ(liquid.target(3, 3, 3), 1.6 - 4);
  EXPECT_DOUBLE_EQ(liquid.target(5, 3, 3), 1.6 - 1.5);
}

TEST(ParticleToLevelset, LiquidReachesIntoSolidsBesideIt) {
  Liquid liquid;
  for (int k = 0; k <= 9; ++k) {
    for (int j = 0; j <= 10; ++j) {
      for (int i = 0; i <= 12; ++i) liquid.nodes(i, j, k) = (i - 4.0) * 0.25;  // solid below x = 4
    }
  }
  liquid.Add({4, 5, 5}, 5);
  liquid.Build();
  EXPECT_EQ(liquid.target(4, 5, 5), -kHalf);
  EXPECT_EQ(liquid.target(3, 5, 5), -kHalf) << "in the solid, half a cell away";
  EXPECT_EQ(liquid.target(2, 5, 5), -kHalf + 2 * 0.25) << "too far";
  EXPECT_EQ(liquid.target(5, 5, 5), kHalf) << "in the open";
}

}  // namespace
}  // namespace orlix
