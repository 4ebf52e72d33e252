// Emitters in scenes: what they fill, by which settings, and that workers don't matter.

#include <gtest/gtest.h>

#include <numeric>

#include "fluids/constraints/GridValueConstraint.h"
#include "fluids/constraints/VolumeConstraint.h"
#include "fluids/emitters/EmissionRate.h"
#include "fluids/emitters/GridEmissionSettings.h"
#include "fluids/emitters/Grid_CellEmitter.h"
#include "fluids/emitters/ObjectGridEmitter.h"
#include "fluids/helpers/Duration.h"
#include "fluids/operators/ChannelOperator_Math.h"
#include "fluids/volumes/VolumeBase.h"
#include "tests/support/Cells.h"
#include "tests/support/GasScene.h"
#include "tests/support/Workers.h"

namespace orlix {
namespace {

using test::GasScene;

// A ball that emits into a channel of a gas at rest.
class EmitterScene : public GasScene {
 public:
  explicit EmitterScene(int workers = 1) : GasScene({16, 15, 17}, workers) {
    smoke = &Add("channel_scalar", "smoke");
    smoke->Set(ScalarGridChannel::kValueMaxId, 1000.0);
    AddVolume("Ball", "sphere", Centre(), 0.28);
    settings = &Add("emission_setting", "Amount");
    settings->Set(GridEmissionSettings::kSpreadId, std::int64_t(0));
    settings->Set(GridEmissionSettings::kValueId, 8.0);
    pair = &Add("channelsettings", "Pair");
    pair->Set(ChannelPair::kChannelId, LinkTo(*smoke));
    pair->Set(ChannelPair::kSettingsId, LinkTo(*settings));
    emitter = &Add("gridemitter", "Source");
    emitter->Set(ObjectGridEmitter::kVolumeId, LinkTo(*document.FindByPath("Ball")));
    emitter->Set(ObjectGridEmitter::kPairsId, ListOf({pair}));
  }
  // Two frames: volumes have their level set from the first on.
  ScalarGrid& Emitted() {
    StepThrough(0, 1);
    return *NodeOf<ScalarGridChannel>(*smoke)->grid;
  }
  double Dt() { return scene().info.substepDuration; }
  const VolumeBase& Ball() { return *NodeOf<VolumeBase>(*document.FindByPath("Ball")); }
  // The emitter's cells: those whose corners' mean distance isn't above 0, in the channel's indices.
  template <class F>
  int ForEachInside(const ScalarGrid& grid, F&& f) {
    int count = 0;
    test::ForAll(grid.dims, [&](int i, int j, int k) {
      const Vec3D p = grid.space.SimOfVoxel(Vec3D(i + 0.5, j + 0.5, k + 0.5));
      double mean = 0;
      for (int corner = 0; corner < 8; ++corner) {
        const Vec3D offset(corner & 1 ? 0.5 : -0.5, corner & 2 ? 0.5 : -0.5, corner & 4 ? 0.5 : -0.5);
        mean += Ball().SampleWorld(p + offset * cellSize) / 8;
      }
      // Cells on the edge by a rounding error are none that a test should ask about.
      if (std::fabs(mean) < 1e-9) return;
      if (mean < 0) ++count;
      f(i, j, k, p, mean < 0);
    });
    return count;
  }

  BaseObject *smoke, *settings, *pair, *emitter;
};

TEST(ObjectGridEmitter, FillsTheCellsInsideByTheTime) {
  EmitterScene scene;
  const ScalarGrid& grid = scene.Emitted();
  const double dt = scene.Dt();
  const int inside = scene.ForEachInside(grid, [&](int i, int j, int k, const Vec3D&, bool in) {
    EXPECT_NEAR(grid(i, j, k), in ? 8 * dt : 0, 1e-12) << i << " " << j << " " << k;
  });
  EXPECT_GT(inside, 100);
}

TEST(ObjectGridEmitter, ARateReplacesTheValueAndALimitEndsTheSum) {
  EmitterScene scene;
  BaseObject& rate = scene.Add("rate", "Rate");
  rate.Set(EmissionRate::kScalarRateId, 24.0);
  BaseObject& limit = scene.Add("rate", "Limit");
  limit.Set(EmissionRate::kScalarRateId, 1.25);
  scene.settings->Set(GridEmissionSettings::kRateId, scene.LinkTo(rate));
  scene.settings->Set(GridEmissionSettings::kLimitId, scene.LinkTo(limit));
  scene.settings->Set(GridEmissionSettings::kModeId, EmissionMode::AddToLimit);
  const ScalarGrid& grid = scene.Emitted();
  const Vec3D middle = Vec3D(grid.dims) * 0.5;
  EXPECT_NEAR(grid(int(middle.x), int(middle.y), int(middle.z)), 24 * scene.Dt(), 1e-12);
  scene.Step(2);
  scene.Step(3);
  EXPECT_EQ(grid(int(middle.x), int(middle.y), int(middle.z)), 1.25);
}

TEST(ObjectGridEmitter, FalloffsGoByTheDepth) {
  for (const std::int64_t falloff : {0, 1, 2}) {
    for (const bool curve : {true, false}) {
      EmitterScene scene;
      scene.settings->Set(GridEmissionSettings::kFalloffId, falloff);
      const SplineKnot knots[] = {{0, 2}, {1, 4}};
      if (curve)
        scene.settings->Set(GridEmissionSettings::kFalloffCurveId,
                            SplineValue(std::make_shared<SplineData>(std::span(knots))));
      if (!curve) scene.settings->Set(GridEmissionSettings::kFalloffCurveId, SplineValue());
      const ScalarGrid& grid = scene.Emitted();
      const int inside = scene.ForEachInside(grid, [&](int i, int j, int k, const Vec3D& p, bool in) {
        if (!in) return;
        const double depth = scene.Ball().DepthWorld(p);
        const double factor = falloff == 0 ? 1 : falloff == 1 ? depth : curve ? 2 + 2 * depth : 1;
        EXPECT_NEAR(grid(i, j, k), 8 * scene.Dt() * factor, 1e-9) << falloff << " " << curve;
      });
      EXPECT_GT(inside, 100);
    }
  }
}

TEST(ObjectGridEmitter, DurationsStopAndWeighIt) {
  // A window that has passed, one that weighs by its half, one without an end.
  struct {
    double start, length, weight;
  } const cases[] = {{5, 1, 0}, {0, 2.0 / 24, 0.5}, {0, 0, 1}};
  for (const auto& c : cases) {
    EmitterScene scene;
    BaseObject& duration = scene.Add("duration", "When");
    duration.Set(Duration::kStartId, c.start);
    duration.Set(Duration::kLengthId, c.length);
    scene.settings->Set(GridEmissionSettings::kActiveInId, scene.LinkTo(duration));
    const ScalarGrid& grid = scene.Emitted();
    const double time = scene.scene().info.time, dt = scene.Dt();
    const double weight = c.length > 0 && c.weight > 0 ? 1 - (time - dt) / c.length : c.weight;
    const Vec3D middle = Vec3D(grid.dims) * 0.5;
    EXPECT_NEAR(grid(int(middle.x), int(middle.y), int(middle.z)), 8 * dt * weight, 1e-6) << c.start;
  }
}

TEST(ObjectGridEmitter, ConstraintsConfineIt) {
  EmitterScene scene;
  // Noise would do; a volume is plain: only where a box is.
  scene.AddVolume("Half", "box", scene.Centre() + Vec3D(0.5, 0, 0), 0.5);
  BaseObject& confine = scene.Add("constraint_volume", "Right half");
  confine.Set(VolumeConstraint::kVolumeId, scene.LinkTo(*scene.document.FindByPath("Half")));
  confine.Set(Constraint::kIntensityId, 0.5);
  scene.emitter->Set(kConstraintsId, scene.ListOf({&confine}));
  const ScalarGrid& grid = scene.Emitted();
  int right = 0, left = 0;
  scene.ForEachInside(grid, [&](int i, int j, int k, const Vec3D& p, bool in) {
    if (!in || std::fabs(p.x - scene.Centre().x) < scene.cellSize) return;
    const bool isRight = p.x > scene.Centre().x;
    EXPECT_NEAR(grid(i, j, k), isRight ? 4 * scene.Dt() : 0, 1e-12);
    ++(isRight ? right : left);
  });
  EXPECT_GT(right, 30);
  EXPECT_GT(left, 30);
}

TEST(ObjectGridEmitter, ASolverTakesTheValueAsExpansion) {
  EmitterScene scene;
  scene.pair->Set(ChannelPair::kChannelId, scene.LinkTo(*scene.fluid));
  scene.StepThrough(0, 1);
  // What the projection took is cleared; the flow goes outwards from the ball.
  const ScalarGrid& u = *scene.Solver().velocity.grids[0];
  const int j = u.dims.y / 2, k = u.dims.z / 2;
  EXPECT_EQ(scene.Solver().divergenceSource.grid->data[u.dims.x / 2], 0);
  EXPECT_GT(std::fabs(u(3, j, k)) + std::fabs(u(u.dims.x - 4, j, k)), 0);
}

// --- cells -----------------------------------------------------------------------------------------------------------

class CellScene : public GasScene {
 public:
  explicit CellScene(int workers = 1) : GasScene({14, 13, 15}, workers) {
    smoke = &Add("channel_scalar", "smoke");
    smoke->Set(ScalarGridChannel::kValueMaxId, 1000.0);
    op = &Add("channelop_math", "Add one");
    op->Set(ChannelOperator_Math::kValueId, 1.0);
    cells = &Add("grid_celliterator", "Cells");
    cells->Set(Grid_CellEmitter::kChannelId, LinkTo(*smoke));
    cells->Set(Grid_CellEmitter::kOperatorsId, ListOf({op, op}));
  }
  ScalarGrid& Visited() {
    StepThrough(0, 1);
    return *NodeOf<ScalarGridChannel>(*smoke)->grid;
  }
  BaseObject *smoke, *op, *cells;
};

TEST(Grid_CellEmitter, VisitsEachInnerCellOnceForEachOperator) {
  for (const int workers : {1, 3}) {
    CellScene scene(workers);
    const ScalarGrid& grid = scene.Visited();
    int others = 0;
    EXPECT_GT(test::ForInner(grid.dims, [&](int i, int j, int k) { others += grid(i, j, k) != 2; }), 1000);
    EXPECT_EQ(others, 0);
    // None on the border.
    EXPECT_EQ(test::SumOf(grid), 2.0 * CellCount(grid.dims - VecInt3D(2, 2, 2)));
  }
}

TEST(Grid_CellEmitter, ConstraintsWeighAndSkipCellsAtTheirPlaces) {
  for (const bool listed : {true, false}) {  // an empty list takes all constraints of the scene
    CellScene scene;
    scene.AddVolume("Right", "box", scene.Centre() + Vec3D(0.5, 0, 0), 0.5);
    BaseObject& half = scene.Add("constraint_volume", "Half");
    half.Set(VolumeConstraint::kVolumeId, scene.LinkTo(*scene.document.FindByPath("Right")));
    half.Set(Constraint::kIntensityId, 0.25);
    if (listed) scene.cells->Set(kConstraintsId, scene.ListOf({&half}));
    const ScalarGrid& grid = scene.Visited();
    ASSERT_NE(grid.space.simMin.x, 0);  // places are those of the scene
    for (int i = 1; i < grid.dims.x - 1; ++i) {
      const double x = grid.space.SimOfVoxel(Vec3D(i + 0.5, 0, 0)).x - scene.Centre().x;
      if (std::fabs(x) > scene.cellSize) {
        EXPECT_EQ(grid(i, 5, 5), x < 0 ? 0 : 0.5) << i;
      }
    }
  }
}

// --- workers ---------------------------------------------------------------------------------------------------------

TEST(EmitterThreads, AnyNumberOfWorkersGivesTheSameBits) {
  for (const std::int64_t mode : {0, 1, 2}) {
    for (const std::int64_t spread : {0, 1}) {
      const auto values = test::SameForAnyWorkers([&](int workers) {
        EmitterScene scene(workers);
        // Another pair into the same channel, so that what meets in a cell meets from two sides.
        BaseObject& other = scene.Add("emission_setting", "Other");
        other.Set(GridEmissionSettings::kModeId, std::int64_t(1) - (mode == 1 ? 1 : 0));
        other.Set(GridEmissionSettings::kSpreadId, spread);
        other.Set(GridEmissionSettings::kFalloffId, GridEmissionSettings::Falloff::Depth);
        other.Set(GridEmissionSettings::kValueId, 3.0);
        BaseObject& second = scene.Add("channelsettings", "Second");
        second.Set(ChannelPair::kChannelId, scene.LinkTo(*scene.smoke));
        second.Set(ChannelPair::kSettingsId, scene.LinkTo(other));
        scene.settings->Set(GridEmissionSettings::kModeId, mode);
        scene.settings->Set(GridEmissionSettings::kSpreadId, spread);
        scene.emitter->Set(ObjectGridEmitter::kPairsId, scene.ListOf({scene.pair, &second}));
        // Half a cell aside: a spread value meets eight cells.
        scene.Geometry("Ball").Set(kPositionId, scene.Centre() + Vec3D(0.3, 0.2, 0.4) * scene.cellSize);
        return test::ValuesOf(scene.Emitted());
      });
      EXPECT_GT(std::accumulate(values.begin(), values.end(), 0.0), 1) << "mode " << mode << ", spread " << spread;
    }
  }
}

// Where nothing is yet; a spread value reaches into the next rows before their turn comes.
TEST(EmitterThreads, AConstraintSeesWhatTheFilledChannelHeldBefore) {
  const auto sums = test::SameForAnyWorkers([](int workers) {
    EmitterScene scene(workers);
    scene.settings->Set(GridEmissionSettings::kSpreadId, std::int64_t(1));
    BaseObject& empty = scene.Add("constraint_gridvalue", "Empty");
    empty.Set(GridValueConstraint::kChannelId, scene.LinkTo(*scene.smoke));
    empty.Set(GridValueConstraint::kTestId, GridValueConstraint::Test::Equal);
    empty.Set(GridValueConstraint::kUseCurveId, std::int64_t(0));
    scene.emitter->Set(kConstraintsId, scene.ListOf({&empty}));
    scene.Geometry("Ball").Set(kPositionId, scene.Centre() + Vec3D(0.3, 0.2, 0.4) * scene.cellSize);
    const ScalarGrid& grid = scene.Emitted();
    const int inside = scene.ForEachInside(grid, [](int, int, int, const Vec3D&, bool) {});
    return std::vector<double>{test::SumOf(grid), 8 * scene.Dt() * inside};
  });
  EXPECT_GT(sums[1], 10);
  EXPECT_NEAR(sums[0], sums[1], 0.02 * sums[1]);
}

}  // namespace
}  // namespace orlix
