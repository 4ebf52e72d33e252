#include "run/ResultRecord.h"

#include <gtest/gtest.h>

#include "tests/support/Folders.h"
#include "tests/support/TemporaryFolder.h"

namespace orlix {
namespace {

RecordedFrame Made(const test::TemporaryFolder& folder, const std::string& name, std::uint64_t from) {
  test::WriteText(folder / name, "twelve bytes");
  return {{ResultFileOf(folder / name, name, false)}, {from, 9, {{(folder / "c").string(), 3}}}};
}

TEST(ResultRecord, TellsWhatIsMissingNeverMadeOrStale) {
  const test::TemporaryFolder folder;
  const auto path = ResultRecord::PathOf(folder.path(), "shots/splash.json");
  EXPECT_EQ(path, folder / "splash.results");
  ResultRecord record;
  ASSERT_TRUE(record.Begin(path, {0, 1, 2, 5, 6}).ok());
  for (const int frame : {2, 0, 6}) {
    ASSERT_TRUE(record.Add(frame, Made(folder, "f" + std::to_string(frame), 7)).ok());
  }
  ASSERT_TRUE(record.Add(0, Made(folder, "f0", 8)).ok()) << "made again";
  test::WriteText(path, test::ReadText(path) + R"({"frame": 1, "files": [)");  // a kill

  Result<ResultRecord> read = ResultRecord::Read(path);
  ASSERT_TRUE(read.ok()) << read.error().text;
  EXPECT_EQ(read->planned(), (std::vector<FrameRange>{{0, 2}, {5, 6}}));
  EXPECT_EQ(read->NeverMade(), (std::vector<FrameRange>{{1, 1}, {5, 5}}));
  EXPECT_EQ(read->frames().at(0).origin.caches, (std::vector<CacheStamp>{{(folder / "c").string(), 3}}));
  FrameOrigin origin{7, 0, {}};
  EXPECT_EQ(read->WhyMake(2, origin), "") << "no picture, so what only pictures show doesn't matter";
  EXPECT_NE(read->WhyMake(0, origin), "");
  EXPECT_NE(read->WhyMake(1, origin), "");
  test::WriteText(folder / "f6", "cut");
  EXPECT_EQ(read->MissingFiles(6, ResultRecord::Look::Sizes), std::vector<std::string>{"f6"});
  test::WriteText(folder / "f2", "twelve bytez");
  EXPECT_TRUE(read->MissingFiles(2, ResultRecord::Look::Sizes).empty());
  EXPECT_EQ(read->WhyMake(2, origin), "f2 isn't whole") << "as long as it was, another letter";
  EXPECT_TRUE(read->MadeFromOthers().empty()) << "a cache that is gone doesn't make its results stale";
  test::WriteText(folder / "c", std::string(100, 'x'));
  EXPECT_EQ(read->MadeFromOthers(), (std::vector<FrameRange>{{0, 0}, {2, 2}, {6, 6}}));

  ASSERT_TRUE(read->Begin(path, {7}).ok());
  read = ResultRecord::Read(path);
  ASSERT_TRUE(read.ok());
  EXPECT_EQ(read->frames().size(), 3u);
  EXPECT_EQ(read->planned(), (std::vector<FrameRange>{{0, 2}, {5, 7}}));
}

TEST(ResultRecord, WhatIsNoRecordIsRefused) {
  const test::TemporaryFolder folder;
  for (const char* text : {"no record", "{\"frame\": 1}\n", "{\"planned\": [[0]]}\n", "{\"planned\": 3}\n",
                           "{\"planned\": [[0, 1e300]], \"frame\": \"x\"}\n", "[[[[[[[["}) {
    test::WriteText(folder / "a.results", text);
    EXPECT_FALSE(ResultRecord::Read(folder / "a.results").ok()) << text;
  }
  EXPECT_TRUE(ResultRecord::Read(folder / "none.results").ok());
}

}  // namespace
}  // namespace orlix
