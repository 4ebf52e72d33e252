// STL. Binary: 80 bytes of anything, a count, and 50 bytes a triangle (normal, three points, two bytes of attributes),
// little endian. Ascii: "facet normal ... outer loop vertex x y z ... endloop endfacet".
//
// Many binary files begin with "solid" as an ascii one does, so a size that fits the count exactly decides first.

#include <bit>
#include <cstring>
#include <vector>

#include "host/geometry/MeshBuilder.h"
#include "host/geometry/MeshReader.h"

namespace orlix {

namespace {

constexpr std::size_t kHeaderBytes = 84, kTriangleBytes = 50, kNormalBytes = 12;

// Numbers each distinct point once: open addressing over the coordinates' bits.
class PointJoiner {
 public:
  explicit PointJoiner(MeshBuilder& builder) : builder_(builder) { Grow(); }

  // The point's number; below 0 when it is no finite point.
  std::int64_t Number(const Vec3D& given) {
    const Vec3D point = given + Vec3D();  // -0 becomes 0
    std::size_t slot = Hash(point) & mask_;
    for (; slots_[slot] >= 0; slot = (slot + 1) & mask_) {
      if (points_[static_cast<std::size_t>(slots_[slot])] == point) return slots_[slot];
    }
    const auto number = static_cast<std::int64_t>(points_.size());
    if (!builder_.AddPoint(point)) return -1;
    slots_[slot] = number;
    points_.push_back(point);
    if (points_.size() * 2 > slots_.size()) Grow();
    return number;
  }

 private:
  static std::size_t Hash(const Vec3D& p) {
    std::uint64_t h = 0;
    for (int axis = 0; axis < 3; ++axis) {
      h = (h ^ std::bit_cast<std::uint64_t>(p[axis])) * 0x9e3779b97f4a7c15ull;
      h ^= h >> 29;
    }
    return static_cast<std::size_t>(h);
  }
  void Grow() {
    const std::size_t size = slots_.empty() ? 1024 : slots_.size() * 4;
    slots_.assign(size, -1);
    mask_ = size - 1;
    for (std::size_t i = 0; i < points_.size(); ++i) {
      std::size_t slot = Hash(points_[i]) & mask_;
      while (slots_[slot] >= 0) slot = (slot + 1) & mask_;
      slots_[slot] = static_cast<std::int64_t>(i);
    }
  }

  MeshBuilder& builder_;
  std::vector<std::int64_t> slots_;
  std::vector<Vec3D> points_;
  std::size_t mask_ = 0;
};

std::uint32_t LittleEndian32(const char* at) {
  unsigned char bytes[4];
  std::memcpy(bytes, at, 4);
  return std::uint32_t(bytes[0]) | std::uint32_t(bytes[1]) << 8 | std::uint32_t(bytes[2]) << 16 |
         std::uint32_t(bytes[3]) << 24;
}

Error NotFinite(const std::string& where) {
  return {ErrorKind::InputFile, fmt::format("{}: a point's coordinates must be finite numbers", where)};
}

Result<PolygonObject> ReadBinary(std::string_view content, std::uint64_t triangles, std::string_view name) {
  MeshBuilder builder;
  PointJoiner joiner(builder);
  const auto where = [&](std::size_t byte) { return fmt::format("{}: byte {}", name, byte); };
  for (std::uint64_t t = 0; t < triangles; ++t) {
    const std::size_t begin = kHeaderBytes + t * kTriangleBytes + kNormalBytes;
    std::int64_t corners[3];
    for (std::size_t c = 0; c < 3; ++c) {
      Vec3D point;
      for (int axis = 0; axis < 3; ++axis) {
        point[axis] = std::bit_cast<float>(LittleEndian32(content.data() + begin + c * 12 + std::size_t(axis) * 4));
      }
      corners[c] = joiner.Number(point);
      if (corners[c] < 0) return NotFinite(where(begin + c * 12));
    }
    builder.AddPolygon(corners, begin);
  }
  return builder.Finish(where, 0);
}

Result<PolygonObject> ReadAscii(std::string_view content, std::string_view name) {
  MeshBuilder builder;
  PointJoiner joiner(builder);
  TextCursor text(content);
  const char* begin = text.Place();
  const auto where = [&](std::size_t place) { return fmt::format("{}:{}", name, text.LineOf(begin + place)); };
  std::vector<std::int64_t> corners;
  for (text.SkipBlanksAndLines(); !text.AtEnd(); text.SkipBlanksAndLines()) {
    const std::size_t place = text.Offset();
    const std::string_view word = text.Word();
    if (word == "solid" || word == "endsolid") {
      text.Line();
    } else if (word == "vertex") {
      Vec3D point;
      for (int axis = 0; axis < 3; ++axis) {
        text.SkipBlanks();
        if (!text.Number(point[axis])) {
          return Error{ErrorKind::InputFile, fmt::format("{}: a vertex needs three numbers", where(place))};
        }
      }
      corners.push_back(joiner.Number(point));
      if (corners.back() < 0) return NotFinite(where(place));
    } else if (word == "endloop") {
      builder.AddPolygon(corners, place);
      corners.clear();
    } else if (word == "facet") {
      text.Line();  // its normal
    } else if (word != "outer" && word != "loop" && word != "endfacet") {
      return Error{ErrorKind::InputFile, fmt::format("{}: unknown word \"{}\"", where(place), word.substr(0, 40))};
    }
  }
  if (!corners.empty()) {
    return Error{ErrorKind::InputFile, fmt::format("{}: the file ends inside a facet", where(content.size()))};
  }
  return builder.Finish(where, 0);
}

struct StlShape {
  bool hasCount = false;
  std::uint64_t triangles = 0, needed = 0;  // bytes that the count asks for
  bool isText = false;
};

StlShape ShapeOf(std::string_view content) {
  StlShape shape;
  shape.hasCount = content.size() >= kHeaderBytes;
  shape.triangles = shape.hasCount ? LittleEndian32(content.data() + kHeaderBytes - 4) : 0;
  shape.needed = kHeaderBytes + shape.triangles * kTriangleBytes;
  if (shape.hasCount && shape.needed == content.size()) return shape;
  TextCursor start(content);
  start.SkipBlanksAndLines();
  shape.isText = start.Word() == "solid";
  return shape;
}

}  // namespace

Result<PolygonObject> ParseStl(std::string_view content, std::string_view name) {
  const StlShape shape = ShapeOf(content);
  if (shape.isText) return ReadAscii(content, name);
  if (!shape.hasCount) {
    return Error{ErrorKind::InputFile, fmt::format("{}: {} bytes are too few for an STL file", name, content.size())};
  }
  if (shape.needed == content.size()) return ReadBinary(content, shape.triangles, name);
  return Error{ErrorKind::InputFile, fmt::format("{}: byte {}: {} triangles need {} bytes, the file has {}", name,
                                                 kHeaderBytes - 4, shape.triangles, shape.needed, content.size())};
}

std::string_view StlEncoding(std::string_view content) { return ShapeOf(content).isText ? "text" : "binary"; }

}  // namespace orlix
