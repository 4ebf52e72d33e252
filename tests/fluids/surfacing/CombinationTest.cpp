// Volumes of two others, against the values of both at each node.

#include <gtest/gtest.h>

#include "fluids/constraints/VoxelDistanceConstraint.h"
#include "fluids/surfacing/CSGoperatorGrid.h"
#include "fluids/surfacing/SurfaceReconstructor.h"
#include "fluids/volumes/VolumeMesh.h"
#include "tests/support/TestScene.h"

namespace orlix {
namespace {

using Operation = CombinationSettings::Operation;
using BlendMode = CombinationSettings::BlendMode;

constexpr int kSphereRadius = 1110;

// Two balls of 0.5 m, 0.4 m apart.
class CsgScene : public test::TestScene {
 public:
  explicit CsgScene(int workers = 1) : TestScene(workers) {
    root->Set(RootSettings::kVoxelSizeId, 0.1);
    csg.Set(CSGoperatorGrid::kFirstId, LinkTo(*volumes[0]));
    csg.Set(CSGoperatorGrid::kSecondId, LinkTo(*volumes[1]));
    for (int n = 0; n < 2; ++n) {
      spheres[n]->Set(kSphereRadius, 50.0);
      volumes[n]->Set(VolumeBase::kObjectId, LinkTo(*spheres[n]));
    }
    spheres[1]->Set(kPositionId, Vec3D(40, 0, 0));
  }
  void Set(Operation operation, BlendMode mode = BlendMode::Smooth) {
    csg.Set(CSGoperatorGrid::kOperationId, static_cast<std::int64_t>(operation));
    csg.Set(CSGoperatorGrid::kBlendModeId, static_cast<std::int64_t>(mode));
  }
  CSGoperatorGrid& Node() { return *NodeOf<CSGoperatorGrid>(csg); }
  const ScalarGrid& Grid() { return *Node().LevelSet(); }
  const ScalarGrid& Input(int n) { return *NodeOf<VolumeMesh>(*volumes[n])->LevelSet(); }
  // f(a, b, result, place) at each node of the result that both inputs hold. Gives how many.
  template <class F>
  int ForShared(F&& f) {
    int shared = 0;
    for (std::int64_t c = 0; c < Grid().count; ++c) {
      const VecInt3D dims = Grid().dims, at(int(c % dims.x), int(c / dims.x % dims.y), int(c / Grid().slab));
      const Vec3D place = Grid().space.SimOfVoxel(Vec3D(at));
      double values[2];
      bool inside = true;
      for (int n = 0; n < 2; ++n) {
        const Vec3D i = Input(n).space.VoxelOfSim(place) + Vec3D(1e-3);
        const VecInt3D low(i), n3 = Input(n).dims;
        inside = inside && std::min({i.x, i.y, i.z}) >= 0 && low.x < n3.x && low.y < n3.y && low.z < n3.z;
        if (inside) values[n] = Input(n)(low.x, low.y, low.z);
      }
      if (inside) ++shared, f(values[0], values[1], Grid()[c], place);
    }
    return shared;
  }

  BaseObject* spheres[2] = {&Add("sphere", "A"), &Add("sphere", "B")};
  BaseObject* volumes[2] = {&Add("volume", "VolumeA"), &Add("volume", "VolumeB")};
  BaseObject& csg = Add("csg", "Both");
};

TEST(CSGoperatorGrid, IsMinMaxAndDifferenceAtEachNode) {
  CsgScene s(2);
  s.csg.Set(CSGoperatorGrid::kOffsetId, 0.05);
  const auto expect = [&](Operation operation, auto&& f) {
    s.Set(operation);
    s.Step(1);
    EXPECT_GT(s.ForShared([&](double a, double b, double result, const Vec3D&) { EXPECT_EQ(result, f(a, b - 0.05)); }),
              1000);
  };
  s.Step(0);
  expect(Operation::Union, [](double a, double b) { return std::min(a, b); });
  // The box holds both and the second's growth; the surface of the first alone is its own.
  EXPECT_NEAR(s.Grid().space.simMax.x, s.Input(1).space.simMax.x + 0.1, 1e-6);
  EXPECT_NEAR(s.Node().SampleWorld({-0.5, 0, 0}), 0, 0.01);
  EXPECT_NEAR(s.Node().SampleWorld({0.95, 0, 0}), 0, 0.01);
  EXPECT_NEAR(*s.Node().MaximumDepth(), 0.54, 0.02);
  expect(Operation::Intersection, [](double a, double b) { return std::max(a, b); });
  EXPECT_TRUE(s.Grid().space.simMin.x > s.Input(0).space.simMin.x);
  expect(Operation::Subtraction, [](double a, double b) { return std::max(a, -b); });
  EXPECT_EQ(s.Grid().dims, s.Input(0).dims);
  // The other way round, the second loses.
  s.csg.Set(CSGoperatorGrid::kSwapId, std::int64_t(1));
  s.Step(2);
  EXPECT_EQ(s.Grid().dims, s.Input(1).dims);
  EXPECT_GT(s.Node().SampleWorld({0.1, 0, 0}), 0);
  EXPECT_LT(s.Node().SampleWorld({0.8, 0, 0}), 0);
}

TEST(CSGoperatorGrid, BlendsFollowTheirFormulas) {
  CsgScene s;
  s.csg.Set(CSGoperatorGrid::kBlendValueId, 0.03);
  const auto expect = [&](BlendMode mode, double t, auto&& f) {
    s.Set(Operation::Blend, mode);
    s.csg.Set(CSGoperatorGrid::kBlendId, t);
    s.Step(1);
    EXPECT_GT(s.ForShared([&](double a, double b, double result, const Vec3D&) { EXPECT_NEAR(result, f(a, b), 1e-6); }),
              1000);
  };
  s.Step(0);
  expect(BlendMode::Smooth, 1, [](double a, double b) { return std::min(a, b) - 0.03; });
  EXPECT_NEAR(s.Node().SampleWorld({-0.53, 0, 0}), 0, 0.01);
  EXPECT_LT(s.Grid().space.simMin.x, s.Input(0).space.simMin.x - 0.02);  // it doesn't grow out of its box
  expect(BlendMode::Smooth, 0, [](double a, double b) { return a + b - std::sqrt(a * a + b * b) - 0.03; });
  expect(BlendMode::Morph, 0, [](double a, double) { return a; });
  expect(BlendMode::Morph, 1, [](double, double b) { return b; });
  expect(BlendMode::Soft, 0, [](double a, double b) { return std::min(a, b); });
  const auto h = [](double x) {
    const double q = std::clamp(x / 0.2, 0.0, 1.0);
    return 2 * q * q * q - 3 * q * q + 1;
  };
  expect(BlendMode::Soft, 0.2, [&](double a, double b) { return (0.03 - h(a) - h(b)) * 4 / 3 * 0.2; });
}

TEST(CSGoperatorGrid, ConstraintsWeighABlendAtItsNodes) {
  CsgScene s(3);
  BaseObject &ball = s.Add("constraint_voxeldistance", "ball"), &centre = s.Add("null", "centre");
  ball.Set(VoxelDistanceConstraint::kReferenceId, s.LinkTo(centre));
  ball.Set(VoxelDistanceConstraint::kDistanceId, 31.0);
  s.csg.Set(kConstraintsId, s.ListOf({&ball}));
  s.Step(0);
  EXPECT_TRUE(s.Warned("its constraints weigh a blend alone"));
  s.Set(Operation::Blend, BlendMode::Morph);
  s.csg.Set(CSGoperatorGrid::kBlendId, 1.0);
  s.Step(1);
  int changed = 0;
  s.ForShared([&](double a, double b, double result, const Vec3D& place) {
    const double t = std::max(0.0, 1 - Length(place) / 0.31);  // asked at the nodes themselves
    EXPECT_NEAR(result, a + (b - a) * t, 1e-6) << place.x << " " << place.y;
    changed += t > 0 && t < 1;
  });
  EXPECT_GT(changed, 50);
}

// A tree of them in any order of creation; what stands still is made once.
TEST(CSGoperatorGrid, TreesGrowFromTheLeaves) {
  CsgScene s;
  BaseObject& inner = s.Add("csg", "Inner");
  inner.Set(CSGoperatorGrid::kFirstId, s.LinkTo(*s.volumes[0]));
  inner.Set(CSGoperatorGrid::kSecondId, s.LinkTo(*s.volumes[1]));
  s.csg.Set(CSGoperatorGrid::kFirstId, s.LinkTo(inner));
  s.Set(Operation::Subtraction);
  s.Step(0);
  // (A or B) without B.
  EXPECT_LT(s.Node().SampleWorld({-0.3, 0, 0}), 0);
  EXPECT_GT(s.Node().SampleWorld({0.3, 0, 0}), 0);
  s.Step(1);
  const std::uint64_t version = s.Node().LevelSetVersion();
  s.StepThrough(2, 3);
  EXPECT_EQ(s.Node().LevelSetVersion(), version);
  s.spheres[1]->Set(kPositionId, Vec3D(-40, 0, 0));
  s.Step(4);
  EXPECT_GT(s.Node().LevelSetVersion(), version);
  EXPECT_GT(s.Node().SampleWorld({-0.3, 0, 0}), 0);
  inner.Set(CSGoperatorGrid::kSecondId, s.LinkTo(s.csg));
  s.Step(5);
  EXPECT_EQ(s.Node().LevelSet(), nullptr);
  EXPECT_TRUE(s.Warned("is made of this volume itself"));
}

TEST(CSGoperatorGrid, WhatIsMissingIsTold) {
  CsgScene s;
  s.csg.Set(CSGoperatorGrid::kFirstId, LinkValue{});
  BaseObject& surface = s.Add("surface_reconstruction", "Surface");
  s.csg.Set(CSGoperatorGrid::kSecondId, s.LinkTo(surface));
  s.Step(0);
  EXPECT_EQ(s.Node().LevelSet(), nullptr);
  EXPECT_TRUE(s.Warned("no volume is linked as first"));
  EXPECT_TRUE(s.Warned("is made later in a frame"));
  // Balls that don't touch have nothing in common.
  s.csg.Set(CSGoperatorGrid::kFirstId, s.LinkTo(*s.volumes[0]));
  s.csg.Set(CSGoperatorGrid::kSecondId, s.LinkTo(*s.volumes[1]));
  s.spheres[1]->Set(kPositionId, Vec3D(900, 0, 0));
  s.Set(Operation::Intersection);
  s.Step(1);
  EXPECT_EQ(s.Node().LevelSet(), nullptr);
  s.Set(Operation::Union);
  s.Step(2);
  EXPECT_LT(s.Node().SampleWorld({0, 0, 0}), -0.4);
  EXPECT_LT(s.Node().SampleWorld({9, 0, 0}), -0.4);
  EXPECT_GT(s.Node().SampleWorld({4.5, 0, 0}), 1);
}

// A finer level set is sampled; beyond its box distances go on.
TEST(LevelSetRows, ReadsAnotherLatticeAndBeyondIt) {
  const auto make = [](const VecInt3D& nodes, float cell, const Vec3D& low) {
    auto grid = std::make_unique<ScalarGrid>(nodes, Vec3D(nodes - VecInt3D(1, 1, 1)) * double(cell), cell,
                                             kGridNodalLevelset, low);
    for (std::int64_t c = 0; c < grid->count; ++c) {
      (*grid)[c] = grid->space.SimOfVoxel(Vec3D(double(c % nodes.x), 0, 0)).x - 1;
    }
    return grid;
  };
  const auto fine = make({9, 9, 9}, 0.25f, {1, 1, 1}), target = make({8, 8, 8}, 0.5f, {-0.5, 0, 0});
  LevelSetRows rows(*fine, *target);
  double row[8];
  rows.Read(3, 3, row);
  for (int i = 3; i < 8; ++i) EXPECT_NEAR(row[i], (*target)(i, 0, 0), 1e-12);  // on from the border, too
  EXPECT_NEAR(row[0], 1.5, 1e-12);                                             // never less than the distance from it
  rows.Read(0, 3, row);
  EXPECT_NEAR(row[4], 0.5 + 1, 1e-12);
  VecInt3D low, high;
  rows.Reach(0, low, high);
  EXPECT_EQ(low, VecInt3D(3, 2, 2));
  EXPECT_EQ(high, VecInt3D(8, 7, 7));
  rows.Reach(0.5, low, high);
  EXPECT_EQ(low, VecInt3D(2, 1, 1));
}

}  // namespace
}  // namespace orlix
