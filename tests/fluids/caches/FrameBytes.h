#pragma once
// The bytes of a cache's frame file.

#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <vector>

#include "fluids/caches/GridFrameFile.h"
#include "host/files/HyperFile.h"
#include "tests/support/Folders.h"
#include "tests/support/TemporaryFolder.h"

namespace orlix::test {

// What write(file) puts into it.
template <class F>
std::vector<std::byte> FrameBytes(F&& write) {
  TemporaryFolder folder;
  HyperFile file;
  file.Open(kFrameFileIdent, folder / "f", HyperFile::Mode::Write);
  write(file);
  EXPECT_TRUE(file.Close().ok());
  const std::string text = ReadText(folder / "f");
  const auto* data = reinterpret_cast<const std::byte*>(text.data());
  return {data, data + text.size()};
}

}  // namespace orlix::test
