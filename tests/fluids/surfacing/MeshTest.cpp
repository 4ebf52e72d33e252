// Surfaces of analytic level sets and of noise: closed, in the right place, the same at any number of workers.

#include <gtest/gtest.h>

#include <algorithm>
#include <numbers>

#include "fluids/helpers/Duration.h"
#include "fluids/helpers/PropertyIds.h"
#include "fluids/particles/ParticleGroup.h"
#include "fluids/surfacing/MeshOperator.h"
#include "fluids/surfacing/SurfaceExtractor.h"
#include "fluids/volumes/VolumeBase.h"
#include "globals/Random.h"
#include "tests/fluids/level_sets/TestMeshes.h"
#include "tests/fluids/surfacing/MeshCheck.h"
#include "tests/support/TestScene.h"
#include "tests/support/Workers.h"

namespace orlix {
namespace {

using test::Check;
using test::MeshCheck;

constexpr ExtractionMethod kMethods[] = {ExtractionMethod::Cubes, ExtractionMethod::Tetrahedra,
                                         ExtractionMethod::Tiles};

template <class F>
std::unique_ptr<ScalarGrid> LevelSet(int cells, double side, F&& distance) {
  auto grid = test::LevelSetGrid({cells, cells, cells}, Vec3D(-side / 2), static_cast<float>(side / cells));
  for (int k = 0; k <= cells; ++k) {
    for (int j = 0; j <= cells; ++j) {
      for (int i = 0; i <= cells; ++i) (*grid)(i, j, k) = distance(test::NodeAt(*grid, i, j, k));
    }
  }
  return grid;
}

TriMeshSTL Extract(const ScalarGrid& grid, const ExtractionSettings& settings, int workers = 2) {
  WorkerPool pool(workers);
  TriMeshSTL mesh;
  const SurfaceExtractor extractor(grid, settings);
  EXPECT_TRUE(extractor.Build(pool, mesh));
  extractor.GradientNormals(pool, mesh);
  return mesh;
}

class EachMethod : public testing::TestWithParam<ExtractionMethod> {};
INSTANTIATE_TEST_SUITE_P(All, EachMethod, testing::ValuesIn(kMethods));

double Sphere(const Vec3D& p) { return Length(p - Vec3D(0.013, 0.007, -0.011)) - 0.31; }
double Torus(const Vec3D& p) { return std::hypot(std::hypot(p.x, p.y) - 0.29, p.z) - 0.113; }

TEST_P(EachMethod, SphereAndTorusConvergeToSecondOrderAndAreClosed) {
  const auto errors = [&](int cells, auto&& distance, double area, double volume, int euler) {
    const TriMeshSTL mesh = Extract(*LevelSet(cells, 1, distance), {.method = GetParam()});
    const MeshCheck check = Check(mesh);
    EXPECT_EQ(check.openEdges + check.unusedPoints + check.equalPoints, 0);
    EXPECT_EQ(check.euler, euler);
    EXPECT_GE(check.leastArea, 1e-6 / (cells * cells));
    return std::pair{std::abs(check.area / area - 1), std::abs(check.volume / volume - 1)};
  };
  constexpr double pi = std::numbers::pi;
  const auto compare = [&](auto&& distance, double area, double volume, int euler) {
    const auto [areaCoarse, volumeCoarse] = errors(24, distance, area, volume, euler);
    const auto [areaFine, volumeFine] = errors(48, distance, area, volume, euler);
    EXPECT_LT(areaFine, areaCoarse / 3) << areaCoarse;
    EXPECT_LT(volumeFine, volumeCoarse / 3) << volumeCoarse;
    EXPECT_LT(areaFine, 0.01);
  };
  compare(Sphere, 4 * pi * 0.31 * 0.31, 4.0 / 3 * pi * 0.31 * 0.31 * 0.31, 2);
  compare(Torus, 4 * pi * pi * 0.29 * 0.113, 2 * pi * pi * 0.29 * 0.113 * 0.113, 0);
}

TEST_P(EachMethod, NoiseIsClosedAndPointsLieOnTheSurface) {
  MersenneTwister random(7);
  for (int round = 0; round < 4; ++round) {
    const auto grid = LevelSet(13, 1.3, [&](const Vec3D&) { return random.Uniform() - 0.5; });
    if (round == 3) {  // values that are exactly on the surface
      for (int n = 0; n < grid->count; ++n) (*grid)[n] = std::round(3 * (*grid)[n]);
    }
    const MeshCheck check = Check(Extract(*grid, {.method = GetParam(), .closed = true}));
    EXPECT_EQ(check.openEdges, 0) << round;
    EXPECT_EQ(check.unusedPoints, 0);
    EXPECT_GT(check.volume, 0) << "normals point inside";
  }
}

TEST_P(EachMethod, NodesOnTheSurfaceAndABoxGiveNoSliver) {
  // The faces of the box run through nodes; edges and corners too.
  const auto box = LevelSet(16, 1.6, [](const Vec3D& p) {
    return std::max({std::abs(p.x), std::abs(p.y), std::abs(p.z)}) - 0.5;
  });
  const MeshCheck check = Check(Extract(*box, {.method = GetParam(), .tolerance = 1e-4}));
  EXPECT_EQ(check.openEdges + check.unusedPoints + check.equalPoints, 0);
  EXPECT_EQ(check.euler, 2);
  EXPECT_NEAR(check.volume, 1, 0.06);  // its edges are cut
  EXPECT_GE(check.leastArea, 1e-6 * 0.01);
}

TEST_P(EachMethod, NormalsPointOutsideAndIsoMovesTheSurface) {
  const auto grid = LevelSet(30, 1, Sphere);
  const TriMeshSTL mesh = Extract(*grid, {.method = GetParam(), .iso = 0.05});
  const std::vector<Vec3D>& normals = *mesh.pointAttributes.Find(kPointNormalId);
  for (int p = 0; p < mesh.PointCount(); ++p) {
    const Vec3D out = mesh.Points()[static_cast<std::size_t>(p)] - Vec3D(0.013, 0.007, -0.011);
    EXPECT_NEAR(Length(out), 0.36, 0.003);
    EXPECT_GT(Dot(normals[static_cast<std::size_t>(p)], out) / Length(out), 0.99);
  }
}

TEST_P(EachMethod, OpenWhereTheLevelSetEndsUnlessAsked) {
  const auto slab = LevelSet(10, 1, [](const Vec3D& p) { return p.y; });
  EXPECT_GT(Check(Extract(*slab, {.method = GetParam()})).openEdges, 0);
  const TriMeshSTL mesh = Extract(*slab, {.method = GetParam(), .closed = true});
  const MeshCheck closed = Check(mesh);
  EXPECT_EQ(closed.openEdges, 0);
  EXPECT_EQ(closed.euler, 2);
  // Points of the closing faces look out of the box, too; tiles have blunt edges there.
  const std::vector<Vec3D>& normals = *mesh.pointAttributes.Find(kPointNormalId);
  for (const VecInt3D& t : mesh.Triangles()) {
    const Vec3D &a = mesh.Points()[std::size_t(t.x)], &b = mesh.Points()[std::size_t(t.y)],
                &c = mesh.Points()[std::size_t(t.z)];
    const Vec3D face = Normalized(Cross(b - a, c - a));
    for (const int corner : {t.x, t.y, t.z}) ASSERT_GT(Dot(normals[std::size_t(corner)], face), -0.3);
  }
}

TEST_P(EachMethod, SameMeshAtAnyNumberOfWorkers) {
  MersenneTwister random(3);
  const auto grid = LevelSet(20, 1, [&](const Vec3D& p) { return Sphere(p) + 0.1 * random.Uniform(); });
  test::SameForAnyWorkers([&](int workers) {
    const TriMeshSTL mesh = Extract(*grid, {.method = GetParam(), .tolerance = 1e-3}, workers);
    return std::tuple{mesh.Points(), mesh.Triangles(), *mesh.pointAttributes.Find(kPointNormalId)};
  });
}

TEST(SurfaceExtractor, EmptyWhereNothingCrosses) {
  for (const ExtractionMethod method : kMethods) {
    EXPECT_EQ(Extract(*LevelSet(8, 1, [](const Vec3D&) { return 1.0; }), {.method = method}).PointCount(), 0);
    EXPECT_EQ(Extract(*LevelSet(1, 1, Sphere), {.method = method}).TriangleCount(), 0);
  }
}

// Curvature and smoothing of meshes, and the nodes that make and change them.

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

TEST(MeshNodes, OutsideOfItsDurationAMesherHasNoMesh) {
  Rig rig("");
  BaseObject& duration = rig.Add("duration", "When");
  duration.Set(Duration::kStartId, 2 / 24.0), duration.Set(Duration::kLengthId, 2.5 / 24);
  rig.mesher->Set(kDurationId, test::TestScene::LinkTo(duration));
  std::string frames;
  for (int frame = 0; frame < 8; ++frame) {
    rig.Step(frame);
    const PolygonObject* shown = rig.mesher->Polygons();
    frames += shown && !shown->points.empty() ? 'x' : '-';
    EXPECT_EQ(rig.Mesh().PointCount() > 0, frames.back() == 'x');
  }
  EXPECT_NE(frames.find("-xx"), std::string::npos) << frames;
  EXPECT_TRUE(frames.starts_with('-') && frames.ends_with("--")) << frames;
}

// Of a volume: before emitters scatter over the mesh, once for each time that it is read.
TEST(MeshNodes, AVolumesMeshIsSmoothedOnceWhetherItMovesOrStands) {
  Rig rig("mop_smoothing");
  BaseObject &volume = *rig.mesher->GetLink(ImplicitMesher::kInputId), &ball = rig.Add("sphere", "Ball");
  volume.Set(VolumeBase::kObjectId, rig.LinkTo(ball));
  rig.other->Set(MeshOperator::kSourceId, rig.LinkTo(volume));
  const auto size = [&] { return test::Check(rig.NodeOf<VolumeMesh>(volume)->Mesh()).volume; };
  rig.other->Set(MeshSmoothingOperator::kSmoothingsId, std::int64_t(0));
  rig.Step(0);
  const double whole = size();
  rig.other->Set(MeshSmoothingOperator::kSmoothingsId, std::int64_t(1));
  rig.Step(1);
  const double once = size();
  EXPECT_LT(once, 0.999 * whole);
  EXPECT_GT(once, 0.5 * whole);
  for (int frame = 2; frame <= 5; ++frame) {
    if (frame >= 4) ball.Set(kPositionId, Vec3D(frame, 0, 0));
    rig.Step(frame);
    EXPECT_NEAR(size(), once, 1e-9 * whole) << frame;
  }
  rig.other->Set(MeshSmoothingOperator::kSmoothingsId, std::int64_t(0));
  rig.Step(6);
  EXPECT_NEAR(size(), whole, 1e-9 * whole);
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
  // Two at the same corner of the box and one far away; and one there that has no temperature.
  const Vec3D corner =
      *std::max_element(rig.Mesh().Points().begin(), rig.Mesh().Points().end(),
                        [](const Vec3D& a, const Vec3D& b) { return a.x + a.y + a.z < b.x + b.y + b.z; });
  for (const auto& [off, value] : {std::pair{0.0, 100.0}, {0.0, 300.0}, {1.0, 5000.0}, {0.0, -1.0}}) {
    BaseParticleData data;
    data.position = corner + Vec3D(off);
    if (value > 0) data.SetReal(PP::Temperature, value);
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
