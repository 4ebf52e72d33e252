// Level sets from particles, against a plain loop over all of them.

#include <gtest/gtest.h>

#include <algorithm>

#include "fluids/constraints/VoxelDistanceConstraint.h"
#include "fluids/particles/ParticleKdTree.h"
#include "fluids/surfacing/PointsToImplicitGrid.h"
#include "fluids/surfacing/SurfaceReconstructor.h"
#include "globals/Random.h"
#include "tests/support/TestScene.h"
#include "tests/support/Workers.h"

namespace orlix {
namespace {

constexpr double kFar = 77;
constexpr float kCell = 0.5f;

struct Cloud {
  std::vector<Vec3D> places;
  std::vector<double> ratios;
  std::vector<StretchedBall> balls;
  ReconstructionPoints points() const { return {places, ratios, balls}; }
};

// A dense ball, a sparse cloud and a drop by itself; jittered, or on a lattice where distances are equal.
Cloud MakeCloud(bool jittered) {
  Cloud cloud;
  MersenneTwister random(3);
  const auto jitter = [&] { return jittered ? random.Uniform() * 0.4 : 0.0; };
  for (int k = 0; k < 10; ++k) {
    for (int j = 0; j < 10; ++j) {
      for (int i = 0; i < 10; ++i) {
        const Vec3D p = Vec3D(i, j, k) * 0.5 + Vec3D(jitter(), jitter(), jitter());
        if (Length(p - Vec3D(2.5)) < 2.2) cloud.places.push_back(p + Vec3D(2));
      }
    }
  }
  for (int n = 0; n < 40; ++n) {
    cloud.places.push_back(Vec3D(7.5, 2, 2) + Vec3D(random.Uniform(), random.Uniform(), random.Uniform()) * 3);
  }
  cloud.places.push_back({2, 9, 9});
  for (const Vec3D& p : cloud.places) {
    cloud.ratios.push_back(0.02 + 0.02 * random.Uniform());
    StretchedBall ball{p + Vec3D(random.Uniform() * 0.1), {}};
    for (auto& row : ball.stretch.m) {
      for (double& each : row) each += 0.3 * random.Uniform();
    }
    cloud.balls.push_back(ball);
  }
  return cloud;
}

std::unique_ptr<ScalarGrid> MakeGrid() {
  return std::make_unique<ScalarGrid>(VecInt3D(24, 23, 22), Vec3D(11.5, 11, 10.5), kCell, kGridNodalLevelset, Vec3D());
}

// The formulas, with a sort of all distances at each node.
class PlainLoop {
 public:
  PlainLoop(const ReconstructionSettings& settings, const Cloud& cloud) : s_(settings), cloud_(cloud) {}

  double At(const Vec3D& x) const {
    const std::vector<Neighbour> near = Near(x);
    if (near.empty()) return kFar;
    const double r0 = s_.Radius(), r = s_.SearchRadius();
    if (s_.method == ReconstructionMethod::Spherical) return Spherical(x, near);
    double sum = 0;
    Vec3D mean;
    for (const Neighbour& n : near) {
      const StretchedBall& ball = cloud_.balls[std::size_t(n.index)];
      const Vec3D q = ball.stretch * (x - ball.centre);
      if (s_.method == ReconstructionMethod::Density) {
        sum += cloud_.ratios[std::size_t(n.index)] * Weight(LengthSquared(q), s_.BallReach() * s_.BallReach(), 1);
      } else {
        const double w = Weight(LengthSquared(q), r * r, 1);
        sum += w, mean += q * w;
      }
    }
    if (s_.method == ReconstructionMethod::Density) return (r0 - sum) * s_.particleRadius;
    return sum == 0 ? kFar : std::min(Length(mean / sum), r0) - r0;
  }

 private:
  std::vector<Neighbour> Near(const Vec3D& x) const {
    std::vector<Neighbour> near;
    for (std::size_t n = 0; n < cloud_.places.size(); ++n) {
      const double d = LengthSquared(cloud_.places[n] - x);
      if (d < s_.SearchRadius() * s_.SearchRadius()) near.push_back({std::int32_t(n), d, std::sqrt(d)});
    }
    std::sort(near.begin(), near.end(), Nearer);
    near.resize(std::min(near.size(), std::size_t(s_.maxNeighbours)));
    if (near.size() < std::size_t(s_.minNeighbours)) near.resize(std::min<std::size_t>(near.size(), 1));
    return near;
  }
  double Weight(double squared, double squaredRadius, int power) const {
    const double r = s_.SearchRadius();
    if (s_.kernel) return s_.kernel->EvaluateWithin(squared, r * r, r * r * r);
    const double q = squared / squaredRadius, s = power == 2 ? q * q : q;
    return q < 1 ? (1 - s) * (1 - s) * (1 - s) : 0;
  }
  double Spherical(const Vec3D& x, const std::vector<Neighbour>& near) const {
    const double r = s_.SearchRadius(), r0 = s_.Radius();
    double sum = 0, density = 0;
    Vec3D mean;
    for (const Neighbour& n : near) {
      const double ratio = s_.useMassRatio ? cloud_.ratios[std::size_t(n.index)] : 1;
      const double w = Weight(n.distanceSquared, r * r, 2) * ratio;
      sum += w, mean += cloud_.places[std::size_t(n.index)] * w;
    }
    if (near.size() == 1 || sum == 0) return near[0].distance - r0;
    mean = mean / sum;
    const std::vector<Neighbour> about = Near(mean);
    if (!s_.densityCorrection || about.empty()) return Length(x - mean) - r0;
    for (const Neighbour& n : about) {
      density += cloud_.ratios[std::size_t(n.index)] * Weight(n.distanceSquared, r * r, 2);
    }
    return Length(x - mean) - s_.RadiusShare(density) * r0;
  }

  const ReconstructionSettings& s_;
  const Cloud& cloud_;
};

struct MethodCase {
  ReconstructionMethod method;
  bool jittered, kernel;
  std::int32_t fewest, most;
};

class Reconstruction : public testing::TestWithParam<MethodCase> {};

TEST_P(Reconstruction, IsWhatAPlainLoopGives) {
  const MethodCase& c = GetParam();
  const Cloud cloud = MakeCloud(c.jittered);
  KernelBase kernel;
  kernel.kind = KernelKind::Cubic;
  ReconstructionSettings settings;
  settings.method = c.method;
  settings.particleRadius = 0.5, settings.radiusScale = 0.9;
  settings.minNeighbours = c.fewest, settings.maxNeighbours = c.most;
  settings.useMassRatio = true;
  settings.densityCorrection = c.jittered;  // about a mean on a lattice equal distances differ by rounding
  settings.lowerDensity = 0.1, settings.upperDensity = 0.9;
  settings.ballReach = c.most < 100 ? 1 : 0;
  if (c.kernel) settings.kernel = &kernel;
  const PlainLoop plain(settings, cloud);
  test::SameForAnyWorkers([&](int workers) {
    WorkerPool pool(workers);
    const auto grid = MakeGrid();
    EXPECT_TRUE(PointsToImplicitGrid(pool, settings, cloud.points(), kFar, *grid));
    if (workers == 1) {
      int reached = 0;
      for (int k = 0; k < grid->dims.z; ++k) {
        for (int j = 0; j < grid->dims.y; ++j) {
          for (int i = 0; i < grid->dims.x; ++i) {
            const bool border = i == 0 || j == 0 || k == 0 || i == 23 || j == 22 || k == 21;
            const double expected = border ? kFar : plain.At(grid->space.SimOfVoxel(Vec3D(i, j, k)));
            EXPECT_NEAR((*grid)(i, j, k), expected, 1e-9) << i << " " << j << " " << k;
            reached += expected != kFar;
          }
        }
      }
      EXPECT_GT(reached, 1500);
      EXPECT_LT(reached, grid->count / 2);
    }
    return std::vector<double>(grid->data, grid->data + grid->count);
  });
}

INSTANTIATE_TEST_SUITE_P(Methods, Reconstruction,
                         testing::Values(MethodCase{ReconstructionMethod::Spherical, true, false, 1, 100},
                                         MethodCase{ReconstructionMethod::Spherical, true, true, 3, 12},
                                         MethodCase{ReconstructionMethod::Spherical, false, false, 1, 30},
                                         MethodCase{ReconstructionMethod::Density, true, false, 1, 20},
                                         MethodCase{ReconstructionMethod::Density, true, true, 1, 100},
                                         MethodCase{ReconstructionMethod::Density, true, false, 1, 100},
                                         MethodCase{ReconstructionMethod::Average, true, false, 4, 25},
                                         MethodCase{ReconstructionMethod::Average, false, true, 1, 1}));

TEST(ReconstructionSettings, TheRadiusGrowsWithTheDensityBetweenItsBounds) {
  ReconstructionSettings settings;
  settings.lowerDensity = 0.2, settings.upperDensity = 1;
  EXPECT_EQ(settings.RadiusShare(0.1), 0);
  EXPECT_EQ(settings.RadiusShare(0.2), 0);
  EXPECT_NEAR(settings.RadiusShare(0.6), 0.5625, 1e-15);
  EXPECT_EQ(settings.RadiusShare(1), 1);
  EXPECT_EQ(settings.RadiusShare(7), 1);
  settings.lowerDensity = 1;
  EXPECT_EQ(settings.RadiusShare(0.999), 0);
  EXPECT_EQ(settings.RadiusShare(1), 1);
}

// What isn't finite, or lies beyond the grid, does no harm.
TEST(PointsToImplicitGrid, StrayPointsAreNoDanger) {
  WorkerPool pool(2);
  ReconstructionSettings settings;
  settings.particleRadius = 0.5;
  const auto grid = MakeGrid();
  const std::vector<Vec3D> places{{5, 5, 5}, Vec3D(std::nan("")), {1e300, 0, 0}, {-3, 5, 5}, {kNowhere, 1, 1}};
  EXPECT_TRUE(PointsToImplicitGrid(pool, settings, {places, {}, {}}, kFar, *grid));
  EXPECT_EQ((*grid)(10, 10, 10), -0.5);
  EXPECT_EQ((*grid)(12, 10, 10), 0.5);
  EXPECT_EQ((*grid)(14, 10, 10), kFar);
  EXPECT_TRUE(PointsToImplicitGrid(pool, settings, {}, kFar, *grid));
  EXPECT_EQ((*grid)(10, 10, 10), kFar);
}

// The node that reconstructs a surface from particles.

using test::TestScene;

class ReconstructorNode : public testing::Test {
 protected:
  ReconstructorNode() {
    s.root->Set(RootSettings::kVoxelSizeId, 0.2);
    object.Set(SurfaceReconstructor::kSourceId, s.LinkTo(group));
    s.Step(0);
  }
  ParticleList& List() { return *s.NodeOf<ParticleGroup>(group)->list(PK_Liquid); }
  void AddParticle(const Vec3D& position, double density = -1) {
    BaseParticleData data;
    data.position = position;
    if (density >= 0) data.SetReal(PP::Density, density);
    List().Append(1, data);
  }
  SurfaceReconstructor& Node() { return *s.NodeOf<SurfaceReconstructor>(object); }
  double At(const Vec3D& x) {
    const GridSpace& space = Node().LevelSet()->space;
    return Node().SampleGrid(space.VoxelOfSim(x));
  }
  TestScene s;
  BaseObject &group = s.Add("particlegroup", "Drops"), &object = s.Add("surface_reconstruction", "Surface");
};

TEST_F(ReconstructorNode, ADropIsABallOnTheScenesLattice) {
  EXPECT_EQ(Node().LevelSet(), nullptr);
  EXPECT_EQ(Node().SampleGrid({}), 0);
  object.Set(SurfaceReconstructor::kSubdivisionId, 2.0);
  AddParticle({1, 2, 3});
  s.Step(1);
  const ScalarGrid& grid = *Node().LevelSet();
  const double cell = float(0.1);
  EXPECT_EQ(grid.space.cellSize, float(0.1));
  EXPECT_EQ(grid.gridType, kGridNodalLevelset);
  for (int axis = 0; axis < 3; ++axis) {
    EXPECT_NEAR(grid.space.simMin[axis] / cell, std::round(grid.space.simMin[axis] / cell), 1e-4);
  }
  EXPECT_NEAR(grid.space.simMin.x, 1 - 1.2, cell + 1e-6);
  EXPECT_NEAR(At({1, 2, 3}), -0.1, 1e-6);
  EXPECT_NEAR(At({1.2, 2, 3}), 0.1, 1e-6);
  EXPECT_GT(At({1.5, 2, 3}), 2);
  // It doesn't shift with the particle, and a version tells that it changed.
  const std::uint64_t version = Node().LevelSetVersion();
  OrlixParticle(&List(), 0).SetPosition({1.03, 2.01, 3});
  const VecInt3D dims = grid.dims;
  s.Step(2);
  EXPECT_NEAR(std::remainder(Node().LevelSet()->space.simMin.x, cell), 0, 1e-5);
  EXPECT_LE(Node().LevelSet()->dims.x - dims.x, 1);
  EXPECT_GT(Node().LevelSetVersion(), version);
  EXPECT_NEAR(At({1.03, 2.01, 3}), -0.1, 0.06);
  List().Clear();
  s.Step(3);
  EXPECT_EQ(Node().LevelSet(), nullptr);
}

TEST_F(ReconstructorNode, TheFilterLeavesParticlesOut) {
  object.Set(SurfaceReconstructor::kSubdivisionId, 2.0);
  AddParticle({0.9, 1, 1}), AddParticle({5, 1, 1}, 0.9), AddParticle({1, 5, 1}, 0.3);
  BaseObject &ball = s.Add("constraint_voxeldistance", "ball"), &centre = s.Add("null", "centre");
  centre.Set(kPositionId, Vec3D(100, 500, 100));
  ball.Set(VoxelDistanceConstraint::kReferenceId, s.LinkTo(centre));
  ball.Set(VoxelDistanceConstraint::kDistanceId, 60.0);
  object.Set(kConstraintsId, s.ListOf({&ball}));
  object.Set(SurfaceReconstructor::kDensityThresholdId, 0.5);
  s.Step(1);
  EXPECT_TRUE(s.Warned("its constraints leave nothing out while filter is off"));
  for (const Vec3D& x : {Vec3D(0.9, 1, 1), Vec3D(5, 1, 1), Vec3D(1, 5, 1)}) EXPECT_LT(At(x), 0);
  object.Set(SurfaceReconstructor::kFilterId, std::int64_t(1));
  s.Step(2);
  // A particle at weight 0 by the constraint, one that is too dense, one that stays.
  const double in[] = {At({0.9, 1, 1}), At({5, 1, 1}), At({1, 5, 1})};
  int kept = 0;
  for (int n = 0; n < 3; ++n) {
    EXPECT_EQ(in[n] < 0, (List().Flags(n) & ParticleFlag::Excluded) != 0) << n;
    kept += in[n] < 0;
  }
  EXPECT_EQ(kept, 1);
  EXPECT_GT(in[1], 0);
}

TEST_F(ReconstructorNode, TakesThePointsOfAMesh) {
  BaseObject& mesh = s.Add("box", "Box");
  mesh.Set(kPositionId, Vec3D(10, 20, 30));
  object.Set(SurfaceReconstructor::kSourceId, s.LinkTo(mesh));
  object.Set(SurfaceReconstructor::kSubdivisionId, 4.0);
  s.Step(1);
  ASSERT_NE(Node().LevelSet(), nullptr);
  int inside = 0;
  for (const Vec3D& point : mesh.Polygons()->points) {
    inside += At((mesh.GlobalMatrix() * point) * s.scene().space.simPerHost) < -0.02;
  }
  EXPECT_EQ(inside, int(mesh.Polygons()->points.size()));
  EXPECT_GE(inside, 8);
}

TEST_F(ReconstructorNode, AComputedStretchMakesASheetFlat) {
  MersenneTwister random(1);
  for (int n = 0; n < 3600; ++n) {
    AddParticle({n % 60 * 0.05 + random.Uniform() * 0.01, n / 60 * 0.05 + random.Uniform() * 0.01, 1});
  }
  object.Set(SurfaceReconstructor::kMethodId, std::int64_t(2));
  object.Set(SurfaceReconstructor::kSubdivisionId, 4.0);
  s.Step(1);
  EXPECT_TRUE(s.Warned("no particle carries a stretch"));
  const double round = At({1.5, 1.5, 1.05});
  object.Set(SurfaceReconstructor::kStretchId, std::int64_t(1));
  s.Step(2);
  // Balls that are flat reach less far across the sheet.
  EXPECT_LT(round, -0.02);
  EXPECT_GT(At({1.5, 1.5, 1.05}), round + 0.01);
  EXPECT_LT(At({1.5, 1.5, 1}), -0.05);
}

TEST_F(ReconstructorNode, TellsWhatIsMissing) {
  object.Set(SurfaceReconstructor::kSourceId, LinkValue{});
  s.StepThrough(1, 2);
  EXPECT_TRUE(s.Warned("no particles are linked"));
  Node().Conclude();
  EXPECT_TRUE(s.Warned("no level set was made"));
  object.Set(SurfaceReconstructor::kSourceId, s.LinkTo(group));
  AddParticle({0, 0, 0});
  s.Step(3);
  ASSERT_NE(Node().LevelSet(), nullptr);
  AddParticle({1e9, 1e9, 1e9});
  s.Step(4);
  EXPECT_TRUE(s.Warned("remove particles that flew far away"));
  EXPECT_EQ(Node().LevelSet(), nullptr) << "that of the frame before";
  EXPECT_FALSE(s.scene().failure());
}

TEST_F(ReconstructorNode, RenderOnlyWaitsForARender) {
  AddParticle({1, 1, 1});
  object.Set(SurfaceReconstructor::kRenderOnlyId, std::int64_t(1));
  s.Step(1);
  EXPECT_EQ(Node().LevelSet(), nullptr);
  EXPECT_TRUE(s.document.SetTime(BaseTime::OfFrame(2, 24)).ok());
  s.hook.Execute(s.document, &s.thread, true);
  EXPECT_NE(Node().LevelSet(), nullptr);
}

}  // namespace
}  // namespace orlix
