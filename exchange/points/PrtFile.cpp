// Krakatoa's particles: a header, a list of channels, and the particles as one zlib stream, little-endian.
//
//   C0 "PRT" 0D 0A 1A 0A  u32 56  "Extensible Particle Format" in 32 bytes  u32 version 1  i64 particles
//   i32 4  i32 channels  i32 44, then each channel: its name in 32 bytes, i32 type, i32 components, i32 offset
//
// A count of -1 is that of a file whose writer never came to its end.

#include <algorithm>

#include "exchange/points/Deflate.h"
#include "exchange/points/FormatList.h"
#include "exchange/points/PointBytes.h"

namespace orlix {

namespace {

constexpr char kMagic[] = "\xC0PRT\r\n\x1A\n";
constexpr char kSignature[] = "Extensible Particle Format";
constexpr std::uint32_t kHeadSize = 56, kChannelSize = 44;
constexpr std::size_t kChannelName = 32;
constexpr std::int64_t kMostDeflated = 1032;  // bytes that one packed byte can give
constexpr PointName kKrakatoaNames[] = {
    {"position", "Position"}, {"velocity", "Velocity"}, {"color", "Color"}, {"normal", "Normal"}, {"id", "ID"},
    {"density", "Density"},   {"radius", "Radius"},     {"age", "Age"},     {"mass", "Mass"}};
constexpr NumberType kChannelTypes[] = {NumberType::Int16,   NumberType::Int32,   NumberType::Int64,
                                        NumberType::Float16, NumberType::Float32, NumberType::Float64,
                                        NumberType::UInt16,  NumberType::UInt32,  NumberType::UInt64,
                                        NumberType::Int8,    NumberType::UInt8};

NumberType Stored(NumberType type) {
  return type == NumberType::Float16 ? NumberType::Float32 : type == NumberType::UInt64 ? NumberType::Int64 : type;
}

Status ReadChannel(ByteCursor& in, PointSet& set, std::vector<ReadField>& fields) {
  std::string_view text = in.Take(kChannelName);
  text = text.substr(0, text.find('\0'));
  const std::string name = OurName(kKrakatoaNames, text);
  const auto type = in.Get<std::uint32_t>(), components = in.Get<std::uint32_t>(), offset = in.Get<std::uint32_t>();
  if (!in.ok()) return in.Fail("");
  if (!CanAdd(set, name)) return in.Fail("a channel has no usable name");
  if (type >= std::size(kChannelTypes) || components < 1 || components > 64 || offset > 1 << 20) {
    return in.Fail(
        fmt::format("channel \"{}\" is of type {} with {} components at {}", name, type, components, offset));
  }
  const NumberType number = Stored(kChannelTypes[type]);
  static constexpr std::string_view kVectors[] = {"position", "velocity", "normal", "color"};
  const bool vector = components == 3 && IsReal(number) && std::count(std::begin(kVectors), std::end(kVectors), name);
  PointAttribute& column = set.Declare(name,
                                       !IsReal(number) ? PointType::Int
                                       : vector        ? PointType::Vector
                                                       : PointType::Float,
                                       static_cast<int>(components), number);
  fields.push_back({&column, offset, {kChannelTypes[type], false}});
  return {};
}

// In pieces, so that no more memory is taken than the stream fills.
Status ReadStream(ByteCursor& in, std::string_view name, std::size_t record, std::uint64_t count,
                  std::span<const ReadField> fields, PointSet& set) {
  constexpr std::uint64_t kRows = 8192;
  Unpacker unpacker(in.Take(in.Remaining()), Packing::Zlib);
  std::string block(record * kRows, '\0');
  while (set.count < count) {
    const std::uint64_t rows = std::min(kRows, count - set.count), first = set.count;
    if (unpacker.Read(block.data(), rows * record) != rows * record) {
      return Status::Fail(ErrorKind::InputFile,
                          fmt::format("{}: damaged: its {} particles end after {}", name, count, first));
    }
    set.count += rows;
    for (const ReadField& field : fields) {
      std::vector<std::byte>& values = field.to->values;
      const std::size_t size = set.count * field.to->RowBytes();
      if (values.capacity() < size) values.reserve(std::min<std::size_t>(2 * size, count * field.to->RowBytes()));
      values.resize(size);
    }
    if (Status read = ReadRecords(block.data(), record, rows, fields, name, first); !read) return read;
  }
  return {};
}

}  // namespace

Result<PointSet> ReadPrt(const PointContent& content) {
  ByteCursor in(content, false);
  if (in.Take(8) != std::string_view(kMagic, 8)) return in.Fail("no PRT file");
  const auto headSize = in.Get<std::uint32_t>();
  in.Take(32);
  const auto version = in.Get<std::uint32_t>();
  const auto count = in.Get<std::int64_t>();
  if (!in.ok() || headSize < kHeadSize || version < 1) return in.Fail("its header isn't one of PRT version 1");
  in.Take(headSize - kHeadSize);
  const auto reserved = in.Get<std::uint32_t>(), channels = in.Get<std::uint32_t>(), size = in.Get<std::uint32_t>();
  if (!in.ok() || reserved != 4 || size < kChannelSize)
    return in.Fail("its list of channels isn't one of PRT version 1");
  if (count < 0) return in.Fail("its count is open: the program that wrote it didn't come to its end");
  PointSet set;
  std::vector<ReadField> fields;
  std::size_t record = 0;
  for (std::uint32_t c = 0; c < channels; ++c) {
    if (Status read = ReadChannel(in, set, fields); !read) return read.error();
    in.Take(size - kChannelSize);
    const ReadField& field = fields.back();
    const auto bytes = static_cast<std::size_t>(field.to->components) * SizeOf(field.number.type);
    record = std::max(record, field.offset + bytes);
  }
  if (record == 0) return in.Fail("it has no channels");
  const auto rest = static_cast<std::int64_t>(in.Remaining());
  if (!in.ok() || count > rest * kMostDeflated / static_cast<std::int64_t>(record)) {
    return in.Fail(fmt::format("{} particles are declared, which the {} bytes that follow can't hold", count, rest));
  }
  if (content.headersOnly) {
    set.count = static_cast<std::uint64_t>(count);
  } else if (Status read = ReadStream(in, content.name, record, static_cast<std::uint64_t>(count), fields, set);
             !read) {
    return read.error();
  }
  return set;
}

Status WritePrt(const PointSet& set, const PointSink& sink) {
  if (const auto position = PositionsOf(set); !position) return position.error();
  ByteBuffer head(false);
  head.Text(kMagic, 8);
  head.Put(kHeadSize);
  head.Text(kSignature, 32);
  head.Put(std::uint32_t(1));
  head.Put(static_cast<std::int64_t>(set.count));
  head.Put(std::uint32_t(4));
  head.Put(static_cast<std::uint32_t>(set.attributes.size()));
  head.Put(kChannelSize);
  std::vector<WriteField> fields;
  std::size_t record = 0;
  for (const PointAttribute& column : set.attributes) {
    const std::string name = TheirName(kKrakatoaNames, column.name);
    if (name.size() >= kChannelName) {
      return Status::Fail(ErrorKind::Output, fmt::format("the name \"{}\" has more than 31 letters", name));
    }
    const auto type = std::find(std::begin(kChannelTypes), std::end(kChannelTypes), column.number);
    head.Text(name, kChannelName);
    head.Put(static_cast<std::uint32_t>(type - std::begin(kChannelTypes)));
    head.Put(static_cast<std::uint32_t>(column.components));
    head.Put(static_cast<std::uint32_t>(record));
    fields.push_back({&column, record, {column.number, false}});
    record += column.RowBytes();
  }
  head.WriteTo(sink.out);
  PackedBuffer buffer(sink.out, Packing::Zlib, sink.pool);
  std::ostream packed(&buffer);
  const Status written = WriteRecords(set.count, fields, std::string(record, '\0'), packed);
  buffer.Finish();
  return written;
}

}  // namespace orlix
