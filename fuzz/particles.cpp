// The readers of particle files on any bytes: the first line is the name's ending, the rest the file. What is read can
// be written in the same format, where that has a writer, and read again.

#include <cstdlib>
#include <sstream>

#include "exchange/points/PointFormats.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace orlix;
  const std::string_view input{reinterpret_cast<const char*>(data), size};
  const std::size_t line = input.find('\n');
  if (line == std::string_view::npos) return 0;
  const PointFormat* format = FindPointFormat("a" + std::string(input.substr(0, line)));
  if (!format || !format->read) return 0;
  const std::string_view content = input.substr(line + 1);
  static_cast<void>(ParsePoints(content, *format, "header", true));
  const Result<PointSet> set = ParsePoints(content, *format, "fuzz");
  if (!set) return 0;
  if (!set->HasValues()) std::abort();
  std::ostringstream out;
  if (!format->write || !format->write(*set, {out})) return 0;
  const std::string again = out.str();
  const Result<PointSet> second = ParsePoints(again, *format, "again");
  if (!second || second->count != set->count || !second->HasValues()) std::abort();
  return 0;
}
