#pragma once
// Polygon meshes as OBJ, PLY and STL. The stream's state tells whether the bytes were taken.

#include <ostream>
#include <string_view>

#include "host/objects/BaseObject.h"

namespace orlix {

// Text with the shortest digits that give each double back; normals where the mesh has them.
void WriteObj(const PolygonObject& mesh, std::ostream& out);

// Binary, little endian, single precision. What the mesh's points have: normals as the properties nx, ny, nz,
// velocities (host units a second) as vx, vy, vz, and its attributes by their names, with _x, _y, _z for vectors.
// comments: whole lines of the header, or none.
void WritePly(const PolygonObject& mesh, std::ostream& out, std::string_view comments = {});

// Binary triangles with their own normals, single precision. Text of up to 80 letters stands in the header.
void WriteStl(const PolygonObject& mesh, std::ostream& out, std::string_view text = {});

}  // namespace orlix
