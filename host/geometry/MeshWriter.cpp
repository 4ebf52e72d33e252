#include "host/geometry/MeshWriter.h"

#include <fmt/format.h>

#include <bit>
#include <cctype>
#include <iterator>
#include <string>

namespace orlix {

namespace {

constexpr std::size_t kFlushAt = 1 << 16;

void Append32(std::string& bytes, std::uint32_t value) {
  for (int shift = 0; shift < 32; shift += 8) bytes.push_back(static_cast<char>(value >> shift & 0xff));
}
void AppendFloat(std::string& bytes, double value) {
  Append32(bytes, std::bit_cast<std::uint32_t>(static_cast<float>(value)));
}
void AppendVector(std::string& bytes, const Vec3D& v) {
  for (int axis = 0; axis < 3; ++axis) AppendFloat(bytes, v[axis]);
}
void Flush(std::string& bytes, std::ostream& out, std::size_t above) {
  if (bytes.size() <= above) return;
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  bytes.clear();
}

bool HasAll(const PolygonObject& mesh, const std::vector<Vec3D>& ofPoints) {
  return !ofPoints.empty() && ofPoints.size() == mesh.points.size();
}
int CornerCount(const PolygonObject::Polygon& polygon) { return polygon.IsTriangle() ? 3 : 4; }

// A word that no reader trips over: letters, digits and underscores, and none of the names that this file gives.
std::string PropertyName(const PolygonObject::Attribute& attribute, int component) {
  std::string name;
  for (const char c : attribute.name) name.push_back(std::isalnum(static_cast<unsigned char>(c)) ? c : '_');
  for (const char* taken : {"", "x", "y", "z", "nx", "ny", "nz", "vx", "vy", "vz"}) {
    if (name == taken) return "value_" + name;
  }
  return attribute.components == 1 ? name : name + "_" + "xyz"[component];
}

}  // namespace

void WriteObj(const PolygonObject& mesh, std::ostream& out) {
  std::string text;
  const auto end = std::back_inserter(text);
  for (const Vec3D& p : mesh.points) {
    fmt::format_to(end, "v {} {} {}\n", p.x, p.y, p.z);
    Flush(text, out, kFlushAt);
  }
  const bool smooth = HasAll(mesh, mesh.normals);
  if (smooth) {
    for (const Vec3D& n : mesh.normals) {
      fmt::format_to(end, "vn {} {} {}\n", n.x, n.y, n.z);
      Flush(text, out, kFlushAt);
    }
  }
  for (const PolygonObject::Polygon& polygon : mesh.polygons) {
    const std::int32_t corners[4] = {polygon.a, polygon.b, polygon.c, polygon.d};
    text.push_back('f');
    for (int c = 0; c < CornerCount(polygon); ++c) {
      smooth ? fmt::format_to(end, " {0}//{0}", corners[c] + 1) : fmt::format_to(end, " {}", corners[c] + 1);
    }
    text.push_back('\n');
    Flush(text, out, kFlushAt);
  }
  Flush(text, out, 0);
}

void WritePly(const PolygonObject& mesh, std::ostream& out, std::string_view comments) {
  const bool smooth = HasAll(mesh, mesh.normals), moving = HasAll(mesh, mesh.velocities);
  const auto properties = [&](std::string_view names) {
    for (const std::string_view name : {names.substr(0, 2), names.substr(2, 2), names.substr(4, 2)}) {
      out << "property float " << name << '\n';
    }
  };
  out << "ply\nformat binary_little_endian 1.0\n"
      << comments << "element vertex " << mesh.points.size()
      << "\nproperty float x\nproperty float y\nproperty float z\n";
  if (smooth) properties("nxnynz");
  if (moving) properties("vxvyvz");
  for (const PolygonObject::Attribute& attribute : mesh.attributes) {
    for (int c = 0; c < attribute.components; ++c) {
      out << "property float " << PropertyName(attribute, c) << '\n';
    }
  }
  out << "element face " << mesh.polygons.size() << "\nproperty list uchar int vertex_indices\nend_header\n";
  std::string bytes;
  for (std::size_t i = 0; i < mesh.points.size(); ++i) {
    AppendVector(bytes, mesh.points[i]);
    if (smooth) AppendVector(bytes, mesh.normals[i]);
    if (moving) AppendVector(bytes, mesh.velocities[i]);
    for (const PolygonObject::Attribute& attribute : mesh.attributes) {
      const auto components = static_cast<std::size_t>(attribute.components);
      for (std::size_t c = 0; c < components; ++c) AppendFloat(bytes, attribute.values[i * components + c]);
    }
    Flush(bytes, out, kFlushAt);
  }
  for (const PolygonObject::Polygon& polygon : mesh.polygons) {
    const std::int32_t corners[4] = {polygon.a, polygon.b, polygon.c, polygon.d};
    bytes.push_back(static_cast<char>(CornerCount(polygon)));
    for (int c = 0; c < CornerCount(polygon); ++c) Append32(bytes, static_cast<std::uint32_t>(corners[c]));
    Flush(bytes, out, kFlushAt);
  }
  Flush(bytes, out, 0);
}

void WriteStl(const PolygonObject& mesh, std::ostream& out, std::string_view text) {
  constexpr std::size_t kHead = 80;
  std::string bytes(text.substr(0, kHead));
  bytes.resize(kHead);
  std::uint32_t triangles = 0;
  for (const PolygonObject::Polygon& polygon : mesh.polygons) triangles += polygon.IsTriangle() ? 1 : 2;
  Append32(bytes, triangles);
  const auto triangle = [&](std::int32_t a, std::int32_t b, std::int32_t c) {
    const Vec3D corners[] = {mesh.points[static_cast<std::size_t>(a)], mesh.points[static_cast<std::size_t>(b)],
                             mesh.points[static_cast<std::size_t>(c)]};
    AppendVector(bytes, Normalized(Cross(corners[1] - corners[0], corners[2] - corners[0])));
    for (const Vec3D& corner : corners) AppendVector(bytes, corner);
    bytes.append(2, '\0');
  };
  for (const PolygonObject::Polygon& polygon : mesh.polygons) {
    triangle(polygon.a, polygon.b, polygon.c);
    if (!polygon.IsTriangle()) triangle(polygon.a, polygon.c, polygon.d);
    Flush(bytes, out, kFlushAt);
  }
  Flush(bytes, out, 0);
}

}  // namespace orlix
