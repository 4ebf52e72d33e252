// PLY meshes: taken are x, y, z and nx, ny, nz of "vertex" and the corner list of "face".

#include <algorithm>
#include <cmath>
#include <vector>

#include "host/geometry/MeshBuilder.h"
#include "host/geometry/MeshReader.h"
#include "host/geometry/PlyHeader.h"

namespace orlix {

namespace {

class PlyReader {
 public:
  PlyReader(std::string_view content, std::string_view name) : text_(content), name_(name) {}

  Result<PolygonObject> Read() {
    if (Status status = ReadHeader(); !status) return status.error();
    for (const char* needed : {"vertex", "face"}) {
      if (std::none_of(header_.elements.begin(), header_.elements.end(),
                       [&](const PlyElement& e) { return e.name == needed; })) {
        return Fail(begin_, fmt::format("the header declares no element \"{}\"", needed)).error();
      }
    }
    for (const PlyElement& element : header_.elements) {
      if (Status status = ReadElement(element); !status) return status.error();
    }
    text_.SkipBlanksAndLines();
    if (!text_.AtEnd()) return Fail(text_.Place(), "there is more after the last element").error();
    return builder_.Finish([&](std::size_t place) { return Where(begin_ + place); }, 0);
  }

  // What the header says; empty for one that can't be read.
  std::string_view Encoding() {
    if (!ReadHeader()) return "";
    return NameOf(header_.format);
  }

 private:
  std::string Where(const char* place) const {
    if (inBody_ && header_.format != PlyFormat::Ascii) return fmt::format("{}: byte {}", name_, place - begin_);
    return fmt::format("{}:{}", name_, text_.LineOf(place));
  }
  Status Fail(const char* place, std::string_view what) const {
    return Status::Fail(ErrorKind::InputFile, fmt::format("{}: {}", Where(place), what));
  }
  Status FailAtEnd() const { return Fail(begin_ + text_.Offset() + text_.Remaining(), "the file ends too early"); }

  Status ReadHeader() {
    Result<PlyHeader> header = PlyHeader::Read(text_, name_);
    if (!header) return header.error();
    header_ = std::move(*header);
    inBody_ = true;
    return {};
  }

  Status ReadElement(const PlyElement& element) {
    if (element.LeastBytes(header_.format) == 0) return {};
    if (Status fits = header_.TestCount(element, text_, Where(text_.Place())); !fits) return fits;
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
    double values[6] = {}, ignored = 0;
    std::vector<double*> targets(element.properties.size(), &ignored);
    int found = 0;
    for (const char* name : {"x", "y", "z", "nx", "ny", "nz"}) {
      const int at = element.IndexOf(name);
      if (at < 0 || element.properties[static_cast<std::size_t>(at)].countType) break;
      targets[static_cast<std::size_t>(at)] = &values[found++];
    }
    if (found < 3) return Fail(text_.Place(), "a vertex needs the properties x, y and z");
    builder_.ReservePoints(element.count);
    for (std::uint64_t v = 0; v < element.count; ++v) {
      const char* begin = StartOfElement();
      for (std::size_t p = 0; p < targets.size(); ++p) {
        const PlyProperty& property = element.properties[p];
        if (property.countType ? !PassProperty(property) : !ReadValue(property.type, *targets[p]))
          return FailValue(begin);
      }
      if (!AtElementEnd()) return FailRest(begin);
      if (!builder_.AddPoint({values[0], values[1], values[2]}))
        return Fail(begin, "a point's coordinates must be finite numbers");
      if (found == 6) builder_.AddNormal({values[3], values[4], values[5]});
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
    if (header_.format == PlyFormat::Ascii) text_.SkipBlanksAndLines();
    return text_.Place();
  }
  // In a text each element has a line of its own.
  bool AtElementEnd() {
    if (header_.format != PlyFormat::Ascii) return true;
    text_.SkipBlanks();
    return text_.AtLineEnd();
  }
  Status FailRest(const char* begin) const { return Fail(begin, "the line has more than the element's numbers"); }
  Status FailValue(const char* begin) const {
    return header_.format == PlyFormat::Ascii && !text_.AtEnd()
               ? Fail(begin, "a number is missing or a count is too large")
               : FailAtEnd();
  }

  bool ReadValue(PlyType type, double& value) {
    if (header_.format == PlyFormat::Ascii) {
      text_.SkipBlanks();
      return text_.Number(value);
    }
    if (text_.Remaining() < SizeOf(type)) return false;
    value = PlyValueAt(text_.Place(), type, header_.format == PlyFormat::BigEndian);
    text_.Advance(SizeOf(type));
    return true;
  }

  // False when the entries can't be there.
  bool ReadListCount(const PlyProperty& property, std::size_t& count) {
    double value = 0;
    if (!ReadValue(*property.countType, value) || !(value >= 0) || value != std::floor(value)) return false;
    const std::size_t perEntry = header_.format == PlyFormat::Ascii ? 1 : SizeOf(property.type);
    if (value > static_cast<double>(text_.Remaining() / perEntry)) return false;
    count = static_cast<std::size_t>(value);
    return true;
  }

  bool PassProperty(const PlyProperty& property) {
    std::size_t count = 1;
    if (property.countType && !ReadListCount(property, count)) return false;
    if (header_.format != PlyFormat::Ascii) {
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
  bool inBody_ = false;
  PlyHeader header_;
  MeshBuilder builder_;
};

}  // namespace

Result<PolygonObject> ParsePly(std::string_view content, std::string_view name) {
  return PlyReader(content, name).Read();
}

std::string_view PlyEncoding(std::string_view content) { return PlyReader(content, "").Encoding(); }

}  // namespace orlix
