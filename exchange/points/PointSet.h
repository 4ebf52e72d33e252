#pragma once
// Particles as a table, between the engine and the files of other programs: columns with a name, a type and a number of
// components, a row a particle.
//
// Formats have words of their own for the same thing. A table has these, and each format's file says what it writes:
//
//   position velocity normal color   vectors
//   id                               whole numbers
//   radius age mass temperature ...  numbers
//
// All other columns keep their names.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

#include "exchange/points/FileUnits.h"

namespace orlix {

// What a column's numbers mean. A vector has three components; the numbers of a text are places in its list of words.
enum class PointType : std::uint8_t { Float, Vector, Int, Text };

// The first eight are PlyType's, in its order. Half floats stand in files only.
enum class NumberType : std::uint8_t {
  Int8,
  UInt8,
  Int16,
  UInt16,
  Int32,
  UInt32,
  Float32,
  Float64,
  Int64,
  UInt64,
  Float16
};
std::size_t SizeOf(NumberType type);
const char* NameOf(NumberType type);  // "int", "float", ...
constexpr bool IsReal(NumberType type) {
  return type == NumberType::Float32 || type == NumberType::Float64 || type == NumberType::Float16;
}

struct PointAttribute {
  std::string name;
  PointType type = PointType::Float;
  int components = 1;
  NumberType number = NumberType::Float32;
  std::vector<std::byte> values{};  // of the machine's byte order, row after row
  std::vector<std::string> words{};

  std::size_t RowBytes() const { return static_cast<std::size_t>(components) * SizeOf(number); }
  double Real(std::uint64_t row, int component) const;
  std::int64_t Whole(std::uint64_t row, int component) const;
  // False, and nothing is stored, when the value isn't finite or not of the column's type.
  bool SetReal(std::uint64_t row, int component, double value);
  bool SetWhole(std::uint64_t row, int component, std::int64_t value);

  // The values as T, which must be of the size of the column's numbers.
  template <class T>
  T* Data() {
    return reinterpret_cast<T*>(values.data());
  }
  template <class T>
  const T* Data() const {
    return reinterpret_cast<const T*>(values.data());
  }
};

struct PointSet {
  std::uint64_t count = 0;
  std::deque<PointAttribute> attributes;  // references to its columns last
  FileUnits units{};
  const char* encoding = "binary";  // of the file that it was read from: "binary", "binary big-endian", "text"

  // Values are 0.
  PointAttribute& Add(std::string name, PointType type, int components, NumberType number);
  // Without values, for what only a file's header tells.
  PointAttribute& Declare(std::string name, PointType type, int components, NumberType number);
  const PointAttribute* Find(std::string_view name) const;
  PointAttribute* Find(std::string_view name);
  bool HasValues() const;
};

// Numbers as they lie in a file.
struct FileNumber {
  NumberType type = NumberType::Float32;
  bool bigEndian = false;
};
// Rows [first, first + rows) of a column; stride: bytes from one row to the next. False when a value isn't finite or
// not of the type that it is to become.
bool EncodeRows(const PointAttribute& from, std::uint64_t first, std::uint64_t rows, FileNumber to, char* out,
                std::size_t stride);
bool DecodeRows(const char* in, std::size_t stride, FileNumber from, std::uint64_t first, std::uint64_t rows,
                PointAttribute& to);

}  // namespace orlix
