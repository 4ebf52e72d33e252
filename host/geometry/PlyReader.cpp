// PLY (Turk 1994): a header that declares elements and their properties, then the elements' values in that order, as
// text or binary of either byte order. Taken are x, y, z of "vertex" and the corner list of "face".

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <optional>
#include <vector>

#include "host/geometry/MeshBuilder.h"
#include "host/geometry/MeshReader.h"

namespace orlix {

namespace {

enum class PlyType { Int8, UInt8, Int16, UInt16, Int32, UInt32, Float32, Float64 };
enum class PlyFormat { Ascii, LittleEndian, BigEndian };

std::optional<PlyType> TypeOf(std::string_view word) {
  constexpr std::pair<const char*, PlyType> kNames[] = {
      {"char", PlyType::Int8},      {"int8", PlyType::Int8},       {"uchar", PlyType::UInt8},
      {"uint8", PlyType::UInt8},    {"short", PlyType::Int16},     {"int16", PlyType::Int16},
      {"ushort", PlyType::UInt16},  {"uint16", PlyType::UInt16},   {"int", PlyType::Int32},
      {"int32", PlyType::Int32},    {"uint", PlyType::UInt32},     {"uint32", PlyType::UInt32},
      {"float", PlyType::Float32},  {"float32", PlyType::Float32}, {"double", PlyType::Float64},
      {"float64", PlyType::Float64}};
  for (const auto& [name, type] : kNames) {
    if (word == name) return type;
  }
  return {};
}

std::size_t SizeOf(PlyType type) {
  constexpr std::size_t kSizes[] = {1, 1, 2, 2, 4, 4, 4, 8};
  return kSizes[static_cast<int>(type)];
}

// A value of `type` at bytes that are there.
double ValueAt(const char* bytes, PlyType type, bool swapped) {
  std::uint64_t raw = 0;
  const std::size_t size = SizeOf(type);
  for (std::size_t i = 0; i < size; ++i) {
    raw |= std::uint64_t(static_cast<unsigned char>(bytes[swapped ? size - 1 - i : i])) << (8 * i);
  }
  switch (type) {
    case PlyType::Int8:
      return static_cast<std::int8_t>(raw);
    case PlyType::UInt8:
    case PlyType::UInt16:
    case PlyType::UInt32:
      return static_cast<double>(raw);
    case PlyType::Int16:
      return static_cast<std::int16_t>(raw);
    case PlyType::Int32:
      return static_cast<std::int32_t>(raw);
    case PlyType::Float32:
      return std::bit_cast<float>(static_cast<std::uint32_t>(raw));
    case PlyType::Float64:
      break;
  }
  return std::bit_cast<double>(raw);
}

struct PlyProperty {
  std::string_view name;
  PlyType type = PlyType::Float32;   // of the value, or of a list's entries
  std::optional<PlyType> countType;  // of a list
};

struct PlyElement {
  std::string_view name;
  std::uint64_t count = 0;
  std::vector<PlyProperty> properties;

  int IndexOf(std::string_view property) const {
    for (std::size_t i = 0; i < properties.size(); ++i) {
      if (properties[i].name == property) return static_cast<int>(i);
    }
    return -1;
  }
  // The fewest bytes that one element takes.
  std::size_t LeastBytes(PlyFormat format) const {
    std::size_t bytes = 0;
    for (const PlyProperty& p : properties)
      bytes += format == PlyFormat::Ascii ? 1 : SizeOf(p.countType.value_or(p.type));
    return bytes;
  }
};

class PlyReader {
 public:
  PlyReader(std::string_view content, std::string_view name) : text_(content), name_(name) {}

  Result<PolygonObject> Read() {
    if (Status status = ReadHeader(); !status) return status.error();
    for (const char* needed : {"vertex", "face"}) {
      if (std::none_of(elements_.begin(), elements_.end(), [&](const PlyElement& e) { return e.name == needed; })) {
        return Fail(begin_, fmt::format("the header declares no element \"{}\"", needed)).error();
      }
    }
    for (const PlyElement& element : elements_) {
      if (Status status = ReadElement(element); !status) return status.error();
    }
    text_.SkipBlanksAndLines();
    if (!text_.AtEnd()) return Fail(text_.Place(), "there is more after the last element").error();
    return builder_.Finish([&](std::size_t place) { return Where(begin_ + place); }, 0);
  }

  // What the header says; empty for one that can't be read.
  std::string_view Encoding() {
    if (!ReadHeader()) return "";
    return format_ == PlyFormat::Ascii ? "text" : format_ == PlyFormat::LittleEndian ? "binary" : "binary big-endian";
  }

 private:
  std::string Where(const char* place) const {
    if (inBody_ && format_ != PlyFormat::Ascii) return fmt::format("{}: byte {}", name_, place - begin_);
    return fmt::format("{}:{}", name_, text_.LineOf(place));
  }
  Status Fail(const char* place, std::string_view what) const {
    return Status::Fail(ErrorKind::InputFile, fmt::format("{}: {}", Where(place), what));
  }
  Status FailAtEnd() const { return Fail(begin_ + text_.Offset() + text_.Remaining(), "the file ends too early"); }

  Status ReadHeader() {
    if (text_.Line() != "ply") return Fail(begin_, "a PLY file begins with the line \"ply\"");
    bool hasFormat = false;
    for (;;) {
      if (text_.AtEnd()) return Fail(text_.Place(), "the header has no end");
      const char* line = text_.Place();
      TextCursor words(text_.Line());
      const std::string_view key = NextWord(words);
      if (key == "end_header") break;
      if (key == "format") {
        if (Status status = ReadFormat(line, words); !status) return status;
        hasFormat = true;
      } else if (key == "element") {
        if (Status status = ReadElementLine(line, words); !status) return status;
      } else if (key == "property") {
        if (Status status = ReadPropertyLine(line, words); !status) return status;
      } else if (key != "comment" && key != "obj_info" && !key.empty()) {
        return Fail(line, fmt::format("unknown header line \"{}\"", key.substr(0, 40)));
      }
    }
    if (!hasFormat) return Fail(begin_, "the header names no format");
    inBody_ = true;
    return {};
  }

  static std::string_view NextWord(TextCursor& words) {
    words.SkipBlanks();
    return words.Word();
  }

  Status ReadFormat(const char* line, TextCursor& words) {
    const std::string_view word = NextWord(words), version = NextWord(words);
    if (word == "ascii") {
      format_ = PlyFormat::Ascii;
    } else if (word == "binary_little_endian") {
      format_ = PlyFormat::LittleEndian;
    } else if (word == "binary_big_endian") {
      format_ = PlyFormat::BigEndian;
    } else {
      return Fail(line, "the format must be ascii, binary_little_endian or binary_big_endian");
    }
    if (version == "1.0") return {};
    return Fail(line, fmt::format("the version is {}, must be 1.0", version.substr(0, 40)));
  }

  Status ReadElementLine(const char* line, TextCursor& words) {
    PlyElement element;
    element.name = NextWord(words);
    std::int64_t count = -1;
    words.SkipBlanks();
    if (element.name.empty() || !words.Integer(count) || count < 0) {
      return Fail(line, "an element needs a name and a count");
    }
    element.count = static_cast<std::uint64_t>(count);
    elements_.push_back(std::move(element));
    return {};
  }

  Status ReadPropertyLine(const char* line, TextCursor& words) {
    if (elements_.empty()) return Fail(line, "a property stands before any element");
    PlyProperty property;
    std::string_view word = NextWord(words);
    if (word == "list") {
      property.countType = TypeOf(NextWord(words));
      if (!property.countType || SizeOf(*property.countType) == 8 || *property.countType == PlyType::Float32) {
        return Fail(line, "a list's count must be of a whole type");
      }
      word = NextWord(words);
    }
    const auto type = TypeOf(word);
    property.name = NextWord(words);
    if (!type || property.name.empty()) return Fail(line, "a property needs a type and a name");
    property.type = *type;
    elements_.back().properties.push_back(property);
    return {};
  }

  Status ReadElement(const PlyElement& element) {
    const std::size_t least = element.LeastBytes(format_);
    if (least == 0) return {};
    // The last value of a text needs no blank after it.
    const std::size_t perElement = format_ == PlyFormat::Ascii ? 2 * least : least;
    if (element.count > (text_.Remaining() + 1) / perElement) {
      return Fail(text_.Place(), fmt::format("{} elements \"{}\" need at least {} bytes each, {} bytes follow",
                                             element.count, element.name, perElement, text_.Remaining()));
    }
    if (element.name == "vertex") return ReadVertices(element);
    if (element.name == "face") return ReadFaces(element);
    for (std::uint64_t e = 0; e < element.count; ++e) {
      const char* begin = StartOfElement();
      for (const PlyProperty& property : element.properties) {
        if (!PassProperty(property)) return FailValue(begin);
      }
      if (!AtElementEnd()) return FailRest(begin);
    }
    return {};
  }

  Status ReadVertices(const PlyElement& element) {
    const int place[3] = {element.IndexOf("x"), element.IndexOf("y"), element.IndexOf("z")};
    for (const int p : place) {
      if (p < 0 || element.properties[static_cast<std::size_t>(p)].countType) {
        return Fail(text_.Place(), "a vertex needs the properties x, y and z");
      }
    }
    builder_.ReservePoints(element.count);
    for (std::uint64_t v = 0; v < element.count; ++v) {
      const char* begin = StartOfElement();
      Vec3D point;
      for (int p = 0; p < static_cast<int>(element.properties.size()); ++p) {
        const PlyProperty& property = element.properties[static_cast<std::size_t>(p)];
        double ignored = 0;
        double& target = p == place[0] ? point.x : p == place[1] ? point.y : p == place[2] ? point.z : ignored;
        if (property.countType ? !PassProperty(property) : !ReadValue(property.type, target)) return FailValue(begin);
      }
      if (!AtElementEnd()) return FailRest(begin);
      if (!builder_.AddPoint(point)) return Fail(begin, "a point's coordinates must be finite numbers");
    }
    return {};
  }

  Status ReadFaces(const PlyElement& element) {
    int list = element.IndexOf("vertex_indices");
    if (list < 0) list = element.IndexOf("vertex_index");
    if (list < 0 || !element.properties[static_cast<std::size_t>(list)].countType) {
      return Fail(text_.Place(), "a face needs the list vertex_indices");
    }
    std::vector<std::int64_t> corners;
    for (std::uint64_t f = 0; f < element.count; ++f) {
      const char* begin = StartOfElement();
      for (int p = 0; p < static_cast<int>(element.properties.size()); ++p) {
        const PlyProperty& property = element.properties[static_cast<std::size_t>(p)];
        if (p != list) {
          if (!PassProperty(property)) return FailValue(begin);
          continue;
        }
        std::size_t count = 0;
        if (!ReadListCount(property, count)) return FailValue(begin);
        corners.resize(count);
        for (std::int64_t& corner : corners) {
          double value = 0;
          if (!ReadValue(property.type, value)) return FailValue(begin);
          if (value != std::floor(value) || std::abs(value) > 9e15) return Fail(begin, "a face's corner must be whole");
          corner = static_cast<std::int64_t>(value);
        }
      }
      if (!AtElementEnd()) return FailRest(begin);
      builder_.AddPolygon(corners, static_cast<std::size_t>(begin - begin_));
    }
    return {};
  }

  const char* StartOfElement() {
    if (format_ == PlyFormat::Ascii) text_.SkipBlanksAndLines();
    return text_.Place();
  }
  // In a text each element has a line of its own.
  bool AtElementEnd() {
    if (format_ != PlyFormat::Ascii) return true;
    text_.SkipBlanks();
    return text_.AtLineEnd();
  }
  Status FailRest(const char* begin) const { return Fail(begin, "the line has more than the element's numbers"); }
  Status FailValue(const char* begin) const {
    return format_ == PlyFormat::Ascii && !text_.AtEnd() ? Fail(begin, "a number is missing or a count is too large")
                                                         : FailAtEnd();
  }

  bool ReadValue(PlyType type, double& value) {
    if (format_ == PlyFormat::Ascii) {
      text_.SkipBlanks();
      return text_.Number(value);
    }
    if (text_.Remaining() < SizeOf(type)) return false;
    value = ValueAt(text_.Place(), type, format_ == PlyFormat::BigEndian);
    text_.Advance(SizeOf(type));
    return true;
  }

  // False when the entries can't be there.
  bool ReadListCount(const PlyProperty& property, std::size_t& count) {
    double value = 0;
    if (!ReadValue(*property.countType, value) || !(value >= 0) || value != std::floor(value)) return false;
    const std::size_t perEntry = format_ == PlyFormat::Ascii ? 1 : SizeOf(property.type);
    if (value > static_cast<double>(text_.Remaining() / perEntry)) return false;
    count = static_cast<std::size_t>(value);
    return true;
  }

  bool PassProperty(const PlyProperty& property) {
    std::size_t count = 1;
    if (property.countType && !ReadListCount(property, count)) return false;
    if (format_ != PlyFormat::Ascii) {
      if (text_.Remaining() < count * SizeOf(property.type)) return false;
      text_.Advance(count * SizeOf(property.type));
      return true;
    }
    for (std::size_t i = 0; i < count; ++i) {
      text_.SkipBlanks();
      if (text_.Word().empty()) return false;
    }
    return true;
  }

  TextCursor text_;
  const char* begin_ = text_.Place();
  std::string_view name_;
  PlyFormat format_ = PlyFormat::Ascii;
  bool inBody_ = false;
  std::vector<PlyElement> elements_;
  MeshBuilder builder_;
};

}  // namespace

Result<PolygonObject> ParsePly(std::string_view content, std::string_view name) {
  return PlyReader(content, name).Read();
}

std::string_view PlyEncoding(std::string_view content) { return PlyReader(content, "").Encoding(); }

}  // namespace orlix
