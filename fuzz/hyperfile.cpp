// HyperFile's reader on any bytes: as they are, and with checksums that agree, so that what follows them is
// reached.

#include "host/files/HyperFile.h"
#include "tests/support/RepairHyperFile.h"

namespace {

void Walk(orlix::HyperFile& file) {
  using orlix::HyperValue;
  HyperValue next;
  while (file.ReadValueHeader(next) && next != HyperValue::None) {
    std::int32_t id, level;
    std::vector<std::byte> block;
    std::string text;
    if (next == HyperValue::Chunk) {
      if (!file.ReadChunkStart(id, level)) return;
      Walk(file);
      if (!file.ReadChunkEnd()) return;
    } else if (next == HyperValue::Memory) {
      if (!file.ReadMemory(block)) return;
    } else if (next == HyperValue::String) {
      if (!file.ReadString(text)) return;
    } else if (!file.SkipValue()) {
      return;
    }
  }
}

void Read(const std::vector<std::byte>& bytes) {
  orlix::HyperFile file;
  if (!file.Open(0, bytes)) return;
  file.VerifyAll();
  Walk(file);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto* first = reinterpret_cast<const std::byte*>(data);
  std::vector<std::byte> bytes(first, first + size);
  Read(bytes);
  orlix::test::RepairHyperFile(bytes, 0x717A666D);
  Read(bytes);
  return 0;
}
