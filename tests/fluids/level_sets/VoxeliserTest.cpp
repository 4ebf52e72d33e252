#include "fluids/level_sets/VolumeVoxeliser.h"

#include <gtest/gtest.h>

#include <cstring>

#include "fluids/level_sets/RowCrossing.h"
#include "fluids/level_sets/TriangleDistance.h"
#include "host/threads/WorkerPool.h"
#include "tests/fluids/level_sets/TestMeshes.h"
#include "tests/support/Cells.h"
#include "tests/support/Workers.h"

namespace orlix::test {
namespace {

std::unique_ptr<ScalarGrid> Voxelise(const iTriMesh& mesh, const VecInt3D& cells, const Vec3D& min, float cell,
                                     const VoxeliserSettings& settings = {}, int workers = 2) {
  auto grid = LevelSetGrid(cells, min, cell);
  WorkerPool pool(workers);
  VolumeVoxeliser voxeliser;
  voxeliser.settings = settings;
  EXPECT_TRUE(voxeliser.Run(mesh, *grid, pool));
  return grid;
}

std::vector<TriangleTerms> TermsOf(const iTriMesh& mesh) {
  std::vector<TriangleTerms> terms;
  for (const VecInt3D& t : mesh.Triangles()) {
    const auto& p = mesh.Points();
    terms.push_back(MakeTriangleTerms(p[std::size_t(t.x)], p[std::size_t(t.y)], p[std::size_t(t.z)]));
  }
  return terms;
}

bool SameBits(const ScalarGrid& a, const ScalarGrid& b) {
  return a.dims == b.dims && std::memcmp(a.data, b.data, std::size_t(a.count) * sizeof(double)) == 0;
}

// How often the mesh winds around a point: solid angles after van Oosterom and Strackee 1983.
double Winding(const iTriMesh& mesh, const Vec3D& p) {
  double sum = 0;
  for (const VecInt3D& t : mesh.Triangles()) {
    const Vec3D a = mesh.Points()[std::size_t(t.x)] - p, b = mesh.Points()[std::size_t(t.y)] - p,
                c = mesh.Points()[std::size_t(t.z)] - p;
    const double la = Length(a), lb = Length(b), lc = Length(c);
    sum += 2 * std::atan2(Dot(a, Cross(b, c)), la * lb * lc + Dot(a, b) * lc + Dot(b, c) * la + Dot(c, a) * lb);
  }
  return sum / (4 * std::numbers::pi);
}

// A bumpy sphere whose triangles have all sizes and shapes.
TriMeshSTL BumpyMesh(int segments, int rings) {
  TriMeshSTL mesh = SphereMesh(1, segments, rings);
  std::mt19937 random(3);
  std::uniform_real_distribution<double> factor(0.7, 1.1);
  for (Vec3D& p : mesh.Points()) p *= factor(random);
  return mesh;
}

// --- distances -------------------------------------------------------------------------------------------------------

class VoxeliserBand : public testing::TestWithParam<int> {
 protected:
  TriMeshSTL Mesh() const {
    switch (GetParam()) {
      case 0:
        return SphereMesh(1, 24, 12, {0.03, -0.02, 0.05});
      case 1:
        return BoxMesh({-0.8, -0.6, -0.7}, {0.9, 0.5, 0.75});
      case 2:
        return BumpyMesh(40, 20);  // smaller than cells
      case 3:
        return SphereMesh(1, 3, 2);  // six triangles, each larger than the band
      default:
        return BumpyMesh(12, 8);
    }
  }
};

// Beside the mesh the value is the least distance to any triangle, to the last bit.
TEST_P(VoxeliserBand, IsExactToTheLastBit) {
  const TriMeshSTL mesh = Mesh();
  const float cell = 0.125f;
  // The last lattice has several tiles in each axis, none of them whole, and is far from the mesh at most nodes.
  const auto grid = GetParam() == 4 ? Voxelise(mesh, {70, 40, 45}, {-1.3, -2.51, -4.32}, cell)
                                    : Voxelise(mesh, {20, 21, 22}, {-1.3, -1.31, -1.32}, cell);
  const std::vector<TriangleTerms> triangles = TermsOf(mesh);
  int checked = 0;
  double excess = 0;
  ForAll(grid->dims, [&](int i, int j, int k) {
    const Vec3D p = NodeAt(*grid, i, j, k);
    double least = 1e300;
    for (const TriangleTerms& t : triangles) least = std::min(least, SquaredDistance(p, t));
    const double value = std::abs((*grid)(i, j, k)), distance = std::sqrt(least);
    if (distance <= 3 * cell) {
      EXPECT_EQ(value, distance) << i << " " << j << " " << k;
      ++checked;
    }
    EXPECT_GE(value, distance);
    EXPECT_LE(value, distance * 1.03 + 1e-12) << i << " " << j << " " << k;
    excess += (value - distance) / cell;
  });
  EXPECT_LT(excess / double(grid->count), 1e-3);
  EXPECT_GT(checked, 2000);
}
INSTANTIATE_TEST_SUITE_P(Meshes, VoxeliserBand, testing::Range(0, 5));

// --- sign ------------------------------------------------------------------------------------------------------------

TEST(Voxeliser, SignIsThatOfTheWinding) {
  std::vector<TriMeshSTL> meshes{BumpyMesh(30, 15), BoxMesh({-1, -1, -1}, {1, 1, 1}), SphereMesh(1, 32, 16)};
  for (TriMeshSTL& mesh : meshes) {
    // Nodes, edges and corners of the box and of the sphere lie on rows.
    const auto grid = Voxelise(mesh, {24, 24, 24}, Vec3D(-1.5), 0.125f);
    int inside = 0, wrong = 0;
    ForAll(grid->dims, [&](int i, int j, int k) {
      if (std::abs((*grid)(i, j, k)) < 1e-9) return;
      const bool winds = std::abs(Winding(mesh, NodeAt(*grid, i, j, k))) > 0.5;
      inside += winds;
      wrong += winds != ((*grid)(i, j, k) < 0);
    });
    EXPECT_EQ(wrong, 0) << mesh.TriangleCount();
    EXPECT_GT(inside, 500);
  }
}

TEST(Voxeliser, FlippedTrianglesChangeNothing) {
  TriMeshSTL mesh = BumpyMesh(20, 10);
  const auto before = Voxelise(mesh, {20, 20, 20}, Vec3D(-1.25), 0.125f);
  for (std::size_t t = 0; t < mesh.Triangles().size(); t += 3) std::swap(mesh.Triangles()[t].y, mesh.Triangles()[t].z);
  const auto after = Voxelise(mesh, {20, 20, 20}, Vec3D(-1.25), 0.125f);
  ForAll(before->dims, [&](int i, int j, int k) { EXPECT_NEAR((*before)(i, j, k), (*after)(i, j, k), 1e-12); });
}

TEST(Voxeliser, FlipSignTurnsEveryNode) {
  const TriMeshSTL mesh = SphereMesh(1, 20, 10);
  VoxeliserSettings flipped;
  flipped.flip = true;
  const auto solid = Voxelise(mesh, {16, 16, 16}, Vec3D(-1.2), 0.15f);
  const auto hole = Voxelise(mesh, {16, 16, 16}, Vec3D(-1.2), 0.15f, flipped);
  for (std::int64_t n = 0; n < solid->count; ++n) EXPECT_EQ((*solid)[n], -(*hole)[n]);
}

// --- broken meshes ---------------------------------------------------------------------------------------------------

void Add(TriMeshSTL& mesh, const Vec3D& a, const Vec3D& b, const Vec3D& c) {
  const std::int32_t n = mesh.PointCount();
  for (const Vec3D& p : {a, b, c}) mesh.Points().push_back(p);
  mesh.Triangles().push_back({n, n + 1, n + 2});
}

TEST(Voxeliser, DegenerateAndDuplicateTrianglesOnTheSurfaceChangeNothing) {
  TriMeshSTL mesh = BoxMesh({-1, -1, -1}, {1, 1, 1});
  const auto clean = Voxelise(mesh, {24, 24, 24}, Vec3D(-1.44), 0.12f);
  const Vec3D corner(1, 1, 1), edge(1, 1, 0.5);
  Add(mesh, corner, corner, corner);
  Add(mesh, corner, edge, corner);
  for (int copy = 0; copy < 2; ++copy) Add(mesh, {1, -1, -1}, {1, 1, -1}, {1, 1, 1});  // twice: the parity stays
  const auto dirty = Voxelise(mesh, {24, 24, 24}, Vec3D(-1.44), 0.12f);
  for (std::int64_t n = 0; n < clean->count; ++n) EXPECT_NEAR((*clean)[n], (*dirty)[n], 1e-12);
}

TEST(Voxeliser, TrianglesWithoutFiniteCornersAreLeftOut) {
  TriMeshSTL mesh = SphereMesh(1, 20, 10);
  const auto clean = Voxelise(mesh, {16, 16, 16}, Vec3D(-1.2), 0.15f);
  constexpr double kNaN = std::numeric_limits<double>::quiet_NaN(), kInf = std::numeric_limits<double>::infinity();
  Add(mesh, {kNaN, 0, 0}, {0, 1, 0}, {0, 0, 1});
  Add(mesh, {0, 0, 0}, {0, kInf, 0}, {0, 0, 1});
  EXPECT_TRUE(SameBits(*clean, *Voxelise(mesh, {16, 16, 16}, Vec3D(-1.2), 0.15f)));
}

TEST(Voxeliser, CornersBeyondEveryIndexDoNoHarm) {
  TriMeshSTL mesh = SphereMesh(1, 20, 10);
  Add(mesh, {1e300, 0, 0}, {0, 1e300, 0}, {0, 0, -1e300});
  Add(mesh, {1e30, 2, 2}, {1e30, 3, 2}, {1e30, 2, 3});
  const auto grid = Voxelise(mesh, {16, 16, 16}, Vec3D(-1.2), 0.15f);
  for (std::int64_t n = 0; n < grid->count; ++n) EXPECT_FALSE(std::isnan((*grid)[n]));
}

TEST(Voxeliser, AHoleKeepsTheInsideWhereRowsMeetBothSides) {
  TriMeshSTL mesh = BoxMesh({-1, -1, -1}, {1, 1, 1});
  mesh.Triangles().resize(10);  // the face at z = 1 is gone
  const auto grid = Voxelise(mesh, {24, 24, 24}, Vec3D(-1.44), 0.12f);
  EXPECT_LT((*grid)(12, 12, 12), 0);  // rows along x
}

TEST(Voxeliser, RefusesEmptyMeshAndEmptyGrid) {
  WorkerPool pool(1);
  VolumeVoxeliser voxeliser;
  const auto grid = LevelSetGrid({8, 8, 8}, {}, 0.1f);
  EXPECT_FALSE(voxeliser.Run(TriMeshSTL(), *grid, pool));
  const auto empty = LevelSetGrid({-1, -1, -1}, {}, 0.1f);
  EXPECT_FALSE(voxeliser.Run(SphereMesh(1, 8, 4), *empty, pool));
}

TEST(Voxeliser, StopsWhenAsked) {
  WorkerPool pool(2);
  BaseThread thread;
  thread.Break();
  VolumeVoxeliser voxeliser;
  EXPECT_FALSE(voxeliser.Run(SphereMesh(1, 8, 4), *LevelSetGrid({8, 8, 8}, {}, 0.1f), pool, &thread));
}

// --- depth and shell -------------------------------------------------------------------------------------------------

TEST(Voxeliser, DepthIsTheLargestInsideDistance) {
  const auto grid = LevelSetGrid({20, 20, 20}, Vec3D(-1.25), 0.125f);
  WorkerPool pool(3);
  VolumeVoxeliser voxeliser;
  ASSERT_TRUE(voxeliser.Run(SphereMesh(1, 40, 20), *grid, pool));
  double deepest = 0;
  for (std::int64_t n = 0; n < grid->count; ++n) deepest = std::max(deepest, -(*grid)[n]);
  EXPECT_EQ(*voxeliser.maximumDepth(), deepest);
  EXPECT_NEAR(deepest, 1, 0.02);
}

// By the rule: deep -(value + D t), then 2 middle - value, then the value itself.
TEST(Voxeliser, ShellFoldsTheDistances) {
  const TriMeshSTL mesh = SphereMesh(1, 40, 20);
  VoxeliserSettings hollow;
  for (const double shell : {0.5, 0.25, 0.0}) {
    hollow.shell = shell;
    const auto solid = Voxelise(mesh, {20, 20, 20}, Vec3D(-1.25), 0.125f);
    const auto shelled = Voxelise(mesh, {20, 20, 20}, Vec3D(-1.25), 0.125f, hollow);
    double depth = 0;
    for (std::int64_t n = 0; n < solid->count; ++n) depth = std::max(depth, -(*solid)[n]);
    const double wall = depth * shell;
    int inWall = 0;
    for (std::int64_t n = 0; n < solid->count; ++n) {
      const double value = (*solid)[n], got = (*shelled)[n];
      if (value <= -wall) {
        EXPECT_EQ(got, -(value + wall));
      } else if (value <= -wall / 2) {
        EXPECT_NEAR(got, -wall - value, 1e-15);
      } else {
        EXPECT_EQ(got, value);
      }
      EXPECT_GE(got, -wall / 2 - 1e-15);
      inWall += got < 0;
    }
    EXPECT_EQ(inWall == 0, shell == 0) << shell;
  }
}

// --- meshes that deform ----------------------------------------------------------------------------------------------

// Points of one side move, and back, then a single one, then some of the other side.
TEST(Voxeliser, WhatMovedInPlacesHasTheBitsOfAWholeRun) {
  TriMeshSTL mesh = BumpyMesh(30, 15);
  const VecInt3D cells{100, 32, 35};
  const Vec3D min{-6.7, -1.31, -1.32};
  const auto grid = LevelSetGrid(cells, min, 0.08f);
  WorkerPool pool(2);
  VolumeVoxeliser voxeliser;
  voxeliser.settings.keep = true;
  std::vector<double> shares;
  const auto move = [&](double side, const Vec3D& way) {
    for (Vec3D& p : mesh.Points()) p += side * p.x > 0.75 ? way : Vec3D();
  };
  for (int step = 0; step < 9; ++step) {
    if (step == 3 || step == 4) move(1, {0.02 * step, 0.01, 0});
    if (step == 5) move(1, {-0.08, -0.01, 0.013});
    if (step == 6) mesh.Points()[7] += Vec3D(0.3, -0.2, 0.1);
    if (step == 7) move(-1, {-0.05, 0.02, -0.04});  // most of the lattice lies there
    ASSERT_TRUE(voxeliser.Run(mesh, *grid, pool));
    EXPECT_TRUE(SameBits(*grid, *Voxelise(mesh, cells, min, 0.08f))) << step;
    shares.push_back(voxeliser.keptShare());
  }
  // Two runs come before one that has something to take.
  EXPECT_EQ(shares[1], 0);
  EXPECT_EQ(shares[2], 1);
  for (int step = 3; step < 7; ++step) EXPECT_TRUE(shares[step] > 0.3 && shares[step] < 1) << shares[step];
  EXPECT_EQ(shares[8], 1);
}

// --- workers ---------------------------------------------------------------------------------------------------------

TEST(VoxeliserThreads, SameBitsForAnyNumberOfWorkers) {
  const TriMeshSTL mesh = BumpyMesh(40, 20);
  const VecInt3D cells{70, 35, 35};
  VoxeliserSettings settings;
  settings.shell = 0.6;
  SameForAnyWorkers([&](int workers) {
    settings.workers = workers;
    const auto voxelised = ValuesOf(*Voxelise(mesh, cells, Vec3D(-1.4), 0.08f, settings, workers));
    // Also with more pieces of work than threads.
    EXPECT_EQ(ValuesOf(*Voxelise(mesh, cells, Vec3D(-1.4), 0.08f, settings, 1)), voxelised);
    return voxelised;
  });
}

}  // namespace
}  // namespace orlix::test
