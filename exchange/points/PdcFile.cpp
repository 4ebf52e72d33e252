// Maya's particles as binary, big-endian: a column after the other.
//
//   "PDC " i32 1 (version) 1 (byte order) 0 0  i32 particles  i32 attributes
//   attribute   i32 length, name, i32 type: 0 int, 1 ints, 2 double, 3 doubles, 4 vector, 5 vectors of doubles; then
//   its
//               values, one for all particles where the type is even

#include "exchange/points/FormatList.h"
#include "exchange/points/MayaNames.h"

namespace orlix {

namespace {

constexpr std::int32_t kManyReals = 3, kManyVectors = 5;

Status ReadPdcAttribute(ByteCursor& in, const PointContent& content, PointSet& set) {
  const std::int32_t length = in.Get<std::int32_t>();
  const std::string name = OurName(kMayaNames, in.Take(static_cast<std::uint32_t>(length)));
  const std::int32_t type = in.Get<std::int32_t>();
  if (!in.ok()) return in.Fail("");
  if (!CanAdd(set, name) || type < 0 || type > kManyVectors) {
    return in.Fail(fmt::format("attribute \"{}\" has no usable name or type", name.substr(0, 40)));
  }
  const bool many = type % 2 == 1, whole = type<2, vector = type> 3;
  // Ids are stored as reals.
  const NumberType number = whole || name == "id" ? NumberType::Int32 : NumberType::Float64;
  const FileNumber stored{whole ? NumberType::Int32 : NumberType::Float64, true};
  const std::size_t size = (vector ? 3 : 1) * SizeOf(stored.type);
  const std::string_view bytes = in.Take((many ? set.count : 1) * size);
  if (!in.ok()) return in.Fail("");
  if (!many) return {};  // of the object, not of its particles
  PointAttribute& column = set.Declare(name,
                                       whole || name == "id" ? PointType::Int
                                       : vector              ? PointType::Vector
                                                             : PointType::Float,
                                       vector ? 3 : 1, number);
  if (content.headersOnly) return {};
  column.values.resize(set.count * column.RowBytes());
  const ReadField field{&column, 0, stored};
  return ReadRecords(bytes.data(), size, set.count, {&field, 1}, content.name);
}

}  // namespace

Result<PointSet> ReadPdc(const PointContent& content) {
  ByteCursor in(content, true);
  if (in.Take(4) != "PDC ") return in.Fail("no PDC file");
  in.Take(4 * 4);
  const std::int32_t count = in.Get<std::int32_t>(), attributes = in.Get<std::int32_t>();
  // Each has a position, which is checked when it comes.
  if (Status fits = in.TestCount(count, 3 * SizeOf(NumberType::Float64)); !fits) return fits.error();
  PointSet set;
  set.count = static_cast<std::uint64_t>(count);
  for (std::int32_t n = 0; n < attributes; ++n) {
    if (Status read = ReadPdcAttribute(in, content, set); !read) return read.error();
  }
  return set;
}

Status WritePdc(const PointSet& set, const PointSink& sink) {
  if (const auto position = PositionsOf(set); !position) return position.error();
  if (Status fits = TestInt32Count(set); !fits) return fits;
  const SimpleColumns columns(set);
  ByteBuffer head(true);
  head.Text("PDC ");
  for (const std::int32_t n : {1, 1, 0, 0}) head.Put(n);
  head.Put(static_cast<std::int32_t>(set.count));
  head.Put(static_cast<std::int32_t>(columns.all.size()));
  head.WriteTo(sink.out);
  for (const PointAttribute* column : columns.all) {
    const std::string name = TheirName(kMayaNames, column->name);
    ByteBuffer entry(true);
    entry.Put(static_cast<std::int32_t>(name.size()));
    entry.Text(name);
    entry.Put(column->components == 3 ? kManyVectors : kManyReals);
    entry.WriteTo(sink.out);
    if (Status written = WriteColumn(set, *column, {NumberType::Float64, true}, sink.out); !written) return written;
  }
  return {};
}

}  // namespace orlix
