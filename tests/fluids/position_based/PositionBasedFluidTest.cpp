// The position-based liquid as a node.

#include <gtest/gtest.h>

#include <cmath>

#include "fluids/constraints/NoiseConstraint.h"
#include "fluids/particle_operators/InstantOperator_Spawn.h"
#include "fluids/particle_operators/ParticleAdvection.h"
#include "fluids/position_based/PositionBasedFluidDynamics.h"
#include "fluids/volumes/VolumeBase.h"
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

}  // namespace
}  // namespace orlix
