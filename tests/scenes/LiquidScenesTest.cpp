// The scenes that show liquids: each runs, and does what it is there to show.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "fluids/liquids/WaterSolver.h"
#include "fluids/particles/ParticleGroup.h"
#include "fluids/surfacing/ImplicitMesher.h"
#include "tests/fluids/surfacing/MeshCheck.h"
#include "tests/support/SceneFileRun.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/Workers.h"

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

TEST(LiquidCache, PlayedParticlesAreLeftAloneByAllThatMovesAndPushes) {
  const test::TemporaryFolder folder;
  const std::string group = R"({ "type": "particlegroup", "name": "Water" },)";
  const auto run = [&](const std::string& mode) {
    const std::string nodes = R"(
        { "type": "cache_particle", "mode": ")" +
                              mode + R"(", "groups": [{ "object": "Water", "kind": "liquid" }],
          "folder_source": "own", "folder": "film" },
        { "type": "pforce_correct", "group": "Water", "strength": 50 },
        { "type": "pforce_tension", "group": "Water", "kind": "liquid", "strength": 5, "radius": 1 },
        { "type": "pvaluetoproperty", "group": "Water" },
        { "type": "psheet", "group": "Water", "thin_limit": 0.9, "interior_density": 0.95, "minimum_density": 0 },
        { "type": "pforce_acceleration", "name": "Wind" },
        { "type": "particle_forces", "groups": [{ "object": "Water", "kind": "liquid" }], "forces": ["Wind"] },)";
    test::WriteText(folder / "dam.json", test::SceneTextWith("scenes/dam_break.json", {{group, group + nodes}}));
    auto scene = std::make_unique<test::SceneFileRun>(
        (folder / "dam.json").string(), std::vector<std::string>{"Dam.voxel_size=0.16", "Dam.max_substeps=0"});
    scene->StepThrough(0, 2);
    return scene;
  };
  const auto recorded = run("record"), played = run("playback");
  const ParticleList &a = LiquidOf(*recorded, "Water"), &b = LiquidOf(*played, "Water");
  ASSERT_EQ(a.count(), b.count());
  ASSERT_GT(a.count(), 300);
  for (int n = 0; n < a.count(); ++n) {
    ASSERT_EQ(a.Position(n), b.Position(n)) << n;
    ASSERT_EQ(a.Velocity(n), b.Velocity(n)) << n;
  }
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
      {{{R"("position": [50, 36, 50])", R"("position": [5000, 36, 50])"},
        {R"("keep_volume": 5)", R"("keep_volume": 5, "face_x_max": "open")"}},
       "stand outside the container"},
      {{{R"("position": [50, 36, 50])", R"("position": [0, 36, 50])"}}, "of its volume lies beyond closed walls"},
      {{{R"("keep_volume": 5)", R"("keep_volume": 5, "position@": { "keys": [[1, [0, 0, 0]], [5, [60, 0, 0]]] })"}},
       "its walls moved past"},
      // Foam's group is no liquid's, where a liquid takes all of the scene.
      {{{group, group + R"({ "type": "particlegroup", "name": "Foam" },
                           { "type": "particle_advection", "group": "Foam", "kind": "diffuse", "solvers": ["Tank"] },)"}},
       ""},
      {{{R"("deep_limit": 1000)", R"("deep_limit": 1000, "deep_subdivision": 0, "shallow_subdivision": 0)"}},
       "raise deep_subdivision"},
      {{{R"("deep_limit": 1000)", R"("deep_limit": 1000, "properties": ["Small"])"},
        {group, group + R"({ "type": "property_radius", "name": "Small", "value": 0.1 },)"}},
       "raise property_radius"},
      {{{R"("keep_volume": 5)", R"("level_set_minimum": 50)"}}, "lower \"level_set_minimum\""},
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

TEST(LiquidMessages, AnEmptyDensityChannelIsNamed) {
  const std::string group = R"({ "type": "particlegroup", "name": "Water" },)";
  const test::TemporaryFolder folder;
  test::WriteText(folder / "dam.json",
                  test::SceneTextWith("scenes/dam_break.json",
                                      {{R"("keep_volume": 5)", R"("keep_volume": 5, "density_channel": "Empty")"},
                                       {group, group + R"({ "type": "channel_scalar", "name": "Empty" },)"}}));
  test::SceneFileRun run((folder / "dam.json").string(), {"Dam.voxel_size=0.12"});
  EXPECT_ANY_THROW(run.StepThrough(0, 2));
  ASSERT_FALSE(run.warnings.empty());
  EXPECT_NE(run.warnings.front().find("density_channel isn't above 0"), std::string::npos) << run.warnings.front();
}

// A node that does nothing, beside the dam break: each case is what stands after the group, and part of what is told.
TEST(LiquidMessages, NameWhatDoesNothing) {
  const std::string water = R"("groups": [{ "object": "Water", "kind": "liquid" }])";
  const std::pair<std::string, std::string> cases[] = {
      {R"({ "type": "psheet", "group": "Water" })", "no particle carries a density"},
      {R"({ "type": "psurfaceproperty", "group": "Water", "kind": "diffuse" })", "held no diffuse particle"},
      {R"({ "type": "foamspraybubbles", "group": "Water", "solver": "Tank", "source": "particles", "foam_curvature": 99,
            "spray_curvature": 99 })",
       "no particle was made"},
      {R"({ "type": "foamspraybubbles", "group": "Water", "solver": "Tank", "sample_spacing": 0 })", "no samples"},
      {R"({ "type": "property_vector", "name": "Own", "property_id": 80 },
          { "type": "particle_gridtoparticles", "source": "Tank", "property": "Own", )" +
           water + "}",
       "no particle has \"Dam/Own\""},
      {R"({ "type": "property_force", "name": "Own" }, { "type": "pforce_acceleration", "name": "Wind" },
          { "type": "particle_forces", "target": "Own", "forces": ["Wind"], )" +
           water + "}",
       "no particle has \"Dam/Own\""},
      {R"({ "type": "fluid_pb", "groups": ["Water"] })", "held no passive particle"},
      {"{ \"type\": \"fluid_pb\", " + water + "}", "carried by"},
      {R"({ "type": "liquid", "groups": ["Water"] })", "listed with the kind liquid"},
      {R"({ "type": "fluid_pb", "name": "Drops", "groups": [{ "object": "Grains", "kind": "passive" }] },
          { "type": "particlegroup", "name": "Grains" },
          { "type": "volume", "object": "Column", "tags": [{ "type": "c4d_obstacle", "driven": false, "mass": 1 }] })",
       "don't push bodies"},
      {R"({ "type": "force_gravity", "name": "Again" })", "falls twice as fast"},
      {R"({ "type": "liquid", "container": [200, 260, 100] })", "dynamics objects of the scene carry its particles"},
      {R"({ "type": "particlegroup", "name": "Oil" },
          { "type": "particlegridemitter", "group": "Oil", "volume": "Column volume", "settings": "At the start" },
          { "type": "liquid", "name": "Oil tank", "container": [200, 260, 100],
            "groups": [{ "object": "Oil", "kind": "liquid" }] })",
       "two liquids don't feel each other"},
      {R"({ "type": "duration", "name": "Late", "use_frames": true, "start_frame": 1 },
          { "type": "particlemesh_emission_setting", "name": "Few", "count": 1, "active_in": "Late" },
          { "type": "particlemeshemitter", "group": "Water", "volume": "Column volume", "settings": "Few" })",
       "comes to less than one"},
  };
  for (const auto& [node, told] : cases) {
    const std::string group = R"({ "type": "particlegroup", "name": "Water" },)";
    const test::TemporaryFolder folder;
    test::WriteText(folder / "dam.json", test::SceneTextWith("scenes/dam_break.json", {{group, group + node + ","}}));
    test::SceneFileRun run((folder / "dam.json").string(), {"Dam.voxel_size=0.12"});
    run.StepThrough(0, 3);
    run.hook.Conclude();
    EXPECT_TRUE(std::any_of(run.warnings.begin(), run.warnings.end(), [&](const std::string& each) {
      return each.find(told) != std::string::npos;
    })) << node;
  }
}

// The scenes that show whitewater and liquids of particles alone: each runs, and does what it is there to show.

TEST(BreakingWave, HasAllClassesAndTheSameBitsAtAnyNumberOfWorkers) {
  test::SameForAnyWorkers([](int workers) {
    test::SceneFileRun run("scenes/breaking_wave.json", {"Coast.voxel_size=0.16", "Whitewater.foam_life=0.4"}, workers);
    run.observer.wantsHash = true;
    run.StepThrough(0, 2);
    EXPECT_EQ(run.Get<ParticleGroup>("Water").Count(PK_Diffuse), 0) << "the first frames stand at time 0 or at rest";
    run.StepThrough(3, 16);
    EXPECT_TRUE(run.warnings.empty()) << run.warnings.front();
    const ParticleReport& report = run.reports.back().groups.at(0);
    EXPECT_EQ(report.foam + report.spray + report.bubbles, report.counts[PK_Diffuse]);
    EXPECT_GT(report.foam, 20);
    EXPECT_GT(report.spray, 20);
    EXPECT_GT(report.bubbles, 20);
    return run.reports.back().hash;
  });
}

// The dam break of the benchmark, coarse and with one sub-step a frame; caches hold the liquid and its velocity.
std::string CachedDam(const std::string& mode) {
  const std::string common = R"(, "mode": ")" + mode + R"(", "folder_source": "own", "folder": "film" },)";
  return test::SceneTextWith(
      "benchmarks/scenes/whitewater.json",
      {{R"("voxel_size": 0.015625)", R"("voxel_size": 0.0625)"},
       {R"("max_substeps": 2)", R"("max_substeps": 0)"},
       {R"({ "type": "particlegroup")",
        R"({ "type": "cache", "name": "Velocities", "nodes": ["Tank"])" + common +
            R"({ "type": "cache_particle", "name": "Drops", "groups": [{ "object": "Water", "kind": "liquid" }])" +
            common + R"({ "type": "particlegroup")"}});
}

// Velocities are kept as doubles and the played frames have the steps of the live ones: the same bits.
TEST(Whitewater, OverACachedLiquidItIsTheLiveOnes) {
  const test::TemporaryFolder folder;
  const auto framesOf = [&](const std::string& mode) {
    test::WriteText(folder / "dam.json", CachedDam(mode));
    test::SceneFileRun run((folder / "dam.json").string());
    std::vector<std::vector<Vec3D>> frames;
    for (int frame = 0; frame <= 16; ++frame) {
      run.StepThrough(frame, frame);
      const ParticleList& list = *run.Get<ParticleGroup>("Water").list(PK_Diffuse);
      frames.emplace_back();
      for (int n = 0; n < list.count(); ++n) {
        frames.back().insert(frames.back().end(), {list.Position(n), list.Velocity(n)});
      }
    }
    return frames;
  };
  const auto live = framesOf("record"), played = framesOf("playback");
  EXPECT_GT(live.back().size(), 600u);
  for (std::size_t frame = 0; frame < live.size(); ++frame) EXPECT_TRUE(played[frame] == live[frame]) << frame;
}

TEST(TwoLiquidsSlow, TheOilComesToLieOnTheWater) {
  test::SceneFileRun run("scenes/two_liquids.json", {"Pour.voxel_size=0.04", "Liquid.rest_density=1017"});
  run.StepThrough(0, 72);
  EXPECT_TRUE(run.warnings.empty()) << run.warnings.front();
  const auto height = [&](const char* group) {
    const ParticleList& list = *run.Get<ParticleGroup>(group).list(PK_Liquid);
    double sum = 0;
    int inside = 0;
    for (int n = 0; n < list.count(); ++n) {
      const Vec3D& p = list.Position(n);
      if (p.y > 0 && p.y < 1) sum += p.y, ++inside;
    }
    EXPECT_GT(inside, 0.7 * list.count()) << "in the glass";
    return sum / inside;
  };
  EXPECT_GT(height("Oil"), height("Water") + 0.02);
  EXPECT_EQ(run.reports.back().densities.size(), 1u);
}

// The scenes that show emission and vorticity particles: each runs, and does what it is there to show.

using test::SceneFileRun;

std::vector<Vec3D> PositionsOf(SceneFileRun& run, const std::string& group, int kind) {
  const ParticleList& list = *run.Get<ParticleGroup>(group).list(kind);
  std::vector<Vec3D> positions;
  for (int n = 0; n < list.count(); ++n) positions.push_back(list.Position(n));
  return positions;
}

TEST(DissolvingMesh, TheFrontTakesTheGrainsAway) {
  SceneFileRun run("scenes/dissolving_mesh.json", {"Grains.count=1500"});
  run.StepThrough(0, 1);
  const std::vector<Vec3D> before = PositionsOf(run, "Dust group", PK_Passive);
  ASSERT_EQ(before.size(), 3000u) << "1500 in each of the two frames that stand at time 0";
  run.StepThrough(2, 36);
  const std::vector<Vec3D> after = PositionsOf(run, "Dust group", PK_Passive);
  ASSERT_EQ(after.size(), before.size());
  int gone = 0, still = 0;
  for (std::size_t n = 0; n < after.size(); ++n) {
    const double moved = Length(after[n] - before[n]), from = Length(before[n] - Vec3D(-1.2, 2.2, 0));
    if (from > 1.6) {
      EXPECT_LT(moved, 1e-12) << from;
    }
    ++(moved > 0.01 ? gone : still);
  }
  EXPECT_GT(gone, 100);
  EXPECT_GT(still, 500);
  EXPECT_TRUE(run.warnings.empty()) << run.warnings.front();
}

TEST(Dust, IsRolledUpAndCarriedAway) {
  SceneFileRun run("scenes/dust.json", {"Hall.voxel_size=0.1"});
  run.StepThrough(0, 3);
  const std::vector<Vec3D> before = PositionsOf(run, "Dust", PK_Passive);
  run.StepThrough(4, 30);
  const std::vector<Vec3D> after = PositionsOf(run, "Dust", PK_Passive);
  ASSERT_EQ(after.size(), before.size());
  int away = 0, lifted = 0;
  for (std::size_t n = 0; n < after.size(); ++n) {
    const auto radius = [](const Vec3D& p) { return std::hypot(p.x, p.z); };
    away += radius(after[n]) > radius(before[n]) + 0.1;
    lifted += after[n].y > before[n].y + 0.05;
  }
  EXPECT_GT(away, static_cast<int>(before.size()) / 5);
  EXPECT_GT(lifted, static_cast<int>(before.size()) / 20);
  EXPECT_TRUE(run.warnings.empty()) << run.warnings.front();
}

TEST(Embers, RiseHotAndCool) {
  SceneFileRun run("scenes/embers.json", {"Fire.voxel_size=0.08"});
  run.StepThrough(0, 48);
  const ParticleList& list = *run.Get<ParticleGroup>("Embers").list(PK_Diffuse);
  ASSERT_GT(list.count(), 100);
  double hottest = 0, coolest = 1e9, highest = 0;
  for (std::int32_t n = 0; n < list.count(); ++n) {
    const OrlixParticle ember(const_cast<ParticleList*>(&list), n);
    hottest = std::max(hottest, ember.GetRealOr(PP::Temperature, 0));
    coolest = std::min(coolest, ember.GetRealOr(PP::Temperature, 0));
    highest = std::max(highest, ember.GetPosition().y);
  }
  EXPECT_GT(hottest, 500);
  EXPECT_LT(coolest, 0.5 * hottest);
  EXPECT_GT(highest, 0.6) << "m; they leave the fire at 0.02 to 0.34";
  EXPECT_TRUE(run.warnings.empty()) << run.warnings.front();
}

TEST(Rain, BurstsOnTheBall) {
  SceneFileRun run("scenes/rain.json", {"Drops.count=1500", "Shower.voxel_size=0.1"});
  run.StepThrough(0, 30);
  const auto rain = PositionsOf(run, "Rain", PK_Passive), splashes = PositionsOf(run, "Splashes", PK_Diffuse);
  EXPECT_GT(rain.size(), 800u);
  EXPECT_GT(splashes.size(), 100u);
  for (const Vec3D& p : splashes) EXPECT_GT(Length(p - Vec3D(0, 1, 0)), 0.5);
  EXPECT_TRUE(run.warnings.empty()) << run.warnings.front();
}

TEST(VortexParticles, MakeTheSmokeSwirl) {
  // Five times as large cells take a stronger swirl.
  SceneFileRun run("scenes/vortex_particles.json",
                   {"Plain.voxel_size=0.125", "Fine.voxel_size=0.125", "Swirl.strength=0.2"});
  run.StepThrough(0, 20);
  ASSERT_EQ(run.hook.scenes().size(), 2u);
  // The energy of the motion across the rise.
  std::vector<double> across;
  for (const auto& [key, scene] : run.hook.scenes()) {
    scene->ForEachNode(NODE_SOLVER, NODE_SOLVER, [&](iBase& node) {
      const auto& grids = dynamic_cast<FluidSolver&>(node).velocity.grids;
      double sum = 0;
      for (const int c : {0, 2}) {
        const ScalarGrid& grid = *grids[static_cast<std::size_t>(c)];
        for (std::int64_t n = 0; n < grid.count; ++n) sum += grid[n] * grid[n];
      }
      across.push_back(sum);
    });
  }
  ASSERT_EQ(across.size(), 2u);
  EXPECT_GT(across[1], 1.2 * across[0]);
  EXPECT_TRUE(run.warnings.empty()) << run.warnings.front();
}

}  // namespace
}  // namespace orlix
