// The scenes that show liquids: each runs, and does what it is there to show.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "fluids/liquids/WaterSolver.h"
#include "fluids/surfacing/ImplicitMesher.h"
#include "tests/fluids/surfacing/MeshCheck.h"
#include "tests/support/SceneFileRun.h"

namespace orlix {
namespace {

using test::SceneFileRun;

struct LiquidScene {
  const char *file, *root, *group;
  double cell;  // m, of the fast test
};
constexpr LiquidScene kScenes[] = {
    {"dam_break", "Dam", "Water", 0.1},      {"dam_break_on_mesh", "Dam", "Water", 0.1},
    {"fountain", "Fountain", "Water", 0.06}, {"pouring", "Pour", "Water", 0.05},
    {"honey", "Kitchen", "Thread", 0.006},   {"ball_into_pool", "Splash", "Water", 0.1},
    {"shaken_tank", "Lab", "Water", 0.1},
};

SceneFileRun RunOf(const char* file, const char* root, double cell) {
  return SceneFileRun("scenes/" + std::string(file) + ".json",
                      {std::string(root) + ".voxel_size=" + std::to_string(cell)});
}

const ParticleList& LiquidOf(SceneFileRun& run, const char* group) {
  return *run.Get<ParticleGroup>(group).list(PK_Liquid);
}

// The share of the particles for which f(position) holds.
template <class F>
double Share(SceneFileRun& run, const char* group, F&& f) {
  const ParticleList& list = LiquidOf(run, group);
  int count = 0;
  for (int n = 0; n < list.count(); ++n) count += f(list.Position(n));
  return list.empty() ? 0 : double(count) / list.count();
}

TEST(LiquidScenes, RunWithoutAWarning) {
  for (const LiquidScene& scene : kScenes) {
    SceneFileRun run = RunOf(scene.file, scene.root, scene.cell);
    run.StepThrough(0, 4);
    EXPECT_TRUE(run.warnings.empty()) << scene.file << ": " << run.warnings.front();
    EXPECT_GT(LiquidOf(run, scene.group).count(), 50) << scene.file;
    ASSERT_FALSE(run.reports.back().liquids.empty()) << scene.file;
    EXPECT_GT(run.reports.back().liquids[0].surfaceVolume, 0) << scene.file;
  }
}

// Five seconds of a splash: crown, drops and films, each frame's surface is closed, also where it meets the tank.
TEST(LiquidScenesSlow, TheSurfaceOfASplashIsWatertight) {
  SceneFileRun run("scenes/ball_into_pool.json",
                   {"Splash.voxel_size=0.08", "Level.render_only=false", "Surface.render_only=false"});
  int meshed = 0;
  for (int frame = 0; frame <= 120; ++frame) {
    run.StepThrough(frame, frame);
    const TriMeshSTL& mesh = run.Get<ImplicitMesher>("Surface").Mesh();
    if (mesh.TriangleCount() == 0) continue;
    ++meshed;
    const test::MeshCheck check = test::Check(mesh);
    ASSERT_EQ(check.openEdges + check.equalPoints + check.unusedPoints, 0) << "frame " << frame;
  }
  EXPECT_GE(meshed, 120);
}

// The glass's walls taper from 30 to 38 units at the outside.
TEST(LiquidScenesSlow, TheGlassHoldsWhatIsPoured) {
  SceneFileRun run = RunOf("pouring", "Pour", 0.04 / 1.5);  // walls of one and a half cells
  int leaked = 0;
  for (int frame = 0; frame <= 48; ++frame) {
    run.StepThrough(frame, frame);
    const ParticleList& list = LiquidOf(run, "Water");
    for (int n = 0; n < list.count(); ++n) {
      const Vec3D p = list.Position(n);
      leaked += p.y < 0.9 && std::hypot(p.x, p.z) > 0.30 + 0.08 * p.y / 1.1;
    }
  }
  EXPECT_EQ(leaked, 0);
  EXPECT_GT(Share(run, "Water", [](const Vec3D& p) { return p.y < 0.5; }), 0.3);
}

TEST(LiquidScenesSlow, TheFountainRisesAndRunsOff) {
  SceneFileRun run = RunOf("fountain", "Fountain", 0.05);
  run.StepThrough(0, 60);
  // v^2 / 2 g of 5 m/s is 1.27 m; a jet of three cells loses part of it to the water that falls back.
  EXPECT_GT(Share(run, "Water", [](const Vec3D& p) { return p.y > 0.5; }), 0.01);
  EXPECT_EQ(Share(run, "Water", [](const Vec3D& p) { return p.y > 1.8; }), 0);
  std::int64_t left = 0;
  for (const SubstepReport& report : run.reports) {
    for (const LiquidReport& liquid : report.liquids) left += liquid.left;
  }
  EXPECT_GT(left, 0) << "the open sides take what runs off";
}

TEST(LiquidScenesSlow, TheBallThrowsACrownUp) {
  SceneFileRun run = RunOf("ball_into_pool", "Splash", 0.0625);
  run.StepThrough(0, 4);
  EXPECT_EQ(Share(run, "Water", [](const Vec3D& p) { return p.y > 0.8; }), 0);
  double highest = 0;
  for (int frame = 5; frame <= 24; ++frame) {
    run.StepThrough(frame, frame);
    highest = std::max(highest, Share(run, "Water", [](const Vec3D& p) { return p.y > 0.9; }));
  }
  EXPECT_GT(highest, 0.0004);
}

TEST(LiquidScenesSlow, TheShakenTankClimbsItsWalls) {
  SceneFileRun run = RunOf("shaken_tank", "Lab", 0.05);
  double left = 0, right = 0;
  for (int frame = 0; frame <= 96; ++frame) {
    run.StepThrough(frame, frame);
    left = std::max(left, Share(run, "Water", [](const Vec3D& p) { return p.x < 0.2 && p.y > 0.7; }));
    right = std::max(right, Share(run, "Water", [](const Vec3D& p) { return p.x > 1.4 && p.y > 0.7; }));
  }
  EXPECT_GT(left, 0.01);
  EXPECT_GT(right, 0.01);
}

TEST(LiquidScenesSlow, TheWaveMeetsTheMesh) {
  SceneFileRun run = RunOf("dam_break_on_mesh", "Dam", 0.05);
  run.StepThrough(0, 24);
  EXPECT_GT(Share(run, "Water", [](const Vec3D& p) { return p.x > 2.4; }), 0.05) << "beyond the obstacle";
  EXPECT_GT(Share(run, "Water", [](const Vec3D& p) { return p.x > 2.4 && p.y > 0.5; }), 0.005) << "up the far wall";
}

// Honey heaps up on the plate, from which water runs off.
TEST(LiquidScenesSlow, HoneyStandsWhereWaterWouldRun) {
  const auto heaped = [](const char* viscosity) {
    SceneFileRun run("scenes/honey.json", {"Kitchen.voxel_size=0.005", std::string("Honey.viscosity=") + viscosity});
    run.StepThrough(0, 30);
    const ParticleList& list = LiquidOf(run, "Thread");
    int count = 0;
    for (int n = 0; n < list.count(); ++n) {
      const Vec3D p = list.Position(n);
      count += p.y > 0.018 && p.y < 0.06 && std::hypot(p.x, p.z) < 0.05;
    }
    return count;
  };
  const int honey = heaped("0.6"), water = heaped("0");
  EXPECT_GT(honey, 2 * water);
  EXPECT_GT(honey, 500);
}

}  // namespace
}  // namespace orlix
