#include "exchange/points/PointBytes.h"

#include <algorithm>
#include <charconv>

#include "exchange/points/FlatColumns.h"

namespace orlix {

namespace {

constexpr std::uint64_t kBlockRows = 4096;
constexpr std::size_t kMostAttributes = 1024;
constexpr std::size_t kLongestName = 255;

}  // namespace

std::string OurName(std::span<const PointName> names, std::string_view theirs) {
  for (const PointName& name : names) {
    if (name.theirs == theirs) return std::string(name.ours);
  }
  return std::string(theirs);
}

std::string TheirName(std::span<const PointName> names, std::string_view ours) {
  for (const PointName& name : names) {
    if (name.ours == ours) return std::string(name.theirs);
  }
  return std::string(ours);
}

bool CanAdd(const PointSet& set, std::string_view name) {
  const auto plain = [](char c) { return c > ' ' && c <= '~' && c != '\\' && c != '"'; };
  return !name.empty() && name.size() <= kLongestName && std::all_of(name.begin(), name.end(), plain) &&
         set.attributes.size() < kMostAttributes && !set.Find(name);
}

Status ReadRecords(const char* bytes, std::size_t stride, std::uint64_t count, std::span<const ReadField> fields,
                   std::string_view file, std::uint64_t first) {
  for (std::uint64_t done = 0; done < count; done += kBlockRows) {
    const std::uint64_t rows = std::min(kBlockRows, count - done);
    for (const ReadField& field : fields) {
      const char* from = bytes + done * stride + field.offset;
      if (DecodeRows(from, stride, field.number, first + done, rows, *field.to)) continue;
      std::uint64_t row = 0;
      while (DecodeRows(from + row * stride, stride, field.number, first + done + row, 1, *field.to)) ++row;
      return Status::Fail(ErrorKind::InputFile, fmt::format("{}: {} of particle {} is no finite number", file,
                                                            field.to->name, first + done + row));
    }
  }
  return {};
}

Status WriteRecords(std::uint64_t count, std::span<const WriteField> fields, const std::string& record,
                    std::ostream& out) {
  std::string block;
  const std::uint64_t most = std::min(kBlockRows, count);
  block.reserve(most * record.size());
  for (std::uint64_t row = 0; row < most; ++row) block += record;
  for (std::uint64_t done = 0; done < count; done += kBlockRows) {
    const std::uint64_t rows = std::min(kBlockRows, count - done);
    for (const WriteField& field : fields) {
      char* to = block.data() + field.offset;
      if (EncodeRows(*field.from, done, rows, field.number, to, record.size())) continue;
      std::uint64_t row = 0;
      while (EncodeRows(*field.from, done + row, 1, field.number, to, record.size())) ++row;
      return Status::Fail(ErrorKind::Output, fmt::format("{} of particle {} is no finite number of type {}",
                                                         field.from->name, done + row, NameOf(field.number.type)));
    }
    out.write(block.data(), static_cast<std::streamsize>(rows * record.size()));
  }
  return {};
}

Status WriteColumn(const PointSet& set, const PointAttribute& column, FileNumber number, std::ostream& out) {
  const WriteField field{&column, 0, number};
  return WriteRecords(set.count, {&field, 1},
                      std::string(static_cast<std::size_t>(column.components) * SizeOf(number.type), '\0'), out);
}

Status ReadRow(TextCursor& text, std::uint64_t row, std::string_view file, PointSet& set) {
  text.SkipBlanksAndLines();
  const char* begin = text.Place();
  const auto fail = [&](const std::string& what) {
    return Status::Fail(ErrorKind::InputFile, fmt::format("{}:{}: {}", file, text.LineOf(begin), what));
  };
  for (PointAttribute& column : set.attributes) {
    // Numbers of 64 bits don't pass through a double.
    const bool large = !IsReal(column.number) && SizeOf(column.number) == 8;
    for (int c = 0; c < column.components; ++c) {
      text.SkipBlanks();
      double value = 0;
      std::int64_t whole = 0;
      const char* place = text.Place();
      if (!text.Number(value)) return fail("a number is missing");
      const bool fits =
          large ? std::from_chars(place, text.Place(), whole).ptr == text.Place() && column.SetWhole(row, c, whole)
                : column.SetReal(row, c, value);
      if (fits) continue;
      return fail(fmt::format("{} is {}, must be a finite {} of type {}", column.name.substr(0, 40), value,
                              IsReal(column.number) ? "number" : "whole number", NameOf(column.number)));
    }
  }
  text.SkipBlanks();
  return text.AtLineEnd() ? Status() : fail("the line has more numbers than there are names");
}

SimpleColumns::SimpleColumns(const PointSet& set) {
  for (const PointAttribute& column : set.attributes) {
    if (column.components == 1 || (column.components == 3 && IsReal(column.number))) all.push_back(&column);
  }
  for (const FlatColumn& flat : FlatColumnsOf(set)) {
    const PointAttribute& from = *flat.attribute;
    if (from.components == 1 || (from.components == 3 && IsReal(from.number))) continue;
    PointAttribute& single = made_.emplace_back();
    single.name = flat.name, single.number = from.number;
    single.type = IsReal(from.number) ? PointType::Float : PointType::Int;
    single.values.resize(set.count * single.RowBytes());
    const std::size_t size = single.RowBytes(), offset = static_cast<std::size_t>(flat.component) * size;
    for (std::uint64_t row = 0; row < set.count; ++row) {
      std::memcpy(single.values.data() + row * size, from.values.data() + row * from.RowBytes() + offset, size);
    }
    all.push_back(&single);
  }
}

void AppendValues(const PointAttribute& column, std::uint64_t row, const char* between, std::string& text) {
  const auto end = std::back_inserter(text);
  for (int c = 0; c < column.components; ++c) {
    if (c > 0) text += between;
    if (column.number == NumberType::Float32) {
      fmt::format_to(end, "{}", static_cast<float>(column.Real(row, c)));
    } else if (column.number == NumberType::Float64) {
      fmt::format_to(end, "{}", column.Real(row, c));
    } else {
      fmt::format_to(end, "{}", column.Whole(row, c));
    }
  }
}

Status TestInt32Count(const PointSet& set) {
  if (set.count <= static_cast<std::uint64_t>(std::numeric_limits<std::int32_t>::max())) return {};
  return Status::Fail(ErrorKind::Output, "more particles than the format counts");
}

Result<const PointAttribute*> PositionsOf(const PointSet& set) {
  const PointAttribute* position = set.Find("position");
  if (position && position->components == 3) return position;
  return Error{ErrorKind::Output, "particles need a position of three numbers"};
}

}  // namespace orlix
