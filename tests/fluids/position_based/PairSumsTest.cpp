// Lists and sums of a position-based liquid against brute force in double precision.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

#include "fluids/position_based/PositionBasedStep.h"
#include "globals/Random.h"
#include "tests/support/Workers.h"

namespace orlix {
namespace {

constexpr double kPi = std::numbers::pi;

// A cloud of points in a box, some of them on one another's heels, some far away, some nowhere.
std::vector<Site> Cloud(int n) {
  MersenneTwister random(5);
  const auto u = [&] { return static_cast<float>(random.Uniform()); };
  std::vector<Site> points;
  for (int i = 0; i < n; ++i) points.push_back({4 * u(), 3 * u(), 2 * u(), 0});
  points[3] = points[2];
  points[7] = {1e6f, -3e7f, 4, 0};
  points[8] = {1e6f, -3e7f, 4.5f, 0};
  points[9].y = std::numeric_limits<float>::quiet_NaN();
  return points;
}

double SquaredDistance(const Site& a, const Site& b) {
  const float x = a.x - b.x, y = a.y - b.y, z = a.z - b.z;
  return static_cast<double>(x * x + y * y + z * z);
}

TEST(NeighbourTable, ListsAreThoseOfBruteForceAtAnyNumberOfWorkers) {
  const std::vector<Site> points = Cloud(900);
  const double reach = 0.6;
  const auto lists = test::SameForAnyWorkers([&](int workers) {
    WorkerPool pool(workers);
    NeighbourTable table;
    table.Build(points, reach, pool);
    std::vector<std::vector<std::int32_t>> found(points.size());
    for (std::int32_t block = 0; block < table.blockCount(); ++block) {
      const PairBlock pairs = table.Block(block);
      for (std::int32_t n = 0; n < pairs.count; ++n) {
        const std::int32_t place = pairs.first + n;
        std::vector<std::int32_t>& list =
            found[static_cast<std::size_t>(table.points()[static_cast<std::size_t>(place)])];
        for (std::int32_t e = pairs.starts[n]; e < pairs.starts[n + 1]; ++e) {
          if (pairs.entries[e] < table.count())
            list.push_back(table.points()[static_cast<std::size_t>(pairs.entries[e])]);
        }
        EXPECT_EQ(table.NeighbourCount(place), static_cast<std::int32_t>(list.size()));
      }
    }
    return found;
  });
  std::size_t pairs = 0;
  for (std::size_t i = 0; i < points.size(); ++i) {
    std::vector<std::int32_t> expected, found = lists[i];
    for (std::size_t j = 0; j < points.size(); ++j) {
      const double d2 = SquaredDistance(points[i], points[j]);
      if (i != j && d2 > 0 && static_cast<float>(d2) < static_cast<float>(reach * reach)) {
        expected.push_back(static_cast<std::int32_t>(j));
      }
    }
    std::sort(found.begin(), found.end());
    EXPECT_EQ(found, expected) << i;
    pairs += expected.size();
  }
  EXPECT_GT(pairs, 5000u);
  EXPECT_EQ(lists[7], std::vector<std::int32_t>{8}) << "far from all others";
}

TEST(NeighbourTable, AThousandPointsInOneCellHaveNoMoreThanTheMost) {
  std::vector<Site> points;
  for (int i = 0; i < 1500; ++i) points.push_back({0.0001f * static_cast<float>(i), 0, 0, 0});
  WorkerPool pool(2);
  NeighbourTable table;
  table.Build(points, 1, pool);
  for (std::int32_t place = 0; place < table.count(); ++place) {
    EXPECT_EQ(table.NeighbourCount(place), NeighbourTable::kMostNeighbours);
  }
  table.Build({}, 1, pool);
  EXPECT_EQ(table.blockCount(), 0);
}

// A jittered lattice of particles in metres, with velocities.
struct Liquid {
  explicit Liquid(int n = 9) {
    settings.cellSize = 0.25, settings.radius = 1.1, settings.restDensity = 420, settings.viscosity = 2e-4;
    settings.vorticityStrength = 2, settings.dt = 0.01;
    MersenneTwister random(11);
    const auto u = [&] { return random.Uniform() - 0.5; };
    for (int k = 0; k < n; ++k) {
      for (int j = 0; j < n; ++j) {
        for (int i = 0; i < n; ++i) {
          BaseParticleData data;
          data.position = Vec3D(i + 0.4 * u(), j + 0.4 * u(), k + 0.4 * u()) * 0.125;
          data.velocity = {u() + j, u() - i, u()};
          list.Append(1, data);
        }
      }
    }
  }
  // Copies of what each particle got, by its index.
  void Run(WorkerPool& pool) {
    const ParticleList* lists[] = {&list};
    step.Load(settings, lists, {0.5, 0.5, 0.5}, pool);
    step.Multiply(pool);
    step.Correct(pool);
    step.Measure(pool);
    for (int i = 0; i < list.count(); ++i) step.SetVelocity(step.PlaceOf(i), list.Velocity(i), settings.viscosity);
    step.Smooth(pool);
  }
  ParticleList list;
  PositionBasedSettings settings;
  PositionBasedStep step;
};

// The same sums as the papers write them, in cells.
struct BruteForce {
  explicit BruteForce(const Liquid& l) : liquid(l), h(l.settings.radius) {
    const int n = l.list.count();
    rest = l.settings.restDensity * std::pow(l.settings.cellSize, 3);
    lambda.resize(static_cast<std::size_t>(n)), swirl.resize(static_cast<std::size_t>(n)),
        sums.resize(static_cast<std::size_t>(n));
    for (int i = 0; i < n; ++i) {
      double density = 0, squares = 0;
      Vec3D own, omega;
      ForNear(i, [&](int j, const Vec3D& e, double d2) {
        density += W(d2);
        const Vec3D gradient = G(e) / -rest;
        squares += LengthSquared(gradient), own += gradient;
        omega += Cross(l.list.Velocity(j) - l.list.Velocity(i), G(e));
      });
      const double excess = std::max(density / rest - 1, static_cast<double>(-kMostTension));
      lambda[std::size_t(i)] = -excess / (squares + LengthSquared(own) + l.settings.relaxation);
      swirl[std::size_t(i)] = omega, sums[std::size_t(i)] = density;
    }
  }
  template <class F>
  void ForNear(int i, F&& f) const {
    for (int j = 0; j < liquid.list.count(); ++j) {
      const Vec3D e = (liquid.list.Position(i) - liquid.list.Position(j)) / liquid.settings.cellSize;
      const double d2 = LengthSquared(e);
      if (i != j && d2 < h * h * kReachFactor * kReachFactor) f(j, e, d2);
    }
  }
  double W(double d2) const { return 315 / (64 * kPi * std::pow(h, 9)) * std::pow(h * h - d2, 3); }
  Vec3D G(const Vec3D& e) const {
    const double d = Length(e);
    return e * (45 / (kPi * std::pow(h, 6)) * (h - d) * (h - d) / (d + 0.001));
  }
  Vec3D Correction(int i) const {
    Vec3D sum;
    const double delta = liquid.settings.delta * h, full = W(3 * delta * delta);
    ForNear(i, [&](int j, const Vec3D& e, double d2) {
      const double s = -liquid.settings.tensileStrength * std::pow(W(d2) / full, liquid.settings.tensileExponent);
      sum -= G(e) / rest * (lambda[std::size_t(i)] + lambda[std::size_t(j)] + s);
    });
    return sum * liquid.settings.cellSize;
  }
  Vec3D Smoothing(int i) const {
    Vec3D sum;
    ForNear(i, [&](int j, const Vec3D&, double d2) {
      sum += (liquid.list.Velocity(j) - liquid.list.Velocity(i)) * (W(d2) / rest);
    });
    return sum * (liquid.settings.viscosity * kViscosityScale);
  }
  Vec3D Confinement(int i) const {
    Vec3D n;
    const double perVolume = std::pow(liquid.settings.cellSize, -3);
    ForNear(i, [&](int j, const Vec3D& e, double) {
      n += G(e) * (Length(swirl[std::size_t(j)]) / (0.0001 + perVolume * sums[std::size_t(j)]));
    });
    n = n / (Length(n) + 0.001);
    return Cross(n, swirl[std::size_t(i)]) * (liquid.settings.vorticityStrength * liquid.settings.dt);
  }

  const Liquid& liquid;
  const double h;
  double rest = 1;
  std::vector<double> lambda, sums;
  std::vector<Vec3D> swirl;
};

void ExpectNear(const Vec3D& a, const Vec3D& b, double tolerance, int i) {
  EXPECT_LT(Length(a - b), tolerance) << i << ": " << a.x << " " << a.y << " " << a.z << " against " << b.x << " "
                                      << b.y << " " << b.z;
}

TEST(PositionBasedStep, SumsAreThoseOfBruteForce) {
  Liquid liquid;
  WorkerPool pool(2);
  liquid.Run(pool);
  const BruteForce exact(liquid);
  int far = 0;
  for (int i = 0; i < liquid.list.count(); ++i) {
    const std::int32_t place = liquid.step.PlaceOf(i);
    const auto at = std::size_t(place);
    EXPECT_NEAR(static_cast<double>(liquid.step.densities()[at]), exact.sums[std::size_t(i)] / exact.rest, 1e-5) << i;
    ExpectNear(liquid.step.CorrectionAt(place), exact.Correction(i), 2e-6, i);
    ExpectNear(liquid.step.VelocityChangeAt(place), exact.Smoothing(i), 2e-5, i);
    ExpectNear(liquid.step.ConfinementAt(place), exact.Confinement(i), 2e-4, i);
    far += Length(exact.Correction(i)) > 1e-3;
  }
  EXPECT_GT(far, liquid.list.count() / 2);
}

TEST(PositionBasedStep, HasTheSameBitsAtAnyNumberOfWorkers) {
  test::SameForAnyWorkers([](int workers) {
    Liquid liquid(13);
    WorkerPool pool(workers);
    liquid.Run(pool);
    std::vector<double> all;
    for (int i = 0; i < liquid.list.count(); ++i) {
      const std::int32_t place = liquid.step.PlaceOf(i);
      for (const Vec3D& v :
           {liquid.step.CorrectionAt(place), liquid.step.VelocityChangeAt(place), liquid.step.ConfinementAt(place)}) {
        all.insert(all.end(), {v.x, v.y, v.z});
      }
    }
    const DensityError error = liquid.step.Error(pool);
    all.insert(all.end(), {error.mean, error.largest, error.compressed});
    return all;
  });
}

TEST(PositionBasedStep, LeavesWhatIsAloneOrAtRest) {
  WorkerPool pool(1);
  Liquid alone(1);
  alone.Run(pool);
  EXPECT_EQ(alone.step.CorrectionAt(0), Vec3D());
  EXPECT_EQ(alone.step.VelocityChangeAt(0), Vec3D());
  // Two at the density of each other.
  Liquid pair(0);
  BaseParticleData data;
  for (const double x : {0.0, 0.1}) data.position.x = x, pair.list.Append(1, data);
  const BruteForce exact(pair);
  pair.settings.restDensity = exact.sums[0] / std::pow(pair.settings.cellSize, 3);
  pair.settings.tensileStrength = 0;
  pair.Run(pool);
  EXPECT_LT(Length(pair.step.CorrectionAt(0)), 1e-6) << "neither pull nor push at rest density";
  pair.settings.tensileStrength = 0.1;
  pair.Run(pool);
  EXPECT_LT(pair.step.CorrectionAt(pair.step.PlaceOf(0)).x, -1e-4) << "the term against clusters parts them";
  EXPECT_GT(pair.step.CorrectionAt(pair.step.PlaceOf(1)).x, 1e-4);
}

}  // namespace
}  // namespace orlix
