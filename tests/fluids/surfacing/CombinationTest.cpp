// Volumes of two others, against the values of both at each node.

#include <gtest/gtest.h>

#include "fluids/constraints/VoxelDistanceConstraint.h"
#include "fluids/level_sets/FastSweeper.h"
#include "fluids/surfacing/CSGoperatorGrid.h"
#include "fluids/surfacing/LevelSetSmoother.h"
#include "fluids/surfacing/SurfaceReconstructor.h"
#include "fluids/volumes/VolumeMesh.h"
#include "globals/Random.h"
#include "tests/support/TestScene.h"
#include "tests/support/Workers.h"

namespace orlix {
namespace {

using Operation = CombinationSettings::Operation;
using BlendMode = CombinationSettings::BlendMode;

constexpr int kSphereRadius = 1110;

// Two balls of 0.5 m, 0.4 m apart.
class CsgScene : public test::TestScene {
 public:
  explicit CsgScene(int workers = 1) : TestScene(workers) {
    root->Set(RootSettings::kVoxelSizeId, 0.1);
    csg.Set(CSGoperatorGrid::kFirstId, LinkTo(*volumes[0]));
    csg.Set(CSGoperatorGrid::kSecondId, LinkTo(*volumes[1]));
    for (int n = 0; n < 2; ++n) {
      spheres[n]->Set(kSphereRadius, 50.0);
      volumes[n]->Set(VolumeBase::kObjectId, LinkTo(*spheres[n]));
    }
    spheres[1]->Set(kPositionId, Vec3D(40, 0, 0));
  }
  void Set(Operation operation, BlendMode mode = BlendMode::Smooth) {
    csg.Set(CSGoperatorGrid::kOperationId, static_cast<std::int64_t>(operation));
    csg.Set(CSGoperatorGrid::kBlendModeId, static_cast<std::int64_t>(mode));
  }
  CSGoperatorGrid& Node() { return *NodeOf<CSGoperatorGrid>(csg); }
  const ScalarGrid& Grid() { return *Node().LevelSet(); }
  const ScalarGrid& Input(int n) { return *NodeOf<VolumeMesh>(*volumes[n])->LevelSet(); }
  // f(a, b, result, place) at each node of the result that both inputs hold. Gives how many.
  template <class F>
  int ForShared(F&& f) {
    int shared = 0;
    for (std::int64_t c = 0; c < Grid().count; ++c) {
      const VecInt3D dims = Grid().dims, at(int(c % dims.x), int(c / dims.x % dims.y), int(c / Grid().slab));
      const Vec3D place = Grid().space.SimOfVoxel(Vec3D(at));
      double values[2];
      bool inside = true;
      for (int n = 0; n < 2; ++n) {
        const Vec3D i = Input(n).space.VoxelOfSim(place) + Vec3D(1e-3);
        const VecInt3D low(i), n3 = Input(n).dims;
        inside = inside && std::min({i.x, i.y, i.z}) >= 0 && low.x < n3.x && low.y < n3.y && low.z < n3.z;
        if (inside) values[n] = Input(n)(low.x, low.y, low.z);
      }
      if (inside) ++shared, f(values[0], values[1], Grid()[c], place);
    }
    return shared;
  }

  BaseObject* spheres[2] = {&Add("sphere", "A"), &Add("sphere", "B")};
  BaseObject* volumes[2] = {&Add("volume", "VolumeA"), &Add("volume", "VolumeB")};
  BaseObject& csg = Add("csg", "Both");
};

TEST(CSGoperatorGrid, IsMinMaxAndDifferenceAtEachNode) {
  CsgScene s(2);
  s.csg.Set(CSGoperatorGrid::kOffsetId, 0.05);
  const auto expect = [&](Operation operation, auto&& f) {
    s.Set(operation);
    s.Step(1);
    EXPECT_GT(s.ForShared([&](double a, double b, double result, const Vec3D&) { EXPECT_EQ(result, f(a, b - 0.05)); }),
              1000);
  };
  s.Step(0);
  expect(Operation::Union, [](double a, double b) { return std::min(a, b); });
  // The box holds both and the second's growth; the surface of the first alone is its own.
  EXPECT_NEAR(s.Grid().space.simMax.x, s.Input(1).space.simMax.x + 0.1, 1e-6);
  EXPECT_NEAR(s.Node().SampleWorld({-0.5, 0, 0}), 0, 0.01);
  EXPECT_NEAR(s.Node().SampleWorld({0.95, 0, 0}), 0, 0.01);
  EXPECT_NEAR(*s.Node().MaximumDepth(), 0.54, 0.02);
  expect(Operation::Intersection, [](double a, double b) { return std::max(a, b); });
  EXPECT_TRUE(s.Grid().space.simMin.x > s.Input(0).space.simMin.x);
  expect(Operation::Subtraction, [](double a, double b) { return std::max(a, -b); });
  EXPECT_EQ(s.Grid().dims, s.Input(0).dims);
  // The other way round, the second loses.
  s.csg.Set(CSGoperatorGrid::kSwapId, std::int64_t(1));
  s.Step(2);
  EXPECT_EQ(s.Grid().dims, s.Input(1).dims);
  EXPECT_GT(s.Node().SampleWorld({0.1, 0, 0}), 0);
  EXPECT_LT(s.Node().SampleWorld({0.8, 0, 0}), 0);
}

TEST(CSGoperatorGrid, BlendsFollowTheirFormulas) {
  CsgScene s;
  s.csg.Set(CSGoperatorGrid::kBlendValueId, 0.03);
  const auto expect = [&](BlendMode mode, double t, auto&& f) {
    s.Set(Operation::Blend, mode);
    s.csg.Set(CSGoperatorGrid::kBlendId, t);
    s.Step(1);
    EXPECT_GT(s.ForShared([&](double a, double b, double result, const Vec3D&) { EXPECT_NEAR(result, f(a, b), 1e-6); }),
              1000);
  };
  s.Step(0);
  expect(BlendMode::Smooth, 1, [](double a, double b) { return std::min(a, b) - 0.03; });
  EXPECT_NEAR(s.Node().SampleWorld({-0.53, 0, 0}), 0, 0.01);
  EXPECT_LT(s.Grid().space.simMin.x, s.Input(0).space.simMin.x - 0.02);  // it doesn't grow out of its box
  expect(BlendMode::Smooth, 0, [](double a, double b) { return a + b - std::sqrt(a * a + b * b) - 0.03; });
  expect(BlendMode::Morph, 0, [](double a, double) { return a; });
  expect(BlendMode::Morph, 1, [](double, double b) { return b; });
  expect(BlendMode::Soft, 0, [](double a, double b) { return std::min(a, b); });
  const auto h = [](double x) {
    const double q = std::clamp(x / 0.2, 0.0, 1.0);
    return 2 * q * q * q - 3 * q * q + 1;
  };
  expect(BlendMode::Soft, 0.2, [&](double a, double b) { return (0.03 - h(a) - h(b)) * 4 / 3 * 0.2; });
}

TEST(CSGoperatorGrid, ConstraintsWeighABlendAtItsNodes) {
  CsgScene s(3);
  BaseObject &ball = s.Add("constraint_voxeldistance", "ball"), &centre = s.Add("null", "centre");
  ball.Set(VoxelDistanceConstraint::kReferenceId, s.LinkTo(centre));
  ball.Set(VoxelDistanceConstraint::kDistanceId, 31.0);
  s.csg.Set(kConstraintsId, s.ListOf({&ball}));
  s.Step(0);
  EXPECT_TRUE(s.Warned("its constraints weigh a blend alone"));
  s.Set(Operation::Blend, BlendMode::Morph);
  s.csg.Set(CSGoperatorGrid::kBlendId, 1.0);
  s.Step(1);
  int changed = 0;
  s.ForShared([&](double a, double b, double result, const Vec3D& place) {
    const double t = std::max(0.0, 1 - Length(place) / 0.31);  // asked at the nodes themselves
    EXPECT_NEAR(result, a + (b - a) * t, 1e-6) << place.x << " " << place.y;
    changed += t > 0 && t < 1;
  });
  EXPECT_GT(changed, 50);
}

// A tree of them in any order of creation; what stands still is made once.
TEST(CSGoperatorGrid, TreesGrowFromTheLeaves) {
  CsgScene s;
  BaseObject& inner = s.Add("csg", "Inner");
  inner.Set(CSGoperatorGrid::kFirstId, s.LinkTo(*s.volumes[0]));
  inner.Set(CSGoperatorGrid::kSecondId, s.LinkTo(*s.volumes[1]));
  s.csg.Set(CSGoperatorGrid::kFirstId, s.LinkTo(inner));
  s.Set(Operation::Subtraction);
  s.Step(0);
  // (A or B) without B.
  EXPECT_LT(s.Node().SampleWorld({-0.3, 0, 0}), 0);
  EXPECT_GT(s.Node().SampleWorld({0.3, 0, 0}), 0);
  s.Step(1);
  const std::uint64_t version = s.Node().LevelSetVersion();
  s.StepThrough(2, 3);
  EXPECT_EQ(s.Node().LevelSetVersion(), version);
  s.spheres[1]->Set(kPositionId, Vec3D(-40, 0, 0));
  s.Step(4);
  EXPECT_GT(s.Node().LevelSetVersion(), version);
  EXPECT_GT(s.Node().SampleWorld({-0.3, 0, 0}), 0);
  inner.Set(CSGoperatorGrid::kSecondId, s.LinkTo(s.csg));
  s.Step(5);
  EXPECT_EQ(s.Node().LevelSet(), nullptr);
  EXPECT_TRUE(s.Warned("is made of this volume itself"));
}

// Of boxes that touch, lie in each other, and grow; before anything is made.
TEST(CSGoperatorGrid, ItsMemoryIsForecast) {
  for (const auto operation : {Operation::Union, Operation::Intersection, Operation::Subtraction, Operation::Blend}) {
    CsgScene s;
    s.Set(operation);
    s.csg.Set(CSGoperatorGrid::kOffsetId, 0.3);
    s.Step(0);
    ASSERT_NE(s.Node().LevelSet(), nullptr);
    const double bytes = double(s.Node().LevelSet()->count) * sizeof(double);
    // A box of some 20 cells is rounded up by one on each side.
    EXPECT_GE(s.Node().MemoryFor({}).kept, bytes) << int(operation);
    EXPECT_LT(s.Node().MemoryFor({}).kept, 1.25 * bytes) << int(operation);
  }
}

TEST(CSGoperatorGrid, WhatIsMissingIsTold) {
  CsgScene s;
  s.csg.Set(CSGoperatorGrid::kFirstId, LinkValue{});
  BaseObject& surface = s.Add("surface_reconstruction", "Surface");
  s.csg.Set(CSGoperatorGrid::kSecondId, s.LinkTo(surface));
  s.Step(0);
  EXPECT_EQ(s.Node().LevelSet(), nullptr);
  EXPECT_TRUE(s.Warned("no volume is linked as first"));
  EXPECT_TRUE(s.Warned("is made later in a frame"));
  // Balls that don't touch have nothing in common.
  s.csg.Set(CSGoperatorGrid::kFirstId, s.LinkTo(*s.volumes[0]));
  s.csg.Set(CSGoperatorGrid::kSecondId, s.LinkTo(*s.volumes[1]));
  s.spheres[1]->Set(kPositionId, Vec3D(900, 0, 0));
  s.Set(Operation::Intersection);
  s.Step(1);
  EXPECT_EQ(s.Node().LevelSet(), nullptr);
  s.Node().Conclude();
  EXPECT_TRUE(s.Warned("never lay near each other"));
  s.Set(Operation::Union);
  s.Step(2);
  EXPECT_LT(s.Node().SampleWorld({0, 0, 0}), -0.4);
  EXPECT_LT(s.Node().SampleWorld({9, 0, 0}), -0.4);
  EXPECT_GT(s.Node().SampleWorld({4.5, 0, 0}), 1);
}

// A finer level set is sampled; beyond its box distances go on.
TEST(LevelSetRows, ReadsAnotherLatticeAndBeyondIt) {
  const auto make = [](const VecInt3D& nodes, float cell, const Vec3D& low) {
    auto grid = std::make_unique<ScalarGrid>(nodes, Vec3D(nodes - VecInt3D(1, 1, 1)) * double(cell), cell,
                                             kGridNodalLevelset, low);
    for (std::int64_t c = 0; c < grid->count; ++c) {
      (*grid)[c] = grid->space.SimOfVoxel(Vec3D(double(c % nodes.x), 0, 0)).x - 1;
    }
    return grid;
  };
  const auto fine = make({9, 9, 9}, 0.25f, {1, 1, 1}), target = make({8, 8, 8}, 0.5f, {-0.5, 0, 0});
  LevelSetRows rows(*fine, *target);
  double row[8];
  rows.Read(3, 3, row);
  for (int i = 3; i < 8; ++i) EXPECT_NEAR(row[i], (*target)(i, 0, 0), 1e-12);  // on from the border, too
  EXPECT_NEAR(row[0], 1.5, 1e-12);                                             // never less than the distance from it
  rows.Read(0, 3, row);
  EXPECT_NEAR(row[4], 0.5 + 1, 1e-12);
  LevelSetRows(*make({5, 8, 8}, 0.5f, {1, 0, 0}), *target).Read(3, 3, row);  // of the same lattice
  EXPECT_NEAR(row[0], 1.5, 1e-12);
  EXPECT_NEAR(row[3], 0, 1e-12);
  VecInt3D low, high;
  rows.Reach(0, low, high);
  EXPECT_EQ(low, VecInt3D(3, 2, 2));
  EXPECT_EQ(high, VecInt3D(8, 7, 7));
  rows.Reach(0.5, low, high);
  EXPECT_EQ(low, VecInt3D(2, 1, 1));
}

// Curvature flows over level sets, and the node that runs them.

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
      for (ScalarGrid* grid : {&lower, &upper, expected.get()})
        ReinitialiseLevelSet(pool, scratch, *grid, 0, kCell, *grid);
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
  const std::uint64_t version = s.NodeOf<VolumeMesh>(s.volume)->LevelSetVersion();
  s.StepThrough(1, 4);
  EXPECT_EQ(s.Values(), first);
  EXPECT_EQ(s.NodeOf<VolumeMesh>(s.volume)->LevelSetVersion(), version) << "what stands still is smoothed once";
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
  BaseObject& csg = s.Add("csg", "Sum");
  csg.Set(CSGoperatorGrid::kFirstId, s.LinkTo(s.volume)), csg.Set(CSGoperatorGrid::kSecondId, s.LinkTo(surface));
  s.smoother.Set(LevelSetSmoother::kSourceId, s.LinkTo(s.volume));
  s.Step(2);
  EXPECT_TRUE(s.Warned("before that is smoothed; set its priority to 26"));
  s.smoother.Set(LevelSetSmoother::kSourceId, s.LinkTo(surface));
  s.Add("levelset_smoother", "Twin").Set(LevelSetSmoother::kSourceId, s.LinkTo(surface));
  s.Step(3);
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
