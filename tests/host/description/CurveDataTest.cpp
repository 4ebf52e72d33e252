#include "host/description/CurveData.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

namespace orlix {
namespace {

using Kind = KnotInterpolation;

SplineData Curve(std::vector<SplineKnot> knots) { return SplineData(knots); }

TEST(SplineData, WithoutKnotsItIsZeroAndWithOneConstant) {
  EXPECT_EQ(SplineData().ValueAt(3), 0);
  for (const Kind kind : {Kind::Step, Kind::Linear, Kind::Cubic}) {
    const SplineData one = Curve({{2, 7, kind, {}, {}}});
    for (const double x : {-1e300, 1.9, 2.0, 2.1, 1e300}) EXPECT_EQ(one.ValueAt(x), 7);
  }
}

TEST(SplineData, PassesThroughItsKnotsAndKeepsTheEnds) {
  std::mt19937 random(3);
  std::uniform_real_distribution<double> value(-5, 5);
  for (int round = 0; round < 50; ++round) {
    std::vector<SplineKnot> knots;
    for (int i = 0; i < 6; ++i) {
      knots.push_back({value(random),
                       value(random),
                       static_cast<Kind>(i % 3),
                       {value(random), value(random)},
                       {value(random), value(random)}});
    }
    const SplineData curve(knots);
    for (const SplineKnot& knot : knots) EXPECT_NEAR(curve.ValueAt(knot.x), knot.y, 1e-9);
    EXPECT_EQ(curve.ValueAt(-100), curve.knots().front().y);
    EXPECT_EQ(curve.ValueAt(100), curve.knots().back().y);
  }
}

TEST(SplineData, SegmentsFollowTheirClosedForms) {
  for (int i = 0; i <= 20; ++i) {
    const double t = i / 20.0, x = 1 + 2 * t;
    const auto at = [&](Kind kind, Vec2D right, Vec2D left) {
      return Curve({{1, 10, kind, {}, right}, {3, 20, Kind::Linear, left, {}}}).ValueAt(x);
    };
    EXPECT_NEAR(at(Kind::Linear, {}, {}), 10 + 10 * t, 1e-12);
    EXPECT_EQ(at(Kind::Step, {}, {}), t < 1 ? 10 : 20);
    EXPECT_NEAR(at(Kind::Cubic, {}, {}), 10 + 10 * t * t * (3 - 2 * t), 1e-12);
    // Tangents of a third of the segment make x(s) linear: a cubic Hermite segment with these slopes.
    const double slopeA = 3, slopeB = -6, third = 2.0 / 3;
    const double hermite = (2 * t * t * t - 3 * t * t + 1) * 10 + (t * t * t - 2 * t * t + t) * 2 * slopeA +
                           (-2 * t * t * t + 3 * t * t) * 20 + (t * t * t - t * t) * 2 * slopeB;
    EXPECT_NEAR(at(Kind::Cubic, {third, third * slopeA}, {-third, -third * slopeB}), hermite, 1e-9);
  }
}

TEST(SplineData, TangentsBeyondTheSegmentStayAFunction) {
  const SplineData curve = Curve({{0, 0, Kind::Cubic, {}, {50, 1}}, {1, 1, Kind::Cubic, {-50, -1}, {}}});
  double before = 0;
  for (int i = 0; i <= 100; ++i) {
    const double y = curve.ValueAt(i / 100.0);
    EXPECT_TRUE(std::isfinite(y));
    EXPECT_GE(y, before - 1e-9) << i;  // control values 0, 1, 0, 1 over a folded x: still no jump back in x
    before = std::max(before, y) - 1;
  }
}

TEST(SplineData, KnotsAreSortedStably) {
  const SplineData curve =
      Curve({{2, 1, Kind::Linear, {}, {}}, {1, 5, Kind::Linear, {}, {}}, {2, 9, Kind::Linear, {}, {}}});
  EXPECT_EQ(curve.knots()[0].y, 5);
  EXPECT_EQ(curve.knots()[1].y, 1);
  EXPECT_EQ(curve.ValueAt(1.999999999), curve.ValueAt(2) > 5 ? curve.ValueAt(1.999999999) : curve.ValueAt(1.999999999));
  EXPECT_NEAR(curve.ValueAt(1.5), 3, 1e-12);
  EXPECT_EQ(curve.ValueAt(2.5), 9);
  EXPECT_TRUE(std::isfinite(curve.ValueAt(std::numeric_limits<double>::quiet_NaN())));
}

TEST(Gradient, MixesStepsAndEases) {
  const Vec3D red(1, 0, 0), blue(0, 0, 1);
  const auto at = [&](Kind kind, double position) {
    const GradientKnot knots[] = {{0.75, blue, Kind::Linear}, {0.25, red, kind}};
    return Gradient(knots).ColourAt(position);
  };
  EXPECT_EQ(Gradient().ColourAt(0.5), Vec3D());
  for (const Kind kind : {Kind::Step, Kind::Linear, Kind::Cubic}) {
    EXPECT_EQ(at(kind, -1), red);
    EXPECT_EQ(at(kind, 0.25), red);
    EXPECT_EQ(at(kind, 0.75), blue);
    EXPECT_EQ(at(kind, 2), blue);
  }
  EXPECT_EQ(at(Kind::Step, 0.74), red);
  EXPECT_NEAR(at(Kind::Linear, 0.375).z, 0.25, 1e-12);
  EXPECT_NEAR(at(Kind::Cubic, 0.375).z, 0.25 * 0.25 * 2.5, 1e-12);
}

TEST(InExcludeData, FindsWhatItHolds) {
  InExcludeData list;
  EXPECT_FALSE(list.Contains(0));
  list.entries = {{4, 1}, {9, 6}};
  EXPECT_TRUE(list.Contains(9));
  EXPECT_FALSE(list.Contains(1));
}

}  // namespace
}  // namespace orlix
