#include "host/description/Value.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "host/description/CurveData.h"
#include "host/description/Parameter.h"

namespace orlix {
namespace {

TEST(Value, NumbersConvertToEachOther) {
  EXPECT_EQ(AsInt(Value(std::int64_t(7)), -1), 7);
  EXPECT_EQ(AsInt(Value(2.9), -1), 2);
  EXPECT_EQ(AsInt(Value(-2.9), -1), -2);
  EXPECT_EQ(AsInt(Value(1e300), -1), std::numeric_limits<std::int64_t>::max());
  EXPECT_EQ(AsInt(Value(-1e300), -1), std::numeric_limits<std::int64_t>::min());
  EXPECT_EQ(AsInt(Value(std::nan("")), -1), -1);
  EXPECT_EQ(AsDouble(Value(std::int64_t(-3)), 0), -3.0);
  EXPECT_EQ(AsDouble(Value(0.1), 0), 0.1);
}

TEST(Value, AnotherKindGivesTheFallback) {
  const Value kinds[] = {Value(), Value(std::string("4")), Value(Vec3D(1, 2, 3)), Value(LinkValue{5}),
                         Value(std::make_shared<const SplineData>())};
  for (const Value& value : kinds) {
    EXPECT_EQ(AsInt(value, 42), 42);
    EXPECT_EQ(AsDouble(value, 0.5), 0.5);
    if (!std::holds_alternative<std::string>(value)) {
      EXPECT_EQ(AsString(value, "none"), "none");
    }
    if (!std::holds_alternative<Vec3D>(value)) {
      EXPECT_EQ(AsVector(value, Vec3D(9)), Vec3D(9));
    }
  }
  EXPECT_EQ(AsVector(Value(1.0), Vec3D(9)), Vec3D(9));
}

TEST(Value, SameMeansKindAndContent) {
  const SplineKnot knots[] = {{0, 1, KnotInterpolation::Linear, {}, {}}};
  const auto spline = [&] { return Value(std::make_shared<const SplineData>(knots)); };
  EXPECT_TRUE(SameValue(spline(), spline()));
  EXPECT_FALSE(SameValue(spline(), Value(std::make_shared<const SplineData>())));
  EXPECT_FALSE(SameValue(spline(), Value(SplineValue())));
  EXPECT_TRUE(SameValue(Value(SplineValue()), Value(SplineValue())));
  EXPECT_FALSE(SameValue(Value(std::int64_t(1)), Value(1.0)));
  EXPECT_FALSE(SameValue(Value(LinkValue{1}), Value(LinkValue{2})));
  EXPECT_TRUE(SameValue(Value(), Value()));
}

TEST(Parameter, DefaultsHaveTheRowsKind) {
  constexpr SplineKnot kKnots[] = {{0, 1, KnotInterpolation::Linear, {}, {}}};
  EXPECT_EQ(std::get<std::int64_t>(DefaultOf(BoolParameter(1, "a", true, "A"))), 1);
  EXPECT_EQ(std::get<std::int64_t>(DefaultOf(IntParameter(1, "a", -4, "", "A"))), -4);
  EXPECT_EQ(std::get<double>(DefaultOf(FloatParameter(1, "a", 0.2, "m", "A"))), 0.2);
  EXPECT_EQ(std::get<Vec3D>(DefaultOf(VectorParameter(1, "a", {1, 2, 3}, "", "A"))), Vec3D(1, 2, 3));
  EXPECT_EQ(std::get<std::string>(DefaultOf(StringParameter(1, "a", "text", "A"))), "text");
  EXPECT_EQ(std::get<SplineValue>(DefaultOf(SplineParameter(1, "a", kKnots, "A")))->ValueAt(0), 1);
  EXPECT_TRUE(std::get<InExcludeValue>(DefaultOf(ListParameter(1, "a", kLinkAny, "A")))->entries.empty());
  for (const Parameter& row : {LinkParameter(1, "a", kLinkAny, "A"), ButtonParameter(1, "a", "A"),
                               GroupParameter(1, "a", "A"), SplineParameter(1, "a", {}, "A")}) {
    EXPECT_TRUE(std::holds_alternative<std::monostate>(DefaultOf(row)));
  }
}

TEST(Parameter, TheReadersFallbackMayDiffer) {
  constexpr Parameter kRow = BoolParameter(10003, "own_block", true, "Opens a block").Fallback(0.0);
  static_assert(kRow.number == 1 && kRow.FallbackNumber() == 0);
  constexpr Parameter kVector = VectorParameter(1, "a", {1, 1, 1}, "", "A").Fallback(Vec3D(2, 2, 2));
  EXPECT_EQ(kVector.FallbackVector(), Vec3D(2));
  EXPECT_EQ(VectorParameter(1, "a", {1, 1, 1}, "", "A").FallbackVector(), Vec3D(1));
}

}  // namespace
}  // namespace orlix
