// Level sets from particles, against a plain loop over all of them.

#include "fluids/surfacing/PointsToImplicitGrid.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "fluids/particles/ParticleKdTree.h"
#include "globals/Random.h"
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

struct Case {
  ReconstructionMethod method;
  bool jittered, kernel;
  std::int32_t fewest, most;
};

class Reconstruction : public testing::TestWithParam<Case> {};

TEST_P(Reconstruction, IsWhatAPlainLoopGives) {
  const Case& c = GetParam();
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
                         testing::Values(Case{ReconstructionMethod::Spherical, true, false, 1, 100},
                                         Case{ReconstructionMethod::Spherical, true, true, 3, 12},
                                         Case{ReconstructionMethod::Spherical, false, false, 1, 30},
                                         Case{ReconstructionMethod::Density, true, false, 1, 20},
                                         Case{ReconstructionMethod::Density, true, true, 1, 100},
                                         Case{ReconstructionMethod::Density, true, false, 1, 100},
                                         Case{ReconstructionMethod::Average, true, false, 4, 25},
                                         Case{ReconstructionMethod::Average, false, true, 1, 1}));

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

}  // namespace
}  // namespace orlix
