// The reader of particle files on any bytes: what it takes can be written, and read again with the same numbers.

#include <cstdlib>
#include <sstream>

#include "exchange/particles/PointFile.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace orlix;
  const std::string_view content{reinterpret_cast<const char*>(data), size};
  const bool points = IsPointPly(content);
  PointReader reader(content, "fuzz");
  if (!reader.Open()) return 0;
  std::ostringstream out;
  std::vector<double> row, again;
  {
    PointWriter writer(PointFormat::Text, reader.columns(), reader.count(), out);
    for (std::uint64_t n = 0; n < reader.count(); ++n) {
      if (!reader.Read(row)) return 0;
      writer.Write(row.data());
    }
  }
  if (reader.format() == PointFormat::Ply && !points) std::abort();
  const std::string text = out.str();
  PointReader second(text, "again"), first(content, "fuzz");
  if (!second.Open() || !first.Open() || second.count() != first.count() || second.columns() != first.columns()) {
    std::abort();
  }
  for (std::uint64_t n = 0; n < first.count(); ++n) {
    if (!first.Read(row) || !second.Read(again) || row != again) std::abort();
  }
  return 0;
}
