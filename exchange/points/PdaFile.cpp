// Maya's particles as text: the names of the attributes, their types (vector, real, integer), a count, and a line a
// particle.

#include "exchange/points/FormatList.h"
#include "exchange/points/MayaNames.h"

namespace orlix {

namespace {

Error PdaError(const PointContent& content, const TextCursor& text, std::string_view what) {
  return {ErrorKind::InputFile, fmt::format("{}:{}: {}", content.name, text.LineOf(text.Place()), what)};
}

std::string_view NextPdaWord(TextCursor& text) {
  text.SkipBlanksAndLines();
  return text.Word();
}

}  // namespace

Result<PointSet> ReadPda(const PointContent& content) {
  TextCursor text(content.bytes);
  if (NextPdaWord(text) != "ATTRIBUTES")
    return PdaError(content, text, "no PDA file: it doesn't begin with ATTRIBUTES");
  std::vector<std::string> names;
  std::string_view word = NextPdaWord(text);
  for (; word != "TYPES" && !word.empty(); word = NextPdaWord(text)) names.push_back(OurName(kMayaNames, word));
  if (word.empty()) return PdaError(content, text, "the list of types is missing");
  PointSet set;
  set.encoding = "text";
  std::size_t numbers = 0;
  for (const std::string& name : names) {
    const std::string_view type = NextPdaWord(text);
    if (!CanAdd(set, name) || (type != "V" && type != "R" && type != "I")) {
      return PdaError(content, text, fmt::format("\"{}\" has no usable name or type", name.substr(0, 40)));
    }
    const bool vector = type == "V", whole = type == "I";
    set.Declare(name,
                vector  ? PointType::Vector
                : whole ? PointType::Int
                        : PointType::Float,
                vector ? 3 : 1, whole ? NumberType::Int32 : NumberType::Float32);
    numbers += vector ? 3 : 1;
  }
  std::int64_t count = 0;
  const bool counted = NextPdaWord(text) == "NUMBER_OF_PARTICLES:";
  text.SkipBlanks();
  if (!counted || !text.Integer(count) || count < 0) return PdaError(content, text, "NUMBER_OF_PARTICLES is missing");
  if (NextPdaWord(text) != "BEGIN" || NextPdaWord(text) != "DATA")
    return PdaError(content, text, "BEGIN DATA is missing");
  if (numbers == 0 || count > static_cast<std::int64_t>((text.Remaining() + 1) / (2 * numbers))) {
    return PdaError(content, text, fmt::format("{} particles are declared, which what follows can't hold", count));
  }
  set.count = static_cast<std::uint64_t>(count);
  if (content.headersOnly) return set;
  for (PointAttribute& column : set.attributes) column.values.resize(set.count * column.RowBytes());
  for (std::uint64_t row = 0; row < set.count; ++row) {
    if (Status read = ReadRow(text, row, content.name, set); !read) return read.error();
  }
  return set;
}

Status WritePda(const PointSet& set, const PointSink& sink) {
  if (const auto position = PositionsOf(set); !position) return position.error();
  const SimpleColumns columns(set);
  std::string text = "ATTRIBUTES\n", types;
  for (const PointAttribute* column : columns.all) {
    text += TheirName(kMayaNames, column->name) + " ";
    types += column->components == 3 ? "V " : IsReal(column->number) ? "R " : "I ";
  }
  text += "\nTYPES\n" + types + fmt::format("\nNUMBER_OF_PARTICLES: {}\nBEGIN DATA\n", set.count);
  for (std::uint64_t row = 0; row < set.count; ++row) {
    for (const PointAttribute* column : columns.all) {
      AppendValues(*column, row, " ", text);
      text += ' ';
    }
    text += '\n';
    FlushText(text, sink.out);
  }
  FlushText(text, sink.out, 0);
  return {};
}

}  // namespace orlix
