// The scenes that show bodies: each runs, and does what it is there to show.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <nlohmann/json.hpp>

#include "exchange/BodyFile.h"
#include "fluids/volumes/MultiVolume.h"
#include "run/Checkpoint.h"
#include "tests/run/WaterScene.h"
#include "tests/support/SceneFileRun.h"
#include "tests/support/TemporaryFolder.h"

namespace orlix {
namespace {

using test::SceneFileRun;

struct BodiesPage {
  const char *file, *root;
  double cell;  // m, of the fast test
};
constexpr BodiesPage kPages[] = {{"floating_crate", "Splash", 0.1}, {"crates_in_pool", "Splash", 0.1},
                                 {"raft", "Splash", 0.1},           {"dominoes_in_wave", "Wave", 0.06},
                                 {"wall_in_wave", "Wave", 0.08},    {"ball_lets_go", "Room", 0.2}};

SceneFileRun PageAt(const BodiesPage& page, double cell) {
  return SceneFileRun("scenes/" + std::string(page.file) + ".json",
                      {std::string(page.root) + ".voxel_size=" + std::to_string(cell)});
}

TEST(BodyScenes, RunWithoutAWarning) {
  for (const BodiesPage& page : kPages) {
    SceneFileRun run = PageAt(page, page.cell);
    run.StepThrough(0, 5);
    EXPECT_TRUE(run.warnings.empty()) << page.file << ": " << run.warnings.front();
    const std::vector<BodyTransform> bodies = CollectBodyTransforms(run.scene());
    ASSERT_FALSE(bodies.empty()) << page.file;
    EXPECT_TRUE(std::all_of(bodies.begin(), bodies.end(), [](const auto& b) { return IsFinite(b.matrix.off); }));
  }
}

TEST(BodyScenes, TheCrateFloats) {
  SceneFileRun run = PageAt(kPages[0], 0.1);
  run.StepThrough(0, 40);
  const double height = run.Object("Crate").GlobalMatrix().off.y;
  EXPECT_GT(height, 60);  // host units; the pool is 80 deep
  EXPECT_LT(height, 105);
}

// Nothing holds back what falls beside water that falls: neither its pressure, which there is none, nor faces without
// particles.
TEST(BodyScenes, ABodyFallsWithTheWaterBesideIt) {
  const auto fallen = [](double density, const char* kind) {
    const std::string text = R"({ "orlix": 1, "fps": 24, "frames": [0, 6], "objects": [
      { "type": "sphere", "name": "Ball", "radius": 10, "position": [57, 75, 20] },
      { "type": "box", "name": "Column", "size": [20, 20, 20], "position": [40, 75, 20] },
      { "type": "scene", "name": "Fall", "voxel_size": 0.05, "max_substeps": 7, "min_substeps": 8, "children": [
        { "type": "volume", "name": "Body", "object": "Ball", "tags": [{ "type": "c4d_obstacle", "driven": false,
          "mass_mode": "density", "inertia": "solid", "margin": 0.005, "density": )" +
                             std::to_string(density) + R"( }] },
        { "type": "volume", "name": "Block", "object": "Column" }, { "type": "particlegroup", "name": "Water" },
        { "type": "particlegridemitter", "name": "Fill", "group": "Water", "kind": ")" +
                             kind + R"(", "volume": "Block", "settings": "Start" },
        { "type": "particlemesh_emission_setting", "name": "Start", "active_in": "First frame" },
        { "type": "duration", "name": "First frame", "use_frames": true, "length_frames": 1 },
        { "type": "liquid", "name": "Tank", "container": [120, 120, 40], "pressure_solver": "multigrid" },
        { "type": "force_gravity", "name": "Weight", "strength": 0 },
        { "type": "particle_advection", "name": "Flow", "group": "Water", "kind": "liquid", "solvers": ["Tank"] }
      ] } ] })";
    const test::TemporaryFolder folder;
    test::WriteText(folder / "fall.json", text);
    SceneFileRun run((folder / "fall.json").string());
    run.StepThrough(0, 6);
    return Vec3D(57, 75, 20) - run.Object("Ball").GlobalMatrix().off;
  };
  const Vec3D alone = fallen(500, "passive"), heavy = fallen(500, "liquid"), light = fallen(50, "liquid");
  EXPECT_GT(alone.y, 15);
  EXPECT_NEAR(heavy.y, alone.y, 0.03 * alone.y);
  EXPECT_NEAR(light.y, alone.y, 0.1 * alone.y);
  EXPECT_LT(std::abs(light.x), 0.1 * alone.y);
}

// A coupled object falls, floats and drifts with the water, and begins again where it was.
TEST(BodyScenes, ACoupledObjectSwims) {
  const test::TemporaryFolder folder;
  const std::string swimmer = R"({ "type": "box", "name": "Duck", "size": [4, 4, 4], "position": [-8, 60, 2],
                                   "tags": [{ "type": "c4d_couple", "root": "Dam" }] })";
  test::WriteText(folder / "swim.json", test::WaterScene(swimmer, "", 40));
  SceneFileRun run((folder / "swim.json").string());
  std::vector<Vec3D> ways[2];
  for (auto& way : ways) {
    for (int frame = 0; frame <= 40; ++frame) {
      run.StepThrough(frame, frame);
      way.push_back(run.Object("Dam/Duck").GlobalMatrix().off);
      if (frame != 20) continue;
      ASSERT_TRUE(WriteCheckpoint(folder / "kept", CheckpointHead{.frame = frame}, run.hook).ok());
    }
  }
  SceneFileRun resumed((folder / "swim.json").string());
  ASSERT_TRUE(RestoreCheckpoint(folder / "kept", *resumed.document, resumed.hook).ok());
  EXPECT_EQ(resumed.Object("Dam/Duck").GlobalMatrix().off, ways[0][20]) << "before its next frame";
  EXPECT_EQ(ways[0], ways[1]) << "a restart";
  EXPECT_EQ(ways[0].front(), Vec3D(-8, 60, 2));
  EXPECT_LT(ways[0].back().y, 40) << "it fell into the water";
  EXPECT_GT(ways[0].back().y, 2) << "and floats";
  EXPECT_GT(Length(ways[0].back() - ways[0][20]), 1) << "with the flow";
  EXPECT_TRUE(run.warnings.empty()) << run.warnings.front();
}

TEST(BodyScenes, LinesOfJsonSayWhereBodiesAre) {
  const test::TemporaryFolder folder;
  SceneFileRun run = PageAt(kPages[1], 0.2);
  run.StepThrough(0, 3);
  const std::vector<BodyTransform> bodies = CollectBodyTransforms(run.scene());
  ASSERT_TRUE(WriteBodyFile(folder / "b.jsonl", bodies, 3, {.scale = 0.01, .upZ = true}).ok());
  std::ifstream in(folder / "b.jsonl");
  std::string line;
  std::size_t lines = 0;
  for (; std::getline(in, line); ++lines) {
    const auto json = nlohmann::json::parse(line);
    const Vec3D place = run.Object(json["object"]).GlobalMatrix().off;
    EXPECT_EQ(json["frame"], 3);
    EXPECT_NEAR(json["matrix"][3][2].get<double>(), place.y * 0.01, 1e-9);
    EXPECT_GT(json["mass"].get<double>(), 1);
  }
  EXPECT_EQ(lines, 20u);
}

// What a density is lies as high as it should: cork, then oak, and stone on the ground.
TEST(BodyScenesSlow, TheCratesSortThemselves) {
  SceneFileRun run = PageAt(kPages[1], 0.05);
  run.StepThrough(0, 110);
  double mean[3] = {};
  const char* kinds[] = {"Corks", "Oaks", "Stones"};
  for (int kind = 0; kind < 3; ++kind) {
    const auto& volume = run.Get<MultiVolume>(kinds[kind]);
    for (std::size_t n = 0; n < volume.memberCount(); ++n) {
      mean[kind] += volume.member(n).BodyCentre().y / double(volume.memberCount());
    }
  }
  EXPECT_GT(mean[0], mean[1] + 0.03);
  EXPECT_GT(mean[1], 0.5);
  EXPECT_LT(mean[2], 0.3);
}

TEST(BodyScenesSlow, TheWaveTakesTheDominoesOneByOne) {
  SceneFileRun run = PageAt(kPages[3], 0.04);
  std::vector<int> fell(9, 0);
  for (int frame = 0; frame <= 60; ++frame) {
    run.StepThrough(frame, frame);
    for (std::size_t n = 0; n < fell.size(); ++n) {
      const LMatrix m = run.Object("Domino " + std::to_string(n + 1)).GlobalMatrix();
      if (fell[n] == 0 && m.v2.y < 0.9 * Length(m.v2)) fell[n] = frame;
    }
  }
  EXPECT_GT(fell[0], 0);
  EXPECT_GT(fell[3], fell[0]);
}

TEST(BodyScenesSlow, TheWaveBreaksTheWall) {
  SceneFileRun run = PageAt(kPages[4], 0.05);
  std::vector<Vec3D> start;
  const auto moved = [&] {
    const auto& wall = run.Get<MultiVolume>("Wall");
    int far = 0;
    for (std::size_t n = 0; n < wall.memberCount(); ++n) {
      const Vec3D place = wall.member(n).BodyCentre();
      if (start.size() < wall.memberCount()) start.push_back(place);
      far += Length(place - start[n]) > 0.1;  // m
    }
    return far;
  };
  run.StepThrough(0, 1);
  EXPECT_EQ(moved(), 0);
  run.StepThrough(2, 6);
  EXPECT_EQ(moved(), 0) << "it stands until the wave comes";
  run.StepThrough(7, 40);
  EXPECT_GT(moved(), 8);
}

TEST(BodyScenesSlow, TheBallFliesOn) {
  SceneFileRun run = PageAt(kPages[5], 0.08);
  run.StepThrough(0, 56);
  const auto ball = [&] { return run.Object("Ball").GlobalMatrix().off; };
  const Vec3D letGo = ball();
  run.StepThrough(57, 62);
  const double t = 6 / 24.0;
  // On at 3.0 m/s, and down; it has fallen for a frame.
  EXPECT_NEAR(ball().x - letGo.x, 300 * t, 20);
  EXPECT_NEAR(ball().y - letGo.y, ((0.5 - 9.81 / 24) * t - 0.5 * 9.81 * t * t) * 100, 8);
}

}  // namespace
}  // namespace orlix
