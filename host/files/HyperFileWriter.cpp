#include "host/files/HyperFileWriter.h"

#include <string>

namespace orlix {

bool HyperFileWriter::OpenWrite(std::uint32_t ident, const std::filesystem::path& path) {
  levels_.clear();
  ident_ = ident;
  status_ = file_.Open(path);
  if (!status_.ok()) return false;
  unsigned char header[hyper::kFileHeader];
  hyper::PutFileHeader(header, ident);
  if (!file_.Write(header, sizeof header)) {
    status_ = file_.status();
    return false;
  }
  levels_.push_back(std::make_unique<Level>());
  return true;
}

bool HyperFileWriter::Fail(const char* reason) {
  if (status_.ok()) {
    status_ = Status::Fail(ErrorKind::Internal, "can't write " + file_.Path().string() + ": " + reason);
  }
  return false;
}

bool HyperFileWriter::Put(const void* bytes, std::size_t size) {
  if (!status_.ok()) return false;
  if (levels_.empty()) return Fail("it isn't open");
  levels_.back()->hash.Add(bytes, size);
  if (!file_.Write(bytes, size)) status_ = file_.status();
  return status_.ok();
}

bool HyperFileWriter::PutValue(HyperValue tag, const void* bytes, std::size_t size) {
  unsigned char record[25];
  record[0] = static_cast<unsigned char>(tag);
  std::memcpy(record + 1, bytes, size);
  return Put(record, size + 1);
}

bool HyperFileWriter::PutBlock(HyperValue tag, const void* bytes, std::size_t size) {
  const std::uint64_t length = size;
  return PutValue(tag, &length, sizeof length) && Put(bytes, size);
}

bool HyperFileWriter::WriteBool(bool value) {
  const unsigned char byte = value ? 1 : 0;
  return PutValue(HyperValue::Bool, &byte, 1);
}
bool HyperFileWriter::WriteWord(std::int16_t value) { return PutValue(HyperValue::Word, &value, sizeof value); }
bool HyperFileWriter::WriteLong(std::int32_t value) { return PutValue(HyperValue::Long, &value, sizeof value); }
bool HyperFileWriter::WriteLLong(std::int64_t value) { return PutValue(HyperValue::LongLong, &value, sizeof value); }
bool HyperFileWriter::WriteReal(float value) { return PutValue(HyperValue::Real, &value, sizeof value); }
bool HyperFileWriter::WriteLReal(double value) { return PutValue(HyperValue::LReal, &value, sizeof value); }
bool HyperFileWriter::WriteVector(const Vec3D& value) {
  const double xyz[3] = {value.x, value.y, value.z};
  return PutValue(HyperValue::Vector, xyz, sizeof xyz);
}
bool HyperFileWriter::WriteMemory(const void* bytes, std::size_t size) {
  return PutBlock(HyperValue::Memory, bytes, size);
}
bool HyperFileWriter::WriteString(std::string_view text) {
  return PutBlock(HyperValue::String, text.data(), text.size());
}

bool HyperFileWriter::WriteChunkStart(std::int32_t id, std::int32_t level) {
  if (!status_.ok()) return false;
  if (levels_.empty()) return Fail("it isn't open");
  if (levels_.size() > hyper::kMaxDepth) return Fail("chunks are nested too deep");
  auto next = std::make_unique<Level>();
  next->headerAt = file_.Position();
  next->id = id;
  next->level = level;
  // The length and the checksum come when the chunk ends.
  unsigned char header[hyper::kChunkHeader] = {};
  if (!file_.Write(header, sizeof header)) {
    status_ = file_.status();
    return false;
  }
  levels_.push_back(std::move(next));
  return true;
}

bool HyperFileWriter::WriteChunkEnd() {
  if (!status_.ok()) return false;
  if (levels_.size() < 2) return Fail("no chunk is open");
  const std::unique_ptr<Level> done = std::move(levels_.back());
  levels_.pop_back();
  hyper::ChunkHeader header{done->id, done->level, 0, done->hash.Value()};
  const std::uint64_t end = file_.Position();
  header.length = end - done->headerAt - hyper::kChunkHeader;
  unsigned char bytes[hyper::kChunkHeader];
  header.Put(bytes);
  levels_.back()->hash.Add(bytes, sizeof bytes);
  if (!file_.Seek(done->headerAt) || !file_.Write(bytes, sizeof bytes) || !file_.Seek(end)) status_ = file_.status();
  return status_.ok();
}

Status HyperFileWriter::CloseWrite() {
  if (status_.ok() && levels_.size() != 1) Fail("a chunk is still open");
  if (status_.ok()) {
    unsigned char record[hyper::kFileHeader + hyper::kEnd];
    hyper::PutFileHeader(record, ident_);
    unsigned char* end = record + hyper::kFileHeader;
    const std::uint64_t size = file_.Position() + hyper::kEnd, top = levels_.back()->hash.Value();
    end[0] = static_cast<unsigned char>(HyperValue::End);
    std::memcpy(end + 1, &size, 8);
    std::memcpy(end + 9, &top, 8);
    const std::uint64_t own = HashBytes(record, hyper::kFileHeader + hyper::kEndHashed);
    std::memcpy(end + hyper::kEndHashed, &own, 8);
    file_.Write(end, hyper::kEnd);
    status_ = file_.Commit();
  }
  AbandonWrite();
  return status_;
}

void HyperFileWriter::AbandonWrite() {
  file_.Abandon();
  levels_.clear();
}

}  // namespace orlix
