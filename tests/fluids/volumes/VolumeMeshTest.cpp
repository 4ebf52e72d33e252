#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "fluids/bodies/ObstacleTag.h"
#include "fluids/grids/GridMemory.h"
#include "fluids/meshes/MeshHoles.h"
#include "fluids/surfacing/CSGoperatorGrid.h"
#include "fluids/volumes/AlignmentVector3D.h"
#include "fluids/volumes/MultiVolume.h"
#include "fluids/volumes/VolumeBase.h"
#include "fluids/volumes/VolumeMesh.h"
#include "host/geometry/GeometryTypes.h"
#include "tests/support/NodeBench.h"
#include "tests/support/TestScene.h"

namespace orlix::test {
namespace {

constexpr int kSphereRadius = 1110;
constexpr int kCellId = 1002, kModeId = 1003, kSubstepsId = 1005;

// A volume of a sphere of 0.5 m in a scene where 100 host units are a metre.
class VolumeScene : public TestScene {
 public:
  explicit VolumeScene(int workers = 1) : TestScene(workers) {
    root->Set(kCellId, 0.1);
    root->Set(kModeId, std::int64_t(1));
    root->Set(kSubstepsId, std::int64_t(0));
    sphere = &Add("sphere", "Ball");
    sphere->Set(kSphereRadius, 50.0);
    sphere->Set(kPositionId, Vec3D(20, 0, 0));
    host = &Add("volume", "Solid");
    host->Set(VolumeBase::kObjectId, LinkTo(*sphere));
  }
  VolumeMesh& volume() { return *NodeOf<VolumeMesh>(*host); }
  BaseObject& MakeObstacle() { return document.AddTag(*types.Find(kObstacleTagId), *host); }
  void SetSubsteps(int count) { root->Set(kSubstepsId, std::int64_t(count - 1)); }

  BaseObject* sphere;
  BaseObject* host;
};

TEST(VolumeMesh, IsASignedDistanceInMetres) {
  VolumeScene scene(2);
  scene.Step(0);
  VolumeMesh& volume = scene.volume();
  ASSERT_TRUE(volume.HasLevelSet());
  EXPECT_TRUE(volume.IsActive());
  const Vec3D centre(0.2, 0, 0);
  EXPECT_LT(Length(volume.centre - centre), 1e-12);
  for (const Vec3D& direction : {Vec3D(1, 0, 0), Vec3D(0, -1, 0), Normalized(Vec3D(1, 1, 1))}) {
    for (const double r : {0.3, 0.45, 0.5, 0.6}) {
      const Vec3D p = centre + direction * r;
      EXPECT_NEAR(volume.SampleWorld(p), r - 0.5, 0.012) << r;
      EXPECT_EQ(volume.SampleLocal(p - volume.View().origin()), volume.SampleWorld(p));
      EXPECT_NEAR(Dot(volume.NormalLocal(p - volume.View().origin()), direction), 1, 0.05);
    }
  }
  EXPECT_TRUE(volume.InsideWorld(centre));
  EXPECT_FALSE(volume.InsideWorld(centre, -0.6));  // an iso below the deepest
  EXPECT_NEAR(volume.DepthWorld(centre), 1, 0.02);
  EXPECT_NEAR(volume.DepthWorld(centre + Vec3D(0.25, 0, 0)), 0.5, 0.05);
}

// The lattice lies on whole cells of the scene and leaves the padding free on each side.
TEST(VolumeMesh, LatticeIsPaddedAndSnapped) {
  VolumeScene scene;
  scene.host->Set(VolumeBase::kPaddingId, std::int64_t(2));
  scene.Step(0);
  const VolumeMesh& volume = scene.volume();
  const GridSpace& space = volume.LevelSet()->space;
  EXPECT_EQ(volume.LevelSet()->dims, volume.resolution + VecInt3D(1, 1, 1));
  EXPECT_EQ(volume.resolution, VecInt3D(14, 14, 14));  // 1 m, 2 cells on each side, snapped outwards
  EXPECT_EQ(volume.LevelSet()->gridType, kGridNodalLevelset);
  for (int axis = 0; axis < 3; ++axis) {
    EXPECT_NEAR(space.simMin[axis] / 0.1, std::round(space.simMin[axis] / 0.1), 1e-6);
  }
  EXPECT_NEAR(space.simMin.x, -0.5, 1e-6);
  EXPECT_NEAR(space.hostMin.x, -50, 1e-4);
  EXPECT_TRUE(volume.InBox(space.simMin));
  EXPECT_FALSE(volume.InBox(space.simMax));
  Vec3D min(1e9), max(-1e9);
  scene.volume().ExtendBounds(min, max);
  EXPECT_EQ(min, volume.boundsMin);
  EXPECT_EQ(max, volume.boundsMax);
}

TEST(VolumeMesh, PushesPointsToTheSurface) {
  VolumeScene scene;
  scene.Step(0);
  const VolumeMesh& volume = scene.volume();
  const Vec3D centre(0.2, 0, 0), start = centre + Vec3D(0.33, 0.1, -0.2);
  Vec3D p = start;
  ASSERT_TRUE(volume.PushOut(p, true, 0));
  EXPECT_NEAR(volume.SampleWorld(p), 0, 0.005);
  // An offset leaves it that many cells inside.
  Vec3D deeper = start;
  ASSERT_TRUE(volume.PushOut(deeper, true, 0.5));
  EXPECT_NEAR(volume.SampleWorld(deeper), -0.05, 0.006);
  Vec3D local = start - volume.View().origin();
  ASSERT_TRUE(volume.PushOut(local, false, 0));
  EXPECT_LT(Length(local + volume.View().origin() - p), 1e-12);
  Vec3D place, normal;
  ASSERT_TRUE(volume.PushOutNormal(start, place, normal, 0.001));
  EXPECT_NEAR(Length(normal), 1, 1e-12);
  EXPECT_LT(Length(place - p), 0.001);
  VolumeHit hit;
  EXPECT_TRUE(volume.Collide(start, hit, 0));
  EXPECT_TRUE(hit.inside);
  EXPECT_LT(Length(hit.position - p), 1e-6);
  EXPECT_LT(hit.distance, 0);
}

TEST(VolumeMesh, OutsideAndOnTheSurfaceNothingIsPushed) {
  VolumeScene scene;
  scene.Step(0);
  VolumeMesh& volume = scene.volume();
  for (int k = 0; k < volume.LevelSet()->dims.z; ++k) (*volume.LevelSet())(5, 5, k) = 0;
  const Vec3D onSurface = volume.View().origin() + Vec3D(0.5, 0.5, 0.5), outside(0.2, 0.7, 0);
  for (Vec3D p : {onSurface, outside}) {
    const Vec3D before = p;
    VolumeHit hit;
    EXPECT_FALSE(volume.InsideWorld(p));
    EXPECT_FALSE(volume.PushOut(p, true, 0.5));
    EXPECT_FALSE(volume.Collide(p, hit, 0));
    EXPECT_EQ(p, before);
    EXPECT_EQ(hit.position, before);
    EXPECT_EQ(hit.normal, Vec3D(0, 1, 0));
  }
  // No gradient at all: inside, but the point stays.
  volume.LevelSet()->Fill(-1.0);
  Vec3D p(0.2, 0, 0);
  EXPECT_TRUE(volume.PushOut(p, true, 0));
  EXPECT_EQ(p, Vec3D(0.2, 0, 0));
}

// --- rebuilding ------------------------------------------------------------------------------------------------------

TEST(VolumeMesh, WhatStandsStillIsBuiltOnce) {
  VolumeScene scene;
  scene.SetSubsteps(3);
  scene.Step(0);
  const std::uint64_t version = scene.volume().LevelSetVersion();
  scene.StepThrough(1, 4);
  EXPECT_EQ(scene.volume().LevelSetVersion(), version);
  EXPECT_TRUE(scene.volume().IsActive());
  scene.sphere->Set(kSphereRadius, 40.0);
  scene.Step(5);
  EXPECT_EQ(scene.volume().LevelSetVersion(), version + 2);  // the old one goes, the new one comes
  EXPECT_NEAR(scene.volume().SampleWorld({0.2, 0.4, 0}), 0, 0.01);
}

TEST(VolumeMesh, AChangedShellTakesEffect) {
  VolumeScene scene;
  scene.StepThrough(0, 2);
  EXPECT_LT(scene.volume().SampleWorld({0.2, 0, 0}), -0.4);
  scene.host->Set(VolumeBase::kShellId, 0.3);
  scene.Step(3);
  EXPECT_GT(scene.volume().SampleWorld({0.2, 0, 0}), 0.3);
  scene.host->Set(VolumeBase::kFlipSignId, std::int64_t(1));
  scene.host->Set(VolumeBase::kShellId, 1.0);
  scene.Step(4);
  EXPECT_GT(scene.volume().SampleWorld({0.2, 0, 0}), 0.4);
}

// --- motion ----------------------------------------------------------------------------------------------------------

// A driven solid has its frame's velocity in every sub-step, and a rotation velocity across the radius.
TEST(VolumeMesh, KnowsItsVelocityInEachSubstep) {
  for (const int substeps : {1, 3}) {
    VolumeScene scene;
    scene.MakeObstacle();
    scene.SetSubsteps(substeps);
    for (int frame = 0; frame <= 4; ++frame) {
      scene.sphere->Set(kPositionId, Vec3D(20 + 2.0 * frame, 0, 0));
      scene.sphere->Set(kRotationId, Vec3D(0, 3.0 * frame, 0));
      scene.Step(frame);
    }
    const VolumeMesh& volume = scene.volume();
    EXPECT_TRUE(volume.IsDrivenBody());
    const double fps = 24, omega = 3 * fps * std::numbers::pi / 180;
    const Vec3D centre(0.28, 0, 0);
    EXPECT_LT(Length(volume.BodyCentre() - centre), 1e-12);
    EXPECT_LT(Length(volume.VelocityAt(centre) - Vec3D(0.02 * fps, 0, 0)), 1e-7) << substeps;
    const Vec3D atRim = volume.VelocityAt(centre + Vec3D(0.5, 0, 0));
    EXPECT_LT(Length(atRim - Vec3D(0.02 * fps, 0, -0.5 * omega)), 1e-7) << substeps;
    // The sub-steps' motions add up to the frame's.
    EXPECT_NEAR(volume.LinearMotion().x * substeps, 0.02, 1e-12);
    scene.Step(5);  // it stands still
    EXPECT_EQ(volume.LinearMotion(), Vec3D());
    EXPECT_EQ(volume.AngularMotion(), Vec3D());
  }
}

TEST(VolumeMesh, TurningInPlaceMovesTheSurface) {
  VolumeScene scene;
  BaseObject& box = scene.Add("box", "Beam");
  box.Set(kBoxSizeId, Vec3D(100, 20, 20));
  scene.host->Set(VolumeBase::kObjectId, TestScene::LinkTo(box));
  scene.StepThrough(0, 2);
  EXPECT_TRUE(scene.volume().InsideWorld({0.4, 0, 0}));
  box.Set(kRotationId, Vec3D(0, 0, 90));
  scene.Step(3);
  EXPECT_FALSE(scene.volume().InsideWorld({0.4, 0, 0}));
  EXPECT_TRUE(scene.volume().InsideWorld({0, 0.4, 0}));
  EXPECT_NEAR(scene.volume().AngularMotion().z, std::numbers::pi / 2, 1e-9);
}

TEST(VolumeMesh, MotionScalesComeFromTheTag) {
  VolumeScene scene;
  BaseObject& tag = scene.MakeObstacle();
  tag.Set(ObstacleTag::kLinearMotionScaleId, 0.5);
  tag.Set(ObstacleTag::kAngularMotionScaleId, 0.0);
  for (int frame = 0; frame <= 3; ++frame) {
    scene.sphere->Set(kPositionId, Vec3D(0, 2.0 * frame, 0));
    scene.sphere->Set(kRotationId, Vec3D(0, 3.0 * frame, 0));
    scene.Step(frame);
  }
  EXPECT_NEAR(scene.volume().LinearMotion().y, 0.01, 1e-12);
  EXPECT_EQ(scene.volume().AngularMotion(), Vec3D());
}

TEST(VolumeMesh, AnotherObjectIsNoMotion) {
  VolumeScene scene;
  BaseObject& other = scene.Add("sphere", "Other");
  other.Set(kPositionId, Vec3D(500, 0, 0));
  scene.StepThrough(0, 2);
  scene.host->Set(VolumeBase::kObjectId, TestScene::LinkTo(other));
  scene.Step(3);
  EXPECT_NEAR(scene.volume().centre.x, 5, 1e-9);
  EXPECT_EQ(scene.volume().LinearMotion(), Vec3D());
}

// --- obstacles -------------------------------------------------------------------------------------------------------

TEST(VolumeMesh, TheTagMakesAnObstacle) {
  VolumeScene scene;
  scene.Step(0);
  EXPECT_TRUE(CollectObstacles(scene.scene()).empty());
  EXPECT_FALSE(scene.volume().IsStaticBody());
  BaseObject& tag = scene.MakeObstacle();
  scene.Step(1);
  EXPECT_EQ(CollectObstacles(scene.scene()), std::vector<VolumeBase*>{&scene.volume()});
  EXPECT_TRUE(scene.volume().IsDrivenBody());
  tag.Set(ObstacleTag::kDrivenId, std::int64_t(0));
  scene.Step(2);
  EXPECT_TRUE(scene.volume().IsStaticBody());
  scene.host->Set(VolumeBase::kHiddenFromLevelSetsId, std::int64_t(1));
  scene.Step(3);
  EXPECT_TRUE(CollectObstacles(scene.scene()).empty());
  EXPECT_TRUE(scene.volume().IsObstacle());
}

TEST(VolumeMesh, ABodyFallsWithItsObjectAndReturnsToItsStart) {
  VolumeScene scene;
  BaseObject& tag = scene.MakeObstacle();
  tag.Set(ObstacleTag::kDrivenId, std::int64_t(0));
  tag.Set(ObstacleTag::kMassId, 3.0);
  scene.Step(0);
  EXPECT_TRUE(scene.volume().IsDynamicBody());
  const LMatrix start = scene.sphere->GlobalMatrix();
  const double inside = scene.volume().SampleWorld(scene.volume().BodyCentre());
  scene.StepThrough(1, 6);
  const LMatrix now = scene.sphere->GlobalMatrix();
  const double t = 5 / 24.0, hostPerSim = scene.scene().GetSimulationSpace().hostPerSim.y;
  // The start has two frames without motion; half a step of the integrator further than the parabola.
  EXPECT_NEAR(now.off.y - start.off.y, -0.5 * 9.81 * t * t * hostPerSim, 0.02 * 9.81 * t * hostPerSim);
  EXPECT_NEAR(scene.volume().SampleWorld(scene.volume().BodyCentre()), inside, 0.1 * std::abs(inside));
  EXPECT_NEAR(scene.volume().VelocityAt(scene.volume().BodyCentre()).y, -9.81 * (t - 0.5 / 24), 0.1)
      << "of the last step's way";
  scene.Step(0);
  EXPECT_EQ(scene.sphere->GlobalMatrix(), start);
  EXPECT_TRUE(scene.warnings.empty());
}

// --- messages --------------------------------------------------------------------------------------------------------

TEST(VolumeMesh, SaysWhyThereIsNoLevelSet) {
  const std::pair<const char*, std::string> cases[] = {
      {"", "no object is linked"}, {"null", "no polygons"}, {"mesh", "no triangles"}};
  for (const auto& [type, text] : cases) {
    VolumeScene scene;
    scene.host->Set(VolumeBase::kObjectId, *type ? TestScene::LinkTo(scene.Add(type, "Nothing")) : LinkValue());
    scene.StepThrough(0, 2);
    EXPECT_FALSE(scene.volume().IsActive());
    ASSERT_EQ(scene.warnings.size(), 1u) << text;
    EXPECT_NE(scene.warnings[0].second.find(text), std::string::npos) << scene.warnings[0].second;
  }
}

TEST(VolumeMesh, AHoleIsToldAlsoOfAnObstacle) {
  for (const bool obstacle : {false, true}) {
    VolumeScene scene;
    BaseObject& sheet = scene.Add("plane", "Sheet");
    sheet.Set(kRotationId, Vec3D(0, 0, 30));
    scene.host->Set(VolumeBase::kObjectId, TestScene::LinkTo(sheet));
    if (obstacle) scene.MakeObstacle();
    scene.Step(0);
    EXPECT_TRUE(scene.Warned("have no face on one of their sides")) << obstacle;
  }
}

TEST(VolumeMesh, SizesBeyondMemoryAreRefusedWithTheFigures) {
  const struct {
    double radius;
    std::int64_t budget;
    const char* unit;
  } cases[] = {{500.0, 1 << 20, "MB"}, {1e7, 0, "TB"}};
  for (const auto& c : cases) {
    VolumeScene scene;
    SetGridMemoryBudget(c.budget);
    scene.sphere->Set(kSphereRadius, c.radius);
    scene.Step(0);
    SetGridMemoryBudget(0);
    EXPECT_FALSE(scene.volume().HasLevelSet());
    const auto& failure = scene.scene().failure();
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->kind, ErrorKind::Memory);
    EXPECT_NE(failure->text.find(c.unit), std::string::npos) << failure->text;
  }
}

// A tetrahedron: with and without points of their own for each triangle, one triangle less, and one more often.
TEST(MeshHoles, AreOddEdgesAndTrianglesThatCancelOut) {
  const VecInt3D faces[] = {{0, 1, 2}, {0, 3, 1}, {1, 3, 2}, {2, 3, 0}};
  const Vec3D corners[] = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
  const struct {
    std::vector<int> faces;
    int open, doubled;
  } cases[] = {{{0, 1, 2, 3}, 0, 0},
               {{0, 1, 2}, 3, 0},
               {{0, 1}, 4, 0},
               {{0, 1, 2, 3, 0, 1, 2, 3}, 0, 8},
               {{0, 1, 2, 3, 2}, 3, 2}};
  for (const bool soup : {false, true}) {
    for (const auto& c : cases) {
      TriMeshSTL mesh;
      if (!soup) mesh.Points().assign(std::begin(corners), std::end(corners));
      for (const int face : c.faces) {
        const auto base = static_cast<std::int32_t>(mesh.Points().size());
        mesh.Triangles().push_back(soup ? VecInt3D(base, base + 1, base + 2) : faces[face]);
        for (int n = 0; soup && n < 3; ++n) mesh.Points().push_back(corners[faces[face][n]]);
      }
      EXPECT_EQ(FindHoles(mesh).openEdges, c.open) << c.faces.size();
      EXPECT_EQ(FindHoles(mesh).doubled, c.doubled) << c.faces.size();
    }
  }
}

TEST(HostGeometry, TextureCoordinatesAndNormalsComeAlong) {
  PolygonObject roof;
  roof.points = {{0, 0, 0}, {2, 0, 0}, {2, 2, 2}, {0, 2, 2}, {4, 0, 0}};
  roof.polygons = {{0, 1, 2, 3}, {1, 4, 2, 2}};
  roof.textureCoordinates = {{{{0, 0}, {1, 0}, {1, 1}, {0, 1}}}, {{{0.5, 0}, {0.75, 0}, {0.5, 1}, {9, 9}}}};
  const Vec3D up{0, -1, 1};
  roof.normals.assign(roof.points.size(), up);
  TriMeshSTL mesh;
  LMatrix flat;  // squeezes z: the normal turns the other way
  flat.v3 = {0, 0, 0.5};
  ASSERT_EQ(ReadHostGeometry(roof, flat, Vec3D(0.01), mesh, true), GeometryChange::Moved);
  ASSERT_EQ(mesh.textureCoordinates.size(), 9u);
  EXPECT_EQ(mesh.textureCoordinates[4], Vec2D(1, 1));  // the quad's second half goes on from its first corner
  EXPECT_EQ(mesh.textureCoordinates[5], Vec2D(0, 1));
  EXPECT_EQ(mesh.textureCoordinates[7], Vec2D(0.75, 0));
  const std::vector<Vec3D>* normals = mesh.pointAttributes.Find(kPointNormalId);
  ASSERT_NE(normals, nullptr);
  const VecInt3D triangle = mesh.Triangles()[0];
  const Vec3D across = Cross(mesh.Points()[static_cast<std::size_t>(triangle.y)] - mesh.Points()[0],
                             mesh.Points()[static_cast<std::size_t>(triangle.z)] - mesh.Points()[0]);
  for (const Vec3D& normal : *normals) EXPECT_LT(Length(normal - Normalized(across)), 1e-12);
  flat.v1 = {-1, 0, 0};  // a mirror: corners go round the other way, with what they have
  ReadHostGeometry(roof, flat, Vec3D(0.01), mesh);
  EXPECT_TRUE(mesh.Triangles()[1] == VecInt3D(0, 3, 2));
  EXPECT_EQ(mesh.textureCoordinates[4], Vec2D(0, 1));
  roof.textureCoordinates.pop_back();  // not one for each polygon
  ReadHostGeometry(roof, flat, Vec3D(0.01), mesh);
  EXPECT_TRUE(mesh.textureCoordinates.empty());
}

// Directions of an alignment, mode by mode.

using test::NodeBench;

class Alignment : public testing::Test {
 protected:
  AlignmentVector3D& Made(std::int64_t mode, bool invert = false) {
    object_->Set(AlignmentVector3D::kModeId, mode);
    object_->Set(AlignmentVector3D::kInvertId, std::int64_t{invert});
    bench_.Link();
    auto& node = bench_.Get<AlignmentVector3D>(*object_);
    node.Prepare();
    return node;
  }
  static void ExpectNear(const Vec3D& a, const Vec3D& b) {
    EXPECT_LT(Length(a - b), 1e-12) << a.x << " " << a.y << " " << a.z;
  }

  NodeBench bench_;
  BaseObject* object_ = &bench_.Add("alignment", "a");
};

TEST_F(Alignment, AxesAndAVectorAreTurnedByTheObject) {
  object_->Set(AlignmentVector3D::kVectorId, Vec3D(0, 2, 0));
  object_->Set(kRotationId, Vec3D(0, 0, 90));
  // Without a body, a volume or a mode of that number the vector serves.
  const std::tuple<int, bool, Vec3D> cases[] = {{0, false, {0, 1, 0}},  {1, false, {-1, 0, 0}}, {2, false, {0, 0, 1}},
                                                {2, true, {0, 0, -1}},  {7, false, {-2, 0, 0}}, {12, true, {2, 0, 0}},
                                                {9, false, {-2, 0, 0}}, {6, false, {-2, 0, 0}}};
  for (const auto& [mode, invert, direction] : cases) ExpectNear(Made(mode, invert).GetDirection({5, 5, 5}), direction);
}

TEST_F(Alignment, GoesFromItsCentreOrAlongTheMajorAxisOrAroundItsZ) {
  auto& node = Made(3);
  node.SetCentre({1, 2, 3});
  ExpectNear(node.GetDirection({1, 2, 7}), {0, 0, 1});
  ExpectNear(node.GetDirection({4, 6, 3}), {0.6, 0.8, 0});
  ExpectNear(node.GetDirection({1, 2, 3}), {0, 0, 0});
  ExpectNear(MajorAxisOf({-3, 2, 1}), {-1, 0, 0});
  ExpectNear(MajorAxisOf({1, -2, 1}), {0, -1, 0});
  ExpectNear(MajorAxisOf({2, 2, 1}), {0, 1, 0});  // x only where it is strictly the greatest
  ExpectNear(MajorAxisOf({1, 1, -1}), {0, 0, -1});
  auto& major = Made(4);
  major.SetVector({0, 0, 1});
  major.SetCentre({5, 0, 0});
  ExpectNear(major.GetDirection({9, 9, 9}), {-1, 0, 0});
  object_->Set(kRotationId, Vec3D(0, 90, 0));  // its z is the world's x
  auto& around = Made(5);
  around.SetCentre({1, 1, 1});
  ExpectNear(around.GetDirection({4, 3, 1}), {0, 2, 0});
  ExpectNear(around.GetDirection({-7, 1, 0}), {0, 0, -1});
  object_->Set(kRotationId, Vec3D());
  BaseObject& other = bench_.Add("null", "n");
  other.Set(kPositionId, Vec3D(8, 0, 0));
  object_->Set(AlignmentVector3D::kReferenceId, NodeBench::LinkTo(other));
  ExpectNear(Made(3).GetDirection({8 * bench_.scene().space.simPerVoxel.x, 3, 0}), {0, 1, 0});
}

TEST_F(Alignment, NormalOfAVolumePointsOutwards) {
  BaseObject &volume = bench_.Add("volume", "v"), &ball = bench_.Add("sphere", "ball");
  ball.Set(kPositionId, Vec3D(100, 100, 100));
  volume.Set(VolumeBase::kObjectId, NodeBench::LinkTo(ball));
  object_->Set(AlignmentVector3D::kReferenceId, NodeBench::LinkTo(volume));
  bench_.Link();
  auto& mesh = bench_.Get<VolumeMesh>(volume);
  mesh.Prepare();
  ProcessData data;
  mesh.Process(data);
  const Vec3D normal = Made(6).GetDirection({2, 1, 1});
  EXPECT_NEAR(Length(normal), 1, 1e-12);
  EXPECT_GT(normal.x, 0.95);
  EXPECT_LT(Made(6, true).GetDirection({2, 1, 1}).x, -0.95);
  // The centre is the volume's own.
  ExpectNear(Made(3).GetDirection(mesh.centre + Vec3D(0, 0, 2)), {0, 0, 1});
}

TEST_F(Alignment, RandomDirectionsAreUnitVectorsAboutZero) {
  auto& node = Made(8);
  Vec3D sum, squares;
  constexpr int kDraws = 20000;
  for (int i = 0; i < kDraws; ++i) {
    const Vec3D d = node.GetDirection({i * 0.21, 1, -2});
    EXPECT_NEAR(Length(d), 1, 1e-12);
    sum += d, squares += d * d;
  }
  for (int axis = 0; axis < 3; ++axis) {
    EXPECT_NEAR(sum[axis] / kDraws, 0, 0.02);
    EXPECT_NEAR(squares[axis] / kDraws, 1.0 / 3, 0.02);
  }
}

TEST_F(Alignment, ARandomDirectionFollowsFromSeedFrameAndPlace) {
  auto& node = Made(8);
  const double cell = bench_.scene().space.cellSize;
  const Vec3D centre = Vec3D(7.5, -3.5, 0.5) * cell, elsewhere = Vec3D(7.5, -2.5, 0.5) * cell;
  const Vec3D first = node.GetDirection(centre);
  node.GetDirection(elsewhere);
  ExpectNear(node.GetDirection(centre), first);
  ExpectNear(node.GetDirection(centre * (1 - 1e-15)), first);  // as another container rounds it
  const auto differs = [&] { return Length(node.GetDirection(centre) - first) > 1e-3; };
  EXPECT_GT(Length(node.GetDirection(elsewhere) - first), 1e-3);
  EXPECT_GT(Length(node.GetDirection(centre + Vec3D(0.1 * cell, 0, 0)) - first), 1e-3);
  bench_.scene().seed += 1;
  EXPECT_TRUE(differs());
  bench_.scene().seed -= 1, bench_.scene().info.frame += 1;
  EXPECT_TRUE(differs());
  EXPECT_TRUE(IsFinite(node.GetDirection({1e300, NAN, -1e300})));
}

// Many objects as one volume.

class MultiScene : public TestScene {
 public:
  MultiScene() {
    root->Set(RootSettings::kVoxelSizeId, 0.1);
    b.Set(kPositionId, Vec3D(200, 0, 0));
    for (BaseObject* object : {&a, &b}) object->Set(kRadiusId, 50.0);
    List({&a, &b});
  }
  void List(const std::vector<const BaseObject*>& objects) { multi.Set(MultiVolume::kObjectsId, ListOf(objects)); }
  MultiVolume& Node() { return *NodeOf<MultiVolume>(multi); }

  static constexpr int kRadiusId = 1110;
  BaseObject &a = Add("sphere", "A"), &b = Add("sphere", "B"), &multi = Add("volume_multi", "Both");
};

TEST(MultiVolume, AnswersForAllItsObjects) {
  MultiScene s;
  s.Step(0);
  ASSERT_EQ(s.Node().memberCount(), 2u);
  EXPECT_NEAR(s.Node().SampleWorld({0, 0, 0}), -0.5, 0.03);
  EXPECT_NEAR(s.Node().SampleWorld({2, 0, 0}), -0.5, 0.03);
  EXPECT_TRUE(s.Node().InsideWorld({2.2, 0, 0}));
  EXPECT_FALSE(s.Node().InsideWorld({1, 0, 0}));
  Vec3D p(2.4, 0, 0), outside(1, 0, 0);
  EXPECT_TRUE(s.Node().PushOut(p, true, 0));
  EXPECT_NEAR(p.x, 2.5, 0.02);
  EXPECT_FALSE(s.Node().PushOut(outside, true, 0));
  VolumeHit hit;
  EXPECT_TRUE(s.Node().Collide({0, 0.4, 0}, hit, 0));
  EXPECT_GT(hit.normal.y, 0.9);
  EXPECT_FALSE(s.Node().Collide({1, 0, 0}, hit, 0));
  EXPECT_EQ(hit.position, Vec3D(1, 0, 0));
  Vec3D low(9), high(-9);
  s.Node().ExtendBounds(low, high);
  EXPECT_LT(low.x, -0.7);
  EXPECT_GT(high.x, 2.7);
  EXPECT_GT(s.Node().DerivedBytes(), 2 * 17 * 17 * 17 * 8);
}

TEST(MultiVolume, MembersFollowTheListAndKeepTheirs) {
  MultiScene s;
  BaseObject& c = s.Add("sphere", "C");
  c.Set(MultiScene::kRadiusId, 30.0), c.Set(kPositionId, Vec3D(0, 300, 0));
  s.StepThrough(0, 1);
  const VolumeMesh* kept = &s.Node().member(1);
  const std::uint64_t version = kept->LevelSetVersion();
  s.List({&c, &s.b, &c});
  s.Step(2);
  ASSERT_EQ(s.Node().memberCount(), 2u);
  EXPECT_EQ(&s.Node().member(1), kept);
  EXPECT_EQ(kept->LevelSetVersion(), version);
  EXPECT_NEAR(s.Node().SampleWorld({0, 3, 0}), -0.3, 0.03);
  // One that moves has a motion of its own.
  s.b.Set(kPositionId, Vec3D(210, 0, 0));
  s.Step(3);
  EXPECT_NEAR(s.Node().member(1).LinearMotion().x, 0.1 * s.scene().info.substepFraction, 1e-6);
  EXPECT_EQ(s.Node().member(0).LinearMotion(), Vec3D());
  s.List({});
  s.Step(4);
  EXPECT_EQ(s.Node().memberCount(), 0u);
  EXPECT_EQ(s.Node().SampleWorld({}), std::numeric_limits<double>::max());
  EXPECT_FALSE(s.Node().InsideWorld({}));
  EXPECT_NE(s.warnings.back().second.find("no object is listed"), std::string::npos);
}

TEST(MultiVolume, WithATagEachMemberIsAnObstacle) {
  MultiScene s;
  BaseObject& csg = s.Add("csg", "Whole");
  csg.Set(CSGoperatorGrid::kFirstId, s.LinkTo(s.multi));
  s.Step(0);
  EXPECT_TRUE(CollectObstacles(s.scene()).empty());
  s.document.AddTag(*s.types.Find(kObstacleTagId), s.multi);
  s.Step(1);
  EXPECT_EQ(CollectObstacles(s.scene()).size(), 2u);
  // It isn't one level set, and is refused where one is needed.
  bool refused = false;
  for (const auto& [node, text] : s.warnings) refused |= text.find("has no level set; link a volume") != text.npos;
  EXPECT_TRUE(refused);
}

}  // namespace
}  // namespace orlix::test
