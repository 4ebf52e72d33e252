#include <random>

#include "fluids/caches/C4D_Operator_GridCache_Object.h"
#include "fluids/caches/GridCacher.h"
#include "fluids/caches/GridFrameFile.h"
#include "fluids/caches/GridSpaceRecord.h"
#include "fluids/channels/ScalarChannels.h"
#include "fluids/channels/VectorChannels.h"
#include "fluids/helpers/Duration.h"
#include "fluids/scene/RootObject.h"
#include "fluids/scene/StateCheck.h"
#include "tests/support/Cells.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/SmallDisk.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestScene.h"

namespace orlix {
namespace {

// A scene whose channels hold a known field in each frame, without a fluid: a node sets the container and paints.

// Paints a channel and a vector channel, and asks for a container that may grow.
class PaintNode final : public iObject {
 public:
  PaintNode(BaseList2D* object, OrlixScene& owner) : iObject(object, owner) { stageMask = StageBit(kStageEmitters); }
  static constexpr int kChannelId = 1, kVectorId = 2, kLowId = 3, kHighId = 4, kGrowthId = 5;
  static const TypeInfo& Type() {
    static constexpr Parameter kRows[] = {
        LinkParameter(kChannelId, "channel", kLinkChannel, "painted"),
        LinkParameter(kVectorId, "vector", kLinkChannel, "painted"),
        VectorParameter(kLowId, "low", {0, 0, 0}, "cells", "container"),
        VectorParameter(kHighId, "high", {8, 6, 5}, "cells", "container"),
        FloatParameter(kGrowthId, "growth", 0, "cells", "of the high corner, a frame"),
    };
    static const TypeInfo kType = {
        .id = 9000,
        .resource = "test_paint",
        .parameters = kRows,
        .common = CommonNodeParameters(),
    };
    return kType;
  }
  static double Field(int i, int j, int k, int frame) { return 0.1 + 0.01 * i + 0.1 * j + 0.003 * k + 0.7 * frame; }

  std::int32_t GetNodeBaseType() const override { return NODE_EMITTER; }
  bool RunsSerially() const override { return true; }
  void CheckDirty() override {
    iObject::CheckDirty();
    MarkDirty(false);
  }
  void ExtendBounds(Vec3D& min, Vec3D& max) override {
    const double c = GetSimulationSpace().cellSize;
    const Vec3D grown(handler.GetDouble(kGrowthId) * scene->clock.frame);
    min = Min(min, handler.GetVector(kLowId) * c);
    max = Max(max, (handler.GetVector(kHighId) + grown) * c);
  }
  void Process(ProcessData&) override {
    Paint(scene->RetrieveAs<ScalarGridChannel>(handler.GetObjectLink(kChannelId), NODE_CHANNEL));
    Paint(scene->RetrieveAs<VectorGridChannel>(handler.GetObjectLink(kVectorId), NODE_CHANNEL));
  }

 private:
  void Paint(iCachedGrids* channel) {
    for (int c = 0; channel && c < channel->CachedGridCount(); c++) {
      ScalarGrid& g = *channel->CachedGrid(c);
      test::FillCells(g, [&](int i, int j, int k) { return Field(i, j, k, scene->clock.frame) + 100 * c; });
    }
  }
};

// A scalar and a vector channel and a cache of both. Painted, or to be played into.
class PaintedScene : public test::TestScene {
 public:
  PaintedScene(const std::filesystem::path& folder, bool painted, int workers = 1) : TestScene(workers) {
    factory.Add<PaintNode>();
    document.folder = folder.string();
    // No power of two: roundings show.
    root->Set(RootSettings::kScaleUnitsId, 70.0), root->Set(RootSettings::kVoxelSizeId, 0.1),
        root->Set(RootSettings::kRenderVoxelSizeId, 0.1);
    smoke = &Add("channel_scalar", "smoke");
    wind = &Add("channel_vector", "wind");
    if (painted) {
      paint = &Add("test_paint", "paint");
      paint->Set(PaintNode::kChannelId, LinkTo(*smoke)), paint->Set(PaintNode::kVectorId, LinkTo(*wind));
    }
    cache = &Add("cache", "cache");
    cache->Set(GridCacher::kNodesId, ListOf({smoke, wind}));
    cache->Set(GridCacher::kModeId, std::int64_t(painted));
    cache->Set(GridCacher::kStemId, std::string("c"));
  }

  GridCacher& cacher() { return *NodeOf<GridCacher>(*cache); }
  ScalarGrid* SmokeGrid() { return NodeOf<ScalarGridChannel>(*smoke)->grid.get(); }
  // Bytes of the four grids, with their lattices.
  std::uint64_t HashGrids() {
    StateHasher hasher;
    for (const BaseObject* object : {smoke, wind}) {
      if (auto* scalar = NodeOf<ScalarGridChannel>(*object)) hasher.VisitGrid("", scalar->grid);
      if (auto* vector = NodeOf<VectorGridChannel>(*object)) {
        for (auto& grid : vector->grids) hasher.VisitGrid("", grid);
      }
    }
    return hasher.Value();
  }
  BaseObject *smoke = nullptr, *wind = nullptr, *paint = nullptr, *cache = nullptr;
};

using test::TemporaryFolder;

std::vector<std::uint64_t> RecordPlume(const std::filesystem::path& folder, int lastFrame, int compression = 0) {
  PaintedScene s(folder, true);
  s.cache->Set(GridCacher::kCompressionId, std::int64_t(compression));
  s.paint->Set(PaintNode::kLowId, Vec3D(-3, 1, 7)), s.paint->Set(PaintNode::kHighId, Vec3D(9, 8, 13)),
      s.paint->Set(PaintNode::kGrowthId, 1.0);
  std::vector<std::uint64_t> hashes;
  for (int frame = 0; frame <= lastFrame; frame++) {
    s.Step(frame);
    hashes.push_back(s.HashGrids());
  }
  return hashes;
}

TEST(GridCacher, PlaybackEqualsTheRunBitForBit) {
  for (int compression : {0, 1}) {
    TemporaryFolder folder;
    const auto recorded = RecordPlume(folder.path(), 6, compression);
    PaintedScene s(folder.path(), false, 3);
    for (int frame = 0; frame <= 6; frame++) {
      s.Step(frame);
      EXPECT_EQ(s.HashGrids(), recorded[frame]) << "frame " << frame << ", compression " << compression;
      EXPECT_FALSE(s.NodeOf<ScalarGridChannel>(*s.smoke)->HasFlag(NodeFromCache)) << "cleared at the frame's end";
    }
    EXPECT_TRUE(s.warnings.empty()) << s.warnings[0].second;
    EXPECT_EQ(test::NamesIn(folder.path()).size(), 7u);
  }
}

TEST(GridCacher, ALatticeComesBackToTheBitInEveryScale) {
  int lattices = 0;
  for (double units : {100.0, 70.0, 33.3, 12.5, 1.0}) {
    for (double cell : {0.2, 0.1, 0.07, 0.033}) {
      TemporaryFolder folder;
      PaintedScene run(folder.path(), true), played(folder.path(), false);
      const double shift = std::floor(units * 7) - 300;
      for (PaintedScene* s : {&run, &played})
        s->root->Set(RootSettings::kScaleUnitsId, units), s->root->Set(RootSettings::kVoxelSizeId, cell);
      run.paint->Set(PaintNode::kLowId, Vec3D(shift, -shift + 2, 5 - 3 * shift));
      run.paint->Set(PaintNode::kHighId, Vec3D(shift + 3, -shift + 5, 8 - 3 * shift));
      run.Step(0);
      played.Step(0);
      EXPECT_EQ(played.HashGrids(), run.HashGrids()) << units << " units a metre, cells of " << cell << " m";
      lattices++;
    }
  }
  EXPECT_EQ(lattices, 20);
}

TEST(GridCacher, FramesAreChosenByOffsetOverrideAndReverse) {
  TemporaryFolder folder;
  const auto recorded = RecordPlume(folder.path(), 5);
  const struct {
    int override, offset;
    bool reverse;
    int step, frame;
  } rows[] = {{-1, 0, false, 2, 2}, {-1, 3, false, 1, 4}, {-1, -1, false, 4, 3}, {4, 0, false, 1, 4},
              {3, 1, false, 0, 4},  {-7, 9, false, 2, 2}, {-1, 0, true, 1, 4},   {0, 0, true, 3, 5}};
  for (const auto& row : rows) {
    PaintedScene s(folder.path(), false);
    s.cache->Set(GridCacher::kFrameId, std::int64_t(row.override));
    s.cache->Set(GridCacher::kFrameOffsetId, std::int64_t(row.offset));
    s.cache->Set(GridCacher::kReverseId, std::int64_t(row.reverse));
    s.StepThrough(0, row.step);
    EXPECT_EQ(s.HashGrids(), recorded[row.frame]) << row.override << " " << row.offset << " " << row.step;
  }
}

TEST(GridCacher, FramesAreNumberedFromTheStartOrByTheDocument) {
  for (int numbering : {0, 1}) {
    TemporaryFolder folder;
    PaintedScene s(folder.path(), true);
    s.document.minTime = BaseTime::OfFrame(10, 24);
    s.cache->Set(GridCacher::kNumberingId, std::int64_t(numbering));
    s.cache->Set(GridCacher::kDigitsId, std::int64_t(3));
    for (const int frame : {10, 10, 10, 11}) s.Step(frame);  // a repeated one doesn't cost the next
    const std::set<std::string> expected[] = {{"c000.cache", "c001.cache"}, {"c010.cache", "c011.cache"}};
    EXPECT_EQ(test::NamesIn(folder.path()), expected[numbering]);
  }
}

TEST(GridCacher, ACacheFollowsItsObject) {
  TemporaryFolder folder;
  RecordPlume(folder.path(), 0);
  PaintedScene s(folder.path(), false);
  s.Step(0);
  const GridSpace before = s.SmokeGrid()->space;
  const double cell = before.hostPerVoxel.x;
  PaintedScene moved(folder.path(), false);
  moved.cache->Set(kPositionId, Vec3D(2 * cell, 0, -3 * cell));
  moved.Step(0);
  const ScalarGrid& g = *moved.SmokeGrid();
  EXPECT_EQ(g.space.voxelMin - before.voxelMin, VecInt3D(2, 0, -3));
  ASSERT_EQ(g.dims, s.SmokeGrid()->dims);
  for (std::int64_t i = 0; i < g.count; i++) ASSERT_EQ(g[i], (*s.SmokeGrid())[i]) << "the content is the same";
}

TEST(GridCacher, ActsOnlyWhenItIsToAct) {
  TemporaryFolder folder;
  PaintedScene s(folder.path(), true);
  BaseObject& duration = s.Add("duration", "early");
  duration.Set(Duration::kLengthId, 1.5 / 24);  // from the start, for a frame and a half
  s.cache->Set(GridCacher::kActiveInId, test::TestScene::LinkTo(duration));
  s.StepThrough(0, 4);
  EXPECT_EQ(test::NamesIn(folder.path()), (std::set<std::string>{"c00000.cache", "c00001.cache"}));
  s.cache->Set(GridCacher::kActiveInId, LinkValue{});
  s.cache->Set(GridCacher::kRenderOnlyId, std::int64_t(1));
  s.Step(5);
  EXPECT_EQ(test::NamesIn(folder.path()).size(), 2u);
  s.document.SetTime(BaseTime::OfFrame(6, 24)).ok();
  s.hook.Execute(s.document, &s.thread, true);
  EXPECT_EQ(test::NamesIn(folder.path()).count("c00006.cache"), 1u);
  s.cache->Set(GridCacher::kRenderOnlyId, std::int64_t(0));
  s.cache->Set(GridCacher::kFolderSourceId, GridCacher::FolderSource::Own);
  s.Step(7);
  EXPECT_TRUE(s.Warned("has no folder"));
  s.cache->Set(GridCacher::kFolderId, std::string("deep/er"));
  s.Step(8);
  EXPECT_EQ(test::NamesIn(folder / "deep/er"), std::set<std::string>{"c00008.cache"});
}

TEST(GridCacher, AMissingFrameKeepsWhatIsThere) {
  TemporaryFolder folder;
  const auto recorded = RecordPlume(folder.path(), 3);
  std::filesystem::remove(folder / "c00002.cache");
  PaintedScene s(folder.path(), false);
  s.smoke->Set(ScalarGridChannel::kValueMaxId, 1000.0);
  s.StepThrough(0, 1);
  // Without a fluid the container shrinks to the content: go by the place.
  const auto valueAt = [&](const VecInt3D& voxel) {
    const ScalarGrid& g = *s.SmokeGrid();
    const VecInt3D cell = voxel - g.space.voxelMin;
    return g(cell.x, cell.y, cell.z);
  };
  const VecInt3D place = s.SmokeGrid()->space.voxelMin + VecInt3D(3, 3, 3);
  const double before = valueAt(place);
  s.Step(2);
  EXPECT_EQ(valueAt(place), before);
  EXPECT_TRUE(s.Warned("Cache File " + (folder / "c00002.cache").string() +
                       " could not be found! Frames 0 to 3 are there, the first in c00000.cache, without 2"));
  s.Step(3);
  EXPECT_EQ(s.HashGrids(), recorded[3]);
}

TEST(GridCacher, AnEmptyChannelIsNotPlayedBack) {
  TemporaryFolder folder;
  {
    PaintedScene s(folder.path(), false);  // nothing gives the channels a container
    s.cache->Set(GridCacher::kModeId, GridCacher::CacheMode::Record);
    s.Step(0);
  }
  HyperFile file;
  ASSERT_TRUE(file.Open(kFrameFileIdent, folder / "c00000.cache", HyperFile::Mode::Read));
  GridFrameHead head;
  ASSERT_TRUE(ReadGridFrameHead(file, "", head).ok());
  ASSERT_EQ(head.entries.size(), 2u);
  EXPECT_FALSE(head.entries[0].present || head.entries[1].present);
  PaintedScene s(folder.path(), false);
  s.Step(0);
  EXPECT_TRUE(s.warnings.empty());
  EXPECT_FALSE(s.NodeOf<ScalarGridChannel>(*s.smoke)->cacheSpaceValid);
}

TEST(GridCacher, ADamagedFrameIsToldAndMarksNothing) {
  TemporaryFolder folder;
  RecordPlume(folder.path(), 1);
  const std::string whole = test::ReadText(folder / "c00001.cache");
  const auto play = [&](const std::string& content) {
    test::WriteText(folder / "c00001.cache", content);
    PaintedScene s(folder.path(), false);
    s.StepThrough(0, 1);
    EXPECT_TRUE(s.Warned("c00001.cache")) << "no word for a broken file";
    EXPECT_FALSE(s.NodeOf<ScalarGridChannel>(*s.smoke)->HasFlag(NodeFromCache));
  };
  play(whole.substr(0, whole.size() / 2));
  // A list that has grown since the recording.
  test::WriteText(folder / "c00001.cache", whole);
  PaintedScene longer(folder.path(), false);
  longer.cache->Set(GridCacher::kNodesId, test::TestScene::ListOf({longer.smoke, longer.wind, longer.smoke}));
  longer.Step(1);
  EXPECT_TRUE(longer.Warned("holds 2 grids, the cache lists 3"));
  // One that names something else in a place.
  PaintedScene other(folder.path(), false);
  other.cache->Set(GridCacher::kNodesId, test::TestScene::ListOf({&other.Add("volume", "body"), other.wind}));
  other.Step(1);
  EXPECT_TRUE(other.Warned("holds values of a channel in place 1"));
}

TEST(GridCacher, AFrameThatCanNotBeSavedEndsTheRun) {
  TemporaryFolder folder;
  RecordPlume(folder.path(), 0);
  const std::string whole = test::ReadText(folder / "c00000.cache");
  const auto run = [&] {
    PaintedScene s(folder.path(), true);
    if (!test::LimitFileSize(3000)) return 9;
    s.Step(0);
    const Error* failure = s.hook.Failure();
    if (!failure || failure->kind != ErrorKind::Output) return 1;
    return failure->text.find((folder / "c00000.cache").string()) == std::string::npos ? 2 : 0;
  };
  EXPECT_EQ(test::RunInChild(run), 0);
  EXPECT_EQ(test::NamesIn(folder.path()), std::set<std::string>{"c00000.cache"});
  EXPECT_EQ(test::ReadText(folder / "c00000.cache"), whole);
}

TEST(GridCacher, TextsAndDeletionKnowTheirOwnFrames) {
  TemporaryFolder folder;
  {
    PaintedScene s(folder.path(), true);
    s.StepThrough(0, 7);
  }
  std::filesystem::remove(folder / "c00004.cache");
  for (const char* name : {"c00003b.cache", "cc00001.cache", "c00001.vdb", "d00001.cache"}) {
    test::WriteText(folder / name, "not ours");
  }
  PaintedScene s(folder.path(), false);
  s.Step(1);
  UpdateCacheDescription(s.cacher());
  EXPECT_EQ(s.cache->GetString(GridCacher::kFrameTextId),
            "Grids: 2\nMax. cell count: 240\nGrid Type (1): Custom\nGrid Type (2): Custom\n");
  const std::uint64_t size = 7 * std::filesystem::file_size(folder / "c00001.cache");
  EXPECT_EQ(s.cache->GetString(GridCacher::kFolderTextId),
            "Length: 8 (0 - 7)\nSize: " + FormatSize(size) + "\nMissing Frames: 1\n");
  EXPECT_EQ(s.cache->GetString(GridCacher::kFolderId), folder.path().string());
  ASSERT_TRUE(s.cacher().DeleteCache().ok());
  EXPECT_EQ(test::NamesIn(folder.path()),
            (std::set<std::string>{"c00003b.cache", "cc00001.cache", "c00001.vdb", "d00001.cache"}));
  EXPECT_FALSE(s.cacher().GetCacheInfo().found);
}

TEST(GridCacher, RecordedFoldersAreKnownBeforeTheRun) {
  TemporaryFolder folder;
  PaintedScene s(folder.path(), true);
  EXPECT_EQ(RecordedFolders(s.document), std::vector<std::filesystem::path>{folder.path()});
  s.cache->Set(GridCacher::kModeId, GridCacher::CacheMode::Playback);
  EXPECT_TRUE(RecordedFolders(s.document).empty());
}

using test::TemporaryFolder;

ScalarGrid MakeGrid(const VecInt3D& cells, double size, std::uint32_t type, const Vec3D& origin = {}) {
  const float cell = static_cast<float>(size / cells.x);
  return ScalarGrid(cells + ExtraCells(type), Vec3D(cells) * (size / cells.x), cell, type, origin);
}
// The value of f at each sample's place as the resampler sees it.
template <class F>
void Fill(ScalarGrid& g, const F& f) {
  const Vec3D half(g.gridType == kGridNodalLevelset ? 0.0 : 0.5);
  test::FillCells(g, [&](int i, int j, int k) { return f(g.space.HostOfVoxel(Vec3D(VecInt3D(i, j, k)) + half)); });
}
double Linear(const Vec3D& p) { return 1 + 2 * p.x - 3 * p.y + 0.5 * p.z; }

// Writes one entry of these grids.
void WriteFrame(const std::filesystem::path& path, const CachedGridSet& grids, bool compress = false) {
  HyperFile file;
  ASSERT_TRUE(file.Open(kFrameFileIdent, path, HyperFile::Mode::Write));
  const std::vector<CachedGridSet> entries = {grids};
  WriteGridFrame(file, grids.front()->space, entries, compress);
  const Status closed = file.Close();
  ASSERT_TRUE(closed.ok()) << closed.error().text;
}
Status ReadFrame(HyperFile& file, const std::vector<ScalarGrid*>& targets,
                 Interpolation interpolation = Interpolation::Trilinear) {
  WorkerPool pool(1);
  GridFrameHead head;
  if (Status read = ReadGridFrameHead(file, "f", head); !read.ok()) return read;
  for (const GridCacheHeader& header : head.entries) {
    if (Status read = ReadGridChunk(file, "f", header, targets, {interpolation, pool}); !read.ok()) return read;
  }
  return {};
}
Status ReadFrame(const std::filesystem::path& path, const std::vector<ScalarGrid*>& targets,
                 Interpolation interpolation = Interpolation::Trilinear) {
  HyperFile file;
  if (!file.Open(kFrameFileIdent, path, HyperFile::Mode::Read)) return file.status();
  return ReadFrame(file, targets, interpolation);
}
bool SameContent(const ScalarGrid& a, const ScalarGrid& b) { return test::ValuesOf(a) == test::ValuesOf(b); }

TEST(GridFrameFile, StaggeredComponentsComeBackEachWithItsDims) {
  TemporaryFolder folder;
  std::vector<ScalarGrid> grids, targets;
  CachedGridSet set;
  std::vector<ScalarGrid*> into;
  for (std::uint32_t c = 0; c < 3; c++) {
    grids.push_back(MakeGrid({5, 4, 6}, 10, c, {1, 2, 3}));
    targets.push_back(MakeGrid({5, 4, 6}, 10, c, {1, 2, 3}));
  }
  for (std::uint32_t c = 0; c < 3; c++) {
    Fill(grids[c], [&](const Vec3D& p) { return Linear(p) * (c + 1); });
    targets[c].Fill(-7.0);
    set.push_back(&grids[c]);
    into.push_back(&targets[c]);
  }
  for (bool compress : {false, true}) {
    WriteFrame(folder / "f", set, compress);
    const Status read = ReadFrame(folder / "f", into);
    ASSERT_TRUE(read.ok()) << read.error().text;
    for (int c = 0; c < 3; c++) EXPECT_TRUE(SameContent(grids[c], targets[c])) << c;
  }
}

TEST(GridFrameFile, AnEqualLatticeWithAnotherArrayIsResampled) {
  TemporaryFolder folder;
  ScalarGrid nodal = MakeGrid({6, 6, 6}, 6, kGridNodalLevelset), centred = MakeGrid({6, 6, 6}, 6, kGridLevelset);
  ASSERT_TRUE(nodal.space.Equals(centred.space));
  Fill(nodal, Linear);
  WriteFrame(folder / "f", {&nodal});
  ASSERT_TRUE(ReadFrame(folder / "f", {&centred}).ok());
  EXPECT_NEAR(centred(2, 3, 4), Linear({2.5, 3.5, 4.5}), 1e-12);
}

// Out to another lattice and back. Linear fields come through each interpolation but the easing one; a smooth one comes
// near, in the inside where no border is repeated.
void ResampleThereAndBack(int n, int m) {
  TemporaryFolder folder;
  const double size = 1.0;
  const auto wave = [](const Vec3D& p) { return std::sin(6 * p.x) * std::cos(5 * p.y) + std::sin(4 * p.z); };
  const double tolerance[] = {60.0 / (n * n), 6.0 / n, 60.0 / (n * n), 60.0 / (n * n), 120.0 / (n * n)};
  for (int mode = 0; mode <= 4; mode++) {
    for (bool linear : {true, false}) {
      ScalarGrid start = MakeGrid({n, n, n}, size, kGridSmoke), there = MakeGrid({m, m, m}, size, kGridSmoke);
      ScalarGrid back = MakeGrid({n, n, n}, size, kGridSmoke), same = MakeGrid({n, n, n}, size, kGridSmoke);
      Fill(start, [&](const Vec3D& p) { return linear ? Linear(p) : wave(p); });
      WriteFrame(folder / "a", {&start});
      ASSERT_TRUE(ReadFrame(folder / "a", {&same}, InterpolationOf(mode)).ok());
      ASSERT_TRUE(SameContent(start, same)) << "the same lattice is copied, whatever the interpolation";
      ASSERT_TRUE(ReadFrame(folder / "a", {&there}, InterpolationOf(mode)).ok());
      WriteFrame(folder / "b", {&there});
      ASSERT_TRUE(ReadFrame(folder / "b", {&back}, InterpolationOf(mode)).ok());
      const bool exact = linear && mode != 1 && mode != 4;
      double worst = 0;
      const int border = 4;
      test::ForBox(VecInt3D(border, border, border), VecInt3D(n - border, n - border, n - border),
                   [&](int i, int j, int k) { worst = std::max(worst, std::abs(back(i, j, k) - start(i, j, k))); });
      EXPECT_LT(worst, exact ? 1e-12 : tolerance[mode]) << "mode " << mode << ", linear " << linear;
    }
  }
}
TEST(GridFrameFile, ResamplesThereAndBack) { ResampleThereAndBack(24, 36); }

TEST(GridFrameFile, LatticesThatCanNotBeAreRefused) {
  TemporaryFolder folder;
  const GridSpace good = MakeGrid({4, 5, 6}, 4, kGridSmoke, {1, -2, 3}).space;
  const auto readBack = [&](const GridSpace& stored, GridSpace& space) {
    HyperFile file;
    file.Open(1, folder / "s", HyperFile::Mode::Write);
    WriteGridSpace(file, stored);
    EXPECT_TRUE(file.Close().ok());
    file.Open(1, folder / "s", HyperFile::Mode::Read);
    return ReadGridSpace(file, "s", space).ok();
  };
  GridSpace space;
  ASSERT_TRUE(readBack(good, space));
  EXPECT_EQ(std::memcmp(&space.hostMin, &good.hostMin, sizeof(Vec3D)), 0);
  EXPECT_TRUE(space.Equals(good));
  EXPECT_EQ(space.voxelMax, good.voxelMax);
  const auto refused = [&](auto change) {
    GridSpace bad = good;
    change(bad);
    return !readBack(bad, space);
  };
  const double nan = std::nan("");
  EXPECT_TRUE(refused([](GridSpace& s) { s.dims.x = 0, s.count = s.slab = 0; }));
  EXPECT_TRUE(refused([](GridSpace& s) { s.dims = {-4, -5, 6}; }));
  EXPECT_TRUE(refused([](GridSpace& s) { s.dims = {65536, 65536, 1}, s.slab = s.count = 0; }));
  EXPECT_TRUE(refused([](GridSpace& s) { s.dims = VecInt3D(2147483647), s.count = 2147483647; }));
  EXPECT_TRUE(refused([](GridSpace& s) { s.count++; }));
  EXPECT_TRUE(refused([](GridSpace& s) { s.slab--; }));
  EXPECT_TRUE(refused([](GridSpace& s) { s.cellSize = 0; }));
  EXPECT_TRUE(refused([&](GridSpace& s) { s.hostMin.y = nan; }));
  EXPECT_TRUE(refused([&](GridSpace& s) { s.hostSize.z = nan; }));
  EXPECT_TRUE(refused([](GridSpace& s) { s.hostSize.z = -1; }));
}

TEST(GridFrameFile, TheNumberOfEntriesTakesNoMemory) {
  TemporaryFolder folder;
  for (std::int32_t count : {-1, 2, 2147483647}) {
    HyperFile file;
    file.Open(kFrameFileIdent, folder / "f", HyperFile::Mode::Write);
    WriteGridSpace(file, MakeGrid({4, 4, 4}, 4, kGridSmoke).space);
    file.WriteLong(count);
    file.WriteBool(false);
    ASSERT_TRUE(file.Close().ok());
    file.Open(kFrameFileIdent, folder / "f", HyperFile::Mode::Read);
    GridFrameHead head;
    EXPECT_FALSE(ReadGridFrameHead(file, "f", head).ok()) << count;
  }
}

}  // namespace
}  // namespace orlix
