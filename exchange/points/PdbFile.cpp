// PDB particles, little-endian, in two forms: their structures hold pointers of 32 or of 64 bits, whose values mean
// nothing. A header of 60 or 64 bytes, then the channels:
//
//   header    i32 670  u16 byte order  (2)  f32 version  f32 time  u32 particles  u32 channels  32 unused  pointer
//   channel   6 bytes; then 36 or 56 bytes: pointer, i32 type (1 vector, 2 real, 3 long), size, ...; its name with a 0;
//             20 or 24 bytes: i32 type, bytes a particle, block size, blocks, pointer; then the values

#include "exchange/points/FormatList.h"
#include "exchange/points/PointBytes.h"

namespace orlix {

namespace {

constexpr std::int32_t kPdbMagic = 670, kPdbVector = 1, kPdbReal = 2, kPdbLong = 3;

struct PdbShape {
  std::size_t pointer, channel;  // bytes
};
constexpr PdbShape kPdb32{4, 36}, kPdb64{8, 56};

Status ReadPdbChannel(ByteCursor& in, const PdbShape& shape, const PointContent& content, PointSet& set) {
  in.Take(6 + shape.pointer);
  const auto type = in.Get<std::int32_t>();
  in.Take(shape.channel - shape.pointer - 4);
  const std::string_view rest = in.Take(in.Remaining());
  in.Return(rest.size());
  const std::size_t length = rest.find('\0');
  if (!in.ok() || length == std::string_view::npos) return in.Fail("a channel has no name");
  const std::string name(in.Take(length));
  in.Take(1 + 4);
  const auto size = in.Get<std::int32_t>();
  in.Take(8 + shape.pointer);
  if (type < kPdbVector || type > kPdbLong || size != (type == kPdbVector ? 12 : 4) || !CanAdd(set, name)) {
    return in.Fail(fmt::format("channel \"{}\" has no usable name or type", name.substr(0, 40)));
  }
  const std::string_view bytes = in.Take(set.count * static_cast<std::uint64_t>(size));
  if (!in.ok()) return in.Fail("");
  const NumberType number = type == kPdbLong ? NumberType::Int32 : NumberType::Float32;
  PointAttribute& column = set.Declare(name,
                                       type == kPdbVector ? PointType::Vector
                                       : type == kPdbLong ? PointType::Int
                                                          : PointType::Float,
                                       type == kPdbVector ? 3 : 1, number);
  if (content.headersOnly) return {};
  column.values.resize(set.count * column.RowBytes());
  const ReadField field{&column, 0, {number, false}};
  return ReadRecords(bytes.data(), static_cast<std::size_t>(size), set.count, {&field, 1}, content.name);
}

Result<PointSet> ReadPdb(const PointContent& content, const PdbShape& shape) {
  ByteCursor in(content, false);
  if (in.Get<std::int32_t>() != kPdbMagic) return in.Fail("no PDB file of particles");
  in.Take(12);
  const auto count = in.Get<std::uint32_t>(), channels = in.Get<std::uint32_t>();
  in.Take(32 + shape.pointer);
  if (Status fits = in.TestCount(count, 12); !fits) return fits.error();
  PointSet set;
  set.count = count;
  for (std::uint32_t c = 0; c < channels; ++c) {
    if (Status read = ReadPdbChannel(in, shape, content, set); !read) return read.error();
  }
  return set;
}

Status WritePdb(const PointSet& set, const PointSink& sink, const PdbShape& shape) {
  if (const auto position = PositionsOf(set); !position) return position.error();
  if (Status fits = TestInt32Count(set); !fits) return fits;
  const SimpleColumns columns(set);
  const auto count = static_cast<std::int32_t>(set.count);
  ByteBuffer head(false);
  head.Put(kPdbMagic);
  head.Put(std::int32_t(1));  // little-endian
  head.Put(1.0f), head.Put(0.0f);
  head.Put(count);
  head.Put(static_cast<std::int32_t>(columns.all.size()));
  head.Text("", 32 + shape.pointer);
  head.WriteTo(sink.out);
  for (const PointAttribute* column : columns.all) {
    const std::int32_t type = column->components == 3 ? kPdbVector : IsReal(column->number) ? kPdbReal : kPdbLong;
    const std::int32_t size = type == kPdbVector ? 12 : 4;
    ByteBuffer entry(false);
    entry.Put(kPdbMagic), entry.Put(std::uint16_t(1));
    entry.Text("", shape.pointer);
    for (const std::int32_t n : {type, size, 0, count}) entry.Put(n);
    entry.Text("", shape.channel - shape.pointer - 16);
    entry.Text(column->name, column->name.size() + 1);
    for (const std::int32_t n : {type, size, count, 1}) entry.Put(n);
    entry.Text("", shape.pointer);
    entry.WriteTo(sink.out);
    const NumberType number = type == kPdbLong ? NumberType::Int32 : NumberType::Float32;
    if (Status written = WriteColumn(set, *column, {number, false}, sink.out); !written) return written;
  }
  return {};
}

}  // namespace

// Nothing in a file says which form it has; only one of them gives names and sizes that fit.
Result<PointSet> ReadPdbAny(const PointContent& content) {
  Result<PointSet> set = ReadPdb(content, kPdb32);
  return set && set->Find("position") ? std::move(set) : ReadPdb(content, kPdb64);
}
Result<PointSet> ReadPdb32(const PointContent& content) { return ReadPdb(content, kPdb32); }
Result<PointSet> ReadPdb64(const PointContent& content) { return ReadPdb(content, kPdb64); }
Status WritePdb32(const PointSet& set, const PointSink& sink) { return WritePdb(set, sink, kPdb32); }
Status WritePdb64(const PointSet& set, const PointSink& sink) { return WritePdb(set, sink, kPdb64); }

}  // namespace orlix
