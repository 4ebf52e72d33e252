// Phase functions, black bodies and the blur, against closed forms and published tables.

#include <gtest/gtest.h>

#include <cmath>

#include "fluids/volume_renderer/BlackBodyTable.h"
#include "fluids/volume_renderer/Diffusor.h"
#include "fluids/volume_renderer/PhaseFunction.h"

namespace orlix {
namespace {

// The mean over the sphere: half the integral over the cosine.
double SphereMean(std::uint32_t index, double g, double second) {
  const auto phase = PhaseFunction::Make(index, 0.7f);
  double sum = 0;
  constexpr int kSteps = 200000;
  for (int n = 0; n < kSteps; ++n) sum += phase->Evaluate(-1 + 2 * (n + 0.5) / kSteps, g, second);
  return sum / kSteps;
}

TEST(PhaseFunction, SphereMeans) {
  for (const double g : {-0.5, 0.0, 0.6, 0.8}) {
    EXPECT_NEAR(SphereMean(1, g, 0), 1, 1e-5) << g;
    EXPECT_NEAR(SphereMean(6, g, 0), 1, 1e-5) << g;
    EXPECT_NEAR(SphereMean(7, g, -0.3), 1, 1e-5) << g;
    EXPECT_NEAR(SphereMean(2, g, 0), 4 * g / 3, 1e-5) << g;
  }
  for (const std::uint32_t index : {0u, 3u, 4u, 5u}) EXPECT_NEAR(SphereMean(index, 0.6, 0), 1, 1e-4) << index;
}

TEST(PhaseFunction, KnownValuesAndRefusedIndices) {
  EXPECT_FALSE(PhaseFunction::Make(9, 0.7f));
  EXPECT_FALSE(PhaseFunction::Make(0xffffffffu, 0.7f));
  EXPECT_EQ(PhaseFunction::Make(5, 0.7f)->Evaluate(1, 0, 0), 17);
  EXPECT_EQ(PhaseFunction::Make(5, 0.7f)->Evaluate(-1, 0, 0), 0.5);
  EXPECT_EQ(PhaseFunction::Make(4, 0.7f)->Evaluate(1, 0, 0), 5);
  EXPECT_EQ(PhaseFunction::Make(2, 0.7f)->Evaluate(0.3, 0, 0), 0);
  EXPECT_DOUBLE_EQ(PhaseFunction::Make(7, 0.2f)->Evaluate(0.4, 0.5, 0.5),
                   PhaseFunction::Make(1, 0)->Evaluate(0.4, 0.5, 0));
  EXPECT_DOUBLE_EQ(PhaseFunction::Make(8, 0)->Evaluate(0.5, 0.0, 0), 1.5 * 1.125);
  EXPECT_TRUE(std::isnan(PhaseFunction::Make(8, 0)->Evaluate(0.5, 1.0, 0)));
  const auto mie = PhaseFunction::Make(3, 0);
  for (const double g : {-1.0, -0.4, 0.0, 0.5, 1.0}) {
    double ahead = mie->Evaluate(1, g, 0);
    for (double c = -1; c <= 1; c += 0.05) {
      const double v = mie->Evaluate(c, g, 0);
      EXPECT_TRUE(std::isfinite(v) && v >= 0 && v <= ahead + 1e-12) << g << " " << c;
    }
  }
}

TEST(BlackBody, ChromaticitiesOfThePublishedLocus) {
  struct Row {
    double kelvin, x, y;
  };
  // Planckian locus (Wyszecki and Stiles 1982); the constants here differ in the fourth digit.
  constexpr Row kRows[] = {{2000, 0.5267, 0.4133}, {2856, 0.4475, 0.4074}, {4000, 0.3805, 0.3768},
                           {5000, 0.3451, 0.3516}, {6500, 0.3135, 0.3237}, {10000, 0.2806, 0.2883}};
  for (const Row& row : kRows) {
    const Vec3D v = BlackBodySpectrum(row.kelvin);
    EXPECT_NEAR(v.x / (v.x + v.y + v.z), row.x, 6e-4) << row.kelvin;
    EXPECT_NEAR(v.y / (v.x + v.y + v.z), row.y, 6e-4) << row.kelvin;
  }
}

TEST(BlackBody, HottestIsWhiteColdIsRedAndThenBlack) {
  for (int system = 0; system < 7; ++system) {
    BlackBodyTable table;
    table.lowest = 0, table.highest = 6500;
    table.Build(1, Vec3D(1.0), system);
    ASSERT_TRUE(table.built());
    const Vec3D hot = table.Sample(9000), warm = table.Sample(1500), cold = table.Sample(0);
    // The adaptation leads to equal energy, which is the white of the CIE system only.
    const double tolerance = system == 4 || system == 6 ? 2e-3 : 0.15;
    EXPECT_NEAR(hot.x, 1, tolerance) << system;
    EXPECT_NEAR(hot.y, 1, tolerance) << system;
    EXPECT_NEAR(hot.z, 1, tolerance) << system;
    EXPECT_EQ(warm.x, 1);
    EXPECT_GT(warm.x, warm.y);
    EXPECT_GE(warm.y, warm.z);
    EXPECT_EQ(cold, Vec3D()) << "nothing to divide by: black, not NaN";
    for (double k = 0; k <= 6600; k += 7) ASSERT_TRUE(IsFinite(table.Sample(k)));
  }
}

TEST(BlackBody, DegenerateTables) {
  BlackBodyTable table;
  EXPECT_EQ(table.Sample(1000), Vec3D());
  table.lowest = table.highest = 3000;
  table.Build(1, Vec3D(1.0), 5);
  EXPECT_EQ(table.rows(), 1u);
  EXPECT_EQ(table.Sample(5), table.Sample(50000));
  table.step = 0;
  table.Build(1, Vec3D(1.0), 5);
  EXPECT_FALSE(table.built());
  table.step = 1e-300, table.highest = 1e300;
  table.Build(1, Vec3D(1.0), 5);
  EXPECT_LE(table.rows(), 1000000u);
}

TEST(BlackBody, TransferCurveJoins) {
  EXPECT_NEAR(Rec709Transfer(0.018), Rec709Transfer(0.018 - 1e-12), 1e-9);
  EXPECT_DOUBLE_EQ(Rec709Transfer(0.01), 0.01 * 4.513774668618915);
  EXPECT_DOUBLE_EQ(Rec709Transfer(1), 1);
}

TEST(Blur, AConstantStaysAlsoAtBorders) {
  WorkerPool pool(3);
  ScalarGrid grid({9, 8, 7}, {9, 8, 7}, 1, kGridSmoke, {});
  grid.Fill(0.6);
  ASSERT_TRUE(Blur(pool, nullptr, grid, grid, 1.5, 3, 0.1, 1));
  for (std::int64_t c = 0; c < grid.count; ++c) EXPECT_NEAR(grid[c], 0.6, 1e-14);
}

TEST(Blur, APointBecomesTheProductOfThreeGaussians) {
  WorkerPool pool(2);
  ScalarGrid grid({15, 15, 15}, {15, 15, 15}, 1, kGridSmoke, {});
  grid.Fill(0);
  grid(7, 7, 7) = 1;
  ScalarGrid out = grid;
  ASSERT_TRUE(Blur(pool, nullptr, grid, out, 1.2, 1, 0, 1));
  double weights[7], total = 0, sum = 0;
  for (int d = -3; d <= 3; ++d) total += weights[d + 3] = std::exp(-d * d / (1.2 * 1.2));
  for (const int d : {-2, 0, 3}) {
    EXPECT_NEAR(out(7 + d, 7, 8), weights[d + 3] * weights[3] * weights[4] / (total * total * total), 1e-15);
  }
  for (std::int64_t c = 0; c < out.count; ++c) sum += out[c];
  EXPECT_NEAR(sum, 1, 1e-12);
  ScalarGrid same = grid;
  ASSERT_TRUE(Blur(pool, nullptr, grid, same, 0.3, 4, 0, 1));
  EXPECT_TRUE(std::equal(same.data, same.data + same.count, grid.data)) << "a kernel of one cell";
  BaseThread thread;
  thread.Break();
  EXPECT_FALSE(Blur(pool, &thread, grid, out, 1.2, 1, 0, 1));
}

}  // namespace
}  // namespace orlix
