// Emission over meshes.

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>

#include "fluids/volumes/VolumeMesh.h"
#include "tests/fluids/particle_emitters/EmissionScene.h"
#include "tests/support/TemporaryFolder.h"

namespace orlix {
namespace {

using test::EmissionScene;

class MeshEmitter : public testing::Test {
 protected:
  MeshEmitter() {
    s.document.fps = 100;
    s.emitter.Set(1022, 0.0);
  }
  BaseObject& Grey(double value) {
    BaseObject& shader = s.Add("noise_shader", "Grey");
    const GradientKnot knots[] = {{0, Vec3D(value)}};
    shader.Set(1105, GradientValue(std::make_shared<Gradient>(knots)));
    return shader;
  }
  EmissionScene s{"particlemeshemitter"};
};

TEST_F(MeshEmitter, MakesSoManyASecond) {
  s.Step(0);
  EXPECT_EQ(s.Count(), 10) << "1000/s in 0.01 s";
  s.settings.Set(1004, std::int64_t(99));
  s.Step(1);
  EXPECT_EQ(s.Count(), 10) << "0.99 is none";
  s.settings.Set(1000, true);
  s.emitter.Set(kIterationsId, std::int64_t(2));
  s.Step(2);
  EXPECT_EQ(s.Count(), 10 + 3 * 99);
  BaseObject& rate = s.Add("rate", "Rate");
  rate.Set(5000, std::int64_t(2)), rate.Set(5003, std::int64_t(7));
  s.settings.Set(1001, s.LinkTo(rate));
  s.Step(3);
  EXPECT_EQ(s.Count(), 10 + 3 * 99 + 3 * 7);
  EXPECT_TRUE(s.warnings.empty());
}

TEST_F(MeshEmitter, LiesEvenlyOnTheSurface) {
  s.settings.Set(1004, std::int64_t(1200000));
  s.Step(0);
  ASSERT_EQ(s.Count(), 12000);
  Vec3D mean, square;
  for (const Vec3D& p : s.Positions()) {
    ASSERT_NEAR(std::max({std::abs(p.x), std::abs(p.y), std::abs(p.z)}), 0.5, 1e-9);
    mean += p * (1.0 / 12000), square += p * p * (1.0 / 12000);
  }
  EXPECT_LT(Length(mean), 0.01);
  // Of a cube's surface: a third of the faces at 1/4, the others uniform, 1/12.
  for (int axis = 0; axis < 3; ++axis) EXPECT_NEAR(square[axis], (0.25 + 2.0 / 12) / 3, 0.003);
}

TEST_F(MeshEmitter, MasksByShaderAndCurvature) {
  s.emitter.Set(1016, s.LinkTo(Grey(0.5)));
  s.emitter.Set(1017, 0.6);
  s.Step(0);
  EXPECT_EQ(s.Count(), 0);
  s.emitter.Set(1017, 0.4);
  s.emitter.Set(1021, 0.2);  // 20 in the mesh's unit
  s.Step(1);
  EXPECT_EQ(s.Count(), 10);
  EXPECT_TRUE(s.Warned("curvature_limit has no effect"));
  auto& curvature = s.NodeOf<VolumeMesh>(s.volume)->Mesh().pointAttributes.Column<double>(PP::Curvature);
  std::fill(curvature.begin(), curvature.end(), 19.0);
  s.Step(2);
  EXPECT_EQ(s.Count(), 10);
  s.emitter.Set(1020, true);
  s.Step(3);
  EXPECT_EQ(s.Count(), 20);
}

TEST_F(MeshEmitter, GivesNormalsTexturesAndColours) {
  BaseObject& velocity = s.Add("property_vector", "Velocity");
  velocity.Set(2001, std::int64_t(PP::Velocity));
  s.emitter.Set(1013, true), s.emitter.Set(1014, true);
  s.emitter.Set(1015, s.LinkTo(Grey(0.25)));
  s.Step(0);
  EXPECT_TRUE(s.Warned("write_normal and write_uv have no effect"));
  EXPECT_FALSE(s.NodeOf<ParticleGroup>(s.group)->At(PK_Liquid, 0).Has(PP::Normal));
  s.SetProperties({&velocity});
  s.Step(1);
  for (int i = 10; i < 20; ++i) {
    const OrlixParticle p = s.NodeOf<ParticleGroup>(s.group)->At(PK_Liquid, i);
    const Vec3D n = p.GetVectorOr(PP::Normal, {});
    EXPECT_NEAR(Dot(n, p.GetPosition()), 0.5, 1e-9) << "outward, of unit length";
    EXPECT_EQ(p.GetVectorOr(PP::Color, {}), Vec3D(0.25));
  }
}

TEST_F(MeshEmitter, ReadsTextureCoordinatesOfAMeshThatDeforms) {
  const test::TemporaryFolder folder;
  // A square whose texture coordinates are its x and z in metres, and which rises by a metre a frame.
  for (const int frame : {0, 1}) {
    std::ofstream(folder / fmt::format("square.{}.obj", frame)) << fmt::format(
        "v 0 {0} 0\nv 100 {0} 0\nv 100 {0} 100\nv 0 {0} 100\nvt 0 0\nvt 1 0\nvt 1 1\nvt 0 1\nf 1/1 2/2 3/3 4/4\n",
        100 * frame);
  }
  s.document.folder = folder.path().string();
  BaseObject &mesh = s.Add("mesh", "Square"), &velocity = s.Add("property_vector", "Velocity");
  mesh.Set(5101, std::string("square.#.obj"));
  velocity.Set(2001, std::int64_t(PP::Velocity));
  s.volume.Set(1003, s.LinkTo(mesh));
  s.SetProperties({&velocity});
  s.emitter.Set(1014, true);
  s.StepThrough(0, 1);
  ASSERT_EQ(s.Count(), 20);
  for (int i = 0; i < 20; ++i) {
    const OrlixParticle p = s.NodeOf<ParticleGroup>(s.group)->At(PK_Liquid, i);
    EXPECT_NEAR(p.GetPosition().y, i < 10 ? 0 : 1, 1e-12);
    EXPECT_NEAR(Length(p.GetVectorOr(PP::UV, {}) - Vec3D(p.GetPosition().x, p.GetPosition().z, 0)), 0, 1e-12);
  }
}

TEST_F(MeshEmitter, KeepsItsDistanceFromWhatIsThere) {
  s.settings.Set(1004, std::int64_t(50000));
  s.emitter.Set(1022, 3.0);
  s.Step(0);
  const std::vector<Vec3D> before = s.Positions();
  ASSERT_EQ(before.size(), 500u);
  s.Step(1);
  for (int i = 500; i < s.Count(); ++i) {
    for (const Vec3D& p : before) ASSERT_GE(Length(s.List().Position(i) - p), 0.3 - 1e-12);
  }
  EXPECT_LT(s.Count(), 510);
}

}  // namespace
}  // namespace orlix
