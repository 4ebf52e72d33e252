// The node that reconstructs a surface from particles.

#include "fluids/surfacing/SurfaceReconstructor.h"

#include <gtest/gtest.h>

#include "fluids/constraints/VoxelDistanceConstraint.h"
#include "globals/Random.h"
#include "tests/support/TestScene.h"

namespace orlix {
namespace {

using test::TestScene;

class ReconstructorNode : public testing::Test {
 protected:
  ReconstructorNode() {
    s.root->Set(RootSettings::kVoxelSizeId, 0.2);
    object.Set(SurfaceReconstructor::kSourceId, s.LinkTo(group));
    s.Step(0);
  }
  ParticleList& List() { return *s.NodeOf<ParticleGroup>(group)->list(PK_Liquid); }
  void AddParticle(const Vec3D& position, double density = -1) {
    BaseParticleData data;
    data.position = position;
    if (density >= 0) data.SetReal(PP::Density, density);
    List().Append(1, data);
  }
  SurfaceReconstructor& Node() { return *s.NodeOf<SurfaceReconstructor>(object); }
  double At(const Vec3D& x) {
    const GridSpace& space = Node().LevelSet()->space;
    return Node().SampleGrid(space.VoxelOfSim(x));
  }
  TestScene s;
  BaseObject &group = s.Add("particlegroup", "Drops"), &object = s.Add("surface_reconstruction", "Surface");
};

TEST_F(ReconstructorNode, ADropIsABallOnTheScenesLattice) {
  EXPECT_EQ(Node().LevelSet(), nullptr);
  EXPECT_EQ(Node().SampleGrid({}), 0);
  object.Set(SurfaceReconstructor::kSubdivisionId, 2.0);
  AddParticle({1, 2, 3});
  s.Step(1);
  const ScalarGrid& grid = *Node().LevelSet();
  const double cell = float(0.1);
  EXPECT_EQ(grid.space.cellSize, float(0.1));
  EXPECT_EQ(grid.gridType, kGridNodalLevelset);
  for (int axis = 0; axis < 3; ++axis) {
    EXPECT_NEAR(grid.space.simMin[axis] / cell, std::round(grid.space.simMin[axis] / cell), 1e-4);
  }
  EXPECT_NEAR(grid.space.simMin.x, 1 - 1.2, cell + 1e-6);
  EXPECT_NEAR(At({1, 2, 3}), -0.1, 1e-6);
  EXPECT_NEAR(At({1.2, 2, 3}), 0.1, 1e-6);
  EXPECT_GT(At({1.5, 2, 3}), 2);
  // It doesn't shift with the particle, and a version tells that it changed.
  const std::uint64_t version = Node().LevelSetVersion();
  OrlixParticle(&List(), 0).SetPosition({1.03, 2.01, 3});
  const VecInt3D dims = grid.dims;
  s.Step(2);
  EXPECT_NEAR(std::remainder(Node().LevelSet()->space.simMin.x, cell), 0, 1e-5);
  EXPECT_LE(Node().LevelSet()->dims.x - dims.x, 1);
  EXPECT_GT(Node().LevelSetVersion(), version);
  EXPECT_NEAR(At({1.03, 2.01, 3}), -0.1, 0.06);
  List().Clear();
  s.Step(3);
  EXPECT_EQ(Node().LevelSet(), nullptr);
}

TEST_F(ReconstructorNode, TheFilterLeavesParticlesOut) {
  object.Set(SurfaceReconstructor::kSubdivisionId, 2.0);
  AddParticle({0.9, 1, 1}), AddParticle({5, 1, 1}, 0.9), AddParticle({1, 5, 1}, 0.3);
  BaseObject &ball = s.Add("constraint_voxeldistance", "ball"), &centre = s.Add("null", "centre");
  centre.Set(kPositionId, Vec3D(100, 500, 100));
  ball.Set(VoxelDistanceConstraint::kReferenceId, s.LinkTo(centre));
  ball.Set(VoxelDistanceConstraint::kDistanceId, 60.0);
  object.Set(kConstraintsId, s.ListOf({&ball}));
  object.Set(SurfaceReconstructor::kDensityThresholdId, 0.5);
  s.Step(1);
  EXPECT_TRUE(s.Warned("its constraints leave nothing out while filter is off"));
  for (const Vec3D& x : {Vec3D(0.9, 1, 1), Vec3D(5, 1, 1), Vec3D(1, 5, 1)}) EXPECT_LT(At(x), 0);
  object.Set(SurfaceReconstructor::kFilterId, std::int64_t(1));
  s.Step(2);
  // A particle at weight 0 by the constraint, one that is too dense, one that stays.
  const double in[] = {At({0.9, 1, 1}), At({5, 1, 1}), At({1, 5, 1})};
  int kept = 0;
  for (int n = 0; n < 3; ++n) {
    EXPECT_EQ(in[n] < 0, (List().Flags(n) & ParticleFlag::Excluded) != 0) << n;
    kept += in[n] < 0;
  }
  EXPECT_EQ(kept, 1);
  EXPECT_GT(in[1], 0);
}

TEST_F(ReconstructorNode, TakesThePointsOfAMesh) {
  BaseObject& mesh = s.Add("box", "Box");
  mesh.Set(kPositionId, Vec3D(10, 20, 30));
  object.Set(SurfaceReconstructor::kSourceId, s.LinkTo(mesh));
  object.Set(SurfaceReconstructor::kSubdivisionId, 4.0);
  s.Step(1);
  ASSERT_NE(Node().LevelSet(), nullptr);
  int inside = 0;
  for (const Vec3D& point : mesh.Polygons()->points) {
    inside += At((mesh.GlobalMatrix() * point) * s.scene().space.simPerHost) < -0.02;
  }
  EXPECT_EQ(inside, int(mesh.Polygons()->points.size()));
  EXPECT_GE(inside, 8);
}

TEST_F(ReconstructorNode, AComputedStretchMakesASheetFlat) {
  MersenneTwister random(1);
  for (int n = 0; n < 3600; ++n) {
    AddParticle({n % 60 * 0.05 + random.Uniform() * 0.01, n / 60 * 0.05 + random.Uniform() * 0.01, 1});
  }
  object.Set(SurfaceReconstructor::kMethodId, std::int64_t(2));
  object.Set(SurfaceReconstructor::kSubdivisionId, 4.0);
  s.Step(1);
  EXPECT_TRUE(s.Warned("no particle carries a stretch"));
  const double round = At({1.5, 1.5, 1.05});
  object.Set(SurfaceReconstructor::kStretchId, std::int64_t(1));
  s.Step(2);
  // Balls that are flat reach less far across the sheet.
  EXPECT_LT(round, -0.02);
  EXPECT_GT(At({1.5, 1.5, 1.05}), round + 0.01);
  EXPECT_LT(At({1.5, 1.5, 1}), -0.05);
}

TEST_F(ReconstructorNode, TellsWhatIsMissing) {
  object.Set(SurfaceReconstructor::kSourceId, LinkValue{});
  s.StepThrough(1, 2);
  EXPECT_TRUE(s.Warned("no particles are linked"));
  Node().Conclude();
  EXPECT_TRUE(s.Warned("no level set was made"));
  object.Set(SurfaceReconstructor::kSourceId, s.LinkTo(group));
  AddParticle({0, 0, 0}), AddParticle({1e9, 1e9, 1e9});
  s.Step(3);
  EXPECT_TRUE(s.Warned("remove particles that flew far away"));
  EXPECT_FALSE(s.scene().failure());
}

TEST_F(ReconstructorNode, RenderOnlyWaitsForARender) {
  AddParticle({1, 1, 1});
  object.Set(SurfaceReconstructor::kRenderOnlyId, std::int64_t(1));
  s.Step(1);
  EXPECT_EQ(Node().LevelSet(), nullptr);
  EXPECT_TRUE(s.document.SetTime(BaseTime::OfFrame(2, 24)).ok());
  s.hook.Execute(s.document, &s.thread, true);
  EXPECT_NE(Node().LevelSet(), nullptr);
}

}  // namespace
}  // namespace orlix
