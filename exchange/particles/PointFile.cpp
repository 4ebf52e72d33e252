#include "exchange/particles/PointFile.h"

#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <iterator>

#include "host/files/ByteSource.h"

namespace orlix {

namespace {

constexpr std::size_t kPointFlushAt = 1 << 16;
constexpr std::size_t kMostColumns = 1024;
constexpr std::uint64_t kMaxPointFile = std::uint64_t(1) << 36;

struct TypeRange {
  double low, high;
};
TypeRange RangeOf(PlyType type) {
  switch (type) {
    case PlyType::Int8:
      return {-128, 127};
    case PlyType::UInt8:
      return {0, 255};
    case PlyType::Int16:
      return {-32768, 32767};
    case PlyType::UInt16:
      return {0, 65535};
    case PlyType::Int32:
      return {-2147483648.0, 2147483647.0};
    case PlyType::UInt32:
      return {0, 4294967295.0};
    case PlyType::Float32:
      return {-3.4028234663852886e38, 3.4028234663852886e38};
    case PlyType::Float64:
      break;
  }
  return {-1.7976931348623157e308, 1.7976931348623157e308};
}

bool IsWhole(PlyType type) { return type != PlyType::Float32 && type != PlyType::Float64; }

bool Holds(PlyType type, double value) {
  const TypeRange range = RangeOf(type);
  return value >= range.low && value <= range.high && (!IsWhole(type) || value == std::floor(value));
}

}  // namespace

// --- writing ---------------------------------------------------------------------------------------------------------

PointWriter::PointWriter(PointFormat format, const std::vector<PointColumn>& columns, std::uint64_t count,
                         std::ostream& out)
    : format_(format), columns_(columns), out_(out) {
  const auto end = std::back_inserter(bytes_);
  if (format == PointFormat::Ply) {
    fmt::format_to(end, "ply\nformat binary_little_endian 1.0\nelement vertex {}\n", count);
    for (const PointColumn& column : columns) fmt::format_to(end, "property {} {}\n", NameOf(column.type), column.name);
    bytes_ += "end_header\n";
    return;
  }
  bytes_ += "#";
  for (const PointColumn& column : columns) {
    bytes_ += " " + column.name;
    if (column.type != PlyType::Float32 || column.name.find(':') != std::string::npos)
      bytes_ += std::string(":") + NameOf(column.type);
  }
  bytes_ += "\n";
}

void PointWriter::Write(const double* row) {
  if (format_ == PointFormat::Ply) {
    WriteBinary(row);
  } else {
    WriteText(row);
  }
  Flush(kPointFlushAt);
}

void PointWriter::WriteBinary(const double* row) {
  for (std::size_t c = 0; c < columns_.size(); ++c) {
    const PlyType type = columns_[c].type;
    std::uint64_t raw = type == PlyType::Float32   ? std::bit_cast<std::uint32_t>(static_cast<float>(row[c]))
                        : type == PlyType::Float64 ? std::bit_cast<std::uint64_t>(row[c])
                                                   : static_cast<std::uint64_t>(static_cast<std::int64_t>(row[c]));
    for (std::size_t size = SizeOf(type); size > 0; --size, raw >>= 8) bytes_ += static_cast<char>(raw & 0xff);
  }
}

// The shortest digits that give each value back.
void PointWriter::WriteText(const double* row) {
  const auto end = std::back_inserter(bytes_);
  for (std::size_t c = 0; c < columns_.size(); ++c) {
    if (c > 0) bytes_ += ' ';
    if (columns_[c].type == PlyType::Float32) {
      fmt::format_to(end, "{}", static_cast<float>(row[c]));
    } else if (columns_[c].type == PlyType::Float64) {
      fmt::format_to(end, "{}", row[c]);
    } else {
      fmt::format_to(end, "{}", static_cast<std::int64_t>(row[c]));
    }
  }
  bytes_ += '\n';
}

void PointWriter::Flush(std::size_t above) {
  if (bytes_.size() <= above) return;
  out_.write(bytes_.data(), static_cast<std::streamsize>(bytes_.size()));
  bytes_.clear();
}

// --- reading ---------------------------------------------------------------------------------------------------------

Status PointReader::Fail(const char* place, std::string_view what) const {
  const bool binary = format_ == PointFormat::Ply && encoding_ != PlyFormat::Ascii;
  const std::string where = binary ? fmt::format(" byte {}", place - begin_) : fmt::format("{}", text_.LineOf(place));
  return Status::Fail(ErrorKind::InputFile, fmt::format("{}:{}: {}", name_, where, what));
}

int PointReader::IndexOf(std::string_view column) const {
  const auto found = std::find_if(columns_.begin(), columns_.end(), [&](const auto& c) { return c.name == column; });
  return found == columns_.end() ? -1 : static_cast<int>(found - columns_.begin());
}

Status PointReader::Open() {
  TextCursor first = text_;
  format_ = first.Word() == "ply" ? PointFormat::Ply : PointFormat::Text;
  if (Status opened = format_ == PointFormat::Ply ? OpenPly() : OpenText(); !opened) return opened;
  return TestColumns();
}

Status PointReader::TestColumns() const {
  if (columns_.size() > kMostColumns) return Fail(begin_, "more columns than a particle can have");
  for (const char* needed : {"x", "y", "z"}) {
    if (IndexOf(needed) < 0) return Fail(begin_, fmt::format("particles need the value {}", needed));
  }
  for (std::size_t c = 0; c < columns_.size(); ++c) {
    const std::string& column = columns_[c].name;
    if (std::any_of(column.begin(), column.end(), [](char each) { return each < '!' || each > '~' || each == '\\'; })) {
      return Fail(begin_, fmt::format("value {} has a name of other than plain letters", c + 1));
    }
    if (IndexOf(columns_[c].name) != static_cast<int>(c)) {
      return Fail(begin_, fmt::format("the value \"{}\" is declared twice", columns_[c].name.substr(0, 40)));
    }
  }
  return {};
}

Status PointReader::OpenPly() {
  Result<PlyHeader> header = PlyHeader::Read(text_, name_);
  if (!header) return header.error();
  encoding_ = header->format;
  if (header->elements.empty() || header->elements.front().name != "vertex") {
    return Fail(begin_, "the first element must be \"vertex\"");
  }
  for (const PlyElement& other : header->elements) {
    if (&other != &header->elements.front() && other.count > 0) {
      return Fail(begin_, fmt::format("it has elements \"{}\": no file of particles", other.name.substr(0, 40)));
    }
  }
  const PlyElement& vertex = header->elements.front();
  for (const PlyProperty& property : vertex.properties) {
    if (property.countType) return Fail(begin_, "a particle can't have a list");
    columns_.push_back({std::string(property.name), property.type});
  }
  count_ = vertex.count;
  if (columns_.empty() && count_ > 0) return Fail(begin_, "particles need the value x");
  return header->TestCount(vertex, text_, name_);
}

Status PointReader::OpenText() {
  TextCursor names(text_.Line());
  names.SkipBlanks();
  std::string_view word = names.Word();
  if (word == "#") names.SkipBlanks(), word = names.Word();
  for (; !word.empty(); names.SkipBlanks(), word = names.Word()) {
    const std::size_t colon = word.rfind(':');
    const auto type = colon == std::string_view::npos ? PlyType::Float32 : PlyTypeOf(word.substr(colon + 1));
    if (!type || colon == 0) return Fail(begin_, fmt::format("\"{}\" is no name of a value", word.substr(0, 40)));
    columns_.push_back({std::string(word.substr(0, colon)), *type});
  }
  // Lines with anything on them are particles.
  for (TextCursor rest = text_; rest.SkipBlanksAndLines(), !rest.AtEnd(); rest.SkipLine()) ++count_;
  return {};
}

Status PointReader::Read(std::vector<double>& row) {
  row.resize(columns_.size());
  const bool binary = encoding_ != PlyFormat::Ascii;
  if (!binary) text_.SkipBlanksAndLines();
  const char* begin = text_.Place();
  for (std::size_t c = 0; c < columns_.size(); ++c) {
    const PlyType type = columns_[c].type;
    if (!binary) {
      text_.SkipBlanks();
      if (!text_.Number(row[c])) return Fail(begin, "a number is missing");
    } else {
      if (text_.Remaining() < SizeOf(type)) return Fail(begin, "the file ends too early");
      row[c] = PlyValueAt(text_.Place(), type, encoding_ == PlyFormat::BigEndian);
      text_.Advance(SizeOf(type));
    }
    if (!Holds(type, row[c])) {
      return Fail(begin, fmt::format("{} is {}, must be a finite {} of type {}", columns_[c].name.substr(0, 40), row[c],
                                     IsWhole(type) ? "whole number" : "number", NameOf(type)));
    }
    if (type == PlyType::Float32) row[c] = static_cast<float>(row[c]);  // a text may have more digits
  }
  if (!binary) {
    text_.SkipBlanks();
    if (!text_.AtLineEnd()) return Fail(begin, "the line has more numbers than there are names");
  }
  return ++done_ == count_ ? AtEnd() : Status();
}

Status PointReader::AtEnd() {
  if (encoding_ == PlyFormat::Ascii) text_.SkipBlanksAndLines();
  return text_.AtEnd() ? Status() : Fail(text_.Place(), "there is more after the last particle");
}

Result<PointFileInfo> DescribePoints(std::string_view content, std::string_view name) {
  PointReader reader(content, name);
  if (Status opened = reader.Open(); !opened) return opened.error();
  PointFileInfo info{reader.format(), reader.encoding(), reader.count(), {}};
  for (const PointColumn& column : reader.columns()) info.columns.push_back({column});
  std::vector<double> row;
  for (std::uint64_t n = 0; n < info.count; ++n) {
    if (Status read = reader.Read(row); !read) return read.error();
    for (std::size_t c = 0; c < row.size(); ++c) {
      PointFileInfo::Column& column = info.columns[c];
      column.low = n == 0 ? row[c] : std::min(column.low, row[c]);
      column.high = n == 0 ? row[c] : std::max(column.high, row[c]);
      // A mean that no sum overflows.
      column.mean += (row[c] - column.mean) / static_cast<double>(n + 1);
    }
  }
  return info;
}

bool IsPointPly(std::string_view content) {
  TextCursor text(content);
  const Result<PlyHeader> header = PlyHeader::Read(text, "");
  return header && std::none_of(header->elements.begin(), header->elements.end(),
                                [](const PlyElement& element) { return element.name == "face" && element.count > 0; });
}

Result<std::vector<std::byte>> ReadPointFile(const std::filesystem::path& path) {
  return ReadWholeFile(path, kMaxPointFile);
}

}  // namespace orlix
