// What comes from a cache is not computed: emitters and operators leave it as it is, and it brings what hangs on it.

#include <gtest/gtest.h>

#include <map>

#include "fluids/caches/GridCacher.h"
#include "fluids/caches/MeshCacher.h"
#include "fluids/scene/StateCheck.h"
#include "fluids/surfacing/CSGoperatorGrid.h"
#include "fluids/volumes/MultiVolume.h"
#include "globals/Hash.h"
#include "tests/support/GasScene.h"
#include "tests/support/TemporaryFolder.h"

namespace orlix {
namespace {

using test::GasScene;
using test::TemporaryFolder;

// Smoke from a moving ball, that fades; a cache of some node records or plays.
struct CachedGas : GasScene {
  CachedGas(const std::filesystem::path& folder, const std::string& cached, bool record) : GasScene({24, 20, 20}) {
    fluid->Set(1009, std::int64_t(2));
    document.folder = folder.string();
    smoke = &Add("channel_scalar", "smoke");
    smoke->Set(1051, 1000.0);
    ball = &AddObstacle("Ball", "sphere", Centre() - Vec3D(0.3, 0, 0), 0.2);
    BaseObject& settings = Add("emission_setting", "Amount");
    settings.Set(1012, std::int64_t(0)), settings.Set(1013, 8.0);
    BaseObject& pair = Add("channelsettings", "Pair");
    pair.Set(1000, LinkTo(*smoke)), pair.Set(1001, LinkTo(settings));
    BaseObject& emitter = Add("gridemitter", "Source");
    emitter.Set(1002, LinkTo(*ball)), emitter.Set(1000, ListOf({&pair}));
    BaseObject& fade = Add("grid_dissipate", "Fade");
    fade.Set(1000, LinkTo(*smoke));
    BaseObject& cache = Add("cache", "Cache");
    cache.Set(GridCacher::kNodesId, ListOf({document.FindByPath(cached)}));
    cache.Set(GridCacher::kModeId, std::int64_t(record));
  }
  void StepTo(int frame) {
    Geometry("Ball").Set(kPositionId, Centre() + Vec3D(0.03 * frame - 0.3, 0, 0));
    Step(frame);
  }
  std::uint64_t HashSmoke() {
    StateHasher hasher;
    hasher.VisitGrid("", NodeOf<ChannelBase_Scalar>(*smoke)->grid);
    return hasher.Value();
  }
  const VolumeBase& Ball() { return *NodeOf<VolumeBase>(*ball); }

  BaseObject *smoke, *ball;
};

std::uint64_t HashOf(const ScalarGrid& phi) {
  StateHash hash;
  hash.AddValue(phi.dims), hash.AddValue(phi.space.hostMin);
  hash.Add(phi.data, std::size_t(phi.count) * sizeof(double));
  return hash.Value();
}

TEST(PlayedBack, EmittersAndOperatorsLeaveIt) {
  TemporaryFolder folder;
  CachedGas recorded(folder.path(), "smoke", true), played(folder.path(), "smoke", false);
  for (int frame = 0; frame <= 4; ++frame) {
    recorded.StepTo(frame);
    played.StepTo(frame);
    EXPECT_EQ(played.HashSmoke(), recorded.HashSmoke()) << frame;
    EXPECT_EQ(played.Solver().velocity.grids[0]->dims, recorded.Solver().velocity.grids[0]->dims) << frame;
  }
  EXPECT_LT(recorded.Solver().velocity.grids[0]->space.dims.x, 24) << "the container isn't at its whole size";
}

// Also one frame back, which is no move of time; the ball stays in the second run, so nothing made anew passes.
TEST(PlayedBack, MeshesInAnyOrderAreAsTheyWere) {
  const TemporaryFolder folder;
  std::map<int, std::vector<Vec3D>> recorded;
  for (const bool record : {true, false}) {
    CachedGas s(folder.path(), "smoke", record);
    BaseObject& mesher = s.Add("mesher", "Mesh");
    mesher.Set(ImplicitMesher::kInputId, GasScene::LinkTo(*s.ball));
    BaseObject& cache = s.Add("cache_mesh", "Meshes");
    cache.Set(MeshCacher::kMeshersId, GasScene::ListOf({&mesher}));
    cache.Set(MeshCacher::kModeId, std::int64_t(record));
    for (const int frame : record ? std::vector{0, 1, 2, 3} : std::vector{0, 0, 2, 1, 1, 3, 2, 0}) {
      record ? s.StepTo(frame) : s.Step(frame);
      ASSERT_FALSE(mesher.Polygons()->points.empty()) << frame;
      if (record) recorded[frame] = mesher.Polygons()->points;
      EXPECT_TRUE(mesher.Polygons()->points == recorded.at(frame)) << frame;
    }
  }
}

TEST(PlayedBack, AVolumeHasItsDepthAndItsMotion) {
  for (const double shell : {1.0, 0.5}) {
    TemporaryFolder folder;
    CachedGas recorded(folder.path(), "Ball", true), played(folder.path(), "Ball", false);
    recorded.ball->Set(1006, shell), played.ball->Set(1006, shell);
    for (int frame = 0; frame <= 3; ++frame) {
      recorded.StepTo(frame);
      played.StepTo(frame);
    }
    ASSERT_TRUE(played.Ball().HasLevelSet());
    const Vec3D place = recorded.Ball().BodyCentre() + Vec3D(0.15, 0, 0);
    EXPECT_GT(recorded.Ball().DepthWorld(place), 0.1);
    EXPECT_NEAR(played.Ball().DepthWorld(place), recorded.Ball().DepthWorld(place), shell < 1 ? 0.1 : 1e-12);
    EXPECT_EQ(played.Ball().LinearMotion(), recorded.Ball().LinearMotion());
    EXPECT_GT(Length(played.Ball().LinearMotion()), 0.02);
  }
}

// A combination is of the frame that is played, from the first one on.
TEST(PlayedBack, WhatIsMadeOfAPlayedLevelSetIsOfItsFrame) {
  const TemporaryFolder folder;
  std::vector<std::uint64_t> hashes[2];
  for (const bool record : {true, false}) {
    CachedGas s(folder.path(), "Ball", record);
    BaseObject& csg = s.Add("csg", "Both");
    csg.Set(CSGoperatorGrid::kFirstId, GasScene::LinkTo(*s.ball));
    csg.Set(CSGoperatorGrid::kSecondId, GasScene::LinkTo(s.AddVolume("Box", "box", s.Centre(), 0.1)));
    for (int frame = 0; frame <= 3; ++frame) {
      s.StepTo(frame);
      hashes[record].push_back(HashOf(*s.NodeOf<CSGoperatorGrid>(csg)->LevelSet()));
    }
  }
  EXPECT_EQ(hashes[0], hashes[1]);
  EXPECT_NE(hashes[1][0], hashes[1][1]) << "the ball moved";
}

// From the first frame on, and afterwards the volume is that of its object again, though that stood still.
TEST(PlayedBack, ADurationBeginsAndEndsIt) {
  const TemporaryFolder folder;
  std::vector<std::uint64_t> hashes[2];
  for (const bool record : {true, false}) {
    CachedGas s(folder.path(), "Ball", record);
    if (record) s.Geometry("Ball").Set(kSphereRadiusId, 0.3);
    BaseObject& window = s.Add("duration", "Window");
    window.Set(1001, 0.1), window.Set(1000, 0.1);
    if (!record) s.document.FindByPath("Cache")->Set(GridCacher::kActiveInId, GasScene::LinkTo(window));
    for (int frame = 0; frame <= 7; ++frame) {
      s.Step(frame);
      hashes[record].push_back(HashOf(*s.Ball().LevelSet()));
    }
  }
  for (std::size_t frame = 0; frame <= 7; ++frame) {
    const bool plays = frame == 4 || frame == 5;  // a frame's time is that at which its step begins
    EXPECT_EQ(hashes[0][frame] == hashes[1][frame], plays) << frame;
    EXPECT_EQ(hashes[0][frame] == hashes[0][0], !plays) << frame;
  }
}

// A ball that moves and a box in one volume. Played, they come out as they were, though the ball shrank since.
TEST(PlayedBack, AVolumeOfManyObjectsHasAllOfThem) {
  const TemporaryFolder folder;
  std::vector<std::uint64_t> hashes[2];
  for (const bool record : {true, false}) {
    GasScene s({24, 20, 20});
    s.document.folder = folder.path().string();
    s.AddVolume("A", "sphere", s.Centre() - Vec3D(0.3, 0, 0), record ? 0.2 : 0.1);
    s.AddVolume("B", "box", s.Centre() + Vec3D(0.3, 0, 0), 0.15);
    BaseObject& many = s.Add("volume_multi", "Many");
    many.Set(MultiVolume::kObjectsId, GasScene::ListOf({&s.Geometry("A"), &s.Geometry("B")}));
    BaseObject& cache = s.Add("cache", "Cache");
    cache.Set(GridCacher::kNodesId, GasScene::ListOf({&many, s.document.FindByPath("A")}));
    cache.Set(GridCacher::kModeId, std::int64_t(record));
    for (int frame = 0; frame <= 3; ++frame) {
      s.Geometry("A").Set(kPositionId, s.Centre() + Vec3D(0.03 * frame - 0.3, 0, 0));
      s.Step(frame);
      const auto& volume = *s.NodeOf<MultiVolume>(many);
      ASSERT_EQ(volume.memberCount(), 2u);
      for (std::size_t n = 0; n < 2; ++n) {
        ASSERT_TRUE(volume.member(n).HasLevelSet());
        hashes[record].push_back(HashOf(*volume.member(n).LevelSet()));
      }
      EXPECT_GT(volume.member(0).DepthWorld(s.Geometry("A").GlobalMatrix().off), 0.8);
    }
    for (const auto& [name, text] : s.warnings) EXPECT_NE(name, "Scene/Cache") << text;
  }
  EXPECT_EQ(hashes[0], hashes[1]);
  EXPECT_NE(hashes[1][0], hashes[1][2]) << "the ball moved";
}

}  // namespace
}  // namespace orlix
