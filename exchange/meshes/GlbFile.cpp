// glTF 2.0 as one binary file (Khronos Group 2017): a header, a chunk of JSON, a chunk of arrays.

#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <cctype>
#include <limits>
#include <vector>

#include "exchange/meshes/MeshFiles.h"

namespace orlix {

namespace {

constexpr int kFloatComponents = 5126, kIndexComponents = 5125, kPointTarget = 34962, kIndexTarget = 34963;

// Arrays of floats behind each other, and the JSON that describes them.
struct GlbArrays {
  std::string accessors, views, attributes;
  std::vector<std::pair<const std::vector<Vec3D>*, const PolygonObject::Attribute*>> written;
  std::uint64_t bytes = 0;
  int count = 0;

  void Add(const std::string& name, int components, std::uint64_t points, const std::string& range) {
    if (count > 0) accessors += ",", views += ",", attributes += ",";
    accessors += fmt::format(R"({{"bufferView":{},"componentType":{},"count":{},"type":"{}"{}}})", count,
                             kFloatComponents, points, components == 3 ? "VEC3" : "SCALAR", range);
    const std::uint64_t size = points * static_cast<std::uint64_t>(components) * 4;
    views += fmt::format(R"({{"buffer":0,"byteOffset":{},"byteLength":{},"target":{}}})", bytes, size, kPointTarget);
    attributes += fmt::format(R"("{}":{})", name, count++);
    bytes += size;
  }
};

// The range of the narrowed points, which a reader frames them by.
std::string RangeOf(const std::vector<Vec3D>& points) {
  std::string low, high;
  for (int axis = 0; axis < 3; ++axis) {
    float least = static_cast<float>(points[0][axis]), most = least;
    for (const Vec3D& point : points) {
      least = std::min(least, static_cast<float>(point[axis])), most = std::max(most, static_cast<float>(point[axis]));
    }
    low += fmt::format("{}{}", axis > 0 ? "," : "", least), high += fmt::format("{}{}", axis > 0 ? "," : "", most);
  }
  return fmt::format(R"(,"min":[{}],"max":[{}])", low, high);
}

// "_WETNESS": letters, digits and underscores.
std::string AttributeName(const std::string& name) {
  std::string upper = "_";
  for (const char c : name) {
    const auto byte = static_cast<unsigned char>(c);
    upper += std::isalnum(byte) ? static_cast<char>(std::toupper(byte)) : '_';
  }
  return upper;
}

void Append(std::string& bytes, std::uint32_t value) {
  for (int shift = 0; shift < 32; shift += 8) bytes += static_cast<char>(value >> shift & 0xff);
}

void FlushBytes(std::string& bytes, std::ostream& out, std::size_t above) {
  if (bytes.size() <= above) return;
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  bytes.clear();
}

template <class Values>
void WriteFloats(const Values& values, std::ostream& out) {
  std::string bytes;
  for (const auto& value : values) {
    if constexpr (std::is_same_v<Values, std::vector<Vec3D>>) {
      for (int axis = 0; axis < 3; ++axis) Append(bytes, std::bit_cast<std::uint32_t>(static_cast<float>(value[axis])));
    } else {
      Append(bytes, std::bit_cast<std::uint32_t>(static_cast<float>(value)));
    }
    FlushBytes(bytes, out, 1 << 16);
  }
  FlushBytes(bytes, out, 0);
}

std::uint64_t CornersOf(const PolygonObject& mesh) {
  std::uint64_t corners = 0;
  for (const PolygonObject::Polygon& polygon : mesh.polygons) corners += polygon.IsTriangle() ? 3 : 6;
  return corners;
}

void WriteIndices(const PolygonObject& mesh, std::ostream& out) {
  std::string bytes;
  for (const PolygonObject::Polygon& polygon : mesh.polygons) {
    for (const std::int32_t corner : {polygon.a, polygon.b, polygon.c})
      Append(bytes, static_cast<std::uint32_t>(corner));
    if (!polygon.IsTriangle()) {
      for (const std::int32_t corner : {polygon.a, polygon.c, polygon.d}) {
        Append(bytes, static_cast<std::uint32_t>(corner));
      }
    }
    FlushBytes(bytes, out, 1 << 16);
  }
  FlushBytes(bytes, out, 0);
}

// Names would have to differ: the second of one name is left out.
GlbArrays ArraysOf(const PolygonObject& mesh) {
  GlbArrays arrays;
  const std::size_t points = mesh.points.size();
  arrays.Add("POSITION", 3, points, RangeOf(mesh.points));
  arrays.written.push_back({&mesh.points, nullptr});
  if (mesh.normals.size() == points) {
    arrays.Add("NORMAL", 3, points, "");
    arrays.written.push_back({&mesh.normals, nullptr});
  }
  if (mesh.velocities.size() == points) {
    arrays.Add("_VELOCITY", 3, points, "");
    arrays.written.push_back({&mesh.velocities, nullptr});
  }
  for (const PolygonObject::Attribute& attribute : mesh.attributes) {
    const std::string name = AttributeName(attribute.name);
    if (arrays.attributes.find("\"" + name + "\"") != std::string::npos) continue;
    arrays.Add(name, attribute.components, points, "");
    arrays.written.push_back({nullptr, &attribute});
  }
  return arrays;
}

// The node's place in glTF's space: metres, y upwards.
std::string Placing(const FileUnits& units) {
  const double scale = units.metresPerUnit > 0 ? units.metresPerUnit : 1;
  std::string text = fmt::format(R"("scale":[{0},{0},{0}])", scale);
  if (units.upZ) text += R"(,"rotation":[-0.7071067811865476,0,0,0.7071067811865476])";
  return text;
}

}  // namespace

Status WriteGlb(const PolygonObject& mesh, const FileUnits& units, std::ostream& out) {
  constexpr std::uint32_t kGlbMagic = 0x46546C67, kJsonChunk = 0x4E4F534A, kArrayChunk = 0x004E4942;
  std::string json = R"({"asset":{"version":"2.0","generator":"Orlix"},"scene":0,)";
  std::uint64_t bytes = 0;
  const std::uint64_t corners = CornersOf(mesh);
  GlbArrays arrays;
  if (mesh.points.empty() || corners == 0) {
    json += R"("scenes":[{}]})";  // arrays may not be empty
  } else {
    arrays = ArraysOf(mesh);
    bytes = arrays.bytes + corners * 4;
    json += fmt::format(
        R"("scenes":[{{"nodes":[0]}}],"nodes":[{{"mesh":0,{}}}],"meshes":[{{"primitives":[{{"attributes":{{{}}},)"
        R"("indices":{}}}]}}],"accessors":[{},{{"bufferView":{},"componentType":{},"count":{},"type":"SCALAR"}}],)"
        R"("bufferViews":[{},{{"buffer":0,"byteOffset":{},"byteLength":{},"target":{}}}],"buffers":[{{"byteLength":{}}}]}})",
        Placing(units), arrays.attributes, arrays.count, arrays.accessors, arrays.count, kIndexComponents, corners,
        arrays.views, arrays.bytes, corners * 4, kIndexTarget, bytes);
  }
  json.resize((json.size() + 3) / 4 * 4, ' ');
  const std::uint64_t total = 12 + 8 + json.size() + (bytes > 0 ? 8 + bytes : 0);
  if (total > std::numeric_limits<std::uint32_t>::max()) {
    return Status::Fail(ErrorKind::Output, "the mesh takes more than the 4 GB of a glTF file");
  }
  std::string head;
  for (const std::uint32_t n :
       {kGlbMagic, 2u, static_cast<std::uint32_t>(total), static_cast<std::uint32_t>(json.size()), kJsonChunk}) {
    Append(head, n);
  }
  head += json;
  if (bytes > 0) Append(head, static_cast<std::uint32_t>(bytes)), Append(head, kArrayChunk);
  FlushBytes(head, out, 0);
  for (const auto& [vectors, attribute] : arrays.written) {
    vectors ? WriteFloats(*vectors, out) : WriteFloats(attribute->values, out);
  }
  if (bytes > 0) WriteIndices(mesh, out);
  return {};
}

}  // namespace orlix
