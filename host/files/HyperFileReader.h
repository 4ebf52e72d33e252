#pragma once
// The reading half of HyperFile. A file is input of unknown origin: nothing is taken from it before its checksum
// agrees, and no memory is taken that the file's own size doesn't back.
//
// A typed read fails on another type and at a chunk's end. The first error sticks; every later call gives false.

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <span>
#include <string>
#include <vector>

#include "globals/Hash.h"
#include "globals/Result.h"
#include "globals/Vec.h"
#include "host/files/ByteSource.h"
#include "host/files/HyperFileFormat.h"

namespace orlix {

class HyperFileReader {
 public:
  bool ReadBool(bool& value);
  bool ReadWord(std::int16_t& value);
  bool ReadLong(std::int32_t& value);
  bool ReadLLong(std::int64_t& value);
  bool ReadReal(float& value);
  bool ReadLReal(double& value);
  bool ReadVector(Vec3D& value);
  bool ReadMemory(std::vector<std::byte>& bytes);
  // A block of just this size, straight to its place.
  bool ReadMemory(void* bytes, std::size_t size);
  // The size of the block that comes next, without reading it.
  bool NextMemorySize(std::uint64_t& size);
  bool ReadString(std::string& text);

  // The type of the next item, which stays; None at the end of a chunk or of the file. False only after an error.
  bool ReadValueHeader(HyperValue& value);
  // Passes over the next value or chunk.
  bool SkipValue();

  // Enters the chunk that comes next, after checking its checksum.
  bool ReadChunkStart(std::int32_t& id, std::int32_t& level);
  // To the chunk's end; a following ReadChunkEnd leaves it.
  bool SkipToEndChunk();
  // Leaves the chunk; what is unread in it is skipped.
  bool ReadChunkEnd();

  const Status& readStatus() const { return status_; }
  // Which file it is; the four characters, the first in the most significant byte.
  std::uint32_t Ident() const { return ident_; }
  // Checks the checksums of all chunks in the file, however deep. Allowed at any place, moves nothing.
  bool VerifyAll();

 protected:
  // ident 0 takes any. The file is known as whole but for its chunks' contents afterwards.
  bool OpenRead(std::uint32_t ident, const std::filesystem::path& path);
  bool OpenRead(std::uint32_t ident, std::span<const std::byte> memory);
  void CloseRead();
  bool IsReading() const { return source_.IsOpen(); }

 private:
  struct Item {
    HyperValue value = HyperValue::None;
    std::uint64_t size = 0;  // of the content, after the header
    std::size_t header = 0;  // bytes before the content
    hyper::ChunkHeader chunk;
  };

  bool Fail(const std::string& reason);
  bool CheckFile(std::uint32_t ident);
  bool ItemAt(std::uint64_t position, std::uint64_t end, Item& item);
  bool HashRange(std::uint64_t begin, std::uint64_t end, StateHash& hash);
  bool HashLevel(std::uint64_t begin, std::uint64_t end, std::uint64_t& hash);
  bool VerifyLevel(std::uint64_t begin, std::uint64_t end, int depth);
  bool CheckChunk(std::uint64_t begin, const Item& item);
  bool Next(HyperValue expected, Item& item);
  bool ReadFixed(HyperValue expected, void* bytes);
  std::uint64_t End() const { return ends_.back(); }

  ByteSource source_;
  std::string name_;
  Status status_;
  std::uint32_t ident_ = 0;
  std::uint64_t position_ = 0;
  std::vector<std::uint64_t> ends_;
};

}  // namespace orlix
