// Many objects as one volume.

#include "fluids/volumes/MultiVolume.h"

#include <gtest/gtest.h>

#include <limits>

#include "fluids/bodies/ObstacleTag.h"
#include "fluids/surfacing/CSGoperatorGrid.h"
#include "tests/support/TestScene.h"

namespace orlix::test {
namespace {

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
