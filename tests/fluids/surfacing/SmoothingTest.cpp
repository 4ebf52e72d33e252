// Curvature flows over level sets, and the node that runs them.

#include <gtest/gtest.h>

#include "fluids/level_sets/FastSweeper.h"
#include "fluids/surfacing/LevelSetSmoother.h"
#include "fluids/surfacing/SurfaceReconstructor.h"
#include "fluids/volumes/VolumeMesh.h"
#include "globals/Random.h"
#include "tests/support/TestScene.h"
#include "tests/support/Workers.h"

namespace orlix {
namespace {

constexpr float kCell = 0.25f;

template <class F>
std::unique_ptr<ScalarGrid> MakeLevelSet(const VecInt3D& nodes, F&& f) {
  auto grid = std::make_unique<ScalarGrid>(nodes, Vec3D(nodes - VecInt3D(1, 1, 1)) * double(kCell), kCell,
                                           kGridNodalLevelset, Vec3D());
  for (int k = 0; k < nodes.z; ++k) {
    for (int j = 0; j < nodes.y; ++j) {
      for (int i = 0; i < nodes.x; ++i) (*grid)(i, j, k) = f(Vec3D(i, j, k) * double(kCell));
    }
  }
  return grid;
}

// A ball with bumps that a table of random numbers gives.
std::unique_ptr<ScalarGrid> BumpyBall() {
  MersenneTwister random(2);
  return MakeLevelSet({30, 29, 28},
                      [&](const Vec3D& x) { return Length(x - Vec3D(3.5)) - 2 + (random.Uniform() - 0.5) * 0.1; });
}

SmoothingSettings Settings(std::int32_t laplacian, std::int32_t biharmonic) {
  SmoothingSettings settings;
  settings.laplacianRounds = laplacian, settings.biharmonicRounds = biharmonic, settings.period = 0;
  settings.above = 0.43 * kCell, settings.below = -0.43 * kCell;
  return settings;
}

void Smooth(const SmoothingSettings& settings, ScalarGrid& grid, int workers = 1) {
  WorkerPool pool(workers);
  ScratchPool scratch;
  EXPECT_TRUE(SmoothLevelSet(pool, scratch, settings, grid));
}

// The rounds as written down, over all nodes.
void PlainRounds(ScalarGrid& phi, const ScalarGrid& lower, const ScalarGrid& upper, int rounds, bool biharmonic) {
  const double h = kCell;
  Grid<double> bend(phi.dims, kGridScratch);
  bend.Fill(0);
  const auto laplacian = [&](const Grid<double>& g, std::int64_t c) {
    const std::int64_t x = phi.dims.x, s = phi.slab;
    return (g[c - 1] + g[c + 1] + g[c - x] + g[c + x] + g[c - s] + g[c + s] - 6 * g[c]) / (h * h);
  };
  const auto forInner = [&](int layers, double band, const ScalarGrid& by, auto&& f) {
    for (int k = layers; k < phi.dims.z - layers; ++k) {
      for (int j = layers; j < phi.dims.y - layers; ++j) {
        for (int i = layers; i < phi.dims.x - layers; ++i) {
          if (std::abs(by(i, j, k)) <= band * h) f(phi.Index(i, j, k));
        }
      }
    }
  };
  for (int round = 0; round < rounds; ++round) {
    const ScalarGrid old = phi;
    if (biharmonic) forInner(1, 4, old, [&](std::int64_t c) { bend[c] = laplacian(old, c); });
    forInner(biharmonic ? 2 : 1, biharmonic ? 3 : 4, old, [&](std::int64_t c) {
      const Vec3D g(old[c + 1] - old[c - 1], old[c + phi.dims.x] - old[c - phi.dims.x],
                    old[c + phi.slab] - old[c - phi.slab]);
      const double dt = biharmonic ? -0.01 * h * h * h * h : 0.1 * h * h;
      const double change = Length(g) / (2 * h) * (biharmonic ? laplacian(bend, c) : laplacian(old, c)) * dt;
      phi[c] = std::max(std::min(old[c] + change, upper[c]), lower[c]);
    });
  }
}

TEST(Smoothing, IsWhatThePlainRoundsGive) {
  const auto flows = [](const SmoothingSettings& settings) {
    auto expected = BumpyBall();
    ScalarGrid lower = *expected, upper = *expected;
    for (std::int64_t c = 0; c < lower.count; ++c) lower[c] += settings.below, upper[c] += settings.above;
    PlainRounds(*expected, lower, upper, settings.laplacianRounds, false);
    if (settings.biharmonicRounds > 0) {
      WorkerPool pool(1);
      ScratchPool scratch;
      for (ScalarGrid* grid : {&lower, &upper, expected.get()}) ReinitialiseLevelSet(pool, scratch, *grid, kCell);
      PlainRounds(*expected, lower, upper, settings.biharmonicRounds, true);
    }
    return expected;
  };
  for (const SmoothingSettings& settings : {Settings(7, 0), Settings(0, 5), Settings(3, 4)}) {
    const auto expected = flows(settings);
    test::SameForAnyWorkers([&](int workers) {
      const auto grid = BumpyBall();
      Smooth(settings, *grid, workers);
      double worst = 0;
      for (std::int64_t c = 0; c < grid->count; ++c) worst = std::max(worst, std::abs((*grid)[c] - (*expected)[c]));
      EXPECT_LT(worst, 1e-12);
      return std::vector<double>(grid->data, grid->data + grid->count);
    });
  }
}

TEST(Smoothing, BumpsGoAndTheSurfaceStaysInItsBand) {
  const auto before = BumpyBall();
  ScalarGrid after = *before;
  SmoothingSettings settings = Settings(12, 0);
  Smooth(settings, after);
  for (std::int64_t c = 0; c < after.count; ++c) {
    EXPECT_GE(after[c], (*before)[c] + settings.below);
    EXPECT_LE(after[c], (*before)[c] + settings.above);
  }
  // How far the values are from those of a ball, along rays.
  const auto roughness = [](const ScalarGrid& grid) {
    double sum = 0, mean = 0;
    int count = 0;
    for (std::int64_t c = 0; c < grid.count; ++c) {
      const Vec3D x = Vec3D(double(c % grid.dims.x), double(c / grid.dims.x % grid.dims.y), double(c / grid.slab));
      const double off = grid[c] - (Length(x * double(kCell) - Vec3D(3.5)) - 2);
      if (std::abs(grid[c]) < kCell) sum += off * off, mean += off, ++count;
    }
    EXPECT_GT(count, 500);
    return std::sqrt(sum / count - mean / count * (mean / count));
  };
  EXPECT_LT(roughness(after), 0.4 * roughness(*before));
  ScalarGrid kept = *before;
  settings = Settings(0, 60), settings.period = 25;
  Smooth(settings, kept);
  double volume[2] = {};
  for (std::int64_t c = 0; c < kept.count; ++c) volume[0] += (*before)[c] < 0, volume[1] += kept[c] < 0;
  EXPECT_NEAR(volume[1] / volume[0], 1, 0.02);
}

class SmootherScene : public test::TestScene {
 public:
  SmootherScene() {
    root->Set(RootSettings::kVoxelSizeId, 0.1);
    volume.Set(VolumeBase::kObjectId, LinkTo(Add("box", "Box")));
    smoother.Set(LevelSetSmoother::kSourceId, LinkTo(volume));
    smoother.Set(LevelSetSmoother::kBiharmonicRoundsId, std::int64_t(0));
  }
  std::vector<double> Values() {
    const ScalarGrid& grid = *NodeOf<VolumeMesh>(volume)->LevelSet();
    return {grid.data, grid.data + grid.count};
  }
  BaseObject &volume = Add("volume", "Solid"), &smoother = Add("levelset_smoother", "Smoother");
};

TEST(LevelSetSmoother, SmoothsWhatWasVoxelisedAndNotItsOwnResult) {
  SmootherScene s;
  s.Step(0);
  const std::vector<double> first = s.Values();
  s.StepThrough(1, 4);
  EXPECT_EQ(s.Values(), first);
  s.smoother.Set(LevelSetSmoother::kLaplacianRoundsId, std::int64_t(0));
  s.Step(5);
  const std::vector<double> plain = s.Values();
  EXPECT_NE(plain, first);
  s.smoother.Set(LevelSetSmoother::kLaplacianRoundsId, std::int64_t(15));
  s.Step(6);
  EXPECT_EQ(s.Values(), first);
  EXPECT_TRUE(s.warnings.empty());
}

TEST(LevelSetSmoother, TellsWhereItsWorkIsLost) {
  SmootherScene s;
  s.smoother.Set(LevelSetSmoother::kSourceId, LinkValue{});
  s.Step(0);
  EXPECT_TRUE(s.Warned("no volume is linked"));
  BaseObject& surface = s.Add("surface_reconstruction", "Surface");
  s.smoother.Set(LevelSetSmoother::kSourceId, s.LinkTo(surface));
  s.Step(1);
  EXPECT_TRUE(s.Warned("is made anew after it was smoothed"));
  s.Add("levelset_smoother", "Twin").Set(LevelSetSmoother::kSourceId, s.LinkTo(surface));
  s.Step(2);
  EXPECT_TRUE(s.Warned("smooths the same source"));
}

// In stage 20, after the reconstruction, its level set is smoothed in each frame.
TEST(LevelSetSmoother, SmoothsAReconstruction) {
  SmootherScene s;
  BaseObject &surface = s.Add("surface_reconstruction", "Surface"), &group = s.Add("particlegroup", "Drops");
  surface.Set(SurfaceReconstructor::kSourceId, s.LinkTo(group));
  s.smoother.Set(LevelSetSmoother::kSourceId, s.LinkTo(surface));
  s.smoother.Set(kStageId, std::int64_t(20)), s.smoother.Set(kPriorityId, std::int64_t(7));
  s.Step(0);
  auto* node = dynamic_cast<iLevelSet*>(s.NodeOf<iObject>(surface));
  s.NodeOf<ParticleGroup>(group)->NewParticle(PK_Liquid).SetPosition({1, 1, 1});
  s.Step(1);
  ASSERT_NE(node->LevelSet(), nullptr);
  const std::vector<double> first(node->LevelSet()->data, node->LevelSet()->data + node->LevelSet()->count);
  s.Step(2);
  EXPECT_EQ(std::vector<double>(node->LevelSet()->data, node->LevelSet()->data + node->LevelSet()->count), first);
  s.smoother.Set(LevelSetSmoother::kRenderOnlyId, std::int64_t(1));
  s.Step(3);
  EXPECT_NE(std::vector<double>(node->LevelSet()->data, node->LevelSet()->data + node->LevelSet()->count), first);
  EXPECT_TRUE(s.warnings.empty());
}

}  // namespace
}  // namespace orlix
