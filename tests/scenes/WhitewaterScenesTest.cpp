// The scenes that show whitewater and liquids of particles alone: each runs, and does what it is there to show.

#include <gtest/gtest.h>

#include <cmath>

#include "fluids/particles/ParticleGroup.h"
#include "tests/support/SceneFileRun.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/Workers.h"

namespace orlix {
namespace {

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

TEST(Waterfall, FallsOnTheRocksWithSpray) {
  test::SceneFileRun run("scenes/waterfall.json", {"Gorge.voxel_size=0.1"});
  run.StepThrough(0, 14);
  EXPECT_TRUE(run.warnings.empty()) << run.warnings.front();
  const ParticleReport& report = run.reports.back().groups.at(0);
  EXPECT_GT(report.counts[PK_Liquid], 500);
  EXPECT_GT(report.spray, 10);
}

TEST(Drops, HangInTheRoomUntilTheFastOneMeetsThem) {
  test::SceneFileRun run("scenes/drops.json", {"Station.voxel_size=0.06", "Liquid.rest_density=301"});
  run.StepThrough(0, 1);
  const ParticleList& list = *run.Get<ParticleGroup>("Water").list(PK_Liquid);
  const Vec3D before = list.Position(0);
  run.StepThrough(2, 24);
  EXPECT_TRUE(run.warnings.empty()) << run.warnings.front();
  EXPECT_GT(list.count(), 1000);
  EXPECT_LT(Length(list.Position(0) - before), 0.5);
  int out = 0;
  for (int n = 0; n < list.count(); ++n) {
    const Vec3D& p = list.Position(n);
    out += std::abs(p.x) > 1.31 || std::abs(p.y) > 1.01 || std::abs(p.z) > 0.81;
  }
  EXPECT_EQ(out, 0);
}

TEST(TwoLiquids, StayInTheGlass) {
  test::SceneFileRun run("scenes/two_liquids.json", {"Pour.voxel_size=0.05", "Liquid.rest_density=521"});
  run.StepThrough(0, 14);
  EXPECT_TRUE(run.warnings.empty()) << run.warnings.front();
  const ParticleList& list = *run.Get<ParticleGroup>("Water").list(PK_Liquid);
  EXPECT_GT(list.count(), 60);
  for (int n = 0; n < list.count(); ++n) EXPECT_LT(std::hypot(list.Position(n).x, list.Position(n).z), 0.5);
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

}  // namespace
}  // namespace orlix
