// glTF 2.0 (Khronos Group 2017), as one binary file (.glb) or as text with its arrays inside (.gltf). Taken are the
// triangles of the scene that the file shows, each mesh where its nodes put it, in glTF's metres with y upwards:
// places, normals, and what our own writer adds, velocities (_VELOCITY) and values of points (_NAME). A file that needs
// more than that to show its shape (compressed or sparse arrays, arrays in other files, strips) is refused by what it
// needs; bones, morphs and animations are passed over, and the mesh is as it stands without them.

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <cstring>
#include <deque>
#include <nlohmann/json.hpp>
#include <vector>

#include "host/geometry/MeshBuilder.h"
#include "host/geometry/MeshReader.h"

namespace orlix {

namespace {

using Json = nlohmann::json;

constexpr std::uint32_t kVersion = 2, kJsonChunk = 0x4E4F534A, kArrayChunk = 0x004E4942;
constexpr std::uint64_t kTriangles = 4, kByte = 5121, kShort = 5123, kWord = 5125, kFloat = 5126;

std::uint32_t LittleWord(std::string_view bytes, std::size_t at, std::size_t size = 4) {
  std::uint32_t value = 0;
  for (std::size_t i = size; i-- > 0;) value = value << 8 | static_cast<unsigned char>(bytes[at + i]);
  return value;
}

const Json& MemberOf(const Json& object, const char* key) {
  static const Json kNone;
  const auto found = object.is_object() ? object.find(key) : object.end();
  return object.is_object() && found != object.end() ? *found : kNone;
}
const Json& ItemOf(const Json& list, std::uint64_t index) {
  static const Json kNone;
  return list.is_array() && index < list.size() ? list[index] : kNone;
}
// A whole number; otherwise when it isn't there or none.
std::uint64_t WholeOf(const Json& object, const char* key, std::uint64_t otherwise) {
  const Json& value = MemberOf(object, key);
  return value.is_number_unsigned() ? value.get<std::uint64_t>() : otherwise;
}
// `count` numbers of a list; false, and nothing changes, when there are others.
bool NumbersOf(const Json& list, std::size_t count, double* values) {
  if (!list.is_array() || list.size() != count) return false;
  for (const Json& value : list) {
    if (!value.is_number()) return false;
  }
  for (std::size_t i = 0; i < count; ++i) values[i] = list[i].get<double>();
  return true;
}

// The bytes of base 64 (RFC 4648); none for text that isn't.
std::optional<std::string> FromBase64(std::string_view text) {
  while (text.ends_with('=')) text.remove_suffix(1);
  std::string bytes;
  std::uint32_t bits = 0;
  int held = 0;
  for (const char c : text) {
    const int digit = c >= 'A' && c <= 'Z'   ? c - 'A'
                      : c >= 'a' && c <= 'z' ? c - 'a' + 26
                      : c >= '0' && c <= '9' ? c - '0' + 52
                      : c == '+'             ? 62
                      : c == '/'             ? 63
                                             : -1;
    if (digit < 0) return std::nullopt;
    bits = bits << 6 | static_cast<std::uint32_t>(digit);
    held += 6;
    if (held < 8) continue;
    held -= 8;
    bytes += static_cast<char>(bits >> held & 0xff);
  }
  return bytes;
}

// A node's own placing: a matrix, or a scale, a turn by a quaternion and a way.
LMatrix PlacingOf(const Json& node) {
  std::array<double, 16> m{};
  if (NumbersOf(MemberOf(node, "matrix"), 16, m.data())) {
    return {{m[12], m[13], m[14]}, {m[0], m[1], m[2]}, {m[4], m[5], m[6]}, {m[8], m[9], m[10]}};
  }
  double way[3] = {0, 0, 0}, q[4] = {0, 0, 0, 1}, scale[3] = {1, 1, 1};
  NumbersOf(MemberOf(node, "translation"), 3, way);
  NumbersOf(MemberOf(node, "rotation"), 4, q);
  NumbersOf(MemberOf(node, "scale"), 3, scale);
  const Vec3D v(q[0], q[1], q[2]);
  const auto turned = [&](const Vec3D& axis) {
    return axis + (Cross(v, axis) * q[3] + Cross(v, Cross(v, axis))) * 2.0;
  };
  return {{way[0], way[1], way[2]},
          turned({1, 0, 0}) * scale[0],
          turned({0, 1, 0}) * scale[1],
          turned({0, 0, 1}) * scale[2]};
}

class GltfReader {
 public:
  GltfReader(std::string_view content, std::string_view name) : content_(content), name_(name) {}

  Result<PolygonObject> Read() {
    for (const auto step : {&GltfReader::ReadContainer, &GltfReader::ReadBuffers, &GltfReader::ReadNodes}) {
      if (Status status = (this->*step)(); !status) return status.error();
    }
    Result<PolygonObject> mesh = builder_.Finish([&](std::size_t) { return std::string(name_); }, 0);
    if (!mesh) return mesh;
    const std::size_t points = mesh->points.size();
    // What one part lacks the whole hasn't.
    if (normals_.size() == points) mesh->normals = std::move(normals_);
    if (velocities_.size() == points) mesh->velocities = std::move(velocities_);
    if (parts_ == 1) mesh->attributes = std::move(attributes_);
    return mesh;
  }

 private:
  Status Fail(std::string_view what) const {
    return Status::Fail(ErrorKind::InputFile, fmt::format("{}: {}", name_, what));
  }

  Status ReadContainer() {
    std::string_view text = content_;
    if (content_.starts_with("glTF")) {
      if (content_.size() < 20) return Fail("the file ends too early");
      if (LittleWord(content_, 4) != kVersion)
        return Fail(fmt::format("glTF of version {}; version 2 is read", LittleWord(content_, 4)));
      if (LittleWord(content_, 8) != content_.size()) return Fail("damaged: it hasn't the size that it names");
      const std::size_t size = LittleWord(content_, 12), after = 20 + size;
      if (LittleWord(content_, 16) != kJsonChunk || size > content_.size() - 20)
        return Fail("damaged: its description doesn't fit");
      text = content_.substr(20, size);
      if (after < content_.size()) {
        if (content_.size() - after < 8 || LittleWord(content_, after) > content_.size() - after - 8)
          return Fail("damaged: its arrays don't fit");
        if (LittleWord(content_, after + 4) == kArrayChunk)
          arrays_ = content_.substr(after + 8, LittleWord(content_, after));
      }
    }
    json_ = Json::parse(text, nullptr, false);
    if (!json_.is_object() || !MemberOf(json_, "asset").is_object())
      return Fail("no glTF: its description can't be read");
    for (const Json& extension : MemberOf(json_, "extensionsRequired")) {
      return Fail(fmt::format("it needs the extension {}, which isn't read; write it without",
                              extension.is_string() ? extension.get<std::string>() : "?"));
    }
    return {};
  }

  Status ReadBuffers() {
    for (const Json& buffer : MemberOf(json_, "buffers")) {
      const Json& uri = MemberOf(buffer, "uri");
      std::optional<std::string_view> bytes;
      if (uri.is_null()) {
        bytes = buffers_.empty() ? arrays_ : std::string_view();
      } else if (uri.is_string()) {
        const auto& text = uri.get_ref<const std::string&>();
        const std::size_t at = text.find(";base64,");
        if (!text.starts_with("data:") || at == std::string::npos)
          return Fail(fmt::format("its arrays are in another file, {}; write it as .glb", text.substr(0, 80)));
        if (std::optional<std::string> own = FromBase64(std::string_view(text).substr(at + 8)))
          bytes = unpacked_.emplace_back(std::move(*own));
      }
      if (!bytes || bytes->size() < WholeOf(buffer, "byteLength", ~std::uint64_t(0)))
        return Fail(fmt::format("damaged: buffer {} isn't whole", buffers_.size()));
      buffers_.push_back(*bytes);
    }
    return {};
  }

  // Depth first, in the file's order. A node that comes twice would go on for ever.
  Status ReadNodes() {
    const Json& nodes = MemberOf(json_, "nodes");
    std::vector<bool> seen(nodes.size());
    std::vector<std::pair<std::uint64_t, LMatrix>> open;
    const auto add = [&](const Json& list, const LMatrix& above) {
      for (std::size_t n = list.is_array() ? list.size() : 0; n-- > 0;) {
        open.emplace_back(list[n].is_number_unsigned() ? list[n].get<std::uint64_t>() : nodes.size(), above);
      }
    };
    add(MemberOf(ItemOf(MemberOf(json_, "scenes"), WholeOf(json_, "scene", 0)), "nodes"), {});
    while (!open.empty()) {
      const auto [index, above] = open.back();
      open.pop_back();
      if (index >= seen.size() || seen[index])
        return Fail(fmt::format("damaged: node {} is missing or twice there", index));
      seen[index] = true;
      const Json& node = ItemOf(nodes, index);
      const LMatrix placing = above * PlacingOf(node);
      if (node.is_object() && node.contains("mesh")) {
        const Json& primitives =
            MemberOf(ItemOf(MemberOf(json_, "meshes"), WholeOf(node, "mesh", ~0ull)), "primitives");
        for (const Json& primitive : primitives) {
          if (Status status = ReadPart(primitive, placing); !status) return status;
        }
      }
      add(MemberOf(node, "children"), placing);
    }
    return {};
  }

  // Where an accessor's values lie.
  struct Values {
    std::string_view bytes;
    std::uint64_t count = 0, stride = 0, type = 0;
  };

  Status Find(const Json& primitiveValue, const char* what, const char* shape, Values& values) const {
    const auto broken = [&] { return Fail(fmt::format("damaged: its {} lie beyond its arrays", what)); };
    const Json& accessor = ItemOf(MemberOf(json_, "accessors"),
                                  primitiveValue.is_number_unsigned() ? primitiveValue.get<std::uint64_t>() : ~0ull);
    if (accessor.is_object() && accessor.contains("sparse"))
      return Fail(fmt::format("its {} are a sparse array, which isn't read", what));
    const Json& view = ItemOf(MemberOf(json_, "bufferViews"), WholeOf(accessor, "bufferView", ~0ull));
    if (!view.is_object() || MemberOf(accessor, "type") != shape) return broken();
    const std::uint64_t buffer = WholeOf(view, "buffer", ~0ull);
    if (buffer >= buffers_.size()) return broken();
    std::string_view bytes = buffers_[buffer];
    const std::uint64_t from = WholeOf(view, "byteOffset", 0), length = WholeOf(view, "byteLength", 0),
                        skip = WholeOf(accessor, "byteOffset", 0);
    if (from > bytes.size() || length > bytes.size() - from || skip > length) return broken();
    values.bytes = bytes.substr(from, length).substr(skip);
    values.type = WholeOf(accessor, "componentType", 0);
    values.count = WholeOf(accessor, "count", 0);
    const std::uint64_t number = values.type == kByte ? 1 : values.type == kShort ? 2 : 4;
    const std::uint64_t size = number * (std::string_view(shape) == "VEC3" ? 3 : 1);
    values.stride = WholeOf(view, "byteStride", size);
    constexpr std::uint64_t kMostStride = 252;  // of the format
    if (values.stride < number || values.stride > kMostStride) return broken();
    if (values.count > 0 &&
        (values.bytes.size() < size || values.count - 1 > (values.bytes.size() - size) / values.stride))
      return broken();
    return {};
  }

  // A few bytes can name the same arrays over and over.
  Status CountRead(std::uint64_t numbers) {
    read_ += numbers;
    const bool most = read_ > std::max<std::uint64_t>(std::uint64_t(1) << 22, 64 * content_.size());
    return most ? Fail("it shows its arrays too often") : Status();
  }

  Status ReadFloats(const Json& at, const char* what, const char* shape, std::uint64_t count,
                    std::vector<double>& numbers) {
    Values values;
    if (Status found = Find(at, what, shape, values); !found) return found;
    if (values.type != kFloat) return Fail(fmt::format("its {} are whole numbers, which aren't read", what));
    if (count != 0 && values.count != count)
      return Fail(fmt::format("damaged: {} {} at {} points", values.count, what, count));
    const std::size_t components = std::string_view(shape) == "VEC3" ? 3 : 1;
    if (Status fits = CountRead(values.count * components); !fits) return fits;
    numbers.clear(), numbers.reserve(values.count * components);
    for (std::uint64_t n = 0; n < values.count; ++n) {
      for (std::size_t c = 0; c < components; ++c) {
        const std::uint32_t bits = LittleWord(values.bytes, n * values.stride + 4 * c);
        float number;
        std::memcpy(&number, &bits, 4);
        numbers.push_back(double(number));
      }
    }
    return {};
  }

  Status ReadPart(const Json& primitive, const LMatrix& placing) {
    if (WholeOf(primitive, "mode", kTriangles) != kTriangles)
      return Fail("it has lines, dots or strips; triangles are read");
    const Json& attributes = MemberOf(primitive, "attributes");
    std::vector<double> numbers;
    if (Status read = ReadFloats(MemberOf(attributes, "POSITION"), "points", "VEC3", 0, numbers); !read) return read;
    const std::size_t first = builder_.PointCount(), points = numbers.size() / 3;
    if (points == 0) return Fail("damaged: a mesh without points");
    ++parts_;
    for (std::size_t p = 0; p < points; ++p) {
      if (!builder_.AddPoint(placing * Vec3D(numbers[3 * p], numbers[3 * p + 1], numbers[3 * p + 2])))
        return Fail("a point's coordinates must be finite numbers");
    }
    if (Status read = ReadTriangles(primitive, first, points, placing.Determinant() < 0); !read) return read;
    for (auto each = attributes.begin(); each != attributes.end(); ++each) {
      if (Status read = ReadAttribute(each.key(), each.value(), placing, first, points); !read) return read;
    }
    return {};
  }

  // A node that mirrors turns triangles inside out.
  Status ReadTriangles(const Json& primitive, std::size_t first, std::size_t points, bool mirrored) {
    Values values;
    values.count = points;
    const bool indexed = primitive.contains("indices");
    if (indexed) {
      if (Status found = Find(MemberOf(primitive, "indices"), "triangles", "SCALAR", values); !found) return found;
      if (values.type != kByte && values.type != kShort && values.type != kWord)
        return Fail("damaged: its triangles are no whole numbers");
    }
    if (values.count % 3 != 0) return Fail(fmt::format("damaged: {} corners of triangles", values.count));
    if (Status fits = CountRead(values.count); !fits) return fits;
    const std::size_t size = values.type == kByte ? 1 : values.type == kShort ? 2 : 4;
    std::array<std::int64_t, 3> corners;
    for (std::uint64_t n = 0; n < values.count; ++n) {
      const std::uint64_t corner = indexed ? LittleWord(values.bytes, n * values.stride, size) : n;
      if (corner >= points)
        return Fail(fmt::format("a face names point {}, its mesh has points 0 to {}", corner, points - 1));
      corners[n % 3] = static_cast<std::int64_t>(first + corner);
      if (n % 3 != 2) continue;
      if (mirrored) std::swap(corners[1], corners[2]);
      builder_.AddPolygon(corners, 0);
    }
    return {};
  }

  // Texture coordinates, colours, bones and tangents are passed over.
  Status ReadAttribute(const std::string& name, const Json& at, const LMatrix& placing, std::size_t first,
                       std::size_t points) {
    const bool normals = name == "NORMAL", velocities = name == "_VELOCITY";
    if (!normals && (!name.starts_with('_') || (!velocities && parts_ > 1))) return {};
    const Json& accessor =
        ItemOf(MemberOf(json_, "accessors"), at.is_number_unsigned() ? at.get<std::uint64_t>() : ~0ull);
    const bool vector = normals || velocities || MemberOf(accessor, "type") == "VEC3";
    std::vector<double> numbers;
    if (Status read = ReadFloats(at, name.c_str(), vector ? "VEC3" : "SCALAR", points, numbers); !read) return read;
    if (!normals && !velocities) {
      std::string plain = name.substr(1);
      for (char& c : plain) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
      attributes_.push_back({plain, vector ? 3 : 1, std::move(numbers)});
      return {};
    }
    std::vector<Vec3D>& vectors = normals ? normals_ : velocities_;
    if (vectors.size() != first) return {};  // a part before it has none
    // A normal turns by the inverse, transposed.
    const LMatrix inverse = placing.Inverse();
    for (std::size_t p = 0; p < points; ++p) {
      const Vec3D v(numbers[3 * p], numbers[3 * p + 1], numbers[3 * p + 2]);
      if (!IsFinite(v)) return Fail("its vectors must be finite numbers");
      vectors.push_back(velocities ? placing.Rotate(v)
                                   : Normalized(Vec3D(Dot(inverse.v1, v), Dot(inverse.v2, v), Dot(inverse.v3, v))));
    }
    return {};
  }

  std::string_view content_, name_, arrays_;
  Json json_;
  std::deque<std::string> unpacked_;
  std::vector<std::string_view> buffers_;
  std::uint64_t read_ = 0;  // numbers
  MeshBuilder builder_;
  int parts_ = 0;
  std::vector<Vec3D> normals_, velocities_;
  std::vector<PolygonObject::Attribute> attributes_;
};

}  // namespace

Result<PolygonObject> ParseGltf(std::string_view content, std::string_view name) {
  return GltfReader(content, name).Read();
}

}  // namespace orlix
