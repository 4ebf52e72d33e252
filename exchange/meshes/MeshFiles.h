#pragma once
// Meshes for other programs, by extension: OBJ, PLY, STL, glTF 2.0 (binary) and USD (text). Readers are in
// host/geometry, that of USD in UsdaReader.h.

#include <filesystem>
#include <ostream>
#include <span>

#include "exchange/points/FileUnits.h"
#include "globals/Result.h"
#include "host/objects/BaseObject.h"

namespace orlix {

struct MeshFileFormat {
  const char* extension;  // with the dot, lower case
  const char* label;
  // Numbers are narrowed to single precision but in OBJ. The stream's state tells whether the bytes were taken.
  Status (*write)(const PolygonObject& mesh, const FileUnits& units, std::ostream& out);
};
std::span<const MeshFileFormat> MeshFileFormats();
// By the name's ending, upper or lower case; null for any other.
const MeshFileFormat* FindMeshFileFormat(const std::filesystem::path& path);

// The units that WriteMeshFile left in the head of a file; of glTF what it defines. Nothing where none are known.
FileUnits ReadMeshUnits(const std::filesystem::path& path);

// To a temporary name first. Output for a name of another ending.
Status WriteMeshFile(const std::filesystem::path& path, const PolygonObject& mesh, const FileUnits& units);

// glTF keeps metres and y upwards: the mesh stands in a node that turns and scales it there. Velocities and values of
// points are attributes of the application, _VELOCITY and _NAME.
Status WriteGlb(const PolygonObject& mesh, const FileUnits& units, std::ostream& out);

}  // namespace orlix
