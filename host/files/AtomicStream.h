#pragma once
// An AtomicFile as a standard stream, for libraries that write to one (OpenVDB, OpenEXR). A failed write sets badbit
// and is kept by the file, so that it can't be lost by a library that doesn't look: Commit fails then.

#include <filesystem>
#include <ostream>
#include <streambuf>

#include "host/files/AtomicFile.h"

namespace orlix {

class AtomicStreamBuffer : public std::streambuf {
 public:
  explicit AtomicStreamBuffer(AtomicFile& file) : file_(file) {}

 protected:
  int_type overflow(int_type c) override;
  std::streamsize xsputn(const char* bytes, std::streamsize size) override;
  pos_type seekoff(off_type offset, std::ios_base::seekdir from, std::ios_base::openmode which) override;
  pos_type seekpos(pos_type position, std::ios_base::openmode which) override;

 private:
  AtomicFile& file_;
};

class AtomicStream : public std::ostream {
 public:
  AtomicStream() : std::ostream(nullptr), buffer_(file_) { rdbuf(&buffer_); }

  Status Open(const std::filesystem::path& path);
  // As AtomicFile::Commit; fails also when the stream is in a failed state.
  Status Commit(const AtomicFile::Proof& proof = {});
  void Abandon() { file_.Abandon(); }
  const Status& status() const { return file_.status(); }

 private:
  AtomicFile file_;
  AtomicStreamBuffer buffer_;
};

}  // namespace orlix
