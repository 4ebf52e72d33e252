#include <random>

#include "host/files/AtomicFile.h"
#include "host/files/AtomicStream.h"
#include "host/files/FolderLock.h"
#include "host/files/FrameFiles.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/SmallDisk.h"
#include "tests/support/TemporaryFolder.h"

namespace orlix {
namespace {

using test::NamesIn;
using test::ReadText;
using test::TemporaryFolder;
using Names = std::set<std::string>;

TEST(AtomicFile, HoldsWhatAStringWouldAfterRandomWritesAndSeeks) {
  TemporaryFolder folder;
  std::mt19937 random(7);
  for (int round = 0; round < 8; round++) {
    AtomicFile file;
    ASSERT_TRUE(file.Open(folder / "a.bin").ok());
    std::string model;
    std::size_t position = 0;
    for (int i = 0; i < 60; i++) {
      if (i % 3 == 2) {
        position = random() % (model.size() + 1);
        ASSERT_TRUE(file.Seek(position));
      }
      std::string piece(i % 7 == 0 ? random() % 700000 : random() % 300, char('a' + random() % 26));
      ASSERT_TRUE(file.Write(piece.data(), piece.size()));
      if (model.size() < position + piece.size()) model.resize(position + piece.size());
      model.replace(position, piece.size(), piece);
      position += piece.size();
    }
    ASSERT_EQ(file.Size(), model.size());
    ASSERT_TRUE(file.Commit().ok()) << file.status().error().text;
    EXPECT_TRUE(ReadText(folder / "a.bin") == model) << "round " << round;
    EXPECT_EQ(NamesIn(folder.path()), Names{"a.bin"});
  }
}

TEST(AtomicFile, OldContentStaysUntilCommit) {
  TemporaryFolder folder;
  ASSERT_TRUE(WriteFileAtomically(folder / "a", "old").ok());
  {
    AtomicFile file;
    ASSERT_TRUE(file.Open(folder / "a").ok());
    file.Write("new", 3);
    EXPECT_EQ(ReadText(folder / "a"), "old");
  }
  EXPECT_EQ(ReadText(folder / "a"), "old");
  EXPECT_EQ(NamesIn(folder.path()), Names{"a"});
  const auto refuse = [](const std::filesystem::path& written) {
    EXPECT_EQ(ReadText(written), "new");
    return Status::Fail(ErrorKind::InputFile, "not whole");
  };
  const Status refused = WriteFileAtomically(folder / "a", "new", refuse);
  ASSERT_FALSE(refused.ok());
  EXPECT_EQ(refused.error().kind, ErrorKind::Output);
  EXPECT_EQ(ReadText(folder / "a"), "old");
  ASSERT_TRUE(WriteFileAtomically(folder / "a", "new").ok());
  EXPECT_EQ(ReadText(folder / "a"), "new");
  ASSERT_TRUE(WriteFileAtomically(folder / "a", "").ok());
  EXPECT_EQ(std::filesystem::file_size(folder / "a"), 0u);
}

TEST(AtomicFile, RefusesWhatIsNoPlainFileAndReplacesLinks) {
  TemporaryFolder folder;
  std::filesystem::create_directory(folder / "d");
  for (const std::filesystem::path& path : {folder / "d", folder / "missing/a", std::filesystem::path("/dev/null")}) {
    const Status status = WriteFileAtomically(path, "x");
    ASSERT_FALSE(status.ok()) << path;
    EXPECT_EQ(status.error().kind, ErrorKind::Output);
    EXPECT_NE(status.error().text.find(path.string()), std::string::npos) << status.error().text;
  }
  test::WriteText(folder / "target", "old");
  std::filesystem::create_symlink(folder / "target", folder / "link");
  ASSERT_TRUE(WriteFileAtomically(folder / "link", "new").ok());
  EXPECT_FALSE(std::filesystem::is_symlink(folder / "link"));
  EXPECT_EQ(ReadText(folder / "link"), "new");
  EXPECT_EQ(ReadText(folder / "target"), "old");
}

// Writes 1 MB through the file and through the stream, over old content. 0 when both were refused as they must be.
int WriteIntoTheFull(const std::filesystem::path& folder) {
  const std::string content(1 << 20, 'x');
  const Status plain = WriteFileAtomically(folder / "plain", content);
  if (plain.ok()) return 1;
  if (plain.error().kind != ErrorKind::Output || plain.error().text.find("plain") == std::string::npos) return 2;
  AtomicStream stream;
  if (!stream.Open(folder / "stream").ok()) return 3;
  stream << content << content;
  stream.clear();  // a library that doesn't look, or throws its errors away
  if (stream.Commit().ok()) return 4;
  return NamesIn(folder) == Names{"plain"} && ReadText(folder / "plain") == "old" ? 0 : 5;
}

TEST(AtomicFile, FullDiskLeavesTheOldContentAndSaysThePath) {
  for (std::size_t size : {4096u, 65536u, 262144u, 300000u, 1048575u}) {
    TemporaryFolder folder;
    test::WriteText(folder / "plain", "old");
    EXPECT_EQ(test::RunInChild([&] { return test::LimitFileSize(size) ? WriteIntoTheFull(folder.path()) : 9; }), 0)
        << size;
    EXPECT_EQ(NamesIn(folder.path()), Names{"plain"});
  }
}

TEST(AtomicFile, StaleTemporariesGoAndLiveOnesStay) {
  TemporaryFolder folder;
  ASSERT_EQ(test::RunInChild([&] {
              AtomicFile file;
              if (!file.Open(folder / "frame.0001.vdb").ok()) return 1;
              file.Write("half", 4);
              ::_exit(0);
            }),
            0);
  ASSERT_EQ(NamesIn(folder.path()).size(), 1u);
  AtomicFile alive;
  ASSERT_TRUE(alive.Open(folder / "mine").ok());
  test::WriteText(folder / "someone.part", "not ours");
  EXPECT_EQ(RemoveStaleTemporaries(folder.path()), 1);
  EXPECT_EQ(NamesIn(folder.path()).size(), 2u);
  ASSERT_TRUE(alive.Commit().ok());
  EXPECT_EQ(NamesIn(folder.path()), (Names{"mine", "someone.part"}));
}

TEST(AtomicFile, TemporaryNamesAreTold) {
  EXPECT_EQ(TemporaryOwner("a.vdb.123-4.part"), 123);
  for (const char* name : {"a.part", "a.123.part", "a.123-.part", "a.-1-2.part", "a.12x-2.part", "a.1-2", ".part"}) {
    EXPECT_EQ(TemporaryOwner(name), 0) << name;
  }
}

TEST(AtomicStream, SeeksAndPatches) {
  TemporaryFolder folder;
  AtomicStream stream;
  ASSERT_TRUE(stream.Open(folder / "s").ok());
  stream << "head----tail";
  stream.seekp(4);
  stream << 1234;
  stream.put('!');
  EXPECT_EQ(stream.tellp(), 9);
  stream.seekp(0, std::ios::end);
  stream << '.';
  ASSERT_TRUE(stream.Commit().ok());
  EXPECT_EQ(ReadText(folder / "s"), "head1234!ail.");
}

TEST(AtomicStream, AFailedStreamIsNotCommitted) {
  TemporaryFolder folder;
  AtomicStream stream;
  ASSERT_TRUE(stream.Open(folder / "s").ok());
  stream << "x";
  stream.setstate(std::ios::failbit);
  const Status status = stream.Commit();
  ASSERT_FALSE(status.ok());
  EXPECT_EQ(status.error().kind, ErrorKind::Output);
  EXPECT_TRUE(NamesIn(folder.path()).empty());
  ASSERT_FALSE(stream.Open(folder / "missing/s").ok());
  EXPECT_FALSE(stream.good());
}

using test::TemporaryFolder;

TEST(FrameFiles, NumbersArePaddedByTheRule) {
  const struct {
    int frame, digits;
    const char* text;
  } rows[] = {{7, 5, "00007"}, {12, 5, "00012"},    {9, 2, "09"},        {10, 2, "10"},       {99, 2, "99"},
              {100, 2, "100"}, {9999, 6, "009999"}, {10000, 4, "10000"}, {10000, 6, "10000"}, {7, 1, "7"},
              {7, 7, "7"},     {0, 4, "0000"},      {-7, 5, "0000-7"},   {-12, 5, "0000-12"}, {7, -3, "7"}};
  for (const auto& row : rows) EXPECT_EQ(PadFrame(row.frame, row.digits), row.text) << row.frame << " " << row.digits;
  EXPECT_EQ(PadNumber(7, 4), "0007");
  EXPECT_EQ(PadNumber(-7, 4), "-0007");
  EXPECT_EQ(PadNumber(12345, 4), "12345");
  EXPECT_EQ(FramePath("out", "smoke.v2_", 7, 5, "cache"), "out/smoke.v2_00007.cache");
}

TEST(FrameFiles, OnlyNumbersAfterTheStemAreFrames) {
  EXPECT_EQ(FrameOfName("smoke00012", "smoke"), 12);
  EXPECT_EQ(FrameOfName("smoke00012", "smoke000"), 12);
  EXPECT_EQ(FrameOfName("s2147483647", "s"), 2147483647);
  for (const int frame : {-1, -7, -12345}) {
    for (const int digits : {2, 5, 6}) EXPECT_EQ(FrameOfName("smoke" + PadFrame(frame, digits), "smoke"), frame);
    EXPECT_EQ(FrameOfName("smoke." + PadNumber(frame, 4), "smoke."), frame);
    EXPECT_EQ(SplitNumber("smoke." + PadNumber(frame, 4)).frame, frame);
    EXPECT_EQ(SplitNumber("v2_" + PadFrame(frame, 5)).frame, frame);
  }
  EXPECT_EQ(SplitNumber("smoke-00007").stem, "smoke-");
  EXPECT_EQ(SplitNumber("-7").frame, 7);
  EXPECT_FALSE(SplitNumber("smoke2147483648").frame);
  for (const char* name : {"smoke-00007", "smoke0-", "smoke0-07", "smoke0-1-2", "smoke01-2", "smoke", "smok", "smoke1a",
                           "smoke 1", "smoke-1", "smoke1.2", "Smoke1", "smoke2147483648"}) {
    EXPECT_FALSE(FrameOfName(name, "smoke")) << name;
  }
}

TEST(FrameFiles, ScanFindsItsOwnInFrameOrder) {
  TemporaryFolder folder;
  for (const char* name : {"a00010.cache", "a9.cache", "a00003.cache", "a00003x.cache", "ab00001.cache", "a00004.vdb",
                           "a00005.cache.77-1.part", "a.cache", ".cache"}) {
    test::WriteText(folder / name, "12345");
  }
  std::filesystem::create_directory(folder / "a00006.cache");
  const auto files = ScanFrameFiles(folder.path(), "a", "cache");
  ASSERT_EQ(files.size(), 3u);
  EXPECT_EQ(files[0].frame, 3);
  EXPECT_EQ(files[1].frame, 9);
  EXPECT_EQ(files[2].frame, 10);
  EXPECT_EQ(files[1].size, 5u);
  const auto missing = MissingFrames(files, 0);
  EXPECT_EQ(missing, (std::vector<FrameRange>{{0, 2}, {4, 8}}));
  EXPECT_EQ(CountFrames(missing), 8);
  EXPECT_EQ(FormatRanges(missing), "0-2, 4-8");
  EXPECT_TRUE(ScanFrameFiles(folder / "nowhere", "a", "cache").empty());
}

TEST(FrameFiles, GapsOfTwoThousandMillionFramesAreOneRange) {
  const std::vector<FrameFile> files = {{0, "a", 1}, {0, "b", 1}, {2147483647, "c", 1}};
  const auto missing = MissingFrames(files, 0);
  ASSERT_EQ(missing.size(), 1u);
  EXPECT_EQ(CountFrames(missing), 2147483646);
  EXPECT_EQ(FormatRanges({{1, 1}, {3, 4}}), "1, 3-4");
  EXPECT_EQ(FormatRanges(std::vector<FrameRange>(12, FrameRange{1, 1})), "1, 1, 1, 1, 1, 1, 1, 1, 1, 1 and 2 more");
}

TEST(FrameFiles, SizesAreToldInTheirUnit) {
  EXPECT_EQ(FormatSize(1024), "1024 B");
  EXPECT_EQ(FormatSize(1536), "1.5 KB");
  EXPECT_EQ(FormatSize(std::uint64_t(3) << 20), "3 MB");
  EXPECT_EQ(FormatSize(std::uint64_t(5000) << 30), "5000 GB");
}

TEST(FrameFiles, FoldersAreMadeWithThoseAbove) {
  TemporaryFolder folder;
  EXPECT_TRUE(CreateFolders(folder / "a/b/c").ok());
  EXPECT_TRUE(CreateFolders(folder / "a/b/c").ok());
  test::WriteText(folder / "file", "");
  for (const char* name : {"file", "file/below"}) {
    const Status status = CreateFolders(folder / name);
    ASSERT_FALSE(status.ok()) << name;
    EXPECT_EQ(status.error().kind, ErrorKind::Output);
  }
}

// --- folder lock ----------------------------------------------------------------------------------------------------

TEST(FolderLock, TheSecondIsRefusedWithTheOwnersProcess) {
  TemporaryFolder folder;
  auto first = FolderLock::Acquire(folder.path());
  ASSERT_TRUE(first.ok());
  const auto refused = [&] {
    const auto second = FolderLock::Acquire(folder.path());
    return !second.ok() && second.error().kind == ErrorKind::Output &&
           second.error().text.find("process " + std::to_string(::getpid()) + " ") != std::string::npos;
  };
  EXPECT_TRUE(refused());
  const std::string owner = std::to_string(::getpid());
  EXPECT_EQ(test::RunInChild([&] {
              const auto second = FolderLock::Acquire(folder.path());
              return !second.ok() && second.error().text.find(owner) != std::string::npos ? 0 : 1;
            }),
            0);
  FolderLock moved = std::move(*first);
  EXPECT_TRUE(refused());
  moved.Release();
  EXPECT_TRUE(test::NamesIn(folder.path()).empty());
  EXPECT_TRUE(FolderLock::Acquire(folder.path()).ok());
}

TEST(FolderLock, ADeadOwnersLockIsTakenOver) {
  TemporaryFolder folder;
  ASSERT_EQ(test::RunInChild([&] {
              const auto lock = FolderLock::Acquire(folder.path());
              if (!lock.ok()) return 1;
              ::_exit(0);  // no destructor: as if killed
            }),
            0);
  ASSERT_EQ(test::NamesIn(folder.path()).size(), 1u);
  EXPECT_TRUE(FolderLock::Acquire(folder.path()).ok());
}

TEST(FolderLock, OnlyOneOfManyHoldsIt) {
  TemporaryFolder folder;
  test::WriteText(folder / "count", "0");
  std::vector<pid_t> children;
  constexpr int kChildren = 6, kRounds = 20;
  for (int c = 0; c < kChildren; c++) {
    children.push_back(test::StartChild([&] {
      for (int done = 0; done < kRounds;) {
        const auto lock = FolderLock::Acquire(folder.path());
        if (!lock.ok()) continue;
        const int count = std::stoi(test::ReadText(folder / "count"));
        test::WriteText(folder / "count", std::to_string(count + 1));
        done++;
      }
      return 0;
    }));
  }
  for (pid_t child : children) EXPECT_EQ(test::WaitFor(child), 0);
  EXPECT_EQ(test::ReadText(folder / "count"), std::to_string(kChildren * kRounds));
}

}  // namespace
}  // namespace orlix
