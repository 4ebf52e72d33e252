// Emitters in scenes: what they fill, by which settings, and that workers don't matter.

#include <gtest/gtest.h>

#include <numeric>

#include "fluids/channels/ScalarChannels.h"
#include "fluids/channels/VectorChannels.h"
#include "fluids/constraints/Constraint.h"
#include "fluids/constraints/GridValueConstraint.h"
#include "fluids/constraints/VolumeConstraint.h"
#include "fluids/emitters/EmissionHandler.h"
#include "fluids/emitters/EmissionRate.h"
#include "fluids/emitters/GridEmissionSettings.h"
#include "fluids/emitters/Grid_CellEmitter.h"
#include "fluids/emitters/ObjectGridEmitter.h"
#include "fluids/grids/Spread.h"
#include "fluids/helpers/Duration.h"
#include "fluids/operators/ChannelOperator_Math.h"
#include "fluids/volumes/VolumeBase.h"
#include "tests/support/Cells.h"
#include "tests/support/GasScene.h"
#include "tests/support/NodeBench.h"
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

TEST(ObjectGridEmitter, FillsTheCellsInsideByTheTimeAndTheFalloffs) {
  for (const std::int64_t falloff : {0, 1, 2}) {
    for (const bool curve : {true, false}) {
      EmitterScene scene;
      scene.settings->Set(GridEmissionSettings::kFalloffId, falloff);
      BaseObject& duration = scene.Add("duration", "Fading");
      duration.Set(Duration::kStartId, -1 / 24.0);
      duration.Set(Duration::kLengthId, 4 / 24.0);
      scene.settings->Set(GridEmissionSettings::kActiveInId, scene.LinkTo(duration));
      const SplineKnot knots[] = {{0, 2}, {1, 4}};
      scene.settings->Set(GridEmissionSettings::kFalloffCurveId,
                          curve ? SplineValue(std::make_shared<SplineData>(std::span(knots))) : SplineValue());
      const ScalarGrid& grid = scene.Emitted();
      const double weight = 0.75;
      const int inside = scene.ForEachInside(grid, [&](int i, int j, int k, const Vec3D& p, bool in) {
        const double depth = scene.Ball().DepthWorld(p);
        const double factor = falloff == 0   ? weight
                              : falloff == 1 ? weight * depth
                              : curve        ? weight * (2 + 2 * depth)
                                             : 1;  // without a curve nothing is weighed
        EXPECT_NEAR(grid(i, j, k), in ? 8 * scene.Dt() * factor : 0, 1e-9) << falloff << " " << curve;
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

// How single values reach the cells of channels.

using test::NodeBench;

class Emission : public testing::Test {
 protected:
  static constexpr double h = NodeBench::kCell;
  Emission() {
    smoke_->Set(ScalarGridChannel::kValueMinId, -2.0);
    smoke_->Set(ScalarGridChannel::kValueMaxId, 5.0);
    colour_->Set(VectorGridChannel::kValueMinId, Vec3D(-1));
    colour_->Set(VectorGridChannel::kValueMaxId, Vec3D(2, 3, 4));
    bench_.Fit({8, 7, 6}, {-0.5, 0, 1});
    for (ScalarGrid* grid : {&Smoke(), &Fire()}) grid->Fill(1);
    for (int c = 0; c < 3; ++c) Colour().grids[c]->Fill(1);
  }
  ScalarGrid& Smoke() { return bench_.GridOf(*smoke_); }
  ScalarGrid& Fire() { return bench_.GridOf(*fire_); }
  ChannelBase_Vector& Colour() { return bench_.Get<VectorGridChannel>(*colour_); }
  void Emit(double value, const Vec3D& p, const GridEmission& emission, const BaseObject* channel = nullptr) {
    const auto& target = bench_.Get<ChannelBase_Scalar>(channel ? *channel : *smoke_);
    CreateEmissionHandler(target)->Emit(value, p, emission, {});
  }
  // The centre of a cell.
  static Vec3D Centre(int i, int j, int k) { return Vec3D(i + 0.5, j + 0.5, k + 0.5) * h + Vec3D(-0.5, 0, 1); }

  NodeBench bench_;
  BaseObject* smoke_ = &bench_.Add("channel_scalar", "smoke");
  BaseObject* fire_ = &bench_.Add("channel_fire", "fire");
  BaseObject* colour_ = &bench_.Add("channel_vector", "colour");
};

TEST_F(Emission, ModesAddSetAndAddUpToALimit) {
  Emit(2.5, Centre(3, 2, 4), {});
  EXPECT_EQ(Smoke()(3, 2, 4), 3.5);
  Emit(2.5, Centre(3, 2, 4) + Vec3D(0.4, -0.4, 0.49) * h, {.mode = EmissionMode::Set});
  EXPECT_EQ(Smoke()(3, 2, 4), 2.5);
  Emit(2.5, Centre(1, 1, 1), {.mode = EmissionMode::AddToLimit, .scalarLimit = 3.0});
  EXPECT_EQ(Smoke()(1, 1, 1), 3);
  Emit(9, Centre(1, 1, 1), {.mode = EmissionMode::AddToLimit});  // the channel's own limit
  EXPECT_EQ(Smoke()(1, 1, 1), 5);
  Emit(0.5, Centre(1, 1, 1), {.mode = EmissionMode::AddToLimit, .scalarLimit = 3.0});
  EXPECT_EQ(Smoke()(1, 1, 1), 3) << "a limit below what is there takes it down";
  for (const Vec3D& p : {Vec3D(-1, 0.5, 1.5), Vec3D(0.2, 50, 1.5), Vec3D(0.2, 0.5, 0.2), Vec3D(1e300, 0, 0)}) {
    Emit(3, p, {});  // outside
  }
  EXPECT_EQ(test::SumOf(Smoke()), Smoke().count + 1.5 + 2);
}

TEST_F(Emission, TheChannelsLimitsHoldExceptWhenSpread) {
  Emit(100, Centre(2, 2, 2), {});
  EXPECT_EQ(Smoke()(2, 2, 2), 5);
  Emit(-100, Centre(2, 2, 2), {.mode = EmissionMode::Set});
  EXPECT_EQ(Smoke()(2, 2, 2), -2);
  Emit(100, Centre(4, 4, 4), {.spread = true});
  EXPECT_EQ(Smoke()(4, 4, 4), 101);
}

TEST_F(Emission, SpreadGivesEachCellItsShare) {
  const Vec3D p = Centre(3, 2, 1) + Vec3D(0.25, 0.5, 0.75) * h;
  Emit(16, p, {.spread = true});
  double sum = 0;
  for (int corner = 0; corner < 8; ++corner) {
    const int a = corner & 1, b = corner >> 1 & 1, c = corner >> 2;
    const double weight = (a ? 0.25 : 0.75) * 0.5 * (c ? 0.75 : 0.25);
    EXPECT_NEAR(Smoke()(3 + a, 2 + b, 1 + c), 1 + 16 * weight, 1e-13);
    sum += Smoke()(3 + a, 2 + b, 1 + c) - 1;
  }
  EXPECT_NEAR(sum, 16, 1e-12);
  Emit(8, p, {.mode = EmissionMode::Set, .spread = true});
  EXPECT_NEAR(Smoke()(3, 2, 1), 8 * 0.75 * 0.5 * 0.25, 1e-14);
}

// Workers write only into layers of their own, and visit only what may reach them.
TEST_F(Emission, AValueReachesNoLayerBeyondThoseThatItNames) {
  for (const bool spread : {false, true}) {
    for (double z = 0.55; z < 4.5; z += 0.3) {
      Smoke().Fill(0);
      const Vec3D p = Centre(3, 2, 0) + Vec3D(0.25, 0.5, z) * h;
      GridEmissionWriter writer(Smoke(), {}, {.spread = spread}, 0, 100, 100);
      const LayerRange layers = writer.LayersOf(p.z);
      EXPECT_LE(layers.end - layers.begin, spread ? 2 : 1);
      writer.Emit(16, p, layers);
      EXPECT_NEAR(test::SumOf(Smoke()), 16, 1e-12) << z << (spread ? ", spread" : "");
    }
  }
}

TEST_F(Emission, FireTakesNothingBeyondZeroToOne) {
  Fire().Fill(0);
  for (const bool spread : {false, true}) {
    Emit(7, Centre(1, 2, 3), {.mode = EmissionMode::Set, .spread = spread}, fire_);
    EXPECT_EQ(Fire()(1, 2, 3), 1);
    Emit(-7, Centre(1, 2, 3), {.mode = EmissionMode::Set, .spread = spread}, fire_);
    EXPECT_EQ(Fire()(1, 2, 3), 0);
  }
}

TEST_F(Emission, VectorsGoComponentByComponentWithTheirOwnLimits) {
  const auto handler = CreateEmissionHandler(Colour());
  handler->Emit({0.5, 9, -5}, Centre(3, 3, 3), {}, {});
  EXPECT_EQ((*Colour().grids[0])(3, 3, 3), 1.5);
  EXPECT_EQ((*Colour().grids[1])(3, 3, 3), 3);
  EXPECT_EQ((*Colour().grids[2])(3, 3, 3), -1);
  handler->Emit(Vec3D(5), Centre(2, 2, 2), {.mode = EmissionMode::AddToLimit, .vectorLimit = Vec3D(1.5, 2.5, 3.5)}, {});
  EXPECT_EQ((*Colour().grids[2])(2, 2, 2), 3.5);
  // Indices that the caller has worked out stand for the point.
  const std::int64_t indices[3] = {0, 1, 2};
  handler->Emit({0, 0.25, 0.5}, Centre(6, 6, 5), {.mode = EmissionMode::Set}, indices);
  EXPECT_EQ((*Colour().grids[1])[1], 0.25);
  EXPECT_EQ((*Colour().grids[2])[2], 0.5);
  EXPECT_EQ((*Colour().grids[0])(6, 6, 5), 1);
}

TEST(Spread, AppliesEachOperation) {
  Grid<double> grid({4, 4, 4}, kGridScratch);
  const auto at = [&](SpreadOperation operation) {
    grid.Fill(12);
    Spread(GridView<double>(grid), 4.0, 1.5, 2.0, 0.0, operation);
    return grid(1, 2, 0);  // weight 1/2
  };
  EXPECT_EQ(at(SpreadOperation::Assign), 2);
  EXPECT_EQ(at(SpreadOperation::Add), 14);
  EXPECT_EQ(at(SpreadOperation::Subtract), 10);
  EXPECT_EQ(at(SpreadOperation::Multiply), 24);
  EXPECT_EQ(at(SpreadOperation::Divide), 6);
}

TEST(Spread, KeepsToTheBordersCubeAndToItsLayers) {
  Grid<double> grid({4, 5, 6}, kGridScratch);
  grid.Fill(0);
  Spread(GridView<double>(grid), 1.0, -7.0, 99.0, 2.5, SpreadOperation::Add);
  EXPECT_EQ(grid(0, 4, 2), 0.5);
  EXPECT_EQ(grid(0, 4, 3), 0.5);
  SpreadWithin(GridView<double>(grid), 1.0, 2.0, 2.0, 2.5, SpreadOperation::Add, 3, 9);
  EXPECT_EQ(grid(2, 2, 2), 0);
  EXPECT_EQ(grid(2, 2, 3), 0.5);
  // The layers of several callers make up the whole write.
  Grid<float> parts({4, 4, 4}, kGridScratch), whole({4, 4, 4}, kGridScratch);
  parts.Fill(1), whole.Fill(1);
  Spread(GridView<float>(whole), 3.0f, 1.3, 1.6, 1.9, SpreadOperation::Assign);
  for (int k = 0; k < 4; ++k) {
    SpreadWithin(GridView<float>(parts), 3.0f, 1.3, 1.6, 1.9, SpreadOperation::Assign, k, k + 1);
  }
  for (std::int64_t c = 0; c < whole.count; ++c) EXPECT_EQ(parts[c], whole[c]);
}

// Chains of constraints, at a place and over a row.

// Multiplies by x, and ends the chain where x is above its parameter.
class Ramp final : public Constraint {
 public:
  using Constraint::Constraint;
  static constexpr int kRampEndId = 1;
  static const TypeInfo& Type() {
    static constexpr Parameter kRows[] = {FloatParameter(kRampEndId, "ramp_end", 10, "m", "Where the chain ends")};
    static const TypeInfo kType = {.id = 1999911,
                                   .resource = "zq_ramp",
                                   .kinds = kLinkHelper | kLinkConstraint,
                                   .parameters = kRows,
                                   .common = ConstraintParameters()};
    return kType;
  }
  bool ReadParameters() override {
    if (!Constraint::ReadParameters()) return false;
    end = handler.GetDouble(kRampEndId);
    return true;
  }
  bool Evaluate(const Vec3D& p, double& amount, const iBase* caller, std::int32_t worker) const override {
    ++asked;
    if (p.x > end) return false;
    amount *= Inverted() ? 1 - p.x : p.x;
    return Constraint::Evaluate(p, amount, caller, worker);
  }
  std::unique_ptr<Constraint> Clone() const override { return CloneOf(*this); }

  double end = 10;
  mutable int asked = 0;
};

class ConstraintChain : public testing::Test {
 protected:
  ConstraintChain() { bench_.factory.Add<Ramp>(); }
  Ramp& Made(const std::string& name, double end = 10, double intensity = 1) {
    BaseObject& object = bench_.Add("ramp", name);
    object.Set(Ramp::kRampEndId, end);
    object.Set(Constraint::kIntensityId, intensity);
    bench_.Link();
    chain_.push_back(&bench_.Get<Ramp>(object));
    return bench_.Get<Ramp>(object);
  }
  double At(double x, double amount = 2) {
    EvaluateChain(chain_, {x, 0, 0}, amount, nullptr, 0);
    return amount;
  }

  NodeBench bench_;
  std::vector<Constraint*> chain_;
};

TEST_F(ConstraintChain, FalseAndZeroEndItAndWhatIsDisabledIsLeftOut) {
  EXPECT_EQ(At(0.25), 2) << "without constraints the amount stays";
  Made("a", 10, 0.5);
  Ramp& second = Made("b", 3);
  Ramp& third = Made("c");
  EXPECT_EQ(At(4), 2 * 4 * 0.5);
  EXPECT_EQ(second.asked, 1);
  EXPECT_EQ(third.asked, 0);
  EXPECT_EQ(At(0), 0);
  EXPECT_EQ(second.asked, 1) << "not asked of nothing";
  for (Constraint* constraint : chain_) constraint->SetFlag(NodeEnabled, false);
  EXPECT_EQ(At(4), 2);
}

TEST_F(ConstraintChain, ARowGivesWhatItsPlacesGive) {
  Made("a", 3, 0.5);
  Made("b", 2);
  Made("c", 10, 4);
  GridSpace space;
  space.Build({16, 4, 4}, Vec3D(16, 4, 4) * 25, 0.25f, {-50, 0, 0});
  std::vector<double> amounts(16, 2.0);
  std::vector<std::uint8_t> open(16, 1);
  amounts[5] = 0, open[5] = 0;  // not asked for
  ConstraintRow row;
  row.begin = 1, row.end = 15, row.j = 1, row.k = 2;
  row.space = &space;
  row.amounts = amounts.data(), row.open = open.data();
  EvaluateChain(chain_, row, nullptr);
  for (int i = 0; i < 16; ++i) {
    double expected = i == 5 ? 0 : 2;
    if (i >= 1 && i < 15 && i != 5) EvaluateChain(chain_, row.Position(i), expected, nullptr, 0);
    EXPECT_EQ(amounts[static_cast<std::size_t>(i)], expected) << i;
  }
}

TEST_F(ConstraintChain, ARunOfParticlesGivesWhatItsParticlesGive) {
  Made("a", 3, 0.5);
  Made("b", 2);
  ParticleList list;
  list.Append(20, {});
  std::vector<Vec3D> positions;
  for (int n = 0; n < 12; ++n) positions.push_back(Vec3D(0.3 * n, 0, 0));
  std::vector<double> amounts(12, 2.0);
  std::vector<std::uint8_t> open(12, 1);
  amounts[5] = 0, open[5] = 0;
  EvaluateChain(chain_, ParticleRun{&list, 4, 12, 0, positions.data(), amounts.data(), open.data()}, nullptr);
  for (std::size_t n = 0; n < 12; ++n) {
    double expected = n == 5 ? 0 : 2;
    if (n != 5) EvaluateChain(chain_, positions[n], expected, nullptr, 0, OrlixParticle(&list, 4 + int(n)));
    EXPECT_EQ(amounts[n], expected) << n;
    EXPECT_EQ(amounts[n], n == 5 ? 0 : At(positions[n].x)) << n;
  }
}

}  // namespace
}  // namespace orlix
