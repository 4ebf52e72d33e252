#pragma once
// Polygon meshes from files: Wavefront OBJ, PLY (ascii and both binaries), STL (ascii and binary), glTF 2.0 (binary, or
// text with its arrays inside).
//
// Files are not trusted. A count is held against the bytes that are there before memory is taken; an index outside, a
// coordinate that is no finite number or a cut file is an error that names file and line (text) or byte (binary).
// Polygons with more than four corners become fans of triangles; those with fewer than three corners are left out.
// Texture coordinates come from OBJ files, normals of points from OBJ, PLY and glTF. An OBJ file that gives a point
// several normals, for an edge, has none. Colours, groups and materials are passed over.

#include <filesystem>
#include <optional>
#include <string_view>

#include "globals/Result.h"
#include "host/objects/BaseObject.h"

namespace orlix {

enum class MeshFormat { Obj, Ply, Stl, Gltf };

// By the extension, upper or lower case.
std::optional<MeshFormat> MeshFormatOf(const std::filesystem::path& path);

Result<PolygonObject> ReadMesh(const std::filesystem::path& path);
// The content of a file; name stands in messages.
Result<PolygonObject> ParseMesh(std::string_view content, MeshFormat format, std::string_view name);

// How a file's numbers are written: "text", "binary" (little endian) or "binary big-endian"; empty for a PLY file whose
// header can't be read.
std::string_view MeshEncoding(std::string_view content, MeshFormat format);

struct MeshInfo {
  MeshFormat format = MeshFormat::Obj;
  std::string_view encoding;
  std::size_t points = 0, polygons = 0;
  Vec3D low, high;  // of all points, host units; 0 without points
};
// Reads the whole file.
Result<MeshInfo> DescribeMesh(const std::filesystem::path& path);

// One format each. STL's points, which the file repeats for each triangle, are joined where all bits agree.
Result<PolygonObject> ParseObj(std::string_view content, std::string_view name);
Result<PolygonObject> ParsePly(std::string_view content, std::string_view name);
Result<PolygonObject> ParseStl(std::string_view content, std::string_view name);
Result<PolygonObject> ParseGltf(std::string_view content, std::string_view name);
std::string_view PlyEncoding(std::string_view content);
std::string_view StlEncoding(std::string_view content);

}  // namespace orlix
