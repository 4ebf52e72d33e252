#include "host/files/FolderLock.h"
#include "host/files/FrameFiles.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/TemporaryFolder.h"

namespace orlix {
namespace {

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

TEST(FrameFiles, OnlyAllDigitTailsAreFrames) {
  EXPECT_EQ(FrameOfName("smoke00012", "smoke"), 12);
  EXPECT_EQ(FrameOfName("smoke00012", "smoke000"), 12);
  EXPECT_EQ(FrameOfName("s2147483647", "s"), 2147483647);
  for (const char* name : {"smoke", "smok", "smoke1a", "smoke 1", "smoke-1", "smoke1.2", "Smoke1", "smoke2147483648"}) {
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
