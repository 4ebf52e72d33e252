// Vorticity: linear fields are exact, and a vortex is kept up.

#include <gtest/gtest.h>

#include "fluids/constraints/Constraint.h"
#include "fluids/forces/Force_GridTurbulence.h"
#include "fluids/forces/Force_Swirling.h"
#include "fluids/forces/VorticityKernels.h"
#include "globals/Random.h"
#include "tests/fluids/forces/ForceRig.h"

namespace orlix {
namespace {

using test::ForceRig;

constexpr VecInt3D kCells{11, 9, 10};
constexpr double kConfinement = 0.8 * 0.2;  // of the default strength

MacComponents ViewOf(const ForceRig& rig) {
  return {*rig.velocity.grids[0], *rig.velocity.grids[1], *rig.velocity.grids[2]};
}

class Vorticity : public testing::Test {
 protected:
  Vorticity() { rig_.Ready(); }
  ForceRig rig_{"force_swirling", kCells};
};

TEST_F(Vorticity, IsExactOnLinearFields) {
  const Vec3D omega(0.3, -1.2, 2.5);
  rig_.SetVelocity([&](const Vec3D& p) { return Cross(omega, p) + Vec3D(5, 6, 7); });
  double x[kCells.x], y[kCells.x], z[kCells.x];
  int checked = 0;
  for (int k = 1; k < kCells.z - 1; ++k) {
    CurlRow(ViewOf(rig_), 4, {0, 0, 1}, 3, k, 1, kCells.x - 1, x, y, z);
    for (int i = 0; i < kCells.x - 2; ++i, ++checked) {
      EXPECT_NEAR(x[i], 2 * omega.x, 1e-12);
      EXPECT_NEAR(y[i], 2 * omega.y, 1e-12);
      EXPECT_NEAR(z[i], 2 * omega.z - 1, 1e-12);
    }
  }
  EXPECT_EQ(checked, 8 * 9);
}

TEST_F(Vorticity, TheMeanNeedsOnlyTheOuterLayers) {
  MersenneTwister random(4);
  rig_.SetVelocity([&](const Vec3D&) { return Vec3D(random.Uniform() - 0.5, random.Uniform(), random.Uniform() * 2); });
  Vec3D sum;
  double x[kCells.x], y[kCells.x], z[kCells.x];
  for (int k = 1; k < kCells.z - 1; ++k) {
    for (int j = 1; j < kCells.y - 1; ++j) {
      CurlRow(ViewOf(rig_), 4, {}, j, k, 1, kCells.x - 1, x, y, z);
      for (int i = 0; i < kCells.x - 2; ++i) sum += Vec3D(x[i], y[i], z[i]);
    }
  }
  const Vec3D mean = MeanCurl(ViewOf(rig_), 4, rig_.pool);
  EXPECT_LT(Length(mean - sum / (9.0 * 7 * 8)), 1e-12);
  EXPECT_GT(Length(mean), 1e-3);
}

TEST_F(Vorticity, AStillFieldIsLeftAlone) {
  rig_.SetVelocity([](const Vec3D&) { return Vec3D(); });
  EXPECT_TRUE(rig_.Run());
  rig_.ForEach([](int, int, int, const Vec3D& f) { EXPECT_EQ(f, Vec3D()); });
}

TEST(Swirling, PushesAlongAGaussianVortex) {
  // |w| falls from the axis, so that n points inwards and n x w along the rotation. With the flow, the wind along the
  // axis scales it.
  const Vec3D axis(2.0 / 3, -1.0 / 3, 2.0 / 3);
  constexpr double kWidth = 1.5, kWind = 3;  // m, m/s
  for (const bool alongFlow : {false, true}) {
    ForceRig rig("force_swirling", {25, 25, 25});
    rig.object.Set(1003, std::int64_t{0});
    rig.object.Set(1004, std::int64_t{alongFlow});
    rig.Ready();
    const auto fromAxis = [&](const Vec3D& p) {
      const Vec3D r = p - Vec3D(12.5) * ForceRig::kCell;
      return r - axis * Dot(r, axis);
    };
    rig.SetVelocity([&](const Vec3D& p) {
      const Vec3D r = fromAxis(p);
      return Cross(axis, r) * std::exp(-LengthSquared(r) / (kWidth * kWidth)) + axis * kWind;
    });
    ASSERT_TRUE(rig.Run());
    int checked = 0;
    rig.ForEach([&](int i, int j, int k, const Vec3D& f) {
      const Vec3D r = fromAxis(rig.Centre(i, j, k));
      const double radius = Length(r), q = radius * radius / (kWidth * kWidth);
      // Away from the border, from the axis and from where |w| = |2 (1 - q)| e^-q turns.
      if (std::min({i, j, k}) < 2 || std::max({i, j, k}) > 22 || radius < 0.5 || radius > 1.2) return;
      const double w = alongFlow ? kWind * 2 * (1 - q) * std::exp(-q) : 2 * (1 - q) * std::exp(-q);
      const Vec3D expected = Cross(axis, r) / radius * (w * ForceRig::kCell * kConfinement * rig.dt());
      EXPECT_LT(Length(f - expected), 0.12 * Length(expected));
      ++checked;
    });
    EXPECT_GT(checked, 500);
  }
}

// --- vortex particles -----------------------------------------------------------------------------------------------

// Vorticity particles and the cells about them.

constexpr VecInt3D kRoom{12, 11, 10};
constexpr double h = ForceRig::kCell;

class Turbulence : public testing::Test {
 protected:
  Turbulence() : rig_("force_particleturbulence", kRoom, 3), group_(rig_.Add("particlegroup", "group")) {
    rig_.object.Set(1000, ForceRig::LinkTo(group_));
    rig_.object.Set(1005, 0.0);
    rig_.object.Set(1006, 1e9);
  }
  ParticleList& List() { return *rig_.Get<ParticleGroup>(group_).list(PK_Vorticity); }
  void AddParticle(const Vec3D& x, const Vec3D& w, double radius = 0) {
    BaseParticleData data;
    data.flags = static_cast<std::uint16_t>(ParticleFlag::Alive | ParticleFlag::Vorticity);
    data.position = x;
    data.SetVector(PP::Vorticity, w);
    if (radius > 0) data.SetReal(PP::Radius, radius);
    List().Append(1, data);
  }
  void AddSome() {
    MersenneTwister random(7);
    const auto vector = [&] { return Vec3D(random.Uniform(), random.Uniform(), random.Uniform()); };
    for (int n = 0; n < 40; ++n) {
      AddParticle(vector() * 4 - Vec3D(0.5), vector() - Vec3D(0.5), n % 3 == 0 ? 0.2 + random.Uniform() : 0);
    }
  }
  // What the particles do to a place, one by one.
  Vec3D PushAt(const Vec3D& place, double radius, double strength, const KernelBase& kernel) {
    Vec3D push;
    for (int n = 0; n < List().count(); ++n) {
      const OrlixParticle p(&List(), n);
      const Vec3D off = p.GetPosition() - place;
      const double d = Length(off), own = p.GetRealOr(PP::Radius, 0);
      if (!(d < radius) || (own > 0 && own < d)) continue;
      const double k = kernel.Evaluate(place, p.GetPosition(), radius);
      if (k > 0) push += Cross(Normalized(off), p.GetVectorOr(PP::Vorticity, {}) * k) * strength;
    }
    return push;
  }

  ForceRig rig_;
  BaseObject& group_;
};

TEST_F(Turbulence, EachCellSumsThePushOfTheParticlesNearIt) {
  rig_.Ready();
  AddSome();
  for (const int kind : {1, 6, 9, 8}) {
    rig_.object.Set(1007, std::int64_t(kind));
    rig_.object.Set(1004, kind == 6 ? 1.3 : 4.0);
    rig_.object.Set(1008, 2.0);
    ASSERT_TRUE(rig_.Run());
    const KernelBase kernel{.kind = static_cast<KernelKind>(kind), .length = 2 * h};
    double largest = 0;
    rig_.ForEach([&](int i, int j, int k, const Vec3D& f) {
      const Vec3D expected = PushAt(rig_.Centre(i, j, k), (kind == 6 ? 1.3 : 4.0) * h, 0.2, kernel);
      ASSERT_LT(Length(f - expected), 1e-12 * std::max(1.0, Length(expected))) << kind;
      largest = std::max(largest, Length(f));
    });
    EXPECT_GT(largest, 1e-3);
  }
}

TEST_F(Turbulence, ALinkedKernelReplacesItsOwnAndAParticleInACentreDoesNothing) {
  BaseObject& kernel = rig_.Add("kernel", "kernel");
  kernel.Set(7150, std::int64_t(11));
  rig_.object.Set(1011, ForceRig::LinkTo(kernel));
  rig_.Ready();
  AddParticle(rig_.Centre(5, 5, 5), {0, 0, 3});
  ASSERT_TRUE(rig_.Run());
  EXPECT_EQ(rig_.At(5, 5, 5), Vec3D());
  const double q = 1.0 / 16;
  EXPECT_NEAR(rig_.At(6, 5, 5).y, 3 * 0.2 * std::pow(1 - q, 3), 1e-12);  // (-1, 0, 0) x (0, 0, 3) = (0, 3, 0)
}

TEST_F(Turbulence, TheFlowStretchesVorticityWithinItsLimits) {
  // u = A x: (w . grad) u = A w.
  const Vec3D rows[3] = {{1, 0.5, 0}, {0, -0.5, 2}, {0.25, 0, -0.5}};
  const auto product = [&](const Vec3D& w) { return Vec3D(Dot(rows[0], w), Dot(rows[1], w), Dot(rows[2], w)); };
  rig_.Ready();
  rig_.SetVelocity(product);
  const Vec3D w(1, 2, -1);
  AddParticle({1.4, 1.3, 1.2}, w);
  AddParticle({1.4, 1.3, 1.2}, w * 1e-6);
  AddParticle({1.4, 1.3, 1.2}, {});
  rig_.object.Set(1005, 500.0), rig_.object.Set(1006, 3000.0);  // 0.5 to 3
  ASSERT_TRUE(rig_.Run());
  const Vec3D stretched = w + product(w) * rig_.dt();
  const auto vorticity = [&](int n) { return OrlixParticle(&List(), n).GetVectorOr(PP::Vorticity, {9, 9, 9}); };
  EXPECT_LT(Length(vorticity(0) - stretched), 1e-12);
  EXPECT_LT(Length(vorticity(1) - Normalized(stretched) * 0.5), 1e-9);
  EXPECT_EQ(vorticity(2), Vec3D());
}

TEST_F(Turbulence, AlongTheFlowItGoesByTheFlowAlongTheVorticity) {
  rig_.object.Set(1015, true);
  rig_.Ready();
  rig_.SetVelocity([](const Vec3D&) { return Vec3D(0, 0, 2); });
  AddParticle(rig_.Centre(5, 5, 5), {0, 0, 3});
  ASSERT_TRUE(rig_.Run());
  const double k = KernelBase{.kind = KernelKind::Poly6}.Evaluate({}, {h, 0, 0}, 4 * h);
  // |w| (u . w k), about the unit axis.
  EXPECT_NEAR(rig_.At(6, 5, 5).y, 3 * (2 * 3 * k) * 0.2, 1e-9);
}

TEST_F(Turbulence, ConstraintsAreAskedForEachParticleAtEachCell) {
  BaseObject& ball = rig_.Add("constraint_voxeldistance", "ball");
  BaseObject& centre = rig_.Add("null", "centre");
  ball.Set(1000, ForceRig::LinkTo(centre));
  ball.Set(1001, 200.0);
  rig_.Ready();
  AddSome();
  ASSERT_TRUE(rig_.Run());
  std::vector<Vec3D> free;
  rig_.ForEach([&](int, int, int, const Vec3D& f) { free.push_back(f); });
  rig_.object.Set(kConstraintsId, ForceRig::ListOf({&ball}));
  ASSERT_TRUE(rig_.Run());
  std::size_t n = 0;
  rig_.ForEach([&](int i, int j, int k, const Vec3D& f) {
    const double share = std::max(0.0, 1 - Length(rig_.Centre(i, j, k)) / 2);
    EXPECT_LT(Length(f - free[n++] * share), 1e-12);
  });
}

}  // namespace
}  // namespace orlix
