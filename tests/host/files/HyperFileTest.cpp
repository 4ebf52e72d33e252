#include <gtest/gtest.h>

#include <random>

#include "host/files/Compressor.h"
#include "host/files/HyperFile.h"
#include "tests/support/RepairHyperFile.h"
#include "tests/support/TemporaryFolder.h"

namespace orlix {
namespace {

using test::TemporaryFolder;

constexpr std::uint32_t kIdent = 0x717A666D;

std::vector<std::byte> Bytes(const std::string& text) {
  const auto* data = reinterpret_cast<const std::byte*>(text.data());
  return {data, data + text.size()};
}

// Every type, chunks beside and in each other, an empty one.
void WriteSample(HyperFile& file) {
  file.WriteLong(-2);
  file.WriteBool(true);
  file.WriteVector({1.5, -0.0, 1e300});
  file.WriteChunkStart(1, 0);
  file.WriteMemory("0123456789abcdef", 16);
  file.WriteChunkStart(7, 3);
  file.WriteReal(0.1f);
  file.WriteWord(-32768);
  file.WriteChunkEnd();
  file.WriteLReal(0.1);
  file.WriteChunkEnd();
  file.WriteChunkStart(2, 0);
  file.WriteChunkEnd();
  file.WriteString("h\xC3\xA9");
  file.WriteLLong(std::int64_t(1) << 40);
}

std::vector<std::byte> SampleBytes() {
  TemporaryFolder folder;
  HyperFile file;
  EXPECT_TRUE(file.Open(kIdent, folder / "f", HyperFile::Mode::Write));
  WriteSample(file);
  EXPECT_TRUE(file.Close().ok());
  return Bytes(test::ReadText(folder / "f"));
}

TEST(HyperFile, GivesBackWhatWasWritten) {
  TemporaryFolder folder;
  HyperFile file;
  ASSERT_TRUE(file.Open(kIdent, folder / "f", HyperFile::Mode::Write));
  WriteSample(file);
  EXPECT_FALSE(std::filesystem::exists(folder / "f"));
  ASSERT_TRUE(file.Close().ok());
  ASSERT_TRUE(HyperFile::Verify(kIdent, folder / "f").ok());
  ASSERT_TRUE(file.Open(kIdent, folder / "f", HyperFile::Mode::Read));
  std::int32_t i = 0, id = 0, level = 0;
  bool b = false;
  Vec3D v;
  EXPECT_TRUE(file.ReadLong(i) && i == -2);
  EXPECT_TRUE(file.ReadBool(b) && b);
  EXPECT_TRUE(file.ReadVector(v) && v == Vec3D(1.5, 0, 1e300) && std::signbit(v.y));
  ASSERT_TRUE(file.ReadChunkStart(id, level) && id == 1 && level == 0);
  std::uint64_t size = 0;
  char block[16];
  EXPECT_TRUE(file.NextMemorySize(size) && size == 16);
  EXPECT_TRUE(file.ReadMemory(block, 16) && std::string(block, 16) == "0123456789abcdef");
  ASSERT_TRUE(file.ReadChunkStart(id, level) && id == 7 && level == 3);
  float f = 0;
  std::int16_t w = 0;
  EXPECT_TRUE(file.ReadReal(f) && f == 0.1f);
  EXPECT_TRUE(file.ReadWord(w) && w == -32768);
  ASSERT_TRUE(file.ReadChunkEnd());
  double d = 0;
  EXPECT_TRUE(file.ReadLReal(d) && d == 0.1);
  ASSERT_TRUE(file.ReadChunkEnd());
  ASSERT_TRUE(file.ReadChunkStart(id, level) && id == 2);
  HyperValue next = HyperValue::Bool;
  EXPECT_TRUE(file.ReadValueHeader(next) && next == HyperValue::None);
  ASSERT_TRUE(file.ReadChunkEnd());
  std::string text;
  EXPECT_TRUE(file.ReadValueHeader(next) && next == HyperValue::String);
  EXPECT_TRUE(file.ReadString(text) && text == "h\xC3\xA9");
  std::int64_t l = 0;
  EXPECT_TRUE(file.ReadLLong(l) && l == std::int64_t(1) << 40);
  EXPECT_TRUE(file.ReadValueHeader(next) && next == HyperValue::None);
  EXPECT_TRUE(file.Close().ok());
}

TEST(HyperFile, ReadsFailAtAChunksEndOnAnotherTypeAndForEver) {
  const auto bytes = SampleBytes();
  HyperFile file;
  std::int32_t id = 0, level = 0;
  std::string text;
  ASSERT_TRUE(file.Open(kIdent, bytes));
  for (int i = 0; i < 4; i++) ASSERT_TRUE(file.SkipValue());
  ASSERT_TRUE(file.ReadChunkStart(id, level) && id == 2);
  EXPECT_FALSE(file.ReadString(text));  // there is one, but after the chunk
  EXPECT_EQ(file.status().error().kind, ErrorKind::InputFile);
  const std::string first = file.status().error().text;
  EXPECT_FALSE(file.ReadChunkEnd() || file.SkipValue() || file.ReadString(text));
  EXPECT_EQ(file.Close().error().text, first);
  ASSERT_TRUE(file.Open(kIdent, bytes));
  double d = 0;
  EXPECT_FALSE(file.ReadLReal(d));
  EXPECT_NE(file.status().error().text.find("LReal is missing"), std::string::npos) << file.status().error().text;
  EXPECT_FALSE(file.ReadLong(id));
}

TEST(HyperFile, WritingMistakesLeaveNoFile) {
  TemporaryFolder folder;
  HyperFile file;
  ASSERT_TRUE(file.Open(kIdent, folder / "f", HyperFile::Mode::Write));
  file.WriteChunkStart(1, 0);
  EXPECT_FALSE(file.Close().ok());
  ASSERT_TRUE(file.Open(kIdent, folder / "f", HyperFile::Mode::Write));
  EXPECT_FALSE(file.WriteChunkEnd() || file.WriteLong(1));
  EXPECT_FALSE(file.Close().ok());
  EXPECT_FALSE(file.WriteLong(1));
  ASSERT_TRUE(file.Open(kIdent, folder / "f", HyperFile::Mode::Write));
  file.Abandon();
  EXPECT_FALSE(file.Open(kIdent, folder / "missing/f", HyperFile::Mode::Write));
  EXPECT_FALSE(file.Open(kIdent, folder / "f", HyperFile::Mode::Read));
  EXPECT_FALSE(file.Open(kIdent, folder.path(), HyperFile::Mode::Read));
  EXPECT_TRUE(test::NamesIn(folder.path()).empty());
}

// Whole by all checksums.
bool IsWhole(const std::vector<std::byte>& bytes) {
  HyperFile file;
  return file.Open(kIdent, bytes) && file.VerifyAll();
}

TEST(HyperFile, EveryPrefixIsRefusedWhenOpened) {
  const auto bytes = SampleBytes();
  ASSERT_TRUE(IsWhole(bytes));
  for (std::size_t size = 0; size < bytes.size(); size++) {
    const std::vector<std::byte> prefix(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size));
    HyperFile file;
    EXPECT_FALSE(file.Open(kIdent, prefix)) << size;
    EXPECT_FALSE(file.Open(0, prefix)) << size;
  }
}

TEST(HyperFile, EveryBitFlipIsDetected) {
  auto bytes = SampleBytes();
  int tried = 0;
  for (std::size_t bit = 0; bit < bytes.size() * 8; bit++, tried++) {
    const std::byte mask{static_cast<unsigned char>(1u << (bit % 8))};
    bytes[bit / 8] ^= mask;
    EXPECT_FALSE(IsWhole(bytes)) << "bit " << bit;
    bytes[bit / 8] ^= mask;
  }
  EXPECT_GT(tried, 1000);
  EXPECT_TRUE(IsWhole(bytes));
}

TEST(HyperFile, ADamagedChunkIsRefusedBeforeAValueIsRead) {
  auto bytes = SampleBytes();
  const std::string text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  bytes[text.find("456789")] ^= std::byte{1};
  HyperFile file;
  std::int32_t id = 0, level = 0;
  ASSERT_TRUE(file.Open(kIdent, bytes));  // the head of the file is trusted by itself
  for (int i = 0; i < 3; i++) ASSERT_TRUE(file.SkipValue());
  EXPECT_FALSE(file.ReadChunkStart(id, level));
  EXPECT_NE(file.status().error().text.find("checksum of chunk 1"), std::string::npos) << file.status().error().text;
}

// Reads whatever comes, as a reader that follows the items would.
int WalkItems(HyperFile& file, int depth = 0) {
  int items = 0;
  HyperValue next;
  while (file.ReadValueHeader(next) && next != HyperValue::None) {
    std::int32_t id, level;
    std::vector<std::byte> block;
    std::string text;
    bool read = false;
    if (next == HyperValue::Chunk) {
      if (!file.ReadChunkStart(id, level)) return items;
      items += WalkItems(file, depth + 1);
      read = file.ReadChunkEnd();
    } else if (next == HyperValue::Memory) {
      read = file.ReadMemory(block);
    } else if (next == HyperValue::String) {
      read = file.ReadString(text);
    } else {
      read = file.SkipValue();
    }
    if (!read) return items;
    items++;
  }
  return items;
}

TEST(HyperFile, HostileFilesWithRightChecksumsAreRead) {
  const auto sample = SampleBytes();
  std::mt19937 random(3);
  int opened = 0, items = 0;
  for (int mutant = 0; mutant < 2000; mutant++) {
    const auto bytes = test::MutantOf(sample, kIdent, random);
    HyperFile file;
    if (!file.Open(kIdent, bytes)) continue;
    opened++;
    items += WalkItems(file);
    file.VerifyAll();
  }
  EXPECT_GT(opened, 200);
  EXPECT_GT(items, 1000);
}

TEST(HyperFile, ALengthThatTheFileDoesNotBackTakesNoMemory) {
  for (const std::uint64_t length : {std::uint64_t(17), std::uint64_t(1) << 40, ~std::uint64_t(0)}) {
    auto bytes = SampleBytes();
    const std::string text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    std::memcpy(&bytes[text.find("0123456789abcdef") - 8], &length, 8);
    test::RepairHyperFile(bytes, kIdent);
    HyperFile file;
    ASSERT_TRUE(file.Open(kIdent, bytes));
    for (int i = 0; i < 3; i++) ASSERT_TRUE(file.SkipValue());
    std::int32_t id, level;
    EXPECT_FALSE(file.ReadChunkStart(id, level)) << length;
  }
}

TEST(HyperFile, DepthIsBounded) {
  TemporaryFolder folder;
  HyperFile file;
  ASSERT_TRUE(file.Open(kIdent, folder / "f", HyperFile::Mode::Write));
  int depth = 0;
  while (depth < 1000 && file.WriteChunkStart(1, 0)) depth++;
  EXPECT_EQ(depth, hyper::kMaxDepth);
  file.Abandon();
  // A chain of chunks deeper than a writer makes, with right checksums.
  constexpr std::size_t kChain = 150;
  std::vector<std::byte> bytes(hyper::kFileHeader + kChain * hyper::kChunkHeader + hyper::kEnd);
  for (std::size_t i = 0; i < kChain; i++) {
    hyper::ChunkHeader header{1, 0, (kChain - 1 - i) * hyper::kChunkHeader, 0};
    header.Put(reinterpret_cast<unsigned char*>(&bytes[hyper::kFileHeader + i * hyper::kChunkHeader]));
  }
  test::RepairHyperFile(bytes, kIdent);
  ASSERT_TRUE(file.Open(kIdent, bytes));
  EXPECT_FALSE(file.VerifyAll());
  ASSERT_TRUE(file.Open(kIdent, bytes));
  WalkItems(file);
  EXPECT_FALSE(file.status().ok());
}

// --- compressor -----------------------------------------------------------------------------------------------------

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

// Planes of one byte, of chance, of a pattern that only repeats, and a rest: each is as large as it must be.
TEST(Compressor, PlanesThatDoNotShrinkAreStored) {
  std::mt19937 random(2);
  for (const std::size_t plane : {1u, 1000u, 20000u, 300000u}) {
    std::vector<std::byte> source(3 * plane + plane / 2), packed, out(source.size());
    for (std::size_t n = 0; n < source.size(); ++n) {
      source[n] = static_cast<std::byte>(n / plane == 1 ? random() : n / plane == 2 ? n % plane : 7);
    }
    ASSERT_TRUE(Compressor::CompressPlanes(source, plane, packed));
    EXPECT_TRUE(plane < 1000 || (packed.size() > plane && packed.size() < plane + plane / 20 + 1000)) << packed.size();
    ASSERT_TRUE(Compressor::Uncompress(packed, out));
    EXPECT_TRUE(out == source);
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
