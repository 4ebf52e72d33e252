// The readers of pictures on any bytes: an error or a picture, no crash, no memory beyond what the bytes could hold.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>

#include "host/pictures/ExrFile.h"
#include "host/pictures/PngFile.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::span bytes(reinterpret_cast<const std::byte*>(data), size);
  for (const orlix::Result<orlix::Picture>& picture : {orlix::ReadExr(bytes), orlix::ReadPng(bytes)}) {
    if (!picture) continue;
    for (const orlix::PictureChannel& channel : picture->channels()) {
      if (channel.values.size() != picture->pixelCount()) std::abort();
    }
  }
  return 0;
}
