#include "host/files/HyperFileReader.h"

#include <algorithm>
#include <array>

namespace orlix {

namespace {

const char* NameOf(HyperValue value) {
  switch (value) {
    case HyperValue::None:
      return "nothing";
    case HyperValue::Bool:
      return "Bool";
    case HyperValue::Word:
      return "Word";
    case HyperValue::Long:
      return "Long";
    case HyperValue::LongLong:
      return "LLong";
    case HyperValue::Real:
      return "Real";
    case HyperValue::LReal:
      return "LReal";
    case HyperValue::Vector:
      return "Vector";
    case HyperValue::Memory:
      return "Memory";
    case HyperValue::String:
      return "String";
    case HyperValue::Chunk:
      return "a chunk";
    case HyperValue::End:
      return "the end";
  }
  return "an unknown type";
}

}  // namespace

bool HyperFileReader::Fail(const std::string& reason) {
  if (status_.ok()) status_ = Status::Fail(ErrorKind::InputFile, name_ + ": " + reason);
  return false;
}

bool HyperFileReader::OpenRead(std::uint32_t ident, const std::filesystem::path& path) {
  CloseRead();
  name_ = path.string();
  status_ = source_.Open(path);
  return status_.ok() && CheckFile(ident);
}

bool HyperFileReader::OpenRead(std::uint32_t ident, std::span<const std::byte> memory) {
  CloseRead();
  name_ = "memory";
  status_ = {};
  source_.Open(memory);
  return CheckFile(ident);
}

void HyperFileReader::CloseRead() {
  source_.Close();
  ends_.clear();
  position_ = 0;
}

bool HyperFileReader::CheckFile(std::uint32_t ident) {
  unsigned char record[hyper::kFileHeader + hyper::kEnd];
  unsigned char* end = record + hyper::kFileHeader;
  const std::uint64_t size = source_.Size();
  if (size < sizeof record) return Fail("truncated: " + std::to_string(size) + " bytes");
  if (!source_.ReadAt(0, record, hyper::kFileHeader) || !source_.ReadAt(size - hyper::kEnd, end, hyper::kEnd)) {
    return Fail("can't be read");
  }
  ident_ = hyper::GetIdent(record);
  if (std::memcmp(record + 4, hyper::kVersion, 4) != 0) return Fail("not a file of this kind, or of a newer version");
  if (ident != 0 && ident_ != ident) return Fail("not a file of this kind");
  std::uint64_t storedSize, top, own;
  std::memcpy(&storedSize, end + 1, 8);
  std::memcpy(&top, end + 9, 8);
  std::memcpy(&own, end + hyper::kEndHashed, 8);
  if (end[0] != static_cast<unsigned char>(HyperValue::End) || storedSize != size ||
      HashBytes(record, hyper::kFileHeader + hyper::kEndHashed) != own) {
    return Fail("truncated or damaged: no end record at byte " + std::to_string(size - hyper::kEnd));
  }
  std::uint64_t found;
  position_ = hyper::kFileHeader;
  ends_.push_back(size - hyper::kEnd);
  if (!HashLevel(position_, End(), found)) return false;
  return found == top || Fail("damaged: the checksum of the top level disagrees");
}

// The item at the position, which lies before the end; the item must fit before it too.
bool HyperFileReader::ItemAt(std::uint64_t position, std::uint64_t end, Item& item) {
  unsigned char bytes[hyper::kChunkHeader];
  const auto damaged = [&] { return Fail("damaged at byte " + std::to_string(position)); };
  const std::uint64_t left = end - position;
  if (!source_.ReadAt(position, bytes, 1)) return Fail("can't be read");
  item.value = static_cast<HyperValue>(bytes[0]);
  item.size = hyper::FixedSize(item.value);
  item.header = 1;
  if (item.value == HyperValue::Memory || item.value == HyperValue::String) item.header = 9;
  if (item.value == HyperValue::Chunk) item.header = hyper::kChunkHeader;
  if ((item.size == 0 && item.header == 1) || item.header > left) return damaged();
  if (item.header > 1 && !source_.ReadAt(position, bytes, item.header)) return Fail("can't be read");
  if (item.header == 9) std::memcpy(&item.size, bytes + 1, 8);
  if (item.value == HyperValue::Chunk) {
    item.chunk = hyper::ChunkHeader::Get(bytes);
    item.size = item.chunk.length;
  }
  return item.size <= left - item.header || damaged();
}

bool HyperFileReader::HashRange(std::uint64_t begin, std::uint64_t end, StateHash& hash) {
  std::array<std::byte, 32 * 1024> piece;
  while (begin < end) {
    const auto size = static_cast<std::size_t>(std::min<std::uint64_t>(piece.size(), end - begin));
    if (!source_.ReadAt(begin, piece.data(), size)) return Fail("can't be read");
    hash.Add(piece.data(), size);
    begin += size;
  }
  return true;
}

bool HyperFileReader::HashLevel(std::uint64_t begin, std::uint64_t end, std::uint64_t& hash) {
  StateHash state;
  std::uint64_t from = begin;
  Item item;
  for (std::uint64_t at = begin; at < end; at += item.header + item.size) {
    if (!ItemAt(at, end, item)) return false;
    if (item.value != HyperValue::Chunk) continue;
    if (!HashRange(from, at + item.header, state)) return false;
    from = at + item.header + item.size;
  }
  if (!HashRange(from, end, state)) return false;
  hash = state.Value();
  return true;
}

bool HyperFileReader::CheckChunk(std::uint64_t begin, const Item& item) {
  std::uint64_t found;
  if (!HashLevel(begin, begin + item.size, found)) return false;
  return found == item.chunk.checksum || Fail("damaged: the checksum of chunk " + std::to_string(item.chunk.id) +
                                              " at byte " + std::to_string(begin) + " disagrees");
}

bool HyperFileReader::VerifyLevel(std::uint64_t begin, std::uint64_t end, int depth) {
  if (depth > hyper::kMaxDepth) return Fail("damaged: chunks are nested too deep");
  Item item;
  for (std::uint64_t at = begin; at < end; at += item.header + item.size) {
    if (!ItemAt(at, end, item)) return false;
    if (item.value != HyperValue::Chunk) continue;
    const std::uint64_t content = at + item.header;
    if (!CheckChunk(content, item) || !VerifyLevel(content, content + item.size, depth + 1)) return false;
  }
  return true;
}

bool HyperFileReader::VerifyAll() {
  if (!status_.ok()) return false;
  if (!IsReading()) return Fail("isn't open");
  return VerifyLevel(hyper::kFileHeader, ends_.front(), 0);
}

bool HyperFileReader::ReadValueHeader(HyperValue& value) {
  if (!status_.ok()) return false;
  if (!IsReading()) return Fail("isn't open");
  value = HyperValue::None;
  if (position_ >= End()) return true;
  Item item;
  if (!ItemAt(position_, End(), item)) return false;
  value = item.value;
  return true;
}

// The next item, which must be of the type; the position moves to its content.
bool HyperFileReader::Next(HyperValue expected, Item& item) {
  HyperValue found;
  if (!ReadValueHeader(found)) return false;
  if (found != expected) {
    return Fail(std::string(NameOf(expected)) + " is missing at byte " + std::to_string(position_) + ", there is " +
                NameOf(found));
  }
  if (!ItemAt(position_, End(), item)) return false;
  position_ += item.header;
  return true;
}

bool HyperFileReader::ReadFixed(HyperValue expected, void* bytes) {
  Item item;
  if (!Next(expected, item)) return false;
  if (!source_.ReadAt(position_, bytes, static_cast<std::size_t>(item.size))) return Fail("can't be read");
  position_ += item.size;
  return true;
}

bool HyperFileReader::ReadBool(bool& value) {
  unsigned char byte;
  if (!ReadFixed(HyperValue::Bool, &byte)) return false;
  if (byte > 1) return Fail("damaged: a Bool of " + std::to_string(byte));
  value = byte == 1;
  return true;
}
bool HyperFileReader::ReadWord(std::int16_t& value) { return ReadFixed(HyperValue::Word, &value); }
bool HyperFileReader::ReadLong(std::int32_t& value) { return ReadFixed(HyperValue::Long, &value); }
bool HyperFileReader::ReadLLong(std::int64_t& value) { return ReadFixed(HyperValue::LongLong, &value); }
bool HyperFileReader::ReadReal(float& value) { return ReadFixed(HyperValue::Real, &value); }
bool HyperFileReader::ReadLReal(double& value) { return ReadFixed(HyperValue::LReal, &value); }
bool HyperFileReader::ReadVector(Vec3D& value) {
  double xyz[3];
  if (!ReadFixed(HyperValue::Vector, xyz)) return false;
  value = {xyz[0], xyz[1], xyz[2]};
  return true;
}

bool HyperFileReader::ReadMemory(std::vector<std::byte>& bytes) {
  std::uint64_t size;
  if (!NextMemorySize(size)) return false;
  bytes.resize(static_cast<std::size_t>(size));  // no more than the file has
  return ReadMemory(bytes.data(), bytes.size());
}

bool HyperFileReader::ReadMemory(void* bytes, std::size_t size) {
  Item item;
  if (!Next(HyperValue::Memory, item)) return false;
  if (item.size != size) {
    return Fail("a block of " + std::to_string(item.size) + " bytes at byte " + std::to_string(position_) +
                ", expected " + std::to_string(size));
  }
  if (!source_.ReadAt(position_, bytes, size)) return Fail("can't be read");
  position_ += size;
  return true;
}

bool HyperFileReader::NextMemorySize(std::uint64_t& size) {
  Item item;
  const std::uint64_t here = position_;
  if (!Next(HyperValue::Memory, item)) return false;
  position_ = here;
  size = item.size;
  return true;
}

bool HyperFileReader::ReadString(std::string& text) {
  Item item;
  if (!Next(HyperValue::String, item)) return false;
  text.resize(static_cast<std::size_t>(item.size));
  if (!source_.ReadAt(position_, text.data(), text.size())) return Fail("can't be read");
  position_ += item.size;
  return true;
}

bool HyperFileReader::SkipValue() {
  HyperValue found;
  if (!ReadValueHeader(found)) return false;
  if (found == HyperValue::None) return Fail("nothing to skip at byte " + std::to_string(position_));
  Item item;
  if (!ItemAt(position_, End(), item)) return false;
  position_ += item.header + item.size;
  return true;
}

bool HyperFileReader::ReadChunkStart(std::int32_t& id, std::int32_t& level) {
  Item item;
  if (!Next(HyperValue::Chunk, item)) return false;
  if (ends_.size() > hyper::kMaxDepth) return Fail("damaged: chunks are nested too deep");
  if (!CheckChunk(position_, item)) return false;
  ends_.push_back(position_ + item.size);
  id = item.chunk.id;
  level = item.chunk.level;
  return true;
}

bool HyperFileReader::SkipToEndChunk() {
  if (!status_.ok()) return false;
  if (ends_.size() < 2) return Fail("no chunk is open");
  position_ = End();
  return true;
}

bool HyperFileReader::ReadChunkEnd() {
  if (!SkipToEndChunk()) return false;
  ends_.pop_back();
  return true;
}

}  // namespace orlix
