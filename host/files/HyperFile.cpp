#include "host/files/HyperFile.h"

namespace orlix {

bool HyperFile::Open(std::uint32_t ident, const std::filesystem::path& path, Mode mode) {
  Abandon();
  mode_ = mode;
  return mode == Mode::Read ? OpenRead(ident, path) : OpenWrite(ident, path);
}

bool HyperFile::Open(std::uint32_t ident, std::span<const std::byte> memory) {
  Abandon();
  mode_ = Mode::Read;
  return OpenRead(ident, memory);
}

Status HyperFile::Close() {
  if (mode_ == Mode::Write) return CloseWrite();
  CloseRead();
  return readStatus();
}

void HyperFile::Abandon() {
  CloseRead();
  AbandonWrite();
}

Status HyperFile::Verify(std::uint32_t ident, const std::filesystem::path& path) {
  HyperFile file;
  if (file.Open(ident, path, Mode::Read)) file.VerifyAll();
  return file.Close();
}

}  // namespace orlix
