#include "host/files/AtomicFile.h"

#include <random>

#include "host/files/AtomicStream.h"
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

}  // namespace
}  // namespace orlix
