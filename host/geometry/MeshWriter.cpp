#include "host/geometry/MeshWriter.h"

#include <fmt/format.h>

#include <bit>
#include <iterator>
#include <string>

namespace orlix {

namespace {

constexpr std::size_t kFlushAt = 1 << 16;

void Append32(std::string& bytes, std::uint32_t value) {
  for (int shift = 0; shift < 32; shift += 8) bytes.push_back(static_cast<char>(value >> shift & 0xff));
}
void AppendVector(std::string& bytes, const Vec3D& v) {
  for (int axis = 0; axis < 3; ++axis) Append32(bytes, std::bit_cast<std::uint32_t>(static_cast<float>(v[axis])));
}
void Flush(std::string& bytes, std::ostream& out, std::size_t above) {
  if (bytes.size() <= above) return;
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  bytes.clear();
}

}  // namespace

void WriteObj(const PolygonObject& mesh, std::ostream& out) {
  std::string text;
  const auto end = std::back_inserter(text);
  for (const Vec3D& p : mesh.points) {
    fmt::format_to(end, "v {} {} {}\n", p.x, p.y, p.z);
    Flush(text, out, kFlushAt);
  }
  for (const PolygonObject::Polygon& polygon : mesh.polygons) {
    fmt::format_to(end, "f {} {} {}", polygon.a + 1, polygon.b + 1, polygon.c + 1);
    if (!polygon.IsTriangle()) fmt::format_to(end, " {}", polygon.d + 1);
    text.push_back('\n');
    Flush(text, out, kFlushAt);
  }
  Flush(text, out, 0);
}

void WritePly(const PolygonObject& mesh, std::span<const Vec3D> velocities, std::ostream& out) {
  const bool moving = velocities.size() == mesh.points.size() && !velocities.empty();
  out << "ply\nformat binary_little_endian 1.0\nelement vertex " << mesh.points.size()
      << "\nproperty float x\nproperty float y\nproperty float z\n"
      << (moving ? "property float vx\nproperty float vy\nproperty float vz\n" : "") << "element face "
      << mesh.polygons.size() << "\nproperty list uchar int vertex_indices\nend_header\n";
  std::string bytes;
  for (std::size_t i = 0; i < mesh.points.size(); ++i) {
    AppendVector(bytes, mesh.points[i]);
    if (moving) AppendVector(bytes, velocities[i]);
    Flush(bytes, out, kFlushAt);
  }
  for (const PolygonObject::Polygon& polygon : mesh.polygons) {
    const std::int32_t corners[4] = {polygon.a, polygon.b, polygon.c, polygon.d};
    const int count = polygon.IsTriangle() ? 3 : 4;
    bytes.push_back(static_cast<char>(count));
    for (int c = 0; c < count; ++c) Append32(bytes, static_cast<std::uint32_t>(corners[c]));
    Flush(bytes, out, kFlushAt);
  }
  Flush(bytes, out, 0);
}

}  // namespace orlix
