// Particles as text: a line "# x y z vx vy vz id:int" with the names, and their types where they aren't float; then a
// line a particle. Numbers have the fewest digits that give them back.

#include "exchange/points/FlatColumns.h"
#include "exchange/points/FormatList.h"
#include "exchange/points/PointBytes.h"
#include "host/geometry/PlyHeader.h"

namespace orlix {

namespace {

std::optional<NumberType> NumberTypeOf(std::string_view word) {
  for (const NumberType type : {NumberType::Int64, NumberType::UInt64}) {
    if (word == NameOf(type)) return type;
  }
  const std::optional<PlyType> ply = PlyTypeOf(word);
  return ply ? std::optional(static_cast<NumberType>(*ply)) : std::nullopt;
}

Status ReadNames(TextCursor& text, const PointContent& content, PointSet& set) {
  TextCursor names(text.Line());
  names.SkipBlanks();
  std::string_view word = names.Word();
  if (word == "#") names.SkipBlanks(), word = names.Word();
  for (; !word.empty(); names.SkipBlanks(), word = names.Word()) {
    const std::size_t colon = word.rfind(':');
    const auto type = colon == std::string_view::npos ? NumberType::Float32 : NumberTypeOf(word.substr(colon + 1));
    if (!type || !CanAdd(set, word.substr(0, colon))) {
      return Status::Fail(ErrorKind::InputFile, fmt::format("{}:1: \"{}\" is no name of a value, or declared twice",
                                                            content.name, word.substr(0, 40)));
    }
    set.Declare(std::string(word.substr(0, colon)), IsReal(*type) ? PointType::Float : PointType::Int, 1, *type);
  }
  return {};
}

}  // namespace

Result<PointSet> ReadTextPoints(const PointContent& content) {
  TextCursor text(content.bytes);
  PointSet set;
  set.encoding = "text";
  if (Status read = ReadNames(text, content, set); !read) return read.error();
  for (TextCursor rest = text; rest.SkipBlanksAndLines(), !rest.AtEnd(); rest.SkipLine()) ++set.count;
  if (set.count > 0 && set.attributes.size() > 2 * content.bytes.size() / set.count) {
    return Error{ErrorKind::InputFile, fmt::format("{}:1: the lines have fewer numbers than names", content.name)};
  }
  if (!content.headersOnly) {
    for (PointAttribute& column : set.attributes) column.values.resize(set.count * column.RowBytes());
    for (std::uint64_t row = 0; row < set.count; ++row) {
      if (Status read = ReadRow(text, row, content.name, set); !read) return read.error();
    }
  }
  return MergeColumns(std::move(set));
}

Status WriteTextPoints(const PointSet& set, const PointSink& sink) {
  std::string text = "#";
  for (const FlatColumn& column : FlatColumnsOf(set)) {
    text += " " + column.name;
    const NumberType number = column.attribute->number;
    if (number != NumberType::Float32 || column.name.find(':') != std::string::npos) {
      text += std::string(":") + NameOf(number);
    }
  }
  text += "\n";
  for (std::uint64_t row = 0; row < set.count; ++row) {
    for (const PointAttribute& column : set.attributes) {
      if (&column != &set.attributes.front()) text += ' ';
      AppendValues(column, row, " ", text);
    }
    text += '\n';
    FlushText(text, sink.out);
  }
  FlushText(text, sink.out, 0);
  return {};
}

}  // namespace orlix
