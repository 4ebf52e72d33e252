#pragma once
// The header of a PLY file (Turk 1994): it declares elements and their properties, whose values follow in that order,
// as text or binary of either byte order.

#include <optional>
#include <string_view>
#include <vector>

#include "globals/Result.h"
#include "host/geometry/MeshBuilder.h"

namespace orlix {

enum class PlyType { Int8, UInt8, Int16, UInt16, Int32, UInt32, Float32, Float64 };
enum class PlyFormat { Ascii, LittleEndian, BigEndian };

std::optional<PlyType> PlyTypeOf(std::string_view word);
const char* NameOf(PlyType type);  // "uchar", "float", ...
std::size_t SizeOf(PlyType type);
const char* NameOf(PlyFormat format);  // "text", "binary", "binary big-endian"

// A value of `type` at bytes that are there.
double PlyValueAt(const char* bytes, PlyType type, bool swapped);

struct PlyProperty {
  std::string_view name;
  PlyType type = PlyType::Float32;   // of the value, or of a list's entries
  std::optional<PlyType> countType;  // of a list
};

struct PlyElement {
  std::string_view name;
  std::uint64_t count = 0;
  std::vector<PlyProperty> properties;

  int IndexOf(std::string_view property) const;
  // The fewest bytes that one element takes.
  std::size_t LeastBytes(PlyFormat format) const;
};

// Names are views of the file's content.
struct PlyHeader {
  PlyFormat format = PlyFormat::Ascii;
  std::vector<PlyElement> elements;

  // Leaves the cursor behind the header. Errors name file and line.
  static Result<PlyHeader> Read(TextCursor& text, std::string_view file);
  // An error when more elements are declared than bytes follow.
  Status TestCount(const PlyElement& element, const TextCursor& text, std::string_view file) const;
};

}  // namespace orlix
