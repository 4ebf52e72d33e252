// RealFlow's particles, little-endian. A header of 320 bytes, 36 more from version 7 on, with the count at 276; then
// particles of fixed fields, of which older versions lack some; at the end six bytes.

#include "exchange/points/FormatList.h"
#include "exchange/points/PointBytes.h"

namespace orlix {

namespace {

constexpr std::int32_t kBinMagic = 0xFABADA;
constexpr std::size_t kBinHead = 320, kBinCount = 276, kBinNewHead = 36, kBinEnd = 6;
constexpr std::int16_t kBinWritten = 11;

struct BinField {
  const char* name;
  int components;
  NumberType number;
  int since, until;  // versions
};
constexpr int kLastVersion = 32767;
constexpr BinField kBinFields[] = {{"position", 3, NumberType::Float32, 0, kLastVersion},
                                   {"velocity", 3, NumberType::Float32, 0, kLastVersion},
                                   {"force", 3, NumberType::Float32, 0, kLastVersion},
                                   {"vorticity", 3, NumberType::Float32, 9, kLastVersion},
                                   {"normal", 3, NumberType::Float32, 3, kLastVersion},
                                   {"neighbors", 1, NumberType::Int32, 4, kLastVersion},
                                   {"texture", 3, NumberType::Float32, 5, kLastVersion},
                                   {"infoBits", 1, NumberType::Int16, 5, kLastVersion},
                                   {"age", 1, NumberType::Float32, 0, kLastVersion},
                                   {"isolationTime", 1, NumberType::Float32, 0, kLastVersion},
                                   {"viscosity", 1, NumberType::Float32, 0, kLastVersion},
                                   {"density", 1, NumberType::Float32, 0, kLastVersion},
                                   {"pressure", 1, NumberType::Float32, 0, kLastVersion},
                                   {"mass", 1, NumberType::Float32, 0, kLastVersion},
                                   {"temperature", 1, NumberType::Float32, 0, kLastVersion},
                                   {"id", 1, NumberType::Int32, 0, 11},
                                   {"id", 1, NumberType::Int64, 12, kLastVersion}};

std::size_t BytesOf(const BinField& field) { return static_cast<std::size_t>(field.components) * SizeOf(field.number); }
bool IsIn(const BinField& field, int version) { return version >= field.since && version <= field.until; }

}  // namespace

Result<PointSet> ReadBin(const PointContent& content) {
  ByteCursor in(content, false);
  if (in.Get<std::int32_t>() != kBinMagic) return in.Fail("no RealFlow file of particles");
  in.Take(250);
  const auto version = in.Get<std::int16_t>();
  in.Take(kBinCount - 256);
  const auto count = in.Get<std::int32_t>();
  in.Take(kBinHead - kBinCount - 4 + (version >= 7 ? kBinNewHead : 0));
  if (in.ok() && version < 1) return in.Fail(fmt::format("version {}, must be 1 or later", version));
  PointSet set;
  std::vector<ReadField> fields;
  std::size_t record = 0;
  for (const BinField& field : kBinFields) {
    if (!IsIn(field, version)) continue;
    const PointType type = !IsReal(field.number)   ? PointType::Int
                           : field.components == 3 ? PointType::Vector
                                                   : PointType::Float;
    fields.push_back({&set.Declare(field.name, type, field.components, field.number), record, {field.number, false}});
    record += BytesOf(field);
  }
  if (Status fits = in.TestCount(count, record); !fits) return fits.error();
  set.count = static_cast<std::uint64_t>(count);
  if (content.headersOnly) return set;
  for (PointAttribute& column : set.attributes) column.values.resize(set.count * column.RowBytes());
  const std::string_view bytes = in.Take(set.count * record);
  if (Status read = ReadRecords(bytes.data(), record, set.count, fields, content.name); !read) return read.error();
  return set;
}

Status WriteBin(const PointSet& set, const PointSink& sink) {
  if (const auto position = PositionsOf(set); !position) return position.error();
  if (Status fits = TestInt32Count(set); !fits) return fits;
  ByteBuffer head(false);
  head.Put(kBinMagic);
  head.Text("particles", 250);
  head.Put(kBinWritten);
  head.Put(1.0f);              // scale
  head.Put(std::int32_t(8));   // a kind of fluid: from elsewhere
  head.Put(0.0f);              // time
  head.Put(std::int32_t(0));   // frame
  head.Put(std::int32_t(24));  // frames a second
  head.Put(static_cast<std::int32_t>(set.count));
  head.Text("", kBinHead - kBinCount - 4 + kBinNewHead - 12);
  for (int axis = 0; axis < 3; ++axis) head.Put(1.0f);  // the emitter's scale
  head.WriteTo(sink.out);
  std::vector<WriteField> fields;
  std::size_t record = 0;
  for (const BinField& field : kBinFields) {
    if (!IsIn(field, kBinWritten)) continue;
    const PointAttribute* column = set.Find(field.name);
    if (column && column->components == field.components) fields.push_back({column, record, {field.number, false}});
    record += BytesOf(field);
  }
  if (Status written = WriteRecords(set.count, fields, std::string(record, '\0'), sink.out); !written) return written;
  sink.out.write("\0\0\0\0\0\0", kBinEnd);
  return {};
}

}  // namespace orlix
