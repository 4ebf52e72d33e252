// The position-based liquid as a node.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

#include "fluids/constraints/NoiseConstraint.h"
#include "fluids/particle_operators/InstantOperator_Spawn.h"
#include "fluids/particle_operators/ParticleAdvection.h"
#include "fluids/position_based/PositionBasedFluidDynamics.h"
#include "fluids/position_based/PositionBasedStep.h"
#include "fluids/volumes/VolumeBase.h"
#include "globals/Random.h"
#include "host/geometry/GeometryTypes.h"
#include "tests/support/TestScene.h"
#include "tests/support/Workers.h"

namespace orlix {
namespace {

using Fluid = PositionBasedFluidDynamics;

// Particles of a spacing of 5 cm, half a cell, in a scene of metres.
struct LiquidScene : test::TestScene {
  static constexpr double kCell = 0.1, kSpacing = 0.05, kRest = 65.1;  // 6.51 a cell, as the lattice's kernel sums it

  explicit LiquidScene(int workers = 1, int substeps = 3) : TestScene(workers) {
    root->Set(RootSettings::kScaleUnitsId, 1.0);
    root->Set(RootSettings::kScaleMetresId, 1.0);
    root->Set(RootSettings::kVoxelSizeId, kCell);
    root->Set(RootSettings::kSubstepModeId, SubstepMode::FixedCount);
    root->Set(RootSettings::kMaxSubstepsId, std::int64_t(substeps));
    group = &AddLiquid("Water");
    fluid = &AddFluid("Liquid", *group, kRest);
  }
  BaseObject& AddLiquid(const std::string& name) {
    BaseObject& added = Add("particlegroup", name);
    BaseObject& flow = Add("particle_advection", name + " flow");
    flow.Set(ParticleAdvection::kGroupId, LinkTo(added));
    flow.Set(ParticleAdvection::kMotionSourceId, MotionSource::Ballistic);
    flow.Set(ParticleAdvection::kBallisticIntegratorId, BallisticIntegrator::VelocityVerlet);
    flow.Set(ParticleAdvection::kCollisionsId, CollisionMode::ObstaclesFirst);
    flow.Set(ParticleAdvection::kKillInsideId, std::int64_t(0));
    flow.Set(ParticleAdvection::kExtraIterationsId, std::int64_t(0));
    return added;
  }
  BaseObject& AddFluid(const std::string& name, const BaseObject& liquid, double rest) {
    BaseObject& added = Add("fluid_pb", name);
    auto list = std::make_shared<InExcludeData>();
    list->entries.push_back({liquid.creationNumber(), 2});
    added.Set(Fluid::kGroupsId, InExcludeValue(std::move(list)));
    added.Set(Fluid::kRadiusCellsId, 1.0);
    added.Set(Fluid::kRestDensityId, rest);
    return added;
  }
  // A box that particles can't leave: its outside is solid.
  void AddTank(const Vec3D& size) {
    BaseObject& box = Add("box", "Tank");
    box.Set(kBoxSizeId, size);
    box.Set(kPositionId, size * 0.5);
    BaseObject& walls = Add("volume", "Walls");
    walls.Set(VolumeBase::kObjectId, LinkTo(box));
    walls.Set(VolumeBase::kFlipSignId, std::int64_t(1));
    document.AddTag(*types.FindName("c4d_obstacle"), walls);
  }
  ParticleList& List(const BaseObject& of) { return *NodeOf<ParticleGroup>(of)->list(PK_Liquid); }
  ParticleList& List() { return List(*group); }
  // A lattice of particles about whole spacings, from low on.
  void Fill(ParticleList& list, const VecInt3D& n, const Vec3D& low = {}, double spacing = kSpacing) {
    for (int k = 0; k < n.z; ++k) {
      for (int j = 0; j < n.y; ++j) {
        for (int i = 0; i < n.x; ++i) {
          BaseParticleData data;
          data.flags |= ParticleFlag::Liquid;
          data.position = low + Vec3D(i + 0.5, j + 0.5, k + 0.5) * spacing;
          list.Append(1, data);
        }
      }
    }
  }
  const DensityReport& Density() const { return reports.back().densities.at(0); }
  void NoGravity() { root->Set(RootSettings::kGravityId, Vec3D()); }

  BaseObject *group, *fluid;
};

// The share of the rest density of the particles that stand well inside a tank of this size.
double InnerDensity(LiquidScene& scene, const BaseObject& fluid, const BaseObject& group, const Vec3D& size,
                    double top) {
  const PositionBasedStep& step = scene.NodeOf<Fluid>(fluid)->step();
  const ParticleList& list = scene.List(group);
  double sum = 0;
  int count = 0;
  for (int i = 0; i < list.count(); ++i) {
    const Vec3D& p = list.Position(i);
    if (std::min({p.x, size.x - p.x, p.y, top - p.y, p.z, size.z - p.z}) < 0.12) continue;
    sum += static_cast<double>(step.densities()[std::size_t(step.PlaceOf(i))]);
    ++count;
  }
  EXPECT_GT(count, 30);
  return sum / count;
}

TEST(PositionBasedFluid, AColumnSettlesAtItsRestDensity) {
  LiquidScene scene(2, 4);
  const Vec3D tank(0.5, 1.2, 0.5);
  scene.AddTank(tank);
  scene.fluid->Set(Fluid::kSolverIterationsId, std::int64_t(8));
  scene.StepThrough(0, 1);
  scene.Fill(scene.List(), {10, 12, 10}, {0, 0.02, 0});
  scene.StepThrough(2, 45);
  ASSERT_EQ(scene.List().count(), 1200);
  EXPECT_NEAR(InnerDensity(scene, *scene.fluid, *scene.group, tank, 0.55), 1, 0.02);
  double fastest = 0;
  for (int i = 0; i < scene.List().count(); ++i) fastest = std::max(fastest, Length(scene.List().Velocity(i)));
  EXPECT_LT(fastest, 0.5) << "it has come to rest";
  EXPECT_EQ(scene.Density().particles, 1200);
  EXPECT_LT(scene.Density().mean, 0.15);
  EXPECT_TRUE(scene.warnings.empty()) << scene.warnings.front().second;
}

TEST(PositionBasedFluid, TwoNodesKeepTwoRestDensities) {
  LiquidScene scene(2, 4);
  const Vec3D tank(1, 1.5, 0.5);
  scene.AddTank(tank);
  scene.NoGravity();
  BaseObject& thin = scene.AddLiquid("Oil");
  BaseObject& other = scene.AddFluid("Thin", thin, 0.75 * LiquidScene::kRest);
  scene.StepThrough(0, 1);
  scene.Fill(scene.List(), {8, 8, 8}, {0.05, 0.05, 0.05});
  scene.Fill(scene.List(thin), {8, 8, 8}, {0.55, 0.5, 0.05});
  scene.StepThrough(2, 40);
  const auto mean = [&](const BaseObject& fluid) {
    const auto densities = scene.NodeOf<Fluid>(fluid)->step().densities();
    std::vector<float> all(densities.begin(), densities.begin() + 512);
    std::nth_element(all.begin(), all.begin() + 400, all.end());
    return static_cast<double>(all[400]);
  };
  EXPECT_NEAR(mean(*scene.fluid), 1, 0.04);
  EXPECT_NEAR(mean(other), 1, 0.04) << "of three quarters of the density";
}

TEST(PositionBasedFluid, ALoneParticleMovesAsItFlew) {
  LiquidScene scene;
  scene.StepThrough(0, 1);
  BaseParticleData data;
  data.position = {0.3, 5, 0.2}, data.velocity = {1, 2, 0};
  scene.List().Append(1, data);
  scene.StepThrough(2, 2);
  const double dt = scene.scene().info.frameDuration;
  EXPECT_NEAR(scene.List().Velocity(0).x, 1, 1e-9);
  EXPECT_NEAR(scene.List().Velocity(0).y, 2 - 9.81 * dt, 1e-6);
  EXPECT_NEAR(scene.List().Position(0).x, 0.3 + dt, 1e-9);
}

TEST(PositionBasedFluid, TheDropKeepsItsMomentumInFreeSpace) {
  LiquidScene scene;
  scene.NoGravity();
  scene.StepThrough(0, 1);
  scene.Fill(scene.List(), {6, 6, 6}, {}, 0.8 * LiquidScene::kSpacing);
  for (int i = 0; i < 216; ++i) scene.List().ChunkOf(i).velocities[i] = {0.3, 0, 0};
  scene.StepThrough(2, 12);
  Vec3D momentum, centre;
  double spread = 0;
  for (int i = 0; i < 216; ++i) momentum += scene.List().Velocity(i) / 216.0;
  for (int i = 0; i < 216; ++i) spread = std::max(spread, Length(scene.List().Velocity(i) - momentum));
  EXPECT_LT(Length(momentum - Vec3D(0.3, 0, 0)), 1e-4);
  EXPECT_GT(spread, 0.01) << "it expanded to its rest density";
}

TEST(PositionBasedFluid, ConstraintsShutParticlesOut) {
  const auto moved = [](bool closed) {
    LiquidScene scene;
    scene.NoGravity();
    if (closed) {
      BaseObject& noise = scene.Add("constraint_noise", "Never");
      noise.Set(Constraint::kIntensityId, 0.0);
      scene.fluid->Set(kConstraintsId, scene.ListOf({&noise}));
    }
    scene.StepThrough(0, 1);
    scene.Fill(scene.List(), {4, 4, 4}, {}, 0.7 * LiquidScene::kSpacing);
    scene.StepThrough(2, 2);
    return Length(scene.List().Velocity(0));
  };
  EXPECT_GT(moved(false), 0.1);
  EXPECT_EQ(moved(true), 0);
}

TEST(PositionBasedFluid, ViscosityOfAParticleGoesBeforeThatOfTheNode) {
  const auto left = [](double node, double own) {
    LiquidScene scene;
    scene.NoGravity();
    scene.fluid->Set(Fluid::kViscosityId, node);
    scene.StepThrough(0, 1);
    scene.Fill(scene.List(), {6, 6, 6});
    for (int i = 0; i < 216; ++i) {
      scene.List().ChunkOf(i).velocities[i] = {scene.List().Position(i).y > 0.15 ? 0.2 : -0.2, 0, 0};
      if (own >= 0) OrlixParticle(&scene.List(), i).SetOrAddReal(PP::Viscosity, own);
    }
    scene.StepThrough(2, 4);
    double sum = 0;
    for (int i = 0; i < 216; ++i) sum += std::abs(scene.List().Velocity(i).x) / 216;
    return sum;
  };
  const double free = left(0, -1), thick = left(0.0005, -1);
  EXPECT_LT(thick, 0.85 * free);
  EXPECT_NEAR(left(0, 0.0005), thick, 1e-12);
}

TEST(PositionBasedFluid, TellsContactsAndWhatDoesNotFit) {
  LiquidScene scene;
  scene.AddTank({0.5, 0.5, 0.5});
  BaseObject& spawn = scene.Add("iop_spawn", "Splash");
  BaseObject& drops = scene.Add("particlegroup", "Drops");
  spawn.Set(InstantOperator_Spawn::kTargetId, scene.LinkTo(drops));
  scene.fluid->Set(Fluid::kInstantOperatorsId, scene.ListOf({&spawn}));
  scene.StepThrough(0, 1);
  scene.Fill(scene.List(), {6, 6, 6}, {0, -0.1, 0}, 0.5 * LiquidScene::kSpacing);
  scene.StepThrough(2, 3);
  EXPECT_GT(scene.NodeOf<ParticleGroup>(drops)->CountAll(), 10);
  bool told = false;
  for (const auto& [node, text] : scene.warnings) told |= text.find("set \"rest_density\" to") != std::string::npos;
  EXPECT_TRUE(told) << "eight times too dense";
}

// A bar is swept through a tank: nothing ends in it or beyond the walls, and the liquid stays calm where it isn't.
TEST(PositionBasedFluidSlow, StaysStableUnderAStirringBody) {
  LiquidScene scene(2, 4);
  const Vec3D tank(0.8, 1, 0.5);
  scene.AddTank(tank);
  BaseObject& bar = scene.Add("box", "Bar");
  bar.Set(kBoxSizeId, Vec3D(0.15, 0.6, 0.3));
  BaseObject& body = scene.Add("volume", "Bar volume");
  body.Set(VolumeBase::kObjectId, scene.LinkTo(bar));
  scene.document.AddTag(*scene.types.FindName("c4d_obstacle"), body);
  scene.StepThrough(0, 1);
  bar.Set(kPositionId, Vec3D(0.4, 0.9, 0.25));
  scene.Fill(scene.List(), {16, 6, 10}, {0, 0.02, 0});
  double fastest = 0;
  for (int frame = 2; frame < 1000; ++frame) {
    const double t = frame / 24.0;
    bar.Set(kPositionId, Vec3D(0.4 + 0.2 * std::sin(3 * t), 0.32, 0.25 + 0.05 * std::cos(3 * t)));
    scene.Step(frame);
    ASSERT_FALSE(scene.scene().failure()) << scene.scene().failure()->text;
    if (frame < 100) continue;
    for (int i = 0; i < scene.List().count(); ++i) fastest = std::max(fastest, Length(scene.List().Velocity(i)));
  }
  EXPECT_EQ(scene.List().count(), 960);
  EXPECT_LT(fastest, 6);
  int outside = 0;
  for (int i = 0; i < scene.List().count(); ++i) {
    const Vec3D& p = scene.List().Position(i);
    outside += std::min({p.x, tank.x - p.x, p.y, p.z, tank.z - p.z}) < -0.01;
  }
  EXPECT_EQ(outside, 0);
  EXPECT_LT(scene.Density().mean, 0.25);
}

// Lists and sums of a position-based liquid against brute force in double precision.

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

// Points on their way from two that are far off: the cells between them stand in for each other, wherever they begin.
TEST(NeighbourTable, ListsAreThoseOfBruteForceAtAnyNumberOfWorkers) {
  const double reach = 0.6;
  for (int shift = 0; shift < 12; ++shift) {
    std::vector<Site> points = Cloud(400);
    for (Site& p : points) {
      if (p.y > -1e6f) p.y += 1.9f * float(shift), p.z += 1.3f * float(shift);
    }
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
      EXPECT_EQ(found, expected) << i << ", shift " << shift;
      pairs += expected.size();
    }
    EXPECT_GT(pairs, 800u);
    EXPECT_EQ(lists[7], std::vector<std::int32_t>{8}) << "far from all others";
  }
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
