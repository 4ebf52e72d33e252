#pragma once
// Particles in files of other programs: numbers with names, a row a particle.
//
//   PLY   an element "vertex" and no faces; written as binary, little endian, read in all encodings
//   text  a line "# x y z vx vy vz id:int" with the names, and their types where they aren't float; then a line a
//   particle

#include <filesystem>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "host/geometry/PlyHeader.h"

namespace orlix {

struct PointColumn {
  std::string name;
  PlyType type = PlyType::Float32;
  bool operator==(const PointColumn&) const = default;
};

enum class PointFormat { Ply, Text };

class PointWriter {
 public:
  // The stream's state tells whether the bytes were taken.
  PointWriter(PointFormat format, const std::vector<PointColumn>& columns, std::uint64_t count, std::ostream& out);
  ~PointWriter() { Flush(0); }
  PointWriter(const PointWriter&) = delete;
  PointWriter& operator=(const PointWriter&) = delete;
  // A value for each column, within its type's range.
  void Write(const double* row);

 private:
  void WriteBinary(const double* row);
  void WriteText(const double* row);
  void Flush(std::size_t above);

  const PointFormat format_;
  const std::vector<PointColumn> columns_;
  std::ostream& out_;
  std::string bytes_;
};

// Files are not trusted: counts are held against the bytes that are there, values must be finite numbers of their type.
class PointReader {
 public:
  // The content of a file, told apart by its first word; name stands in messages. Both stay while the reader lives.
  PointReader(std::string_view content, std::string_view name) : text_(content), name_(name) {}

  // Columns and count; x, y and z are among them. An error for a mesh.
  Status Open();
  const std::vector<PointColumn>& columns() const { return columns_; }
  int IndexOf(std::string_view column) const;
  std::uint64_t count() const { return count_; }
  PointFormat format() const { return format_; }
  const char* encoding() const { return NameOf(encoding_); }
  // The next of count() rows, a value for each column.
  Status Read(std::vector<double>& row);

 private:
  Status OpenPly();
  Status OpenText();
  Status TestColumns() const;
  Status AtEnd();
  Status Fail(const char* place, std::string_view what) const;

  TextCursor text_;
  const char* begin_ = text_.Place();
  std::string_view name_;
  PointFormat format_ = PointFormat::Ply;
  PlyFormat encoding_ = PlyFormat::Ascii;
  std::vector<PointColumn> columns_;
  std::uint64_t count_ = 0, done_ = 0;
};

struct PointFileInfo {
  PointFormat format = PointFormat::Ply;
  std::string encoding;
  std::uint64_t count = 0;
  struct Column {
    PointColumn column;
    double low = 0, high = 0, mean = 0;  // 0 without particles
  };
  std::vector<Column> columns;
};
// Reads the whole of a file's content.
Result<PointFileInfo> DescribePoints(std::string_view content, std::string_view name);

// Whether the content is that of a PLY file without faces, and so of particles.
bool IsPointPly(std::string_view content);

// The content of a file on disk, refused beyond 64 GB.
Result<std::vector<std::byte>> ReadPointFile(const std::filesystem::path& path);
inline std::string_view AsText(const std::vector<std::byte>& content) {
  return {reinterpret_cast<const char*>(content.data()), content.size()};
}

}  // namespace orlix
