// What each constraint makes of an amount: its ends, its middle, inverted, and without what it needs.

#include <gtest/gtest.h>

#include "fluids/channels/ScalarChannels.h"
#include "fluids/constraints/ChannelAverageConstraint.h"
#include "fluids/constraints/CoffeeConstraint.h"
#include "fluids/constraints/Constraint.h"
#include "fluids/constraints/GradientConstraint.h"
#include "fluids/constraints/GridValueConstraint.h"
#include "fluids/constraints/NoiseConstraint.h"
#include "fluids/constraints/RowWeights.h"
#include "fluids/constraints/VolumeConstraint.h"
#include "fluids/constraints/VoxelDistanceConstraint.h"
#include "fluids/particles/ParticleGroup.h"
#include "fluids/volumes/AlignmentVector3D.h"
#include "fluids/volumes/VolumeBase.h"
#include "fluids/volumes/VolumeMesh.h"
#include "tests/support/NodeBench.h"
#include "tests/support/TestScene.h"

namespace orlix {
namespace {

using test::FillCells;
using test::NodeBench;

struct Outcome {
  double amount = 1;
  bool goesOn = false;
};

Outcome Ask(NodeBench& bench, const BaseObject& object, const Vec3D& position, double amount = 1) {
  bench.Link();
  auto& constraint = bench.Get<Constraint>(object);
  constraint.Prepare(nullptr);
  Outcome outcome{amount};
  outcome.goesOn = constraint.Evaluate(position, outcome.amount, nullptr, 0);
  constraint.Finish();
  return outcome;
}

// Every constraint with something to act on: a channel, a volume, an object.
class EveryConstraint : public testing::TestWithParam<const char*> {
 protected:
  EveryConstraint() {
    object_ = &bench_.Add(GetParam(), "constraint");
    channel_ = &bench_.Add("channel_scalar", "smoke");
    volume_ = &bench_.Add("volume", "volume");
    BaseObject& sphere = bench_.Add("sphere", "ball");
    sphere.Set(kPositionId, Vec3D(100, 100, 100));
    volume_->Set(VolumeBase::kObjectId, NodeBench::LinkTo(sphere));
    place_ = &sphere;
  }
  void Connect() {
    const std::string type = GetParam();
    if (type == "constraint_gridaverage" || type == "constraint_gridvalue")
      object_->Set(GridValueConstraint::kChannelId, NodeBench::LinkTo(*channel_));
    if (type == "constraint_volume") object_->Set(VolumeConstraint::kVolumeId, NodeBench::LinkTo(*volume_));
    if (type == "constraint_voxeldistance")
      object_->Set(VoxelDistanceConstraint::kReferenceId, NodeBench::LinkTo(*place_));
    if (type == "constraint_noise") object_->Set(NoiseConstraint::kFeatureSizeId, 40.0);
    if (type == "constraint_coffee") {
      object_->Set(C4D_CoffeeGui::kScriptId,
                   std::string("main(op) { return physical_pos.x < 0.5 ? 0 : source_value + physical_pos.y; }"));
    }
    if (type == "constraint_gridaverage") object_->Set(ChannelAverageConstraint::kThresholdId, 0.0);
    Ready();
  }
  void Ready() {
    bench_.Fit({9, 8, 7});
    FillCells(bench_.GridOf(*channel_), [](int i, int j, int k) { return 0.02 * (i + j + k); });
    auto& mesh = bench_.Get<VolumeMesh>(*volume_);
    mesh.Prepare();
    ProcessData data;
    mesh.Process(data);
  }
  NodeBench bench_;
  BaseObject *object_, *channel_, *volume_, *place_;
};

TEST_P(EveryConstraint, ARowAsksTheSameAsItsPlaces) {
  object_->Set(Constraint::kIntensityId, 0.75);
  Connect();
  auto& constraint = bench_.Get<Constraint>(*object_);
  constraint.Prepare(nullptr);
  const GridSpace& space = bench_.GridOf(*channel_).space;
  double amounts[9];
  std::uint8_t open[9];
  int checked = 0, changed = 0;
  for (int k = 0; k < 7; ++k) {
    for (int i = 0; i < 9; ++i) amounts[i] = i == 4 ? 0 : 0.5, open[i] = i != 4;
    const ConstraintRow row{1, 8, 3, k, 0, &space, amounts, open};
    constraint.EvaluateRow(row, nullptr);
    for (int i = 1; i < 8; ++i) {
      if (i == 4) continue;
      double amount = 0.5;
      const bool goesOn = constraint.Evaluate(row.Position(i), amount, nullptr, 0);
      EXPECT_NEAR(amounts[i], amount, 1e-12) << i << " " << k;
      EXPECT_EQ(open[i] != 0, goesOn) << i << " " << k;
      ++checked;
      changed += amount != 0.5;
    }
    EXPECT_EQ(amounts[4], 0);
    EXPECT_EQ(amounts[0], 0.5);
    EXPECT_EQ(amounts[8], 0.5);
  }
  EXPECT_EQ(checked, 42);
  EXPECT_GT(changed, 0);
}

TEST_P(EveryConstraint, IntensityEntersOnce) {
  Connect();
  const Vec3D place{1.1, 1.0, 0.9};
  const Outcome full = Ask(bench_, *object_, place);
  object_->Set(Constraint::kIntensityId, 0.25);
  const Outcome quarter = Ask(bench_, *object_, place);
  EXPECT_DOUBLE_EQ(quarter.amount, 0.25 * full.amount);
  EXPECT_GT(full.amount, 0);
  object_->Set(Constraint::kIntensityId, 0.0);
  EXPECT_EQ(Ask(bench_, *object_, place).amount, 0);
}

TEST_P(EveryConstraint, WithoutItsLinkNothingIsStopped) {
  const std::string type = GetParam();
  if (type == "constraint_noise") object_->Set(NoiseConstraint::kFeatureSizeId, 0.0);
  if (type == "constraint_gradient") object_->Set(GradientConstraint::kGradientId, Value());
  if (type == "constraint_coffee") object_->Set(C4D_CoffeeGui::kScriptId, std::string("main(op) { return 1 }"));
  Ready();
  const Outcome outcome = Ask(bench_, *object_, {0.5, 0.5, 0.5}, 0.75);
  EXPECT_TRUE(outcome.goesOn);
  EXPECT_EQ(outcome.amount, 0.75);
}

INSTANTIATE_TEST_SUITE_P(Types, EveryConstraint,
                         testing::Values("constraint_coffee", "constraint_gridaverage", "constraint_gradient",
                                         "constraint_gridvalue", "constraint_noise", "constraint_volume",
                                         "constraint_voxeldistance"),
                         [](const auto& type) { return std::string(type.param).substr(11); });

TEST(ChannelAverage, IsTheMeanOfWhatIsAboveZeroOrTheLastOne) {
  NodeBench bench;
  BaseObject &constraint = bench.Add("constraint_gridaverage", "c"), &channel = bench.Add("channel_scalar", "s");
  constraint.Set(ChannelAverageConstraint::kChannelId, NodeBench::LinkTo(channel));
  constraint.Set(ChannelAverageConstraint::kThresholdId, 0.25);
  channel.Set(ScalarGridChannel::kValueMaxId, 2.0);
  bench.Fit({4, 4, 4});
  FillCells(bench.GridOf(channel), [](int i, int, int) { return i == 0 ? 1.0 : i == 1 ? 0.5 : -3.0; });
  EXPECT_DOUBLE_EQ(Ask(bench, constraint, {}).amount, 0.375);  // 0.75 of 2
  constraint.Set(Constraint::kInvertId, std::int64_t{1});
  EXPECT_DOUBLE_EQ(Ask(bench, constraint, {}).amount, 0.625);
  // Below the threshold the chain ends and the amount stays.
  constraint.Set(ChannelAverageConstraint::kThresholdId, 0.8);
  const Outcome below = Ask(bench, constraint, {}, 0.9);
  EXPECT_FALSE(below.goesOn);
  EXPECT_EQ(below.amount, 0.9);
  constraint.Set(Constraint::kInvertId, std::int64_t{0});
  constraint.Set(ChannelAverageConstraint::kThresholdId, 0.0);
  bench.GridOf(channel).Fill(1.0);
  EXPECT_DOUBLE_EQ(Ask(bench, constraint, {}).amount, 0.5);
  bench.GridOf(channel).Fill(0.0);
  EXPECT_DOUBLE_EQ(Ask(bench, constraint, {}).amount, 0.25) << "the last mean stays, normalised once more";
}

TEST(VoxelDistance, FallsFromTheObjectToItsDistance) {
  NodeBench bench;
  BaseObject &constraint = bench.Add("constraint_voxeldistance", "c"), &centre = bench.Add("null", "n");
  centre.Set(kPositionId, Vec3D(100, 0, 0));
  constraint.Set(VoxelDistanceConstraint::kReferenceId, NodeBench::LinkTo(centre));
  constraint.Set(VoxelDistanceConstraint::kDistanceId, 200.0);
  EXPECT_DOUBLE_EQ(Ask(bench, constraint, {1, 0, 0}).amount, 1);
  EXPECT_DOUBLE_EQ(Ask(bench, constraint, {1, 0.5, 0}).amount, 0.75);
  EXPECT_FALSE(Ask(bench, constraint, {1, 2, 0}).goesOn);
  EXPECT_EQ(Ask(bench, constraint, {9, 9, 9}).amount, 0);
  constraint.Set(Constraint::kInvertId, std::int64_t{1});
  EXPECT_EQ(Ask(bench, constraint, {1, 0, 0}).amount, 0);
  EXPECT_FALSE(Ask(bench, constraint, {1, 0, 0}).goesOn);
  EXPECT_DOUBLE_EQ(Ask(bench, constraint, {1, 2, 0}).amount, 1);
  // No distance at all: nowhere but at the centre would differ.
  constraint.Set(VoxelDistanceConstraint::kDistanceId, 0.0);
  EXPECT_EQ(Ask(bench, constraint, {1, 0, 0}).amount, 1);
  EXPECT_EQ(Ask(bench, constraint, {1, 0.1, 0}).amount, 1);
}

TEST(Gradient, FollowsTheAxisOfItsObject) {
  NodeBench bench;
  BaseObject &constraint = bench.Add("constraint_gradient", "c"), &frame = bench.Add("null", "n");
  frame.Set(kPositionId, Vec3D(0, 50, 0));
  frame.Set(kRotationId, Vec3D(0, 0, 90));
  constraint.Set(GradientConstraint::kReferenceId, NodeBench::LinkTo(frame));
  constraint.Set(GradientConstraint::kAxisId, GradientConstraint::Axis::X);
  constraint.Set(GradientConstraint::kDistanceId, 100.0);
  // The frame's x is the world's y; t is the squared share of the distance.
  EXPECT_NEAR(Ask(bench, constraint, {7, 1.0, 7}).amount, 0.25, 1e-12);
  EXPECT_NEAR(Ask(bench, constraint, {7, 0.0, 7}).amount, 0.25, 1e-12);
  EXPECT_NEAR(Ask(bench, constraint, {7, 30, 7}).amount, 1, 1e-12);
  EXPECT_FALSE(Ask(bench, constraint, {0, 0.5, 0}).goesOn);
  constraint.Set(GradientConstraint::kAxisId, GradientConstraint::Axis::Radial);
  constraint.Set(Constraint::kInvertId, std::int64_t{1});
  EXPECT_NEAR(Ask(bench, constraint, {0.3, 0.9, 0}).amount, 0.75, 1e-12);
  // The length of an alignment goes before.
  BaseObject& alignment = bench.Add("alignment", "a");
  alignment.Set(AlignmentVector3D::kModeId, AlignmentVector3D::Vector);
  alignment.Set(AlignmentVector3D::kVectorId, Vec3D(0, 0, 0.5));
  constraint.Set(GradientConstraint::kAlignmentId, NodeBench::LinkTo(alignment));
  EXPECT_NEAR(Ask(bench, constraint, {3, 4, 5}).amount, 0.75, 1e-12);
}

struct ValueCase {
  std::int64_t test;
  double value, low, high, expected;
};

class GridValue : public testing::TestWithParam<ValueCase> {};

TEST_P(GridValue, PassesItsTestAndFollowsTheCurve) {
  NodeBench bench;
  BaseObject &constraint = bench.Add("constraint_gridvalue", "c"), &channel = bench.Add("channel_scalar", "s");
  constraint.Set(GridValueConstraint::kChannelId, NodeBench::LinkTo(channel));
  constraint.Set(GridValueConstraint::kTestId, GetParam().test);
  constraint.Set(GridValueConstraint::kLowId, GetParam().low);
  constraint.Set(GridValueConstraint::kHighId, GetParam().high);
  channel.Set(ScalarGridChannel::kValueMaxId, 4.0);
  bench.Fit({4, 4, 4});
  bench.GridOf(channel).Fill(GetParam().value * 4);
  const Outcome outcome = Ask(bench, constraint, {0.5, 0.5, 0.5});
  EXPECT_NEAR(outcome.amount, GetParam().expected < 0 ? 0 : GetParam().expected, 1e-7);
  EXPECT_EQ(outcome.goesOn, GetParam().expected >= 0);
  // Inversion turns the curve, not the test.
  constraint.Set(Constraint::kInvertId, std::int64_t{1});
  const Outcome inverted = Ask(bench, constraint, {0.5, 0.5, 0.5});
  EXPECT_NEAR(inverted.amount, GetParam().expected < 0 ? 0 : 1 - GetParam().expected, 1e-7);
  constraint.Set(GridValueConstraint::kUseCurveId, std::int64_t{0});
  EXPECT_EQ(Ask(bench, constraint, {0.5, 0.5, 0.5}).amount, GetParam().expected < 0 ? 0 : 1);
}

// expected is the curve's value; -1 where the test fails.
INSTANTIATE_TEST_SUITE_P(Tests, GridValue,
                         testing::Values(ValueCase{0, 0.5, 0.5, 1, 0.5}, ValueCase{0, 0.25, 0.5, 1, -1},
                                         ValueCase{1, 0.25, 0.5, 1, 0.25}, ValueCase{1, 0.5, 0.5, 1, -1},
                                         ValueCase{2, 0.125, 0.25, 0.5, 0.5}, ValueCase{2, 0.75, 0.25, 0.5, 0.5},
                                         ValueCase{2, 0.25, 0.25, 0.5, -1}, ValueCase{2, 0.5, 0.25, 0.5, -1},
                                         ValueCase{3, 0.25, 0.25, 0.5, 0}, ValueCase{3, 0.375, 0.25, 0.5, 0.5},
                                         ValueCase{3, 0.5, 0.25, 0.5, 1}, ValueCase{3, 0.75, 0.25, 0.5, -1},
                                         ValueCase{3, 0.25, 0.25, 0.25, 1}));

TEST(GridValueVector, CountsTheLength) {
  NodeBench bench;
  BaseObject &constraint = bench.Add("constraint_gridvalue", "c"), &channel = bench.Add("channel_vector", "v");
  constraint.Set(GridValueConstraint::kChannelId, NodeBench::LinkTo(channel));
  bench.Fit({4, 4, 4});
  auto& grids = bench.Get<VectorGridChannel>(channel).grids;
  grids[0]->Fill(3), grids[1]->Fill(0), grids[2]->Fill(-4);
  EXPECT_NEAR(Ask(bench, constraint, {0.5, 0.5, 0.5}).amount, 0.5, 1e-7);
}

TEST(NoiseConstraint, ClipsAndContrastSpanTheWholeRange) {
  NodeBench bench;
  BaseObject& constraint = bench.Add("constraint_noise", "c");
  constraint.Set(NoiseConstraint::kFeatureSizeId, 10.0);
  constraint.Set(NoiseConstraint::kLowClipId, 0.4);
  constraint.Set(NoiseConstraint::kHighClipId, 0.6);
  int none = 0, all = 0, between = 0;
  for (int i = 0; i < 500; ++i) {
    const Outcome o = Ask(bench, constraint, {0.031 * i, 0.3, 0.7});
    EXPECT_GE(o.amount, 0);
    EXPECT_LE(o.amount, 1);
    EXPECT_EQ(o.goesOn, o.amount > 0);
    none += o.amount == 0, all += o.amount == 1, between += o.amount > 0 && o.amount < 1;
  }
  EXPECT_GT(none, 20);
  EXPECT_GT(all, 20);
  EXPECT_GT(between, 100);
  constraint.Set(NoiseConstraint::kBrightnessId, -1.0);
  constraint.Set(Constraint::kInvertId, std::int64_t{1});
  // Nothing is left of the noise: the chain ends before the inversion.
  const Outcome o = Ask(bench, constraint, {0.123, 0.4, 0.6});
  EXPECT_EQ(o.amount, 0);
  EXPECT_FALSE(o.goesOn);
}

TEST(NoiseConstraint, ChangesWithTimeBySpeedAlone) {
  NodeBench bench;
  BaseObject& constraint = bench.Add("constraint_noise", "c");
  constraint.Set(NoiseConstraint::kFeatureSizeId, 10.0);
  const double still = Ask(bench, constraint, {0.123, 0.4, 0.6}).amount;
  bench.scene().info.time = 3.3;
  EXPECT_EQ(Ask(bench, constraint, {0.123, 0.4, 0.6}).amount, still);
  constraint.Set(NoiseConstraint::kSpeedId, 1.0);
  EXPECT_NE(Ask(bench, constraint, {0.123, 0.4, 0.6}).amount, still);
  constraint.Set(NoiseConstraint::kSpeedId, 0.0);
  constraint.Set(NoiseConstraint::kSeedId, std::int64_t{7});
  EXPECT_NE(Ask(bench, constraint, {0.123, 0.4, 0.6}).amount, still);
}

TEST(VolumeConstraint, ActsInsideAndByDepth) {
  NodeBench bench;
  BaseObject &constraint = bench.Add("constraint_volume", "c"), &volume = bench.Add("volume", "v"),
             &ball = bench.Add("sphere", "ball");
  ball.Set(kPositionId, Vec3D(100, 100, 100));
  volume.Set(VolumeBase::kObjectId, NodeBench::LinkTo(ball));
  constraint.Set(VolumeConstraint::kVolumeId, NodeBench::LinkTo(volume));
  bench.Link();
  auto& mesh = bench.Get<VolumeMesh>(volume);
  mesh.Prepare();
  ProcessData data;
  mesh.Process(data);
  ASSERT_TRUE(mesh.HasLevelSet());
  const Vec3D centre{1, 1, 1}, outside{3, 1, 1};
  EXPECT_EQ(Ask(bench, constraint, centre).amount, 1);
  EXPECT_EQ(Ask(bench, constraint, outside).amount, 0);
  EXPECT_FALSE(Ask(bench, constraint, outside).goesOn);
  constraint.Set(Constraint::kInvertId, std::int64_t{1});
  EXPECT_EQ(Ask(bench, constraint, centre).amount, 0);
  EXPECT_EQ(Ask(bench, constraint, outside).amount, 1);
  constraint.Set(Constraint::kInvertId, std::int64_t{0});
  constraint.Set(VolumeConstraint::kUseCurveId, std::int64_t{1});
  const double deep = Ask(bench, constraint, centre).amount;
  EXPECT_NEAR(deep, mesh.DepthWorld(centre), 1e-6);
  const double shallow = Ask(bench, constraint, {1.7, 1, 1}).amount;
  EXPECT_LT(shallow, deep);
  // An offset of four cells moves the surface out by a metre.
  constraint.Set(VolumeConstraint::kUseCurveId, std::int64_t{0});
  constraint.Set(VolumeConstraint::kOffsetId, 4.0);
  const double surface = mesh.SampleWorld({2.2, 1, 1});
  ASSERT_GT(surface, 0);
  ASSERT_LT(surface, 1);
  EXPECT_EQ(Ask(bench, constraint, {2.2, 1, 1}).amount, 1);
}

// A liquid, as far as a constraint sees it: a plane at y = 1 m.
class Pond : public iSolver {
 public:
  Pond(BaseList2D* object, OrlixScene& owner) : iSolver(object, owner) {
    surface_ = std::make_unique<ScalarGrid>(VecInt3D(8, 8, 8), Vec3D(200), 0.25f, kGridLevelset, Vec3D());
    FillCells(*surface_, [](int, int j, int) { return (j + 0.5) * 0.25 - 1; });
  }
  static const TypeInfo& Type() {
    static const TypeInfo kType = [] {
      TypeInfo type;
      type.id = 990001, type.resource = "zq_pond", type.kinds = kLinkSolver, type.common = CommonNodeParameters();
      return type;
    }();
    return kType;
  }
  double SquaredSpeed() const override { return 0; }
  iBase* DivergenceSource() override { return nullptr; }
  const ScalarGrid* GetSurfaceGrid() const override { return surface_.get(); }

 private:
  std::unique_ptr<ScalarGrid> surface_;
};

TEST(VolumeConstraint, ActsBelowALiquidsSurface) {
  NodeBench bench;
  bench.factory.Add<Pond>();
  BaseObject &constraint = bench.Add("constraint_volume", "c"), &pond = bench.Add("pond", "p");
  constraint.Set(VolumeConstraint::kVolumeId, NodeBench::LinkTo(pond));
  EXPECT_EQ(Ask(bench, constraint, {1, 0.9, 1}).amount, 1);
  const Outcome above = Ask(bench, constraint, {1, 1.1, 1});
  EXPECT_EQ(above.amount, 0);
  EXPECT_TRUE(above.goesOn);
  constraint.Set(Constraint::kInvertId, std::int64_t{1});
  EXPECT_EQ(Ask(bench, constraint, {1, 0.9, 1}).amount, 0);
  EXPECT_EQ(Ask(bench, constraint, {1, 1.1, 1}).amount, 1);
}

TEST(RowWeights, OnlyWhatIsNeededIsAsked) {
  NodeBench bench;
  BaseObject &object = bench.Add("constraint_voxeldistance", "c"), &centre = bench.Add("null", "n"),
             &channel = bench.Add("channel_scalar", "s");
  object.Set(VoxelDistanceConstraint::kReferenceId, NodeBench::LinkTo(centre));
  bench.Fit({6, 6, 6});
  Constraint* chain[] = {&bench.Get<Constraint>(object)};
  RowWeights weights;
  weights.Prepare(chain, 6, 2.0);
  const GridSpace& space = bench.GridOf(channel).space;
  const ConstraintRow row{1, 5, 0, 0, 3, &space, nullptr, nullptr};
  const double* amounts = weights.Where(row, nullptr, [](int i) { return i != 2; });
  EXPECT_EQ(amounts[2], 0);
  EXPECT_NEAR(amounts[1], 2 * (1 - Length(row.Position(1))), 1e-12);
}

// The constraints that read particles.

class ParticleConstraints : public testing::Test {
 protected:
  // A row of liquid particles one cell apart, from the origin along x.
  BaseObject& Make(const std::string& type, int particles = 10) {
    group_ = &scene_.Add("particlegroup", "Drops");
    BaseObject& object = scene_.Add(type, "constraint");
    if (type != "constraint_particle_collision") object.Set(1000, test::TestScene::LinkTo(*group_));
    scene_.Step(0);
    h_ = scene_.scene().space.cellSize;
    auto& group = *scene_.NodeOf<ParticleGroup>(*group_);
    for (int i = 0; i < particles; ++i) group.NewParticle(PK_Liquid).SetPosition({i * h_, 0, 0});
    return object;
  }
  Constraint& Ready(const BaseObject& object) {
    auto& constraint = *scene_.NodeOf<Constraint>(object);
    constraint.ReadParameters();
    constraint.ResolveLinks();
    constraint.Prepare(nullptr);
    return constraint;
  }
  double At(const BaseObject& object, const Vec3D& position, bool goesOn = true) {
    double amount = 1;
    EXPECT_EQ(Ready(object).Evaluate(position, amount, nullptr, 0), goesOn);
    return amount;
  }
  OrlixParticle Particle(int i) { return scene_.NodeOf<ParticleGroup>(*group_)->At(PK_Liquid, i); }
  double Of(const BaseObject& object, const OrlixParticle& particle, bool goesOn = true) {
    double amount = 1;
    EXPECT_EQ(Ready(object).EvaluateParticle(particle.GetPosition(), amount, nullptr, 0, &particle), goesOn);
    return amount;
  }

  test::TestScene scene_;
  BaseObject* group_ = nullptr;
  double h_ = 0;
};

TEST_F(ParticleConstraints, DistanceFallsOffFromTheNearestParticle) {
  BaseObject& object = Make("constraint_particledistance");
  object.Set(1001, 4.0);
  object.Set(1103, 0.5);
  EXPECT_EQ(At(object, {3 * h_, 0, 0}), 0.5);
  EXPECT_NEAR(At(object, {3 * h_, h_, 0}), 0.5 * 0.75, 1e-12);
  EXPECT_EQ(At(object, {3 * h_, 4 * h_, 0}, false), 0);
  object.Set(1100, std::int64_t(1));
  EXPECT_EQ(At(object, {3 * h_, 0, 0}, false), 0);
  EXPECT_EQ(At(object, {3 * h_, 40 * h_, 0}), 0.5);
  object.Set(1000, LinkValue());
  EXPECT_EQ(At(object, {}), 1);
}

TEST_F(ParticleConstraints, CountRampsBetweenItsLimits) {
  BaseObject& object = Make("constraint_particlecount", 200);
  object.Set(1001, 2.5);  // five particles of the row, and itself
  object.Set(1005, std::int64_t(1));
  object.Set(1004, std::int64_t(9));
  EXPECT_EQ(At(object, {50 * h_, 0, 0}), 0.5);
  EXPECT_EQ(At(object, {-2 * h_, 0, 0}, false), 0);  // one
  object.Set(1100, std::int64_t(1));
  EXPECT_EQ(At(object, {-2 * h_, 0, 0}), 1);
  object.Set(1100, std::int64_t(0));
  object.Set(1004, std::int64_t(3));
  EXPECT_EQ(At(object, {50 * h_, 0, 0}), 1);
  object.Set(1007, std::int64_t(0));
  EXPECT_EQ(At(object, {50 * h_, 0, 0}, false), 0);  // crowded
  object.Set(1006, std::int64_t(0));
  object.Set(1004, std::int64_t(6));
  EXPECT_EQ(At(object, {50 * h_, 0, 0}), 1);
  object.Set(1001, 1000.0);
  object.Set(1004, std::int64_t(199));  // more than a query gives by itself
  EXPECT_EQ(At(object, {50 * h_, 0, 0}, false), 0);
  object.Set(1004, std::int64_t(200));
  EXPECT_EQ(At(object, {50 * h_, 0, 0}), 1);
}

TEST_F(ParticleConstraints, AttributePassesParticlesInTheState) {
  BaseObject& object = Make("constraint_particle_collision");
  EXPECT_EQ(At(object, {}), 1);
  EXPECT_EQ(Of(object, Particle(1), false), 0);
  Particle(1).SetFlag(ParticleFlag::Collided, true);
  EXPECT_EQ(Of(object, Particle(1)), 1);
  object.Set(1100, std::int64_t(1));
  EXPECT_EQ(Of(object, Particle(1), false), 0);
  EXPECT_EQ(Of(object, Particle(2)), 1);
  object.Set(1000, std::int64_t(0));
  EXPECT_EQ(Of(object, Particle(2), false), 0);
  double amount = 1;
  EXPECT_TRUE(Ready(object).EvaluateParticle({}, amount, nullptr, 0, nullptr));
}

TEST_F(ParticleConstraints, PropertyRampsOverTheParticlesOwnValue) {
  const BaseObject& heat = scene_.Add("property_temperature", "heat");
  const BaseObject& own = scene_.Add("property_vector", "own");
  const BaseObject& wet = scene_.Add("property_state", "wet");
  BaseObject& object = Make("constraint_particle_property");
  object.Set(1000, test::TestScene::LinkTo(heat));
  object.Set(1002, 0.5);
  object.Set(1003, 2.5);
  EXPECT_EQ(Of(object, Particle(0)), 0.25);  // 1 without it
  Particle(0).SetOrAddReal(PP::Temperature, 2);
  EXPECT_EQ(Of(object, Particle(0)), 0.75);
  object.Set(1100, std::int64_t(1));
  EXPECT_EQ(Of(object, Particle(0)), 0.25);
  object.Set(1100, std::int64_t(0));
  object.Set(1000, test::TestScene::LinkTo(own));
  EXPECT_NEAR(Of(object, Particle(0)), (std::sqrt(3.0) - 0.5) / 2, 1e-12);
  Particle(0).SetOrAddVector({76, own.creationNumber()}, {0, 3, 4});
  Particle(1).SetOrAddVector({76, 12345}, {0, 3, 4});
  EXPECT_EQ(Of(object, Particle(0)), 1);
  EXPECT_LT(Of(object, Particle(1)), 0.7);  // another node's value
  object.Set(1000, test::TestScene::LinkTo(wet));
  EXPECT_EQ(Of(object, Particle(0)), 0);
  Particle(0).SetOrAddState({75, wet.creationNumber()}, true);
  object.Set(1103, 0.5);
  EXPECT_EQ(Of(object, Particle(0)), 1);  // and no further factor
  EXPECT_EQ(At(object, {}), 1);
}

TEST_F(ParticleConstraints, AChainAsksForTheParticle) {
  BaseObject& object = Make("constraint_particle_collision");
  BaseObject& near = scene_.Add("constraint_particledistance", "near");
  near.Set(1000, test::TestScene::LinkTo(*group_));
  near.Set(1001, 4.0);
  scene_.Step(1);
  OrlixParticle p = scene_.NodeOf<ParticleGroup>(*group_)->NewParticle(PK_Liquid);
  p.SetPosition({0, 2 * h_, 0});
  p.SetFlag(ParticleFlag::Collided, true);
  scene_.NodeOf<ParticleGroup>(*group_)->SetKindDirty(PK_Liquid);
  Constraint* chain[] = {&Ready(object), &Ready(near)};
  double amount = 2;
  EvaluateChain(chain, p.GetPosition(), amount, nullptr, 0, p);
  EXPECT_EQ(amount, 2);  // it is its own nearest
  p.SetFlag(ParticleFlag::Collided, false);
  EvaluateChain(chain, p.GetPosition(), amount, nullptr, 0, p);
  EXPECT_EQ(amount, 0);
}

}  // namespace
}  // namespace orlix
