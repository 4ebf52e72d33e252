#include "host/files/Compressor.h"

#include <gtest/gtest.h>

#include <random>

namespace orlix {
namespace {

TEST(Compressor, GivesBackTheSameBytes) {
  std::mt19937 random(1);
  for (std::size_t size : {0u, 1u, 100u, 100000u}) {
    for (int level : {1, 9}) {
      std::vector<std::byte> source(size), packed, out(size);
      for (auto& b : source) b = static_cast<std::byte>(random() % 5);
      ASSERT_TRUE(Compressor::Compress(source, level, packed));
      ASSERT_TRUE(Compressor::Uncompress(packed, out));
      EXPECT_EQ(out, source);
      EXPECT_TRUE(size < 1000 || packed.size() < size / 2);
    }
  }
}

TEST(Compressor, ABombOrADamagedBlockIsRefused) {
  const std::vector<std::byte> zeros(64 << 20);
  std::vector<std::byte> bomb;
  ASSERT_TRUE(Compressor::Compress(zeros, 9, bomb));
  ASSERT_LT(bomb.size(), 100000u);
  std::vector<std::byte> out(1000);
  EXPECT_FALSE(Compressor::Uncompress(bomb, out));
  std::vector<std::byte> source(500, std::byte{3}), packed;
  ASSERT_TRUE(Compressor::Compress(source, 9, packed));
  out.resize(501);
  EXPECT_FALSE(Compressor::Uncompress(packed, out));
  out.resize(500);
  EXPECT_FALSE(Compressor::Uncompress(std::span(packed).first(packed.size() - 1), out));
  EXPECT_FALSE(Compressor::Uncompress({}, out));
}

}  // namespace
}  // namespace orlix
