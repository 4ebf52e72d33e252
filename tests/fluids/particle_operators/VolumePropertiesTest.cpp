// Densities of particles by their neighbours.

#include <gtest/gtest.h>

#include "fluids/particle_operators/ParticleVolumeProperties.h"
#include "globals/Random.h"
#include "tests/support/TestScene.h"

namespace orlix {
namespace {

using test::TestScene;

class VolumeProperties : public testing::Test {
 protected:
  VolumeProperties() {
    s.root->Set(1002, 0.1);
    node.Set(1000, s.LinkTo(group));
    s.Step(0);
    MersenneTwister random(5);
    for (int n = 0; n < 400; ++n) {
      BaseParticleData data;
      data.position = Vec3D(random.Uniform(), random.Uniform(), random.Uniform()) * 0.5;
      if (n % 4 == 0) data.SetReal(PP::Mass, 2);
      List().Append(1, data);
    }
  }
  ParticleList& List() { return *s.NodeOf<ParticleGroup>(group)->list(PK_Liquid); }
  OrlixParticle At(int n) { return {&List(), n}; }
  double SumAt(int n, Vec3D* centre = nullptr) {
    const double radius = 2.5 * s.scene().space.halfCell;
    double sum = 0;
    Vec3D places;
    for (int m = 0; m < List().count(); ++m) {
      const double d = Length(At(m).GetPosition() - At(n).GetPosition());
      const double weight = std::max(0.0, 1 - d * d / (radius * radius)) * At(m).GetRealOr(PP::Mass, 1);
      sum += weight, places += At(m).GetPosition() * weight;
    }
    if (centre) *centre = At(n).GetPosition() * 0.8 + places / sum * 0.2;
    return sum;
  }

  TestScene s;
  BaseObject &group = s.Add("particlegroup", "group"), &node = s.Add("pvaluetoproperty", "node");
};

TEST_F(VolumeProperties, DensityIsRelativeToTheDensestPlaceOfTheFirstStep) {
  node.Set(1003, true);
  s.Step(1);  // still at time 0
  double most = 0;
  for (int n = 0; n < 400; ++n) most = std::max(most, SumAt(n));
  for (int n = 0; n < 400; ++n) {
    Vec3D centre;
    const double sum = SumAt(n, &centre);
    EXPECT_NEAR(At(n).GetRealOr(PP::Density, -1), sum / most, 1e-12);
    EXPECT_NEAR(At(n).GetRealOr(PP::KernelSum, -1), sum, 1e-12);
    EXPECT_LT(Length(At(n).GetVectorOr(PP::SmoothedCentre, {}) - centre), 1e-12);
  }
  // Denser places later count as the densest; a lone particle has its own weight.
  for (int n = 0; n < 30; ++n) {
    BaseParticleData data;
    data.position = Vec3D(5, 5, 5);
    List().Append(1, data);
  }
  BaseParticleData lone;
  lone.position = Vec3D(9, 9, 9);
  List().Append(1, lone);
  s.StepThrough(2, 3);
  EXPECT_EQ(At(410).GetRealOr(PP::Density, -1), 1);
  EXPECT_NEAR(At(430).GetRealOr(PP::Density, -1), 1 / most, 1e-12);
}

TEST_F(VolumeProperties, WhatIsSwitchedOffIsTakenAndConstraintsLeaveParticlesOut) {
  s.Step(1);
  BaseObject &ball = s.Add("constraint_voxeldistance", "ball"), &centre = s.Add("null", "centre");
  ball.Set(1000, s.LinkTo(centre)), ball.Set(1001, 30.0);
  node.Set(kConstraintsId, s.ListOf({&ball}));
  node.Set(1009, false);
  for (int n = 0; n < 400; ++n) At(n).SetReal(PP::Density, 7);
  s.Step(2);
  for (int n = 0; n < 400; ++n) {
    EXPECT_FALSE(At(n).Has(PP::KernelSum));
    EXPECT_EQ(At(n).GetRealOr(PP::Density, -1) == 7, Length(At(n).GetPosition()) >= 0.3) << n;
  }
}

}  // namespace
}  // namespace orlix
