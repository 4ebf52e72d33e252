// Curvature and smoothing of meshes, and the nodes that make and change them.

#include "fluids/surfacing/MeshOperator.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "fluids/helpers/PropertyIds.h"
#include "fluids/particles/ParticleGroup.h"
#include "fluids/volumes/VolumeBase.h"
#include "tests/fluids/level_sets/TestMeshes.h"
#include "tests/fluids/surfacing/MeshCheck.h"
#include "tests/support/TestScene.h"

namespace orlix {
namespace {

std::vector<double> CurvatureOf(const TriMeshSTL& mesh) {
  WorkerPool pool(2);
  MeshAdjacency adjacency;
  adjacency.Build(mesh);
  std::vector<double> curvatures, areas;
  MeanCurvatures(mesh, adjacency, pool, curvatures, areas);
  return curvatures;
}

TEST(MeshKernels, CurvatureOfASphereAnEllipsoidAndAFlatPatch) {
  TriMeshSTL ball = test::SphereMesh(0.5, 96, 48);
  const auto beforePoles = [&](auto&& f) {
    for (int p = 0; p < ball.PointCount(); ++p) {
      const Vec3D& x = ball.Points()[static_cast<std::size_t>(p)];
      // Triangles at the poles are long.
      if (std::abs(x.y) < 0.45 && std::abs(x.z) < 0.45) f(static_cast<std::size_t>(p), x);
    }
  };
  const std::vector<double> ofBall = CurvatureOf(ball);
  beforePoles([&](std::size_t p, const Vec3D&) { EXPECT_NEAR(ofBall[p], 4, 0.05); });
  // Along x twice as long: at (a, 0, 0) the curvatures are a / b^2 both, around x = 0 they are 1 / b and b / a^2.
  for (Vec3D& p : ball.Points()) p.x *= 2;
  const std::vector<double> ofEllipsoid = CurvatureOf(ball);
  const auto nearest = [&](const Vec3D& place) {
    const auto& points = ball.Points();
    return static_cast<std::size_t>(
        std::min_element(points.begin(), points.end(),
                         [&](const Vec3D& a, const Vec3D& b) { return Length(a - place) < Length(b - place); }) -
        points.begin());
  };
  EXPECT_NEAR(ofEllipsoid[nearest({1, 0, 0})], 2 * 1 / 0.25, 0.3);
  EXPECT_NEAR(ofEllipsoid[nearest({0, 0.3536, 0.3536})], 1 / 0.5 + 0.5 / 1, 0.1);

  TriMeshSTL patch;
  patch.Resize(2 * 4 * 4, 25);
  for (int n = 0; n < 25; ++n) patch.Points()[static_cast<std::size_t>(n)] = Vec3D(n % 5, n / 5, 0) * 0.1;
  for (int n = 0; n < 16; ++n) {
    const int a = n / 4 * 5 + n % 4;
    patch.Triangles()[static_cast<std::size_t>(2 * n)] = {a, a + 1, a + 6};
    patch.Triangles()[static_cast<std::size_t>(2 * n + 1)] = {a, a + 6, a + 5};
  }
  for (const int inner : {6, 7, 8, 12, 18}) EXPECT_NEAR(CurvatureOf(patch)[static_cast<std::size_t>(inner)], 0, 1e-9);
}

// A box as a volume, its mesher, and a smoother or none.
struct Rig : test::TestScene {
  explicit Rig(const char* op) {
    root->Set(RootSettings::kVoxelSizeId, 0.1);
    BaseObject& box = Add("box", "Box");
    BaseObject& volume = Add("volume", "Volume");
    volume.Set(VolumeBase::kObjectId, LinkTo(box));
    mesher = &Add("mesher", "Mesher");
    mesher->Set(ImplicitMesher::kInputId, LinkTo(volume));
    if (!*op) return;
    other = &Add(op, "Operator");
    other->Set(MeshOperator::kSourceId, LinkTo(*mesher));
  }
  const TriMeshSTL& Mesh() { return NodeOf<ImplicitMesher>(*mesher)->Mesh(); }
  BaseObject *mesher = nullptr, *other = nullptr;
};

TEST(MeshNodes, MesherShowsAClosedMeshAndASmootherWorksInTheSameFrameOnce) {
  Rig plain("");
  plain.Step(0);
  const test::MeshCheck check = test::Check(plain.Mesh());
  EXPECT_EQ(check.openEdges, 0);
  EXPECT_EQ(check.euler, 2);
  const PolygonObject* shown = plain.mesher->Polygons();
  ASSERT_NE(shown, nullptr);
  EXPECT_EQ(shown->points.size(), static_cast<std::size_t>(plain.Mesh().PointCount()));
  EXPECT_EQ(shown->normals.size(), shown->points.size());

  Rig rig("mop_smoothing");
  rig.other->Set(MeshSmoothingOperator::kSmoothingsId, std::int64_t(20));
  rig.Step(0);
  const double once = test::Check(rig.Mesh()).volume;
  EXPECT_LT(once, 0.999 * check.volume);
  rig.StepThrough(1, 3);
  EXPECT_EQ(test::Check(rig.Mesh()).volume, once) << "smoothed again";
  EXPECT_TRUE(rig.warnings.empty());
  rig.other->Set(kStageId, std::int64_t(kStageOperators));
  rig.Step(4);
  ASSERT_EQ(rig.warnings.size(), 1u);
  EXPECT_NE(rig.warnings[0].second.find("frame before"), std::string::npos);
}

TEST(MeshNodes, PointsCarryDistancesAndPropertiesOfParticles) {
  Rig rig("");
  BaseObject& groupObject = rig.Add("particlegroup", "Drops");
  BaseObject& heat = rig.Add("property_temperature", "Heat");
  BaseObject& volume = *rig.mesher->GetLink(ImplicitMesher::kInputId);
  rig.mesher->Set(ImplicitMesher::kVertexDataId, rig.ListOf({&volume, &heat}));
  rig.mesher->Set(ImplicitMesher::kVertexRadiusId, 0.15);
  rig.Step(0);
  auto* group = rig.NodeOf<ParticleGroup>(groupObject);
  // Two at the same corner of the box and one far away.
  const Vec3D corner =
      *std::max_element(rig.Mesh().Points().begin(), rig.Mesh().Points().end(),
                        [](const Vec3D& a, const Vec3D& b) { return a.x + a.y + a.z < b.x + b.y + b.z; });
  for (const auto& [off, value] : {std::pair{0.0, 100.0}, {0.0, 300.0}, {1.0, 5000.0}}) {
    BaseParticleData data;
    data.position = corner + Vec3D(off);
    data.SetReal(PP::Temperature, value);
    group->list(PK_Passive)->Append(1, data);
  }
  rig.Step(1);
  const PolygonObject* shown = rig.mesher->Polygons();
  ASSERT_NE(shown, nullptr);
  ASSERT_EQ(shown->attributes.size(), 2u);
  EXPECT_EQ(shown->attributes[0].name, "Volume");
  for (const double distance : shown->attributes[0].values) EXPECT_NEAR(distance, 0, 0.02);
  EXPECT_EQ(shown->attributes[1].name, "Heat");
  int hot = 0, cold = 0;
  for (const double value : shown->attributes[1].values) {
    EXPECT_TRUE(value == 0 || std::abs(value - 200) < 1e-9) << value;
    value > 0 ? ++hot : ++cold;
  }
  EXPECT_GT(hot, 0);
  EXPECT_GT(cold, hot);
}

TEST(MeshNodes, CurvatureGoesToTheShownMeshAndMissingInputsAreTold) {
  Rig rig("mop_curvature");
  rig.Step(0);
  const PolygonObject* shown = rig.mesher->Polygons();
  ASSERT_EQ(shown->attributes.size(), 1u);
  EXPECT_EQ(shown->attributes[0].name, "curvature");
  EXPECT_GT(*std::max_element(shown->attributes[0].values.begin(), shown->attributes[0].values.end()), 1);
  rig.mesher->Set(ImplicitMesher::kInputId, LinkValue{});
  rig.other->Set(MeshOperator::kSourceId, LinkValue{});
  rig.Step(1);
  EXPECT_EQ(rig.mesher->Polygons(), nullptr);
  ASSERT_EQ(rig.warnings.size(), 2u);
  EXPECT_NE(rig.warnings[0].second.find("no level set"), std::string::npos);
}

}  // namespace
}  // namespace orlix
