#include "exchange/points/Deflate.h"

#include <fmt/format.h>
#include <zlib.h>

#include <algorithm>
#include <cstring>

namespace orlix {

namespace {

constexpr std::size_t kPackBlock = std::size_t(1) << 18;
constexpr std::size_t kUnpackStep = std::size_t(1) << 20;
constexpr std::size_t kLeastUnpacked = std::size_t(1) << 26, kMostRatio = 256;

struct PackedBlock {
  std::string bytes;
  std::uint64_t check = 0;
  bool ok = true;
};

// A block as a piece of a raw stream that ends at a byte; the last one ends the stream. Particles are mostly mantissas
// without repetition, for which looking for strings takes thrice the time of coding and gains nothing.
PackedBlock Pack(std::string_view raw, Packing packing, bool last) {
  PackedBlock packed;
  const auto* in = reinterpret_cast<const Bytef*>(raw.data());
  const auto size = static_cast<uInt>(raw.size());
  packed.check = packing == Packing::Gzip ? crc32(0, in, size) : adler32(1, in, size);
  z_stream stream{};
  packed.ok = deflateInit2(&stream, 1, Z_DEFLATED, -MAX_WBITS, 9, Z_HUFFMAN_ONLY) == Z_OK;
  if (!packed.ok) return packed;
  packed.bytes.resize(deflateBound(&stream, size) + 16);
  stream.next_in = const_cast<Bytef*>(in);
  stream.avail_in = size;
  stream.next_out = reinterpret_cast<Bytef*>(packed.bytes.data());
  stream.avail_out = static_cast<uInt>(packed.bytes.size());
  const int outcome = deflate(&stream, last ? Z_FINISH : Z_SYNC_FLUSH);
  packed.ok = outcome == (last ? Z_STREAM_END : Z_OK) && stream.avail_in == 0;
  packed.bytes.resize(packed.bytes.size() - stream.avail_out);
  deflateEnd(&stream);
  return packed;
}

void PutNumber(std::string& bytes, std::uint64_t value, bool bigEndian) {
  for (int i = 0; i < 4; ++i) bytes += static_cast<char>(value >> 8 * (bigEndian ? 3 - i : i) & 0xff);
}

}  // namespace

PackedBuffer::PackedBuffer(std::ostream& out, Packing packing, WorkerPool* pool)
    : out_(out),
      packing_(packing),
      pool_(pool),
      batch_(kPackBlock * static_cast<std::size_t>(pool ? 2 * pool->count() : 1)),
      check_(packing == Packing::Gzip ? 0 : 1) {
  static constexpr char kGzipHead[] = "\x1f\x8b\x08\0\0\0\0\0\0\xff", kZlibHead[] = "\x78\x01";
  packing == Packing::Gzip ? out_.write(kGzipHead, 10) : out_.write(kZlibHead, 2);
}

PackedBuffer::int_type PackedBuffer::overflow(int_type c) {
  const char byte = traits_type::to_char_type(c);
  return xsputn(&byte, 1) == 1 ? c : traits_type::eof();
}

std::streamsize PackedBuffer::xsputn(const char* bytes, std::streamsize size) {
  std::string_view left(bytes, static_cast<std::size_t>(size));
  while (!left.empty()) {
    const std::size_t taken = std::min(left.size(), batch_ - pending_.size());
    pending_ += left.substr(0, taken);
    left.remove_prefix(taken);
    if (pending_.size() == batch_) PackPending(false);
  }
  return out_ ? size : 0;
}

void PackedBuffer::PackPending(bool last) {
  const std::size_t count = std::max<std::size_t>(1, (pending_.size() + kPackBlock - 1) / kPackBlock);
  std::vector<PackedBlock> blocks(count);
  const auto pack = [&](int from, int to, int) {
    for (auto b = static_cast<std::size_t>(from); b < static_cast<std::size_t>(to); ++b) {
      blocks[b] = Pack(std::string_view(pending_).substr(b * kPackBlock, kPackBlock), packing_, last && b + 1 == count);
    }
  };
  pool_ ? ParallelRange(*pool_, 0, static_cast<int>(count), pack) : pack(0, static_cast<int>(count), 0);
  for (std::size_t b = 0; b < count; ++b) {
    const auto size = static_cast<z_off_t>(std::min(kPackBlock, pending_.size() - b * kPackBlock));
    check_ = packing_ == Packing::Gzip ? crc32_combine(check_, blocks[b].check, size)
                                       : adler32_combine(check_, blocks[b].check, size);
    if (!blocks[b].ok) out_.setstate(std::ios::badbit);
    out_.write(blocks[b].bytes.data(), static_cast<std::streamsize>(blocks[b].bytes.size()));
  }
  size_ += pending_.size();
  pending_.clear();
}

void PackedBuffer::Finish() {
  PackPending(true);
  std::string end;
  PutNumber(end, check_, packing_ == Packing::Zlib);
  if (packing_ == Packing::Gzip) PutNumber(end, size_, false);
  out_.write(end.data(), static_cast<std::streamsize>(end.size()));
}

struct Unpacker::State {
  z_stream stream{};
};

Unpacker::Unpacker(std::string_view packed, Packing packing) : state_(std::make_unique<State>()), rest_(packed) {
  failed_ = inflateInit2(&state_->stream, MAX_WBITS + (packing == Packing::Gzip ? 16 : 0)) != Z_OK;
}
Unpacker::~Unpacker() { inflateEnd(&state_->stream); }

std::size_t Unpacker::Read(char* bytes, std::size_t size) {
  std::size_t done = 0;
  z_stream& stream = state_->stream;
  while (done < size && !failed_ && !ended_) {
    const std::size_t feed = std::min(rest_.size(), kUnpackStep);
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(rest_.data()));
    stream.avail_in = static_cast<uInt>(feed);
    stream.next_out = reinterpret_cast<Bytef*>(bytes + done);
    stream.avail_out = static_cast<uInt>(std::min(size - done, kUnpackStep));
    const uInt room = stream.avail_out;
    const int outcome = inflate(&stream, Z_NO_FLUSH);
    rest_.remove_prefix(feed - stream.avail_in);
    done += room - stream.avail_out;
    if (outcome == Z_STREAM_END && IsGzip(rest_)) {
      failed_ = inflateReset(&stream) != Z_OK;  // a further part
    } else if (outcome == Z_STREAM_END) {
      ended_ = true;
    } else if (outcome != Z_OK) {
      failed_ = true;
    }
  }
  return done;
}

Result<std::string> UnpackGzip(std::string_view packed, std::string_view name) {
  const std::size_t most = std::max(kLeastUnpacked, packed.size() * kMostRatio);
  Unpacker unpacker(packed, Packing::Gzip);
  std::string bytes;
  for (std::size_t size = 0;;) {
    bytes.resize(size + std::max(kUnpackStep / 16, size / 2));
    const std::size_t got = unpacker.Read(bytes.data() + size, bytes.size() - size);
    const bool full = got == bytes.size() - size;
    size += got;
    if (unpacker.failed()) return Error{ErrorKind::InputFile, fmt::format("{}: damaged: its packing is broken", name)};
    if (size > most) {
      return Error{ErrorKind::InputFile,
                   fmt::format("{}: it unpacks to more than {} times its size", name, kMostRatio)};
    }
    if (full) continue;
    bytes.resize(size);
    return bytes;
  }
}

}  // namespace orlix
