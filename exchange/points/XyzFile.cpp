// Points as bare lines of numbers. XYZ: a place, and numbers of unknown meaning behind it. PTS: a count on the first
// line, a place, an intensity, and a colour of bytes.

#include "exchange/points/FormatList.h"
#include "exchange/points/PointBytes.h"

namespace orlix {

namespace {

int NumbersIn(std::string_view line) {
  TextCursor text(line);
  int count = 0;
  for (text.SkipBlanks(); !text.Word().empty(); text.SkipBlanks()) ++count;
  return count;
}

// Lines of as many numbers as the first one has; its count is checked against `names`, which are in order.
Result<PointSet> ReadLines(TextCursor text, const PointContent& content) {
  text.SkipBlanksAndLines();
  TextCursor first = text;
  const int numbers = NumbersIn(first.Line());
  PointSet flat;
  flat.encoding = "text";
  for (TextCursor rest = text; rest.SkipBlanksAndLines(), !rest.AtEnd(); rest.SkipLine()) ++flat.count;
  if (flat.count > 0 && (numbers < 3 || static_cast<std::uint64_t>(numbers) > 2 * content.bytes.size() / flat.count)) {
    return Error{ErrorKind::InputFile, fmt::format("{}: its first line isn't a place of three numbers", content.name)};
  }
  for (int c = 0; c < numbers; ++c) {
    flat.Declare(fmt::format("number {}", c + 1), PointType::Float, 1, NumberType::Float32);
  }
  if (content.headersOnly) return flat;
  for (PointAttribute& column : flat.attributes) column.values.resize(flat.count * column.RowBytes());
  for (std::uint64_t row = 0; row < flat.count; ++row) {
    if (Status read = ReadRow(text, row, content.name, flat); !read) return read.error();
  }
  return flat;
}

// Columns [first, first + components) as one; factor turns bytes into fractions.
void Gather(const PointSet& flat, std::size_t first, int components, const char* name, double factor, PointSet& set) {
  PointAttribute& column =
      set.Declare(name, components == 3 ? PointType::Vector : PointType::Float, components, NumberType::Float32);
  if (!flat.HasValues()) return;
  column.values.resize(set.count * column.RowBytes());
  for (int c = 0; c < components; ++c) {
    const PointAttribute& from = flat.attributes[first + static_cast<std::size_t>(c)];
    for (std::uint64_t row = 0; row < set.count; ++row) column.SetReal(row, c, from.Real(row, 0) * factor);
  }
}

constexpr double kByte = 1.0 / 255;

}  // namespace

Result<PointSet> ReadXyz(const PointContent& content) {
  const Result<PointSet> flat = ReadLines(TextCursor(content.bytes), content);
  if (!flat) return flat;
  PointSet set;
  set.count = flat->count, set.encoding = "text";
  const auto numbers = static_cast<int>(flat->attributes.size());
  if (numbers == 0) return set.Declare("position", PointType::Vector, 3, NumberType::Float32), set;
  Gather(*flat, 0, 3, "position", 1, set);
  if (numbers > 3) Gather(*flat, 3, numbers - 3, "values", 1, set);
  return set;
}

Result<PointSet> ReadPts(const PointContent& content) {
  TextCursor text(content.bytes);
  text.SkipBlanksAndLines();
  TextCursor head = text;
  if (NumbersIn(head.Line()) == 1) text.SkipLine();  // the count; the lines themselves tell it
  const Result<PointSet> flat = ReadLines(text, content);
  if (!flat) return flat;
  PointSet set;
  set.count = flat->count, set.encoding = "text";
  const std::size_t numbers = flat->attributes.size();
  if (numbers == 0) return set.Declare("position", PointType::Vector, 3, NumberType::Float32), set;
  if (numbers != 3 && numbers != 4 && numbers != 6 && numbers != 7) {
    return Error{ErrorKind::InputFile,
                 fmt::format("{}: its lines have {} numbers, must be 3, 4, 6 or 7", content.name, numbers)};
  }
  Gather(*flat, 0, 3, "position", 1, set);
  if (numbers % 3 == 1) Gather(*flat, 3, 1, "intensity", 1, set);
  if (numbers >= 6) Gather(*flat, numbers - 3, 3, "pointColor", kByte, set);
  return set;
}

Status WriteXyz(const PointSet& set, const PointSink& sink) {
  const Result<const PointAttribute*> position = PositionsOf(set);
  if (!position) return position.error();
  std::string text;
  for (std::uint64_t row = 0; row < set.count; ++row) {
    AppendValues(**position, row, " ", text);
    text += '\n';
    FlushText(text, sink.out);
  }
  FlushText(text, sink.out, 0);
  return {};
}

}  // namespace orlix
