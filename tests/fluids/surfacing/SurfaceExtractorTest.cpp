// Surfaces of analytic level sets and of noise: closed, in the right place, the same at any number of workers.

#include "fluids/surfacing/SurfaceExtractor.h"

#include <gtest/gtest.h>

#include <numbers>

#include "globals/Random.h"
#include "tests/fluids/level_sets/TestMeshes.h"
#include "tests/fluids/surfacing/MeshCheck.h"
#include "tests/support/Workers.h"

namespace orlix {
namespace {

using test::Check;
using test::MeshCheck;

constexpr ExtractionMethod kMethods[] = {ExtractionMethod::Cubes, ExtractionMethod::Tetrahedra,
                                         ExtractionMethod::Tiles};

template <class F>
std::unique_ptr<ScalarGrid> LevelSet(int cells, double side, F&& distance) {
  auto grid = test::LevelSetGrid({cells, cells, cells}, Vec3D(-side / 2), static_cast<float>(side / cells));
  for (int k = 0; k <= cells; ++k) {
    for (int j = 0; j <= cells; ++j) {
      for (int i = 0; i <= cells; ++i) (*grid)(i, j, k) = distance(test::NodeAt(*grid, i, j, k));
    }
  }
  return grid;
}

TriMeshSTL Extract(const ScalarGrid& grid, const ExtractionSettings& settings, int workers = 2) {
  WorkerPool pool(workers);
  TriMeshSTL mesh;
  const SurfaceExtractor extractor(grid, settings);
  EXPECT_TRUE(extractor.Build(pool, mesh));
  extractor.GradientNormals(pool, mesh);
  return mesh;
}

class EachMethod : public testing::TestWithParam<ExtractionMethod> {};
INSTANTIATE_TEST_SUITE_P(All, EachMethod, testing::ValuesIn(kMethods));

double Sphere(const Vec3D& p) { return Length(p - Vec3D(0.013, 0.007, -0.011)) - 0.31; }
double Torus(const Vec3D& p) { return std::hypot(std::hypot(p.x, p.y) - 0.29, p.z) - 0.113; }

TEST_P(EachMethod, SphereAndTorusConvergeToSecondOrderAndAreClosed) {
  const auto errors = [&](int cells, auto&& distance, double area, double volume, int euler) {
    const TriMeshSTL mesh = Extract(*LevelSet(cells, 1, distance), {.method = GetParam()});
    const MeshCheck check = Check(mesh);
    EXPECT_EQ(check.openEdges + check.unusedPoints + check.equalPoints, 0);
    EXPECT_EQ(check.euler, euler);
    EXPECT_GE(check.leastArea, 1e-6 / (cells * cells));
    return std::pair{std::abs(check.area / area - 1), std::abs(check.volume / volume - 1)};
  };
  constexpr double pi = std::numbers::pi;
  const auto compare = [&](auto&& distance, double area, double volume, int euler) {
    const auto [areaCoarse, volumeCoarse] = errors(24, distance, area, volume, euler);
    const auto [areaFine, volumeFine] = errors(48, distance, area, volume, euler);
    EXPECT_LT(areaFine, areaCoarse / 3) << areaCoarse;
    EXPECT_LT(volumeFine, volumeCoarse / 3) << volumeCoarse;
    EXPECT_LT(areaFine, 0.01);
  };
  compare(Sphere, 4 * pi * 0.31 * 0.31, 4.0 / 3 * pi * 0.31 * 0.31 * 0.31, 2);
  compare(Torus, 4 * pi * pi * 0.29 * 0.113, 2 * pi * pi * 0.29 * 0.113 * 0.113, 0);
}

TEST_P(EachMethod, NoiseIsClosedAndPointsLieOnTheSurface) {
  MersenneTwister random(7);
  for (int round = 0; round < 4; ++round) {
    const auto grid = LevelSet(13, 1.3, [&](const Vec3D&) { return random.Uniform() - 0.5; });
    if (round == 3) {  // values that are exactly on the surface
      for (int n = 0; n < grid->count; ++n) (*grid)[n] = std::round(3 * (*grid)[n]);
    }
    const MeshCheck check = Check(Extract(*grid, {.method = GetParam(), .closed = true}));
    EXPECT_EQ(check.openEdges, 0) << round;
    EXPECT_EQ(check.unusedPoints, 0);
    EXPECT_GT(check.volume, 0) << "normals point inside";
  }
}

TEST_P(EachMethod, NodesOnTheSurfaceAndABoxGiveNoSliver) {
  // The faces of the box run through nodes; edges and corners too.
  const auto box = LevelSet(16, 1.6, [](const Vec3D& p) {
    return std::max({std::abs(p.x), std::abs(p.y), std::abs(p.z)}) - 0.5;
  });
  const MeshCheck check = Check(Extract(*box, {.method = GetParam(), .tolerance = 1e-4}));
  EXPECT_EQ(check.openEdges + check.unusedPoints + check.equalPoints, 0);
  EXPECT_EQ(check.euler, 2);
  EXPECT_NEAR(check.volume, 1, 0.06);  // its edges are cut
  EXPECT_GE(check.leastArea, 1e-6 * 0.01);
}

TEST_P(EachMethod, NormalsPointOutsideAndIsoMovesTheSurface) {
  const auto grid = LevelSet(30, 1, Sphere);
  const TriMeshSTL mesh = Extract(*grid, {.method = GetParam(), .iso = 0.05});
  const std::vector<Vec3D>& normals = *mesh.pointAttributes.Find(kPointNormalId);
  for (int p = 0; p < mesh.PointCount(); ++p) {
    const Vec3D out = mesh.Points()[static_cast<std::size_t>(p)] - Vec3D(0.013, 0.007, -0.011);
    EXPECT_NEAR(Length(out), 0.36, 0.003);
    EXPECT_GT(Dot(normals[static_cast<std::size_t>(p)], out) / Length(out), 0.99);
  }
}

TEST_P(EachMethod, OpenWhereTheLevelSetEndsUnlessAsked) {
  const auto slab = LevelSet(10, 1, [](const Vec3D& p) { return p.y; });
  EXPECT_GT(Check(Extract(*slab, {.method = GetParam()})).openEdges, 0);
  const MeshCheck closed = Check(Extract(*slab, {.method = GetParam(), .closed = true}));
  EXPECT_EQ(closed.openEdges, 0);
  EXPECT_EQ(closed.euler, 2);
}

TEST_P(EachMethod, SameMeshAtAnyNumberOfWorkers) {
  MersenneTwister random(3);
  const auto grid = LevelSet(20, 1, [&](const Vec3D& p) { return Sphere(p) + 0.1 * random.Uniform(); });
  test::SameForAnyWorkers([&](int workers) {
    const TriMeshSTL mesh = Extract(*grid, {.method = GetParam(), .tolerance = 1e-3}, workers);
    return std::tuple{mesh.Points(), mesh.Triangles(), *mesh.pointAttributes.Find(kPointNormalId)};
  });
}

TEST(SurfaceExtractor, EmptyWhereNothingCrosses) {
  for (const ExtractionMethod method : kMethods) {
    EXPECT_EQ(Extract(*LevelSet(8, 1, [](const Vec3D&) { return 1.0; }), {.method = method}).PointCount(), 0);
    EXPECT_EQ(Extract(*LevelSet(1, 1, Sphere), {.method = method}).TriangleCount(), 0);
  }
}

}  // namespace
}  // namespace orlix
