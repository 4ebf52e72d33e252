#pragma once
// Streams that are packed by the DEFLATE method (RFC 1951), as gzip files (RFC 1952) or zlib streams (RFC 1950).

#include <cstdint>
#include <memory>
#include <ostream>
#include <streambuf>
#include <string>
#include <string_view>
#include <vector>

#include "globals/Result.h"
#include "host/threads/WorkerPool.h"

namespace orlix {

enum class Packing { Gzip, Zlib };

// Packs what is written to it. Blocks of a fixed size are packed by themselves, on all workers of a pool, and joined:
// the bytes don't depend on their number.
class PackedBuffer : public std::streambuf {
 public:
  PackedBuffer(std::ostream& out, Packing packing, WorkerPool* pool);
  // Everything that was written is handed on, with the stream's end. The state of `out` tells of errors.
  void Finish();

 private:
  int_type overflow(int_type c) override;
  std::streamsize xsputn(const char* bytes, std::streamsize size) override;
  void PackPending(bool last);

  std::ostream& out_;
  const Packing packing_;
  WorkerPool* pool_;
  std::string pending_;
  std::size_t batch_;  // bytes that are packed at once
  std::uint64_t check_, size_ = 0;
};

// Unpacks a stream piece by piece, so that no more memory is taken than is asked for.
class Unpacker {
 public:
  Unpacker(std::string_view packed, Packing packing);
  ~Unpacker();
  Unpacker(const Unpacker&) = delete;
  Unpacker& operator=(const Unpacker&) = delete;
  // How many bytes were there, less than size at the stream's end or where it is broken.
  std::size_t Read(char* bytes, std::size_t size);
  bool failed() const { return failed_; }

 private:
  struct State;
  std::unique_ptr<State> state_;
  std::string_view rest_;
  bool failed_ = false, ended_ = false;
};

inline bool IsGzip(std::string_view bytes) { return bytes.starts_with("\x1f\x8b"); }
// The whole of a gzip file, which may have several parts. InputFile when it is broken, or so much more than its packed
// size that it is no file of results.
Result<std::string> UnpackGzip(std::string_view packed, std::string_view name);

}  // namespace orlix
