// Houdini's geometry before version 12, as binary: numbers are big-endian, a point has four coordinates and its
// attributes, all in words of 32 bits.
//
//   "Bgeo" 'V'  i32 version 5
//   8 i32       points, primitives, point groups, primitive groups; point, vertex, primitive, detail attributes
//   attribute   u16 length, name, u16 size, i32 type, then for each of size a word with its default
//               (type 4, text: i32 count, then each word with its u16 length)
//   point       f32 x y z w, then the attributes
//   end         00 FF
//
// Only points are written. Of a file with primitives the points are read.

#include "exchange/points/FormatList.h"
#include "exchange/points/HoudiniNames.h"

namespace orlix {

namespace {

constexpr std::int32_t kFloatType = 0, kIntType = 1, kTextType = 4, kVectorType = 5;
constexpr std::size_t kBgeoPoint = 16;
constexpr int kMostComponents = 64;

// The attribute's column; null, with an error in the cursor's place, for what no column can hold.
Result<PointAttribute*> ReadAttribute(ByteCursor& in, PointSet& set) {
  const std::string name = OurName(kHoudiniNames, in.Take(in.Get<std::uint16_t>()));
  const int size = in.Get<std::uint16_t>();
  const std::int32_t type = in.Get<std::int32_t>();
  if (!in.ok()) return in.Fail("");
  if (!CanAdd(set, name)) return in.Fail("an attribute has no usable name");
  const bool known = type == kFloatType || type == kIntType || type == kTextType || type == kVectorType;
  if (!known || size < 1 || size > kMostComponents) {
    return in.Fail(fmt::format("attribute \"{}\" is of type {} and size {}", name, type, size));
  }
  const bool whole = type == kIntType || type == kTextType;
  PointAttribute& column = set.Declare(name,
                                       type == kTextType                  ? PointType::Text
                                       : whole                            ? PointType::Int
                                       : type == kVectorType && size == 3 ? PointType::Vector
                                                                          : PointType::Float,
                                       size, whole ? NumberType::Int32 : NumberType::Float32);
  if (type != kTextType) {
    in.Take(std::uint64_t(4) * static_cast<std::uint64_t>(size));  // defaults
  } else {
    const std::int32_t words = in.Get<std::int32_t>();
    for (std::int32_t n = 0; n < words && in.ok(); ++n) column.words.emplace_back(in.Take(in.Get<std::uint16_t>()));
  }
  return &column;
}

}  // namespace

Result<PointSet> ReadBgeo(const PointContent& content) {
  ByteCursor in(content, true);
  const std::string_view magic = in.Take(5);
  if (magic.starts_with("\x7fNSJ")) {
    return in.Fail("the newer .bgeo of Houdini 12 and later; save it as .bhclassic, which is read");
  }
  if (magic != "BgeoV") return in.Fail("no Houdini geometry");
  if (const std::int32_t version = in.Get<std::int32_t>(); version != 5) {
    return in.Fail(fmt::format("version {}, must be 5", version));
  }
  const std::int32_t points = in.Get<std::int32_t>();
  in.Take(3 * 4);
  const std::int32_t attributes = in.Get<std::int32_t>();
  in.Take(3 * 4);
  PointSet set;
  std::vector<ReadField> fields{{&set.Declare("position", PointType::Vector, 3, NumberType::Float32), 0, {}}};
  std::size_t record = kBgeoPoint;
  for (std::int32_t n = 0; n < attributes && in.ok(); ++n) {
    const Result<PointAttribute*> column = ReadAttribute(in, set);
    if (!column) return column.error();
    fields.push_back({*column, record, {}});
    record += (*column)->RowBytes();
  }
  if (Status fits = in.TestCount(points, record); !fits) return fits.error();
  set.count = static_cast<std::uint64_t>(points);
  if (content.headersOnly) return set;
  for (ReadField& field : fields) {
    field.to->values.resize(set.count * field.to->RowBytes());
    field.number = {field.to->number, true};
  }
  const std::string_view bytes = in.Take(set.count * record);
  if (Status read = ReadRecords(bytes.data(), record, set.count, fields, content.name); !read) return read.error();
  return set;
}

Status WriteBgeo(const PointSet& set, const PointSink& sink) {
  const Result<const PointAttribute*> position = PositionsOf(set);
  if (!position) return position.error();
  if (Status fits = TestInt32Count(set); !fits) return fits;
  ByteBuffer head(true), point(true);
  head.Text("BgeoV");
  const auto points = static_cast<std::int32_t>(set.count), columns = static_cast<std::int32_t>(set.attributes.size());
  for (const std::int32_t n : {5, points, 0, 0, 0, columns - 1, 0, 0, 0}) head.Put(n);
  for (const float coordinate : {0.f, 0.f, 0.f, 1.f}) point.Put(coordinate);
  std::vector<WriteField> fields{{*position, 0, {NumberType::Float32, true}}};
  for (const PointAttribute& column : set.attributes) {
    if (&column == *position) continue;
    const std::string name = TheirName(kHoudiniNames, column.name);
    const auto size = static_cast<std::uint16_t>(column.components);
    head.Put(static_cast<std::uint16_t>(name.size()));
    head.Text(name);
    head.Put(size);
    head.Put(column.type == PointType::Text     ? kTextType
             : column.type == PointType::Vector ? kVectorType
             : IsReal(column.number)            ? kFloatType
                                                : kIntType);
    if (column.type == PointType::Text) {
      head.Put(static_cast<std::int32_t>(column.words.size()));
      for (const std::string& word : column.words) head.Put(static_cast<std::uint16_t>(word.size())), head.Text(word);
    } else {
      head.Text("", std::size_t(4) * size);
    }
    fields.push_back({&column, point.bytes().size(), {Narrow(column), true}});
    point.Text("", std::size_t(4) * size);
  }
  head.WriteTo(sink.out);
  if (Status written = WriteRecords(set.count, fields, point.bytes(), sink.out); !written) return written;
  sink.out.write("\0\xff", 2);
  return {};
}

}  // namespace orlix
