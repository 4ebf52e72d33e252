// Houdini's geometry before version 12, as text: the same in the same order as the binary form (BgeoFile.cpp), with
// words for the counts and the attributes of a point in parentheses behind its four coordinates.

#include "exchange/points/FormatList.h"
#include "exchange/points/HoudiniNames.h"

namespace orlix {

namespace {

// Parentheses are blanks; the words of texts are taken from the file itself.
class GeoReader {
 public:
  explicit GeoReader(const PointContent& content) : content_(content), text_(content.bytes), cursor_(text_) {
    for (char& c : text_) c = c == '(' || c == ')' ? ' ' : c;
    cursor_ = TextCursor(text_);
  }

  Result<PointSet> Read();

 private:
  std::string_view Word() {
    cursor_.SkipBlanksAndLines();
    return cursor_.Word();
  }
  Error Fail(std::string_view what) const {
    return {ErrorKind::InputFile, fmt::format("{}:{}: {}", content_.name, cursor_.LineOf(cursor_.Place()), what)};
  }
  // "NPoints 12": the number behind the word, which must come next.
  bool Count(std::string_view word, std::int64_t& value) {
    if (Word() != word) return false;
    cursor_.SkipBlanks();
    return cursor_.Integer(value) && value >= 0;
  }
  Status ReadAttribute();
  Status ReadTexts(PointAttribute& column);
  Status ReadPoint(std::uint64_t row);

  const PointContent& content_;
  std::string text_;
  TextCursor cursor_;
  PointSet set_;
};

Status GeoReader::ReadTexts(PointAttribute& column) {
  std::int64_t words = 0;
  cursor_.SkipBlanksAndLines();
  if (!cursor_.Integer(words)) return Fail("the number of words is missing");
  for (std::int64_t n = 0; n < words; ++n) {
    cursor_.SkipBlanksAndLines();
    const std::string_view rest = content_.bytes.substr(cursor_.Offset());
    const std::size_t end = rest.starts_with('"') ? rest.find('"', 1) : std::string_view::npos;
    if (end == std::string_view::npos) return Fail("a word in quotes is missing");
    column.words.emplace_back(rest.substr(1, end - 1));
    cursor_.Advance(end + 1);
  }
  return {};
}

Status GeoReader::ReadAttribute() {
  const std::string name = OurName(kHoudiniNames, Word());
  std::int64_t size = 0;
  cursor_.SkipBlanks();
  if (!cursor_.Integer(size) || size < 1 || size > 64) return Fail(fmt::format("attribute \"{}\" has no size", name));
  const std::string_view type = Word();
  if (!CanAdd(set_, name)) return Fail("an attribute has no usable name");
  const bool text = type == "index", whole = text || type == "int", vector = type == "vector";
  if (!whole && !vector && type != "float") return Fail(fmt::format("attribute \"{}\" is of an unknown type", name));
  PointAttribute& column = set_.Declare(name,
                                        text                  ? PointType::Text
                                        : whole               ? PointType::Int
                                        : vector && size == 3 ? PointType::Vector
                                                              : PointType::Float,
                                        static_cast<int>(size), whole ? NumberType::Int32 : NumberType::Float32);
  if (text) return ReadTexts(column);
  for (std::int64_t n = 0; n < size; ++n) {
    double ignored = 0;
    cursor_.SkipBlanksAndLines();
    if (!cursor_.Number(ignored)) return Fail("a default is missing");
  }
  return {};
}

Status GeoReader::ReadPoint(std::uint64_t row) {
  for (PointAttribute& column : set_.attributes) {
    const bool position = &column == &set_.attributes.front();
    for (int c = 0; c < column.components + (position ? 1 : 0); ++c) {
      double value = 0;
      cursor_.SkipBlanksAndLines();
      if (!cursor_.Number(value)) return Fail("a number is missing");
      if (c < column.components && !column.SetReal(row, c, value)) {
        return Fail(fmt::format("{} is {}, no finite number of its type", column.name, value));
      }
    }
  }
  return {};
}

Result<PointSet> GeoReader::Read() {
  if (Word() != "PGEOMETRY" || Word() != "V5") return Fail("no Houdini geometry of version 5");
  std::int64_t points = 0, attributes = 0, ignored = 0;
  if (!Count("NPoints", points) || !Count("NPrims", ignored) || !Count("NPointGroups", ignored) ||
      !Count("NPrimGroups", ignored) || !Count("NPointAttrib", attributes) || !Count("NVertexAttrib", ignored) ||
      !Count("NPrimAttrib", ignored) || !Count("NAttrib", ignored)) {
    return Fail("its counts are not those of Houdini geometry");
  }
  set_.encoding = "text";
  set_.Declare("position", PointType::Vector, 3, NumberType::Float32);
  if (attributes > 0 && Word() != "PointAttrib") return Fail("the list of attributes is missing");
  std::size_t numbers = 4;
  for (std::int64_t n = 0; n < attributes; ++n) {
    if (Status read = ReadAttribute(); !read) return read.error();
    numbers += static_cast<std::size_t>(set_.attributes.back().components);
  }
  if (points > static_cast<std::int64_t>(cursor_.Remaining() / (2 * numbers))) {
    return Fail(fmt::format("{} points are declared, which what follows can't hold", points));
  }
  set_.count = static_cast<std::uint64_t>(points);
  if (content_.headersOnly) return std::move(set_);
  for (PointAttribute& column : set_.attributes) column.values.resize(set_.count * column.RowBytes());
  for (std::uint64_t row = 0; row < set_.count; ++row) {
    if (Status read = ReadPoint(row); !read) return read.error();
  }
  return std::move(set_);
}

void DeclareAttribute(const PointAttribute& column, std::string& text) {
  const auto end = std::back_inserter(text);
  const char* type = column.type == PointType::Text     ? "index"
                     : column.type == PointType::Vector ? "vector"
                     : IsReal(column.number)            ? "float"
                                                        : "int";
  fmt::format_to(end, "{} {} {}", TheirName(kHoudiniNames, column.name), column.components, type);
  if (column.type == PointType::Text) {
    fmt::format_to(end, " {}", column.words.size());
    for (const std::string& word : column.words) fmt::format_to(end, " \"{}\"", word);
  } else {
    for (int c = 0; c < column.components; ++c) text += " 0";
  }
  text += '\n';
}

}  // namespace

Result<PointSet> ReadGeo(const PointContent& content) { return GeoReader(content).Read(); }

Status WriteGeo(const PointSet& set, const PointSink& sink) {
  const Result<const PointAttribute*> position = PositionsOf(set);
  if (!position) return position.error();
  const std::size_t attributes = set.attributes.size() - 1;
  std::string text = fmt::format(
      "PGEOMETRY V5\nNPoints {} NPrims 0\nNPointGroups 0 NPrimGroups 0\n"
      "NPointAttrib {} NVertexAttrib 0 NPrimAttrib 0 NAttrib 0\n",
      set.count, attributes);
  if (attributes > 0) text += "PointAttrib\n";
  for (const PointAttribute& column : set.attributes) {
    if (&column != *position) DeclareAttribute(column, text);
  }
  for (std::uint64_t row = 0; row < set.count; ++row) {
    AppendValues(**position, row, " ", text);
    text += attributes > 0 ? " 1 (" : " 1";
    bool first = true;
    for (const PointAttribute& column : set.attributes) {
      if (&column == *position) continue;
      if (!first) text += '\t';
      AppendValues(column, row, " ", text);
      first = false;
    }
    text += attributes > 0 ? ")\n" : "\n";
    FlushText(text, sink.out);
  }
  text += "beginExtra\nendExtra\n";
  FlushText(text, sink.out, 0);
  return {};
}

}  // namespace orlix
