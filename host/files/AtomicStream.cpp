#include "host/files/AtomicStream.h"

#include <string>

namespace orlix {

AtomicStreamBuffer::int_type AtomicStreamBuffer::overflow(int_type c) {
  if (traits_type::eq_int_type(c, traits_type::eof())) return traits_type::not_eof(c);
  const char byte = traits_type::to_char_type(c);
  return file_.Write(&byte, 1) ? c : traits_type::eof();
}

std::streamsize AtomicStreamBuffer::xsputn(const char* bytes, std::streamsize size) {
  return file_.Write(bytes, static_cast<std::size_t>(size)) ? size : 0;
}

AtomicStreamBuffer::pos_type AtomicStreamBuffer::seekoff(off_type offset, std::ios_base::seekdir from,
                                                         std::ios_base::openmode which) {
  off_type base = 0;
  if (from == std::ios_base::cur) base = static_cast<off_type>(file_.Position());
  if (from == std::ios_base::end) base = static_cast<off_type>(file_.Size());
  return seekpos(pos_type(base + offset), which);
}

AtomicStreamBuffer::pos_type AtomicStreamBuffer::seekpos(pos_type position, std::ios_base::openmode which) {
  const off_type target = position;
  if (!(which & std::ios_base::out) || target < 0 || !file_.Seek(static_cast<std::uint64_t>(target))) {
    return pos_type(off_type(-1));
  }
  return position;
}

Status AtomicStream::Open(const std::filesystem::path& path) {
  Status opened = file_.Open(path);
  opened.ok() ? clear() : setstate(std::ios_base::badbit);
  return opened;
}

Status AtomicStream::Commit(const AtomicFile::Proof& proof) {
  flush();
  if (fail() && file_.status().ok()) {
    file_.Abandon();
    return Status::Fail(ErrorKind::Output, "can't write " + file_.Path().string() + ": the stream failed");
  }
  return file_.Commit(proof);
}

}  // namespace orlix
