#pragma once
// Polygon meshes from files: Wavefront OBJ, PLY (ascii and both binaries), STL (ascii and binary).
//
// Files are not trusted. A count is held against the bytes that are there before memory is taken; an index outside, a
// coordinate that is no finite number or a cut file is an error that names file and line (text) or byte (binary).
// Polygons with more than four corners become fans of triangles; those with fewer than three corners are left out.
// Normals, texture coordinates, colours, groups and materials are passed over.

#include <filesystem>
#include <optional>
#include <string_view>

#include "globals/Result.h"
#include "host/objects/BaseObject.h"

namespace orlix {

enum class MeshFormat { Obj, Ply, Stl };

// By the extension, upper or lower case.
std::optional<MeshFormat> MeshFormatOf(const std::filesystem::path& path);

Result<PolygonObject> ReadMesh(const std::filesystem::path& path);
// The content of a file; name stands in messages.
Result<PolygonObject> ParseMesh(std::string_view content, MeshFormat format, std::string_view name);

// One format each. STL's points, which the file repeats for each triangle, are joined where all bits agree.
Result<PolygonObject> ParseObj(std::string_view content, std::string_view name);
Result<PolygonObject> ParsePly(std::string_view content, std::string_view name);
Result<PolygonObject> ParseStl(std::string_view content, std::string_view name);

}  // namespace orlix
