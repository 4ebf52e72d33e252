// Emitters in scenes: what they fill, by which settings, and that workers don't matter.

#include <gtest/gtest.h>

#include <numeric>

#include "fluids/constraints/GridValueConstraint.h"
#include "fluids/constraints/VolumeConstraint.h"
#include "fluids/dynamics/Force.h"
#include "fluids/dynamics/VelocityGridEmitter.h"
#include "fluids/emitters/EmissionRate.h"
#include "fluids/emitters/GridEmissionSettings.h"
#include "fluids/emitters/Grid_CellEmitter.h"
#include "fluids/emitters/ObjectGridEmitter.h"
#include "fluids/forces/Force_Gravity.h"
#include "fluids/helpers/Duration.h"
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

TEST(ObjectGridEmitter, AnAmountPerSubstepIgnoresItsLength) {
  EmitterScene scene;
  scene.settings->Set(GridEmissionSettings::kPerStepId, std::int64_t(1));
  scene.settings->Set(GridEmissionSettings::kModeId, EmissionMode::Set);
  const ScalarGrid& grid = scene.Emitted();
  const int inside = scene.ForEachInside(
      grid, [&](int i, int j, int k, const Vec3D&, bool in) { EXPECT_EQ(grid(i, j, k), in ? 8 : 0); });
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

TEST(ObjectGridEmitter, AVectorTargetTakesNothing) {
  EmitterScene scene;
  BaseObject& colour = scene.Add("channel_vector", "colour");
  scene.pair->Set(ChannelPair::kChannelId, scene.LinkTo(colour));
  scene.StepThrough(0, 1);
  const auto& grids = scene.NodeOf<VectorGridChannel>(colour)->grids;
  for (std::int64_t c = 0; c < grids[0]->count; ++c) ASSERT_EQ((*grids[0])[c], 0);
  EXPECT_FALSE(scene.scene().failure());
}

TEST(ObjectGridEmitter, RestsWithoutAVolumeOrPairs) {
  for (const int missing : {1002, 1000}) {
    EmitterScene scene;
    scene.emitter->Set(missing, missing == 1002 ? Value(LinkValue{}) : scene.ListOf({}));
    const ScalarGrid& grid = scene.Emitted();
    EXPECT_EQ(test::SumOf(grid), 0);
    const auto& told = scene.observer.warnings.all();
    EXPECT_TRUE(std::any_of(told.begin(), told.end(), [&](const Warning& warning) {
      return warning.node == "Scene/Source" && warning.key == (missing == 1002 ? "no-volume" : "no-pairs");
    }));
  }
}

// --- cells -----------------------------------------------------------------------------------------------------------

// Adds the weight, and the linear index of what it was called for.
class AddWeight final : public ChannelOperator {
 public:
  using ChannelOperator::ChannelOperator;
  static const TypeInfo& Type() {
    static const TypeInfo kType = [] {
      TypeInfo type;
      type.id = 1999901;
      type.resource = "zq_add_weight";
      type.kinds = kLinkChannelOperator | kLinkHelper;
      type.common = CommonNodeParameters();
      return type;
    }();
    return kType;
  }
  void ProcessRow(const ChannelRow& row) override {
    ScalarGrid& grid = *scalarTarget_->grid;
    for (std::int32_t i = row.begin; i < row.end; ++i) {
      if (row.weights[i] == 0) continue;
      grid[row.index + i] += row.weights[i];
      if (grid.Index(i, row.j, row.k) != row.index + i) grid[row.index + i] = -1;
    }
  }
};

// Lets pass where x is above a place, at half strength.
class RightHalf final : public Constraint {
 public:
  using Constraint::Constraint;
  static const TypeInfo& Type() {
    static const TypeInfo kType = {.id = 1999902,
                                   .resource = "zq_right_half",
                                   .kinds = kLinkHelper | kLinkConstraint,
                                   .common = ConstraintParameters()};
    return kType;
  }
  bool Evaluate(const Vec3D& position, double& amount, const iBase* caller, std::int32_t worker) const override {
    if (position.x < 0.5) {
      amount = 0;
      return false;
    }
    return Constraint::Evaluate(position, amount, caller, worker);
  }
  std::unique_ptr<Constraint> Clone() const override { return CloneOf(*this); }
};

class CellScene : public GasScene {
 public:
  explicit CellScene(int workers = 1) : GasScene({14, 13, 15}, workers) {
    factory.Add<AddWeight>();
    factory.Add<RightHalf>();
    smoke = &Add("channel_scalar", "smoke");
    smoke->Set(ScalarGridChannel::kValueMaxId, 1000.0);
    op = &Add("add_weight", "Op");
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
    EXPECT_GT(test::ForInner(grid.dims, [&](int i, int j, int k) { EXPECT_EQ(grid(i, j, k), 2); }), 1000);
    // None on the border.
    EXPECT_EQ(test::SumOf(grid), 2.0 * CellCount(grid.dims - VecInt3D(2, 2, 2)));
  }
}

TEST(Grid_CellEmitter, ConstraintsWeighAndSkipCellsAtTheirPlaces) {
  for (const bool listed : {true, false}) {  // an empty list takes all constraints of the scene
    CellScene scene;
    BaseObject& half = scene.Add("right_half", "Half");
    half.Set(Constraint::kIntensityId, 0.25);
    if (listed) scene.cells->Set(kConstraintsId, scene.ListOf({&half}));
    const ScalarGrid& grid = scene.Visited();
    ASSERT_NE(grid.space.simMin.x, 0);  // places are those of the scene
    for (int i = 1; i < grid.dims.x - 1; ++i) {
      const double x = grid.space.SimOfVoxel(Vec3D(i + 0.5, 0, 0)).x;
      EXPECT_EQ(grid(i, 5, 5), x < 0.5 ? 0 : 0.5) << i;
    }
  }
}

TEST(Grid_CellEmitter, RestsWithoutOperators) {
  CellScene scene;
  scene.cells->Set(Grid_CellEmitter::kOperatorsId, scene.ListOf({}));
  const ScalarGrid& grid = scene.Visited();
  EXPECT_EQ(test::SumOf(grid), 0);
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

// --- forces ----------------------------------------------------------------------------------------------------------

TEST(VelocityGridEmitter, AnEvenForceReachesEachOpenFaceByItsShare) {
  GasScene scene({14, 14, 14});
  BaseObject& wind = scene.Add("force_gravity", "Wind");
  wind.Set(Force_Gravity::kDirectionId, Vec3D(1, 2, 3));
  scene.AddObstacle("Post", "box", scene.Centre(), 0.2);
  scene.StepThrough(0, 1);
  FluidSolver& solver = scene.Solver();
  scene.scene().SetStage(kStageStart);
  scene.scene().EvaluateStage();
  solver.SetFlag(NodeActive, true);
  for (auto& grid : solver.velocity.grids) grid->Fill(0);
  solver.velocityEmitter->Emit();
  ASSERT_TRUE(solver.velocityEmitter->IsActive());
  const double dt = scene.scene().info.substepDuration;
  int open = 0, closed = 0;
  for (int axis = 0; axis < 3; ++axis) {
    const ScalarGrid& v = *solver.velocity.grids[axis];
    const auto share = solver.fractions.View(axis, 1);
    test::ForBox({3, 3, 3}, {11, 11, 11}, [&](int i, int j, int k) {
      const double f = share(i, j, k);
      if (f > 0 && f < 1) return;  // beside it a cell may be closed all around
      EXPECT_NEAR(v(i, j, k), f == 0 ? 0 : (axis + 1) * dt, 1e-12) << axis;
      ++(f == 0 ? closed : open);
    });
  }
  EXPECT_GT(open, 500);
  EXPECT_GT(closed, 20);
}

}  // namespace
}  // namespace orlix
