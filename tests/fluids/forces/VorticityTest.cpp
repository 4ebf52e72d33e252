// Vorticity: linear fields are exact, and rows against the six faces of each cell.

#include <gtest/gtest.h>

#include <numbers>

#include "fluids/forces/VorticityKernels.h"
#include "globals/Random.h"
#include "tests/fluids/forces/ForceRig.h"

namespace orlix {
namespace {

using test::ForceRig;

constexpr VecInt3D kCells{11, 9, 10};
constexpr double kConfinement = 0.8 * 0.2;  // of the default strength

MacView ViewOf(const ForceRig& rig) { return {*rig.velocity.grids[0], *rig.velocity.grids[1], *rig.velocity.grids[2]}; }

// The full vector at the centre of a face: its own component, the others as means of the four around it.
Vec3D FaceVelocity(const ForceRig& rig, VecInt3D cell, int axis) {
  Vec3D result;
  for (int c = 0; c < 3; ++c) {
    const ScalarGrid& grid = *rig.velocity.grids[c];
    if (c == axis) {
      result[c] = grid(cell.x, cell.y, cell.z);
      continue;
    }
    VecInt3D along, back;
    along[c] = 1, back[axis] = -1;
    for (const VecInt3D& at : {cell, cell + along, cell + back, cell + along + back}) {
      result[c] += grid(at.x, at.y, at.z) / 4;
    }
  }
  return result;
}

Vec3D CurlFromFaces(const ForceRig& rig, const VecInt3D& cell) {
  Vec3D low[3], high[3];
  for (int axis = 0; axis < 3; ++axis) {
    VecInt3D up;
    up[axis] = 1;
    low[axis] = FaceVelocity(rig, cell, axis), high[axis] = FaceVelocity(rig, cell + up, axis);
  }
  const double h = 1 / ForceRig::kCell;
  return Vec3D(high[1].z - low[1].z - (high[2].y - low[2].y), high[2].x - low[2].x - (high[0].z - low[0].z),
               high[0].y - low[0].y - (high[1].x - low[1].x)) *
         h;
}

class Vorticity : public testing::Test {
 protected:
  Vorticity() { rig_.Ready(); }
  void Randomise() {
    MersenneTwister random(4);
    rig_.SetVelocity(
        [&](const Vec3D&) { return Vec3D(random.Uniform() - 0.5, random.Uniform(), random.Uniform() * 2); });
  }
  std::vector<Vec3D> AllCurls() const {
    std::vector<Vec3D> curls;
    rig_.ForEach([&](int i, int j, int k, const Vec3D&) { curls.push_back(CurlFromFaces(rig_, {i, j, k})); });
    return curls;
  }
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

TEST_F(Vorticity, IsThatOfTheSixFaces) {
  Randomise();
  double x[kCells.x], y[kCells.x], z[kCells.x];
  for (int k = 1; k < kCells.z - 1; ++k) {
    for (int j = 1; j < kCells.y - 1; ++j) {
      CurlRow(ViewOf(rig_), 4, {}, j, k, 1, kCells.x - 1, x, y, z);
      for (int i = 1; i < kCells.x - 1; ++i) {
        EXPECT_LT(Length(Vec3D(x[i - 1], y[i - 1], z[i - 1]) - CurlFromFaces(rig_, {i, j, k})), 1e-12);
      }
    }
  }
}

TEST_F(Vorticity, TheMeanNeedsOnlyTheOuterLayers) {
  Randomise();
  Vec3D sum;
  const auto curls = AllCurls();
  ASSERT_EQ(curls.size(), 9u * 7 * 8);
  for (const Vec3D& curl : curls) sum += curl;
  const Vec3D mean = MeanCurl(ViewOf(rig_), 4, rig_.pool);
  EXPECT_LT(Length(mean - sum / static_cast<double>(curls.size())), 1e-12);
  EXPECT_GT(Length(mean), 1e-3);
}

TEST_F(Vorticity, AStillFieldIsLeftAlone) {
  rig_.SetVelocity([](const Vec3D&) { return Vec3D(); });
  EXPECT_TRUE(rig_.Run());
  rig_.ForEach([](int, int, int, const Vec3D& f) { EXPECT_EQ(f, Vec3D()); });
}

TEST_F(Vorticity, ConfinementIsTheFormulaInEachCell) {
  for (const bool removeMean : {false, true}) {
    for (const bool alongFlow : {false, true}) {
      rig_.object.Set(1003, std::int64_t{removeMean});
      rig_.object.Set(1004, std::int64_t{alongFlow});
      rig_.Link();
      Randomise();
      ASSERT_TRUE(rig_.Run());
      const auto curls = AllCurls();
      Vec3D mean;
      for (const Vec3D& curl : curls) mean += curl / static_cast<double>(curls.size());
      Grid<double> magnitude(kCells, kGridVorticity);
      magnitude.Fill(0);
      const auto curlAt = [&](int i, int j, int k) {
        const Vec3D curl = curls[static_cast<std::size_t>(((k - 1) * 7 + j - 1) * 9 + i - 1)];
        return removeMean ? curl - mean : curl;
      };
      rig_.ForEach([&](int i, int j, int k, const Vec3D&) { magnitude(i, j, k) = Length(curlAt(i, j, k)); });
      rig_.ForEach([&](int i, int j, int k, const Vec3D& f) {
        const Vec3D g =
            Vec3D(magnitude(i + 1, j, k) - magnitude(i - 1, j, k), magnitude(i, j + 1, k) - magnitude(i, j - 1, k),
                  magnitude(i, j, k + 1) - magnitude(i, j, k - 1)) *
            (0.5 / ForceRig::kCell);
        Vec3D w = curlAt(i, j, k);
        double amount = ForceRig::kCell * kConfinement * rig_.dt();
        if (alongFlow) {
          const auto& grids = rig_.velocity.grids;
          const Vec3D centre =
              Vec3D((*grids[0])(i, j, k) + (*grids[0])(i + 1, j, k), (*grids[1])(i, j, k) + (*grids[1])(i, j + 1, k),
                    (*grids[2])(i, j, k) + (*grids[2])(i, j, k + 1)) *
              0.5;
          amount *= Dot(centre, w);
          w = Normalized(w);
        }
        EXPECT_LT(Length(f - Cross(Normalized(g), w) * amount), 1e-11);
      });
    }
  }
}

TEST(Swirling, PushesAlongAGaussianVortex) {
  // A vortex about z: |w| falls from the axis, so n points inwards and n x w along the rotation.
  ForceRig rig("force_swirling", {33, 33, 7});
  rig.object.Set(1003, std::int64_t{0});
  rig.Ready();
  const Vec3D axis = Vec3D(16.5, 16.5, 0) * ForceRig::kCell;
  constexpr double kWidth = 1.5;  // m
  rig.SetVelocity([&](const Vec3D& p) {
    const Vec3D r(p.x - axis.x, p.y - axis.y, 0);
    return Vec3D(-r.y, r.x, 0) * std::exp(-LengthSquared(r) / (kWidth * kWidth));
  });
  ASSERT_TRUE(rig.Run());
  int checked = 0;
  rig.ForEach([&](int i, int j, int k, const Vec3D& f) {
    if (k < 2 || k > 4) return;
    const Vec3D p = rig.Centre(i, j, k), r(p.x - axis.x, p.y - axis.y, 0);
    const double radius = Length(r), q = radius * radius / (kWidth * kWidth);
    // Away from the axis and from where |w| = |2 (1 - q)| e^-q turns.
    if (radius < 0.5 || radius > 1.2) return;
    const double w = 2 * (1 - q) * std::exp(-q);
    const Vec3D expected = Vec3D(-r.y, r.x, 0) / radius * (w * ForceRig::kCell * kConfinement * rig.dt());
    EXPECT_LT(Length(f - expected), 0.12 * Length(expected));
    EXPECT_GT(Dot(f, expected), 0);
    ++checked;
  });
  EXPECT_GT(checked, 100);
}

TEST(Swirling, IsIdleWithoutStrength) {
  ForceRig rig("force_swirling", kCells);
  rig.object.Set(1000, 0.0);
  rig.Ready();
  EXPECT_FALSE(rig.Run());
}

TEST(VorticityThreads, MeanHasTheSameBits) {
  Vec3D first;
  for (const int workers : {1, 2, 3, 8}) {
    ForceRig rig("force_swirling", kCells, workers);
    rig.Ready();
    MersenneTwister random(4);
    rig.SetVelocity([&](const Vec3D&) { return Vec3D(random.Uniform(), random.Uniform(), random.Uniform()); });
    const Vec3D mean = MeanCurl(ViewOf(rig), 4, rig.pool);
    if (workers == 1) first = mean;
    EXPECT_EQ(mean, first);
  }
  EXPECT_NE(first, Vec3D());
}

}  // namespace
}  // namespace orlix
