// Surface tension and correction: the operators that ask for neighbours, on lists and trees of their own.

#include <gtest/gtest.h>

#include <numeric>
#include <random>

#include "fluids/particle_operators/PSurface_Properties.h"
#include "fluids/particle_operators/ParticleCorrection.h"
#include "fluids/particle_operators/ParticleSheet.h"
#include "fluids/particle_operators/SurfaceTension.h"
#include "fluids/particles/OrlixParticle.h"
#include "globals/Random.h"
#include "tests/support/TestScene.h"
#include "tests/support/Workers.h"

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

// Thin sheets whose gaps are filled.

constexpr double kCell = 0.1;
constexpr int kSide = 20;

// A flat sheet of particles a cell apart, which stretches along x.
class SheetScene : public test::TestScene {
 public:
  explicit SheetScene(double stretch, int workers = 1) : TestScene(workers) {
    root->Set(RootSettings::kVoxelSizeId, kCell);
    node.Set(ParticleSheet::kGroupId, LinkTo(group));
    Step(0);
    for (int n = 0; n < kSide * kSide; ++n) {
      BaseParticleData data;
      data.position = Vec3D(n % kSide, n / kSide, 0) * kCell;
      data.velocity = Vec3D(data.position.x * stretch, 0, 0);
      data.SetReal(PP::Density, 0.15);
      data.SetReal(PP::Age, n % 2 ? 10 : 20);
      List().Append(1, data);
    }
  }
  ParticleList& List() { return *NodeOf<ParticleGroup>(group)->list(PK_Liquid); }
  OrlixParticle At(int n) { return {&List(), n}; }
  double Mass() {
    double sum = 0;
    for (int n = 0; n < List().count(); ++n) sum += At(n).GetRealOr(PP::Mass, -1000);
    return sum;
  }
  BaseObject &group = Add("particlegroup", "Drops"), &node = Add("psheet", "node");
};

TEST(ParticleSheet, FillsGapsWhereASheetStretches) {
  const double gap = 0.8 * kCell / 2;
  test::SameForAnyWorkers([&](int workers) {
    SheetScene s(1, workers);
    s.Step(1);
    const int before = kSide * kSide, after = s.List().count();
    EXPECT_GT(after, before + 200);
    EXPECT_LT(after, 4 * before);
    EXPECT_NEAR(s.Mass(), before, 1e-3);
    std::vector<double> places;
    for (int n = before; n < after; ++n) {
      const Vec3D& x = s.At(n).GetPosition();
      EXPECT_TRUE(s.At(n).HasFlag(ParticleFlag::Inserted));
      EXPECT_EQ(x.z, 0);
      EXPECT_NEAR(s.At(n).GetVelocity().x, x.x, 1e-12);
      EXPECT_GT(s.At(n).GetRealOr(PP::Mass, 0), 0);
      EXPECT_GE(s.At(n).GetRealOr(PP::Age, 0), 10);
      EXPECT_LT(s.At(n).GetRealOr(PP::Anisotropy, 1), 0.01);
      for (int m = 0; m < n; ++m) EXPECT_GE(Length(s.At(m).GetPosition() - x), gap - 1e-9);
      places.push_back(x.x), places.push_back(x.y);
    }
    return places;
  });
}

TEST(ParticleSheet, LeavesAloneWhatMovesTogetherOrIsRound) {
  SheetScene closing(-1);
  closing.Step(1);
  EXPECT_EQ(closing.List().count(), kSide * kSide);
  closing.node.Set(ParticleSheet::kSeparatingOnlyId, std::int64_t(0));
  closing.Step(2);
  EXPECT_GT(closing.List().count(), kSide * kSide);
  SheetScene deep(1);
  for (int n = 0; n < deep.List().count(); ++n) deep.At(n).SetReal(PP::Density, 0.9);
  deep.Step(1);
  EXPECT_EQ(deep.List().count(), kSide * kSide);
}

// New particles that crowd, or that stand on others, go by and by; the first ones stay.
TEST(ParticleSheet, NewParticlesGoWhenTheyCrowd) {
  SheetScene s(1);
  s.Step(1);
  const int filled = s.List().count();
  MersenneTwister random(1);
  for (int n = 0; n < filled; ++n) {
    s.At(n).SetVelocity({});
    s.At(n).SetPosition(Vec3D(random.Uniform(), random.Uniform(), random.Uniform()) * (5 * kCell));
    s.At(n).SetReal(PP::Density, 0.5);
  }
  s.StepThrough(2, 12);
  EXPECT_LT(s.List().count(), filled);
  EXPECT_GE(s.List().count(), kSide * kSide);
  int first = 0;
  for (int n = 0; n < s.List().count(); ++n) first += !s.At(n).HasFlag(ParticleFlag::Inserted);
  EXPECT_EQ(first, kSide * kSide);
  EXPECT_LT(s.List().count() - first, (filled - first) / 20);
}

// Normals, curvature and stretch of particles near a surface.

using Node = PSurface_Properties;

// A ball of particles of 0.3 m, eight a cell, with densities that fall off outwards.
class BallScene : public test::TestScene {
 public:
  explicit BallScene(int workers = 1) : TestScene(workers) {
    root->Set(RootSettings::kVoxelSizeId, 0.1);
    node.Set(Node::kGroupId, LinkTo(group));
    node.Set(Node::kCommonRadiusId, 1.5);
    Step(0);
    MersenneTwister random(5);
    for (int n = 0; n < 14 * 14 * 14; ++n) {
      const Vec3D cell(n % 14 - 7, n / 14 % 14 - 7, n / 196 - 7);
      const Vec3D x = (cell + Vec3D(random.Uniform(), random.Uniform(), random.Uniform()) * 0.5) * 0.05;
      if (Length(x) < 0.3) Add(x, Length(x) > 0.2 ? 0.5 : 0.9);
    }
  }
  using TestScene::Add;
  void Add(const Vec3D& x, double density) {
    BaseParticleData data;
    data.position = x;
    data.SetReal(PP::Density, density);
    List().Append(1, data);
  }
  ParticleList& List() { return *NodeOf<ParticleGroup>(group)->list(PK_Liquid); }
  OrlixParticle At(int n) { return {&List(), n}; }

  BaseObject &group = TestScene::Add("particlegroup", "Drops"), &node = TestScene::Add("psurfaceproperty", "node");
};

TEST(SurfaceProperties, NormalsPointOutwardsAndInnerParticlesHaveNone) {
  for (const auto kernel : {Node::NormalKernel::Smooth, Node::NormalKernel::Spiky, Node::NormalKernel::Steep}) {
    BallScene s;
    s.node.Set(Node::kNormalKernelId, static_cast<std::int64_t>(kernel));
    s.Step(1);
    int outer = 0;
    for (int n = 0; n < s.List().count(); ++n) {
      const Vec3D x = s.At(n).GetPosition(), normal = s.At(n).GetVectorOr(PP::Normal, Vec3D(9));
      if (s.At(n).GetRealOr(PP::Density, 0) > 0.7) {
        EXPECT_EQ(normal, Vec3D());
        EXPECT_EQ(s.At(n).GetRealOr(PP::Curvature, -1), 0);
        continue;
      }
      EXPECT_NEAR(Length(normal), 1, 1e-12);
      EXPECT_GT(s.At(n).GetRealOr(PP::Curvature, -1), 0);
      outer += Length(x) > 0.26 && Dot(normal, Normalized(x)) > 0.9;
    }
    EXPECT_GT(outer, 200);
  }
}

TEST(SurfaceProperties, TheRawNormalIsTheSumOverAllPairs) {
  BallScene s;
  s.node.Set(Node::kWriteNormalId, std::int64_t(0));
  s.Step(1);
  const double h = 1.5 * s.scene().space.cellSize;
  int checked = 0;
  for (int n = 0; n < s.List().count(); n += 29) {
    if (s.At(n).GetRealOr(PP::Density, 0) > 0.7) continue;
    Vec3D sum;
    for (int m = 0; m < s.List().count(); ++m) {
      const Vec3D d = s.At(n).GetPosition() - s.At(m).GetPosition();
      const double q = Length(d) / h;
      if (m != n && q < 1) sum += d * (945 / (32 * 3.14159265358979 * h * h * h) * (1 - q * q));
    }
    // It isn't scaled to 1 unless it is asked for; its length is the curvature.
    const Vec3D normal = s.At(n).GetVectorOr(PP::Normal, {});
    EXPECT_LT(Length(normal - sum), 1e-5 * Length(sum));
    EXPECT_NEAR(s.At(n).GetRealOr(PP::Curvature, 0), Length(normal) / 1000, 1e-12);
    ++checked;
  }
  EXPECT_GT(checked, 20);
}

// A flat sheet bends less than a small ball, and its balls are flat.
TEST(SurfaceProperties, ASheetIsFlat) {
  const auto values = test::SameForAnyWorkers([](int workers) {
    BallScene s(workers);
    s.node.Set(Node::kCurvatureModeId, static_cast<std::int64_t>(Node::CurvatureMode::SpreadMean));
    s.node.Set(Node::kWriteAnisotropyId, std::int64_t(1));
    const int first = s.List().count();
    MersenneTwister random(2);
    for (int n = 0; n < 625; ++n) {
      s.Add(Vec3D(5 + n % 25 * 0.05 + random.Uniform() * 0.01, n / 25 * 0.05, random.Uniform() * 0.01), 0.3);
    }
    s.Step(1);
    const OrlixParticle middle = s.At(first + 312);
    const Vec3D up = middle.GetVectorOr(PP::StretchRow2, {}), along = middle.GetVectorOr(PP::StretchRow0, {});
    std::vector<double> all{middle.GetRealOr(PP::Anisotropy, -1), up.z, along.x, middle.GetRealOr(PP::Curvature, -1),
                            0};
    int outer = 0;
    for (int n = 0; n < first; ++n) {
      const double curvature = s.At(n).GetRealOr(PP::Curvature, -1);
      if (s.At(n).GetRealOr(PP::Density, 0) < 0.7) all[4] += curvature, ++outer;
      all.push_back(curvature), all.push_back(s.At(n).GetRealOr(PP::Anisotropy, -1));
    }
    all[4] /= outer;
    return all;
  });
  EXPECT_LT(values[0], 0.01);                       // scale
  EXPECT_NEAR(values[1], 4 / std::cbrt(4.0), 0.1);  // short across: a quarter of the longest
  EXPECT_NEAR(values[2], 1 / std::cbrt(4.0), 0.1);
  EXPECT_GT(values[4], 0.05);
}

TEST(SurfaceProperties, WhoIsLeftOutHasNoNormalAndMissingDensityIsTold) {
  BallScene s;
  for (int n = 0; n < s.List().count(); ++n) s.At(n).Remove(PP::Density);
  s.Step(1);
  ASSERT_FALSE(s.warnings.empty());
  EXPECT_NE(s.warnings.back().second.find("no particle carries a density"), std::string::npos);
  EXPECT_EQ(s.At(0).GetVectorOr(PP::Normal, Vec3D(1)), Vec3D());
}

}  // namespace
}  // namespace orlix
