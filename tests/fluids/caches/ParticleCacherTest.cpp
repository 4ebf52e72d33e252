#include <gtest/gtest.h>

#include <cstddef>
#include <random>
#include <string>
#include <vector>

#include "fluids/caches/C4D_Operator_GridCache_Object.h"
#include "fluids/caches/GridCacher.h"
#include "fluids/caches/GridFrameFile.h"
#include "fluids/caches/GridSpaceRecord.h"
#include "fluids/caches/MeshCacher.h"
#include "fluids/caches/ParticleCacher.h"
#include "fluids/caches/ParticleExchange.h"
#include "fluids/surfacing/LevelSetSmoother.h"
#include "fluids/surfacing/MeshOperator.h"
#include "fluids/surfacing/SurfaceReconstructor.h"
#include "fluids/volumes/VolumeBase.h"
#include "host/files/HyperFile.h"
#include "tests/fluids/particles/StirNode.h"
#include "tests/support/Folders.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestScene.h"

namespace orlix {
namespace {

using test::TemporaryFolder;

// What write(file) puts into a frame's file.
template <class F>
std::vector<std::byte> FrameBytes(F&& write) {
  TemporaryFolder folder;
  HyperFile file;
  file.Open(kFrameFileIdent, folder / "f", HyperFile::Mode::Write);
  write(file);
  EXPECT_TRUE(file.Close().ok());
  const std::string text = test::ReadText(folder / "f");
  const auto* data = reinterpret_cast<const std::byte*>(text.data());
  return {data, data + text.size()};
}

constexpr std::int32_t kLastFrame = 3;

// A group that is stirred and recorded, or one of the same name that a cache fills.
class CachedScene : public test::StirScene {
 public:
  CachedScene(const std::filesystem::path& folder, bool records, int workers = 1) : StirScene(workers) {
    document.folder = folder.string();
    if (!records) {
      document.RemoveObject(*stir);
      Add("particlegroup", "Stir");  // the owner of the stirred particles' own property, by its name
    }
    cache = &Add("cache_particle", "cache");
    auto list = std::make_shared<InExcludeData>();
    list->entries.push_back({drops->creationNumber(), 8});
    cache->Set(ParticleCacher::kGroupsId, InExcludeValue(std::move(list)));
    cache->Set(ParticleCacher::kModeId, std::int64_t(records));
    cache->Set(ParticleCacher::kStemId, std::string("p"));
  }
  ParticleList& list() { return *group().list(PK_Diffuse); }
  BaseObject* cache = nullptr;
};

// Each particle's numbers, its own property and its links, in the list's order.
std::vector<double> Numbers(const ParticleList& list) {
  std::vector<double> all;
  for (std::int32_t i = 0; i < list.count(); ++i) {
    const OrlixParticle p(const_cast<ParticleList*>(&list), i);
    for (const Vec3D& v : {p.GetPosition(), p.GetVelocity(), p.GetVectorOr(PP::ExternalForce, Vec3D(-1))}) {
      all.insert(all.end(), {v.x, v.y, v.z});
    }
    all.insert(all.end(), {double(p.id()), double(p.GetFlags()), p.GetRealOr(90, -1), p.GetRealOr(PP::Age, -1)});
    for (const ParticleLink& link : list.Links(i)) all.insert(all.end(), {link.weight, double(link.partner)});
  }
  return all;
}

std::vector<std::vector<double>> RecordDrops(const std::filesystem::path& folder, int compression = 0) {
  CachedScene s(folder, true, 2);
  s.cache->Set(ParticleCacher::kCompressionId, std::int64_t(compression));
  std::vector<std::vector<double>> frames;
  for (int frame = 0; frame <= kLastFrame; ++frame) {
    s.Step(frame);
    frames.push_back(Numbers(s.list()));
  }
  return frames;
}

TEST(ParticleCacher, PlaybackEqualsTheRunBitForBitInAnyOrder) {
  for (const int compression : {0, 1}) {
    TemporaryFolder folder;
    const auto recorded = RecordDrops(folder.path(), compression);
    ASSERT_GT(recorded[2].size(), 13u * kChunkRows) << "more than a chunk";
    CachedScene s(folder.path(), false);
    for (const int frame : {0, 1, 3, 2, 3}) {
      s.Step(frame);
      EXPECT_TRUE(Numbers(s.list()) == recorded[static_cast<std::size_t>(frame)]) << frame << ", " << compression;
      EXPECT_FALSE(s.group().KindIsKept(PK_Diffuse)) << "released at the frame's end";
    }
    EXPECT_TRUE(s.warnings.empty()) << s.warnings[0].second;
    const OrlixParticle first = s.group().At(PK_Diffuse, 0);
    const BaseObject& owner = *s.document.FindByPath("Stir");
    EXPECT_TRUE(first.Has({90, owner.creationNumber()})) << "known by its node's name";
    EXPECT_GT(s.list().AppendCopy(s.list(), 0), 0);
    const auto newest = s.list().Id(s.list().count() - 1);
    for (std::int32_t i = 0; i + 1 < s.list().count(); ++i) ASSERT_NE(s.list().Id(i), newest);
  }
}

// Two particles of which one knows its old place, in a file between frames, moved with its object, from a scene of
// other units, at a constraint.
TEST(ParticleCacher, ParticlesArePlacedBetweenFramesAndAtTheirObject) {
  TemporaryFolder folder;
  {
    CachedScene s(folder.path(), true);
    s.stir->Set(2, std::int64_t(0));
    s.Step(0), s.Step(1);
    BaseParticleData data;
    data.position = {1, 2, 3};
    data.SetVector(PP::OldPosition, {3, 2, 1});
    s.list().Append(1, data);
    data.vectors.clear();
    s.list().Append(1, data);
    s.Step(2);
  }
  CachedScene s(folder.path(), false);
  s.cache->Set(ParticleCacher::kSpeedId, 1.5);  // frame 1: 1.5, so file 2
  s.cache->Set(kPositionId, Vec3D(0, 250, 0));
  s.Step(1);
  ASSERT_EQ(s.list().count(), 2);
  const double up = 250 / s.scene().space.hostPerSim.y;
  const Vec3D end = Vec3D(1, 2, 3) * 1.01 + Vec3D(0.001 * (0 % 7));  // the stirring of the frame
  const Vec3D half = Vec3D(3, 2, 1) + (end - Vec3D(3, 2, 1)) * 0.5 + Vec3D(0, up, 0);
  for (int axis = 0; axis < 3; ++axis) EXPECT_NEAR(s.list().Position(0)[axis], half[axis], 1e-12);
  EXPECT_NEAR(s.list().Position(1).z, end.z + 0.001, 1e-12) << "without an old place it stands at its place";
}

TEST(ParticleCacher, AFilterAndConstraintsChooseWhatIsKept) {
  TemporaryFolder folder;
  CachedScene s(folder.path(), true);
  BaseObject& age = s.Add("property_age", "age");
  s.cache->Set(ParticleCacher::kPropertiesId, test::TestScene::ListOf({&age}));
  s.StepThrough(0, 1);
  CachedScene played(folder.path(), false);
  played.Step(1);
  const OrlixParticle p = played.group().At(PK_Diffuse, 5);
  ASSERT_TRUE(p);
  EXPECT_TRUE(p.Has(PP::Age) && !p.Has(90) && !p.Has(PP::ExternalForce));

  // What a volume confines when the file is played; it is there only after the heads were read.
  CachedScene near(folder.path(), false);
  BaseObject &ball = near.Add("sphere", "ball"), &volume = near.Add("volume", "near");
  ball.Set(kSphereRadiusId, 120.0), volume.Set(VolumeBase::kObjectId, test::TestScene::LinkTo(ball));
  BaseObject& within = near.Add("constraint_volume", "within");
  within.Set(1000, test::TestScene::LinkTo(volume));
  near.cache->Set(kConstraintsId, test::TestScene::ListOf({&within}));
  near.Step(1);
  std::int32_t inside = 0;
  for (std::int32_t i = 0; i < played.list().count(); ++i) {
    inside += near.NodeOf<VolumeBase>(volume)->InsideWorld(played.list().Position(i));
  }
  EXPECT_EQ(near.list().count(), inside);
  EXPECT_TRUE(inside > 0 && inside < played.list().count()) << inside;

  const auto confine = [](CachedScene& scene) {
    BaseObject& named = scene.Add("property_age", "named");
    BaseObject& old = scene.Add("constraint_particle_property", "old");
    old.Set(1000, test::TestScene::LinkTo(named));
    old.Set(1002, 150.0), old.Set(1003, 160.0);  // none has so long to live
    scene.cache->Set(kConstraintsId, test::TestScene::ListOf({&old}));
  };
  confine(played);
  played.Step(1);
  EXPECT_EQ(played.list().count(), 0);
  confine(s);
  s.Step(2);
  CachedScene without(folder.path(), false);
  without.Step(2);
  EXPECT_EQ(without.list().count(), 0);
  EXPECT_TRUE(without.warnings.empty()) << without.warnings[0].second;
}

TEST(ParticleCacher, AMissingOrDamagedFrameIsToldAndKeepsNothing) {
  TemporaryFolder folder;
  RecordDrops(folder.path());
  const std::filesystem::path path = folder / "p00002.pcache";
  const std::string whole = test::ReadText(path);
  int told = 0;
  for (const std::size_t cut : {whole.size(), whole.size() / 2, std::size_t(0)}) {
    test::WriteText(path, cut == whole.size() ? "" : whole.substr(0, cut));
    if (cut == 0) std::filesystem::remove(path);
    CachedScene s(folder.path(), false);
    s.StepThrough(1, 2);
    told += s.Warned("p00002.pcache");
    EXPECT_FALSE(s.group().HasFlag(NodeFromCache) || s.group().KindIsKept(PK_Diffuse));
  }
  EXPECT_EQ(told, 3);
}

// A file of another program fills the group in single precision, and the group goes on being simulated.
TEST(ParticleCacher, FilesOfOtherProgramsAreRecordedAndPlayed) {
  TemporaryFolder folder;
  constexpr std::int64_t kBgeo = 2, kPts = 12;
  CachedScene run(folder.path(), true);
  run.cache->Set(ParticleCacher::kFormatId, kBgeo);
  run.StepThrough(0, 1);
  CachedScene s(folder.path(), false);
  s.cache->Set(ParticleCacher::kFormatId, kBgeo);
  s.Step(1);
  ASSERT_EQ(s.list().count(), run.list().count());
  ASSERT_GT(s.list().count(), kChunkRows);
  for (std::int32_t i = 0; i < s.list().count(); i += 97) {
    ASSERT_EQ(s.list().Position(i), Vec3D(Vec3F(run.list().Position(i))));
    ASSERT_EQ(s.list().Velocity(i), Vec3D(Vec3F(run.list().Velocity(i))));
    ASSERT_EQ(s.group().At(PK_Diffuse, i).GetRealOr(PP::Age, -1), 100);
  }
  EXPECT_FALSE(s.group().KindIsKept(PK_Diffuse) || s.group().HasFlag(NodeFromCache));
  // A frame without particles is there, too, and in the place of an earlier run's.
  CachedScene none(folder.path(), true);
  none.cache->Set(ParticleCacher::kFormatId, kBgeo);
  none.stir->Set(2, std::int64_t(0));
  none.StepThrough(0, 2);
  s.Step(2);
  EXPECT_EQ(s.list().count(), 0);
  EXPECT_TRUE(s.warnings.empty());
  // A format of fixed fields holds zeros for what it doesn't know: no property.
  PointSet set;
  set.count = 2;
  set.Add("mass", PointType::Float, 1, NumberType::Float32);
  set.Add("age", PointType::Float, 1, NumberType::Float32).SetReal(1, 0, 3);
  set.Add("color", PointType::Vector, 3, NumberType::Float32);
  DropUnheld(set);
  EXPECT_TRUE(!set.Find("mass") && set.Find("age") && set.Find("color"));
  run.cache->Set(ParticleCacher::kFormatId, kPts);
  run.Step(2);
  EXPECT_TRUE(run.Warned("only played"));
  s.Step(3);
  EXPECT_TRUE(s.Warned("p00003.bgeo"));
}

// --- the file --------------------------------------------------------------------------------------------------------

ParticleFrameData SmallFrame() {
  ParticleFrameData frame;
  frame.sceneSpace = GridSpace::FromScale(100, 1, 0.5f);
  ParticleEntryData entry;
  entry.header = {true, {2}};
  entry.facts.space = frame.sceneSpace;
  ParticleRunData run;
  run.positions = {{1, 2, 3}, {4, 5, 6}}, run.velocities = {{0, -1, 0}, {0, 0, 0.5}};
  run.flags = {0x81, 0x80}, run.ids = {7, 9};
  run.columns.resize(2);
  run.columns[0].id = PP::Radius, run.columns[0].reals = {0.25f, 0}, run.columns[0].present = {1};
  run.columns[1].id = 60, run.columns[1].type = PropertyType::State, run.columns[1].states = {0, 1};
  run.links = {{1, 7, 0.5f}};
  entry.lists = {{run}};
  frame.entries = {entry, {}};
  return frame;
}

std::vector<std::byte> BytesOf(const ParticleFrameData& frame, bool compress) {
  return FrameBytes([&](HyperFile& file) { WriteParticleFrame(file, frame, compress, "00012"); });
}

bool Reads(const std::vector<std::byte>& bytes) {
  HyperFile file;
  ParticleFrameHead head;
  if (!file.Open(kFrameFileIdent, bytes) || !ReadParticleFrameHead(file, "f", head).ok()) return false;
  std::int64_t rows = 0;
  for (const ParticleEntryHeader& entry : head.entries) {
    ParticleEntryFacts facts;
    const auto count = [&](std::int32_t, ParticleRunData& run) {
      rows += static_cast<std::int64_t>(run.rows());
      return Status();
    };
    if (!ReadParticleChunk(file, "f", entry, facts, count).ok()) return false;
  }
  return rows >= 0;
}

// Another order or another type of a number would leave older caches unreadable.
TEST(ParticleFrameFile, TheBytesAreThoseOfOlderCaches) {
  const std::vector<std::byte> bytes = BytesOf(SmallFrame(), false);
  EXPECT_EQ(HashBytes(bytes.data(), bytes.size()), 7103837194018563552u) << bytes.size() << " bytes";
}

TEST(ParticleFrameFile, WhatCanNotBeIsRefused) {
  const auto refused = [](auto change) {
    ParticleFrameData frame = SmallFrame();
    change(frame.entries[0], frame.entries[0].lists[0][0]);
    return !Reads(BytesOf(frame, false));
  };
  using Entry = ParticleEntryData;
  using Run = ParticleRunData;
  EXPECT_TRUE(refused([](Entry&, Run& run) { run.positions[1].y = std::nan(""); }));
  EXPECT_TRUE(refused([](Entry&, Run& run) { run.ids[0] = -1; }));
  EXPECT_TRUE(refused([](Entry&, Run& run) { run.ids.pop_back(); }));
  EXPECT_TRUE(refused([](Entry&, Run& run) { run.columns[0].id = PP::Position; }));
  EXPECT_TRUE(refused([](Entry&, Run& run) { run.columns[1].id = 30; }));
  EXPECT_TRUE(refused([](Entry&, Run& run) { run.links[0].row = 2; }));
  EXPECT_TRUE(refused([](Entry& entry, Run&) { entry.header.sizes[0] = 1; }));
  EXPECT_TRUE(refused([](Entry& entry, Run&) { entry.header.sizes = {2, -5}; }));
  EXPECT_TRUE(refused([](Entry& entry, Run&) { entry.header.sizes = {2, 0}; })) << "a list without a chunk";
  EXPECT_TRUE(refused([](Entry& entry, Run&) { entry.facts.space.dims.x = 0; }));
  // A constraint left one out: the sizes stay, and the next population is where it was.
  EXPECT_FALSE(refused([](Entry& entry, Run&) { entry.header.sizes[0] = 5; }));
}

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

// A reconstruction is played as grids are, on its own lattice, and as a smoother left it: it isn't smoothed twice.
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
    BaseObject& smoother = s.Add("levelset_smoother", "Smoother");
    smoother.Set(LevelSetSmoother::kSourceId, test::TestScene::LinkTo(level));
    smoother.Set(LevelSetSmoother::kBiharmonicRoundsId, std::int64_t(0));
    smoother.Set(kStageId, std::int64_t(20)), smoother.Set(kPriorityId, std::int64_t(7));
    BaseObject& cache = s.Add("cache", "cache");
    cache.Set(GridCacher::kNodesId, test::TestScene::ListOf({&level}));
    cache.Set(GridCacher::kModeId, std::int64_t(records));
    s.Step(0);
    ASSERT_TRUE(mesher.Polygons());
    if (records) points = mesher.Polygons()->points;
    EXPECT_TRUE(mesher.Polygons()->points == points);
    EXPECT_TRUE(s.warnings.empty()) << s.warnings[0].second;
    if (records) continue;
    smoother.Set(LevelSetSmoother::kOnPlayedId, std::int64_t(1));
    s.Step(0);
    EXPECT_FALSE(mesher.Polygons() && mesher.Polygons()->points == points);
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

std::vector<std::byte> MeshBytes(std::vector<const PolygonObject*> meshes, bool compress) {
  return FrameBytes([&](HyperFile& file) { WriteMeshFrame(file, meshes, compress, "00003"); });
}

bool ReadsMesh(const std::vector<std::byte>& bytes) {
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
  const std::vector<std::byte> bytes = MeshBytes({&mesh}, false);
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
  const std::vector<std::byte> bytes = MeshBytes({&mesh, &empty, nullptr}, false);
  EXPECT_EQ(HashBytes(bytes.data(), bytes.size()), 8028871110112863400u) << bytes.size() << " bytes";
}

TEST(MeshFrameFile, WhatCanNotBeIsRefused) {
  const auto refused = [](auto change) {
    PolygonObject mesh = SmallMesh();
    change(mesh);
    return !ReadsMesh(MeshBytes({&mesh}, true));
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
