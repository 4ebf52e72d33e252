// Small nodes and the interface to settings.

#include <gtest/gtest.h>

#include "fluids/helpers/Duration.h"
#include "fluids/helpers/Kernel.h"
#include "fluids/helpers/Property.h"
#include "fluids/scene/RootObject.h"
#include "fluids/scene/StateCheck.h"
#include "tests/fluids/scene/TraceNode.h"

namespace orlix {
namespace {

using test::TracedScene;
using test::TraceNode;

TEST(Handler, ConvertsLikeTheHost) {
  TracedScene s;
  BaseObject& n = s.AddTrace("n", 0);
  const C4D_InterfaceHandler handler(&n);
  n.Set(TraceNode::kRoundsId, 3.99);
  EXPECT_EQ(handler.GetInt(TraceNode::kRoundsId), 3);
  n.Set(TraceNode::kRoundsId, -3.99);
  EXPECT_EQ(handler.GetInt(TraceNode::kRoundsId), -3);
  n.Set(TraceNode::kRoundsId, 1e300);
  EXPECT_EQ(handler.GetInt(TraceNode::kRoundsId), 2147483647);
  const C4D_InterfaceHandler none;
  EXPECT_EQ(none.GetInt(TraceNode::kStageBitsId, 42), 42);
  BaseObject& copy = s.AddTrace("m", 0);
  const C4D_InterfaceHandler link(&copy);
  EXPECT_TRUE(link.IsHostInDocument(kRootTypeId)) << "every node is an instance of the root's type";
  s.document.RemoveObject(copy);
  EXPECT_FALSE(link.IsHostInDocument(0));
}

TEST(Dirty, FirstCheckFindsAChangeAndMarksPersist) {
  TracedScene s;
  BaseObject& n = s.AddTrace("n", 0);
  n.Set(TraceNode::kIdleId, std::int64_t(1));
  s.Step(0);
  TraceNode node(&n, s.scene());
  node.CheckDirty();
  EXPECT_TRUE(node.IsDirty());
  node.ReleaseLinks();
  node.CheckDirty();
  EXPECT_FALSE(node.IsDirty());
  node.MarkDirty(true);
  node.ReleaseLinks();
  node.CheckDirty();
  EXPECT_TRUE(node.IsDirty()) << "a mark shows once more at the next check";
  n.Set(TraceNode::kSpeedId, 3.0);
  node.ReleaseLinks();
  node.CheckDirty();
  EXPECT_TRUE(node.IsDirty());
}

TEST(Duration, WindowsPausesAndWeights) {
  TracedScene s;
  BaseObject& object = s.Add("duration", "d");
  s.Step(0);
  Duration d(&object, s.scene());
  d.start = 1;
  EXPECT_FALSE(d.IsActive(0.99));
  double weight = 0.75;
  EXPECT_TRUE(d.IsActive(1e9, weight));
  EXPECT_EQ(weight, 0.75) << "without a length the caller's weight stays";
  d.length = 2, d.pause = 1;
  EXPECT_TRUE(d.IsActive(1));
  EXPECT_FALSE(d.IsActive(3));
  EXPECT_FALSE(d.IsActive(4.5)) << "no repeats: window 0 only";
  d.repeats = 1;
  EXPECT_FALSE(d.IsActive(3.5));
  ASSERT_TRUE(d.IsActive(4.5, weight));
  EXPECT_DOUBLE_EQ(weight, 0.75);
  EXPECT_FALSE(d.IsActive(7.5));
  const SplineKnot knots[] = {{0, 5}, {1, 9}};
  const SplineData ramp(knots);
  d.ramp = &ramp;
  ASSERT_TRUE(d.IsActive(2, weight));
  EXPECT_DOUBLE_EQ(weight, 7);
  EXPECT_EQ(DurationWeight(nullptr, 0), 1);
  EXPECT_EQ(DurationWeight(&d, 0), 0);
}

TEST(Duration, FrameModeCountsInFrames) {
  TracedScene s;
  BaseObject& object = s.Add("duration", "d");
  object.Set(Duration::kUseFramesId, std::int64_t(1));
  object.Set(Duration::kLengthFramesId, std::int64_t(12));
  object.Set(Duration::kStartFrameId, std::int64_t(6));
  s.Step(0);
  const Duration* d = s.NodeOf<Duration>(object);
  ASSERT_NE(d, nullptr);
  EXPECT_DOUBLE_EQ(d->length, 0.5);
  EXPECT_DOUBLE_EQ(d->start, 0.25);
}

TEST(Kernel, NormalisedKindsIntegrateToOne) {
  // 4 pi times the integral of r^2 w(r); kinds 3 to 5 are as they are given and don't.
  const double h = 0.7;
  const auto integral = [&](KernelKind kind) {
    double sum = 0;
    const int steps = 200000;
    for (int n = 0; n < steps; ++n) {
      const double r = (n + 0.5) * h / steps;
      sum += 4 * std::numbers::pi * r * r * EvaluateKernel(kind, {0, 0, 0}, {r, 0, 0}, h) * h / steps;
    }
    return sum;
  };
  EXPECT_NEAR(integral(KernelKind::Poly6), 1, 1e-6);
  EXPECT_NEAR(integral(KernelKind::Poly6Radius), 1, 1e-6);
  EXPECT_NEAR(integral(KernelKind::Gauss), 0.19875, 1e-4) << "the Gaussian's part within one sigma";
}

TEST(Kernel, CentreEdgeAndCurve) {
  const double h = 2;
  EXPECT_EQ(EvaluateKernel(KernelKind(12), {}, {2, 0, 0}, h), -1);
  for (int type = 0; type < 13; ++type) {
    const KernelKind kind{type};
    EXPECT_LE(EvaluateKernel(kind, {1, 2, 3}, {1, 2, 5.5}, h), 0) << type;
    EXPECT_EQ(EvaluateKernel(kind, {1, 2, 3}, {1, 1, 3}, h), EvaluateKernel(kind, {1, 1, 3}, {1, 2, 3}, h));
  }
  EXPECT_EQ(EvaluateKernel(KernelKind(13), {}, {}, h), 0);
  TracedScene s;
  BaseObject& object = s.Add("kernel", "k");
  object.Set(Kernel::kKindId, KernelKind::Curve);
  s.Step(0);
  const Kernel* kernel = s.NodeOf<Kernel>(object);
  ASSERT_NE(kernel, nullptr);
  EXPECT_EQ(kernel->Evaluate({}, {}, h), 0) << "distance 0 gives 0, not the curve's first value";
  EXPECT_NEAR(kernel->Evaluate({}, {std::sqrt(1.6), 0, 0}, h), 0.8, 1e-6);
}

TEST(Property, RadiusIsInVoxels) {
  TracedScene s;
  s.root->Set(RootSettings::kVoxelSizeId, 0.5);
  BaseObject& real = s.Add("property_scalar", "r");
  real.Set(iProperty::kValueId, 3.0);
  real.Set(iProperty::kPropertyIdId, std::int64_t(0));
  BaseObject& whole = s.Add("property_int", "i");
  whole.Set(iProperty::kValueId, 3.0);
  whole.Set(iProperty::kPropertyIdId, std::int64_t(0));
  s.Step(0);
  EXPECT_DOUBLE_EQ(s.NodeOf<Property<double>>(real)->value, 1.5);
  EXPECT_EQ(s.NodeOf<Property<std::int32_t>>(whole)->value, 1) << "1.5 and half a cell, truncated";
  EXPECT_TRUE(s.NodeOf<iProperty>(real)->HasRetrieveType(RETRIEVE_SCALAR));
}

TEST(StateCheck, FindsEveryKindOfNonNumber) {
  WorkerPool pool(3);
  for (const double bad : {double(NAN), double(INFINITY), -double(INFINITY)}) {
    for (const int at : {0, 17, 4999, 8 * 25 * 25 - 1}) {
      auto grid = std::make_unique<ScalarGrid>(VecInt3D(8, 25, 25), Vec3D(1, 1, 1), 1.0f, kGridSmoke, Vec3D());
      grid->Fill(std::numeric_limits<double>::max());
      NonFiniteFinder clean(pool);
      clean.VisitGrid("g", grid);
      EXPECT_FALSE(clean.found());
      (*grid)[at] = bad;
      NonFiniteFinder finder(pool);
      finder.VisitGrid("g", grid);
      ASSERT_TRUE(finder.found());
      EXPECT_EQ(grid->Index(finder.found()->i, finder.found()->j, finder.found()->k), at);
    }
  }
}

}  // namespace
}  // namespace orlix
