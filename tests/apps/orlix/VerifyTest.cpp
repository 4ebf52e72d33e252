#include <signal.h>
#include <unistd.h>

#include <algorithm>

#include "apps/orlix/FolderReport.h"
#include "apps/orlix/IsolatedCheck.h"
#include "exchange/vdb/VdbFile.h"
#include "fluids/caches/GridFrameFile.h"
#include "host/pictures/PictureFile.h"
#include "run/Checkpoint.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestScene.h"

namespace orlix {
namespace {

using test::TemporaryFolder;
namespace fs = std::filesystem;

// One file of each kind that the program writes.
void WriteOneOfEach(const fs::path& folder) {
  ScalarGrid grid({5, 4, 3}, {5, 4, 3}, 1.0f, kGridSmoke, {});
  for (std::int64_t i = 0; i < grid.count; i++) grid[i] = 0.5 + double(i);
  HyperFile cache;
  ASSERT_TRUE(cache.Open(kFrameFileIdent, folder / "a00001.cache", HyperFile::Mode::Write));
  const CachedGridSet entries[] = {{&grid}};
  WriteGridFrame(cache, grid.space, entries, false);
  ASSERT_TRUE(cache.Close().ok());
  VdbField field;
  field.name = "density", field.grids = {&grid, nullptr, nullptr};
  ASSERT_TRUE(WriteVdb(folder / "b.0001.vdb", {field}, {.frame = 1}).ok());
  Picture picture(8, 8);
  for (const char* channel : {"R", "G", "B"}) picture.AddChannel(channel, 0.25f);
  ASSERT_TRUE(WritePicture(folder / "c.0001.exr", picture).ok());
  ASSERT_TRUE(WritePicture(folder / "c.0001.png", picture).ok());
  test::TestScene s;
  s.Step(0);
  ASSERT_TRUE(WriteCheckpoint(folder / "state00001.checkpoint", {}, s.hook).ok());
}

TEST(Verify, EveryKindIsWholeAndEveryCutOneIsBroken) {
  TemporaryFolder folder;
  WriteOneOfEach(folder.path());
  const std::set<std::string> names = test::NamesIn(folder.path());
  ASSERT_EQ(names.size(), 5u);
  const auto whole = ReportFolder(folder.path());
  ASSERT_TRUE(whole.ok());
  EXPECT_EQ(whole->whole, 5);
  EXPECT_EQ(whole->broken, 0);
  for (const std::string& name : names) {
    const std::string content = test::ReadText(folder / name);
    for (const std::size_t size : {std::size_t(0), std::size_t(1), content.size() / 2, content.size() - 1}) {
      test::WriteText(folder / name, content.substr(0, size));
      const auto report = ReportFolder(folder / name);
      ASSERT_TRUE(report.ok());
      EXPECT_EQ(report->broken, 1) << name << " of " << size << " bytes";
    }
    test::WriteText(folder / name, content);
  }
}

TEST(Verify, GapsAreMissingFilesByEachKindsRule) {
  TemporaryFolder folder;
  WriteOneOfEach(folder.path());
  const auto copyTo = [&](const char* from, const std::string& to) { fs::copy_file(folder / from, folder / to); };
  for (int frame : {3, 4, 9}) copyTo("a00001.cache", "a0000" + std::to_string(frame) + ".cache");
  for (int frame : {3, 5, 9}) copyTo("b.0001.vdb", "b.000" + std::to_string(frame) + ".vdb");  // each second frame
  test::WriteText(folder / "b.0002.vdb.77-0.part", "half");
  fs::create_directory(folder / "deeper");
  copyTo("c.0001.png", "deeper/alone.png");
  const auto report = ReportFolder(folder.path());
  ASSERT_TRUE(report.ok());
  EXPECT_EQ(report->broken, 0);
  EXPECT_EQ(report->whole, 12);
  EXPECT_EQ(report->missing, 6);
  EXPECT_EQ(report->surelyMissing, 5);
  ASSERT_EQ(report->unfinished.size(), 1u);
  const auto find = [&](const std::string& name) -> const SequenceReport& {
    return *std::find_if(report->sequences.begin(), report->sequences.end(),
                         [&](const SequenceReport& s) { return s.name == (folder / name).string(); });
  };
  EXPECT_EQ(find("a#.cache").missing, (std::vector<FrameRange>{{2, 2}, {5, 8}}));
  EXPECT_EQ(find("b.#.vdb").missing, (std::vector<FrameRange>{{7, 7}}));
  EXPECT_EQ(find("deeper/alone.png").whole, 1);
}

TEST(Verify, ACacheOfAnotherFrameIsFoundByItsNumber) {
  TemporaryFolder folder;
  const ScalarGrid grid({2, 2, 2}, {2, 2, 2}, 1.0f, kGridSmoke, {});
  const CachedGridSet entries[] = {{&grid}};
  for (const char* number : {"00001", "00002", "00102"}) {
    HyperFile cache;
    ASSERT_TRUE(cache.Open(kFrameFileIdent, folder / ("a1" + std::string(number) + ".cache"), HyperFile::Mode::Write));
    WriteGridFrame(cache, grid.space, entries, false, number);
    ASSERT_TRUE(cache.Close().ok());
  }
  EXPECT_EQ(ReportFolder(folder.path())->broken, 0);
  fs::copy_file(folder / "a100102.cache", folder / "a100002.cache", fs::copy_options::overwrite_existing);
  const auto report = ReportFolder(folder.path());
  ASSERT_EQ(report->broken, 1);
  EXPECT_NE(report->sequences[0].broken[0].reason.find("written as frame 00102"), std::string::npos);
}

TEST(Verify, AFolderThatCanNotBeReadIsBroken) {
  TemporaryFolder folder;
  fs::create_directory(folder / "shut");
  fs::permissions(folder.path(), fs::perms::all);
  fs::permissions(folder / "shut", fs::perms::none);
  const bool isRoot = ::geteuid() == 0;  // whom no permission stops
  if (isRoot) {
    ASSERT_EQ(::seteuid(65534), 0);
  }
  const auto report = ReportFolder(folder.path());
  if (isRoot) {
    ASSERT_EQ(::seteuid(0), 0);
  }
  fs::permissions(folder / "shut", fs::perms::all);
  ASSERT_TRUE(report.ok()) << report.error().text;
  EXPECT_EQ(report->broken, 1);
  EXPECT_EQ(report->unreadable.size(), 1u);
}

TEST(Verify, AReaderThatCrashesOrHangsIsABrokenFile) {
  TemporaryFolder folder;
  test::WriteText(folder / "a", "x");
  const auto outcome = [&](Status (*check)(const fs::path&)) {
    const Status status = RunIsolated(check, folder / "a");
    return status.ok() ? std::string("whole") : status.error().text;
  };
  EXPECT_EQ(outcome([](const fs::path&) { return Status(); }), "whole");
  EXPECT_EQ(outcome([](const fs::path& p) { return Status::Fail(ErrorKind::InputFile, p.string() + ": cut"); }),
            (folder / "a").string() + ": cut");
  EXPECT_NE(outcome([](const fs::path&) -> Status { std::abort(); }).find("crashes"), std::string::npos);
  EXPECT_NE(outcome([](const fs::path&) -> Status { ::_exit(3); }).find("crashes"), std::string::npos);
  EXPECT_NE(outcome([](const fs::path&) {
              ::raise(SIGXCPU);
              return Status();
            }).find("doesn't end"),
            std::string::npos);
}

TEST(Verify, WhatCanNotBeReadIsAnError) {
  TemporaryFolder folder;
  EXPECT_EQ(ReportFolder(folder / "none").error().kind, ErrorKind::InputFile);
  test::WriteText(folder / "notes.txt", "");
  EXPECT_EQ(ReportFolder(folder / "notes.txt").error().kind, ErrorKind::Usage);
  const auto empty = ReportFolder(folder.path());
  ASSERT_TRUE(empty.ok());
  EXPECT_TRUE(empty->sequences.empty());
}

}  // namespace
}  // namespace orlix
