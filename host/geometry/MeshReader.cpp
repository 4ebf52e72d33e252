#include "host/geometry/MeshReader.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <new>

#include "host/files/ByteSource.h"

namespace orlix {

namespace {

constexpr std::uint64_t kMaxFileSize = std::uint64_t(1) << 36;

}  // namespace

std::optional<MeshFormat> MeshFormatOf(const std::filesystem::path& path) {
  std::string extension = path.extension().string();
  std::transform(extension.begin(), extension.end(), extension.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  if (extension == ".obj") return MeshFormat::Obj;
  if (extension == ".ply") return MeshFormat::Ply;
  if (extension == ".stl") return MeshFormat::Stl;
  if (extension == ".glb" || extension == ".gltf") return MeshFormat::Gltf;
  return {};
}

Result<PolygonObject> ParseMesh(std::string_view content, MeshFormat format, std::string_view name) {
  try {
    switch (format) {
      case MeshFormat::Obj:
        return ParseObj(content, name);
      case MeshFormat::Ply:
        return ParsePly(content, name);
      case MeshFormat::Stl:
        return ParseStl(content, name);
      case MeshFormat::Gltf:
        return ParseGltf(content, name);
    }
  } catch (const std::bad_alloc&) {
    return Error{ErrorKind::Memory, fmt::format("{}: not enough memory for this mesh", name)};
  }
  return Error{ErrorKind::Internal, "unknown mesh format"};
}

std::string_view MeshEncoding(std::string_view content, MeshFormat format) {
  switch (format) {
    case MeshFormat::Ply:
      return PlyEncoding(content);
    case MeshFormat::Stl:
      return StlEncoding(content);
    case MeshFormat::Gltf:
      return content.starts_with("glTF") ? "binary" : "text";
    case MeshFormat::Obj:
      break;
  }
  return "text";
}

namespace {

// Calls use(content, format) with a mesh file's content.
template <class T, class Use>
Result<T> WithContent(const std::filesystem::path& path, Use use) {
  const auto format = MeshFormatOf(path);
  if (!format) {
    return Error{ErrorKind::InputFile,
                 fmt::format("{}: a mesh file must end in .obj, .ply, .stl, .glb or .gltf", path.string())};
  }
  const Result<FileBytes> content = ReadWholeFile(path, kMaxFileSize);
  if (!content) return content.error();
  return use(content->Text(), *format);
}

}  // namespace

Result<PolygonObject> ReadMesh(const std::filesystem::path& path) {
  return WithContent<PolygonObject>(
      path, [&](std::string_view content, MeshFormat format) { return ParseMesh(content, format, path.string()); });
}

Result<MeshInfo> DescribeMesh(const std::filesystem::path& path) {
  return WithContent<MeshInfo>(path, [&](std::string_view content, MeshFormat format) -> Result<MeshInfo> {
    const Result<PolygonObject> mesh = ParseMesh(content, format, path.string());
    if (!mesh.ok()) return mesh.error();
    MeshInfo info{format, MeshEncoding(content, format), mesh->points.size(), mesh->polygons.size(), {}, {}};
    if (!mesh->points.empty()) info.low = info.high = mesh->points.front();
    for (const Vec3D& point : mesh->points) info.low = Min(info.low, point), info.high = Max(info.high, point);
    return info;
  });
}

}  // namespace orlix
