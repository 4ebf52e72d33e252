#pragma once
// What the readers and writers of particle files share.

#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <limits>
#include <optional>
#include <ostream>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "exchange/points/PointFormats.h"
#include "host/geometry/MeshBuilder.h"

namespace orlix {

// Reads numbers of one byte order. What goes beyond the end gives zeros and makes it not ok.
class ByteCursor {
 public:
  ByteCursor(const PointContent& content, bool bigEndian)
      : bytes_(content.bytes), name_(content.name), big_(bigEndian) {}

  template <class T>
  T Get() {
    using Raw = std::conditional_t<sizeof(T) == 8, std::uint64_t, std::uint32_t>;
    Raw raw = 0;
    const std::string_view taken = Take(sizeof(T));
    for (std::size_t i = 0; i < taken.size(); ++i) {
      const std::size_t from = big_ ? i : sizeof(T) - 1 - i;
      raw = static_cast<Raw>(raw << 8 | static_cast<unsigned char>(taken[from]));
    }
    if constexpr (std::is_floating_point_v<T>) {
      return std::bit_cast<T>(raw);
    } else {
      return static_cast<T>(raw);
    }
  }
  // Empty when there aren't as many.
  std::string_view Take(std::uint64_t count) {
    if (count > Remaining()) {
      ok_ = false, at_ = bytes_.size();
      return {};
    }
    const std::string_view taken = bytes_.substr(at_, static_cast<std::size_t>(count));
    at_ += taken.size();
    return taken;
  }
  std::size_t Remaining() const { return bytes_.size() - at_; }
  std::size_t Offset() const { return at_; }
  void Return(std::size_t count) { at_ -= count; }
  bool ok() const { return ok_; }
  // "FILE: byte N: WHAT", or that the file ends too early.
  Error Fail(std::string_view what) const {
    return {ErrorKind::InputFile, fmt::format("{}: byte {}: {}", name_, at_, ok_ ? what : "the file ends too early")};
  }
  // An error when so many particles of at least so many bytes can't be in the rest.
  Status TestCount(std::int64_t count, std::uint64_t bytesEach) const {
    if (ok_ && count >= 0 && static_cast<std::uint64_t>(count) <= Remaining() / std::max<std::uint64_t>(1, bytesEach)) {
      return {};
    }
    return Fail(
        fmt::format("{} particles are declared, which the {} bytes that follow can't hold", count, Remaining()));
  }

 private:
  std::string_view bytes_, name_;
  bool big_;
  bool ok_ = true;
  std::size_t at_ = 0;
};

// Puts numbers of one byte order together.
class ByteBuffer {
 public:
  explicit ByteBuffer(bool bigEndian) : big_(bigEndian) {}

  template <class T>
  void Put(T value) {
    using Raw = std::conditional_t<sizeof(T) == 8, std::uint64_t,
                                   std::conditional_t<std::is_floating_point_v<T>, std::uint32_t, std::uint64_t>>;
    Raw raw;
    if constexpr (std::is_floating_point_v<T>) {
      raw = std::bit_cast<Raw>(value);
    } else {
      raw = static_cast<Raw>(value);
    }
    for (std::size_t i = 0; i < sizeof(T); ++i) {
      bytes_ += static_cast<char>(raw >> 8 * (big_ ? sizeof(T) - 1 - i : i) & 0xff);
    }
  }
  // Cut or filled with zeros to a size, where one is given.
  void Text(std::string_view text, std::size_t size) {
    bytes_ += text.substr(0, size);
    bytes_.append(size - std::min(size, text.size()), '\0');
  }
  void Text(std::string_view text) { bytes_ += text; }
  const std::string& bytes() const { return bytes_; }
  void WriteTo(std::ostream& out) const { out.write(bytes_.data(), static_cast<std::streamsize>(bytes_.size())); }

 private:
  bool big_;
  std::string bytes_;
};

// What a format calls a column. A name that comes twice in a file means the same.
struct PointName {
  std::string_view ours, theirs;
};
std::string OurName(std::span<const PointName> names, std::string_view theirs);
std::string TheirName(std::span<const PointName> names, std::string_view ours);

// Whether the column was made: false when there is one of that name, or too many, and for a name of other than plain
// letters.
bool CanAdd(const PointSet& set, std::string_view name);

// A column's place in records that follow each other.
struct ReadField {
  PointAttribute* to;
  std::size_t offset;
  FileNumber number;
};
struct WriteField {
  const PointAttribute* from;
  std::size_t offset;
  FileNumber number;
};
// count records at bytes that are there. InputFile, by column and particle, for a value that isn't a finite number.
Status ReadRecords(const char* bytes, std::size_t stride, std::uint64_t count, std::span<const ReadField> fields,
                   std::string_view file, std::uint64_t first = 0);
// A record for each particle; what no field covers is as in the record given. Output for a value that doesn't fit.
Status WriteRecords(std::uint64_t count, std::span<const WriteField> fields, const std::string& record,
                    std::ostream& out);
// A column alone, row after row.
Status WriteColumn(const PointSet& set, const PointAttribute& column, FileNumber number, std::ostream& out);

// Values of one particle from a line of text, a number for each column of one component. An error names file and line.
Status ReadRow(TextCursor& text, std::uint64_t row, std::string_view file, PointSet& set);
// Hands the text on where it is longer than a piece worth writing.
inline void FlushText(std::string& text, std::ostream& out, std::size_t above = std::size_t(1) << 16) {
  if (text.size() <= above) return;
  out.write(text.data(), static_cast<std::streamsize>(text.size()));
  text.clear();
}

// The columns of a set with one or three components; what has others, or three whole numbers, becomes single ones.
struct SimpleColumns {
  explicit SimpleColumns(const PointSet& set);
  std::vector<const PointAttribute*> all;

 private:
  std::deque<PointAttribute> made_;
};

// The values of a row with the fewest digits that give them back.
void AppendValues(const PointAttribute& column, std::uint64_t row, const char* between, std::string& text);

// An error for more particles than a format of 32 bits counts.
Status TestInt32Count(const PointSet& set);
// An error when a set to be written has no positions.
Result<const PointAttribute*> PositionsOf(const PointSet& set);
// The number that a format of 32 bits keeps for a column.
inline NumberType Narrow(const PointAttribute& column) {
  return IsReal(column.number) ? NumberType::Float32 : NumberType::Int32;
}

}  // namespace orlix
