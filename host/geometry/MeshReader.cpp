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
    }
  } catch (const std::bad_alloc&) {
    return Error{ErrorKind::Memory, fmt::format("{}: not enough memory for this mesh", name)};
  }
  return Error{ErrorKind::Internal, "unknown mesh format"};
}

Result<PolygonObject> ReadMesh(const std::filesystem::path& path) {
  const auto format = MeshFormatOf(path);
  if (!format) {
    return Error{ErrorKind::InputFile, fmt::format("{}: a mesh file must end in .obj, .ply or .stl", path.string())};
  }
  Result<std::vector<std::byte>> content = ReadWholeFile(path, kMaxFileSize);
  if (!content.ok()) return content.error();
  return ParseMesh({reinterpret_cast<const char*>(content->data()), content->size()}, *format, path.string());
}

}  // namespace orlix
