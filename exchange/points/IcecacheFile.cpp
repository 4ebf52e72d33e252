// Softimage's ICE caches, all numbers of 32 bits and little-endian:
//
//   "ICECACHE"  version 103  (4)  particles  (20)  attributes
//   attribute   length of its name, the name up to a multiple of 4, data type, structure (2: a single value), context,
//               category, (4), and for data type 0x800 a size and so many bytes
//   values      attribute after attribute. All but PointPosition have a flag before each 4000 particles: set, the value
//               before it stands for them; with structure 2, one value follows for all
//
// Where the structure is 2 and the flag is clear the file has no number for the first particle, which is 0.

#include "exchange/points/FormatList.h"
#include "exchange/points/PointBytes.h"

namespace orlix {

namespace {

constexpr std::int32_t kIceVersion = 103, kSingle = 2, kPerPoint = 1, kContext = 2, kPlainCategory = 1;
constexpr std::uint64_t kIceChunk = 4000;
constexpr std::size_t kMostIceRatio = 256;  // bytes of memory a byte of a file, as constants take next to none
constexpr PointName kIceNames[] = {{"position", "PointPosition"}};

struct IceType {
  std::int32_t code;
  PointType type;
  int components;
};
constexpr IceType kIceTypes[] = {
    {0x2, PointType::Int, 1},      {0x4, PointType::Float, 1},
    {0x10, PointType::Vector, 3},  {0x200, PointType::Float, 4},
    {0x4000, PointType::Float, 4}, {0x800, PointType::Float, 0}};  // nothing that a particle could carry

struct IceAttribute {
  PointAttribute* column;  // null for one without values
  int components;
  std::int32_t structure;
};

Result<IceAttribute> ReadIceAttribute(ByteCursor& in, PointSet& set) {
  const auto length = in.Get<std::uint32_t>();
  const std::string name = OurName(kIceNames, in.Take(length));
  in.Take((4 - length % 4) % 4);
  const auto code = in.Get<std::int32_t>(), structure = in.Get<std::int32_t>();
  in.Take(3 * 4);
  if (code == 0x800) in.Take(in.Get<std::uint32_t>());
  if (!in.ok()) return in.Fail("");
  const auto type =
      std::find_if(std::begin(kIceTypes), std::end(kIceTypes), [&](const IceType& each) { return each.code == code; });
  if (type == std::end(kIceTypes)) return in.Fail(fmt::format("\"{}\" is of the unknown type {:#x}", name, code));
  if (type->components == 0) return IceAttribute{nullptr, 0, structure};
  if (!CanAdd(set, name)) return in.Fail("an attribute has no usable name");
  PointAttribute& column = set.Declare(name, type->type, type->components,
                                       type->type == PointType::Int ? NumberType::Int32 : NumberType::Float32);
  return IceAttribute{&column, type->components, structure};
}

Status ReadIceValues(ByteCursor& in, const IceAttribute& attribute, PointSet& set) {
  PointAttribute* column = attribute.column;
  const bool position = column && column->name == "position";
  if (column) column->values.resize(set.count * column->RowBytes());
  std::uint32_t flag = 0, words[4] = {};
  bool rest = false;  // the value at hand stands for all that follow
  for (std::uint64_t row = 0; row < set.count && in.ok(); ++row) {
    if (!position && row % kIceChunk == 0 && !rest) {
      flag = in.Get<std::uint32_t>();
      if (flag != 0 && attribute.structure == kSingle) {
        for (int c = 0; c < attribute.components; ++c) words[c] = in.Get<std::uint32_t>();
        rest = true;
      }
    }
    const bool read = !rest && (row == 0 ? attribute.structure != kSingle : flag == 0);
    for (int c = 0; c < attribute.components; ++c) {
      if (read) words[c] = in.Get<std::uint32_t>();
      std::memcpy(column->values.data() + row * column->RowBytes() + 4 * static_cast<std::size_t>(c), &words[c], 4);
      if (IsReal(column->number) && (words[c] & 0x7f800000u) == 0x7f800000u) {
        return in.Fail(fmt::format("{} of particle {} is no finite number", column->name, row));
      }
    }
  }
  return in.ok() ? Status() : Status(in.Fail(""));
}

}  // namespace

Result<PointSet> ReadIcecache(const PointContent& content) {
  ByteCursor in(content, false);
  if (!content.bytes.starts_with('I')) return in.Fail("Not an icecache file.");
  in.Take(8);
  if (in.Get<std::int32_t>() != kIceVersion) return in.Fail("ICECACHE must be version 103");
  in.Take(4);
  const auto count = in.Get<std::uint32_t>();
  in.Take(5 * 4);
  const auto attributes = in.Get<std::uint32_t>();
  PointSet set;
  std::vector<IceAttribute> list;
  std::size_t rowBytes = 0;
  for (std::uint32_t n = 0; n < attributes; ++n) {
    const Result<IceAttribute> attribute = ReadIceAttribute(in, set);
    if (!attribute) return attribute.error();
    list.push_back(*attribute);
    rowBytes += 4 * static_cast<std::size_t>(attribute->components);
  }
  const PointAttribute* position = set.Find("position");
  if (!position || position->components != 3) return in.Fail("it has no PointPosition of three numbers");
  // Positions are never constant: each takes its bytes, but for the first.
  if (Status fits = in.TestCount(count > 0 ? std::int64_t(count) - 1 : 0, 12); !fits) return fits.error();
  if (count * std::uint64_t(rowBytes) > kMostIceRatio * content.bytes.size()) {
    return in.Fail("its constants stand for more values than a file of this size has");
  }
  set.count = count;
  if (content.headersOnly) return set;
  for (const IceAttribute& attribute : list) {
    if (Status read = ReadIceValues(in, attribute, set); !read) return read.error();
  }
  return set;
}

Status WriteIcecache(const PointSet& set, const PointSink& sink) {
  if (const auto position = PositionsOf(set); !position) return position.error();
  if (Status fits = TestInt32Count(set); !fits) return fits;
  const SimpleColumns columns(set);
  ByteBuffer head(false);
  head.Text("ICECACHE");
  for (const std::int32_t n : {kIceVersion, 0, static_cast<std::int32_t>(set.count), 0, 0, 0, 0, 0}) head.Put(n);
  head.Put(static_cast<std::int32_t>(columns.all.size()));
  for (const PointAttribute* column : columns.all) {
    const std::string name = TheirName(kIceNames, column->name);
    head.Put(static_cast<std::uint32_t>(name.size()));
    head.Text(name, (name.size() + 3) / 4 * 4);
    const std::int32_t code = column->components == 3 ? 0x10 : IsReal(column->number) ? 0x4 : 0x2;
    for (const std::int32_t n : {code, kPerPoint, kContext, kPlainCategory, 0}) head.Put(n);
  }
  head.WriteTo(sink.out);
  for (const PointAttribute* column : columns.all) {
    // A clear flag before each chunk, but for positions.
    for (std::uint64_t row = 0; row < set.count; row += kIceChunk) {
      if (column->name != "position") sink.out.write("\0\0\0\0", 4);
      const std::uint64_t rows = std::min(kIceChunk, set.count - row);
      const NumberType number = column->components == 3 ? NumberType::Float32 : Narrow(*column);
      std::string bytes(rows * 4 * static_cast<std::size_t>(column->components), '\0');
      if (!EncodeRows(*column, row, rows, {number, false}, bytes.data(), bytes.size() / rows)) {
        return Status::Fail(ErrorKind::Output,
                            fmt::format("{} has a value that isn't a finite {}", column->name, NameOf(number)));
      }
      sink.out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    }
  }
  return {};
}

}  // namespace orlix
