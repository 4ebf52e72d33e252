#include "fluids/caches/GridCacher.h"
#include "fluids/channels/ScalarChannels.h"
#include "fluids/helpers/Duration.h"
#include "fluids/scene/RootObject.h"

#include "fluids/caches/C4D_Operator_GridCache_Object.h"
#include "tests/fluids/caches/PaintedScene.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/SmallDisk.h"

namespace orlix {
namespace {

using test::PaintedScene;
using test::PaintNode;
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
    s.StepThrough(10, 11);
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

TEST(GridCacher, ARepeatedFrameDoesNotCostTheNext) {
  TemporaryFolder folder;
  PaintedScene s(folder.path(), true);
  for (int frame : {0, 1, 1, 1, 2}) s.Step(frame);
  EXPECT_EQ(test::NamesIn(folder.path()).size(), 3u);
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
  EXPECT_TRUE(
      s.Warned("Cache File " + (folder / "c00002.cache").string() + " could not be found! Frames 0 to 3 are there"));
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

}  // namespace
}  // namespace orlix
