// The scenes that show liquids: each runs, and does what it is there to show.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "fluids/liquids/WaterSolver.h"
#include "fluids/surfacing/ImplicitMesher.h"
#include "tests/fluids/surfacing/MeshCheck.h"
#include "tests/support/SceneFileRun.h"
#include "tests/support/TemporaryFolder.h"

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

// --- liquid cache ---------------------------------------------------------------------------------------------------

// A liquid whose velocity a cache plays back.

// The dam break at a coarse resolution, with one sub-step a frame and a cache of the tank's velocity.
std::string Dam(const std::string& mode, bool follow) {
  return test::SceneTextWith(
      "scenes/dam_break.json",
      {{R"("fps": 24)", R"("fps": 96)"},
       {R"("voxel_size": 0.04)", R"("voxel_size": 0.1, "substep_mode": "fixed_count")"},
       {R"("max_substeps": 7)", R"("max_substeps": 0)"},
       {R"("name": "Tank",)", R"("name": "Tank", "follow_cache": )" + std::string(follow ? "true," : "false,")},
       {R"({ "type": "particlegroup")",
        R"({ "type": "cache", "name": "Film", "mode": ")" + mode +
            R"(", "nodes": ["Tank"], "folder_source": "own", "folder": "film" }, { "type": "particlegroup")"}});
}

struct Motion {
  double front = 0, speed = 0;  // m; m/s, the mean
};
Motion MotionAt(const test::TemporaryFolder& folder, const std::string& mode, bool follow, int frame) {
  test::WriteText(folder / "dam.json", Dam(mode, follow));
  test::SceneFileRun run((folder / "dam.json").string());
  run.StepThrough(0, frame);
  const ParticleList& list = *run.Get<ParticleGroup>("Water").list(PK_Liquid);
  Motion motion;
  for (int n = 0; n < list.count(); ++n) {
    motion.front = std::max(motion.front, list.Position(n).x);
    motion.speed += Length(list.Velocity(n)) / list.count();
  }
  EXPECT_GT(list.count(), 1000);
  return motion;
}

TEST(LiquidCache, PlayedVelocitiesMoveTheParticlesAsTheyDid) {
  const test::TemporaryFolder folder;
  const Motion recorded = MotionAt(folder, "record", false, 30);
  const Motion played = MotionAt(folder, "playback", true, 30), still = MotionAt(folder, "playback", false, 30);
  EXPECT_GT(recorded.front, 1.05);
  EXPECT_NEAR(played.front, recorded.front, 0.05);
  EXPECT_NEAR(played.speed, recorded.speed, 0.1 * recorded.speed);
  EXPECT_NEAR(still.front, recorded.front, 0.05) << "advection follows what is played in any case";
  EXPECT_EQ(still.speed, 0) << "but particles learn their velocity only when they follow";
}

// --- liquid messages ------------------------------------------------------------------------------------------------

// What a liquid tells where a user would wonder: the dam break with something missing or misplaced.

struct Case {
  std::vector<std::pair<std::string, std::string>> changes;
  std::string told;  // part of the only warning; none where it is empty
};

TEST(LiquidMessages, NameTheNodeAndTheRemedyOnce) {
  const std::string group = R"({ "type": "particlegroup", "name": "Water" },)";
  const Case cases[] = {
      {{}, ""},
      {{{R"({ "type": "force_gravity", "name": "Fall", "strength": 0 },)", ""}}, "add a force_gravity"},
      {{{R"("group": "Water", "kind": "liquid", "motion_source")",
         R"("group": "Other", "kind": "liquid", "motion_source")"},
        {group, group + R"({ "type": "particlegroup", "name": "Other" },)"}},
       "add a particle_advection"},
      {{{R"("position": [50, 50, 50])", R"("position": [5000, 50, 50])"}}, "stand outside the container"},
      {{{R"("deep_limit": 1000)", R"("deep_limit": 1000, "deep_subdivision": 0, "shallow_subdivision": 0)"}},
       "raise deep_subdivision"},
      {{{R"("deep_limit": 1000)", R"("deep_limit": 1000, "properties": ["Small"])"},
        {group, group + R"({ "type": "property_radius", "name": "Small", "value": 0.1 },)"}},
       "raise property_radius"},
      {{{R"("active_in": "First frame")", R"("active_in": "Never")"},
        {group,
         group +
             R"({ "type": "duration", "name": "Never", "use_frames": true, "start_frame": 5000, "length_frames": 1 },)"}},
       "no particle in the whole run"},
  };
  for (const Case& c : cases) {
    const test::TemporaryFolder folder;
    test::WriteText(folder / "dam.json", test::SceneTextWith("scenes/dam_break.json", c.changes));
    test::SceneFileRun run((folder / "dam.json").string(), {"Dam.voxel_size=0.08"});
    run.StepThrough(0, 5);
    run.hook.Conclude();
    int told = 0;
    for (const std::string& warning : run.warnings) {
      if (warning.find("Tank") == std::string::npos) continue;
      ++told;
      EXPECT_NE(warning.find(c.told), std::string::npos) << warning;
    }
    EXPECT_EQ(told, c.told.empty() ? 0 : 1) << c.told;
  }
}

}  // namespace
}  // namespace orlix
