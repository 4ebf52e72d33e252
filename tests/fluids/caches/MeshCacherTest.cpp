#include "fluids/caches/MeshCacher.h"

#include <random>

#include "fluids/caches/C4D_Operator_GridCache_Object.h"
#include "fluids/caches/GridCacher.h"
#include "fluids/surfacing/MeshOperator.h"
#include "fluids/surfacing/SurfaceReconstructor.h"
#include "fluids/volumes/VolumeBase.h"
#include "tests/fluids/caches/FrameBytes.h"
#include "tests/support/RepairHyperFile.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestScene.h"

namespace orlix {
namespace {

using test::TemporaryFolder;

// A sphere that grows from frame to frame, its mesher and a smoother of the mesh; or a mesher that has only its cache.
class MeshedScene : public test::TestScene {
 public:
  MeshedScene(const std::filesystem::path& folder, bool records, bool hasInput) {
    document.folder = folder.string();
    root->Set(RootSettings::kVoxelSizeId, 0.1);
    mesher = &Add("mesher", "Mesher");
    BaseObject& smoother = Add("mop_smoothing", "Smooth");
    smoother.Set(MeshOperator::kSourceId, LinkTo(*mesher));
    if (hasInput) {
      ball = &Add("sphere", "Ball");
      BaseObject& volume = Add("volume", "Volume");
      volume.Set(VolumeBase::kObjectId, LinkTo(*ball));
      mesher->Set(ImplicitMesher::kInputId, LinkTo(volume));
    }
    cache = &Add("cache_mesh", "cache");
    cache->Set(MeshCacher::kMeshersId, ListOf({mesher}));
    cache->Set(MeshCacher::kModeId, std::int64_t(records));
    cache->Set(MeshCacher::kStemId, std::string("m"));
  }
  void StepAt(int frame) {
    if (ball) ball->Set(kScaleId, Vec3D(1 + 0.1 * frame));
    Step(frame);
  }
  BaseObject *mesher = nullptr, *ball = nullptr, *cache = nullptr;
};

bool Same(const PolygonObject* a, const PolygonObject& b) {
  const auto corners = [](const PolygonObject& mesh) {
    std::vector<std::int32_t> all;
    for (const PolygonObject::Polygon& p : mesh.polygons) all.insert(all.end(), {p.a, p.b, p.c, p.d});
    return all;
  };
  return a && a->points == b.points && a->normals == b.normals && corners(*a) == corners(b) &&
         a->velocities == b.velocities && a->attributes.size() == b.attributes.size();
}

TEST(MeshCacher, PlaybackEqualsTheMeshThatOperatorsLeft) {
  TemporaryFolder folder;
  std::vector<PolygonObject> recorded;
  MeshedScene run(folder.path(), true, true);
  for (int frame = 0; frame < 3; ++frame) {
    run.StepAt(frame);
    ASSERT_TRUE(run.mesher->Polygons());
    recorded.push_back(*run.mesher->Polygons());
    ASSERT_GT(recorded.back().points.size(), 100u);
  }
  EXPECT_FALSE(Same(&recorded[1], recorded[2])) << "it grows";
  for (const bool hasInput : {false, true}) {
    MeshedScene played(folder.path(), false, hasInput);
    for (const int frame : {0, 2, 1}) {
      played.Step(frame);  // where it has an input, that one doesn't grow
      EXPECT_TRUE(Same(played.mesher->Polygons(), recorded[static_cast<std::size_t>(frame)])) << frame << hasInput;
    }
    EXPECT_TRUE(played.warnings.empty()) << played.warnings[0].second;
    auto& cacher = *played.NodeOf<MeshCacher>(*played.cache);
    UpdateCacheDescription(cacher);
    EXPECT_EQ(played.cache->GetString(MeshCacher::kFrameTextId),
              "Meshers: 1\nMax. Polygons: " + std::to_string(recorded[1].polygons.size()) +
                  "\nMax. Points: " + std::to_string(recorded[1].points.size()) + "\n");
  }
  std::filesystem::remove(folder / "m00001.mcache");
  MeshedScene played(folder.path(), false, true);
  played.StepThrough(0, 1);
  EXPECT_EQ(played.warnings.size(), 1u) << "the mesher then makes its own";
  EXPECT_TRUE(played.mesher->Polygons());
}

// A reconstruction is played as grids are, on its own lattice.
TEST(GridCacher, ARecordedReconstructionIsMeshedAgain) {
  TemporaryFolder folder;
  std::vector<Vec3D> points;
  for (const bool records : {true, false}) {
    test::TestScene s;
    s.document.folder = folder.path().string();
    s.root->Set(RootSettings::kVoxelSizeId, 0.1);
    BaseObject& level = s.Add("surface_reconstruction", "Level");
    if (records) level.Set(SurfaceReconstructor::kSourceId, test::TestScene::LinkTo(s.Add("sphere", "Points")));
    level.Set(SurfaceReconstructor::kSubdivisionId, 2.0);
    BaseObject& mesher = s.Add("mesher", "Mesher");
    mesher.Set(ImplicitMesher::kInputId, test::TestScene::LinkTo(level));
    BaseObject& cache = s.Add("cache", "cache");
    cache.Set(GridCacher::kNodesId, test::TestScene::ListOf({&level}));
    cache.Set(GridCacher::kModeId, std::int64_t(records));
    s.Step(0);
    ASSERT_TRUE(mesher.Polygons());
    if (records) points = mesher.Polygons()->points;
    EXPECT_TRUE(mesher.Polygons()->points == points);
    EXPECT_TRUE(s.warnings.empty()) << s.warnings[0].second;
  }
  EXPECT_GT(points.size(), 100u);
}

PolygonObject SmallMesh() {
  PolygonObject mesh;
  mesh.points = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
  mesh.polygons = {{0, 1, 2, 2}, {0, 1, 2, 3}};
  mesh.normals = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {0, 0, 1}};
  mesh.attributes = {{"heat", 1, {1, 2, 3, 4}}};
  return mesh;
}

std::vector<std::byte> BytesOf(std::vector<const PolygonObject*> meshes, bool compress) {
  return test::FrameBytes([&](HyperFile& file) { WriteMeshFrame(file, meshes, compress, "00003"); });
}

bool Reads(const std::vector<std::byte>& bytes) {
  HyperFile file;
  std::int32_t count = 0;
  if (!file.Open(kFrameFileIdent, bytes) || !ReadMeshFrameHead(file, "f", count).ok()) return false;
  PolygonObject mesh;
  for (bool present = false; count > 0; --count) {
    if (!ReadMeshChunk(file, "f", mesh, present).ok()) return false;
  }
  return true;
}

// Work that wasn't there when the mesh was recorded: places move, what points carry stays.
TEST(MeshCacher, APlayedMeshIsSmoothedWhereAskedAndKeepsItsValues) {
  TemporaryFolder folder;
  PolygonObject mesh = SmallMesh();
  mesh.polygons[1] = {0, 2, 3, 3};
  mesh.velocities = {{1, 0, 0}, {2, 0, 0}, {3, 0, 0}, {4, 0, 0}};
  const std::vector<std::byte> bytes = BytesOf({&mesh}, false);
  test::WriteText(folder / "m00000.mcache", {reinterpret_cast<const char*>(bytes.data()), bytes.size()});
  for (const bool asked : {false, true}) {
    MeshedScene played(folder.path(), false, false);
    played.document.FindByPath("Smooth")->Set(MeshOperator::kOnPlayedId, asked);
    played.Step(0);
    const PolygonObject* shown = played.mesher->Polygons();
    ASSERT_TRUE(shown);
    const double middle = shown->points[1].x;  // of (1, 0, 0), whose neighbours are (0, 0, 0) and (0, 1, 0)
    EXPECT_NEAR(middle, asked ? 0 : 1, 1e-12);
    EXPECT_EQ(shown->velocities, mesh.velocities);
    EXPECT_EQ(shown->polygons.size(), 2u);
    ASSERT_EQ(shown->attributes.size(), 1u);
    EXPECT_EQ(shown->attributes[0].values, mesh.attributes[0].values);
    EXPECT_EQ(shown->normals[1] == mesh.normals[1], !asked) << "made anew for the new places";
  }
}

// Another order or another type of a number would leave older caches unreadable.
TEST(MeshFrameFile, TheBytesAreThoseOfOlderCaches) {
  const PolygonObject mesh = SmallMesh(), empty;
  const std::vector<std::byte> bytes = BytesOf({&mesh, &empty, nullptr}, false);
  EXPECT_EQ(HashBytes(bytes.data(), bytes.size()), 8028871110112863400u) << bytes.size() << " bytes";
}

TEST(MeshFrameFile, MutantsAreRefusedOrRead) {
  std::mt19937 random(6);
  const PolygonObject mesh = SmallMesh();
  const std::vector<std::byte> frames[] = {BytesOf({&mesh, nullptr}, false), BytesOf({&mesh, nullptr}, true)};
  ASSERT_TRUE(Reads(frames[0]) && Reads(frames[1]));
  int read = 0, refused = 0;
  for (int mutant = 0; mutant < 2000; ++mutant) {
    Reads(test::MutantOf(frames[mutant % 2], kFrameFileIdent, random)) ? ++read : ++refused;
  }
  EXPECT_GT(read, 100);
  EXPECT_GT(refused, 100);
}

TEST(MeshFrameFile, WhatCanNotBeIsRefused) {
  const auto refused = [](auto change) {
    PolygonObject mesh = SmallMesh();
    change(mesh);
    return !Reads(BytesOf({&mesh}, true));
  };
  EXPECT_TRUE(refused([](PolygonObject& mesh) { mesh.polygons[1].d = 4; }));
  EXPECT_TRUE(refused([](PolygonObject& mesh) { mesh.polygons[0].a = -1; }));
  EXPECT_TRUE(refused([](PolygonObject& mesh) { mesh.points[2].x = std::nan(""); }));
  EXPECT_TRUE(refused([](PolygonObject& mesh) { mesh.normals.pop_back(); }));
  EXPECT_TRUE(refused([](PolygonObject& mesh) { mesh.attributes[0].components = 2; }));
  EXPECT_TRUE(refused([](PolygonObject& mesh) { mesh.attributes[0].values.pop_back(); }));
}

}  // namespace
}  // namespace orlix
