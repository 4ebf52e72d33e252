#include "exchange/meshes/MeshFiles.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <fstream>

#include "exchange/meshes/UsdaFile.h"
#include "host/files/AtomicStream.h"
#include "host/geometry/MeshWriter.h"

namespace orlix {

namespace {

// "metres_per_unit 0.01", "up_axis z"; nothing where nothing is known.
std::string UnitLines(const FileUnits& units, const char* before) {
  if (!(units.metresPerUnit > 0)) return "";
  return fmt::format("{0}metres_per_unit {1}\n{0}up_axis {2}\n", before, units.metresPerUnit, units.upZ ? 'z' : 'y');
}

Status WriteObjFile(const PolygonObject& mesh, const FileUnits& units, std::ostream& out) {
  out << UnitLines(units, "# ");
  WriteObj(mesh, out);
  return {};
}

Status WritePlyFile(const PolygonObject& mesh, const FileUnits& units, std::ostream& out) {
  WritePly(mesh, out, UnitLines(units, "comment "));
  return {};
}

// A header that begins with "solid" would be taken for text.
Status WriteStlFile(const PolygonObject& mesh, const FileUnits& units, std::ostream& out) {
  std::string text = "Orlix " + UnitLines(units, "");
  std::replace(text.begin(), text.end(), '\n', ' ');
  WriteStl(mesh, out, text);
  return {};
}

Status WriteUsdaMesh(const PolygonObject& mesh, const FileUnits& units, std::ostream& out) {
  WriteUsda(mesh, units, {}, out);
  return {};
}

constexpr MeshFileFormat kMeshFiles[] = {{".obj", "Wavefront OBJ", WriteObjFile},
                                         {".ply", "PLY", WritePlyFile},
                                         {".stl", "STL", WriteStlFile},
                                         {".glb", "glTF 2.0", WriteGlb},
                                         {".usda", "USD text", WriteUsdaMesh}};

}  // namespace

std::span<const MeshFileFormat> MeshFileFormats() { return kMeshFiles; }

const MeshFileFormat* FindMeshFileFormat(const std::filesystem::path& path) {
  std::string ending = path.extension().string();
  std::transform(ending.begin(), ending.end(), ending.begin(),
                 [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c; });
  const auto found = std::find_if(std::begin(kMeshFiles), std::end(kMeshFiles),
                                  [&](const MeshFileFormat& format) { return ending == format.extension; });
  return found == std::end(kMeshFiles) ? nullptr : found;
}

FileUnits ReadMeshUnits(const std::filesystem::path& path) {
  constexpr std::size_t kHead = 1024;
  constexpr std::string_view kMetres = "metres_per_unit ", kUp = "up_axis ";
  const MeshFileFormat* format = FindMeshFileFormat(path);
  if (format && format->write == WriteGlb) return {1, false};  // by its definition
  std::string head(kHead, '\0');
  std::ifstream in(path, std::ios::binary);
  in.read(head.data(), kHead);
  head.resize(static_cast<std::size_t>(in.gcount()));
  FileUnits units;
  const std::size_t at = head.find(kMetres), up = head.find(kUp);
  if (at == std::string::npos || up == std::string::npos) return {};
  std::from_chars(head.data() + at + kMetres.size(), head.data() + head.size(), units.metresPerUnit);
  units.upZ = head.compare(up + kUp.size(), 1, "z") == 0;
  return units.metresPerUnit > 0 && std::isfinite(units.metresPerUnit) ? units : FileUnits();
}

Status WriteMeshFile(const std::filesystem::path& path, const PolygonObject& mesh, const FileUnits& units) {
  const MeshFileFormat* format = FindMeshFileFormat(path);
  if (!format) return Status::Fail(ErrorKind::Usage, path.string() + ": no format of meshes");
  AtomicStream stream;
  if (Status opened = stream.Open(path); !opened) return opened;
  if (Status written = format->write(mesh, units, stream); !written) {
    return Status::Fail(written.error().kind, path.string() + ": " + written.error().text);
  }
  return stream.Commit();
}

}  // namespace orlix
