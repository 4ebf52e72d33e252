#include "host/files/FolderLock.h"

#include "tests/support/ChildProcess.h"
#include "tests/support/TemporaryFolder.h"

namespace orlix {
namespace {

using test::TemporaryFolder;

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

TEST(FolderLock, AMissingFolderIsAnError) {
  TemporaryFolder folder;
  const auto lock = FolderLock::Acquire(folder / "missing");
  ASSERT_FALSE(lock.ok());
  EXPECT_NE(lock.error().text.find("missing"), std::string::npos);
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
