// The ASCII point clouds of the Point Cloud Library: lines of keywords, then a line a point.

#include <map>

#include "exchange/points/FlatColumns.h"
#include "exchange/points/FormatList.h"
#include "exchange/points/PointBytes.h"

namespace orlix {

namespace {

using Words = std::vector<std::string_view>;

Words WordsOf(std::string_view line) {
  Words words;
  TextCursor text(line);
  for (text.SkipBlanks();; text.SkipBlanks()) {
    const std::string_view word = text.Word();
    if (word.empty()) return words;
    words.push_back(word);
  }
}

Error PcdError(const PointContent& content, const TextCursor& text, std::string_view what) {
  return {ErrorKind::InputFile, fmt::format("{}:{}: {}", content.name, text.LineOf(text.Place()), what)};
}

std::optional<NumberType> PcdNumber(std::string_view type, std::string_view size) {
  if (type == "F") return size == "8" ? NumberType::Float64 : NumberType::Float32;
  const bool sign = type == "I";
  if (!sign && type != "U") return {};
  if (size == "1") return sign ? NumberType::Int8 : NumberType::UInt8;
  if (size == "2") return sign ? NumberType::Int16 : NumberType::UInt16;
  if (size == "4") return sign ? NumberType::Int32 : NumberType::UInt32;
  return {};
}

// A colour is packed into the bits of one number.
void UnpackColour(PointSet& set, const PointAttribute& packed) {
  const bool values = !packed.values.empty() || set.count == 0;
  PointAttribute& colour = set.Declare("pointColor", PointType::Vector, 3, NumberType::Float32);
  if (!values) return;
  colour.values.resize(set.count * colour.RowBytes());
  for (std::uint64_t row = 0; row < set.count; ++row) {
    const std::uint32_t bits = packed.number == NumberType::Float32
                                   ? std::bit_cast<std::uint32_t>(packed.Data<float>()[row])
                                   : static_cast<std::uint32_t>(packed.Whole(row, 0));
    for (int c = 0; c < 3; ++c) colour.SetReal(row, c, (bits >> (16 - 8 * c) & 255) / 255.0);
  }
}

// A column for each field. A field of several numbers isn't one of a point.
Status DeclareFields(std::map<std::string_view, Words>& head, const PointContent& content, const TextCursor& text,
                     PointSet& flat) {
  const Words &fields = head["FIELDS"], &sizes = head["SIZE"], &types = head["TYPE"], &counts = head["COUNT"];
  if (fields.empty() || sizes.size() != fields.size() || types.size() != fields.size()) {
    return PcdError(content, text, "FIELDS, SIZE and TYPE must have a word for each field");
  }
  for (std::size_t f = 0; f < fields.size(); ++f) {
    const auto number = PcdNumber(types[f], sizes[f]);
    if (!number || !CanAdd(flat, fields[f]) || (f < counts.size() && counts[f] != "1")) {
      return PcdError(content, text,
                      fmt::format("field \"{}\" is of a type or count that isn't read", fields[f].substr(0, 40)));
    }
    flat.Declare(std::string(fields[f]), IsReal(*number) ? PointType::Float : PointType::Int, 1, *number);
  }
  return {};
}

}  // namespace

Result<PointSet> ReadPcd(const PointContent& content) {
  TextCursor text(content.bytes);
  std::map<std::string_view, Words> head;
  while (head.find("DATA") == head.end()) {
    text.SkipBlanksAndLines();
    if (text.AtEnd()) return PcdError(content, text, "the line DATA is missing");
    Words words = WordsOf(text.Line());
    const std::string_view key = words.front();
    words.erase(words.begin());
    if (!key.starts_with('#')) head[key] = std::move(words);
  }
  if (head["DATA"] != Words{"ascii"}) return PcdError(content, text, "only files with DATA ascii are read");
  PointSet flat;
  flat.encoding = "text";
  if (Status declared = DeclareFields(head, content, text, flat); !declared) return declared.error();
  std::int64_t count = -1;
  if (head["POINTS"].size() == 1) TextCursor(head["POINTS"][0]).Integer(count);
  if (count < 0 || count > static_cast<std::int64_t>((text.Remaining() + 1) / (2 * flat.attributes.size()))) {
    return PcdError(content, text, fmt::format("{} points are declared, which what follows can't hold", count));
  }
  flat.count = static_cast<std::uint64_t>(count);
  if (!content.headersOnly) {
    for (PointAttribute& column : flat.attributes) column.values.resize(flat.count * column.RowBytes());
    for (std::uint64_t row = 0; row < flat.count; ++row) {
      if (Status read = ReadRow(text, row, content.name, flat); !read) return read.error();
    }
  }
  PointSet set = MergeColumns(std::move(flat));
  const auto packed = std::find_if(set.attributes.begin(), set.attributes.end(),
                                   [](const PointAttribute& column) { return column.name == "rgb"; });
  if (packed != set.attributes.end() && packed->components == 1 && !set.Find("pointColor")) {
    UnpackColour(set, *packed);
    set.attributes.erase(packed);
  }
  return set;
}

Status WritePcd(const PointSet& set, const PointSink& sink) {
  if (const auto position = PositionsOf(set); !position) return position.error();
  std::string names, sizes, types, counts;
  const std::vector<FlatColumn> columns = FlatColumnsOf(set);
  for (const FlatColumn& column : columns) {
    const bool normal = column.attribute->name == "normal" && column.attribute->components == 3;
    names += normal ? fmt::format(" normal_{}", "xyz"[column.component]) : " " + column.name;
    const NumberType number = column.attribute->number;
    const bool real = IsReal(number) || SizeOf(number) == 8;
    sizes += fmt::format(" {}", SizeOf(number));
    types += real                                                                                          ? " F"
             : number == NumberType::UInt8 || number == NumberType::UInt16 || number == NumberType::UInt32 ? " U"
                                                                                                           : " I";
    counts += " 1";
  }
  std::string text = fmt::format(
      "# .PCD v.7 - Point Cloud Data file format\nVERSION .7\nFIELDS{}\nSIZE{}\nTYPE{}\nCOUNT{}\nWIDTH {}\nHEIGHT 1\n"
      "VIEWPOINT 0 0 0 1 0 0 0\nPOINTS {}\nDATA ascii\n",
      names, sizes, types, counts, set.count, set.count);
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
