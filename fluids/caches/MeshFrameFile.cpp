#include "fluids/caches/MeshFrameFile.h"

#include <fmt/format.h>

namespace orlix {

namespace {

constexpr std::size_t kMostCount = 2147483647;
constexpr std::int32_t kMostAttributes = 1024;

Status Damaged(const std::string& fileName, const std::string& what) {
  return Status::Fail(ErrorKind::InputFile, fileName + ": damaged: " + what);
}

bool WriteVectors(HyperFileWriter& file, const std::vector<Vec3D>& vectors, bool compress) {
  return file.WriteBool(!vectors.empty()) &&
         (vectors.empty() || (file.WriteLong(static_cast<std::int32_t>(vectors.size())) &&
                              WritePackedBlock(file, vectors, sizeof(double), compress)));
}

bool WriteMesh(HyperFileWriter& file, const PolygonObject& mesh, bool compress) {
  if (!file.WriteLong(static_cast<std::int32_t>(mesh.polygons.size())) ||
      !file.WriteLong(static_cast<std::int32_t>(mesh.points.size())) ||
      !WritePackedBlock(file, mesh.polygons, sizeof(std::int32_t), compress) ||
      !WritePackedBlock(file, mesh.points, sizeof(double), compress) || !WriteVectors(file, mesh.normals, compress) ||
      !WriteVectors(file, mesh.velocities, compress) ||
      !file.WriteLong(static_cast<std::int32_t>(mesh.attributes.size()))) {
    return false;
  }
  for (const PolygonObject::Attribute& attribute : mesh.attributes) {
    if (!file.WriteString(attribute.name) || !file.WriteLong(attribute.components) ||
        !WritePackedBlock(file, attribute.values, sizeof(double), compress)) {
      return false;
    }
  }
  return true;
}

bool HasMesh(const PolygonObject* mesh) {
  return mesh && !mesh->points.empty() && !mesh->polygons.empty() && mesh->points.size() <= kMostCount &&
         mesh->polygons.size() <= kMostCount;
}

Status EnterChunk(HyperFileReader& file, const std::string& fileName, MeshEntryHeader& header) {
  header = {};
  HyperValue next = HyperValue::None;
  if (!file.ReadValueHeader(next)) return file.readStatus();
  if (next != HyperValue::Chunk) return Damaged(fileName, "fewer chunks than meshes");
  std::int32_t id = 0, level = 0;
  if (!file.ReadChunkStart(id, level) || !file.ReadBool(header.present)) return file.readStatus();
  if (!header.present) return {};
  if (!file.ReadLong(header.polygons) || !file.ReadLong(header.points)) return file.readStatus();
  if (header.polygons < 1 || header.points < 1) {
    return Damaged(fileName, fmt::format("a mesh of {} points and {} polygons", header.points, header.polygons));
  }
  return {};
}

Status CheckMesh(const std::string& fileName, const PolygonObject& mesh) {
  const auto points = static_cast<std::int32_t>(mesh.points.size());
  for (const PolygonObject::Polygon& p : mesh.polygons) {
    for (const std::int32_t corner : {p.a, p.b, p.c, p.d}) {
      if (corner < 0 || corner >= points) {
        return Damaged(fileName, fmt::format("a polygon at point {} of {}", corner, points));
      }
    }
  }
  for (const Vec3D& point : mesh.points) {
    if (!IsFinite(point)) return Damaged(fileName, "a point without a place");
  }
  return {};
}

Status ReadVectors(HyperFileReader& file, const std::string& fileName, std::size_t points,
                   std::vector<Vec3D>& vectors) {
  bool any = false;
  std::int32_t count = 0;
  vectors.clear();
  if (!file.ReadBool(any)) return file.readStatus();
  if (!any) return {};
  if (!file.ReadLong(count)) return file.readStatus();
  if (count < 0 || static_cast<std::size_t>(count) != points) {
    return Damaged(fileName, fmt::format("{} normals or velocities at {} points", count, points));
  }
  return ReadPackedBlock(file, fileName, points, sizeof(double), vectors);
}

Status ReadAttributes(HyperFileReader& file, const std::string& fileName, PolygonObject& mesh) {
  std::int32_t count = 0;
  if (!file.ReadLong(count)) return file.readStatus();
  if (count < 0 || count > kMostAttributes) return Damaged(fileName, fmt::format("{} attributes", count));
  mesh.attributes.resize(static_cast<std::size_t>(count));
  for (PolygonObject::Attribute& attribute : mesh.attributes) {
    if (!file.ReadString(attribute.name) || !file.ReadLong(attribute.components)) return file.readStatus();
    if (attribute.components != 1 && attribute.components != 3) {
      return Damaged(fileName, fmt::format("an attribute of {} numbers a point", attribute.components));
    }
    const std::size_t values = mesh.points.size() * static_cast<std::size_t>(attribute.components);
    if (Status read = ReadPackedBlock(file, fileName, values, sizeof(double), attribute.values); !read) return read;
  }
  return {};
}

Status ReadMesh(HyperFileReader& file, const std::string& fileName, const MeshEntryHeader& header,
                PolygonObject& mesh) {
  mesh.textureCoordinates.clear();
  const auto polygons = static_cast<std::size_t>(header.polygons), points = static_cast<std::size_t>(header.points);
  if (Status s = ReadPackedBlock(file, fileName, polygons, sizeof(std::int32_t), mesh.polygons); !s) return s;
  if (Status s = ReadPackedBlock(file, fileName, points, sizeof(double), mesh.points); !s) return s;
  if (Status s = CheckMesh(fileName, mesh); !s) return s;
  if (Status s = ReadVectors(file, fileName, points, mesh.normals); !s) return s;
  if (Status s = ReadVectors(file, fileName, points, mesh.velocities); !s) return s;
  return ReadAttributes(file, fileName, mesh);
}

}  // namespace

bool WriteMeshFrame(HyperFileWriter& file, std::span<const PolygonObject* const> meshes, bool compress,
                    std::string_view number) {
  if (!file.WriteLong(static_cast<std::int32_t>(meshes.size()))) return false;
  for (const PolygonObject* mesh : meshes) {
    if (!file.WriteChunkStart(1, 0) || !file.WriteBool(HasMesh(mesh))) return false;
    if (HasMesh(mesh) && !WriteMesh(file, *mesh, compress)) return false;
    if (!file.WriteChunkEnd()) return false;
  }
  return number.empty() || file.WriteString(number);
}

Status ReadMeshFrameHead(HyperFileReader& file, const std::string& fileName, std::int32_t& count) {
  if (!file.ReadLong(count)) return file.readStatus();
  return count < 0 ? Damaged(fileName, fmt::format("{} meshes", count)) : Status();
}

Status ReadMeshChunk(HyperFileReader& file, const std::string& fileName, PolygonObject& mesh, bool& present) {
  MeshEntryHeader header;
  if (Status entered = EnterChunk(file, fileName, header); !entered) return entered;
  present = header.present;
  if (present) {
    if (Status read = ReadMesh(file, fileName, header, mesh); !read) return read;
  }
  return file.ReadChunkEnd() ? Status() : file.readStatus();
}

Status ReadMeshChunkHead(HyperFileReader& file, const std::string& fileName, MeshEntryHeader& header) {
  if (Status entered = EnterChunk(file, fileName, header); !entered) return entered;
  return file.ReadChunkEnd() ? Status() : file.readStatus();
}

}  // namespace orlix
