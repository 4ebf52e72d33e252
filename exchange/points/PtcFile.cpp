// RenderMan's point clouds, little-endian:
//
//   "pptc"  i32 version 0 to 2  f64 points  6 f32 box  [version 1 on: 4 f32] [2: 33 f32]  32 f32 matrices
//   3 f32 format  i32 variables  i32 floats of all of them  a line "type name" for each  [version 1 on: 2 f32]
//   point: 3 f32 position  u16 angle  u16 height of its normal  f32 radius  the floats

#include <cmath>
#include <numbers>

#include "exchange/points/FormatList.h"
#include "exchange/points/PointBytes.h"

namespace orlix {

namespace {

constexpr double kMostCode = 65535;
constexpr std::size_t kPtcNormal = 12, kPtcRadius = 16, kPtcFloats = 20;

int ComponentsOf(std::string_view type) {
  if (type == "float") return 1;
  if (type == "matrix") return 16;
  return type == "point" || type == "vector" || type == "normal" || type == "color" ? 3 : 0;
}

// A line of the list of variables.
std::string_view TakeLine(ByteCursor& in) {
  const std::string_view rest = in.Take(in.Remaining());
  const std::size_t end = rest.find('\n');
  if (end == std::string_view::npos) return {};
  in.Return(rest.size() - end - 1);
  return rest.substr(0, end);
}

void DecodeNormals(const char* bytes, std::size_t stride, PointAttribute& normal) {
  float* to = normal.Data<float>();
  for (std::size_t done = 0; done < normal.values.size(); done += normal.RowBytes(), bytes += stride, to += 3) {
    const auto code = [&](int at) {
      return (static_cast<unsigned char>(bytes[at]) | static_cast<unsigned char>(bytes[at + 1]) << 8) / kMostCode;
    };
    const double angle = 2 * std::numbers::pi * code(0), z = 2 * code(2) - 1, around = std::sqrt(1 - z * z);
    to[0] = static_cast<float>(around * std::cos(angle));
    to[1] = static_cast<float>(around * std::sin(angle));
    to[2] = static_cast<float>(z);
  }
}

// Angle and height as one column of two whole numbers.
PointAttribute EncodedNormals(const PointSet& set) {
  PointSet codes;
  codes.count = set.count;
  PointAttribute& column = codes.Add("normal", PointType::Int, 2, NumberType::UInt16);
  const PointAttribute* normal = set.Find("normal");
  for (std::uint64_t row = 0; normal && normal->components == 3 && row < set.count; ++row) {
    const double x = normal->Real(row, 0), y = normal->Real(row, 1), z = normal->Real(row, 2);
    const double length = std::sqrt(x * x + y * y + z * z);
    if (!(length > 0) || !std::isfinite(length)) continue;
    double angle = std::atan2(y, x) / (2 * std::numbers::pi);
    angle -= std::floor(angle);
    column.SetReal(row, 0, std::round(angle * kMostCode));
    column.SetReal(row, 1, std::round((z / length + 1) / 2 * kMostCode));
  }
  return std::move(column);
}

}  // namespace

Result<PointSet> ReadPtc(const PointContent& content) {
  ByteCursor in(content, false);
  if (in.Take(4) != "pptc") return in.Fail("no point cloud");
  const auto version = in.Get<std::int32_t>();
  if (version < 0 || version > 2) return in.Fail(fmt::format("version {}, must be 0, 1 or 2", version));
  const auto count = in.Get<double>();
  in.Take(4 * (6 + (version >= 1 ? 4 : 0) + (version >= 2 ? 33 : 0) + 32 + 3));
  const auto variables = in.Get<std::int32_t>(), floats = in.Get<std::int32_t>();
  PointSet set;
  std::vector<ReadField> fields{{&set.Declare("position", PointType::Vector, 3, NumberType::Float32), 0, {}},
                                {&set.Declare("radius", PointType::Float, 1, NumberType::Float32), kPtcRadius, {}}};
  std::size_t record = kPtcFloats;
  for (std::int32_t n = 0; n < variables && in.ok(); ++n) {
    const std::string_view line = TakeLine(in);
    const std::size_t blank = line.find(' ');
    const std::string name(blank == std::string_view::npos ? "" : line.substr(blank + 1));
    const int components = ComponentsOf(line.substr(0, blank));
    if (components == 0 || name == "normal" || !CanAdd(set, name)) {
      return in.Fail("a variable has no usable name or type");
    }
    PointAttribute& column =
        set.Declare(name, components == 3 ? PointType::Vector : PointType::Float, components, NumberType::Float32);
    fields.push_back({&column, record, {}});
    record += column.RowBytes();
  }
  if (record != kPtcFloats + 4 * static_cast<std::size_t>(std::max(0, floats))) {
    return in.Fail("its variables take another number of floats than it says");
  }
  if (version >= 1) in.Take(4 * 2);
  if (!(count >= 0 && count <= 1e15)) return in.Fail("its count is no number of points");
  if (Status fits = in.TestCount(static_cast<std::int64_t>(count), record); !fits) return fits.error();
  set.count = static_cast<std::uint64_t>(count);
  PointAttribute& normal = set.Declare("normal", PointType::Vector, 3, NumberType::Float32);
  if (content.headersOnly) return set;
  for (PointAttribute& column : set.attributes) column.values.resize(set.count * column.RowBytes());
  const std::string_view bytes = in.Take(set.count * record);
  if (Status read = ReadRecords(bytes.data(), record, set.count, fields, content.name); !read) return read.error();
  DecodeNormals(bytes.data() + kPtcNormal, record, normal);
  return set;
}

Status WritePtc(const PointSet& set, const PointSink& sink) {
  const Result<const PointAttribute*> position = PositionsOf(set);
  if (!position) return position.error();
  const SimpleColumns columns(set);
  const PointAttribute normals = EncodedNormals(set);
  std::vector<WriteField> fields{{*position, 0, {}}, {&normals, kPtcNormal, {NumberType::UInt16, false}}};
  std::string lines;
  std::size_t record = kPtcFloats;
  std::int32_t variables = 0;
  for (const PointAttribute* column : columns.all) {
    if (column == *position || column->name == "normal") continue;
    if (column->name == "radius" && column->components == 1) {
      fields.push_back({column, kPtcRadius, {}});
      continue;
    }
    ++variables;
    lines += (column->components == 1   ? "float "
              : column->name == "color" ? "color "
                                        : "vector ") +
             column->name + "\n";
    fields.push_back({column, record, {}});
    record += 4 * static_cast<std::size_t>(column->components);
  }
  ByteBuffer head(false);
  head.Text("pptc");
  head.Put(std::int32_t(0));
  head.Put(static_cast<double>(set.count));
  for (int side = 0; side < 2; ++side) {
    for (int axis = 0; axis < 3; ++axis) {
      double edge = set.count > 0 ? (*position)->Real(0, axis) : 0;
      for (std::uint64_t row = 0; row < set.count; ++row) {
        const double at = (*position)->Real(row, axis);
        edge = side == 0 ? std::min(edge, at) : std::max(edge, at);
      }
      head.Put(static_cast<float>(edge));
    }
  }
  for (int n = 0; n < 32; ++n) head.Put(n % 16 % 5 == 0 ? 1.0f : 0.0f);  // two identities
  for (const float n : {640.f, 480.f, 1.f}) head.Put(n);
  head.Put(variables);
  head.Put(static_cast<std::int32_t>((record - kPtcFloats) / 4));
  head.Text(lines);
  head.WriteTo(sink.out);
  return WriteRecords(set.count, fields, std::string(record, '\0'), sink.out);
}

}  // namespace orlix
