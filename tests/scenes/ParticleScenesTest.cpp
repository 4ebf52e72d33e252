// The scenes that show emission and vorticity particles: each runs, and does what it is there to show.

#include <gtest/gtest.h>

#include "fluids/particles/ParticleGroup.h"
#include "tests/support/SceneFileRun.h"

namespace orlix {
namespace {

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
  SceneFileRun run("scenes/vortex_particles.json", {"Plain.voxel_size=0.125", "Fine.voxel_size=0.125"});
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
