// Surface tension and correction: the operators that ask for neighbours, on lists and trees of their own.

#include <gtest/gtest.h>

#include <numeric>
#include <random>

#include "fluids/particle_operators/ParticleCorrection.h"
#include "fluids/particle_operators/SurfaceTension.h"
#include "fluids/particles/OrlixParticle.h"

namespace orlix {
namespace {

// A ball of particles in a disturbed lattice.
struct Cloud {
  explicit Cloud(int workers, double radius = 0.5, double spacing = 0.125) : pool(workers) {
    std::mt19937 random(3);
    std::uniform_real_distribution<double> jitter(-0.03, 0.03);
    BaseParticleData data;
    for (double z = -1; z <= 1; z += spacing) {
      for (double y = -1; y <= 1; y += spacing) {
        for (double x = -1; x <= 1; x += spacing) {
          if (x * x + y * y + z * z > radius * radius) continue;
          data.position = Vec3D(x, y, z) + Vec3D(jitter(random), jitter(random), jitter(random));
          data.velocity = {jitter(random), jitter(random), 0};
          list.Append(1, data);
        }
      }
    }
    tree.Build(list, pool);
    weights.assign(static_cast<std::size_t>(list.count()), 1.0);
  }
  Vec3D Momentum() const {
    Vec3D sum;
    for (int i = 0; i < list.count(); ++i) sum += list.Velocity(i);
    return sum;
  }
  void Cohere(const TensionSettings& settings) {
    FindTensionNormals(pool, settings, list, tree);
    AddCohesion(pool, settings, list, tree, weights);
  }
  std::vector<Vec3D> Velocities() const {
    std::vector<Vec3D> all;
    for (int i = 0; i < list.count(); ++i) all.push_back(list.Velocity(i));
    return all;
  }

  WorkerPool pool;
  ParticleList list;
  ParticleKdTree tree;
  std::vector<double> weights;
};

TEST(SurfaceTension, CohesionKeepsTheMomentumWhereAllSeeEachOther) {
  TensionSettings settings;
  settings.strength = 2, settings.radius = 0.25, settings.dt = 0.01;
  Cloud cloud(2);
  const Vec3D momentum = cloud.Momentum();
  const std::vector<Vec3D> before = cloud.Velocities();
  for (std::size_t i = 0; i < cloud.weights.size(); i += 2) cloud.weights[i] = 0;
  cloud.Cohere(settings);
  EXPECT_GT(Length(cloud.Momentum() - momentum), 0.01) << "what only one side wants remains";
  Cloud other(2);
  other.Cohere(settings);
  ASSERT_GT(other.list.count(), 200);
  EXPECT_LT(Length(other.Momentum() - momentum), 1e-12 * other.list.count());
  for (int i = 0; i < other.list.count(); ++i) {
    ASSERT_LT(Length(other.list.Velocity(i) - before[static_cast<std::size_t>(i)]), 1e-12) << "equal pairs cancel";
  }
}

TEST(SurfaceTension, CohesionIsThatOfAPlainLoopAtAnyNumberOfWorkers) {
  TensionSettings settings;
  settings.strength = 2, settings.radius = 0.6, settings.dt = 0.01;
  // The plain loop on one particle after the other, each with its neighbours.
  Cloud plain(1);
  FindTensionNormals(plain.pool, settings, plain.list, plain.tree);
  std::vector<Vec3D> expected = plain.Velocities();
  const double h = settings.radius, k = 32 / (std::numbers::pi * std::pow(h, 9));
  const auto normal = [&](int i) { return OrlixParticle(&plain.list, i).GetVectorOr(PP::SurfaceNormal, {}) * h; };
  int full = 0;
  for (int i = 0; i < plain.list.count(); ++i) {
    const auto found = plain.tree.Search(plain.list.Position(i), h * h, 0);
    full += found.size() == 72;
    for (const Neighbour& j : found) {
      if (j.index == i) continue;
      const double d = j.distance, left = std::pow(h - d, 3) * d * d * d;
      const double c = 2 * d > h ? k * left : k * (2 * left - std::pow(h, 6) / 64);
      const Vec3D x = plain.list.Position(i) - plain.list.Position(j.index);
      const Vec3D dv =
          (x * (0.0025 * c / d) + (normal(i) - normal(j.index)) * 0.0025) * -settings.strength * settings.dt;
      expected[static_cast<std::size_t>(i)] += dv;
      expected[static_cast<std::size_t>(j.index)] += dv;
    }
  }
  EXPECT_GT(full, 200) << "more than a query gives";
  std::vector<Vec3D> first;
  for (const int workers : {1, 2, 3}) {
    Cloud cloud(workers);
    cloud.Cohere(settings);
    const std::vector<Vec3D> velocities = cloud.Velocities();
    if (first.empty()) first = velocities;
    EXPECT_EQ(velocities, first);
    for (std::size_t i = 0; i < expected.size(); ++i) ASSERT_LT(Length(velocities[i] - expected[i]), 1e-9);
  }
}

// Near and far in the kernel, which has two pieces.
class Pair : public testing::TestWithParam<double> {};
INSTANTIATE_TEST_SUITE_P(SurfaceTension, Pair, testing::Values(0.3, 0.15));

TEST_P(Pair, FollowsItsFormula) {
  WorkerPool pool(1);
  ParticleList list;
  BaseParticleData data;
  const double h = 0.5, d = GetParam(), strength = 3, dt = 0.25, mass = 0.5, density = 2;
  data.reals = {{PP::Mass, mass}, {PP::Density, density}};
  list.Append(1, data);
  data.position = {d, 0, 0};
  list.Append(1, data);
  data.position = {0, 0, 0.49};
  data.flags |= ParticleFlag::Inserted;
  list.Append(1, data);
  ParticleKdTree tree;
  tree.Build(list, pool);
  TensionSettings settings;
  settings.strength = strength, settings.radius = h, settings.dt = dt;
  const std::vector<double> weights{1, 0.25, 1};
  FindTensionNormals(pool, settings, list, tree);
  AddCohesion(pool, settings, list, tree, weights);
  const double pi = std::numbers::pi, q = d / h;
  const double normal = mass / density * (945 / (32 * pi * h * h * h)) * q * (1 - q * q) * (1 - q * q) * d;
  const Vec3D first = OrlixParticle(&list, 0).GetVectorOr(PP::SurfaceNormal, {});
  EXPECT_NEAR(first.x, normal, 1e-6 * normal);
  // The inserted one gives normals but no force: only x counts between the two.
  const double left = std::pow(h - d, 3) * d * d * d;
  const double c = 32 / (pi * std::pow(h, 9)) * (2 * d > h ? left : 2 * left - std::pow(h, 6) / 64);
  const double cohesion = mass * mass * c, curvature = mass * h * 2 * normal;
  const double force = 2 / (2 * density) * strength * (cohesion - curvature);
  const double across = list.Velocity(0).x;
  EXPECT_NEAR(across, dt * force * (1 - 0.25), 1e-5 * std::abs(across))
      << "each side wants the opposite, by its weight";
  EXPECT_EQ(list.Velocity(1), list.Velocity(0));
  EXPECT_EQ(list.Velocity(2), Vec3D());
}

TEST(SurfaceTension, TheMeanActsOnSurfaceDensitiesOnly) {
  Cloud cloud(2);
  for (int i = 0; i < cloud.list.count(); ++i) {
    const double r = Length(cloud.list.Position(i));
    OrlixParticle(&cloud.list, i).SetOrAddReal(PP::Density, r > 0.35 ? 0.5 : 1.0);
    OrlixParticle(&cloud.list, i).SetVelocity({});
  }
  TensionSettings settings;
  settings.strength = 7.3, settings.radius = 0.3, settings.dt = 0.01;
  settings.minimumDensity = 0.05, settings.maximumDensity = 0.7, settings.halfCell = 0.01;
  AddMeanTension(cloud.pool, settings, cloud.list, cloud.tree, cloud.weights);
  int inner = 0, drawnIn = 0, outer = 0;
  for (int i = 0; i < cloud.list.count(); ++i) {
    const Vec3D v = cloud.list.Velocity(i), x = cloud.list.Position(i);
    if (Length(x) <= 0.35) {
      ++inner;
      EXPECT_EQ(v, Vec3D());
    } else {
      ++outer, drawnIn += Dot(v, x) < 0;
      Vec3D pull;
      double total = 0;
      for (const Neighbour& j : cloud.tree.Search(x, settings.radius * settings.radius, 0)) {
        if (j.distance < settings.halfCell) continue;
        pull += (x - cloud.list.Position(j.index)) * std::pow(2 - j.distance, 3);
        total += std::pow(2 - j.distance, 3);
      }
      ASSERT_LT(Length(v + pull * (settings.strength * settings.dt / total)), 1e-9);
    }
  }
  EXPECT_GT(inner, 50);
  EXPECT_EQ(drawnIn, outer);
}

struct Correction {
  explicit Correction(Cloud& cloudToCorrect) : cloud(cloudToCorrect), size(cloud.weights.size()), q(size), v(size) {
    settings.radius = 0.15, settings.strength = 10, settings.dt = 0.02;
  }
  void Run() {
    const Corrected corrected{q, v, cloud.weights};
    CorrectPositions(cloud.pool, settings, cloud.list, cloud.tree, corrected);
    CorrectVelocities(cloud.pool, settings, cloud.list, cloud.tree, corrected);
    ParallelRows(cloud.pool, cloud.list, [&](const ParticleRows& rows, int) { TakeCorrected(corrected, rows); });
  }
  double NearestPair() {
    cloud.tree.Build(cloud.list, cloud.pool);
    double nearest = 1e9;
    for (int i = 0; i < cloud.list.count(); ++i) {
      nearest = std::min(nearest, cloud.tree.Search(cloud.list.Position(i), 1, 0)[1].distance);
    }
    return nearest;
  }
  Cloud& cloud;
  std::size_t size;
  std::vector<Vec3D> q, v;
  CorrectionSettings settings;
};

TEST(Corrector, SpreadsNeighboursAndKeepsTheirMean) {
  std::vector<Vec3D> first;
  for (const int workers : {1, 3}) {
    Cloud cloud(workers);
    Correction correction(cloud);
    const double before = correction.NearestPair();
    Vec3D middle, after;
    for (int i = 0; i < cloud.list.count(); ++i) middle += cloud.list.Position(i);
    correction.Run();
    for (int i = 0; i < cloud.list.count(); ++i) after += cloud.list.Position(i);
    EXPECT_GT(correction.NearestPair(), 1.05 * before);
    EXPECT_LT(Length(after - middle), 1e-12 * cloud.list.count()) << "pairs push each other equally";
    std::vector<Vec3D> positions;
    for (int i = 0; i < cloud.list.count(); ++i) positions.push_back(cloud.list.Position(i));
    if (first.empty()) first = positions;
    EXPECT_EQ(positions, first);
  }
}

TEST(Corrector, CoincidentParticlesDontPushAndNearOnesGetOnePushOnAllAxes) {
  WorkerPool pool(1);
  ParticleList list;
  BaseParticleData data;
  data.velocity = {1, 2, 3};
  list.Append(2, data);
  data.position = {2, 0, 0};
  list.Append(1, data);
  data.position = {2.01, 0, 0}, data.velocity = {};
  list.Append(1, data);
  data.position = {9, 0, 0}, data.velocity = {5, 0, 0};
  list.Append(1, data);
  ParticleKdTree tree;
  tree.Build(list, pool);
  std::vector<double> weights(5, 1.0);
  std::vector<Vec3D> q(5), v(5);
  CorrectionSettings settings;
  settings.radius = 0.2, settings.strength = 5, settings.dt = 0.5;
  const Corrected corrected{q, v, weights};
  CorrectPositions(pool, settings, list, tree, corrected);
  EXPECT_EQ(q[0], Vec3D());
  const Vec3D push = q[2] - Vec3D(2, 0, 0);
  EXPECT_NEAR(push.y, push.x, 1e-15);
  EXPECT_EQ(push.y, push.z);
  const double steps = push.y / (0.2 * 0.01 * 0.01);
  EXPECT_NEAR(steps, std::round(steps), 1e-6);
  EXPECT_LE(steps, 100);
  CorrectVelocities(pool, settings, list, tree, corrected);
  EXPECT_NEAR(Length(v[0] - Vec3D(1, 2, 3)), 0, 1e-12);
  EXPECT_NEAR(Length(v[4] - Vec3D(5, 0, 0)), 0, 1e-12) << "its own is the mean";
  // Moved out of reach of all: the velocity stays, or the mean of nobody.
  q[4] = {12, 0, 0};
  CorrectVelocities(pool, settings, list, tree, corrected);
  EXPECT_EQ(v[4], Vec3D(5, 0, 0));
  settings.fallbackMean = true;
  CorrectVelocities(pool, settings, list, tree, corrected);
  EXPECT_EQ(v[4], Vec3D());
}

}  // namespace
}  // namespace orlix
