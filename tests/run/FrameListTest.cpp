#include "globals/ByteSize.h"
#include "run/FrameList.h"

#include <gtest/gtest.h>

#include "apps/orlix/Progress.h"

namespace orlix {
namespace {

TEST(FrameList, RangesStepsAndSingleFramesMerge) {
  const std::pair<const char*, std::vector<int>> cases[] = {
      {"5", {5}}, {"-3--1", {-3, -2, -1}}, {"1-10x4,120,5", {1, 5, 9, 120}}, {"3-3x7", {3}}, {"2,1,2", {1, 2}},
  };
  for (const auto& [text, frames] : cases) {
    const auto list = ParseFrameList(text);
    ASSERT_TRUE(list.ok()) << text;
    EXPECT_EQ(*list, frames) << text;
  }
}

TEST(FrameList, AnythingElseIsRefused) {
  for (const char* text :
       {"", ",", "1,", "a", "3-1", "1-5x0", "1-5x-1", "1-5x", "1 - 5", "99999999999", "1-9999999x1", "5x2", "1-2-3"}) {
    const auto list = ParseFrameList(text);
    ASSERT_FALSE(list.ok()) << text;
    EXPECT_EQ(list.error().kind, ErrorKind::Usage);
    EXPECT_EQ(list.error().text.find("before it begins") != std::string::npos, std::string(text) == "3-1") << text;
  }
}

TEST(ByteSize, UnitsArePowersOf1024) {
  EXPECT_EQ(*ParseByteSize("100"), 100);
  EXPECT_EQ(*ParseByteSize("8G"), 8LL << 30);
  EXPECT_EQ(*ParseByteSize("0.5k"), 512);
  EXPECT_EQ(*ParseByteSize("2MiB"), 2 << 20);
  EXPECT_EQ(*ParseByteSize("1TB"), 1LL << 40);
  for (const char* text : {"", "G", "-1G", "0", "8X", "8GG", "1e30T", "nan", "inf"}) {
    EXPECT_FALSE(ParseByteSize(text).ok()) << text;
  }
  EXPECT_EQ(ByteSizeText(512), "512 bytes");
  EXPECT_EQ(ByteSizeText(3LL << 29), "1.5 GB");
  EXPECT_EQ(ByteSizeText(5e20), "4.55e+08 TB") << "more than an integer holds";
}

TEST(Progress, DurationsReadAsAClock) {
  EXPECT_EQ(DurationText(7.4), "0:07");
  EXPECT_EQ(DurationText(750), "12:30");
  EXPECT_EQ(DurationText(11100), "3:05:00");
  EXPECT_EQ(DurationText(1.0 / 0.0), "0:00");
}

}  // namespace
}  // namespace orlix
