#pragma once
// The host's typed, chunked record file. What it holds is a sequence of typed values, and chunks of such; see
// HyperFileFormat.h for the bytes.
//
//   HyperFile file;
//   if (!file.Open(ident, path, HyperFile::Mode::Write)) return file.status();
//   file.WriteLong(1);
//   file.WriteChunkStart(1, 0);  file.WriteMemory(bytes, size);  file.WriteChunkEnd();
//   return file.Close();         // only now the path exists, whole
//
// Writing, and reading, an item that fails makes every later one fail; Close and status() tell the first reason. A file
// that is written and not closed leaves nothing behind.

#include "host/files/HyperFileReader.h"
#include "host/files/HyperFileWriter.h"

namespace orlix {

class HyperFile : public HyperFileReader, public HyperFileWriter {
 public:
  enum class Mode { Read, Write };

  HyperFile() = default;
  ~HyperFile() { Abandon(); }
  HyperFile(const HyperFile&) = delete;
  HyperFile& operator=(const HyperFile&) = delete;

  // Reading takes any file when the ident is 0.
  bool Open(std::uint32_t ident, const std::filesystem::path& path, Mode mode);
  // Reads from memory, which must outlive this.
  bool Open(std::uint32_t ident, std::span<const std::byte> memory);
  // The first error of reading, or of writing and publishing.
  Status Close();
  // Closes without publishing what was written.
  void Abandon();
  const Status& status() const { return mode_ == Mode::Read ? readStatus() : writeStatus(); }

  // Whether the file at the path is whole: end record, and every checksum.
  static Status Verify(std::uint32_t ident, const std::filesystem::path& path);

 private:
  Mode mode_ = Mode::Read;
};

}  // namespace orlix
