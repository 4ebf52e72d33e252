#pragma once
// The writing half of HyperFile. The first error sticks; every later call gives false.

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string_view>
#include <vector>

#include "globals/Hash.h"
#include "globals/Result.h"
#include "globals/Vec.h"
#include "host/files/AtomicFile.h"
#include "host/files/HyperFileFormat.h"

namespace orlix {

class HyperFileWriter {
 public:
  bool WriteBool(bool value);
  bool WriteWord(std::int16_t value);
  bool WriteLong(std::int32_t value);
  bool WriteLLong(std::int64_t value);
  bool WriteReal(float value);
  bool WriteLReal(double value);
  bool WriteVector(const Vec3D& value);
  bool WriteMemory(const void* bytes, std::size_t size);
  bool WriteString(std::string_view text);
  // Chunks may stand in chunks.
  bool WriteChunkStart(std::int32_t id, std::int32_t level);
  bool WriteChunkEnd();

 protected:
  bool OpenWrite(std::uint32_t ident, const std::filesystem::path& path);
  // The end record, and the file gets its name.
  Status CloseWrite();
  void AbandonWrite();
  bool IsWriting() const { return file_.IsOpen(); }
  const Status& writeStatus() const { return status_; }

 private:
  struct Level {
    std::uint64_t headerAt = 0;
    std::int32_t id = 0, level = 0;
    StateHash hash;
  };

  bool Fail(const char* reason);
  bool Put(const void* bytes, std::size_t size);
  bool PutValue(HyperValue tag, const void* bytes, std::size_t size);
  bool PutBlock(HyperValue tag, const void* bytes, std::size_t size);

  AtomicFile file_;
  Status status_;
  std::vector<std::unique_ptr<Level>> levels_;
  std::uint32_t ident_ = 0;
};

}  // namespace orlix
