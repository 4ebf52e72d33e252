// PLY (Turk 1994): an element "vertex" and no faces. Written as binary, little endian; read in all encodings. Comments
// tell units and the axis that points up.

#include <algorithm>

#include "exchange/points/FlatColumns.h"
#include "exchange/points/FormatList.h"
#include "exchange/points/PointBytes.h"
#include "host/geometry/PlyHeader.h"

namespace orlix {

namespace {

Error PlyError(const PointContent& content, std::string_view what) {
  return {ErrorKind::InputFile, fmt::format("{}:1: {}", content.name, what)};
}

Status ReadPlyBinary(TextCursor& text, const PlyHeader& header, const PointContent& content, PointSet& set) {
  std::vector<ReadField> fields;
  std::size_t record = 0;
  for (PointAttribute& column : set.attributes) {
    fields.push_back({&column, record, {column.number, header.format == PlyFormat::BigEndian}});
    record += SizeOf(column.number);
  }
  const char* begin = text.Place();
  text.Advance(set.count * record);
  return ReadRecords(begin, record, set.count, fields, content.name);
}

// The comments that WritePly leaves.
FileUnits UnitsOf(std::string_view header) {
  FileUnits units;
  constexpr std::string_view kMetres = "\ncomment metres_per_unit ";
  if (const std::size_t at = header.find(kMetres); at != std::string_view::npos) {
    TextCursor number(header.substr(at + kMetres.size()));
    if (!number.Number(units.metresPerUnit) || !(units.metresPerUnit > 0)) units.metresPerUnit = 0;
  }
  units.upZ = header.find("\ncomment up_axis z") != std::string_view::npos;
  return units;
}

}  // namespace

bool IsPointPly(std::string_view content) {
  TextCursor text(content);
  const Result<PlyHeader> header = PlyHeader::Read(text, "");
  return header && std::none_of(header->elements.begin(), header->elements.end(),
                                [](const PlyElement& element) { return element.name == "face" && element.count > 0; });
}

Result<PointSet> ReadPly(const PointContent& content) {
  TextCursor text(content.bytes);
  const Result<PlyHeader> header = PlyHeader::Read(text, content.name);
  if (!header) return header.error();
  if (header->elements.empty() || header->elements.front().name != "vertex") {
    return PlyError(content, "the first element must be \"vertex\"");
  }
  for (const PlyElement& other : header->elements) {
    if (&other != &header->elements.front() && other.count > 0) {
      return PlyError(content, fmt::format("it has elements \"{}\": no file of particles", other.name.substr(0, 40)));
    }
  }
  const PlyElement& vertex = header->elements.front();
  if (Status fits = header->TestCount(vertex, text, content.name); !fits) return fits.error();
  PointSet set;
  set.count = vertex.count;
  set.encoding = NameOf(header->format);
  for (const PlyProperty& property : vertex.properties) {
    if (property.countType) return PlyError(content, "a particle can't have a list");
    if (!CanAdd(set, property.name)) {
      return PlyError(
          content, fmt::format("the value \"{}\" is declared twice, or no usable name", property.name.substr(0, 40)));
    }
    const auto number = static_cast<NumberType>(property.type);
    set.Declare(std::string(property.name), IsReal(number) ? PointType::Float : PointType::Int, 1, number);
  }
  if (set.attributes.empty() && set.count > 0) return PlyError(content, "particles need the values x, y and z");
  if (!content.headersOnly) {
    for (PointAttribute& column : set.attributes) column.values.resize(set.count * column.RowBytes());
    Status read;
    if (header->format == PlyFormat::Ascii) {
      for (std::uint64_t row = 0; row < set.count && read; ++row) read = ReadRow(text, row, content.name, set);
      text.SkipBlanksAndLines();
    } else {
      read = ReadPlyBinary(text, *header, content, set);
    }
    if (!read) return read.error();
    if (!text.AtEnd()) return PlyError(content, "there is more after the last particle");
  }
  set.units = UnitsOf(content.bytes.substr(0, content.bytes.find("end_header")));
  return MergeColumns(std::move(set));
}

Status WritePly(const PointSet& set, const PointSink& sink) {
  if (const auto position = PositionsOf(set); !position) return position.error();
  std::string head = "ply\nformat binary_little_endian 1.0\n";
  if (set.units.metresPerUnit > 0) {
    head += fmt::format("comment metres_per_unit {}\ncomment up_axis {}\n", set.units.metresPerUnit,
                        set.units.upZ ? 'z' : 'y');
  }
  head += fmt::format("element vertex {}\n", set.count);
  std::vector<WriteField> fields;
  std::size_t record = 0;
  for (const PointAttribute& column : set.attributes) {
    // PLY has no whole numbers of 64 bits.
    const bool large = !IsReal(column.number) && SizeOf(column.number) == 8;
    fields.push_back({&column, record, {large ? NumberType::Float64 : column.number, false}});
    record += static_cast<std::size_t>(column.components) * SizeOf(fields.back().number.type);
  }
  for (const FlatColumn& flat : FlatColumnsOf(set)) {
    const NumberType number = flat.attribute->number;
    const bool large = !IsReal(number) && SizeOf(number) == 8;
    head += fmt::format("property {} {}\n", large ? "double" : NameOf(number), flat.name);
  }
  head += "end_header\n";
  sink.out.write(head.data(), static_cast<std::streamsize>(head.size()));
  return WriteRecords(set.count, fields, std::string(record, '\0'), sink.out);
}

}  // namespace orlix
