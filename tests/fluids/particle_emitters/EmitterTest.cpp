// Emission inside volumes.

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>

#include "fluids/dynamics/FluidSolver.h"
#include "fluids/grids/GridMemory.h"
#include "fluids/particle_emitters/LatticeFill.h"
#include "fluids/particle_emitters/ParticleEmissionSettings.h"
#include "fluids/volumes/VolumeMesh.h"
#include "tests/fluids/particle_emitters/EmissionScene.h"
#include "tests/support/TemporaryFolder.h"

namespace orlix {
namespace {

using test::EmissionScene;

constexpr double h = 0.1;

TEST(GridEmitter, FillsEachVoxelWithEight) {
  EmissionScene s("particlegridemitter");
  s.Step(0);
  EXPECT_EQ(s.Count(), 8000);
  for (int i = 0; i < s.Count(); ++i) {
    const OrlixParticle p = s.NodeOf<ParticleGroup>(s.group)->At(PK_Liquid, i);
    ASSERT_EQ(p.GetFlags(), 0x081);
    ASSERT_EQ(p.id(), i);
    ASSERT_EQ(p.GetVectorOr(PP::OldPosition, {}), p.GetPosition());
    ASSERT_LE(std::abs(p.GetPosition().x), 0.5);
  }
}

TEST(GridEmitter, ListedLiquidsLimitItToTheirContainers) {
  EmissionScene s("particlegridemitter");
  BaseObject& liquid = s.Add("liquid", "Liquid");
  liquid.Set(FluidSolver::kContainerId, Vec3D(40, 200, 200));
  liquid.Set(FluidSolver::kAnchorModeId, FluidSolver::AnchorMode::Centre);
  liquid.Set(FluidSolver::kAnchorId, Vec3D(0.5));
  s.emitter.Set(1006, s.ListOf({&liquid}));
  s.Step(0);
  EXPECT_FALSE(s.Warned("they limit nothing"));
  EXPECT_EQ(s.Count(), 3200);
  for (const Vec3D& place : s.Positions()) ASSERT_LE(std::abs(place.x), 0.2);
}

// Beyond a closed wall nothing stays: what was emitted there would be moved into the container, and again, and again.
TEST(GridEmitter, LeavesPlacesBeyondClosedWallsFree) {
  for (const bool open : {false, true}) {
    EmissionScene s("particlegridemitter");
    BaseObject& liquid = s.Add("liquid", "Liquid");
    liquid.Set(FluidSolver::kContainerId, Vec3D(200, 200, 200));
    liquid.Set(FluidSolver::kAnchorModeId, FluidSolver::AnchorMode::Centre);
    liquid.Set(kPositionId, Vec3D(100, 0, 0));
    if (open) liquid.Set(GridBoundary::kFaceXMinId, GridBoundary::Face::Open);
    BaseObject& flow = s.Add("particle_advection", "Flow");
    flow.Set(1000, s.LinkTo(s.group)), flow.Set(1014, std::int64_t(PK_Liquid));
    s.StepThrough(0, 3);
    EXPECT_EQ(s.Count(), open ? 8000 : 4000);
    EXPECT_EQ(s.Warned("50% of its volume lies beyond closed walls of \"Scene/Liquid\""), !open);
    for (const Vec3D& place : s.Positions()) ASSERT_TRUE(open || place.x > -0.025);
  }
}

// A source that goes on emitting holds what its shape holds: what stands still or strolls about isn't made up for, what
// leaves is. Between steps particles go in a straight line (cells), and anywhere within a distance of a cell.
TEST(GridEmitter, MakesUpForWhatLeavesAndForNothingElse) {
  struct Case {
    const char* name;
    double along, about, jitter;
    int subdivision;
    double born, within;
  };
  for (const Case& c :
       {Case{"stands still", 0, 0, 1, 1, 0, 0}, Case{"stands still, 64 a voxel", 0, 0, 1, 2, 0, 0.005},
        Case{"is stirred", 0, 0.5, 1, 1, 0, 0.015}, Case{"is stirred slowly", 0, 0.05, 0.5, 1, 0, 0.005},
        Case{"streams", 0.3, 0, 0.5, 1, 0.6, 0.03}, Case{"streams fast", 1.5, 0, 1, 1, 3, 0.3}}) {
    EmissionScene s("particlegridemitter");
    s.settings.Set(ParticleEmissionSettings::kJitterId, c.jitter);
    s.emitter.Set(1016, std::int64_t(c.subdivision)), s.emitter.Set(1017, std::int64_t(c.subdivision));
    s.Step(0);
    const int full = s.Count();
    MersenneTwister random(1);
    const auto walk = [&] { return (2 * random.Uniform() - 1) * c.about * h; };
    for (int step = 1; step <= 20; ++step) {
      for (int i = 0; i < s.Count(); ++i) {
        const OrlixParticle p = s.NodeOf<ParticleGroup>(s.group)->At(PK_Liquid, i);
        const double streamed = p.GetPosition().x + c.along * h;
        Vec3D place = p.GetPosition() + Vec3D(walk(), walk(), walk());
        for (int axis = 0; axis < 3; ++axis) {
          if (std::abs(place[axis]) > 0.5)
            place[axis] = std::copysign(1, place[axis]) - place[axis];  // walls of the box
        }
        if (c.along > 0) place.x = streamed;
        p.SetPosition(place);
      }
      s.Step(step);
    }
    EXPECT_NEAR(double(s.Count() - full) / full, c.born, c.within) << c.name;
  }
}

TEST(ParticleForecast, HoldsWhatEmittersFillAndSaysSoBefore) {
  for (const char* type : {"particlegridemitter", "particlemeshemitter"}) {
    EmissionScene s(type, 20);
    s.document.maxTime = BaseTime::OfFrame(3, 24);
    s.settings.Set(ParticleEmissionSettings::kCountId, std::int64_t(400000));
    ASSERT_TRUE(s.document.SetTime(s.document.minTime).ok());
    s.hook.BuildScenes(s.document, false);
    const double foretold = s.scene().ForecastMemory().bytes;
    s.StepThrough(0, 3);
    const auto held = static_cast<double>(s.List().Bytes());
    EXPECT_GT(held, 1e6);
    EXPECT_LE(held, foretold) << type;
    EXPECT_GT(held, 0.3 * foretold) << type;  // the mesh emitter refuses places too close
    EXPECT_NEAR(s.scene().ForecastMemory().bytes, foretold, 0.02 * foretold) << "what is there counts once";
    SetGridMemoryBudget(static_cast<std::int64_t>(0.9 * foretold));
    EmissionScene refused(type, 20);
    refused.document.maxTime = s.document.maxTime;
    refused.settings.Set(ParticleEmissionSettings::kCountId, std::int64_t(400000));
    ASSERT_TRUE(refused.document.SetTime(refused.document.minTime).ok());
    refused.hook.BuildScenes(refused.document, false);
    SetGridMemoryBudget(0);
    ASSERT_TRUE(refused.hook.Failure()) << type;
    EXPECT_EQ(refused.hook.Failure()->kind, ErrorKind::Memory);
    EXPECT_NE(refused.hook.Failure()->text.find("particles take about"), std::string::npos);
  }
}

TEST(GridEmitter, WithoutJitterTheLatticeIsRegularAndFullAtOnce) {
  EmissionScene s("particlegridemitter", 4);
  s.settings.Set(1006, 0.0);
  s.StepThrough(0, 2);
  ASSERT_EQ(s.Count(), 512);
  for (const Vec3D& p : s.Positions()) {
    for (int axis = 0; axis < 3; ++axis) {
      const double steps = (p[axis] - 0.025) / 0.05;
      ASSERT_NEAR(steps, std::round(steps), 1e-6);
    }
  }
}

TEST(GridEmitter, SubdivisionsTellDeepVoxelsFromOthers) {
  EmissionScene s("particlegridemitter", 6);
  s.settings.Set(1006, 0.0);
  s.emitter.Set(1015, -1.0);
  s.emitter.Set(1016, std::int64_t(2));  // deep: 64 a voxel
  s.emitter.Set(1017, std::int64_t(0));  // others: 1
  s.Step(0);
  int deep = 0, shallow = 0;
  for (const Vec3D& p : s.Positions()) {
    const double d = std::max({std::abs(p.x), std::abs(p.y), std::abs(p.z)}) - 0.3;
    ++(d < -h + 1e-9 ? deep : shallow);
  }
  // A deep voxel looks for as many as the other lattice has, which is 1.
  EXPECT_EQ(deep, 4 * 4 * 4);
  EXPECT_EQ(shallow, 6 * 6 * 6 - 4 * 4 * 4);
  s.emitter.Set(1017, std::int64_t(2));
  s.settings.Set(1006, 1.0);
  s.Step(1);
  EXPECT_GT(s.Count(), 30 * 6 * 6 * 6);
}

TEST(GridEmitter, DifferentSubdivisionsFillOnceAndAreTold) {
  for (const auto& [deep, shallow] : {std::pair(2, 1), std::pair(1, 2), std::pair(1, 1)}) {
    EmissionScene s("particlegridemitter");
    s.emitter.Set(1016, std::int64_t(deep));
    s.emitter.Set(1017, std::int64_t(shallow));
    s.StepThrough(0, 3);
    EXPECT_LT(s.Count(), 1.01 * 8000) << deep << shallow;
    EXPECT_EQ(s.Warned("set both to the same"), deep != shallow);
  }
}

TEST(GridEmitter, BandsLimitDepth) {
  EmissionScene s("particlegridemitter");
  s.settings.Set(1006, 0.0);
  const auto depths = [&](double inner, double outer) {
    s.emitter.Set(1013, inner), s.emitter.Set(1014, outer);
    s.NodeOf<ParticleGroup>(s.group)->Clear(false);
    s.Step(s.scene().clock.frame + 1);
    std::pair<double, double> range{1, -1};
    for (const Vec3D& p : s.Positions()) {
      const double d = std::max({std::abs(p.x), std::abs(p.y), std::abs(p.z)}) - 0.5;
      range = {std::min(range.first, d), std::max(range.second, d)};
    }
    return range;
  };
  s.Step(0);
  EXPECT_LT(depths(1, 0).first, -0.45);
  const auto shell = depths(0.4, 0);
  EXPECT_GT(shell.first, -0.2 - 1e-9);
  EXPECT_LT(shell.first, -0.1);
  const auto outside = depths(1, 0.3);
  EXPECT_GT(outside.second, 0.05);
  EXPECT_LE(outside.second, 0.15 + 1e-9);
}

TEST(GridEmitter, ConstraintsRefuseForEachParticleOrForEachVoxel) {
  EmissionScene s("particlegridemitter");
  BaseObject &ball = s.Add("constraint_voxeldistance", "Ball"), &centre = s.Add("null", "Centre");
  ball.Set(1000, s.LinkTo(centre));
  ball.Set(1001, 33.0);  // host units
  s.emitter.Set(kConstraintsId, s.ListOf({&ball}));
  s.Step(0);
  EXPECT_NEAR(s.Count(), 8000 * 4.0 / 3 * 3.14159265 * 0.33 * 0.33 * 0.33, 20);
  for (const Vec3D& p : s.Positions()) ASSERT_LT(Length(p), 0.33);
  s.emitter.Set(1007, false);
  s.NodeOf<ParticleGroup>(s.group)->Clear(false);
  s.Step(1);
  EXPECT_EQ(s.Count() % 8, 0) << "whole voxels";
}

TEST(GridEmitter, GivesPropertiesColoursAndVorticity) {
  EmissionScene s("particlegridemitter", 2);
  BaseObject &own = s.Add("property_scalar", "Own"), &twin = s.Add("property_scalar", "Twin");
  BaseObject &velocity = s.Add("property_vector", "Velocity"), &shader = s.Add("noise_shader", "Noise");
  BaseObject& turn = s.Add("alignment", "Turn");
  own.Set(1000, 4.0), twin.Set(1000, 5.0);
  velocity.Set(2001, std::int64_t(PP::Velocity)), velocity.Set(1000, Vec3D(1, 2, 3));
  turn.Set(1000, std::int64_t(8));  // random
  const GradientKnot red[] = {{0, {0.5, 0.25, 0.125}}};
  shader.Set(1105, GradientValue(std::make_shared<Gradient>(red)));
  s.SetProperties({&own, &velocity, &twin});
  s.emitter.Set(1001, std::int64_t(PK_Vorticity));
  s.emitter.Set(1018, s.LinkTo(shader));
  s.settings.Set(1005, s.LinkTo(turn));
  s.Step(0);
  ASSERT_EQ(s.Count(PK_Vorticity), 64);
  Vec3D sum;
  for (int i = 0; i < 64; ++i) {
    const OrlixParticle p = s.NodeOf<ParticleGroup>(s.group)->At(PK_Vorticity, i);
    EXPECT_EQ(p.GetFlags(), 0x101);
    EXPECT_EQ(p.GetVelocity(), Vec3D(1, 2, 3));
    EXPECT_EQ(p.GetRealOr({75, OwnerOf(*s.NodeOf<iBase>(own))}, 0), 4);
    EXPECT_EQ(p.GetRealOr({75, OwnerOf(*s.NodeOf<iBase>(twin))}, 0), 5);
    EXPECT_EQ(p.GetVectorOr(PP::Color, {}), Vec3D(0.5, 0.25, 0.125));
    EXPECT_NEAR(Length(p.GetVectorOr(PP::Vorticity, {})), 1, 1e-12);
    sum += p.GetVectorOr(PP::Vorticity, {});
  }
  EXPECT_LT(Length(sum), 30) << "directions differ";
  s.settings.Set(1005, LinkValue());
  s.NodeOf<ParticleGroup>(s.group)->Clear(false);
  s.Step(1);
  EXPECT_EQ(s.NodeOf<ParticleGroup>(s.group)->At(PK_Vorticity, 9).GetVectorOr(PP::Vorticity, {}), Vec3D(0, 1, 0));
}

TEST(GridEmitter, TellsOfAnAgeThatEndsWithTheFirstFrame) {
  for (const double frames : {1.0, 2.0}) {
    EmissionScene s("particlegridemitter", 2);
    BaseObject& age = s.Add("property_age", "Age");
    age.Set(1000, frames);
    s.SetProperties({&age});
    s.Step(0);
    EXPECT_EQ(s.Warned("die at the end of the one that they are made in"), frames == 1) << frames;
  }
}

TEST(GridEmitter, RestsWhenItsDurationOrRateSaysSo) {
  EmissionScene s("particlegridemitter", 4);
  BaseObject &once = s.Add("duration", "Once"), &rate = s.Add("rate", "Rate");
  once.Set(1008, true), once.Set(1005, std::int64_t(1));
  s.settings.Set(1002, s.LinkTo(once));
  s.settings.Set(1001, s.LinkTo(rate));
  rate.Set(5001, 0.0);
  s.Step(0);
  EXPECT_EQ(s.Count(), 0);
  rate.Set(5001, 2.0);
  s.Step(1);
  const int filled = s.Count();
  EXPECT_EQ(filled, 64 * 8) << "frame 1 still runs at time 0";
  s.Step(2);
  EXPECT_EQ(s.Count(), filled);
  EXPECT_TRUE(s.warnings.empty());
}

TEST(GridEmitter, TellsThatAnObstacleStandsAboutIt) {
  for (const double edge : {20.0, 60.0}) {
    EmissionScene s("particlegridemitter");
    BaseObject &stone = s.Add("box", "Stone"), &about = s.Add("volume", "About");
    stone.Set(stone.type().parameters[0].id, Vec3D(edge));
    about.Set(1003, s.LinkTo(stone));
    s.document.AddTag(*s.types.FindName("c4d_obstacle"), about);
    s.StepThrough(0, 1);
    EXPECT_EQ(s.Warned("stands in the obstacle"), edge > 40);
  }
}

TEST(GridEmitter, TellsAtTheEndThatNothingCame) {
  for (const double rate : {0.0, 1.0}) {
    EmissionScene s("particlegridemitter", 2);
    BaseObject& node = s.Add("rate", "Rate");
    node.Set(5001, rate);
    s.settings.Set(1001, s.LinkTo(node));
    s.StepThrough(0, 1);
    EXPECT_TRUE(s.warnings.empty());
    s.hook.Conclude();
    EXPECT_EQ(s.Warned("no particle was emitted"), rate == 0);
  }
}

// Emission over meshes.

using test::EmissionScene;

class MeshEmitter : public testing::Test {
 protected:
  MeshEmitter() {
    s.document.fps = 100;
    s.emitter.Set(1022, 0.0);
  }
  BaseObject& Grey(double value) {
    BaseObject& shader = s.Add("noise_shader", "Grey");
    const GradientKnot knots[] = {{0, Vec3D(value)}};
    shader.Set(1105, GradientValue(std::make_shared<Gradient>(knots)));
    return shader;
  }
  EmissionScene s{"particlemeshemitter"};
};

TEST_F(MeshEmitter, MakesSoManyASecond) {
  s.Step(0);
  EXPECT_EQ(s.Count(), 10) << "1000/s in 0.01 s";
  s.settings.Set(1004, std::int64_t(99));
  s.Step(1);
  EXPECT_EQ(s.Count(), 10) << "0.99 is none";
  s.settings.Set(1000, true);
  s.emitter.Set(kIterationsId, std::int64_t(2));
  s.Step(2);
  EXPECT_EQ(s.Count(), 10 + 3 * 99);
  BaseObject& rate = s.Add("rate", "Rate");
  rate.Set(5000, std::int64_t(2)), rate.Set(5003, std::int64_t(7));
  s.settings.Set(1001, s.LinkTo(rate));
  s.Step(3);
  EXPECT_EQ(s.Count(), 10 + 3 * 99 + 3 * 7);
  EXPECT_TRUE(s.warnings.empty());
}

TEST_F(MeshEmitter, LiesEvenlyOnTheSurface) {
  s.settings.Set(1004, std::int64_t(1200000));
  s.Step(0);
  ASSERT_EQ(s.Count(), 12000);
  Vec3D mean, square;
  for (const Vec3D& p : s.Positions()) {
    ASSERT_NEAR(std::max({std::abs(p.x), std::abs(p.y), std::abs(p.z)}), 0.5, 1e-9);
    mean += p * (1.0 / 12000), square += p * p * (1.0 / 12000);
  }
  EXPECT_LT(Length(mean), 0.01);
  // Of a cube's surface: a third of the faces at 1/4, the others uniform, 1/12.
  for (int axis = 0; axis < 3; ++axis) EXPECT_NEAR(square[axis], (0.25 + 2.0 / 12) / 3, 0.003);
}

TEST_F(MeshEmitter, MasksByShaderAndCurvature) {
  s.emitter.Set(1016, s.LinkTo(Grey(0.5)));
  s.emitter.Set(1017, 0.6);
  s.Step(0);
  EXPECT_EQ(s.Count(), 0);
  s.emitter.Set(1017, 0.4);
  s.emitter.Set(1021, 0.2);  // 20 in the mesh's unit
  s.Step(1);
  EXPECT_EQ(s.Count(), 10);
  EXPECT_TRUE(s.Warned("curvature_limit has no effect"));
  auto& curvature = s.NodeOf<VolumeMesh>(s.volume)->Mesh().pointAttributes.Column<double>(PP::Curvature);
  std::fill(curvature.begin(), curvature.end(), 19.0);
  s.Step(2);
  EXPECT_EQ(s.Count(), 10);
  s.emitter.Set(1020, true);
  s.Step(3);
  EXPECT_EQ(s.Count(), 20);
}

TEST_F(MeshEmitter, GivesNormalsTexturesAndColours) {
  BaseObject& velocity = s.Add("property_vector", "Velocity");
  velocity.Set(2001, std::int64_t(PP::Velocity));
  s.emitter.Set(1013, true), s.emitter.Set(1014, true);
  s.emitter.Set(1015, s.LinkTo(Grey(0.25)));
  s.Step(0);
  EXPECT_TRUE(s.Warned("write_normal and write_uv have no effect"));
  EXPECT_FALSE(s.NodeOf<ParticleGroup>(s.group)->At(PK_Liquid, 0).Has(PP::Normal));
  s.SetProperties({&velocity});
  s.Step(1);
  for (int i = 10; i < 20; ++i) {
    const OrlixParticle p = s.NodeOf<ParticleGroup>(s.group)->At(PK_Liquid, i);
    const Vec3D n = p.GetVectorOr(PP::Normal, {});
    EXPECT_NEAR(Dot(n, p.GetPosition()), 0.5, 1e-9) << "outward, of unit length";
    EXPECT_EQ(p.GetVectorOr(PP::Color, {}), Vec3D(0.25));
  }
}

TEST_F(MeshEmitter, ReadsTextureCoordinatesOfAMeshThatDeforms) {
  const test::TemporaryFolder folder;
  // A square whose texture coordinates are its x and z in metres, and which rises by a metre a frame.
  for (const int frame : {0, 1}) {
    std::ofstream(folder / fmt::format("square.{}.obj", frame)) << fmt::format(
        "v 0 {0} 0\nv 100 {0} 0\nv 100 {0} 100\nv 0 {0} 100\nvt 0 0\nvt 1 0\nvt 1 1\nvt 0 1\nf 1/1 2/2 3/3 4/4\n",
        100 * frame);
  }
  s.document.folder = folder.path().string();
  BaseObject &mesh = s.Add("mesh", "Square"), &velocity = s.Add("property_vector", "Velocity");
  mesh.Set(5101, std::string("square.#.obj"));
  velocity.Set(2001, std::int64_t(PP::Velocity));
  s.volume.Set(1003, s.LinkTo(mesh));
  s.SetProperties({&velocity});
  s.emitter.Set(1014, true);
  s.StepThrough(0, 1);
  ASSERT_EQ(s.Count(), 20);
  for (int i = 0; i < 20; ++i) {
    const OrlixParticle p = s.NodeOf<ParticleGroup>(s.group)->At(PK_Liquid, i);
    EXPECT_NEAR(p.GetPosition().y, i < 10 ? 0 : 1, 1e-12);
    EXPECT_NEAR(Length(p.GetVectorOr(PP::UV, {}) - Vec3D(p.GetPosition().x, p.GetPosition().z, 0)), 0, 1e-12);
  }
}

TEST_F(MeshEmitter, KeepsItsDistanceFromWhatIsThere) {
  s.settings.Set(1004, std::int64_t(50000));
  s.emitter.Set(1022, 3.0);
  s.Step(0);
  const std::vector<Vec3D> before = s.Positions();
  ASSERT_EQ(before.size(), 500u);
  s.Step(1);
  for (int i = 500; i < s.Count(); ++i) {
    for (const Vec3D& p : before) ASSERT_GE(Length(s.List().Position(i) - p), 0.3 - 1e-12);
  }
  EXPECT_LT(s.Count(), 510);
}

}  // namespace
}  // namespace orlix
