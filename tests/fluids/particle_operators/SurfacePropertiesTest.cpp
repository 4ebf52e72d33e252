// Normals, curvature and stretch of particles near a surface.

#include <gtest/gtest.h>

#include "fluids/particle_operators/PSurface_Properties.h"
#include "globals/Random.h"
#include "tests/support/TestScene.h"
#include "tests/support/Workers.h"

namespace orlix {
namespace {

using Node = PSurface_Properties;

// A ball of particles of 0.3 m, eight a cell, with densities that fall off outwards.
class BallScene : public test::TestScene {
 public:
  explicit BallScene(int workers = 1) : TestScene(workers) {
    root->Set(RootSettings::kVoxelSizeId, 0.1);
    node.Set(Node::kGroupId, LinkTo(group));
    node.Set(Node::kCommonRadiusId, 1.5);
    Step(0);
    MersenneTwister random(5);
    for (int n = 0; n < 14 * 14 * 14; ++n) {
      const Vec3D cell(n % 14 - 7, n / 14 % 14 - 7, n / 196 - 7);
      const Vec3D x = (cell + Vec3D(random.Uniform(), random.Uniform(), random.Uniform()) * 0.5) * 0.05;
      if (Length(x) < 0.3) Add(x, Length(x) > 0.2 ? 0.5 : 0.9);
    }
  }
  using TestScene::Add;
  void Add(const Vec3D& x, double density) {
    BaseParticleData data;
    data.position = x;
    data.SetReal(PP::Density, density);
    List().Append(1, data);
  }
  ParticleList& List() { return *NodeOf<ParticleGroup>(group)->list(PK_Liquid); }
  OrlixParticle At(int n) { return {&List(), n}; }

  BaseObject &group = TestScene::Add("particlegroup", "Drops"), &node = TestScene::Add("psurfaceproperty", "node");
};

TEST(SurfaceProperties, NormalsPointOutwardsAndInnerParticlesHaveNone) {
  for (const auto kernel : {Node::NormalKernel::Smooth, Node::NormalKernel::Spiky, Node::NormalKernel::Steep}) {
    BallScene s;
    s.node.Set(Node::kNormalKernelId, static_cast<std::int64_t>(kernel));
    s.Step(1);
    int outer = 0;
    for (int n = 0; n < s.List().count(); ++n) {
      const Vec3D x = s.At(n).GetPosition(), normal = s.At(n).GetVectorOr(PP::Normal, Vec3D(9));
      if (s.At(n).GetRealOr(PP::Density, 0) > 0.7) {
        EXPECT_EQ(normal, Vec3D());
        EXPECT_EQ(s.At(n).GetRealOr(PP::Curvature, -1), 0);
        continue;
      }
      EXPECT_NEAR(Length(normal), 1, 1e-12);
      EXPECT_GT(s.At(n).GetRealOr(PP::Curvature, -1), 0);
      outer += Length(x) > 0.26 && Dot(normal, Normalized(x)) > 0.9;
    }
    EXPECT_GT(outer, 200);
  }
}

TEST(SurfaceProperties, TheRawNormalIsTheSumOverAllPairs) {
  BallScene s;
  s.node.Set(Node::kWriteNormalId, std::int64_t(0));
  s.Step(1);
  const double h = 1.5 * s.scene().space.cellSize;
  int checked = 0;
  for (int n = 0; n < s.List().count(); n += 29) {
    if (s.At(n).GetRealOr(PP::Density, 0) > 0.7) continue;
    Vec3D sum;
    for (int m = 0; m < s.List().count(); ++m) {
      const Vec3D d = s.At(n).GetPosition() - s.At(m).GetPosition();
      const double q = Length(d) / h;
      if (m != n && q < 1) sum += d * (945 / (32 * 3.14159265358979 * h * h * h) * (1 - q * q));
    }
    // It isn't scaled to 1 unless it is asked for; its length is the curvature.
    const Vec3D normal = s.At(n).GetVectorOr(PP::Normal, {});
    EXPECT_LT(Length(normal - sum), 1e-5 * Length(sum));
    EXPECT_NEAR(s.At(n).GetRealOr(PP::Curvature, 0), Length(normal) / 1000, 1e-12);
    ++checked;
  }
  EXPECT_GT(checked, 20);
}

// A flat sheet bends less than a small ball, and its balls are flat.
TEST(SurfaceProperties, ASheetIsFlat) {
  const auto values = test::SameForAnyWorkers([](int workers) {
    BallScene s(workers);
    s.node.Set(Node::kCurvatureModeId, static_cast<std::int64_t>(Node::CurvatureMode::SpreadMean));
    s.node.Set(Node::kWriteAnisotropyId, std::int64_t(1));
    const int first = s.List().count();
    MersenneTwister random(2);
    for (int n = 0; n < 625; ++n) {
      s.Add(Vec3D(5 + n % 25 * 0.05 + random.Uniform() * 0.01, n / 25 * 0.05, random.Uniform() * 0.01), 0.3);
    }
    s.Step(1);
    const OrlixParticle middle = s.At(first + 312);
    const Vec3D up = middle.GetVectorOr(PP::StretchRow2, {}), along = middle.GetVectorOr(PP::StretchRow0, {});
    std::vector<double> all{middle.GetRealOr(PP::Anisotropy, -1), up.z, along.x, middle.GetRealOr(PP::Curvature, -1),
                            0};
    int outer = 0;
    for (int n = 0; n < first; ++n) {
      const double curvature = s.At(n).GetRealOr(PP::Curvature, -1);
      if (s.At(n).GetRealOr(PP::Density, 0) < 0.7) all[4] += curvature, ++outer;
      all.push_back(curvature), all.push_back(s.At(n).GetRealOr(PP::Anisotropy, -1));
    }
    all[4] /= outer;
    return all;
  });
  EXPECT_LT(values[0], 0.01);                       // scale
  EXPECT_NEAR(values[1], 4 / std::cbrt(4.0), 0.1);  // short across: a quarter of the longest
  EXPECT_NEAR(values[2], 1 / std::cbrt(4.0), 0.1);
  EXPECT_GT(values[4], 0.05);
}

TEST(SurfaceProperties, WhoIsLeftOutHasNoNormalAndMissingDensityIsTold) {
  BallScene s;
  for (int n = 0; n < s.List().count(); ++n) s.At(n).Remove(PP::Density);
  s.Step(1);
  ASSERT_FALSE(s.warnings.empty());
  EXPECT_NE(s.warnings.back().second.find("no particle carries a density"), std::string::npos);
  EXPECT_EQ(s.At(0).GetVectorOr(PP::Normal, Vec3D(1)), Vec3D());
}

}  // namespace
}  // namespace orlix
