// Stretches of surface balls, against what is known of them.

#include "fluids/particles/AnisotropyPass.h"

#include <gtest/gtest.h>

#include <random>

namespace orlix {
namespace {

double Determinant(const Matrix3& a) { return Dot(a.Row(0), Cross(a.Row(1), a.Row(2))); }

TEST(SymmetricMatrix, EigenvectorsTurnBackIntoTheMatrix) {
  std::mt19937 random(2);
  std::uniform_real_distribution<double> d(-1, 1);
  for (int n = 0; n < 200; ++n) {
    Matrix3 a;
    for (int r = 0; r < 3; ++r) {
      for (int c = r; c < 3; ++c)
        a.m[r][c] = a.m[c][r] = n % 5 == 0 && r != c ? 0 : d(random) * (n % 7 == 0 ? 1e-9 : 1);
    }
    const EigenSystem s = EigenSystemOf(a);
    EXPECT_GE(s.values[0], s.values[1]);
    EXPECT_GE(s.values[0], s.values[2]);
    const Matrix3 back = StretchAlong(s.vectors, s.values);
    for (int r = 0; r < 3; ++r) {
      for (int c = 0; c < 3; ++c) {
        EXPECT_NEAR(back.m[r][c], a.m[r][c], 1e-14);
        EXPECT_NEAR(Dot(s.vectors[r], s.vectors[c]), r == c ? 1 : 0, 1e-14);
      }
    }
    const double x = std::fabs(d(random)) + 1e-3;
    EXPECT_NEAR(FastCubeRoot(x) / std::cbrt(x), 1, 1e-4);
  }
}

AnisotropySettings Settings() {
  AnisotropySettings s;
  s.maxNeighbours = 50, s.minNeighbours = 10, s.radius = 0.5, s.radiusFactor = 2;
  return s;
}

TEST(Anisotropy, ASheetIsFlattenedAndKeepsItsVolume) {
  std::vector<Vec3D> points;
  for (int i = 0; i < 400; ++i) points.push_back({(i % 20) * 0.15, (i / 20) * 0.15, 0});
  points.push_back({100, 0, 0});
  WorkerPool pool(2);
  std::vector<Anisotropy> results(points.size());
  RunAnisotropyPass(Settings(), points, pool, results);
  const Matrix3& m = results[210].matrix;
  EXPECT_NEAR(Determinant(m), 1, 1e-3);
  EXPECT_NEAR(m.m[2][2] * results[210].scale, 4, 1e-9);  // the sheet's normal, limited by the ratio
  EXPECT_NEAR(m.m[0][0], m.m[1][1], 0.1);
  EXPECT_NEAR(m.m[0][2], 0, 1e-12);
  EXPECT_NEAR(results[210].scale, 1 / m.m[0][0], 0.2);
  EXPECT_EQ(results[400].matrix, Matrix3());  // alone
  EXPECT_EQ(results[400].scale, 1);
}

TEST(Anisotropy, FewNeighboursOrOnePlaceGiveNoStretch) {
  const std::vector<Vec3D> points(60, Vec3D(1, 2, 3));
  std::vector<Neighbour> near;
  for (int i = 0; i < 60; ++i) near.push_back({i, 0, 0});
  EXPECT_EQ(AnisotropyByNeighbourhood(Settings(), points, near).matrix, Matrix3());
  const std::vector<Vec3D> line = {{0, 0, 0}, {0.1, 0, 0}, {0.2, 0, 0}};
  const std::vector<Neighbour> three = {{0, 0, 0}, {1, 0.01, 0.1}, {2, 0.04, 0.2}};
  const Anisotropy few = AnisotropyByNeighbourhood(Settings(), line, three);
  for (int r = 0; r < 3; ++r) EXPECT_NEAR(few.matrix.m[r][r], 1, 1e-4);
  EXPECT_EQ(AnisotropyByNeighbourhood(Settings(), line, {}).matrix, Matrix3());
}

TEST(Anisotropy, ByVelocityTheBallGrowsAlongIt) {
  AnisotropySettings s = Settings();
  s.mode = AnisotropySettings::Mode::ByVelocity;
  const std::vector<Vec3D> velocities = {{0, 3, 0}, {1, 0, 0}, {100, 0, 0}, {0.005, 0, 0}};
  WorkerPool pool(1);
  std::vector<Anisotropy> results(velocities.size());
  RunAnisotropyPass(s, velocities, pool, results);
  for (std::size_t i = 0; i < 3; ++i) {
    const Vec3D u = Normalized(velocities[i]);
    EXPECT_NEAR(std::fabs(Determinant(results[i].matrix)), 1, 1e-12);
    EXPECT_NEAR(Length(results[i].matrix * (u * results[i].scale)), 1, 1e-12);  // the surface of the ball
  }
  EXPECT_NEAR(results[1].scale, 1.21, 1e-12);
  EXPECT_NEAR(results[2].scale, std::pow(4, 2.0 / 3), 1e-12);
  EXPECT_EQ(results[3].matrix, Matrix3());
}

}  // namespace
}  // namespace orlix
